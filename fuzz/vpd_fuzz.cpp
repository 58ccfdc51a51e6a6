// Card VPD answers: any bytes as the VPD image of the boot adapter of the example machine
// storage-1u, read by the hardware VPD step of a parser for that adapter. The image's first
// two bytes pick the layout (FE 00: 256 bytes, 03 FE: 1 KB), as on a real card; the seed
// corpus holds an image of each.
#include <string>

#include <nlohmann/json.hpp>

#include "fuzz/harness.h"
#include "host/machine.h"
#include "ingest/parser.h"

namespace {
std::string g_machine, g_image;
nlohmann::json g_description;
aim_parser::parser* g_parser = nullptr;  // these live as long as the process
aim_parser::group* g_group = nullptr;    // no VPD settings: only the card is read
aim_parser::aim_pci_key_unit g_key;
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::controller();
    g_machine = fuzz::machine_copy("storage-1u");
    fuzz::load_machine(g_machine);
    // Its "VPDs" row, as the walk leaves it, which the step updates.
    if (fuzz::run_aim(fuzz::source_file("examples/aim/storage-1u.xml")) != 0) abort();
    g_image = g_machine + "/vpd/fuzz-image.bin";
    // Only what the step asks of the controller: the platform, the server maker's ids and
    // the card; its "PCIs" rows are in the database already.
    nlohmann::json full =
        nlohmann::json::parse(fuzz::source_file("examples/machines/storage-1u/machine.json"));
    g_description = {{"env", full["env"]},
                     {"server_maker_vendor_ids", full["server_maker_vendor_ids"]},
                     {"vpd_devices", {{"66", {{"image", g_image}}}}}};
    g_parser = new aim_parser::parser();
    if (!g_parser->init()) abort();
    g_group = new aim_parser::group();
    g_key.bus = 2;  // the boot adapter's function 02:00.0
    if (g_parser->get_pci_node_slot_key_by_pfa(fuzz::controller(), &g_key) != 0) abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::write_file(g_image, data, size);
    host::load_machine(g_machine, g_description);  // the image is read when it is installed
    g_parser->insert_aim_vpd_info(fuzz::controller(), g_group, &g_key);
    fuzz::drop_log();
    return 0;
}
