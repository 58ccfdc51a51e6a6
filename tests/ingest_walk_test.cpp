// End-to-end tests of parse_aim: entry points, the printable-ASCII filter, address
// matching, the duplicate rule, early ends of the walk and PCI key resolution.
#include <stdio.h>
#include <sys/stat.h>

#include <sstream>
#include <string>
#include <vector>

#include "aim/document.h"
#include "ingest/parse_aim.h"
#include "ingest/parser.h"
#include "tests/fixture.h"

using testutil::aim_config;
using testutil::aim_doc;
using testutil::aim_group;
using testutil::aim_setting;

using testutil::columns;
using testutil::expect_columns;

namespace {

bool exists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

// The "PCIAdapter" row of an adapter in slot 1 at bus 59, device 0, function 0.
const columns bus59_adapter = {
    {"SegNo", "0"},        {"BusNo", "59"},           {"DeviceNo", "0"},     {"FunctionNo", "0"},
    {"NodeNo", "1"},       {"SlotNo", "1"},           {"AIMSupported", "1"}, {"OOBSrc", "1"},
    {"PCIKey", "3866624"}, {"PCIFuncKey", "3866624"}, {"Location", "0"}};

class IngestWalk : public testutil::IngestTest {
protected:
    std::string card(const std::string& name) { return aim_setting("Card Name", name); }
};

// ---- Address matching ----

class IngestPfaBase : public IngestWalk, public ::testing::WithParamInterface<const char*> {};

TEST_P(IngestPfaBase, BusTextInAnyBaseMatchesTheSamePciRow) {
    add_pci_function(59, 0, 0);
    std::string generic = card("E810") + aim_setting("Connector Layout", "3", "enumerate_data") +
                          aim_setting("Max Data Width", "0x10", "numeric_data") +
                          aim_setting("AIM Spec Version", "2.00");
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("nic", GetParam(), "0x0", "00", generic))));
    auto adapters = rows("PCIAdapter");
    ASSERT_EQ(1u, adapters.size()) << log_text();
    columns expected = bus59_adapter;
    expected["CardName"] = "E810";
    expected["ConnectorType"] = "3";
    expect_columns(adapters[0], expected);
    auto misc = rows("PCIMisc");
    ASSERT_EQ(1u, misc.size());
    expect_columns(misc[0], {{"SegNo", "0"},
                             {"BusNo", "59"},
                             {"DeviceNo", "0"},
                             {"FunctionNo", "0"},
                             {"NodeNo", "1"},
                             {"SlotNo", "1"},
                             {"PCIKey", "3866624"},
                             {"PCIFuncKey", "3866624"},
                             {"MaxDataWidth", "16"},
                             {"ConnectorLayout", "3"},
                             {"PackageType", ""},
                             {"OtherPackageType", ""},
                             {"AIMSpecVersion", "2.00"}});
    EXPECT_TRUE(logged(host::log_level::info, "AIM PARSER: [AIM-supported] slot = 1, func_key = 3866624"));
    EXPECT_TRUE(logged(host::log_level::info, "AIM PARSER: successfully parsed \"/tmp/aim_filtered.xml\""));
    EXPECT_FALSE(exists(sysroot_file("/tmp/aim_filtered.xml")));
}

INSTANTIATE_TEST_SUITE_P(HexDecimalOctal, IngestPfaBase, ::testing::Values("0x3b", "59", "073", "0X3B"));

TEST_F(IngestWalk, SegmentAbove255WrapsToEightBits) {
    add_pci_function(59, 0, 0);
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("nic", "59", "0", "0", card("A"), "256"))));
    EXPECT_EQ(1u, count("PCIAdapter", "SegNo=0 AND BusNo=59"));
}

TEST_F(IngestWalk, ConfigWithoutPciRowWritesNothingAndReportsNoAimData) {
    add_pci_function(59, 0, 0);
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("ghost", "0x20", "0", "0", card("Ghost")))));
    EXPECT_TRUE(logged(host::log_level::err, "AIM_PARSER: No PCI Info in CDS PCIs table for config: ghost!"));
    EXPECT_TRUE(logged(host::log_level::warn, "AIM PARSER: No AIM data found"));
    EXPECT_EQ(0u, count("PCIAdapter"));
    EXPECT_EQ(0u, count("PCIMisc"));
}

