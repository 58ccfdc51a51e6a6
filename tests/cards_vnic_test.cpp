// vNIC capability data: decoding, the size bounds, MAC assignment and the rows of the
// vNIC-capable functions that the AIM file did not describe (end to end through parse_aim).
#include <string>
#include <vector>

#include "cards/vnic_data.h"
#include "tests/afterwalk_support.h"

using awtest::columns;
using awtest::expect_columns;
using awtest::fun_key;
using awtest::num;
using testutil::aim_config;
using testutil::aim_doc;
using testutil::aim_setting;

namespace {

struct vnic_record {
    unsigned bus, device, function;
    bool vnic;
};

// A data set: header with `size` (0: the real size) and the records' count, the records,
// then `macs` MAC addresses, each 00 1A 2B 3C 4D followed by its index.
std::string vnic_set(const std::vector<vnic_record>& recs, unsigned macs, unsigned size = 0) {
    std::string body;
    for (const auto& r : recs) {
        body += std::string(2, '\0');
        body += static_cast<char>((r.device << 4) | r.function);
        body += static_cast<char>(r.bus);
        body += static_cast<char>(r.vnic ? 0x81 : 0x01);
        body += std::string(2, '\0');
    }
    for (unsigned i = 0; i < macs; ++i)
        body += std::string("\x00\x1A\x2B\x3C\x4D", 5) + static_cast<char>(0x5E + i);
    unsigned total = size ? size : static_cast<unsigned>(10 + body.size());
    std::string head(10, '\0');
    head[1] = static_cast<char>(total & 0xFF);
    head[2] = static_cast<char>(total >> 8);
    head[9] = static_cast<char>(recs.size());
    return head + body;
}

std::string mac(unsigned i) {
    char t[13];
    snprintf(t, sizeof t, "001A2B3C4D%02X", 0x5E + i);
    return t;
}

class Vnic : public awtest::AfterWalkTest {
protected:
    void install(const std::string& data) {
        testutil::write_file(dir + "/machine/iscsi.bin", data);
        load_machine_json(R"({"datastore": {"iscsi-cap-data": "iscsi.bin"}})");
    }
    // Present network functions (type 2) at bus 0x3B, device `device`, functions 0..n-1.
    void add_nic(unsigned device, unsigned functions, unsigned bus = 0x3B) {
        for (unsigned f = 0; f < functions; ++f)
            add_pci_function(bus, device, f, 0x14E4, 0x16D7, 0x14E4, 0x1402, 2, 2);
    }
};

TEST(VnicLayout, DecodesTheFormatsOwnPacking) {
    std::string set = vnic_set({{0x3B, 2, 1, true}}, 1, 0x1234);
    const uint8_t* p = reinterpret_cast<const uint8_t*>(set.data());
    aim_parser::vnic::header h = aim_parser::vnic::decode_header(p);
    EXPECT_EQ(0x1234, h.size);
    EXPECT_EQ(1, h.count);
    aim_parser::vnic::record r;
    ASSERT_TRUE(aim_parser::vnic::get_record(p + 10, set.size() - 10, 0, r));
    EXPECT_EQ(0x3B, r.bus);
    EXPECT_EQ(2, r.device);
    EXPECT_EQ(1, r.function);
    EXPECT_TRUE(r.vnic());
    EXPECT_FALSE(aim_parser::vnic::get_record(p + 10, 13, 1, r));  // ends inside record 1
    char text[13];
    EXPECT_TRUE(aim_parser::vnic::mac_text(p + 10, 13, 7, text));
    EXPECT_EQ("001A2B3C4D5E", std::string(text));
    EXPECT_FALSE(aim_parser::vnic::mac_text(p + 10, 12, 7, text));
    EXPECT_FALSE(aim_parser::vnic::mac_text(p + 10, 12, 100, text));
    EXPECT_EQ(0u, aim_parser::vnic::body_length(10));
    EXPECT_EQ(1u, aim_parser::vnic::body_length(11));
    EXPECT_EQ(4086u, aim_parser::vnic::body_length(4096));
    EXPECT_EQ(4086u, aim_parser::vnic::body_length(4097));
}

TEST_F(Vnic, ClearBitConsumesNoMacAndEachFunctionGetsItsRows) {
    add_nic(0, 3);
    install(vnic_set({{0x3B, 0, 0, false}, {0x3B, 0, 1, true}, {0x3B, 0, 2, true}}, 2));
    ASSERT_EQ(0, run_empty());
    auto adapters = rows("PCIAdapter");
    ASSERT_EQ(2u, adapters.size()) << log_text();
    for (unsigned n = 0; n < 2; ++n) {
        unsigned f = n + 1;
        expect_columns(adapters[n], {{"SegNo", "0"},
                                     {"BusNo", "59"},
                                     {"DeviceNo", "0"},
                                     {"FunctionNo", num(f)},
                                     {"NodeNo", "1"},
                                     {"SlotNo", "2"},
                                     {"CardName", "Adapter 00:3B:00.0" + num(f)},
                                     {"ConnectorType", "182"},
                                     {"AIMSupported", "2"},
                                     {"OOBSrc", "8"},
                                     {"PCIKey", num(fun_key(0x3B, 0, 0))},
                                     {"PCIFuncKey", num(fun_key(0x3B, 0, f))},
                                     {"Location", "0"}});
    }
    // Two functions of one device: ports numbered 0 and 1.
    auto phys = rows("PCIPhysicalPort");
    ASSERT_EQ(2u, phys.size());
    for (unsigned n = 0; n < 2; ++n) {
        expect_columns(phys[n], {{"FunctionNo", num(n + 1)},
                                 {"PCIFuncKey", num(fun_key(0x3B, 0, n + 1))},
                                 {"ConnectorLayout", "182"},
                                 {"Idx", num(n)},
                                 {"NumberofLogicalPorts", "1"},
                                 {"PermanentAddress", mac(n)}});
    }
    auto logical = rows("PCILogicalPort");
    ASSERT_EQ(2u, logical.size());
    for (unsigned n = 0; n < 2; ++n) {
        expect_columns(logical[n], {{"FunctionNo", num(n + 1)},
                                    {"PermanentAddress", mac(n)},
                                    {"PhyIdx", num(n)},
                                    {"Ethernet", "1"},
                                    {"Idx", "1"},
                                    {"MaxDataSize", ""}});
    }
    auto net = rows("PCINetwork");
    ASSERT_EQ(2u, net.size());
    expect_columns(net[1], {{"PCIFuncKey", num(fun_key(0x3B, 0, 2))},
                            {"NumberofPhysicalPorts", "1"},
                            {"MaxNumberofLogicalPorts", "1"}});
    auto vpd = rows("VPDs");
    ASSERT_EQ(2u, vpd.size());
    expect_columns(vpd[0], {{"UUID", "00000000000000000000001A2B3C4D5E"},
                            {"HardwareId", num(fun_key(0x3B, 0, 1))},
                            {"HardwareTypeId", "3"},
                            {"ProductName", ""}});
    EXPECT_EQ("00000000000000000000001A2B3C4D5F", vpd[1]["UUID"]);
    EXPECT_TRUE(logged(host::log_level::info,
                       "AIM PARSER: [VNIC Support] slot = 2, name = Adapter 00:3B:00.01, table: "
                       "PCIAdapter"));
    EXPECT_TRUE(
        logged(host::log_level::dbg, "AIM_PARSER: In vnic data, file_size: 43,   2B, device_count: 3,  3"));
    EXPECT_TRUE(logged(host::log_level::dbg,
                       "AIM_PARSER: Device found in vnic data, bus: 3B, device:  0, fun:  2, support: 81"));
    // The device is not handled again as an adapter without AIM data.
    EXPECT_EQ(0u, count("PCIAdapter", "AIMSupported=0"));
}

TEST_F(Vnic, UntypedHardwareAndDevicesInKeyOrder) {
    add_nic(1, 1);
    add_nic(0, 1, 0x5E);
    exec("UPDATE PCIs SET HardwareTypeId=0 WHERE BusNo=94");
    // The record of the higher device key comes first in the data set.
    install(vnic_set({{0x5E, 0, 0, true}, {0x3B, 1, 0, true}}, 2));
    ASSERT_EQ(0, run_empty());
    auto vpd = rows("VPDs");
    ASSERT_EQ(2u, vpd.size()) << log_text();
    expect_columns(vpd[0], {{"HardwareId", num(fun_key(0x3B, 1, 0))},
                            {"HardwareTypeId", "3"},
                            {"UUID", "00000000000000000000" + mac(1)}});
    expect_columns(vpd[1], {{"HardwareId", num(fun_key(0x5E, 0, 0))},
                            {"HardwareTypeId", "0"},
                            {"UUID", "00000000000000000000" + mac(0)}});
    // Numbering restarts for each device.
    EXPECT_EQ(2u, count("PCIPhysicalPort", "Idx=0"));
}

TEST_F(Vnic, FunctionOfADeviceTheAimFileCoveredWritesNothing) {
    add_nic(0, 2);
    add_nic(1, 1);
    install(vnic_set({{0x3B, 0, 1, true}, {0x3B, 1, 0, true}}, 2));
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("nic", "0x3B", "0", "0", aim_setting("Card Name", "BCM57414")))));
    EXPECT_TRUE(logged(host::log_level::dbg, "AIM PARSER: IN AIM list: VNIC-supported adapter found, Key: " +
                                                 num(awtest::dev_key(0x3B, 0)) +
                                                 ", funcKey=" + num(fun_key(0x3B, 0, 1))));
    // Function 1 of the covered device has no vNIC rows; device 1 takes the second MAC.
    EXPECT_EQ(0u, count("PCIAdapter", "FunctionNo=1"));
    EXPECT_EQ(1u, count("PCIAdapter", "AIMSupported=2"));
    auto phys = rows("PCIPhysicalPort", "DeviceNo=1");
    ASSERT_EQ(1u, phys.size()) << log_text();
    EXPECT_EQ(mac(1), phys[0]["PermanentAddress"]);
}

