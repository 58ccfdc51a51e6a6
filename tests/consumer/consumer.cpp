// A program of another controller component, built against the installed package: it
// parses an AIM file with the exported tree and a FRU image with the FRU parser, and checks
// what they read (the example accel-2u.xml and alveo_u50.bin of the project).
//
// usage: consumer AIM_FILE FRU_IMAGE    exit 0 when everything read is as expected
#include <stdio.h>
#include <string.h>

#include <fstream>
#include <iterator>
#include <vector>

#include "aim/document.h"
#include "fru/fru_parser.h"

namespace {

int failures = 0;

void expect(bool ok, const char* what) {
    if (!ok) {
        fprintf(stderr, "consumer: not as expected: %s\n", what);
        ++failures;
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: consumer AIM_FILE FRU_IMAGE\n");
        return 2;
    }

    // The stream form reads the given file (the path form prefers the controller's debug copy).
    aim_parser::document doc;
    std::ifstream aim(argv[1]);
    expect(doc.parse(aim) == aim_parser::parse_ok, "the AIM file parses");
    std::vector<aim_parser::configset*> sets;
    doc.inventories.get_configset_list(sets);
    expect(sets.size() == 1, "one configset");
    std::vector<aim_parser::config*> configs;
    if (!sets.empty()) sets[0]->get_config_list(configs);
    expect(configs.size() == 2, "two configs");
    aim_parser::config* raid = sets.empty() ? nullptr : sets[0]->get_config("RAID 9560-16i 8GB");
    expect(raid && raid->bus == "0x5E" && raid->id == "Slot3.Func0", "the RAID adapter's address and ID");
    aim_parser::group* generic = raid ? raid->get_group("PCI Generic Information") : nullptr;
    aim_parser::setting_node* width = generic ? generic->get_setting_node("Max Data Width") : nullptr;
    expect(width && width->get_int64(-1) == 8, "its numeric setting");

    std::ifstream fru(argv[2], std::ios::binary);
    std::vector<unsigned char> image((std::istreambuf_iterator<char>(fru)), std::istreambuf_iterator<char>());
    aim_parser::fru_parser parser(static_cast<unsigned>(image.size()), image.data());
    expect(!image.empty() && parser.parser(), "the FRU image parses");
    expect(strcmp(parser.product.product_name, "Alveo U50") == 0, "the product name");
    expect(strcmp(parser.board.serial_number, "50121119B0JX") == 0, "the board serial number");

    if (failures != 0) return 1;
    printf("consumer: %zu configs, FRU product '%s': as expected\n", configs.size(),
           parser.product.product_name);
    return 0;
}
