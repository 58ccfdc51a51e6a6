// vNIC capability data: any bytes as the data set, read by the vNIC data reader of a parser
// over the "PCIs" rows of the example machine rack-2u-nic. The reader looks up every vNIC
// record in "PCIs" and writes the rows of the functions it finds; they are removed after
// each input so that the database stays the same size.
#include <string>

#include "fuzz/harness.h"
#include "host/db.h"
#include "ingest/parser.h"

namespace {
std::string g_machine;
aim_parser::parser* g_parser = nullptr;  // lives as long as the process
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::controller();
    g_machine = fuzz::machine_copy("rack-2u-nic");
    fuzz::load_machine(g_machine);  // the data set is read from its file at each open
    g_parser = new aim_parser::parser();
    if (!g_parser->init()) abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::write_file(g_machine + "/iscsi-cap-data.bin", data, size);
    g_parser->vnic_supported_keys.clear();
    g_parser->get_pci_vnic_supported_info(fuzz::controller());
    std::string err;
    if (host::db_exec_script(
            fuzz::controller(),
            "DELETE FROM PCIAdapter; DELETE FROM PCIPhysicalPort; DELETE FROM PCILogicalPort; "
            "DELETE FROM PCINetwork; DELETE FROM VPDs;",
            &err) != 0) {
        fprintf(stderr, "fuzz: cannot clear the vNIC rows: %s\n", err.c_str());
        abort();
    }
    fuzz::drop_log();
    return 0;
}