TEST_F(Vnic, FunctionWithoutPciRowIsDroppedButConsumesItsMac) {
    add_nic(1, 1);
    install(vnic_set({{0x3B, 0, 0, true}, {0x3B, 1, 0, true}}, 2));
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(
        logged(host::log_level::err,
               "AIM_PARSER: No PCI Info in CDS PCIs table for vnic data, bus: 3B, device:  0, fun:  0"));
    auto phys = rows("PCIPhysicalPort");
    ASSERT_EQ(1u, phys.size());
    EXPECT_EQ(mac(1), phys[0]["PermanentAddress"]);
}

struct size_case {
    unsigned size;
    bool invalid;
};
class VnicSize : public Vnic, public ::testing::WithParamInterface<size_case> {};

TEST_P(VnicSize, SizeFieldBounds) {
    add_nic(0, 1);
    // One record and its MAC, padded so that a size above 4096 still finds them.
    std::string set = vnic_set({{0x3B, 0, 0, true}}, 1, GetParam().size);
    install(set + std::string(100, '\0'));
    ASSERT_EQ(0, run_empty());
    EXPECT_EQ(GetParam().invalid, logged(host::log_level::err, "AIM_PARSER: Invalid iscsi-cap-data"));
    unsigned size = GetParam().size;
    EXPECT_EQ(size == 0 || size >= 23 ? 1u : 0u, count("PCIPhysicalPort")) << log_text();
}

