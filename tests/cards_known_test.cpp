// Known-card table: the lookup, the platform's rows, and the rows each action writes for a
// present function without AIM data (end to end through parse_aim).
#include <string>

#include "ingest/parser.h"
#include "tests/afterwalk_support.h"

using awtest::fun_key;
using awtest::num;

namespace {

class KnownCards : public awtest::AfterWalkTest {
protected:
    // The VPDs, PCIMisc and Firmwares rows of a plain known card at bus 59, slot 3.
    void expect_hc_rows(unsigned function, const std::string& name, const std::string& maker,
                        const std::string& swid) {
        std::string fk = num(fun_key(59, 0, function));
        expect_row(
            "VPDs", "HardwareId=" + fk,
            "UUID=N/A;ProductName=" + name + ";Manufacture=" + maker +
                ";Model=N/A;SerialNo=N/A;FRUNo=N/A;PartNo=N/A;HardwareTypeId=3;SlotNo=3;Location=0;PCIKey=");
        expect_row(
            "PCIMisc", "PCIFuncKey=" + fk,
            "SegNo=0;BusNo=59;DeviceNo=0;FunctionNo=" + num(function) +
                ";NodeNo=1;SlotNo=3;PCIKey=" + num(fun_key(59, 0)) +
                ";MaxDataWidth=16;ConnectorLayout=0;PackageType=9;OtherPackageType=N/A;AIMSpecVersion=2.00");
        expect_row("Firmwares", "HardwareId=" + fk,
                   "FirmwareName=Software Bundle;VersionString=N/A;Description=Firmware package containing "
                   "controller firmware, UEFI Driver;ReleaseDate=N/A;Manufacture=" +
                       maker + ";Classification=13;SoftwareID=" + swid + ";HardwareTypeId=3");
    }
};

TEST_F(KnownCards, LookupTakesTheFirstMatchAndWildcardsOnlyInRows) {
    load_machine_json(R"({"server_maker_vendor_ids": ["0xFA10", "0xFA11"]})");
    aim_parser::parser p;
    EXPECT_EQ(nullptr, p.hc_get_table()) << "no card chosen yet";
    EXPECT_FALSE(p.hc_is_aim_not_support_dev());
    EXPECT_EQ(35, p.hc_find(0xFFFF, 0x0CF8, 0x8086, 0x0000));  // 0xFFFF asked matches only the catch-all
    EXPECT_EQ(17, p.hc_find(0x1000, 0x00B2, 0xFA11, 0xFD0A));  // risers take the server maker's ids
    std::string t = "Caf\xC3\xA9 \x7F\x80X\xFFy";              // bytes from 0x80 up are dropped
    aim_parser::filter_ascii(t);
    EXPECT_EQ("Caf \x7FXy", t);
}

TEST_F(KnownCards, PlainCardWritesOneSetOfRowsPerFunction) {
    // Intel N3000 XL710 NIC, two network functions of one device.
    add_pci_function(59, 0, 0, 0x8086, 0x0CF8, 0x8086, 0x0000, 3, 2);
    add_pci_function(59, 0, 1, 0x8086, 0x0CF8, 0x8086, 0x0000, 3, 2);
    ASSERT_EQ(0, run_empty());
    for (unsigned f = 0; f < 2; ++f) {
        expect_hc_rows(f, "Intel N3000 XL710 Ethernet NIC", "Intel", "80860000");
        expect_row("PCIAdapter", "FunctionNo=" + num(f),
                   "SegNo=0;BusNo=59;DeviceNo=0;NodeNo=1;SlotNo=3;CardName=Intel N3000 XL710 Ethernet NIC;"
                   "ConnectorType=23;AIMSupported=0;OOBSrc=8;PCIKey=" +
                       num(fun_key(59, 0)) + ";PCIFuncKey=" + num(fun_key(59, 0, f)) + ";Location=0");
    }
    EXPECT_EQ(0u, count("PldmDeviceFirmware"));
    expect_log(
        {"INFO hc_set_idx: find [0x8086 0xcf8 0x8086 0x00] in hardcode table, index = 31",
         "INFO AIM PARSER: hc_do_action slot = 3, funckey 0x3b0001, vid(0x8086) did(0xcf8) svid(0x8086) "
         "sdid(0x0) index 1 name Intel N3000 XL710 Ethernet NIC model N/A manufacturer Intel",
         "INFO AIM PARSER: [No AIM Support] Slot 3, [8086 0CF8 8086 0000], Intel N3000 XL710 Ethernet NIC, "
         "Is_gpu = 0"});
}

TEST_F(KnownCards, RiserAndPldmCardWriteTheirPldmRowsAndFailuresAreLogged) {
    load_machine_json(R"({"server_maker_vendor_ids": ["0xFA10", "0xFA11"]})");
    add_pci_function(59, 0, 0, 0x1000, 0x00B2, 0xFA10, 0xFD00, 3, 6);
    add_pci_function(60, 0, 0, 0x1000, 0x00A5, 0xFA10, 0x020A, 4, 8);
    ASSERT_EQ(0, run_empty());
    expect_hc_rows(0, "N/A", "N/A", "FA10FD00");
    expect_row("PCIAdapter", "BusNo=59", "CardName=N/A");
    expect_row(
        "PldmDeviceFirmware", "SlotNo=3",
        "DeviceType=6;PCIKey=3866624;PCIFuncKey=3866624;Location=0;VendorId=4096;DeviceId=178;SubVendorId=" +
            num(0xFA10) + ";SubDeviceId=" + num(0xFD00) +
            ";DeviceName=N/A;Manufacture=N/A;SoftwareID=FA10FD00;VersionString=N/A;ReleaseDate=N/A");
    expect_row("VPDs", "SlotNo=4", "ProductName=450w-16e;Manufacture=Broadcom Inc.");
    expect_row("PldmDeviceFirmware", "SlotNo=4",
               "DeviceType=8;VendorId=4096;DeviceId=165;DeviceName=450w-16e;Manufacture=Broadcom Inc.;"
               "SoftwareID=FA10020A");
    expect_log({"INFO AIM PARSER: success to insert young riser to PLDM Adapter Information",
                "INFO AIM PARSER: success to insert tha device to PLDM Firmware Table"});

    // Failed inserts are logged, and the other rows still written.
    host::db_fail_writes(db, "VPDs", "insert");
    ASSERT_EQ(0, run_empty());
    for (const char* table : {"PCIMisc", "Firmwares", "PldmDeviceFirmware"}) EXPECT_EQ(2u, count(table));
    host::db_fail_writes(db, "PldmDeviceFirmware", "insert");
    host::db_fail_writes(db, "PCIAdapter", "insert");
    ASSERT_EQ(0, run_empty());
    expect_log({"WARN AIM PARSER: failed to insert hard code card VPD Info, Slot = 4, Index = 0, rc = 10",
                "WARN AIM PARSER: failed to insert young riser to PLDM Adapter Information",
                "WARN AIM PARSER: failed to insert the device to PLDM Firmware Table",
                "WARN AIM PARSER: failed to insert PCI Adapter Info, Slot = 3, rc = 10"});
}

TEST_F(KnownCards, PlatformRowShadowsTheBuiltInRow) {
    load_machine_json(R"({"hc_card_table": [
        {"vendor": 4334, "device": 20512, "subsystem_vendor": 4334, "subsystem_device": 14, "name": "Platform U50"},
        {"vendor": "0x15B3", "device": "0x1017", "subsystem_vendor": "0x15B3", "subsystem_device": "0x0007",
         "name": "ConnectX-5 EN"}]})");
    add_pci_function(59, 0, 0, 0x10EE, 0x5020, 0x10EE, 0x000E, 3, 16);
    add_pci_function(60, 0, 0, 0x15B3, 0x1017, 0x15B3, 0x0007, 4, 2);
    add_pci_function(61, 0, 0, 0x8086, 0x0B30, 0x8086, 0x0000, 5, 16);
    ASSERT_EQ(0, run_empty());
    // The U50 keeps its built-in FPGA action under the platform's name; the FPGA actions
    // only report the failed read.
    EXPECT_EQ(37u, aim_parser::parser().hc_cards.size());
    expect_log({"WARN AIM PARSER: save_hc_alveo_info get alveo info failed!",
                "WARN AIM PARSER: save_hc_intel_info get intel info failed!"});
    EXPECT_EQ(0u, count("VPDs", "SlotNo IN (3, 5)"));
    expect_row("PCIAdapter", "BusNo=59", "CardName=Platform U50;OOBSrc=0");
    expect_row("PCIAdapter", "BusNo=61", "CardName=Intel FPGA PAC N3000");
    // A platform-only card is written by the generic action.
    expect_row("VPDs", "SlotNo=4", "ProductName=ConnectX-5 EN;Manufacture=N/A");
    expect_row("PCIAdapter", "BusNo=60", "CardName=ConnectX-5 EN;OOBSrc=8");
}