TEST_F(IngestWalk, OnlyTheLastConfigDecidesTheResult) {
    add_pci_function(59, 0, 0);
    // Configs are walked by name: "a_nic" (matched) before "b_ghost" (no "PCIs" row).
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("b_ghost", "0x20", "0", "0", card("Ghost")) +
                                 aim_config("a_nic", "59", "0", "0", card("Nic")))));
    EXPECT_EQ(1u, count("PCIAdapter"));
    EXPECT_TRUE(logged(host::log_level::warn, "AIM PARSER: No AIM data found"));
    EXPECT_FALSE(logged("AIM PARSER: successfully parsed \"/tmp/aim_filtered.xml\""));

    // The other way round the same rows are written and the run reports success.
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("a_ghost", "0x20", "0", "0", card("Ghost")) +
                                 aim_config("b_nic", "59", "0", "0", card("Nic")))));
    EXPECT_EQ(1u, count("PCIAdapter"));
    EXPECT_TRUE(logged(host::log_level::info, "AIM PARSER: successfully parsed \"/tmp/aim_filtered.xml\""));
}

TEST_F(IngestWalk, ConfigsDirectlyUnderTheRootFollowTheConfigsets) {
    add_pci_function(59, 0, 0);
    add_pci_function(60, 0, 0);
    std::string xml =
        "<inventories><config ID=\"root\"><pfa><segment>0</segment><bus>60</bus><device>0</device>"
        "<function>0</function></pfa>" +
        aim_group("PCI Generic Information", card("Root")) + "</config><configset><name>S</name>" +
        aim_config("set", "59", "0", "0", card("Set")) + "</configset></inventories>";
    ASSERT_EQ(0, run_xml(xml));
    auto adapters = rows("PCIAdapter");
    ASSERT_EQ(2u, adapters.size()) << log_text();
    EXPECT_EQ("Set", adapters[0]["CardName"]);
    EXPECT_EQ("Root", adapters[1]["CardName"]);
}

TEST_F(IngestWalk, ConfigWithoutGenericGroupIsSkipped) {
    add_pci_function(59, 0, 0);
    std::string cfg =
        "<config ID=\"bare\"><name>bare</name><pfa><segment>0</segment><bus>59</bus><device>0</device>"
        "<function>0</function></pfa>" +
        aim_group("Other", card("X")) + "</config>";
    ASSERT_EQ(0, run_xml(aim_doc(cfg)));
    EXPECT_TRUE(
        logged(host::log_level::err,
               "AIM_PARSER: No PCI Generic Information field in AIM XML file under config node: bare!"));
    EXPECT_EQ(0u, count("PCIAdapter"));
    EXPECT_TRUE(logged("AIM PARSER: No AIM data found"));
}

// ---- Duplicate rule ----

TEST_F(IngestWalk, SecondConfigAtTheSameAddressIsADuplicateButKeepsItsOtherRows) {
    add_pci_function(59, 0, 0);
    std::string generic = aim_setting("Package Type", "9");
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("first", "59", "0", "0", card("One") + generic) +
                                 aim_config("second", "0x3b", "0", "0", card("Two") + generic))));
    auto adapters = rows("PCIAdapter");
    ASSERT_EQ(1u, adapters.size());
    EXPECT_EQ("One", adapters[0]["CardName"]);
    EXPECT_EQ(1u, logged_count("AIM_PARSER:There is a same config in the table already,conif second"));
    EXPECT_EQ(2u, count("PCIMisc", "PackageType='9' AND PCIFuncKey=3866624"));
    EXPECT_EQ(2u, logged_count("AIM PARSER: [AIM-supported] slot = 1, func_key = 3866624"));
}

TEST_F(IngestWalk, DuplicateCheckComparesTheAddressTextsAsWritten) {
    add_pci_function(59, 0, 0);
    // "073" resolves to bus 59 (octal) but the database reads BusNo=073 as 73: no duplicate
    // is seen and a second row for the same function is written.
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("first", "59", "0", "0", card("One")) +
                                 aim_config("second", "073", "0", "0", card("Two")))));
    auto adapters = rows("PCIAdapter");
    ASSERT_EQ(2u, adapters.size());
    EXPECT_EQ("59", adapters[1]["BusNo"]);
    EXPECT_EQ("Two", adapters[1]["CardName"]);
    EXPECT_FALSE(logged("AIM_PARSER:There is a same config in the table already,conif second"));
}

