// End-to-end tests of the wipe that starts every parse_aim run, and of the removal of
// stale GPU rows. A missing AIM file makes parse_aim stop right after the wipe.
#include <string>
#include <vector>

#include "ingest/parse_aim.h"
#include "ingest/parser.h"
#include "tests/fixture.h"

namespace {

const char* const missing_file = "/pstorage/cmr/missing.xml";

const char* const wiped_tables[] = {"PCIAdapter",          "PCIMisc",        "PCINetwork", "PCIPhysicalPort",
                                    "PCIPhysicalPortStat", "PCILogicalPort", "AimDisks",   "PCIGPU"};

class IngestWipe : public testutil::IngestTest {
protected:
    // One row in every table that the wipe empties, and in two that it leaves alone.
    void fill_other_tables() {
        for (const char* table : wiped_tables)
            exec(std::string("INSERT INTO \"") + table + "\" (PCIFuncKey) VALUES (1)");
        exec(
            "INSERT INTO PCIGPUChip (PCIFuncKey) VALUES (1); INSERT INTO PldmDeviceFirmware (PCIFuncKey) "
            "VALUES (1);");
    }
    // The typed rows of "VPDs" and "Firmwares", named by their SerialNo / VersionString.
    void fill_typed_rows() {
        // A present NVIDIA GPU (hardware id 100) and its "PCIs" row.
        add_pci({{"SegNo", "0"},
                 {"BusNo", "0x3b"},
                 {"DeviceNo", "0"},
                 {"FunctionNo", "0"},
                 {"HardwareId", "100"},
                 {"VendorId", "0x10DE"}});
        // A present function of another vendor that reuses hardware id 200.
        add_pci({{"SegNo", "0"},
                 {"BusNo", "0x3c"},
                 {"DeviceNo", "0"},
                 {"FunctionNo", "0"},
                 {"HardwareId", "200"},
                 {"VendorId", "0x8086"}});
        const char* values =
            " VALUES ('NVIDIA', 100, 3, 'gpu-present'), ('NVIDIA', 100, 0, 'gpu-present-untyped'),"
            " ('NVIDIA', 200, 3, 'gpu-gone'), (NULL, 100, 1, 'no-maker'), ('Intel', 5, 1, 'typed-1'),"
            " ('Intel', 6, 3, 'intel-3'), ('Broadcom', 7, 0, 'lsi-0')";
        exec(std::string("INSERT INTO VPDs (Manufacture, HardwareId, HardwareTypeId, SerialNo)") + values);
        exec(std::string("INSERT INTO Firmwares (Manufacture, HardwareId, HardwareTypeId, VersionString)") +
             values);
    }
    std::vector<std::string> names(const std::string& table, const char* column) {
        std::vector<std::string> out;
        for (auto& r : rows(table)) out.push_back(r[column]);
        return out;
    }
    // Creates the properties database with the given (name, value) rows.
    void properties(const std::vector<std::pair<std::string, std::string>>& props) {
        std::string err;
        _vqm_db_handle_t* pdb = host::db_open_file(dir + "/propertiesdb.db", &err);
        ASSERT_NE(nullptr, pdb) << err;
        std::string sql = "CREATE TABLE propertiesDCTbl (propName TEXT, propValue TEXT);";
        for (const auto& p : props)
            sql += "INSERT INTO propertiesDCTbl VALUES ('" + p.first + "', '" + p.second + "');";
        ASSERT_EQ(0, host::db_exec_script(pdb, sql, &err)) << err;
        vqm_db_close(pdb);
    }
};

TEST_F(IngestWipe, KeepsOnlyPresentNvidiaAndUntypedRowsOfOtherMakers) {
    fill_typed_rows();
    fill_other_tables();
    EXPECT_EQ(-1, run_file(missing_file));
    const std::vector<std::string> kept = {"gpu-present", "gpu-present-untyped", "typed-1"};
    EXPECT_EQ(kept, names("VPDs", "SerialNo"));
    EXPECT_EQ(kept, names("Firmwares", "VersionString"));
    for (const char* table : wiped_tables) EXPECT_EQ(0u, count(table)) << table;
    EXPECT_EQ(1u, count("PCIGPUChip"));
    EXPECT_EQ(1u, count("PldmDeviceFirmware"));
    EXPECT_EQ(2u, count("PCIs"));
}

TEST_F(IngestWipe, StopsAtTheFirstFailedDelete) {
    fill_typed_rows();
    fill_other_tables();
    host::db_fail_writes(db, "PCIMisc", "delete");
    EXPECT_EQ(-1, run_file(missing_file));
    EXPECT_EQ(1u, logged_prefix(host::log_level::err, "failed to delete PCI Misc Info, rc="));
    // Earlier tables are wiped, the failed one and every later one are untouched.
    EXPECT_EQ(0u, count("PCIAdapter"));
    EXPECT_EQ((std::vector<std::string>{"gpu-present", "gpu-present-untyped", "typed-1"}),
              names("VPDs", "SerialNo"));
    EXPECT_EQ(1u, count("PCIMisc"));
    EXPECT_EQ(7u, count("Firmwares"));
    for (const char* table :
         {"PCINetwork", "PCIPhysicalPort", "PCIPhysicalPortStat", "PCILogicalPort", "AimDisks", "PCIGPU"})
        EXPECT_EQ(1u, count(table)) << table;
    // The run never got to the file nor to the drives.
    EXPECT_FALSE(logged("AIM PARSER: failed to filter AIM xml file"));
    EXPECT_EQ(0u, logged_prefix(host::log_level::warn, "AIM PARSER: failed to get drive presence"));
}

struct failing_delete {
    const char* table;
    const char* message;
};

class IngestWipeFailure : public IngestWipe, public ::testing::WithParamInterface<failing_delete> {};

TEST_P(IngestWipeFailure, EachTableHasItsMessage) {
    host::db_fail_writes(db, GetParam().table, "delete");
    EXPECT_EQ(-1, run_xml(testutil::aim_doc("")));
    EXPECT_EQ(1u, logged_prefix(host::log_level::err, std::string(GetParam().message) + ", rc="));
    EXPECT_FALSE(logged("AIM PARSER: No AIM data found"));
}

INSTANTIATE_TEST_SUITE_P(
    Tables, IngestWipeFailure,
    ::testing::Values(failing_delete{"PCIAdapter", "failed to delete PCI Adapter Table"},
                      failing_delete{"VPDs", "failed to delete PCI VPD Info"},
                      failing_delete{"Firmwares", "failed to delete PCI Firmware Info"},
                      failing_delete{"PCINetwork", "failed to delete PCI Network Info"},
                      failing_delete{"PCIPhysicalPort", "failed to delete PCI Physical Port Info"},
                      failing_delete{"PCIPhysicalPortStat", "failed to delete PCI Physical Port Stat Info"},
                      failing_delete{"PCILogicalPort", "failed to delete PCI Logical Port Info"},
                      failing_delete{"AimDisks", "failed to delete Aim Disk Info"},
                      failing_delete{"PCIGPU", "failed to delete PCI GPU Info"}));

TEST_F(IngestWipe, FailedRawDeletesOfAbsentGpusOnlyLog) {
    fill_typed_rows();
    // Without "PCIs" the two raw deletes fail; every table delete still succeeds.
    exec("DROP TABLE PCIs");
    EXPECT_EQ(-1, run_file(missing_file));
    // Both failures name the VPDs table.
    EXPECT_EQ(2u, logged_prefix(host::log_level::err,
                                "failed to delete non-existing NVIDIA GPU info from VPDs table, rc="));
    EXPECT_TRUE(logged("AIM PARSER: failed to filter AIM xml file"));
    const std::vector<std::string> kept = {"gpu-present", "gpu-present-untyped", "gpu-gone", "typed-1"};
    EXPECT_EQ(kept, names("VPDs", "SerialNo"));
    EXPECT_EQ(kept, names("Firmwares", "VersionString"));
}

TEST_F(IngestWipe, WithoutPropertiesDatabaseTheDrivesAreLeftAlone) {
    EXPECT_EQ(-1, run_file(missing_file));
    EXPECT_TRUE(logged(host::log_level::warn, "AIM PARSER: failed to get drive presence, rc=-1"));
    EXPECT_TRUE(logged(host::log_level::err, "AIM PARSER: failed to filter AIM xml file"));
}

TEST_F(IngestWipe, DrivePresenceComesFromThePropertiesDatabase) {
    properties({{"/ac/hxsd/dm/mv/0/drive_presence", "0x5"},
                {"/ac/hxsd/dm/mv/0/slots", "4"},
                {"/ac/hxsd/dm/mv/1/drive0/presence", "1"},
                {"/ac/hxsd/dm/mv/1/drive2/presence", "0"},
                {"/ac/hxsd/dm/mv/1/drive3/presence", "1"},
                {"/ac/hxsd/dm/mv/1/slots", "2"},
                {"/ac/hxsd/dm/planar/0/hdd_type", "7mm"}});
    aim_parser::parser p;
    ASSERT_EQ(0, p.get_drive_presence());
    EXPECT_EQ(0x05, p.drive_presence[0]);
    EXPECT_EQ(0x01, p.drive_presence[1]);  // slot 3 lies beyond the two slots
    EXPECT_TRUE(logged(host::log_level::info, "AIM PARSER: drive presence = [0x5, 0x9]"));
    EXPECT_TRUE(logged(host::log_level::info, "AIM PARSER: m2 drive presence = 0x5, slot = 0xf"));
    EXPECT_TRUE(logged(host::log_level::info, "AIM PARSER: 7mm drive presence = 0x1"));
}

TEST_F(IngestWipe, SecondControllerCountsOnlyWith7mmDrives) {
    properties({{"mv/0/drive_presence", "0xFF"}, {"mv/1/drive_presence", "3"}, {"hdd_type", "2.5in"}});
    aim_parser::parser p;
    ASSERT_EQ(0, p.get_drive_presence());
    EXPECT_EQ(0xFF, p.drive_presence[0]);  // no slots property: every bit kept
    EXPECT_EQ(0x00, p.drive_presence[1]);
    EXPECT_TRUE(logged("AIM PARSER: 7mm drive presence = 0x0"));
}

TEST_F(IngestWipe, PropertiesDatabaseWithoutTableFails) {
    std::string err;
    _vqm_db_handle_t* pdb = host::db_open_file(dir + "/propertiesdb.db", &err);
    ASSERT_NE(nullptr, pdb) << err;
    vqm_db_close(pdb);
    aim_parser::parser p;
    EXPECT_NE(0, p.get_drive_presence());
    EXPECT_FALSE(logged("AIM PARSER: 7mm drive presence = 0x0"));
}

TEST_F(IngestWipe, DeleteNonExistGpuKeepsTheListedNvidiaRows) {
    exec(
        "INSERT INTO VPDs (Manufacture, HardwareId) VALUES ('NVIDIA', 5), ('NVIDIA', 7), ('NVIDIA', 12), "
        "('AMD', 7);"
        "INSERT INTO Firmwares (Manufacture, HardwareId) VALUES ('NVIDIA', 5), ('NVIDIA', 7), ('AMD', 7);");
    aim_parser::parser p;
    std::vector<unsigned> ids = {5, 12};
    EXPECT_EQ(0, p.delete_non_exist_gpu(db, ids));
    EXPECT_EQ(3u, count("VPDs"));
    EXPECT_EQ(0u, count("VPDs", "HardwareId=7 AND Manufacture='NVIDIA'"));
    EXPECT_EQ(2u, count("Firmwares"));

    ids.clear();
    EXPECT_EQ(0, p.delete_non_exist_gpu(db, ids));
    EXPECT_EQ(0u, count("VPDs", "Manufacture='NVIDIA'"));
    EXPECT_EQ(0u, count("Firmwares", "Manufacture='NVIDIA'"));
    EXPECT_EQ(1u, count("VPDs"));
}

TEST_F(IngestWipe, DeleteNonExistGpuRunsBothDeletesAndAnswersTheLast) {
    exec("INSERT INTO Firmwares (Manufacture, HardwareId) VALUES ('NVIDIA', 5);");
    host::db_fail_writes(db, "VPDs", "delete");
    aim_parser::parser p;
    std::vector<unsigned> ids;
    EXPECT_EQ(0, p.delete_non_exist_gpu(db, ids));
    EXPECT_EQ(1u, logged_prefix(host::log_level::err, "failed to delete non-exist gpu info, rc="));
    EXPECT_EQ(0u, count("Firmwares"));

    host::db_fail_writes(db, "Firmwares", "delete");
    EXPECT_NE(0, p.delete_non_exist_gpu(db, ids));
    EXPECT_EQ(3u, logged_prefix(host::log_level::err, "failed to delete non-exist gpu info, rc="));
}

}  // namespace
