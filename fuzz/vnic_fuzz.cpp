// vNIC capability data: any bytes as the data set, through a whole parse_aim of the example
// machine rack-2u-nic.
#include <string>

#include "fuzz/harness.h"

namespace {
std::string g_machine;
std::string g_xml;
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::controller();
    g_machine = fuzz::machine_copy("rack-2u-nic");
    g_xml = fuzz::source_file("examples/aim/rack-2u-nic.xml");
    fuzz::load_machine(g_machine);  // the data set is read from its file at each run
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::write_file(g_machine + "/iscsi-cap-data.bin", data, size);
    fuzz::run_aim(g_xml);
    return 0;
}
