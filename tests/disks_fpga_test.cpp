// Drive rows ("AimDisks"), storage expansion units and FPGA cards read from their FRU
// images, end to end through parse_aim on simulated machines.
#include <string>

#include "tests/afterwalk_support.h"

using testutil::aim_config;
using testutil::aim_doc;
using testutil::aim_group;
using testutil::aim_setting;

namespace {

std::string drive(const std::string& settings) { return aim_group("Disk Drive Information", settings); }

class Disks : public awtest::AfterWalkTest {
protected:
    // Runs one drive config at bus 0x5E (slot 3), whose controller has the given ids, with
    // the drive groups `drives`.
    int run_drives(unsigned vendor, unsigned device, const std::string& drives) {
        exec("DELETE FROM PCIs");
        add_pci_function(0x5E, 0, 0, vendor, device, vendor, 1, 3);
        return run_xml(
            aim_doc(aim_config("ctrl", "0x5E", "0", "0", aim_setting("Card Name", "Ctrl") + drives)));
    }
    // The "AimDisks" rows, one a line, each of `columns` (SQL expressions, never NULL) and "|".
    std::string disks(const std::vector<std::string>& columns) {
        std::string sql = "SELECT ";
        for (size_t i = 0; i < columns.size(); ++i)
            sql += (i ? ", " : "") + columns[i] + " AS c" + awtest::num(i);
        std::vector<host::row> r;
        host::db_select(db, sql + " FROM AimDisks ORDER BY _id", r);
        std::string out;
        for (auto& row : r) {
            for (size_t i = 0; i < columns.size(); ++i) out += row["c" + awtest::num(i)] + "|";
            out += "\n";
        }
        return out;
    }
};

TEST_F(Disks, ControllerTypeByVendorAndDevice) {
    const struct {
        unsigned vendor, device, ctrl_type;
    } cases[] = {{0x8086, 0x28C0, 1},
                 {0x8086, 0x28C1, 0},
                 {0x1B4B, 0x9230, 3},
                 {0x1B4B, 0x28C0, 3},
                 {0x1000, 0x10E2, 0}};
    for (const auto& c : cases) {
        ASSERT_EQ(0, run_drives(c.vendor, c.device, drive(aim_setting("Drive Type", "HDD"))));
        expect_row("AimDisks", "",
                   "CtrlType=" + awtest::num(c.ctrl_type) + ";SlotNo=3;PCIFuncKey=6160384;DriveTypeId=1");
    }
}

// The identifier is the first of the four labels that exists, whatever their order in the
// group; drive type, bay and media type map to their ids.
TEST_F(Disks, ColumnRules) {
    std::string groups =
        drive(aim_setting("NGUID", "n1") + aim_setting("SAS Address", "s1") +
              aim_setting("WWN / UUID", "w1") + aim_setting("Universal Identifier", "u1") +
              aim_setting("Drive Type", "4", "enumerate_data") + aim_setting("Bay", "7") +
              aim_setting("Media Type", "HDD") + aim_setting("Media Type With Rotation Rate", "SSD")) +
        drive(aim_setting("NGUID", "n2") + aim_setting("SAS Address", "s2") +
              aim_setting("WWN / UUID", "w2") + aim_setting("Drive Type", "NVMe SSD") +
              aim_setting("Bay", "7mm Bay 1") + aim_setting("Media Type With Rotation Rate", "SSD")) +
        drive(aim_setting("NGUID", "n3") + aim_setting("SAS Address", "s3") +
              aim_setting("Drive Type", "ssd") + aim_setting("Bay", "M.2 Bay")) +
        drive(aim_setting("NGUID", "n4") + aim_setting("Drive Type", "Tape") +
              aim_setting("Media Type With Rotation Rate", "HDD 7200 RPM")) +
        drive(aim_setting("Model Number", "M5") + aim_setting("Vondel 8S SN", "SN5") +
              aim_setting("Vondel 8S FRU PN", "F5") + aim_setting("Vondel 8S L2 PN", "P5")) +
        drive("");
    ASSERT_EQ(0, run_drives(0x1000, 0x10E2, groups));
    EXPECT_EQ(
        "u1|4|7|1|1|1|\n"
        "w2|4|7mm Bay 1|3|2|1|\n"
        "s3|2|M.2 Bay|4||1|\n"
        "n4|0||0|1|1|\n"
        "|||0||1|\n",
        disks({"ifnull(UUID,'')", "ifnull(DriveTypeId,'')", "ifnull(BayNo,'')", "LocationId",
               "ifnull(MediaTypeId,'')", "Presence"}));
    EXPECT_EQ(1u, count("AimDisks", "typeof(BayNo)='integer' AND BayNo=7"));
    expect_row("AimDisks", "Model='M5'", "SerialNo=SN5;FruNo=F5;PartNo=P5;UUID=;CtrlType=0");
    EXPECT_EQ(1u, logged_count("AIM PARSER: No Universal Identifier in group Disk Drive Information"));
    expect_log({"INFO AIM PARSER: Parsed a NVMe Drive, capacity N/A",
                "INFO AIM PARSER: Parsed a Drive, capacity N/A",
                "INFO AIM PARSER: Find 6 instance of Disk Drive(hotswap=0, bNonRaidM2NVMeDrive=0), "
                "controller slot = 3"});
}

// NVMe drives of the Intel VMD controller are VROC members: left out. A config whose only
// hot-swap drives were left out (or failed) gets no adapter row.
TEST_F(Disks, VrocSkipInsertFailureAndHotSwap) {
    std::string nvme = drive(aim_setting("Drive Type", "NVMe") + aim_setting("Bay", "Front Bay 2") +
                             aim_setting("Hot Swap Capable", "true", "boolean_data"));
    ASSERT_EQ(0, run_drives(0x8086, 0x28C0, nvme));
    expect_log(
        {"INFO AIM PARSER:skip insert Aim Disk Information for vroc dirve,driveTypeId:4,locationId:1,"
         "locationStrFront Bay 2 ",
         "INFO AIM PARSER: Find 1 instance of Disk Drive(hotswap=1, bNonRaidM2NVMeDrive=0), controller slot "
         "= 3"});
    EXPECT_EQ(0u, count("AimDisks") + count("PCIAdapter"));

    // The same drive on another controller is written and keeps its adapter; the config's
    // serial number is the drive's own.
    std::string serial = aim_setting("Serial Number", "CFGSN");
    exec("DELETE FROM PCIs");
    add_pci_function(0x5E, 0, 0, 0x144D, 0xA824, 0x144D, 1, 3);
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("nvme", "0x5E", "0", "0", serial + nvme))));
    expect_row("AimDisks", "", "CtrlType=0;SerialNo=CFGSN;BayNo=Front Bay 2");
    EXPECT_EQ(1u, count("PCIAdapter"));

    host::db_fail_writes(db, "AimDisks", "insert");
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("nvme", "0x5E", "0", "0", serial + nvme))));
    EXPECT_EQ(1u,
              logged_prefix(host::log_level::warn, "AIM PARSER: failed to insert Aim Disk Information, rc="));
    EXPECT_EQ(0u, count("AimDisks") + count("PCIAdapter"));
}

