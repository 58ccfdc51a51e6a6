// The simulated controller behind the group writers: MCTP endpoints, the card VPD read over
// IPMI, the run's environment and the server maker's vendor ids.
#include <stdlib.h>

#include "cards/server_maker.h"
#include "host/machine.h"
#include "platform/ipmi_cmd.h"
#include "platform/mctp.h"
#include "platform/vqm_db.h"
#include "tests/writers_util.h"

namespace {

class HostSim : public testutil::IngestTest {
protected:
    // The machine_error message of loading `json`, "" when it loads.
    std::string load_error(const std::string& json) {
        try {
            load_machine_json(json);
        } catch (const host::machine_error& e) {
            return e.what();
        }
        return "";
    }
    // Sends one read-VPD request; the completion code, data in `data`.
    int read_vpd(unsigned device, unsigned offset, unsigned length, std::string& data) {
        uint8_t request[8] = {
            0x20,           0x3A, 0x00, 0x0B, uint8_t(offset & 0xFF), uint8_t(offset >> 8), uint8_t(device),
            uint8_t(length)};
        uint8_t response[256] = {0};
        int response_length = 0;
        EXPECT_EQ(0, send_ipmi_cmd(request, 8, response, &response_length));
        data.assign(reinterpret_cast<char*>(response + 1), response_length > 1 ? response_length - 1 : 0);
        return response[0];
    }
};

TEST_F(HostSim, InvalidMachinesNameTheProblem) {
    struct Case {
        const char* json;
        const char* message;
    } cases[] = {
        {R"({"mctp_eids": {}})", "\"mctp_eids\": must be a list of endpoints"},
        {R"({"mctp_eids": [{"bus": 1, "device": 0, "function": 0, "eid": 8}]})",
         "endpoint 0 has no \"segment\""},
        {R"({"mctp_eids": [{"segment": 0, "bus": 1, "device": 32, "function": 0, "eid": 8}]})",
         "endpoint 0 device is out of range (0 to 31)"},
        {R"({"mctp_eids": [{"segment": 0, "bus": 1, "device": 0, "function": 0, "eid": 0}]})",
         "endpoint 0 eid is out of range (1 to 255)"},
        {R"({"mctp_eids": [{"segment": 0, "bus": 1, "device": 0, "function": 0, "eid": 8, "slot": 1}]})",
         "endpoint 0: unknown key \"slot\""},
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
        std::string err = load_error(c.json);
        EXPECT_NE(std::string::npos, err.find(c.message)) << c.json << "\n" << err;
    }
}

TEST_F(HostSim, MctpEndpointTable) {
    load_machine_json(R"({"pci_seg_bits": 4, "mctp_eids": [
        {"segment": 1, "bus": "0x3b", "device": 0, "function": 1, "eid": 9},
        {"segment": 0, "bus": 59, "device": 0, "function": 1, "eid": 10}]})");
    EXPECT_EQ(4, vqmdb_get_pci_seg_bits(0));
    mctp_eid_table_t* table = MctpEidTableGet(4);
    ASSERT_NE(nullptr, table);
    EXPECT_EQ(9, MctpGetEid(table, 4, 1, 0x3b, 0, 1));
    EXPECT_EQ(9, MctpGetEid(table, 4, 0x11, 0x3b, 0, 1));  // only the low 4 segment bits count
    EXPECT_EQ(10, MctpGetEid(table, 4, 0, 0x3b, 0, 1));
    EXPECT_EQ(0, MctpGetEid(table, 4, 1, 0x3b, 0, 0));
    EXPECT_EQ(9, MctpGetEid(table, 0, 7, 0x3b, 0, 1));  // no segment bits: the first of the address
    EXPECT_EQ(0, MctpGetEid(nullptr, 4, 1, 0x3b, 0, 1));
    MctpEidTableFree(table);

    load_machine_json("{}");
    EXPECT_EQ(0, vqmdb_get_pci_seg_bits(0));
    table = MctpEidTableGet(0);
    EXPECT_EQ(0, MctpGetEid(table, 0, 0, 0x3b, 0, 1));
    MctpEidTableFree(table);
}

TEST_F(HostSim, ReadVpdAnswersFromImage) {
    std::string image;
    for (int i = 0; i < 300; ++i) image += static_cast<char>(i & 0xFF);
    testutil::write_file(dir + "/machine/vpd/card.bin", image);
    load_machine_json(R"({"vpd_devices": {"66": {"image": "vpd/card.bin", "fail_offsets": [7]}}})");
    std::string data;
    EXPECT_EQ(0, read_vpd(66, 0, 2, data));
    EXPECT_EQ(std::string("\x00\x01", 2), data);
    EXPECT_EQ(0, read_vpd(66, 0x101, 3, data));  // offset high byte
    EXPECT_EQ(std::string("\x01\x02\x03", 3), data);
    EXPECT_EQ(0, read_vpd(66, 298, 4, data));  // zero past the end
    EXPECT_EQ(std::string("\x2A\x2B\x00\x00", 4), data);
    EXPECT_EQ(0, read_vpd(66, 0, 255, data));
    EXPECT_EQ(255u, data.size());
    EXPECT_NE(0, read_vpd(66, 7, 1, data));  // a failing offset
    EXPECT_NE(0, read_vpd(67, 0, 2, data));  // an unknown device
    EXPECT_TRUE(data.empty());

    uint8_t other[4] = {0x20, 0x06, 0x00, 0x01};  // another command
    uint8_t response[256] = {0};
    int length = 0;
    EXPECT_EQ(0, send_ipmi_cmd(other, 4, response, &length));
    EXPECT_NE(0, response[0]);
    EXPECT_EQ(1, length);
    EXPECT_TRUE(logged(host::log_level::dbg, "sim ipmi: request 20 3A 00 0B 00 00 42 02"));
}

TEST_F(HostSim, EnvironmentSetWhileLoadedAndRestored) {
    setenv("RVT_CODENAME", "before", 1);
    unsetenv("PLATFORM_NO_REV");
    load_machine_json(R"({"env": {"RVT_CODENAME": "gravel", "PLATFORM_NO_REV": "50002d"}})");
    EXPECT_STREQ("gravel", getenv("RVT_CODENAME"));
    EXPECT_STREQ("50002d", getenv("PLATFORM_NO_REV"));
    load_machine_json(R"({"env": {"PLATFORM_NO_REV": "1"}})");
    EXPECT_STREQ("before", getenv("RVT_CODENAME"));
    EXPECT_STREQ("1", getenv("PLATFORM_NO_REV"));
    host::reset_machine();
    EXPECT_STREQ("before", getenv("RVT_CODENAME"));
    EXPECT_EQ(nullptr, getenv("PLATFORM_NO_REV"));
    unsetenv("RVT_CODENAME");
}

TEST_F(HostSim, ServerMakerVendorIds) {
    EXPECT_EQ(0xFE00, aim_parser::server_maker_vendor_id(0));
    EXPECT_EQ(0xFE01, aim_parser::server_maker_vendor_id(1));
    EXPECT_EQ(0, aim_parser::server_maker_vendor_id(2));
    load_machine_json(R"({"server_maker_vendor_ids": ["0x1AB0", 6833]})");
    EXPECT_EQ(0x1AB0, aim_parser::server_maker_vendor_id(0));
    EXPECT_EQ(6833, aim_parser::server_maker_vendor_id(1));
    host::reset_machine();
    EXPECT_EQ(0xFE00, aim_parser::server_maker_vendor_id(0));
}

}  // namespace
