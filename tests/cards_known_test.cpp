// Known-card table: its construction, the lookup, and the rows each action writes for a
// present function without AIM data (end to end through parse_aim).
#include <string>

#include "ingest/parser.h"
#include "tests/afterwalk_support.h"

using awtest::columns;
using awtest::expect_columns;
using awtest::fun_key;
using awtest::num;

namespace {

class KnownCards : public awtest::AfterWalkTest {
protected:
    // The VPDs, PCIMisc and Firmwares rows of a plain known card at bus 59.
    void expect_hc_rows(unsigned function, const std::string& name, const std::string& manufacturer,
                        const std::string& swid) {
        unsigned fk = fun_key(59, 0, function);
        auto vpd = rows("VPDs", "HardwareId=" + num(fk));
        ASSERT_EQ(1u, vpd.size());
        expect_columns(vpd[0], {{"UUID", "N/A"},
                                {"ProductName", name},
                                {"Manufacture", manufacturer},
                                {"Model", "N/A"},
                                {"SerialNo", "N/A"},
                                {"FRUNo", "N/A"},
                                {"PartNo", "N/A"},
                                {"HardwareTypeId", "3"},
                                {"SlotNo", "3"},
                                {"Location", "0"},
                                {"PCIKey", ""}});
        auto misc = rows("PCIMisc", "PCIFuncKey=" + num(fk));
        ASSERT_EQ(1u, misc.size());
        expect_columns(misc[0], {{"SegNo", "0"},
                                 {"BusNo", "59"},
                                 {"DeviceNo", "0"},
                                 {"FunctionNo", num(function)},
                                 {"NodeNo", "1"},
                                 {"SlotNo", "3"},
                                 {"PCIKey", num(fun_key(59, 0, 0))},
                                 {"MaxDataWidth", "16"},
                                 {"ConnectorLayout", "0"},
                                 {"PackageType", "9"},
                                 {"OtherPackageType", "N/A"},
                                 {"AIMSpecVersion", "2.00"}});
        auto fw = rows("Firmwares", "HardwareId=" + num(fk));
        ASSERT_EQ(1u, fw.size());
        expect_columns(fw[0],
                       {{"FirmwareName", "Software Bundle"},
                        {"VersionString", "N/A"},
                        {"Description", "Firmware package containing controller firmware, UEFI Driver"},
                        {"ReleaseDate", "N/A"},
                        {"Manufacture", manufacturer},
                        {"Classification", "13"},
                        {"SoftwareID", swid},
                        {"HardwareTypeId", "3"}});
    }
};

// ---- The table ----

TEST_F(KnownCards, BuiltInTableHas36RowsEndingWithTheCatchAll) {
    aim_parser::parser p;
    ASSERT_EQ(36u, p.hc_cards.size());
    EXPECT_STREQ("Alveo U50 XDMA Platform", p.hc_cards[0].name);
    EXPECT_EQ(aim_parser::parser::save_hc_alveo_info, p.hc_cards[0].action);
    // Rows 8 to 29: the riser bridges, two of them with Broadcom's own sub-vendor.
    unsigned risers = 0, broadcom = 0;
    for (size_t i = 7; i < 29; ++i) {
        EXPECT_EQ(0x1000, p.hc_cards[i].vendor_id);
        EXPECT_EQ(0x00B2, p.hc_cards[i].device_id);
        EXPECT_EQ(aim_parser::parser::save_young_riser_info, p.hc_cards[i].action);
        risers++;
        broadcom += p.hc_cards[i].subsystem_vendor_id == 0x1000;
    }
    EXPECT_EQ(22u, risers);
    EXPECT_EQ(2u, broadcom);
    EXPECT_STREQ("450w-16e", p.hc_cards[34].name);
    EXPECT_STREQ("Broadcom Inc.", p.hc_cards[34].manufacturer);
    EXPECT_EQ(0xFE00, p.hc_cards[34].subsystem_vendor_id);  // placeholder of the server maker's id
    const aim_parser::aim_hc_card& last = p.hc_cards[35];
    EXPECT_EQ(0xFFFF, last.vendor_id);
    EXPECT_EQ(aim_parser::parser::save_aim_not_support_info, last.action);
    for (const auto& c : p.hc_cards) EXPECT_STREQ("N/A", c.model);
}

TEST_F(KnownCards, LookupTakesTheFirstMatchAndWildcardsOnlyInRows) {
    aim_parser::parser p;
    EXPECT_EQ(2, p.hc_find(0x10EE, 0x5000, 0x10EE, 0x000E));
    EXPECT_EQ(31, p.hc_find(0x8086, 0x0CF8, 0x8086, 0x0000));
    EXPECT_EQ(35, p.hc_find(0x8086, 0x0CF8, 0x8086, 0x0001));  // only the catch-all
    // Asking with 0xFFFF matches only rows holding 0xFFFF.
    EXPECT_EQ(35, p.hc_find(0xFFFF, 0x0CF8, 0x8086, 0x0000));

    EXPECT_EQ(-1, p.hc_get_table() ? 0 : -1);
    EXPECT_EQ(3, p.hc_set_idx(0x10EE, 0xD000, 0x10EE, 0x000E));
    EXPECT_STREQ("Alveo U200 Golden Image", p.hc_get_table()->name);
    EXPECT_FALSE(p.hc_is_aim_not_support_dev());
    EXPECT_TRUE(logged(host::log_level::info,
                       "hc_set_idx: find [0x10ee 0xd000 0x10ee 0x0e] in hardcode table, index = 3"));
    EXPECT_EQ(35, p.hc_set_idx(0x1234, 0x5678, 0x9ABC, 0xDEF0));
    EXPECT_TRUE(p.hc_is_aim_not_support_dev());
    EXPECT_TRUE(logged(host::log_level::info,
                       "hc_set_idx: not find [0x1234 0x5678 0x9abc 0xdef0] in hardcode table, index = 35"));

    p.hc_cards.clear();
    EXPECT_EQ(-1, p.hc_find(0x1234, 0x5678, 0x9ABC, 0xDEF0));
}

TEST_F(KnownCards, PlatformRowsComeFirstAndShadowBuiltInRows) {
    load_machine_json(R"({"hc_card_table": [
        {"vendor": "0x10EE", "device": "0x5020", "subsystem_vendor": "0x10EE", "subsystem_device": "0x000E",
         "name": "Platform U50"},
        {"vendor": "0x15B3", "device": "0x1017", "subsystem_vendor": "0x15B3", "subsystem_device": "0x0007",
         "name": "ConnectX-5 EN"}]})");
    aim_parser::parser p;
    // The U50 row is not added again; the platform's row takes over its action.
    ASSERT_EQ(37u, p.hc_cards.size());
    EXPECT_STREQ("Platform U50", p.hc_cards[0].name);
    EXPECT_STREQ("N/A", p.hc_cards[0].manufacturer);
    EXPECT_EQ(aim_parser::parser::save_hc_alveo_info, p.hc_cards[0].action);
    EXPECT_STREQ("ConnectX-5 EN", p.hc_cards[1].name);
    EXPECT_EQ(aim_parser::parser::save_hc_info, p.hc_cards[1].action);
    EXPECT_STREQ("Alveo U50 Golden Image", p.hc_cards[2].name);
    EXPECT_EQ(0, p.hc_find(0x10EE, 0x5020, 0x10EE, 0x000E));
}