TEST_F(IngestWalk, AddressTextCannotRunAnotherStatement) {
    add_pci_function(59, 0, 0);
    auto before = rows("PCIs");
    for (const char* text : {"0; DELETE FROM PCIs", "0; DROP TABLE PCIs", "0; UPDATE PCIs SET FunType=1"}) {
        SCOPED_TRACE(text);
        host::log_capture_end();
        host::log_capture_begin();
        ASSERT_EQ(0, run_xml(aim_doc(aim_config("evil", "59", "0", "0", card("Evil"), text))));
        // The address still resolves (strtoul reads the 0); the lookup with the text is
        // refused, which counts as a duplicate, so only the refused SELECT ever ran.
        EXPECT_EQ(1u, logged_count("AIM_PARSER:There is a same config in the table already,conif evil"));
        EXPECT_EQ(1u, logged_count(std::string("where=SegNo=") + text +
                                   " AND BusNo=59 AND DeviceNo=0 AND FunctionNo=0"));
        EXPECT_EQ(0u, count("PCIAdapter"));
        EXPECT_EQ(before, rows("PCIs"));
    }
    // A text that only widens the SELECT finds the row of an earlier config.
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("a", "59", "0", "0", card("A")) +
                                 aim_config("b", "59", "0", "0", card("B"), "0 OR 1=1"))));
    EXPECT_EQ(1u, count("PCIAdapter"));
    EXPECT_TRUE(logged("AIM_PARSER:There is a same config in the table already,conif b"));
    EXPECT_EQ(before, rows("PCIs"));
}

TEST_F(IngestWalk, AddressTextTooLongForTheConditionCountsAsDuplicateWithoutQuery) {
    add_pci_function(59, 0, 0);
    std::string segment = "0" + std::string(300, ' ');
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("long", "59", "0", "0", card("Long"), segment))));
    EXPECT_TRUE(logged("AIM_PARSER:There is a same config in the table already,conif long"));
    EXPECT_EQ(0u, logged_count("table=PCIAdapter"));
    EXPECT_EQ(0u, count("PCIAdapter"));
}

TEST_F(IngestWalk, FailedAdapterInsertEndsTheConfig) {
    add_pci_function(59, 0, 0);
    host::db_fail_writes(db, "PCIAdapter", "insert");
    ASSERT_EQ(
        0,
        run_xml(aim_doc(aim_config("nic", "59", "0", "0", card("Nic") + aim_setting("Package Type", "9")))));
    EXPECT_EQ(1u, logged_prefix(host::log_level::warn,
                                "AIM PARSER: failed to insert PCI Adapter Information in config nic, rc="));
    EXPECT_EQ(0u, count("PCIMisc"));
    EXPECT_FALSE(logged("AIM PARSER: [AIM-supported] slot = 1, func_key = 3866624"));
    EXPECT_TRUE(logged("AIM PARSER: No AIM data found"));
}

TEST_F(IngestWalk, MiscRowNeedsAnOptionalSettingAndItsFailureEndsTheConfig) {
    add_pci_function(59, 0, 0);
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("nic", "59", "0", "0", card("Nic")))));
    EXPECT_EQ(1u, count("PCIAdapter"));
    EXPECT_EQ(0u, count("PCIMisc"));

    host::db_fail_writes(db, "PCIMisc", "insert");
    ASSERT_EQ(
        0,
        run_xml(aim_doc(aim_config("nic", "59", "0", "0", card("Nic") + aim_setting("Package Type", "9")))));
    EXPECT_EQ(1u, logged_prefix(host::log_level::warn,
                                "AIM PARSER: failed to insert PCI Misc Information in config nic, rc="));
    EXPECT_TRUE(logged("AIM PARSER: No AIM data found"));
}

// ---- Re-typing and untyped hardware ----

