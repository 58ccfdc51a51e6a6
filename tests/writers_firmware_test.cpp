// Firmware through parse_aim: the "Firmwares" rows with their existence check, and the
// "PldmDeviceFirmware" table brought into line with the PLDM firmware list.
#include "tests/writers_util.h"

using namespace writers_test;

namespace {

const unsigned dev_key = 0x3b0000;  // bus 0x3b, device 0
const unsigned fun0 = dev_key, fun1 = dev_key | 1;

std::string firmware(const std::string& version, const std::string& classification = "10",
                     const std::string& name = "UEFI", const std::string& extra = "",
                     const std::string& suppress = "") {
    return aim_group("Firmware Information",
                     text("Firmware Name", name) + text("Version String", version) +
                         text("Description", "desc") + text("Release Date", "2024-01-02") +
                         text("Manufacturer", "Acme") + text("Classification", classification) +
                         text("Software ID", "15B31017") + extra,
                     suppress);
}

class Firmware : public testutil::IngestTest {
protected:
    void SetUp() override {
        IngestTest::SetUp();
        add_pci_function(0x3b, 0, 0, 0x15B3, 0x1017, 0x15B3, 0x0020, 2);
        add_pci_function(0x3b, 0, 1, 0x15B3, 0x1017, 0x15B3, 0x0020, 2);
    }
    static std::string adapter(const std::string& function, const std::string& content,
                               const std::string& card = "Dual port 25GbE") {
        return aim_config("fn" + function, "0x3b", "0", function, text("Card Name", card) + content);
    }
    std::vector<host::row> pldm() { return rows("PldmDeviceFirmware"); }
};

TEST_F(Firmware, WritesRowWithHardwareColumns) {
    exec("UPDATE PCIs SET HardwareTypeId=0 WHERE FunKey=" + std::to_string(fun1));
    ASSERT_EQ(0, run_xml(aim_doc(adapter("0", firmware("1.0")) + adapter("1", firmware("1.0")))));
    auto fw = rows("Firmwares");
    ASSERT_EQ(2u, fw.size());
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"FirmwareName", "UEFI"},   {"VersionString", "1.0"},
        {"Description", "desc"},    {"ReleaseDate", "2024-01-02"},
        {"Manufacture", "Acme"},    {"Classification", "10"},
        {"SoftwareID", "15B31017"}, {"HardwareId", std::to_string(fun0)},
        {"HardwareTypeId", "3"},
    };
    for (const auto& e : expected) EXPECT_EQ(e.second, col(fw[0], e.first)) << e.first;
    // The untyped-hardware function's row is typed 0.
    EXPECT_EQ(std::to_string(fun1), col(fw[1], "HardwareId"));
    EXPECT_EQ("0", col(fw[1], "HardwareTypeId"));
}

TEST_F(Firmware, GroupWithoutLabelsWritesNoRow) {
    ASSERT_EQ(0, run_xml(aim_doc(adapter("0", aim_group("Firmware Information", text("Other", "x"))))));
    EXPECT_EQ(0u, count("Firmwares"));
}