TEST_F(KnownCards, RiserSubVendorsFollowTheServerMakersIds) {
    load_machine_json(R"({"server_maker_vendor_ids": ["0xFA10", "0xFA11"]})");
    aim_parser::parser p;
    EXPECT_EQ(0xFA10, p.hc_cards[7].subsystem_vendor_id);
    EXPECT_EQ(0xFA11, p.hc_cards[17].subsystem_vendor_id);
    EXPECT_EQ(0xFA10, p.hc_cards[34].subsystem_vendor_id);
}

TEST(FilterAscii, DropsBytesFrom0x80UpKeepingOrder) {
    std::string t = "Caf\xC3\xA9 \x7F\x80X\xFFy";
    aim_parser::filter_ascii(t);
    EXPECT_EQ("Caf \x7FXy", t);
    std::string empty;
    aim_parser::filter_ascii(empty);
    EXPECT_EQ("", empty);
}

// ---- Rows of the actions ----

TEST_F(KnownCards, PlainCardWritesOneSetOfRowsPerFunction) {
    // Intel N3000 XL710 NIC, two network functions of one device.
    add_pci_function(59, 0, 0, 0x8086, 0x0CF8, 0x8086, 0x0000, 3, 2);
    add_pci_function(59, 0, 1, 0x8086, 0x0CF8, 0x8086, 0x0000, 3, 2);
    ASSERT_EQ(0, run_empty());
    expect_hc_rows(0, "Intel N3000 XL710 Ethernet NIC", "Intel", "80860000");
    expect_hc_rows(1, "Intel N3000 XL710 Ethernet NIC", "Intel", "80860000");
    auto adapters = rows("PCIAdapter");
    ASSERT_EQ(2u, adapters.size()) << log_text();
    for (unsigned f = 0; f < 2; ++f) {
        expect_columns(adapters[f], {{"SegNo", "0"},
                                     {"BusNo", "59"},
                                     {"DeviceNo", "0"},
                                     {"FunctionNo", num(f)},
                                     {"NodeNo", "1"},
                                     {"SlotNo", "3"},
                                     {"CardName", "Intel N3000 XL710 Ethernet NIC"},
                                     {"ConnectorType", "23"},  // slot type 182: x16
                                     {"AIMSupported", "0"},
                                     {"OOBSrc", "8"},
                                     {"PCIKey", num(fun_key(59, 0, 0))},
                                     {"PCIFuncKey", num(fun_key(59, 0, f))},
                                     {"Location", "0"}});
    }
    EXPECT_EQ(0u, count("PldmDeviceFirmware"));
    EXPECT_TRUE(
        logged(host::log_level::info,
               "AIM PARSER: hc_do_action slot = 3, funckey 0x3b0001, vid(0x8086) did(0xcf8) svid(0x8086) "
               "sdid(0x0) index 1 name Intel N3000 XL710 Ethernet NIC model N/A manufacturer Intel"));
    EXPECT_TRUE(
        logged(host::log_level::info,
               "AIM PARSER: [No AIM Support] Slot 3, [8086 0CF8 8086 0000], Intel N3000 XL710 Ethernet NIC, "
               "Is_gpu = 0"));
}