TEST_F(IngestWalk, BroadcomFunctionOfType8IsRetypedTo0) {
    add_pci_function(59, 0, 0, 0x1000, 0x10E2, 0x1000, 0x4000, 1, 8);
    add_pci_function(60, 0, 0, 0x1000, 0x10E2, 0x1000, 0x4000, 2, 4);
    add_pci_function(61, 0, 0, 0x8086, 0x1572, 0x8086, 0x0001, 3, 8);
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("a", "59", "0", "0", card("Raid")) +
                                 aim_config("b", "60", "0", "0", card("Raid")) +
                                 aim_config("c", "61", "0", "0", card("Nic")))));
    EXPECT_EQ(1u, count("PCIs", "BusNo=59 AND FunType=0"));
    EXPECT_EQ(1u, count("PCIs", "BusNo=60 AND FunType=4"));
    EXPECT_EQ(1u, count("PCIs", "BusNo=61 AND FunType=8"));
}

TEST_F(IngestWalk, FailedRetypeIsLogged) {
    add_pci_function(59, 0, 0, 0x1000, 0x10E2, 0x1000, 0x4000, 1, 8);
    host::db_fail_writes(db, "PCIs", "update");
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("a", "59", "0", "0", card("Raid")))));
    EXPECT_TRUE(logged(host::log_level::warn,
                       "AIM PARSER: failed to update pci function type, funkey=3866624, type=0"));
    EXPECT_EQ(1u, count("PCIs", "FunType=8"));
}

// The walk of one config alone (no wipe, no after-walk steps), over a tree read from `xml`.
bool walk_config(_vqm_db_handle_t* db, const std::string& xml) {
    aim_parser::document doc;
    std::istringstream in(xml);
    if (doc.parse(in) != 0 || !doc.inventories.configsets.size()) return false;
    std::vector<aim_parser::config*> configs;
    doc.inventories.configsets.begin()->second->get_config_list(configs);
    aim_parser::parser p;
    return p.init() && configs.size() == 1 && p.parse_config(db, configs[0]);
}

TEST_F(IngestWalk, UntypedHardwareDropsItsOldTypeZeroRows) {
    add_pci({{"SegNo", "0"},
             {"BusNo", "59"},
             {"DeviceNo", "0"},
             {"FunctionNo", "0"},
             {"SlotNo", "4"},
             {"HardwareId", "77"},
             {"HardwareTypeId", "0"},
             {"VendorId", "0x1000"},
             {"FunType", "7"}});
    const char* rows_sql =
        " (Manufacture, HardwareId, HardwareTypeId) VALUES ('LSI', 77, 0), ('LSI', 77, 3), ('LSI', 78, 0);";
    exec(std::string("INSERT INTO VPDs") + rows_sql + "INSERT INTO Firmwares" + rows_sql);
    ASSERT_TRUE(
        walk_config(db, aim_doc(aim_config("raid", "59", "0", "0", aim_setting("Package Type", "9")))));
    EXPECT_EQ(0u, count("VPDs", "HardwareId=77 AND HardwareTypeId=0"));
    EXPECT_EQ(2u, count("VPDs"));
    EXPECT_EQ(0u, count("Firmwares", "HardwareId=77 AND HardwareTypeId=0"));
    EXPECT_EQ(2u, count("Firmwares"));
    EXPECT_EQ(1u, count("PCIAdapter", "SlotNo=4"));

    // Failed deletes are logged and the config goes on.
    exec("DELETE FROM PCIAdapter");
    host::db_fail_writes(db, "*", "delete");
    ASSERT_TRUE(
        walk_config(db, aim_doc(aim_config("raid", "59", "0", "0", aim_setting("Package Type", "9")))));
    EXPECT_EQ(1u, logged_prefix(host::log_level::err, "failed to delete LSI Raid Controller VPD Info, rc="));
    EXPECT_EQ(1u,
              logged_prefix(host::log_level::err, "failed to delete LSI Raid Controller Firmware Info, rc="));
    EXPECT_EQ(1u, count("PCIAdapter"));
    EXPECT_EQ(2u, count("PCIMisc"));
}

// ---- Drive configs ----