// The existence check compares the hardware id and the five identity texts, each in its first
// 31 characters; the name, description and hardware type do not count.
TEST_F(Firmware, ExistenceCheck) {
    const std::string v31(31, '7');
    struct Case {
        std::string second;
        size_t rows;
    } cases[] = {
        {firmware("1.0"), 1},
        {firmware("1.0", "10", "Other name"), 1},
        {aim_group("Firmware Information",
                   text("Version String", "1.0") + text("Release Date", "2024-01-02") +
                       text("Manufacturer", "Acme") + text("Classification", "10") +
                       text("Software ID", "15B31017") + text("Description", "another")),
         1},
        {firmware("1.1"), 2},
        {firmware("1.0", "11"), 2},
        {firmware("1.0", "10", "UEFI", text("Software ID", "ignored duplicate label")), 1},
    };
    for (const auto& c : cases) {
        exec("DELETE FROM Firmwares");
        ASSERT_EQ(0, run_xml(aim_doc(adapter("0", firmware("1.0") + c.second))));
        EXPECT_EQ(c.rows, count("Firmwares")) << c.second;
    }
    // Values longer than 31 characters are stored whole but compared in 31 characters only:
    // they never match their own row, while a row of exactly those 31 characters matches.
    exec("DELETE FROM Firmwares");
    ASSERT_EQ(0, run_xml(aim_doc(adapter(
                     "0", firmware(v31 + "A") + firmware(v31 + "B") + firmware(v31) + firmware(v31 + "C")))));
    EXPECT_EQ((std::vector<std::string>{v31 + "A", v31 + "B", v31}),
              column(rows("Firmwares"), "VersionString"));

    // The hardware type does not count: a surviving row of another type blocks the insert.
    exec("DELETE FROM Firmwares");
    exec(
        "INSERT INTO Firmwares (FirmwareName, VersionString, ReleaseDate, Manufacture, Classification, "
        "SoftwareID, "
        "HardwareId, HardwareTypeId) VALUES ('Kept', '1.0', '2024-01-02', 'Acme', '10', '15B31017', " +
        std::to_string(fun0) + ", 1)");
    ASSERT_EQ(0, run_xml(aim_doc(adapter("0", firmware("1.0")))));
    auto fw = rows("Firmwares");
    ASSERT_EQ(1u, fw.size());
    EXPECT_EQ("Kept", col(fw[0], "FirmwareName"));
    // The same identity on another hardware id is a new row.
    ASSERT_EQ(0, run_xml(aim_doc(adapter("1", firmware("1.0")))));
    EXPECT_EQ(2u, count("Firmwares"));
}

TEST_F(Firmware, RunningTwiceKeepsOneRowPerIdentity) {
    std::string doc = aim_doc(adapter("0", firmware("1.0") + firmware("2.0")));
    ASSERT_EQ(0, run_xml(doc));
    ASSERT_EQ(0, run_xml(doc));
    EXPECT_EQ((std::vector<std::string>{"1.0", "2.0"}), column(rows("Firmwares"), "VersionString"));
}

// Identity texts go into the existence condition unquoted: a double quote breaks the query,
// which counts as an existing row, and a second statement never runs.
TEST_F(Firmware, QuotesInIdentityTexts) {
    ASSERT_EQ(0, run_xml(aim_doc(adapter("0", firmware("1\"; DELETE FROM PCIs; --")) +
                                 adapter("1", firmware("2.0")))));
    EXPECT_EQ(2u, count("PCIs"));
    EXPECT_EQ((std::vector<std::string>{"2.0"}), column(rows("Firmwares"), "VersionString"));
}

TEST_F(Firmware, InsertFailureLogged) {
    host::db_fail_writes(db, "Firmwares", "insert");
    ASSERT_EQ(0, run_xml(aim_doc(adapter("0", firmware("1.0")))));
    EXPECT_EQ(1u,
              logged_prefix(host::log_level::warn, "AIM PARSER: failed to insert Firmware Information, rc="));
}

// The first firmware group is copied into the adapter's PLDM record whatever its
// classification; a group of classification 13 is copied and ends the copying.
TEST_F(Firmware, PldmRecordTakesFirmwareIdentity) {
    struct Case {
        std::string groups;
        std::string version;  // of the PldmDeviceFirmware row
    } cases[] = {
        {firmware("1.0", "10") + firmware("2.0", "10"), "1.0"},
        {firmware("1.0", "10") + firmware("2.0", "13") + firmware("3.0", "13"), "2.0"},
        {firmware("1.0", "13") + firmware("2.0", "13"), "1.0"},
        {firmware("1.0", "013") + firmware("2.0", "13"), "1.0"},  // decimal: 013 is 13
        {firmware(std::string(40, 'v'), "13"), std::string(31, 'v')},
        {aim_group("Firmware Information", text("Classification", "13")), "<null>"},
        // A suppressed first group is not written and the next one is not the first.
        {firmware("1.0", "10", "UEFI", "", "true") + firmware("2.0", "12"), "<null>"},
        {firmware("1.0", "10", "UEFI", "", "true") + firmware("2.0", "13"), "2.0"},
        {"", "<null>"},
    };
    for (const auto& c : cases) {
        host::log_capture_end();
        host::log_capture_begin();
        exec("DELETE FROM PldmDeviceFirmware");
        ASSERT_EQ(0, run_xml(aim_doc(adapter("0", c.groups))));
        auto p = pldm();
        ASSERT_EQ(1u, p.size()) << c.groups;
        EXPECT_EQ(c.version, col(p[0], "VersionString")) << c.groups;
        EXPECT_EQ(c.version == "<null>",
                  logged(host::log_level::warn, "AIM PARSER: Empty PLDM VersionString in slot 2"))
            << c.groups;
    }
}