TEST_F(KnownCards, RiserWritesItsPldmRowWithTheTablesIds) {
    load_machine_json(R"({"server_maker_vendor_ids": ["0xFA10", "0xFA11"]})");
    add_pci_function(59, 0, 0, 0x1000, 0x00B2, 0xFA10, 0xFD00, 3, 6);
    ASSERT_EQ(0, run_empty());
    expect_hc_rows(0, "N/A", "N/A", "FA10FD00");
    auto pldm = rows("PldmDeviceFirmware");
    ASSERT_EQ(1u, pldm.size()) << log_text();
    expect_columns(pldm[0], {{"DeviceType", "6"},
                             {"PCIKey", num(fun_key(59, 0, 0))},
                             {"PCIFuncKey", num(fun_key(59, 0, 0))},
                             {"Location", "0"},
                             {"SlotNo", "3"},
                             {"VendorId", "4096"},
                             {"DeviceId", "178"},
                             {"SubVendorId", num(0xFA10)},
                             {"SubDeviceId", num(0xFD00)},
                             {"DeviceName", "N/A"},
                             {"Manufacture", "N/A"},
                             {"SoftwareID", "FA10FD00"},
                             {"VersionString", "N/A"},
                             {"ReleaseDate", "N/A"}});
    EXPECT_TRUE(logged(host::log_level::info,
                       "AIM PARSER: success to insert young riser to PLDM Adapter Information"));
    EXPECT_EQ("N/A", rows("PCIAdapter")[0]["CardName"]);
}