TEST_F(IngestWalk, DriveConfigWithoutPciRowStillGoesThroughTheDrives) {
    std::string drives = aim_group("Disk Drive Information", aim_setting("Drive Type", "1")) +
                         aim_group("Disk Drive Information", aim_setting("Drive Type", "1"), "true");
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("hba", "0x5e", "0", "0", card("HBA 9500") + drives))));
    EXPECT_TRUE(
        logged(host::log_level::err, "AIM_PARSER: No PCI Info in CDS PCIs table for drive config: hba!"));
    EXPECT_TRUE(logged(
        host::log_level::info,
        "AIM PARSER: Find 2 instance of Disk Drive(hotswap=0, bNonRaidM2NVMeDrive=0), controller slot = 0"));
    // The config goes on under the unresolved key.
    auto adapters = rows("PCIAdapter");
    ASSERT_EQ(1u, adapters.size());
    expect_columns(adapters[0], {{"BusNo", "94"},
                                 {"SlotNo", "0"},
                                 {"NodeNo", "0"},
                                 {"PCIKey", "0"},
                                 {"PCIFuncKey", "0"},
                                 {"CardName", "HBA 9500"}});
}

TEST_F(IngestWalk, NonRaidM2DriveConfigEndsAfterItsDrives) {
    add_pci_function(59, 0, 0);
    add_pci_function(60, 0, 0, 0x8086, 0x1572, 0x8086, 1, 2);
    std::string drive = aim_group("Disk Drive Information", aim_setting("Drive Type", "1"));
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("a_m2", "59", "0", "0", card("M.2 480GB boot drive") + drive) +
                                 aim_config("b_m2", "60", "0", "0", card("M.2 boot kit") + drive))));
    EXPECT_TRUE(logged(
        "AIM PARSER: Find 1 instance of Disk Drive(hotswap=0, bNonRaidM2NVMeDrive=1), controller slot = 1"));
    EXPECT_TRUE(logged("AIM PARSER: [AIM-supported] slot = 1, func_key = 3866624"));
    // "M.2" without SSD, GB, TB or SED is a RAID kit: it gets its adapter row.
    EXPECT_TRUE(logged(
        "AIM PARSER: Find 1 instance of Disk Drive(hotswap=0, bNonRaidM2NVMeDrive=0), controller slot = 2"));
    auto adapters = rows("PCIAdapter");
    ASSERT_EQ(1u, adapters.size());
    EXPECT_EQ("60", adapters[0]["BusNo"]);
}

// ---- Entry points and the filter ----

TEST_F(IngestWalk, NullHandleFailsAtOnce) { EXPECT_EQ(-1, parse_aim(nullptr, "/pstorage/cmr/aim.xml")); }

TEST_F(IngestWalk, MissingFileFailsWithEmptyAdapterTables) {
    exec("INSERT INTO PCIAdapter (SlotNo) VALUES (1); INSERT INTO PCIMisc (SlotNo) VALUES (1);");
    EXPECT_EQ(-1, run_file("/pstorage/cmr/none.xml"));
    EXPECT_TRUE(logged(host::log_level::err, "AIM PARSER: failed to filter AIM xml file"));
    EXPECT_EQ(0u, count("PCIAdapter"));
    EXPECT_EQ(0u, count("PCIMisc"));
}

TEST_F(IngestWalk, IllFormedFileFailsWithEmptyAdapterTables) {
    add_pci_function(59, 0, 0);
    exec("INSERT INTO PCIAdapter (SlotNo) VALUES (1);");
    std::string good = aim_doc(aim_config("nic", "59", "0", "0", card("Nic")));
    EXPECT_EQ(-1, run_xml(good.substr(0, good.size() / 2)));
    EXPECT_TRUE(logged(host::log_level::err, "AIM PARSER: failed to parse the XML file, rslt=8"));
    EXPECT_EQ(0u, count("PCIAdapter"));
    EXPECT_FALSE(exists(sysroot_file("/tmp/aim_filtered.xml")));

    EXPECT_EQ(-1, run_xml("<?xml version=\"1.0\"?><adapters/>"));
    EXPECT_TRUE(logged(host::log_level::err, "AIM PARSER: failed to parse the XML file, rslt=7"));
    EXPECT_EQ(0u, count("PCIAdapter"));
}