INSTANTIATE_TEST_SUITE_P(Bounds, VnicSize,
                         ::testing::Values(size_case{0, false}, size_case{10, true}, size_case{2, true},
                                           size_case{11, false}, size_case{22, false}, size_case{23, false},
                                           size_case{4096, false}, size_case{4097, false},
                                           size_case{65535, false}));

TEST_F(Vnic, CountBeyondTheBodyStopsSafely) {
    add_nic(0, 2);
    // Five records announced, the size covers two.
    std::string set = vnic_set({{0x3B, 0, 0, false}, {0x3B, 0, 1, false}}, 0, 10 + 14);
    set[9] = 5;
    install(set);
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::warn, "AIM_PARSER: iscsi-cap-data ends inside device record 2 of 5"));

    // The MAC table starts after the fifth record: outside the body already for the first.
    set = vnic_set({{0x3B, 0, 0, true}, {0x3B, 0, 1, true}}, 1, 10 + 14 + 6);
    set[9] = 5;
    install(set);
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::warn,
                       "AIM_PARSER: iscsi-cap-data ends inside the MAC address of device record 0"));
    EXPECT_EQ(0u, count("PCIAdapter", "AIMSupported=2"));

    // The last MAC cut short: the record before it is kept.
    install(vnic_set({{0x3B, 0, 0, true}, {0x3B, 0, 1, true}}, 2, 10 + 14 + 6 + 5));
    ASSERT_EQ(0, run_empty());
    EXPECT_EQ(1u, count("PCIAdapter", "AIMSupported=2 AND FunctionNo=0"));
    EXPECT_EQ(0u, count("PCIAdapter", "AIMSupported=2 AND FunctionNo=1"));
    EXPECT_TRUE(logged(host::log_level::warn,
                       "AIM_PARSER: iscsi-cap-data ends inside the MAC address of device record 1"));
}

TEST_F(Vnic, MissingDataSetEndsQuietly) {
    add_nic(0, 1);
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::warn, "AIM_PARSER: Fail to open iscsi-cap-data"));
    EXPECT_EQ(0u, count("PCIPhysicalPort"));
    // A file shorter than the header still reads as a fixed-size data set of zeros.
    install(std::string("\x00\x05", 2));
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::err, "AIM_PARSER: Invalid iscsi-cap-data"));
}

TEST_F(Vnic, FailedInsertsEndTheEntryExceptNetwork) {
    add_nic(0, 1);
    install(vnic_set({{0x3B, 0, 0, true}}, 1));
    host::db_fail_writes(db, "PCINetwork", "insert");
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(
        logged(host::log_level::warn,
               "AIM PARSER: failed to insert Network Information, rc=10, bus: 3B, device:  0, fun:  0"));
    EXPECT_EQ(1u, count("VPDs"));

    host::db_fail_writes(db, "PCIPhysicalPort", "insert");
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::warn,
                       "AIM PARSER: failed to insert vnic Physical Port Information, rc=10, bus: "
                       "3B, device:  0, fun:  0"));
    EXPECT_EQ(0u, count("PCILogicalPort"));
    EXPECT_EQ(0u, count("VPDs"));

    host::db_fail_writes(db, "PCIAdapter", "insert");
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(
        host::log_level::warn,
        "AIM PARSER: failed to insert PCI Adapter Information for vnic data, bus: 3B, device:  0, fun:  0"));
    EXPECT_EQ(0u, count("PCIPhysicalPort"));
}

}  // namespace
