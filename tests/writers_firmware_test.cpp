// Firmware through parse_aim: the "Firmwares" rows with their existence check, and the
// "PldmDeviceFirmware" table brought into line with the PLDM firmware list.
#include "tests/writers_util.h"

using namespace writers_test;

namespace {

const std::string fun0 = "3866624", fun1 = "3866625", other = "3932160";  // 0x3b0000, 0x3b0001, 0x3c0000

std::string firmware(const std::string& version, const std::string& classification = "10",
                     const std::string& name = "UEFI", const std::string& suppress = "") {
    return aim_group(
        "Firmware Information",
        settings("Description=desc; Release Date=2024-01-02; Manufacturer=Acme; Software ID=15B31017") +
            text("Firmware Name", name) + text("Version String", version) +
            text("Classification", classification),
        suppress);
}

// A machine with an MCTP endpoint for bus 59 (0x3b), device 0, `function`, on `segment`.
std::string endpoint(int function, int segment = 0, const std::string& seg_bits = "") {
    return "{" + seg_bits + R"("mctp_eids": [{"segment": )" + std::to_string(segment) +
           R"(, "bus": 59, "device": 0, "function": )" + std::to_string(function) + R"(, "eid": 9}]})";
}

class Firmware : public testutil::IngestTest {
protected:
    void SetUp() override {
        IngestTest::SetUp();
        for (unsigned f : {0, 1}) add_pci_function(0x3b, 0, f, 0x15B3, 0x1017, 0x15B3, 0x0020, 2);
    }
    static std::string adapter(const std::string& function, const std::string& content,
                               const std::string& card = "Dual port 25GbE") {
        return aim_config("fn" + function, "0x3b", "0", function, text("Card Name", card) + content);
    }
    int run(const std::string& fn0, const std::string& fn1 = "") {
        return run_xml(aim_doc(adapter("0", fn0) + (fn1.empty() ? "" : adapter("1", fn1))));
    }
    texts firmwares(const char* name) { return column(rows("Firmwares"), name); }
    texts pldm(const char* name) { return column(rows("PldmDeviceFirmware"), name); }
};

// The existence check compares the hardware id and the five identity texts, each in its first
// 31 characters; the name, description and hardware type do not count.
TEST_F(Firmware, RowsAndExistenceCheck) {
    exec("UPDATE PCIs SET HardwareTypeId=0 WHERE FunKey=" + fun1);
    ASSERT_EQ(0, run(firmware("1.0"), firmware("1.0")));
    auto fw = rows("Firmwares");
    ASSERT_EQ(2u, fw.size());
    std::string expected =
        "FirmwareName=UEFI; VersionString=1.0; Description=desc; ReleaseDate=2024-01-02; "
        "Manufacture=Acme; Classification=10; SoftwareID=15B31017; HardwareId=" +
        fun0 + "; HardwareTypeId=3";
    EXPECT_EQ(expected, pick(fw[0], expected));
    EXPECT_EQ("HardwareId=" + fun1 + "; HardwareTypeId=0", pick(fw[1], "HardwareId; HardwareTypeId"));

    const std::string v31(31, '7');
    const std::pair<std::string, texts> cases[] = {
        {firmware("1.0") + firmware("1.0", "10", "Other name"), {"1.0"}},
        {firmware("1.0") + firmware("1.1") + firmware("1.0", "11"), {"1.0", "1.1", "1.0"}},
        {firmware("1.0") + aim_group("Firmware Information", text("Other", "x")), {"1.0"}},
        // Longer texts are stored whole but compared in 31 characters: they never match their
        // own row, while a row of exactly those 31 characters matches.
        {firmware(v31 + "A") + firmware(v31 + "B") + firmware(v31) + firmware(v31 + "C"),
         {v31 + "A", v31 + "B", v31}}};
    for (const auto& c : cases) {
        exec("DELETE FROM Firmwares");
        ASSERT_EQ(0, run(c.first));
        EXPECT_EQ(c.second, firmwares("VersionString")) << c.first;
    }
    // A row of another hardware type blocks the insert; another hardware id does not.
    exec("UPDATE Firmwares SET FirmwareName='Kept', VersionString='1.0', HardwareTypeId=1");
    exec("DELETE FROM Firmwares WHERE _id!=" + col(rows("Firmwares")[0], "_id"));
    ASSERT_EQ(0, run(firmware("1.0"), firmware("1.0")));
    EXPECT_EQ((texts{"Kept", "UEFI"}), firmwares("FirmwareName"));
}

// Identity texts go into the existence condition unquoted: a double quote breaks the query,
// which counts as an existing row, and a second statement never runs.
TEST_F(Firmware, QuotesInIdentityTexts) {
    ASSERT_EQ(0, run(firmware("1\"; DELETE FROM PCIs; --"), firmware("2.0")));
    EXPECT_EQ(2u, count("PCIs"));
    EXPECT_EQ((texts{"2.0"}), firmwares("VersionString"));
}

// The first firmware group is copied into the adapter's PLDM record whatever its
// classification; a group of classification 13 is copied (in 31 characters) and ends the
// copying. A suppressed first group is not written and the next one is not the first.
TEST_F(Firmware, PldmRecordTakesFirmwareIdentity) {
    const std::pair<std::string, std::string> cases[] = {
        {firmware("1.0") + firmware("2.0"), "1.0"},
        {firmware("1.0") + firmware("2.0", "13") + firmware("3.0", "13"), "2.0"},
        {firmware("1.0", "013") + firmware("2.0", "13"), "1.0"},  // decimal: 013 is 13
        {firmware(std::string(40, 'v'), "13"), std::string(31, 'v')},
        {firmware("1.0", "10", "UEFI", "true") + firmware("2.0", "12"), "<null>"},
        {firmware("1.0", "10", "UEFI", "true") + firmware("2.0", "13"), "2.0"}};
    for (const auto& c : cases) {
        exec("DELETE FROM PldmDeviceFirmware");
        ASSERT_EQ(0, run(c.first));
        EXPECT_EQ((texts{c.second}), pldm("VersionString")) << c.first;
    }
    // Only the record left without a version says so.
    EXPECT_EQ(1u, logged_count("AIM PARSER: Empty PLDM VersionString in slot 2"));
}

// Configs that name the same function each add a record of the same key. A firmware group
// fills the records of its key, first to last, that no group of classification 13 took
// before: the first config's group takes its own record, the second's the second record,
// and a classification-10 group after that changes neither (both are taken).
TEST_F(Firmware, PldmRecordsOfOneKeyAcrossConfigs) {
    load_machine_json(endpoint(0));
    const std::pair<std::string, texts> cases[] = {
        {adapter("0", firmware("1.0", "13")) + adapter("0", firmware("2.0", "13")), {"1.0", "2.0"}},
        {adapter("0", firmware("1.0", "13")) + adapter("0", firmware("2.0", "13")) +
             adapter("0", firmware("3.0", "10")),
         {"1.0", "2.0", "3.0"}},
        // An unclaimed record takes every later first group of its key.
        {adapter("0", firmware("1.0", "10")) + adapter("0", firmware("2.0", "10")), {"2.0", "2.0"}},
        // Another function's group leaves them alone (its own record, without an endpoint,
        // repeats the adapter's PCIKey and SubDeviceId and is dropped from the table).
        {adapter("0", firmware("1.0", "10")) + adapter("1", firmware("4.0", "13")) +
             adapter("0", firmware("2.0", "13")),
         {"2.0", "2.0"}}};
    for (const auto& c : cases) {
        exec("DELETE FROM PldmDeviceFirmware");
        ASSERT_EQ(0, run_xml(aim_doc(c.first)));
        EXPECT_EQ(c.second, pldm("VersionString")) << c.first;
    }
}

// Records without an MCTP endpoint that repeat an earlier record's PCIKey and SubDeviceId are
// dropped (without segment bits the segment is not part of the address); PCH Integrated SATA
// adapters have no record.
TEST_F(Firmware, PldmListWithoutEndpoints) {
    add_pci_function(0x3c, 0, 0, 0x15B3, 0x1017, 0x15B3, 0x0020, 5);
    add_pci_function(0x3d, 0, 0, 0x8086, 0xA182, 0x8086, 0x0001, 6);
    const std::pair<std::string, texts> cases[] = {{"{}", {fun0, other}},
                                                   {endpoint(1), {fun0, fun1, other}},
                                                   {endpoint(0), {fun0, other}},
                                                   {endpoint(1, 1), {fun0, fun1, other}},
                                                   {endpoint(1, 1, "\"pci_seg_bits\": 8, "), {fun0, other}}};
    std::string doc = aim_doc(
        adapter("0", "") + adapter("1", "") +
        aim_config("other", "0x3c", "0", "0", text("Card Name", "Other card")) +
        aim_config("sata", "0x3d", "0", "0", text("Card Name", "Intel PCH Integrated SATA Controller")));
    for (const auto& c : cases) {
        exec("DELETE FROM PldmDeviceFirmware");
        load_machine_json(c.first);
        ASSERT_EQ(0, run_xml(doc));
        EXPECT_EQ(c.second, pldm("PCIFuncKey")) << c.first;
    }
}

// Rows no record matches are deleted, rows a record matches are updated in place, the rest
// of the records are inserted; an empty list deletes every row.
TEST_F(Firmware, PldmTableDeleteUpdateInsert) {
    load_machine_json(endpoint(1));
    exec(
        "INSERT INTO PldmDeviceFirmware (PCIKey, VendorId, PCIFuncKey, DeviceId, SubVendorId, SubDeviceId) "
        "VALUES (" +
        fun0 + ", 5555, " + fun0 + ", 4119, 5555, 32), (" + other + ", 5555, " + other +
        ", 4119, 5555, 32), (" + fun0 + ", 32902, " + fun0 + ", 4119, 5555, 32)");
    std::string kept_id = pldm("_id")[0];
    ASSERT_EQ(0, run(firmware("1.0", "13"), firmware("2.0", "13")));
    auto after = rows("PldmDeviceFirmware");
    ASSERT_EQ(2u, after.size());
    std::string expected =
        "_id=" + kept_id + "; DeviceType=7; PCIKey=" + fun0 + "; PCIFuncKey=" + fun0 +
        "; Location=0; SlotNo=2; VendorId=5555; DeviceId=4119; SubVendorId=5555; "
        "SubDeviceId=32; DeviceName=Dual port 25GbE; Manufacture=Acme; SoftwareID=15B31017; "
        "VersionString=1.0; ReleaseDate=2024-01-02";
    EXPECT_EQ(expected, pick(after[0], expected));
    EXPECT_EQ("PCIFuncKey=" + fun1 + "; VersionString=2.0", pick(after[1], "PCIFuncKey; VersionString"));
    EXPECT_TRUE(logged(host::log_level::info, "AIM PARSER: slot = 2, func_key = " + fun1 + ", EID = 0x09"));

    // The same file again leaves the rows as they are without writing them (an update of
    // the table fails here and would be logged); a new version is written.
    host::db_fail_writes(db, "PldmDeviceFirmware", "update");
    ASSERT_EQ(0, run(firmware("1.0", "13"), firmware("2.0", "13")));
    EXPECT_EQ(expected, pick(rows("PldmDeviceFirmware")[0], expected));
    EXPECT_EQ(0u, logged_prefix(host::log_level::warn, "AIM PARSER: failed to update"));
    // A new version is written; a failed update is logged with the record's slot.
    ASSERT_EQ(0, run(firmware("1.1", "13"), firmware("2.0", "13")));
    EXPECT_EQ((texts{"1.0", "2.0"}), pldm("VersionString"));
    EXPECT_EQ(1u, logged_prefix(host::log_level::warn,
                                "AIM PARSER: failed to update PLDM Firmware Information in slot 2, rc="));
    host::db_fail_writes(db, "");
    host::log_capture_begin();  // this run's messages only
    ASSERT_EQ(0, run(firmware("1.1", "13"), firmware("2.0", "13")));
    EXPECT_EQ((texts{"1.1", "2.0"}), pldm("VersionString"));
    EXPECT_EQ(0u, logged_prefix(host::log_level::warn, "AIM PARSER: failed to update"));
    // An empty version leaves the stored one; the rest of the row is still brought up to date.
    ASSERT_EQ(0, run(aim_group("Firmware Information",
                               settings("Release Date=2025-05-06; Manufacturer=Acme; Software ID=15B31017") +
                                   text("Version String", "") + text("Classification", "13")),
                     firmware("2.0", "13")));
    EXPECT_EQ((texts{"1.1", "2.0"}), pldm("VersionString"));
    EXPECT_EQ((texts{"2025-05-06", "2024-01-02"}), pldm("ReleaseDate"));

    ASSERT_EQ(0, run_xml(aim_doc(aim_config("absent", "0x77", "0", "0", text("Card Name", "x")))));
    EXPECT_EQ(0u, count("PldmDeviceFirmware"));
}

}  // namespace