TEST_F(IngestWalk, ReaderPrefersTheDebugFile) {
    add_pci_function(59, 0, 0);
    write_sysroot_file("/tmp/aim.xml", aim_doc(aim_config("dbg", "59", "0", "0", card("Debug"))));
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("nic", "59", "0", "0", card("Nic")))));
    auto adapters = rows("PCIAdapter");
    ASSERT_EQ(1u, adapters.size());
    EXPECT_EQ("Debug", adapters[0]["CardName"]);
}

TEST_F(IngestWalk, FilterDropsLineEndsTabsAndNonAsciiBytes) {
    add_pci_function(59, 0, 0);
    // "Carte r\xC3\xA9seau": the two bytes of the e-acute go and its neighbours join.
    std::string xml = aim_doc(aim_config("nic", "59", "0", "0", card("Carte r\xC3\xA9seau\t10G")));
    std::string crlf;
    for (char c : xml) crlf += c == '\n' ? std::string("\r\n\t") : std::string(1, c);
    ASSERT_EQ(0, run_xml(crlf));
    auto adapters = rows("PCIAdapter");
    ASSERT_EQ(1u, adapters.size()) << log_text();
    EXPECT_EQ("Carte rseau10G", adapters[0]["CardName"]);
}

TEST_F(IngestWalk, FilterKeepsExactlyThePrintableAsciiBytes) {
    std::string all;
    for (int c = 0; c < 256; ++c) all += (char)c;
    write_sysroot_file("/tmp/in.bin", all);
    aim_parser::parser p;
    ASSERT_TRUE(p.filter_xml("/tmp/in.bin", "/tmp/out.bin"));
    std::string expected;
    for (int c = 0x20; c <= 0x7E; ++c) expected += (char)c;
    EXPECT_EQ(expected, testutil::read_file(sysroot_file("/tmp/out.bin")));
    EXPECT_FALSE(p.filter_xml("/tmp/missing.bin", "/tmp/out.bin"));
    EXPECT_FALSE(p.filter_xml("/tmp/in.bin", "/no/such/dir/out.bin"));
}

TEST_F(IngestWalk, ParseTakesTheReadersDefaultSourceForANullPath) {
    add_pci_function(59, 0, 0);
    // A null path skips the filter: the reader replaces the default file with an empty
    // inventory, which holds no AIM data.
    write_sysroot_file("/pstorage/cmr/aim.xml", aim_doc(aim_config("nic", "59", "0", "0", card("Nic"))));
    EXPECT_EQ(0, run_file(nullptr));
    EXPECT_TRUE(logged(host::log_level::warn, "AIM PARSER: No AIM data found"));
    EXPECT_EQ(0u, count("PCIAdapter"));
}

// ---- rebuild_tables_in_memory ----

TEST_F(IngestWalk, RebuildKeepsAStatisticsTableThatHasRows) {
    exec(
        "INSERT INTO PCIPhysicalPortStat (Idx, PCIFuncKey) VALUES (1, 10);"
        "INSERT INTO PCIPhysicalPort (Idx, PCIFuncKey) VALUES (1, 10), (2, 10);");
    EXPECT_EQ(0, rebuild_tables_in_memory(db));
    EXPECT_TRUE(
        logged(host::log_level::info, "AIM PARSER: Find 1 record in PCIPhysicalPortStat, do nothing."));
    EXPECT_EQ(1u, count("PCIPhysicalPortStat"));
}

TEST_F(IngestWalk, RebuildRefillsAnEmptyStatisticsTable) {
    exec("INSERT INTO PCIPhysicalPort (Idx, PCIFuncKey) VALUES (1, 10), (2, 11);");
    EXPECT_EQ(0, rebuild_tables_in_memory(db));
    EXPECT_TRUE(logged(host::log_level::info, "AIM PARSER: Rebuild PCIPhysicalPortStat, inserted 2 records"));
    auto stats = rows("PCIPhysicalPortStat");
    ASSERT_EQ(2u, stats.size());
    expect_columns(stats[0], {{"Idx", "1"}, {"PCIFuncKey", "10"}});
    expect_columns(stats[1], {{"Idx", "2"}, {"PCIFuncKey", "11"}});
}