TEST_F(Firmware, PldmRowColumns) {
    load_machine_json(
        R"({"mctp_eids": [{"segment": 0, "bus": "0x3b", "device": 0, "function": 1, "eid": 9}]})");
    ASSERT_EQ(0,
              run_xml(aim_doc(adapter("0", firmware("1.0", "13")) +
                              adapter("1", firmware("2.0", "13", "UEFI", text("Manufacturer", "ignored"))))));
    auto p = pldm();
    ASSERT_EQ(2u, p.size());
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"DeviceType", "7"},
        {"PCIKey", std::to_string(dev_key)},
        {"PCIFuncKey", std::to_string(fun0)},
        {"Location", "0"},
        {"SlotNo", "2"},
        {"VendorId", std::to_string(0x15B3)},
        {"DeviceId", std::to_string(0x1017)},
        {"SubVendorId", std::to_string(0x15B3)},
        {"SubDeviceId", "32"},
        {"DeviceName", "Dual port 25GbE"},
        {"Manufacture", "Acme"},
        {"SoftwareID", "15B31017"},
        {"VersionString", "1.0"},
        {"ReleaseDate", "2024-01-02"},
    };
    for (const auto& e : expected) EXPECT_EQ(e.second, col(p[0], e.first)) << e.first;
    EXPECT_EQ(std::to_string(fun1), col(p[1], "PCIFuncKey"));
    EXPECT_EQ("2.0", col(p[1], "VersionString"));
    EXPECT_TRUE(logged(host::log_level::info,
                       "AIM PARSER: slot = 2, func_key = " + std::to_string(fun1) + ", EID = 0x09"))
        << log_text();
}

// Records without an MCTP endpoint that repeat an earlier record's PCIKey and SubDeviceId
// are dropped.
TEST_F(Firmware, PldmListWithoutEndpoints) {
    add_pci_function(0x3c, 0, 0, 0x15B3, 0x1017, 0x15B3, 0x0020, 5);
    struct Case {
        std::string machine;
        std::vector<std::string> func_keys;
    } cases[] = {
        {"{}", {std::to_string(fun0), std::to_string(0x3c0000)}},
        {R"({"mctp_eids": [{"segment": 0, "bus": 59, "device": 0, "function": 1, "eid": 9}]})",
         {std::to_string(fun0), std::to_string(fun1), std::to_string(0x3c0000)}},
        {R"({"mctp_eids": [{"segment": 0, "bus": 59, "device": 0, "function": 0, "eid": 8}]})",
         {std::to_string(fun0), std::to_string(0x3c0000)}},
        // Without segment bits the segment is not part of the address.
        {R"({"mctp_eids": [{"segment": 1, "bus": 59, "device": 0, "function": 1, "eid": 9}]})",
         {std::to_string(fun0), std::to_string(fun1), std::to_string(0x3c0000)}},
        {R"({"pci_seg_bits": 8, "mctp_eids": [{"segment": 1, "bus": 59, "device": 0, "function": 1, "eid": 9}]})",
         {std::to_string(fun0), std::to_string(0x3c0000)}},
    };
    std::string doc = aim_doc(adapter("0", "") + adapter("1", "") +
                              aim_config("other", "0x3c", "0", "0", text("Card Name", "Other card")));
    for (const auto& c : cases) {
        exec("DELETE FROM PldmDeviceFirmware");
        load_machine_json(c.machine);
        ASSERT_EQ(0, run_xml(doc));
        EXPECT_EQ(c.func_keys, column(pldm(), "PCIFuncKey")) << c.machine;
    }
}