TEST_F(KnownCards, CatchAllNamesTheAdapter) {
    // Designation, vendor and device ids, then the name and out-of-band source written.
    const char* cases[][5] = {{"Slot 5", "0x1234", "0x5678", "Adapter 00:3B:00.00", "0"},
                              {"Mellanox CX4 - Port 1", "0x15B3", "0x1013", "Mellanox CX4", "2"},
                              {"Embedded RAID", "0x1234", "0x5678", "Embedded RAID", "2"},
                              {"Slot 12 Riser", "0x1234", "0x5678", "Adapter 00:3B:00.00", "0"},
                              {"OCP 3.0", "0x1234", "0x5678", "Adapter 00:3B:00.00", "0"},  // 7 characters
                              {"LOM", "0x1A03", "0x2000", "VGA Display Controller", "8"},
                              {"Onboard VGA", "0x1A03", "0x2000", "Onboard VGA", "2"}};
    add_pci_function(59, 0, 0, 0, 0, 0x1111, 0x2222, 5, 2);
    add_pci_function(59, 0, 1, 0, 0, 0x1111, 0x2222, 5, 2);
    for (const auto& c : cases) {
        host::log_capture_begin();  // this case's messages only
        exec(std::string("UPDATE PCIs SET SlotDesignation='") + c[0] + "', VendorId=" + c[1] +
             ", DeviceId=" + c[2]);
        ASSERT_EQ(0, run_empty());
        // One adapter whatever its functions; no table rows besides "PCIAdapter".
        expect_row("PCIAdapter", "",
                   std::string("FunctionNo=0;ConnectorType=182;AIMSupported=0;PCIFuncKey=3866624;CardName=") +
                       c[3] + ";OOBSrc=" + c[4]);
        EXPECT_EQ(0u, count("VPDs") + count("PCIMisc") + count("Firmwares")) << c[0];
        expect_log({std::string("INFO AIM PARSER: [No AIM Support] slot = 5, name = ") + c[3] +
                    ", table: PCIAdapter"});
    }
    expect_log({"INFO hc_set_idx: not find [0x1a03 0x2000 0x1111 0x2222] in hardcode table, index = 35"});
    // The stored slot type is kept as the connector.
    exec("UPDATE PCIs SET SlotType=165");
    ASSERT_EQ(0, run_empty());
    expect_row("PCIAdapter", "", "ConnectorType=165;CardName=Onboard VGA");
}

}  // namespace