TEST_F(IngestWalk, RebuildStopsAtAFailedInsert) {
    exec("INSERT INTO PCIPhysicalPort (Idx, PCIFuncKey) VALUES (1, 10), (2, 11);");
    host::db_fail_writes(db, "PCIPhysicalPortStat", "insert");
    EXPECT_NE(0, rebuild_tables_in_memory(db));
    EXPECT_EQ(1u, logged_prefix(host::log_level::err,
                                "AIM PARSER: Failed to insert Physical Port Stat Information, rc="));
    EXPECT_TRUE(logged("AIM PARSER: Rebuild PCIPhysicalPortStat, inserted 0 records"));
    EXPECT_EQ(0u, count("PCIPhysicalPortStat"));
}

// ---- Key resolution and database helpers ----

TEST_F(IngestWalk, KeyResolutionFillsEveryFieldOrLeavesTheKeyUnresolved) {
    add_pci({{"SegNo", "1"},
             {"BusNo", "2"},
             {"DeviceNo", "3"},
             {"FunctionNo", "4"},
             {"NodeIndex", "5"},
             {"SlotNo", "6"},
             {"DevKey", "7"},
             {"FunKey", "8"},
             {"HardwareId", "9"},
             {"HardwareTypeId", "0"},
             {"Location", "1"},
             {"FunType", "NULL"},
             {"VendorId", "4318"},
             {"DeviceId", "8707"},
             {"SubVendorId", "4318"},
             {"SubDeviceId", "5000"}});
    aim_parser::parser p;
    aim_parser::aim_pci_key_unit key;
    key.segment = 1;
    key.bus = 2;
    key.device = 3;
    key.function = 4;
    ASSERT_EQ(0, p.get_pci_node_slot_key_by_pfa(db, &key));
    EXPECT_EQ(5, key.node_index);
    EXPECT_EQ(6, key.slot);
    EXPECT_EQ(7u, key.dev_key);
    EXPECT_EQ(8u, key.func_key);
    EXPECT_EQ(9u, key.hardware_id);
    EXPECT_EQ(0, key.hardware_type_id);
    EXPECT_EQ(1, key.untyped_hardware);
    EXPECT_EQ(1, key.location);
    EXPECT_EQ(7u, key.function_type);  // NULL "FunType": unresolved value
    EXPECT_EQ(0x10DE, key.vendor_id);
    EXPECT_EQ(0x2203, key.device_id);
    EXPECT_EQ(0x10DE, key.subsystem_vendor_id);
    EXPECT_EQ(5000, key.subsystem_device_id);

    aim_parser::aim_pci_key_unit missing;
    missing.bus = 99;
    EXPECT_EQ(-1, p.get_pci_node_slot_key_by_pfa(db, &missing));
    EXPECT_EQ(0u, missing.dev_key);
    EXPECT_EQ(0, missing.vendor_id);
    EXPECT_EQ(7u, missing.function_type);
    EXPECT_EQ(1, missing.hardware_type_id);
    EXPECT_EQ(-1, p.get_pci_node_slot_key_by_pfa(db, nullptr));
}

struct slot_case {
    const char* stored;
    const char* generation;
    const char* lanes;
    unsigned short expected;
};

class IngestSlotType : public IngestWalk, public ::testing::WithParamInterface<slot_case> {};

TEST_P(IngestSlotType, StoredTypeIsRefinedOnlyAbove183) {
    const slot_case& c = GetParam();
    add_pci({{"SegNo", "0"},
             {"BusNo", "59"},
             {"DeviceNo", "0"},
             {"FunctionNo", "0"},
             {"SlotType", c.stored},
             {"MaxPCIeType", c.generation},
             {"MaxLanes", c.lanes},
             {"SlotDesignation", "'PCIe Slot 3'"}});
    aim_parser::parser p;
    aim_parser::aim_pci_key_unit key;
    key.bus = 59;
    unsigned short type = 0;
    char designation[8];
    ASSERT_EQ(0, p.get_pci_slot_type_by_pfa(db, &key, &type, designation, sizeof(designation)));
    EXPECT_EQ(c.expected, type);
    EXPECT_STREQ("PCIe Sl", designation);
}

