// The simulated controller behind the group writers: bad values in the machine description
// (MCTP endpoints, VPD devices, environment, server maker ids) are refused with a message
// naming the problem.
#include "host/machine.h"
#include "tests/fixture.h"

namespace {

class HostSim : public testutil::IngestTest {};

TEST_F(HostSim, InvalidMachinesNameTheProblem) {
    const std::string eid = R"({"mctp_eids": [{"segment": 0, "bus": 1, "device": 0, "function": 0, )";
    const std::pair<std::string, const char*> cases[] = {
        {R"({"mctp_eids": [{"bus": 1, "device": 0, "function": 0, "eid": 8}]})", "has no \"segment\""},
        {eid + R"("eid": 0}]})", "endpoint 0 eid is out of range (1 to 255)"},
        {eid + R"("eid": 8, "slot": 1}]})", "endpoint 0: unknown key \"slot\""},
        {R"({"vpd_devices": {"0x42": {"image": "a.bin"}}})", "id \"0x42\" is not a decimal number"},
        {R"({"vpd_devices": {"66": {"image": "missing.bin"}}})", "VPD device 66: cannot open image"},
        {R"({"env": {"PLATFORM_NO_REV": 5}})", "variable PLATFORM_NO_REV must be a text"},
        {R"({"server_maker_vendor_ids": [1]})", "must be a list of two PCI vendor ids"},
        {R"({"server_maker_vendor_ids": ["0x10000", 1]})", "vendor id 0 is out of range (1 to 65535)"}};
    for (const auto& c : cases) {
        std::string err = "(loaded)";
        try {
            load_machine_json(c.first);
        } catch (const host::machine_error& e) {
            err = e.what();
        }
        EXPECT_NE(std::string::npos, err.find(c.second)) << c.first << "\n" << err;
    }
}

}  // namespace