// A Marvell controller's M.2 and 7 mm bays follow the controller's presence masks; on
// Quarn the 7 mm bays read the first mask.
TEST_F(Disks, PresenceOfMarvellBays) {
    std::string bays;
    for (const char* b : {"M.2 Bay 0", "M.2 Bay 1", "7mm Bay 0", "7mm Bay 1", "Front Bay 0"})
        bays += drive(aim_setting("Bay", b));
    const char* props = R"("properties": {"/ac/mv/0/drive1/presence": "1", "/ac/mv/1/drive0/presence": "1",
        "/ac/hdd0/type": "7mm SATA"})";
    for (const char* env :
         {"", R"(, "env": {"RVT_PLATFORM": "Quarn"})", R"(, "env": {"RVT_PLATFORM": "Quarnx"})"}) {
        load_machine_json(std::string("{") + props + env + "}");
        ASSERT_EQ(0, run_drives(0x1B4B, 0x9230, bays));
        EXPECT_EQ(std::string(env).find("Quarn\"") != std::string::npos ? "0|\n1|\n0|\n1|\n1|\n"
                                                                        : "0|\n1|\n1|\n0|\n1|\n",
                  disks({"Presence"}))
            << env;
    }
}

TEST_F(Disks, StorageExpansionUnitIsRenamed) {
    const std::string generic = aim_setting("Card Name", "RAID 9560-8i") +
                                aim_setting("Manufacturer", "Broadcom") +
                                drive(aim_setting("Drive Type", "HDD"));
    for (const char* name : {"MegaRAID 9560-8i", "Storage Expansion Unit 24x2.5"}) {
        load_machine_json(std::string(R"({"properties": {"/ac/hxsd/dm/raid/3/product_name": ")") + name +
                          "\"}}");
        add_pci_function(0x5E, 0, 0, 0x1000, 0x10E2, 0x1000, 0x4000, 3);
        exec("UPDATE PCIs SET HardwareTypeId=0");
        ASSERT_EQ(0, run_xml(aim_doc(aim_config("raid", "0x5E", "0", "0", generic))));
        bool sen = std::string(name).find("Storage") == 0;
        EXPECT_EQ(sen ? name : "RAID 9560-8i", rows("PCIAdapter").at(0)["CardName"]);
        EXPECT_EQ(sen ? name : "RAID 9560-8i", rows("VPDs").at(0)["ProductName"]);
        EXPECT_EQ(sen, logged(host::log_level::info, "SEN/Harrow found"));
        EXPECT_EQ(sen, logged(host::log_level::info, std::string("product name of SEN/Harrow: ") + name));
        exec("DELETE FROM PCIs");
    }
    host::db_fail_writes(db, "PCIAdapter", "update");
    add_pci_function(0x5E, 0, 0, 0x1000, 0x10E2, 0x1000, 0x4000, 3);
    exec("UPDATE PCIs SET HardwareTypeId=0");
    ASSERT_EQ(0, run_xml(aim_doc(aim_config("raid", "0x5E", "0", "0", generic))));
    EXPECT_TRUE(logged(host::log_level::warn, "AIM PARSER: failed to update adapter name for SEN/Harrow"));
    EXPECT_EQ("Storage Expansion Unit 24x2.5", rows("VPDs").at(0)["ProductName"]);
}

