// End-to-end tests of the wipe that starts every parse_aim run. A missing AIM file makes
// parse_aim stop right after the wipe.
#include <stdio.h>

#include <string>
#include <vector>

#include "ingest/parser.h"
#include "tests/fixture.h"

namespace {

const char* const missing_file = "/pstorage/cmr/missing.xml";

const char* const wiped_tables[] = {"PCIAdapter",          "PCIMisc",        "PCINetwork", "PCIPhysicalPort",
                                    "PCIPhysicalPortStat", "PCILogicalPort", "AimDisks",   "PCIGPU"};

class IngestWipe : public testutil::IngestTest {
protected:
    // One row in every table that the wipe empties and in one that it leaves alone, and typed
    // rows of "VPDs" and "Firmwares" named by their SerialNo / VersionString.
    void fill() {
        for (const char* table : wiped_tables)
            exec(std::string("INSERT INTO ") + table + " (PCIFuncKey) VALUES (1)");
        exec("INSERT INTO PCIGPUChip (PCIFuncKey) VALUES (1)");
        // A present NVIDIA GPU (hardware id 100), and a function of another vendor with id 200.
        add_pci({{"BusNo", "0x3b"}, {"HardwareId", "100"}, {"VendorId", "0x10DE"}});
        add_pci({{"BusNo", "0x3c"}, {"HardwareId", "200"}, {"VendorId", "0x8086"}});
        const char* values =
            " VALUES ('NVIDIA', 100, 3, 'gpu-present'), ('NVIDIA', 100, 0, 'gpu-present-untyped'),"
            " ('NVIDIA', 200, 3, 'gpu-gone'), (NULL, 100, 1, 'no-maker'), ('Intel', 5, 1, 'typed-1'),"
            " ('Intel', 6, 3, 'intel-3'), ('Broadcom', 7, 0, 'lsi-0')";
        exec(std::string("INSERT INTO VPDs (Manufacture, HardwareId, HardwareTypeId, SerialNo)") + values);
        exec(std::string("INSERT INTO Firmwares (Manufacture, HardwareId, HardwareTypeId, VersionString)") +
             values);
    }
    std::string names(const std::string& table, const char* column) {
        std::string out;
        for (auto& r : rows(table)) out += r[column] + " ";
        return out;
    }
    // The storage calls of the run: "vT" cleared volumes of type T, "dT.S" removed a drive.
    std::string storage_calls() {
        std::string out;
        int a, b;
        char call[32];
        for (const auto& m : host::log_captured()) {
            if (sscanf(m.text.c_str(), "storage: clear volumes of controller type %d", &a) == 1)
                snprintf(call, sizeof call, "v%d ", a), out += call;
            if (sscanf(m.text.c_str(), "storage: remove drive record, controller type %d, slot %d", &a, &b) ==
                2)
                snprintf(call, sizeof call, "d%d.%d ", a, b), out += call;
        }
        return out;
    }
};

TEST_F(IngestWipe, KeepsOnlyPresentNvidiaAndUntypedRowsOfOtherMakers) {
    fill();
    EXPECT_EQ(-1, run_file(missing_file));
    EXPECT_EQ("gpu-present gpu-present-untyped typed-1 ", names("VPDs", "SerialNo"));
    EXPECT_EQ("gpu-present gpu-present-untyped typed-1 ", names("Firmwares", "VersionString"));
    for (const char* table : wiped_tables) EXPECT_EQ(0u, count(table)) << table;
    EXPECT_EQ(1u, count("PCIGPUChip"));
    EXPECT_EQ(2u, count("PCIs"));
    EXPECT_TRUE(logged(host::log_level::err, "AIM PARSER: failed to filter AIM xml file"));

    // Failed raw deletes of absent GPUs (no "PCIs" table) only log, naming the VPDs table twice.
    exec("DELETE FROM VPDs; DELETE FROM Firmwares");
    fill();
    exec("DROP TABLE PCIs");
    EXPECT_EQ(-1, run_file(missing_file));
    EXPECT_EQ(2u, logged_prefix(host::log_level::err,
                                "failed to delete non-existing NVIDIA GPU info from VPDs table, rc="));
    EXPECT_EQ("gpu-present gpu-present-untyped gpu-gone typed-1 ", names("VPDs", "SerialNo"));
    EXPECT_EQ(0u, count("PCIGPU"));
}

TEST_F(IngestWipe, StopsAtTheFirstFailedDelete) {
    load_machine_json(R"({"storage": {"controller_types": [1, 2]}})");
    fill();
    host::db_fail_writes(db, "PCIMisc", "delete");
    EXPECT_EQ(-1, run_file(missing_file));
    EXPECT_EQ(1u, logged_prefix(host::log_level::err, "failed to delete PCI Misc Info, rc="));
    // Earlier tables are wiped, the failed one and every later one are untouched.
    EXPECT_EQ("gpu-present gpu-present-untyped typed-1 ", names("VPDs", "SerialNo"));
    EXPECT_EQ(7u, count("Firmwares"));
    for (const char* table : wiped_tables)  // only "PCIAdapter" comes before "PCIMisc"
        EXPECT_EQ(table == std::string("PCIAdapter") ? 0u : 1u, count(table)) << table;
    // The run never got to the storage, the drives nor the file.
    EXPECT_EQ("", storage_calls());
    EXPECT_FALSE(logged("AIM PARSER: failed to filter AIM xml file"));

    // Each table's delete has its own message.
    // clang-format off
    const char* const cases[][2] = {
        {"PCIAdapter", "PCI Adapter Table"}, {"VPDs", "PCI VPD Info"}, {"Firmwares", "PCI Firmware Info"},
        {"PCINetwork", "PCI Network Info"}, {"PCIPhysicalPort", "PCI Physical Port Info"},
        {"PCIPhysicalPortStat", "PCI Physical Port Stat Info"}, {"PCILogicalPort", "PCI Logical Port Info"},
        {"AimDisks", "Aim Disk Info"}, {"PCIGPU", "PCI GPU Info"}};
    // clang-format on
    for (const auto& c : cases) {
        host::db_fail_writes(db, "");
        host::db_fail_writes(db, c[0], "delete");
        EXPECT_EQ(-1, run_xml(testutil::aim_doc("")));
        EXPECT_EQ(1u, logged_prefix(host::log_level::err, std::string("failed to delete ") + c[1] + ", rc="))
            << c[0];
    }
    EXPECT_FALSE(logged("AIM PARSER: No AIM data found"));
}

// Controller types decide which volume types are cleared; drive slots that the presence
// properties do not mark present lose their drive records.
TEST_F(IngestWipe, ClearsVolumesAndRemovesAbsentDrives) {
    struct {
        const char* machine;
        const char* presence_log;
        const char* calls;
    } cases[] = {
        {R"({"storage": {"controller_types": [1, 2]}, "properties": {"/ac/hxsd/dm/mv/0/drive_presence": "0x05",
            "/ac/hxsd/dm/mv/1/drive_presence": "0x0F", "/ac/hxsd/dm/planar/0/hdd_type": "7mm"}})",
         "AIM PARSER: drive presence = [0x5, 0xf]", "v3 v4 d3.1 d3.3 "},
        {R"({"storage": {"controller_types": [3, null]}})", "AIM PARSER: failed to get drive presence, rc=-1",
         "v1 "},
        {R"({"storage": {"controller_types": [7, 4]}, "properties": {"mv/0/drive0/presence": "1",
            "mv/0/drive1/presence": "0", "mv/0/drive3/presence": "1", "mv/0/slots": "2",
            "mv/1/drive_presence": "0xF", "hdd_type": "2.5in"}})",
         "AIM PARSER: 7mm drive presence = 0x0", "v3 v1 v2 d4.0 d3.1 d4.1 d3.2 d4.2 d3.3 d4.3 "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.machine);
        load_machine_json(c.machine);
        host::log_capture_end();
        host::log_capture_begin();
        EXPECT_EQ(-1, run_file(missing_file));
        EXPECT_TRUE(logged(c.presence_log)) << log_text();
        EXPECT_EQ(c.calls, storage_calls());
    }
}

}  // namespace
