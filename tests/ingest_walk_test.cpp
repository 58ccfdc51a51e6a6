// End-to-end tests of parse_aim: entry points, the printable-ASCII filter, address
// matching, the duplicate rule, early ends of the walk and PCI key resolution.
#include <stdio.h>

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

namespace {

const char* const no_data = "AIM PARSER: No AIM data found";
const char* const parsed = "AIM PARSER: successfully parsed \"/tmp/aim_filtered.xml\"";
const char* const supported59 = "AIM PARSER: [AIM-supported] slot = 1, func_key = 3866624";
const char* const duplicate = "AIM_PARSER:There is a same config in the table already,conif ";

std::string card(const std::string& name) { return aim_setting("Card Name", name); }
const std::string package = aim_setting("Package Type", "9");
const std::string drive = aim_group("Disk Drive Information", aim_setting("Drive Type", "1"));

class IngestWalk : public testutil::IngestTest {
protected:
    // A run over configs, with a "PCIs" row for bus 59 (slot 1) and fresh captured messages.
    int run_configs(const std::string& configs) {
        if (count("PCIs") == 0) add_pci_function(59, 0, 0);
        host::log_capture_end();
        host::log_capture_begin();
        return run_xml(aim_doc(configs));
    }
    // The named columns of every row of `table`, space-separated ("-" for NULL), one row a line.
    std::string dump(const std::string& table, const std::string& columns) {
        std::string sql = "SELECT ifnull(";
        for (char c : columns) sql += c == ',' ? std::string(", '-') || ' ' || ifnull(") : std::string(1, c);
        std::vector<host::row> out;
        EXPECT_EQ(0, host::db_select(db, sql + ", '-') AS r FROM " + table + " ORDER BY _id", out));
        std::string text;
        for (auto& r : out) text += r["r"] + "\n";
        return text;
    }
};

TEST_F(IngestWalk, AddressTextsInAnyBaseMatchTheirPciRow) {
    std::string generic = card("E810") + aim_setting("Connector Layout", "3", "enumerate_data") +
                          aim_setting("Max Data Width", "0x10", "numeric_data") +
                          aim_setting("AIM Spec Version", "2.00");
    const std::string address = "SegNo,BusNo,DeviceNo,FunctionNo,NodeNo,SlotNo,PCIKey,PCIFuncKey,";
    // The last segment is above 255 and wraps to eight bits.
    for (const char* bus : {"0x3b", "59", "073", "0X3B"}) {
        ASSERT_EQ(0, run_configs(aim_config("nic", bus, "0x0", "00", generic, bus[1] == 'X' ? "256" : "0")));
        EXPECT_EQ(
            "0 59 0 0 1 1 3866624 3866624 E810 3 1 1 0\n"
            "0 59 0 0 1 1 3866624 3866624 16 3 - 2.00\n",
            dump("PCIAdapter", address + "CardName,ConnectorType,AIMSupported,OOBSrc,Location") +
                dump("PCIMisc", address + "MaxDataWidth,ConnectorLayout,PackageType,AIMSpecVersion"))
            << bus;
        EXPECT_TRUE(logged(host::log_level::info, supported59));
        EXPECT_TRUE(logged(host::log_level::info, parsed));
    }
}

// Configs are walked by name; only the last one decides whether AIM data was found.
TEST_F(IngestWalk, ConfigsWithoutPciRowOrGenericGroupWriteNothing) {
    std::string bare =
        "<config ID=\"bare\"><name>bare</name><pfa><segment>0</segment><bus>59</bus><device>0"
        "</device><function>0</function></pfa>" +
        aim_group("Other", card("X")) + "</config>";
    ASSERT_EQ(0, run_configs(aim_config("a_ghost", "0x20", "0", "0", card("Ghost")) + bare));
    EXPECT_TRUE(
        logged(host::log_level::err, "AIM_PARSER: No PCI Info in CDS PCIs table for config: a_ghost!"));
    EXPECT_TRUE(
        logged(host::log_level::err,
               "AIM_PARSER: No PCI Generic Information field in AIM XML file under config node: bare!"));
    EXPECT_TRUE(logged(host::log_level::warn, no_data));
    EXPECT_EQ("", dump("PCIAdapter", "CardName") + dump("PCIMisc", "SlotNo"));

    ASSERT_EQ(0, run_configs(aim_config("b_ghost", "0x20", "0", "0", card("Ghost")) +
                             aim_config("a_nic", "59", "0", "0", card("Nic"))));
    EXPECT_EQ("Nic\n", dump("PCIAdapter", "CardName"));
    EXPECT_TRUE(logged(no_data) && !logged(parsed));
    ASSERT_EQ(0, run_configs(aim_config("a_ghost", "0x20", "0", "0", card("Ghost")) +
                             aim_config("b_nic", "59", "0", "0", card("Nic"))));
    EXPECT_TRUE(logged(parsed));
}

// A second config at the same address text writes no adapter row but keeps its other rows;
// the check compares the texts as written ("073" is read as 73 by the database).
TEST_F(IngestWalk, SecondConfigAtTheSameAddressIsADuplicate) {
    ASSERT_EQ(0, run_configs(aim_config("first", "59", "0", "0", card("One") + package) +
                             aim_config("second", "59", "0", "0", card("Two") + package) +
                             aim_config("third", "073", "0", "0", card("Three"))));
    EXPECT_EQ(1u, logged_count(duplicate + std::string("second")));
    EXPECT_FALSE(logged(duplicate + std::string("third")));
    EXPECT_EQ("One 59\nThree 59\n", dump("PCIAdapter", "CardName,BusNo"));
    EXPECT_EQ("9 3866624\n9 3866624\n", dump("PCIMisc", "PackageType,PCIFuncKey"));
    EXPECT_EQ(3u, logged_count(supported59));
}

// Only a text that starts with "0x" is hexadecimal: the config at "109" is not a second one
// at "0x9" (the leading "10" read as a prefix).
TEST_F(IngestWalk, OnlyTextsWithThePrefixAreHexadecimal) {
    add_pci_function(9, 0, 0);
    add_pci_function(109, 0, 0);
    ASSERT_EQ(0, run_configs(aim_config("a", "0x9", "0", "0", card("Hex")) +
                             aim_config("b", "109", "0", "0", card("Dec"))));
    EXPECT_EQ("Hex 9\nDec 109\n", dump("PCIAdapter", "CardName,BusNo"));
}

// A "PCIs" row whose address is outside 0 to 255 matches no config: bus 315 is not segment
// 1's bus 59.
TEST_F(IngestWalk, PciRowOutsideTheAddressRangeMatchesNoConfig) {
    add_pci_function(315, 0, 0);
    ASSERT_EQ(0, run_configs(aim_config("wide", "59", "0", "0", card("Wide"), "1")));
    EXPECT_TRUE(logged(host::log_level::err, "AIM_PARSER: No PCI Info in CDS PCIs table for config: wide!"));
    EXPECT_EQ(0u, count("PCIAdapter"));
}

TEST_F(IngestWalk, AddressTextCannotRunAnotherStatement) {
    add_pci_function(59, 0, 0);
    auto before = rows("PCIs");
    // The last text is too long for the lookup's condition.
    const std::string texts[] = {"0; DELETE FROM PCIs", "0; DROP TABLE PCIs", "0; UPDATE PCIs SET FunType=1",
                                 "0" + std::string(300, ' ')};
    for (const std::string& text : texts) {
        // The address resolves (strtoul reads the 0); the refused lookup counts as a duplicate.
        ASSERT_EQ(0, run_configs(aim_config("evil", "59", "0", "0", card("Evil"), text)));
        EXPECT_EQ(1u, logged_count(duplicate + std::string("evil"))) << text;
        EXPECT_EQ(0u, count("PCIAdapter"));
        EXPECT_EQ(before, rows("PCIs"));
    }
}

TEST_F(IngestWalk, FailedInsertsAndRetypesOfTheWalk) {
    for (const char* table : {"PCIAdapter", "PCIMisc"}) {
        host::db_fail_writes(db, "");
        host::db_fail_writes(db, table, "insert");
        ASSERT_EQ(0, run_configs(aim_config("nic", "59", "0", "0", card("Nic") + package)));
        EXPECT_EQ(1u, logged_prefix(host::log_level::warn, std::string("AIM PARSER: failed to insert PCI ") +
                                                               (table[3] == 'A' ? "Adapter" : "Misc") +
                                                               " Information in config nic, rc="));
        EXPECT_EQ(0u, count("PCIMisc"));
        EXPECT_TRUE(logged(no_data));
        EXPECT_EQ(table[3] == 'M', logged(supported59)) << "the adapter failure ends the config first";
    }
    host::db_fail_writes(db, "");
    // A Broadcom function of type 8 is re-typed to 0; other types and vendors stay.
    exec("DELETE FROM PCIs");
    add_pci_function(59, 0, 0, 0x1000, 0x10E2, 0x1000, 0x4000, 1, 8);
    add_pci_function(60, 0, 0, 0x1000, 0x10E2, 0x1000, 0x4000, 2, 4);
    add_pci_function(61, 0, 0, 0x8086, 0x1572, 0x8086, 0x0001, 3, 8);
    ASSERT_EQ(0, run_configs(aim_config("a", "59", "0", "0", card("Raid")) +
                             aim_config("b", "60", "0", "0", card("R")) +
                             aim_config("c", "61", "0", "0", card("Nic"))));
    EXPECT_EQ("59 0\n60 4\n61 8\n", dump("PCIs", "BusNo,FunType"));
}

// One config walked alone (the wipe would drop the rows of untyped hardware itself): its old
// type-0 "VPDs" and "Firmwares" rows go.
TEST_F(IngestWalk, UntypedHardwareDropsItsOldTypeZeroRows) {
    add_pci({{"SegNo", "0"},
             {"BusNo", "59"},
             {"DeviceNo", "0"},
             {"FunctionNo", "0"},
             {"HardwareId", "77"},
             {"HardwareTypeId", "0"}});
    const char* values =
        " (Manufacture, HardwareId, HardwareTypeId) VALUES ('LSI', 77, 0), ('LSI', 77, 3), "
        "('LSI', 78, 0);";
    exec(std::string("INSERT INTO VPDs") + values + "INSERT INTO Firmwares" + values);
    aim_parser::document doc;
    std::istringstream in(aim_doc(aim_config("raid", "59", "0", "0", package)));
    ASSERT_EQ(0, doc.parse(in));
    std::vector<aim_parser::config*> configs;
    doc.inventories.configsets.begin()->second->get_config_list(configs);
    aim_parser::parser p;
    ASSERT_TRUE(p.init() && p.parse_config(db, configs.at(0)));
    EXPECT_EQ("77 3\n78 0\n", dump("VPDs", "HardwareId,HardwareTypeId"));
    EXPECT_EQ("77 3\n78 0\n", dump("Firmwares", "HardwareId,HardwareTypeId"));
}

// A drive config goes on without a "PCIs" row (under the unresolved key); a non-RAID M.2
// drive config ends after its drives, while an "M.2" RAID kit gets its adapter row.
TEST_F(IngestWalk, DriveConfigs) {
    add_pci_function(59, 0, 0);
    add_pci_function(60, 0, 0, 0x8086, 0x1572, 0x8086, 1, 2);
    ASSERT_EQ(0, run_configs(aim_config("a_hba", "0x5e", "0", "0", card("HBA 9500") + drive + drive) +
                             aim_config("b_m2", "59", "0", "0", card("M.2 480GB boot drive") + drive) +
                             aim_config("c_m2", "60", "0", "0", card("M.2 boot kit") + drive)));
    EXPECT_TRUE(
        logged(host::log_level::err, "AIM_PARSER: No PCI Info in CDS PCIs table for drive config: a_hba!"));
    for (const char* found :
         {"2 instance of Disk Drive(hotswap=0, bNonRaidM2NVMeDrive=0), controller slot = 0",
          "1 instance of Disk Drive(hotswap=0, bNonRaidM2NVMeDrive=1), controller slot = 1",
          "1 instance of Disk Drive(hotswap=0, bNonRaidM2NVMeDrive=0), controller slot = 2"})
        EXPECT_TRUE(logged(host::log_level::info, std::string("AIM PARSER: Find ") + found)) << found;
    EXPECT_TRUE(logged(supported59));
    EXPECT_EQ("94 0 0 0 0 HBA 9500\n60 2 1 3932160 3932160 M.2 boot kit\n",
              dump("PCIAdapter", "BusNo,SlotNo,NodeNo,PCIKey,PCIFuncKey,CardName"));
}

TEST_F(IngestWalk, MissingOrIllFormedFileFailsWithEmptyAdapterTables) {
    EXPECT_EQ(-1, parse_aim(nullptr, "/pstorage/cmr/aim.xml"));
    std::string good = aim_doc(aim_config("nic", "59", "0", "0", card("Nic")));
    std::string half = good.substr(0, good.size() / 2);
    struct {
        const char* xml;  // null: no file
        const char* message;
    } cases[] = {{nullptr, "AIM PARSER: failed to filter AIM xml file"},
                 {half.c_str(), "AIM PARSER: failed to parse the XML file, rslt=8"},
                 {"<?xml version=\"1.0\"?><adapters/>", "AIM PARSER: failed to parse the XML file, rslt=7"}};
    add_pci_function(59, 0, 0);
    for (const auto& c : cases) {
        exec("INSERT INTO PCIAdapter (SlotNo) VALUES (1); INSERT INTO PCIMisc (SlotNo) VALUES (1);");
        EXPECT_EQ(-1, c.xml ? run_xml(c.xml) : run_file("/pstorage/cmr/none.xml"));
        EXPECT_TRUE(logged(host::log_level::err, c.message)) << c.message;
        EXPECT_EQ("", dump("PCIAdapter", "SlotNo") + dump("PCIMisc", "SlotNo"));
        EXPECT_EQ("", testutil::read_file(sysroot_file("/tmp/aim_filtered.xml")));
    }
}

// The filter keeps the printable ASCII bytes only: line ends, tabs and the two bytes of the
// e-acute go.
TEST_F(IngestWalk, FilterKeepsThePrintableAsciiBytes) {
    std::string crlf;
    for (char c : aim_doc(aim_config("nic", "59", "0", "0", card("Carte r\xC3\xA9seau\t10G"))))
        crlf += c == '\n' ? std::string("\r\n\t") : std::string(1, c);
    ASSERT_EQ(0, run_configs(""));
    ASSERT_EQ(0, run_xml(crlf));
    EXPECT_EQ("Carte rseau10G\n", dump("PCIAdapter", "CardName")) << log_text();
}

TEST_F(IngestWalk, RebuildFillsOnlyAnEmptyStatisticsTable) {
    exec("INSERT INTO PCIPhysicalPort (Idx, PCIFuncKey) VALUES (1, 10), (2, 11);");
    host::db_fail_writes(db, "PCIPhysicalPortStat", "insert");
    EXPECT_NE(0, rebuild_tables_in_memory(db));
    EXPECT_EQ(1u, logged_prefix(host::log_level::err,
                                "AIM PARSER: Failed to insert Physical Port Stat Information, rc="));
    EXPECT_TRUE(logged("AIM PARSER: Rebuild PCIPhysicalPortStat, inserted 0 records"));
    host::db_fail_writes(db, "");
    EXPECT_EQ(0, rebuild_tables_in_memory(db));
    EXPECT_TRUE(logged(host::log_level::info, "AIM PARSER: Rebuild PCIPhysicalPortStat, inserted 2 records"));
    EXPECT_EQ(0, rebuild_tables_in_memory(db));
    EXPECT_TRUE(
        logged(host::log_level::info, "AIM PARSER: Find 2 record in PCIPhysicalPortStat, do nothing."));
    EXPECT_EQ(2u, count("PCIPhysicalPortStat"));
}

}  // namespace