// FRU images of an Alveo (slot 1) and a PAC card (slot 2): a board-only image fills the
// product columns from the board area; a corrupt or missing image writes no card rows.
TEST_F(Disks, FpgaCardsFromTheirFruImages) {
    std::string alveo =
        testutil::read_file(testutil::source_path("examples/machines/accel-2u/fru/alveo_u50.bin"));
    const struct {
        std::string alveo_image;
        std::string pac_image;      // empty: no device
        const char* alveo_version;  // null: the read fails
    } cases[] = {
        {alveo, testutil::read_file(testutil::source_path("examples/fru/pac_d5005_board_only.bin")),
         "2.1.0.36"},
        {alveo.substr(0, 160), std::string("\x01\x00\x00\x20\x20\x00\x00\xBE", 8) + std::string(8, '\0'),
         "N/A"},
        {std::string(7, '\x01'), "", nullptr},
    };
    for (const auto& c : cases) {
        std::string machine = dir + "/machine";
        testutil::write_file(machine + "/alveo.bin", c.alveo_image);
        testutil::write_file(machine + "/pac.bin", c.pac_image);
        std::string devices = R"("alveo_slot1_fru_dev": {"image": "alveo.bin"})";
        if (!c.pac_image.empty()) devices += R"(, "pac_slot2_fru_dev": {"image": "pac.bin"})";
        load_machine_json("{\"fru_devices\": {" + devices + "}}");
        exec("DELETE FROM PCIs");
        add_pci_function(0x17, 0, 0, 0x10EE, 0x5020, 0x10EE, 0x000E, 1, 16, 1);
        add_pci_function(0x3B, 0, 0, 0x8086, 0x0B30, 0x8086, 0x0000, 2, 16, 1);
        ASSERT_EQ(0, run_empty());
        EXPECT_EQ(2u, count("PCIAdapter"));
        EXPECT_EQ(c.alveo_version != nullptr,
                  logged_count("AIM PARSER: save_hc_alveo_info get alveo info failed!") == 0);
        if (c.alveo_version) {
            expect_row("VPDs", "SlotNo=1", "Model=A-U50-P00G-PQ-G;SerialNo=XFL1QOQ1ATTY");
            expect_row("Firmwares", "HardwareId=1507328", std::string("VersionString=") + c.alveo_version);
            expect_row("PCIAdapter", "SlotNo=1", "CardName=Alveo U50 XDMA Platform;OOBSrc=8");
            if (&c == cases) {  // the board-only PAC image fills the product columns from the board area
                expect_row(
                    "VPDs", "SlotNo=2",
                    "ProductName=Intel FPGA PAC N3000;Manufacture=Intel Corporation;Model=Intel FPGA PAC "
                    "D5005;SerialNo=PCB1U5E00R7W;PartNo=BD-ACD-D5005-1.0;FRUNo=N/A;UUID=N/A");
                expect_row("Firmwares", "HardwareId=3866624", "VersionString=N/A;SoftwareID=80860000");
            }
        } else {
            EXPECT_EQ(0u, count("VPDs", "SlotNo=1") + count("Firmwares") + count("PCIMisc", "SlotNo=1"));
            expect_row("PCIAdapter", "SlotNo=1", "CardName=Alveo U50 XDMA Platform;OOBSrc=0");
        }
    }
    // The second case's PAC image is corrupt (areas beyond its end); the third has none.
    EXPECT_EQ(2u, logged_count("AIM PARSER: save_hc_intel_info get intel info failed!"));
}