INSTANTIATE_TEST_SUITE_P(Table, IngestSlotType,
                         ::testing::Values(slot_case{"184", "3", "16", 182}, slot_case{"165", "3", "16", 165},
                                           slot_case{"183", "4", "8", 183}, slot_case{"200", "2", "12", 171},
                                           slot_case{"184", "1", "1", 166}, slot_case{"184", "1", "2", 167},
                                           slot_case{"184", "1", "4", 168}, slot_case{"184", "1", "8", 169},
                                           slot_case{"184", "1", "16", 170}, slot_case{"190", "2", "1", 172},
                                           slot_case{"190", "2", "16", 176}, slot_case{"255", "3", "0", 177},
                                           slot_case{"255", "4", "1", 185}, slot_case{"255", "4", "2", 186},
                                           slot_case{"255", "4", "4", 187}, slot_case{"255", "4", "8", 188},
                                           slot_case{"255", "4", "16", 189}, slot_case{"255", "4", "32", 184},
                                           slot_case{"184", "0", "16", 184},
                                           slot_case{"184", "5", "16", 184}));

TEST_F(IngestWalk, SlotTypeFailsWithoutRowOrColumns) {
    add_pci({{"SegNo", "0"},
             {"BusNo", "59"},
             {"DeviceNo", "0"},
             {"FunctionNo", "0"},
             {"SlotType", "184"},
             {"MaxPCIeType", "3"},
             {"MaxLanes", "NULL"}});
    aim_parser::parser p;
    aim_parser::aim_pci_key_unit key;
    unsigned short type = 1;
    key.bus = 60;
    EXPECT_EQ(-1, p.get_pci_slot_type_by_pfa(db, &key, &type, nullptr, 0));
    EXPECT_EQ(1, type);
    EXPECT_EQ(-1, p.get_pci_slot_type_by_pfa(db, &key, nullptr, nullptr, 0));
    key.bus = 59;
    // An unreadable "MaxLanes" fails the call; the type read is kept and refined as width 0.
    EXPECT_EQ(-1, p.get_pci_slot_type_by_pfa(db, &key, &type, nullptr, 0));
    EXPECT_EQ(177, type);
}

TEST_F(IngestWalk, FunctionKeysOfADeviceShareItsTypeAndBusAddress) {
    for (unsigned f = 0; f < 4; ++f) add_pci_function(59, 0, f, 0x15B3, 0x1015, 0x15B3, 0x0003, 1, 2);
    add_pci_function(59, 0, 4, 0x15B3, 0x1015, 0x15B3, 0x0003, 1, 3);  // other type
    add_pci_function(59, 1, 0, 0x15B3, 0x1015, 0x15B3, 0x0003, 1, 2);  // other device
    aim_parser::parser p;
    std::vector<unsigned> keys = {42};
    EXPECT_EQ(4u, p.find_pci_func_keys(db, 0x15B3, 0x15B3, 0x0003, 0, 59, 0, 2, keys));
    EXPECT_EQ((std::vector<unsigned>{3866624, 3866625, 3866626, 3866627}), keys);
    EXPECT_EQ(0u, p.find_pci_func_keys(db, 0x15B3, 0x15B3, 0x0004, 0, 59, 0, 2, keys));
    EXPECT_TRUE(keys.empty());
}

TEST_F(IngestWalk, FindRecordAnswersIdZeroOrMinusOne) {
    add_pci_function(59, 0, 0);
    aim_parser::parser p;
    EXPECT_EQ(-1, p.find_db_record(db, nullptr, "BusNo=59"));
    EXPECT_EQ(-1, p.find_db_record(db, "PCIs", nullptr));
    EXPECT_EQ(0u, host::log_captured().size());
    EXPECT_EQ(0, p.find_db_record(db, "PCIs", "BusNo=60"));
    EXPECT_EQ(1, p.find_db_record(db, "PCIs", "BusNo=59"));
    EXPECT_EQ(-1, p.find_db_record(db, "PCIs", "NoSuchColumn=1"));
    EXPECT_TRUE(logged(host::log_level::err, "table=PCIs"));
    EXPECT_TRUE(logged(host::log_level::err, "where=NoSuchColumn=1"));
}

}  // namespace