TEST_F(KnownCards, PldmCardWritesItsPldmRow) {
    add_pci_function(59, 0, 0, 0x1000, 0x00A5, 0xFE00, 0x020A, 3, 8);
    ASSERT_EQ(0, run_empty());
    expect_hc_rows(0, "450w-16e", "Broadcom Inc.", "FE00020A");
    auto pldm = rows("PldmDeviceFirmware");
    ASSERT_EQ(1u, pldm.size()) << log_text();
    expect_columns(pldm[0], {{"DeviceType", "8"},
                             {"VendorId", "4096"},
                             {"DeviceId", "165"},
                             {"DeviceName", "450w-16e"},
                             {"Manufacture", "Broadcom Inc."},
                             {"SoftwareID", "FE00020A"}});
    EXPECT_TRUE(
        logged(host::log_level::info, "AIM PARSER: success to insert tha device to PLDM Firmware Table"));
}

TEST_F(KnownCards, FailedInsertsAreLoggedAndTheOtherRowsStillWritten) {
    add_pci_function(59, 0, 0, 0x1000, 0x00A5, 0xFE00, 0x020A, 3, 8);
    host::db_fail_writes(db, "VPDs", "insert");
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::warn,
                       "AIM PARSER: failed to insert hard code card VPD Info, Slot = 3, Index = 0, rc = 10"));
    EXPECT_EQ(1u, count("PCIMisc"));
    EXPECT_EQ(1u, count("Firmwares"));
    EXPECT_EQ(1u, count("PldmDeviceFirmware"));

    host::db_fail_writes(db, "PldmDeviceFirmware", "insert");
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(
        logged(host::log_level::warn, "AIM PARSER: failed to insert the device to PLDM Firmware Table"));
    host::db_fail_writes(db, "PCIAdapter", "insert");
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(
        logged(host::log_level::warn, "AIM PARSER: failed to insert PCI Adapter Info, Slot = 3, rc = 10"));
}

TEST_F(KnownCards, PlatformRowShadowsTheBuiltInRowInARun) {
    load_machine_json(R"({"hc_card_table": [
        {"vendor": 4334, "device": 20512, "subsystem_vendor": 4334, "subsystem_device": 14, "name": "Platform U50"},
        {"vendor": "0x15B3", "device": "0x1017", "subsystem_vendor": "0x15B3", "subsystem_device": "0x0007",
         "name": "ConnectX-5 EN"}]})");
    add_pci_function(59, 0, 0, 0x10EE, 0x5020, 0x10EE, 0x000E, 3, 16);
    add_pci_function(60, 0, 0, 0x15B3, 0x1017, 0x15B3, 0x0007, 4, 2);
    ASSERT_EQ(0, run_empty());
    // The FPGA action is not available yet: it only reports the failed read.
    EXPECT_TRUE(logged(host::log_level::warn, "AIM PARSER: save_hc_alveo_info get alveo info failed!"));
    EXPECT_EQ(0u, count("VPDs", "HardwareId=" + num(fun_key(59, 0, 0))));
    EXPECT_EQ(1u, count("PCIAdapter", "BusNo=59 AND CardName='Platform U50' AND OOBSrc=0"));
    // A platform-only card is written by the generic action.
    EXPECT_EQ(1u, count("VPDs", "ProductName='ConnectX-5 EN' AND Manufacture='N/A' AND SlotNo=4"));
    EXPECT_EQ(1u, count("PCIAdapter", "BusNo=60 AND CardName='ConnectX-5 EN' AND OOBSrc=8"));
}