// On the example machine, a corrupt Alveo image costs the Alveo its card rows and nothing
// else: every other row of the run is the same as with the good image.
TEST_F(Disks, CorruptAlveoImageLeavesTheRestOfTheExampleRun) {
    auto snapshot = [&] {
        std::string out;
        for (const char* t :
             {"PCIAdapter", "PCIMisc", "VPDs", "Firmwares", "AimDisks", "PldmDeviceFirmware"}) {
            // Firmware rows carry no slot: the Alveo's is known by its hardware id.
            for (auto& r : rows(t, std::string(t) == "Firmwares" ? "HardwareId<>1507328" : "SlotNo<>1")) {
                r.erase("_id");
                for (auto& c : r) out += c.first + "=" + c.second + ";";
                out += "\n";
            }
        }
        return out;
    };
    ASSERT_EQ(0, run_example("accel-2u"));
    std::string good = snapshot();
    EXPECT_EQ(1u, count("VPDs", "SlotNo=1"));
    EXPECT_EQ(4u, count("Firmwares"));

    std::string src = testutil::source_path("examples/machines/accel-2u/");
    testutil::write_file(dir + "/machine/fru/pac_n3000.bin", testutil::read_file(src + "fru/pac_n3000.bin"));
    testutil::write_file(dir + "/machine/fru/alveo_u50.bin",
                         std::string("\x01\x00\x00\xF0\xF0\x00\x00\x1E", 8));
    load_machine_json(testutil::read_file(src + "machine.json"));
    ASSERT_EQ(0, run_xml(testutil::read_file(testutil::source_path("examples/aim/accel-2u.xml"))));
    EXPECT_TRUE(logged(host::log_level::warn, "AIM PARSER: save_hc_alveo_info get alveo info failed!"));
    EXPECT_EQ(0u, count("VPDs", "SlotNo=1") + count("PCIMisc", "SlotNo=1") +
                      count("Firmwares", "HardwareId=1507328"));
    EXPECT_EQ(good, snapshot());
}

}  // namespace
