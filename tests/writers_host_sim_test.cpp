// The simulated controller behind the group writers: bad values in the machine description
// (MCTP endpoints, VPD devices, environment, server maker ids) are refused with a message
// naming the problem.
#include "host/machine.h"
#include "tests/writers_util.h"

namespace {

class HostSim : public testutil::IngestTest {};

TEST_F(HostSim, InvalidMachinesNameTheProblem) {
    const std::string endpoint = R"({"mctp_eids": [{"segment": 0, "bus": 1, "device": 0, "function": 0, )";
    struct Case {
        std::string json;
        const char* message;
    } cases[] = {
        {R"({"mctp_eids": {}})", "\"mctp_eids\": must be a list of endpoints"},
        {R"({"mctp_eids": [{"bus": 1, "device": 0, "function": 0, "eid": 8}]})",
         "endpoint 0 has no \"segment\""},
        {R"({"mctp_eids": [{"segment": 0, "bus": 1, "device": 32, "function": 0, "eid": 8}]})",
         "endpoint 0 device is out of range (0 to 31)"},
        {endpoint + R"("eid": 0}]})", "endpoint 0 eid is out of range (1 to 255)"},
        {endpoint + R"("eid": 8, "slot": 1}]})", "endpoint 0: unknown key \"slot\""},
        {R"({"pci_seg_bits": 9})", "pci_seg_bits is out of range (0 to 8)"},
        {R"({"vpd_devices": []})", "\"vpd_devices\": must be an object"},
        {R"({"vpd_devices": {"0x42": {"image": "a.bin"}}})",
         "VPD device id \"0x42\" is not a decimal number"},
        {R"({"vpd_devices": {"256": {"image": "a.bin"}}})", "VPD device id is out of range (0 to 255)"},
        {R"({"vpd_devices": {"66": {}}})", "VPD device 66 must be {\"image\": file}"},
        {R"({"vpd_devices": {"66": {"image": "missing.bin"}}})", "VPD device 66: cannot open image"},
        {R"({"vpd_devices": {"66": {"image": 3}}})", "VPD device 66 image must be a text"},
        {R"({"env": {"PLATFORM_NO_REV": 5}})", "variable PLATFORM_NO_REV must be a text"},
        {R"({"env": {"A=B": "x"}})", "\"A=B\" is not a variable name"},
        {R"({"env": []})", "\"env\": must be an object"},
        {R"({"server_maker_vendor_ids": [1]})", "must be a list of two PCI vendor ids"},
        {R"({"server_maker_vendor_ids": [1, 0]})", "vendor id 1 is out of range (1 to 65535)"},
        {R"({"server_maker_vendor_ids": ["0x10000", 1]})", "vendor id 0 is out of range (1 to 65535)"},
    };
    for (const auto& c : cases) {
        std::string err = "(loaded)";
        try {
            load_machine_json(c.json);
        } catch (const host::machine_error& e) {
            err = e.what();
        }
        EXPECT_NE(std::string::npos, err.find(c.message)) << c.json << "\n" << err;
    }
}

}  // namespace