TEST_F(KnownCards, IntelFpgaActionOnlyReportsItsFailure) {
    add_pci_function(59, 0, 0, 0x8086, 0x0B30, 0x8086, 0x0000, 3, 16);
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::warn, "AIM PARSER: save_hc_intel_info get intel info failed!"));
    EXPECT_EQ(0u, count("VPDs"));
    EXPECT_EQ(1u, count("PCIAdapter", "CardName='Intel FPGA PAC N3000'"));
}

// ---- The catch-all ----

struct catch_all_case {
    const char* designation;
    unsigned vendor, device;
    const char* name;
    const char* oob;
};

class CatchAll : public awtest::AfterWalkTest, public ::testing::WithParamInterface<catch_all_case> {};

TEST_P(CatchAll, NamesTheAdapter) {
    const catch_all_case& c = GetParam();
    add_pci_function(59, 0, 0, c.vendor, c.device, 0x1111, 0x2222, 5, 2);
    add_pci_function(59, 0, 1, c.vendor, c.device, 0x1111, 0x2222, 5, 2);
    set_designation(59, c.designation);
    ASSERT_EQ(0, run_empty());
    // One adapter whatever its functions; no table rows besides "PCIAdapter".
    auto adapters = rows("PCIAdapter");
    ASSERT_EQ(1u, adapters.size()) << log_text();
    expect_columns(adapters[0], {{"FunctionNo", "0"},
                                 {"CardName", c.name},
                                 {"ConnectorType", "182"},
                                 {"AIMSupported", "0"},
                                 {"OOBSrc", c.oob},
                                 {"PCIFuncKey", num(fun_key(59, 0, 0))}});
    EXPECT_EQ(0u, count("VPDs"));
    EXPECT_EQ(0u, count("PCIMisc"));
    EXPECT_EQ(0u, count("Firmwares"));
    EXPECT_TRUE(logged(host::log_level::info, std::string("AIM PARSER: [No AIM Support] slot = 5, name = ") +
                                                  c.name + ", table: PCIAdapter"));
}

INSTANTIATE_TEST_SUITE_P(
    Designations, CatchAll,
    ::testing::Values(catch_all_case{"Slot 5", 0x1234, 0x5678, "Adapter 00:3B:00.00", "0"},
                      catch_all_case{"Mellanox CX4 - Port 1", 0x15B3, 0x1013, "Mellanox CX4", "2"},
                      catch_all_case{"Mellanox CX4", 0x15B3, 0x1013, "Mellanox CX4", "2"},
                      catch_all_case{"Embedded RAID", 0x1234, 0x5678, "Embedded RAID", "2"},
                      catch_all_case{"Slot 12 Riser", 0x1234, 0x5678, "Adapter 00:3B:00.00", "0"},
                      catch_all_case{"OCP 3.0", 0x1234, 0x5678, "Adapter 00:3B:00.00", "0"},  // 7 characters
                      catch_all_case{"LOM", 0x1A03, 0x2000, "VGA Display Controller", "8"},
                      catch_all_case{"Onboard VGA", 0x1A03, 0x2000, "Onboard VGA", "2"}));

TEST_F(KnownCards, CatchAllLogsNotFoundAndKeepsTheStoredSlotType) {
    add_pci_function(0x3B, 0, 0, 0x1234, 0x5678, 0x1111, 0x2222, 5, 2);
    exec("UPDATE PCIs SET SlotType=165");
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::info,
                       "hc_set_idx: not find [0x1234 0x5678 0x1111 0x2222] in hardcode table, index = 35"));
    EXPECT_EQ(1u, count("PCIAdapter", "ConnectorType='165' AND CardName='Adapter 00:3B:00.00'"));
}

}  // namespace
