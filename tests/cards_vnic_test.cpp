// vNIC capability data: decoding, the size bounds, MAC assignment and the rows of the
// vNIC-capable functions that the AIM file did not describe (end to end through parse_aim).
#include <string>
#include <vector>

#include "tests/afterwalk_support.h"

using awtest::fun_key;
using awtest::num;

namespace {

struct vnic_record {
    unsigned bus, device, function;
    bool vnic;
};

// A data set: header with `size` (0: the real size) and `count` (-1: the records'), the
// records, then `macs` MAC addresses, each 00 1A 2B 3C 4D followed by 0x5E + its index.
std::string vnic_set(const std::vector<vnic_record>& recs, unsigned macs, unsigned size = 0, int count = -1) {
    std::string body;
    for (const auto& r : recs) {
        body += std::string(2, '\0') + char((r.device << 4) | r.function) + char(r.bus) +
                char(r.vnic ? 0x81 : 0x01) + std::string(2, '\0');
    }
    for (unsigned i = 0; i < macs; ++i) body += std::string("\x00\x1A\x2B\x3C\x4D", 5) + char(0x5E + i);
    unsigned total = size ? size : unsigned(10 + body.size());
    char n = char(count < 0 ? recs.size() : count);
    return std::string{0, char(total & 0xFF), char(total >> 8), 0, 0, 0, 0, 0, 0, n} + body;
}

const std::string mac[] = {"001A2B3C4D5E", "001A2B3C4D5F", "001A2B3C4D60", "001A2B3C4D61"};

class Vnic : public awtest::AfterWalkTest {
protected:
    void install(const std::string& data) {
        testutil::write_file(dir + "/machine/iscsi.bin", data);
        load_machine_json(R"({"datastore": {"iscsi-cap-data": "iscsi.bin"}})");
    }
    // Present network functions at bus `bus`, device `device`, functions 0..n-1, slot 2.
    void add_nic(unsigned device, unsigned functions, unsigned bus = 0x3B) {
        for (unsigned f = 0; f < functions; ++f)
            add_pci_function(bus, device, f, 0x14E4, 0x16D7, 0x14E4, 0x1402, 2, 2);
    }
};

TEST_F(Vnic, ClearBitConsumesNoMacAndEachFunctionGetsItsRows) {
    add_nic(0, 3);
    install(vnic_set({{0x3B, 0, 0, false}, {0x3B, 0, 1, true}, {0x3B, 0, 2, true}}, 2));
    ASSERT_EQ(0, run_empty());
    EXPECT_EQ(2u, count("PCIAdapter")) << log_text();
    // Two functions of one device: ports numbered 0 and 1, the MACs in record order.
    for (unsigned n = 0; n < 2; ++n) {
        std::string f = num(n + 1), w = "PCIFuncKey=" + num(fun_key(0x3B, 0, n + 1));
        expect_row("PCIAdapter", w,
                   "SegNo=0;BusNo=59;DeviceNo=0;FunctionNo=" + f +
                       ";NodeNo=1;SlotNo=2;CardName=Adapter 00:3B:00.0" + f +
                       ";ConnectorType=182;AIMSupported=2;OOBSrc=8;PCIKey=3866624;Location=0");
        expect_row("PCIPhysicalPort", w,
                   "FunctionNo=" + f + ";ConnectorLayout=182;Idx=" + num(n) +
                       ";NumberofLogicalPorts=1;PermanentAddress=" + mac[n]);
        expect_row("PCILogicalPort", w,
                   "FunctionNo=" + f + ";PermanentAddress=" + mac[n] + ";PhyIdx=" + num(n) +
                       ";Ethernet=1;Idx=1;MaxDataSize=");
        expect_row("VPDs", "HardwareId=" + num(fun_key(0x3B, 0, n + 1)),
                   "UUID=00000000000000000000" + mac[n] + ";HardwareTypeId=3;ProductName=");
    }
    expect_log({"INFO AIM PARSER: [VNIC Support] slot = 2, name = Adapter 00:3B:00.01, table: PCIAdapter",
                "DBG AIM_PARSER: In vnic data, file_size: 43,   2B, device_count: 3,  3",
                "DBG AIM_PARSER: Device found in vnic data, bus: 3B, device:  0, fun:  2, support: 81"});
}

TEST_F(Vnic, CoveredDevicesAndMissingFunctionsConsumeTheirMacs) {
    add_nic(0, 2);  // device 0 is covered by the AIM file
    add_nic(1, 1);
    add_nic(0, 1, 0x5E);
    exec("UPDATE PCIs SET HardwareTypeId=0 WHERE BusNo=94");
    // 3B:2.0 has no "PCIs" row.
    install(vnic_set({{0x5E, 0, 0, true}, {0x3B, 0, 1, true}, {0x3B, 2, 0, true}, {0x3B, 1, 0, true}}, 4));
    ASSERT_EQ(0, run_xml(testutil::aim_doc(testutil::aim_config(
                     "nic", "0x3B", "0", "0", testutil::aim_setting("Card Name", "BCM57414")))));
    expect_row("VPDs", "HardwareId=" + num(fun_key(0x5E, 0)),
               "HardwareTypeId=0;UUID=00000000000000000000" + mac[0]);
    EXPECT_EQ(0u, count("PCIAdapter", "FunctionNo=1"));
    expect_row("VPDs", "HardwareId=" + num(fun_key(0x3B, 1)),
               "HardwareTypeId=3;UUID=00000000000000000000" + mac[3]);
    EXPECT_EQ(2u, count("PCIPhysicalPort", "Idx=0"));  // numbering restarts for each device
    expect_log({"DBG AIM PARSER: IN AIM list: VNIC-supported adapter found, Key: 3866624, funcKey=3866625",
                "ERR AIM_PARSER: No PCI Info in CDS PCIs table for vnic data, bus: 3B, device:  2, fun:  0"});
}

TEST_F(Vnic, SizeFieldBounds) {
    add_nic(0, 1);
    // size 0: the real one; one record and its MAC end at byte 23; padding lets a size
    // above 4096 still find them.
    for (unsigned size : {0u, 2u, 10u, 11u, 22u, 23u, 4096u, 4097u, 65535u}) {
        host::log_capture_begin();  // this size's messages only
        install(vnic_set({{0x3B, 0, 0, true}}, 1, size) + std::string(100, '\0'));
        ASSERT_EQ(0, run_empty());
        EXPECT_EQ(size == 2 || size == 10, logged(host::log_level::err, "AIM_PARSER: Invalid iscsi-cap-data"))
            << size;
        EXPECT_EQ(size == 0 || size >= 23 ? 1u : 0u, count("PCIPhysicalPort")) << size;
    }
}

TEST_F(Vnic, TruncatedOrMissingDataStopsSafely) {
    add_nic(0, 2);
    ASSERT_EQ(0, run_empty());
    expect_log({"WARN AIM_PARSER: Fail to open iscsi-cap-data"});
    // Five records announced, the size covers two.
    install(vnic_set({{0x3B, 0, 0, false}, {0x3B, 0, 1, false}}, 0, 10 + 14, 5));
    ASSERT_EQ(0, run_empty());
    // The MAC table starts after the fifth record: outside the body already for the first.
    install(vnic_set({{0x3B, 0, 0, true}, {0x3B, 0, 1, true}}, 1, 10 + 14 + 6, 5));
    ASSERT_EQ(0, run_empty());
    EXPECT_EQ(0u, count("PCIAdapter", "AIMSupported=2"));
    // The last MAC cut short: the record before it is kept.
    install(vnic_set({{0x3B, 0, 0, true}, {0x3B, 0, 1, true}}, 2, 10 + 14 + 6 + 5));
    ASSERT_EQ(0, run_empty());
    expect_row("PCIAdapter", "AIMSupported=2", "FunctionNo=0");
    // A file shorter than the header still reads as a fixed-size data set of zeros.
    install(std::string("\x00\x05", 2));
    ASSERT_EQ(0, run_empty());
    expect_log({"WARN AIM_PARSER: iscsi-cap-data ends inside device record 2 of 5",
                "WARN AIM_PARSER: iscsi-cap-data ends inside the MAC address of device record 0",
                "WARN AIM_PARSER: iscsi-cap-data ends inside the MAC address of device record 1",
                "ERR AIM_PARSER: Invalid iscsi-cap-data"});
}

TEST_F(Vnic, FailedInsertsEndTheEntryExceptNetwork) {
    add_nic(0, 1);
    install(vnic_set({{0x3B, 0, 0, true}}, 1));
    host::db_fail_writes(db, "PCINetwork", "insert");
    ASSERT_EQ(0, run_empty());
    EXPECT_EQ(1u, count("VPDs"));
    host::db_fail_writes(db, "PCIPhysicalPort", "insert");
    ASSERT_EQ(0, run_empty());
    EXPECT_EQ(0u, count("PCILogicalPort") + count("VPDs"));
    std::string at = ", bus: 3B, device:  0, fun:  0";
    expect_log({"WARN AIM PARSER: failed to insert Network Information, rc=10" + at,
                "WARN AIM PARSER: failed to insert vnic Physical Port Information, rc=10" + at});
}

}  // namespace