TEST_F(Firmware, PchIntegratedSataHasNoPldmRecord) {
    ASSERT_EQ(0, run_xml(aim_doc(adapter("0", firmware("1.0", "13"), "Intel PCH Integrated SATA Controller") +
                                 adapter("1", firmware("1.0", "13"), "PCH Integrated SATA"))));
    EXPECT_EQ(0u, pldm().size());
    EXPECT_EQ(2u, count("Firmwares"));
}

// Rows no record matches are deleted, rows a record matches are updated in place, the rest
// of the records are inserted.
TEST_F(Firmware, PldmTableDeleteUpdateInsert) {
    load_machine_json(R"({"mctp_eids": [{"segment": 0, "bus": 59, "device": 0, "function": 1, "eid": 9}]})");
    auto insert = [&](unsigned pci_key, unsigned vendor, unsigned func_key, const std::string& version) {
        exec(
            "INSERT INTO PldmDeviceFirmware (DeviceType, PCIKey, PCIFuncKey, Location, SlotNo, VendorId, "
            "DeviceId, "
            "SubVendorId, SubDeviceId, DeviceName, Manufacture, SoftwareID, VersionString, ReleaseDate) "
            "VALUES (1, " +
            std::to_string(pci_key) + ", " + std::to_string(func_key) + ", 0, 2, " + std::to_string(vendor) +
            ", " + std::to_string(0x1017) + ", " + std::to_string(0x15B3) + ", 32, 'old', 'old', 'old', '" +
            version + "', 'old')");
    };
    insert(dev_key, 0x15B3, fun0, "old-fn0");    // matches the fn0 record: updated
    insert(0x990000, 0x15B3, 0x990000, "gone");  // no record: deleted
    insert(dev_key, 0x8086, fun0, "other-vid");  // differs in VendorId: deleted
    auto before = pldm();
    ASSERT_EQ(3u, before.size());

    ASSERT_EQ(0, run_xml(aim_doc(adapter("0", firmware("1.0", "13")) + adapter("1", firmware("2.0", "13")))));
    auto after = pldm();
    ASSERT_EQ(2u, after.size());
    EXPECT_EQ(col(before[0], "_id"), col(after[0], "_id"));
    EXPECT_EQ("1.0", col(after[0], "VersionString"));
    EXPECT_EQ("Dual port 25GbE", col(after[0], "DeviceName"));
    EXPECT_EQ("7", col(after[0], "DeviceType"));
    EXPECT_EQ(std::to_string(fun1), col(after[1], "PCIFuncKey"));
    EXPECT_EQ("2.0", col(after[1], "VersionString"));

    // An empty list deletes every row.
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("absent", "0x77", "0", "0", text("Card Name", "x")))));
    EXPECT_EQ(0u, pldm().size());
}

TEST_F(Firmware, PldmTableFailuresLogged) {
    std::string doc = aim_doc(adapter("0", firmware("1.0", "13")));
    host::db_fail_writes(db, "PldmDeviceFirmware", "insert");
    ASSERT_EQ(0, run_xml(doc));
    EXPECT_EQ(1u, logged_prefix(host::log_level::warn,
                                "AIM PARSER: failed to insert PLDM Adapter Information in slot 2, rc="))
        << log_text();

    host::db_fail_writes(db, "");
    ASSERT_EQ(0, run_xml(doc));
    exec("INSERT INTO PldmDeviceFirmware (PCIKey, PCIFuncKey) VALUES (1, 1)");
    host::db_fail_writes(db, "PldmDeviceFirmware", "update");
    ASSERT_EQ(0, run_xml(doc));
    EXPECT_EQ(1u, logged_prefix(host::log_level::warn,
                                "AIM PARSER: failed to update PLDM Firmware Information in slot 2, rc="))
        << log_text();

    host::db_fail_writes(db, "");
    exec("INSERT INTO PldmDeviceFirmware (PCIKey, PCIFuncKey) VALUES (1, 1)");
    host::db_fail_writes(db, "PldmDeviceFirmware", "delete");
    ASSERT_EQ(0, run_xml(doc));
    EXPECT_EQ(1u, logged_prefix(host::log_level::err, "failed to delete records in pldm firmware table: "));
    EXPECT_EQ(2u, pldm().size());
}

}  // namespace
