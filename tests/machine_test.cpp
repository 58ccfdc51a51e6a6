// aimctl machine: the "PCIs" rows of a real server from lspci, dmidecode and sysfs, and an
// AIM file checked against them. The parsers are tested on the shapes real servers print;
// the command end to end against the example machine server-2u.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "host/db.h"
#include "tests/fixture.h"
#include "tools/machine/check.h"
#include "tools/machine/pci_machine.h"

namespace fs = std::filesystem;

namespace {

using machine::pcis_row;

// One lspci -vvnn record: a header and detail lines (each given without its leading tab).
std::string record(const std::string& header, const std::vector<std::string>& details = {}) {
    std::string s = header + "\n";
    for (const auto& d : details) s += "\t" + d + "\n";
    return s + "\n";
}

std::string root_port(const std::string& addr, const std::string& sec, const std::string& sub,
                      int slot = -1) {
    std::vector<std::string> d = {"Bus: primary=" + addr.substr(addr.size() - 7, 2) + ", secondary=" + sec +
                                      ", subordinate=" + sub + ", sec-latency=0",
                                  "Capabilities: [40] Express (v2) Root Port (Slot+), MSI 00",
                                  "\tLnkCap:\tPort #0, Speed 16GT/s, Width x16, ASPM not supported"};
    if (slot >= 0) {
        d.push_back("\tSltCap:\tAttnBtn- PwrCtrl- MRL- AttnInd- PwrInd- HotPlug- Surprise-");
        d.push_back("\t\tSlot #" + std::to_string(slot) + ", PowerLimit 75.000W; Interlock- NoCompl-");
    }
    return record(addr +
                      " PCI bridge [0604]: Intel Corporation Root Port [8086:2030] (rev 04) (prog-if 00 "
                      "[Normal decode])",
                  d);
}

std::string nic(const std::string& addr, const std::vector<std::string>& extra = {}) {
    std::vector<std::string> d = {"Subsystem: Intel Corporation Device [8086:0001]"};
    d.insert(d.end(), extra.begin(), extra.end());
    return record(
        addr + " Ethernet controller [0200]: Intel Corporation Ethernet Controller [8086:1592] (rev 02)", d);
}

const std::string k_link8 =
    "Capabilities: [70] Express (v2) Endpoint, MSI 00\n\t\tLnkCap:\tPort #0, Speed 8GT/s, Width x8, ASPM L1";

std::string slot_record(const std::string& designation, const std::string& type, int id,
                        const std::string& address) {
    std::string s =
        "Handle 0x0901, DMI type 9, 17 bytes\nSystem Slot Information\n\tDesignation: " + designation +
        "\n\tType: " + type + "\n\tCurrent Usage: In Use\n\tLength: Long\n";
    if (id >= 0) s += "\tID: " + std::to_string(id) + "\n";
    s += "\tCharacteristics:\n\t\t3.3 V is provided\n";
    if (!address.empty()) s += "\tBus Address: " + address + "\n";
    return s + "\n";
}

std::vector<pcis_row> rows_of(const std::string& lspci, const std::string& dmidecode = "") {
    machine::smbios_info smbios;
    if (!dmidecode.empty())
        smbios = machine::parse_dmidecode("# dmidecode 3.4\n" + dmidecode, "dmidecode.txt");
    return machine::build_rows(machine::parse_lspci(lspci, "lspci.txt"), "lspci.txt",
                               dmidecode.empty() ? nullptr : &smbios);
}

// "ADDRESS slot=N loc=L type=T pcie=G lanes=W fun=F hw=H keys=DEV/FUN 'DESIGNATION'", one a row.
std::string summary(const std::vector<pcis_row>& rows) {
    std::string s;
    for (const pcis_row& r : rows) {
        char buf[256];
        snprintf(buf, sizeof buf,
                 "%s slot=%u loc=%u type=%u pcie=%u lanes=%u fun=%u hw=%u keys=%08X/%08X '%s'\n",
                 r.address.text().c_str(), r.slot, r.location, r.slot_type, r.max_pcie_type, r.max_lanes,
                 r.fun_type, r.hardware_type, r.dev_key, r.fun_key, r.designation.c_str());
        s += buf;
    }
    return s;
}

// Real-world shapes of lspci and dmidecode output, and the rows each gives.
TEST(MachineRows, ShapesOfRealServers) {
    struct shape {
        const char* name;
        std::string lspci, dmidecode, rows;
    } cases[] = {
        {"segment other than 0000, multi-function device, functions 1 to 7",
         root_port("0001:00:01.0", "3b", "3b", 4) + nic("0001:3b:00.0", {k_link8}) +
             nic("0001:3b:00.7", {k_link8}),
         "",
         "0001:3b:00.0 slot=4 loc=1 type=181 pcie=3 lanes=8 fun=1 hw=1 keys=013B0000/013B0000 'Slot 4'\n"
         "0001:3b:00.7 slot=4 loc=1 type=181 pcie=3 lanes=8 fun=1 hw=1 keys=013B0000/013B0007 'Slot 4'\n"},
        {"without -D the segment is 0; a physical slot line; no link capability",
         nic("3b:00.0", {"Physical Slot: 2"}), "",
         "0000:3b:00.0 slot=2 loc=1 type=165 pcie=0 lanes=1 fun=1 hw=1 keys=003B0000/003B0000 'Slot 2'\n"},
        {"ARI: functions past 7 print as the next device numbers",
         root_port("0000:00:02.0", "5e", "5e", 3) + nic("0000:5e:00.0", {k_link8}) +
             nic("0000:5e:01.1", {k_link8}),
         "",
         "0000:5e:00.0 slot=3 loc=1 type=181 pcie=3 lanes=8 fun=1 hw=1 keys=005E0000/005E0000 'Slot 3'\n"
         "0000:5e:01.1 slot=3 loc=1 type=181 pcie=3 lanes=8 fun=1 hw=1 keys=005E0100/005E0101 'Slot 3'\n"},
        {"SR-IOV: the enabled virtual functions are left out",
         nic("0000:86:00.0",
             {"Physical Slot: 7", "Capabilities: [180 v1] Single Root I/O Virtualization (SR-IOV)",
              "\tInitial VFs: 8, Total VFs: 8, Number of VFs: 2, Function Dependency Link: 00",
              "\tVF offset: 16, stride: 2, Device ID: 1889"}) +
             nic("0000:86:02.0") + nic("0000:86:02.2") + nic("0000:86:02.4"),
         "",
         "0000:86:00.0 slot=7 loc=1 type=165 pcie=0 lanes=1 fun=1 hw=1 keys=00860000/00860000 'Slot 7'\n"
         "0000:86:02.4 slot=0 loc=0 type=165 pcie=0 lanes=1 fun=1 hw=1 keys=00860200/00860204 'Onboard "
         "LAN'\n"},
        {"the slot number of the root port's slot capability, behind a switch",
         root_port("0000:00:03.0", "17", "19", 6) +
             record("0000:17:00.0 PCI bridge [0604]: PLX Technology PEX 8747 [10b5:8747] (rev ca)",
                    {"Bus: primary=17, secondary=18, subordinate=19, sec-latency=0"}) +
             record("0000:18:08.0 PCI bridge [0604]: PLX Technology PEX 8747 [10b5:8747] (rev ca)",
                    {"Bus: primary=18, secondary=19, subordinate=19, sec-latency=0"}) +
             record("0000:19:00.0 3D controller [0302]: NVIDIA Corporation GV100GL [10de:1db6] (rev a1)",
                    {"Subsystem: NVIDIA Corporation Device [10de:124a]",
                     "Capabilities: [68] Express (v2) Endpoint, MSI 00",
                     "\tLnkCap:\tPort #0, Speed 8GT/s, Width x16, ASPM not supported"}),
         "",
         "0000:19:00.0 slot=6 loc=1 type=182 pcie=3 lanes=16 fun=4 hw=1 keys=00190000/00190000 'Slot 6'\n"},
        {"SMBIOS slot by the root port's bus address; by ID when it has no address; an ff bus names no "
         "device",
         root_port("0000:3a:00.0", "3b", "3b") + nic("0000:3b:00.0", {k_link8}) +
             nic("0000:af:00.0", {"Physical Slot: 2"}),
         slot_record("PCIE1", "x16 PCI Express 3 x16", 1, "0000:3a:00.0") +
             slot_record("PCIE2", "x8 PCI Express 3", 2, "") +
             slot_record("PCIE3", "x8 PCI Express 3", 3, "0000:ff:00.0"),
         "0000:3b:00.0 slot=1 loc=1 type=182 pcie=3 lanes=8 fun=1 hw=1 keys=003B0000/003B0000 'PCIE1'\n"
         "0000:af:00.0 slot=2 loc=1 type=177 pcie=0 lanes=1 fun=1 hw=1 keys=00AF0000/00AF0000 'PCIE2'\n"},
        {"SMBIOS 2.x: no bus addresses, types without generation; an empty slot of segment ffff",
         nic("0000:04:00.0", {"Physical Slot: 5"}),
         slot_record("SLOT5", "x16 PCI Express x16", 5, "") +
             slot_record("SLOT6", "x8 PCI Express", 6, "ffff:06:00.0"),
         "0000:04:00.0 slot=5 loc=1 type=170 pcie=0 lanes=1 fun=1 hw=1 keys=00040000/00040000 'SLOT5'\n"},
        {"dmidecode 3.6 types, a type name dmidecode does not know, and an OCP mezzanine (an onboard device) "
         "named in Latin-1",
         nic("0000:41:00.0") + nic("0000:42:00.0") + nic("0000:43:00.0"),
         slot_record("PCI SLOT 01", "PCI Express 5 x16", 1, "0000:41:00.0") +
             slot_record("PCI SLOT 02", "x8 Holographic Bus", 2, "0000:42:00.0") +
             slot_record("OCP3 NIC \xE9", "x16 OCP NIC 3.0 Small Form Factor (SFF)", 10, "0000:43:00.0"),
         "0000:41:00.0 slot=1 loc=1 type=195 pcie=0 lanes=1 fun=1 hw=1 keys=00410000/00410000 'PCI SLOT 01'\n"
         "0000:42:00.0 slot=2 loc=1 type=2 pcie=0 lanes=1 fun=1 hw=1 keys=00420000/00420000 'PCI SLOT 02'\n"
         "0000:43:00.0 slot=10 loc=0 type=38 pcie=0 lanes=1 fun=1 hw=1 keys=00430000/00430000 'OCP3 NIC "
         "\uFFFD'\n"},
        {"root bus functions: the platform's own ones left out, the others kept as platform functions (2); "
         "behind a bridge onboard (0), named by an SMBIOS onboard device, which outranks a slot number",
         record("0000:00:00.0 Host bridge [0600]: Intel Corporation Device [8086:2020] (rev 04)") +
             record("0000:00:04.0 System peripheral [0880]: Intel Corporation CBDMA [8086:2021] (rev 04)") +
             record("0000:00:14.0 USB controller [0c03]: Intel Corporation xHCI [8086:a1af] (rev 09) "
                    "(prog-if 30 [XHCI])") +
             record("0000:00:17.0 SATA controller [0106]: Intel Corporation SATA [AHCI mode] [8086:a182] "
                    "(rev 09) (prog-if 01 [AHCI 1.0])") +
             root_port("0000:00:1c.0", "01", "01") +
             record("0000:01:00.0 Ethernet controller [0200]: Intel Corporation I350 [8086:1521] (rev 01)",
                    {"Physical Slot: 1"}) +
             record("0000:01:00.1 RAID bus controller [0104]: Broadcom / LSI SAS3008 [1000:0097] (rev 02)"),
         "Handle 0x0A00, DMI type 41, 11 bytes\nOnboard Device\n\tReference Designation: LAN1\n\tType: "
         "Ethernet\n"
         "\tBus Address: 0000:01:00.0\n\n",
         "0000:00:17.0 slot=0 loc=2 type=165 pcie=0 lanes=1 fun=7 hw=1 keys=00001700/00001700 'Onboard "
         "SATA'\n"
         "0000:01:00.0 slot=0 loc=0 type=165 pcie=0 lanes=1 fun=1 hw=1 keys=00010000/00010000 'LAN1'\n"
         "0000:01:00.1 slot=0 loc=0 type=165 pcie=0 lanes=1 fun=8 hw=0 keys=00010000/00010001 'LAN1'\n"},
        {"lspci -vmmnnD: records of key and value lines",
         "Slot:\t0000:3b:00.0\nClass:\tEthernet controller [0200]\nVendor:\tIntel Corporation [8086]\n"
         "Device:\tEthernet Controller [1592]\nSVendor:\tIntel Corporation [8086]\nSDevice:\tDevice [0002]\n"
         "PhySlot:\t1\nRev:\t02\n\nSlot:\t0000:00:17.0\nClass:\tSATA controller [0106]\nVendor:\tIntel "
         "[8086]\n"
         "Device:\tSATA [a182]\nProgIf:\t01\n",
         "",
         "0000:00:17.0 slot=0 loc=2 type=165 pcie=0 lanes=1 fun=7 hw=1 keys=00001700/00001700 'Onboard "
         "SATA'\n"
         "0000:3b:00.0 slot=1 loc=1 type=165 pcie=0 lanes=1 fun=1 hw=1 keys=003B0000/003B0000 'Slot 1'\n"},
    };
    for (const shape& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.rows, summary(rows_of(c.lspci, c.dmidecode)));
    }
}

// lspci -vvn prints numbers only; lspci cuts a long name at its buffer's end, and with -nn the
// ids after it: such a function is kept with ids 0 and reported, not refused.
TEST(MachineRows, NumericAndCutHeaders) {
    std::string numeric =
        "0000:3b:00.0 0200: 8086:1592 (rev 02)\n\tSubsystem: 8086:0002\n\tPhysical Slot: 1\n\n"
        "0000:00:17.0 0106: 8086:a182 (rev 09) (prog-if 01 [AHCI 1.0])\n";
    std::vector<pcis_row> rows = rows_of(numeric);
    ASSERT_EQ(2u, rows.size());
    EXPECT_EQ(0x010601u, rows[0].class_code);
    EXPECT_EQ(0xa182, rows[0].device);
    EXPECT_EQ(1u, rows[1].slot);
    EXPECT_EQ(0x8086, rows[1].subvendor);
    EXPECT_EQ(0x0002, rows[1].subdevice);

    std::string cut =
        "0000:07:00.0 InfiniBand [0c06]: Example Networks EX4000 Dual Port 40Gb/s InfiniBand and 10GigE "
        "Adapter IC "
        "with PCIe 2.0 x8 5.0GT/s Int... (rev a0)\n"
        "\tSubsystem: Example Networks EX4000 Dual Port Adapter [1234:5678]\n\tPhysical Slot: 2\n";
    machine::build_report report;
    rows = machine::build_rows(machine::parse_lspci(cut, "lspci.txt"), "lspci.txt", nullptr, &report);
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ(0, rows[0].vendor);
    EXPECT_EQ(0, rows[0].device);
    EXPECT_EQ(0x1234, rows[0].subvendor);
    EXPECT_EQ(2u, rows[0].fun_type);
    ASSERT_EQ(1u, report.ids_cut.size());
    EXPECT_EQ("0000:07:00.0", report.ids_cut[0].text());
}

// Class codes to the function and hardware types of the README's table.
TEST(MachineRows, FunctionTypes) {
    const struct {
        uint32_t cls;
        unsigned fun, hw;
    } cases[] = {{0x010400, 8, 0}, {0x010700, 8, 1},  {0x010000, 8, 1},  {0x010802, 5, 1},
                 {0x010601, 7, 1}, {0x020000, 1, 1},  {0x020700, 2, 1},  {0x028000, 9, 1},
                 {0x0c0400, 3, 1}, {0x0c0600, 2, 1},  {0x030000, 6, 1},  {0x030200, 4, 1},
                 {0x038000, 4, 1}, {0x120000, 16, 1}, {0x0b4000, 16, 1}, {0x040300, 7, 1}};
    for (const auto& c : cases) {
        EXPECT_EQ(c.fun, machine::function_type_of(c.cls)) << std::hex << c.cls;
        EXPECT_EQ(c.hw, machine::hardware_type_of(c.cls)) << std::hex << c.cls;
    }
    EXPECT_EQ(182u, machine::smbios_slot_type("x16 PCI Express 3 x16"));
    EXPECT_EQ(0x20u, machine::smbios_slot_type("x4 PCI Express 3 SFF-8639"));
    EXPECT_EQ(184u, machine::smbios_slot_type("x8 PCI Express 4"));
    EXPECT_EQ(1u, machine::smbios_slot_type("x4 Other"));
    EXPECT_EQ(2u, machine::smbios_slot_type("x4 Holographic Bus"));
}

// Bad input: the message names the file and line; nothing is guessed.
TEST(MachineRows, BadInputNamesTheLine) {
    const std::string ok = nic("0000:3b:00.0");
    struct bad {
        std::string lspci, dmidecode, message;
    } cases[] = {
        {"hello\nworld\n", "", "lspci.txt:1: expected lspci output"},
        {"", "", "lspci.txt: the file is empty"},
        {"# dmidecode 3.4\nHandle 0x0001, DMI type 1, 27 bytes\n", "", "this is dmidecode output"},
        {ok + "0000:3b:00.0 Ethernet controller [0200]: Intel [8086:1592]\n", "",
         "lspci.txt:4: function 0000:3b:00.0 is listed twice (first on line 1)"},
        {ok + "0000:3b:20.0 Ethernet controller [0200]: Intel [8086:1592]\n", "",
         "lspci.txt:4: device 20 is above 1f"},
        {ok + "0000:3b:00.8 Ethernet controller [0200]: Intel [8086:1592]\n", "",
         "lspci.txt:4: function 8 is not 0 to 7"},
        {"123456789:3b:00.0 Ethernet controller [0200]: Intel [8086:1592]\n", "",
         "segment 123456789 is wider than 32 bits"},
        {"0000:3b:00.0 Ethernet controller [02", "", "lspci.txt:1: no numeric class code"},
        {"0000:3b:00.0 Ethernet controller: Intel Corporation Device 1592\n", "", "(capture with lspci -nn)"},
        {"0000:3b:00.0 Ethernet controller [0200]: Intel [8086:1592]\n\tSubsystem: Intel Device\n", "",
         "lspci.txt:2: a subsystem without numeric ids"},
        {"0000:3b:00.0 Ethernet controller [0200]: Intel [8086:1592]\n\t\tLnkCap:\tPort #0, Speed 3GT/s, "
         "Width x8\n",
         "", "lspci.txt:2: an unknown link speed '3GT/s'"},
        {"0000:3b:00.0 Ethernet controller [0200]: Intel [8086:1592]\n\t\tLnkCap:\tPort #0, Speed 8GT/s, "
         "Width x64\n",
         "", "lspci.txt:2: a link width 'x64'"},
        {"0000:3b:00.0 Ethernet controller [0200]: Intel [8086:1592]\n\t\tLnkCap:\tPort #0, Spe", "",
         "lspci.txt:2: a link capability without speed and width"},
        {"\tSubsystem: Intel [8086:0001]\n", "", "lspci.txt:1: expected lspci output"},
        {"0000:00:01.0 PCI bridge [0604]: Intel [8086:2030]\n\tBus: primary=00, secondary=00, "
         "subordinate=05\n",
         "", "lspci.txt:1: bridge 0000:00:01.0 forwards to its own bus 0"},
        {"Slot:\t0000:3b:00.0\nClass:\tEthernet controller [0200]\nVendor:\tIntel [8086]\n", "",
         "lspci.txt:1: the record of 0000:3b:00.0 has no 'Device:' line"},
        {"Slot:\t0000:3b:00.0\nClass:\tEthernet controller\n", "",
         "lspci.txt:2: a class without a numeric id"},
        {"10000:01:00.0 Ethernet controller [0200]: Intel [8086:1592]\n\n0000:01:00.0 Ethernet controller "
         "[0200]: Intel [8086:1592]\n",
         "", "lspci.txt:1: functions 0000:01:00.0 and 10000:01:00.0 get the same key"},
        {ok, "hello\n", "dmidecode.txt: expected dmidecode output"},
        {ok, ok, "dmidecode.txt: this is lspci output"},
        {ok, "Handle 0x0901, DMI type 9, 17 bytes\nSystem Slot Information\n\tType: x8 PCI Express\n\n",
         "dmidecode.txt:1: the system slot record has no 'Designation:' line"},
        {ok,
         "Handle 0x0901, DMI type 9, 17 bytes\nSystem Slot Information\n\tDesignation: S\n\tType: PCI\n\tBus "
         "Address: 0000:3b\n",
         "dmidecode.txt:5: not a bus address: '0000:3b'"},
        {ok, "Handle 0x0901, DMI type nine\n", "dmidecode.txt:1: a record header without its DMI type"},
    };
    for (const bad& c : cases) {
        SCOPED_TRACE(c.lspci + " | " + c.dmidecode);
        try {
            machine::smbios_info smbios;
            if (!c.dmidecode.empty()) smbios = machine::parse_dmidecode(c.dmidecode, "dmidecode.txt");
            machine::build_rows(machine::parse_lspci(c.lspci, "lspci.txt"), "lspci.txt", &smbios);
            ADD_FAILURE() << "accepted";
        } catch (const machine::input_error& e) {
            EXPECT_NE(std::string::npos, std::string(e.what()).find(c.message)) << e.what();
        }
    }
}

class MachineCommand : public ::testing::Test {
protected:
    void SetUp() override {
        dir = (fs::temp_directory_path() / ("aim-machine-" + std::to_string(getpid()) + "-" +
                                            ::testing::UnitTest::GetInstance()->current_test_info()->name()))
                  .string();
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }
    testutil::aimctl_result aimctl(const std::string& args) { return testutil::run_aimctl(args, dir); }
    std::string example(const std::string& file) {
        return testutil::source_path("examples/machines/server-2u/" + file);
    }
    std::string texts() {
        return " --lspci " + example("lspci.txt") + " --dmidecode " + example("dmidecode.txt");
    }

    std::string dir;
};

std::vector<std::string> sorted_rows(const std::string& db_path, const std::string& table) {
    _vqm_db_handle_t* h = host::db_open_file(db_path);
    std::vector<host::row> rows;
    EXPECT_EQ(0, host::db_select(h, "SELECT * FROM \"" + table + "\"", rows));
    vqm_db_close(h);
    std::vector<std::string> out;
    for (auto& r : rows) {
        r.erase("_id");
        std::string line;
        for (const auto& kv : r) line += kv.first + "=" + kv.second + ";";
        out.push_back(line);
    }
    std::sort(out.begin(), out.end());
    return out;
}

// The example's lspci and dmidecode output give its hand-written "pcis" exactly (the same
// objects, keys in the same order), and ingesting its AIM file against either machine writes
// the same rows in every table.
TEST_F(MachineCommand, RegeneratesTheExampleMachine) {
    fs::copy(testutil::source_path("examples/machines/server-2u"), dir + "/m", fs::copy_options::recursive);
    testutil::write_file(dir + "/m/machine.json", "{\"storage\": {\"controller_types\": [null, null]}}");
    fs::copy_file(testutil::source_path("examples/machines/server-2u/machine.json"), dir + "/hand.json");
    nlohmann::ordered_json hand = nlohmann::ordered_json::parse(testutil::read_file(dir + "/hand.json"));
    // Keep the example's other keys: the command replaces "pcis" only.
    nlohmann::ordered_json rest = hand;
    rest.erase("pcis");
    testutil::write_file(dir + "/m/machine.json", rest.dump());

    testutil::aimctl_result o = aimctl("machine" + texts() + " --out " + dir + "/m");
    ASSERT_EQ(0, o.status) << o.err;
    EXPECT_EQ(
        "aimctl machine: 29 functions read; 11 rows (left out: 11 bridges, 5 platform functions, 2 virtual "
        "functions); 8 SMBIOS slots: 7 hold a function, 1 with no device at their address, 0 sharing one\n",
        o.err);
    nlohmann::ordered_json made = nlohmann::ordered_json::parse(testutil::read_file(dir + "/m/machine.json"));
    auto by_address = [](nlohmann::ordered_json list) {
        std::vector<std::string> v;
        for (const auto& p : list) v.push_back(p.dump());
        std::sort(v.begin(), v.end());
        return v;
    };
    EXPECT_EQ(by_address(hand["pcis"]), by_address(made["pcis"]));
    EXPECT_EQ(hand["storage"], made["storage"]);
    EXPECT_EQ(hand["properties"], made["properties"]);

    const std::string aim = testutil::source_path("examples/aim/server-2u.xml");
    ASSERT_EQ(0, aimctl("ingest --db " + dir + "/hand.db --machine " + example("") + " " + aim).status);
    ASSERT_EQ(0, aimctl("ingest --db " + dir + "/made.db --machine " + dir + "/m " + aim).status);
    for (const char* table : {"PCIs", "PCIAdapter", "PCIMisc", "VPDs", "Firmwares", "PCINetwork",
                              "PCIPhysicalPort", "PCIPhysicalPortStat", "PCILogicalPort", "PCIGPU",
                              "PCIGPUChip", "AimDisks", "PldmDeviceFirmware"}) {
        std::vector<std::string> a = sorted_rows(dir + "/hand.db", table),
                                 b = sorted_rows(dir + "/made.db", table);
        EXPECT_FALSE(a.empty() && std::string(table) == "PCIAdapter");
        EXPECT_EQ(a, b) << table;
    }
}

// Bad input exits 2 naming the line and writes nothing, not even over an existing file.
TEST_F(MachineCommand, BadInputWritesNothing) {
    testutil::write_file(dir + "/dup.txt",
                         testutil::read_file(example("lspci.txt")) +
                             "0000:3b:00.0 Ethernet controller [0200]: Intel [8086:159b]\n");
    testutil::write_file(dir + "/m/machine.json", "{\"pcis\": []}");
    const struct {
        std::string args, message;
    } cases[] = {
        {"--lspci " + dir + "/dup.txt", "dup.txt:404: function 0000:3b:00.0 is listed twice (first on line"},
        {"--lspci " + example("dmidecode.txt"), "dmidecode.txt: this is dmidecode output"},
        {"--lspci " + example("lspci.txt") + " --dmidecode " + example("lspci.txt"), "this is lspci output"},
        {"--lspci " + dir + "/none.txt", "cannot open"},
        {"--lspci " + example("lspci.txt") + " --aim " + example("lspci.txt"),
         "is not an AIM file the reader accepts"},
        {"--sysfs " + dir + "/no-root", "no-root/sys/bus/pci/devices: no such directory"},
        {"", "give either --lspci FILE or --sysfs [ROOT]"},
        {"--lspci a --sysfs", "give either --lspci FILE or --sysfs [ROOT]"},
        {"--lspci " + example("lspci.txt") + " --format xml", "unknown format 'xml'"},
        {"--lspci", "--lspci needs a FILE"},
        {"--bogus", "unknown argument '--bogus'"},
        {"--lspci " + example("lspci.txt") + " --format json", "--format is the format of the --aim check"},
    };
    for (const auto& c : cases) {
        testutil::aimctl_result o = aimctl("machine " + c.args + " --out " + dir + "/m");
        EXPECT_EQ(2, o.status) << c.args;
        EXPECT_NE(std::string::npos, o.err.find(c.message)) << c.args << "\n" << o.err;
        EXPECT_EQ("{\"pcis\": []}", testutil::read_file(dir + "/m/machine.json")) << c.args;
        EXPECT_TRUE(o.out.empty()) << o.out;
    }
    EXPECT_EQ(
        1u, static_cast<size_t>(std::distance(fs::directory_iterator(dir + "/m"), fs::directory_iterator())));
    testutil::write_file(dir + "/m/machine.json", "[1]");
    testutil::aimctl_result o = aimctl("machine" + texts() + " --out " + dir + "/m");
    EXPECT_EQ(2, o.status);
    EXPECT_NE(std::string::npos, o.err.find("exists and is not a JSON object; it is left as it is")) << o.err;
    EXPECT_EQ(0, aimctl("machine --help").status);
}

// A fake sysfs tree: functions with their attribute files, a bridge window, a kernel slot
// and an SR-IOV virtual function.
TEST_F(MachineCommand, SysfsTree) {
    const std::string devices = dir + "/root/sys/bus/pci/devices/";
    auto function = [&](const std::string& addr, const std::map<std::string, std::string>& files) {
        std::map<std::string, std::string> all = {{"vendor", "0x8086"},
                                                  {"device", "0x1592"},
                                                  {"subsystem_vendor", "0x8086"},
                                                  {"subsystem_device", "0x0002"},
                                                  {"class", "0x020000"}};
        for (const auto& f : files) all[f.first] = f.second;
        for (const auto& f : all) testutil::write_file(devices + addr + "/" + f.first, f.second + "\n");
    };
    function("0000:00:03.0",
             {{"class", "0x060400"}, {"secondary_bus_number", "59"}, {"subordinate_bus_number", "59"}});
    function("0000:3b:00.0", {{"max_link_speed", "16.0 GT/s PCIe"}, {"max_link_width", "8"}});
    function("0000:3b:00.1", {{"max_link_speed", "16.0 GT/s PCIe"}, {"max_link_width", "8"}});
    function("0000:3b:01.0", {{"device", "0x1889"}, {"physfn", "../0000:3b:00.0"}});
    function("0000:00:17.0", {{"class", "0x010601"}, {"device", "0xa182"}, {"max_link_speed", "Unknown"}});
    testutil::write_file(dir + "/root/sys/bus/pci/slots/1/address", "0000:3b:00\n");

    testutil::aimctl_result o = aimctl("machine --sysfs " + dir + "/root");
    ASSERT_EQ(0, o.status) << o.err;
    nlohmann::json pcis = nlohmann::json::parse(o.out)["pcis"];
    ASSERT_EQ(3u, pcis.size()) << o.out;
    EXPECT_EQ(
        R"({"BusNo":"0x00","ClsCode":"0x010601","DevKey":"0x00001700","DeviceId":"0xA182","DeviceNo":"0x17","FunKey":"0x00001700","FunType":7,"FunctionNo":0,"HardwareId":"0x00001700","HardwareTypeId":1,"Location":2,"MaxLanes":1,"MaxPCIeType":0,"NodeIndex":1,"SegNo":0,"SlotDesignation":"Onboard SATA","SlotNo":0,"SlotType":165,"SubDeviceId":"0x0002","SubVendorId":"0x8086","VendorId":"0x8086"})",
        pcis[0].dump());
    for (int i : {1, 2}) {
        EXPECT_EQ(1, pcis[i]["SlotNo"]);
        EXPECT_EQ("Slot 1", pcis[i]["SlotDesignation"]);
        EXPECT_EQ(4, pcis[i]["MaxPCIeType"]);
        EXPECT_EQ(8, pcis[i]["MaxLanes"]);
        EXPECT_EQ(188, pcis[i]["SlotType"]);
    }
    testutil::write_file(devices + "0000:3b:00.0/class", "0xzz\n");
    o = aimctl("machine --sysfs " + dir + "/root");
    EXPECT_EQ(2, o.status);
    EXPECT_NE(std::string::npos, o.err.find("0000:3b:00.0/class: not a hex number")) << o.err;
}

// --aim: each config found or missing, its slot and ids compared, and the functions that
// no config describes; exit 1 when a config's function is missing.
TEST_F(MachineCommand, ChecksAnAimFile) {
    testutil::aimctl_result o =
        aimctl("machine" + texts() + " --aim " + testutil::source_path("examples/aim/server-2u.xml"));
    ASSERT_EQ(0, o.status) << o.err;
    EXPECT_NE(std::string::npos,
              o.out.find("Slot1.Func0  0000:3b:00.0  1         1     Slot 1       found\n"))
        << o.out;
    EXPECT_NE(std::string::npos,
              o.out.find("Onboard.VGA  0000:03:00.0  0         0     Onboard VGA  found\n"))
        << o.out;
    EXPECT_NE(std::string::npos, o.out.find("0000:00:17.0  0     Onboard SATA  ")) << o.out;
    EXPECT_NE(std::string::npos,
              o.out.find("  8086A182 80867270  010601  nothing: the platform's own function\n"))
        << o.out;
    EXPECT_NE(std::string::npos, o.out.find("0000:3b:00.1")) << o.out;
    EXPECT_NE(std::string::npos,
              o.out.find("6 configs: 6 found, 0 missing; 5 present functions without a config\n"))
        << o.out;

    using testutil::aim_config;
    using testutil::aim_group;
    using testutil::aim_setting;
    std::string fw = aim_group("Firmware Information", aim_setting("Software ID", "8086159B"));
    testutil::write_file(dir + "/a.xml",
                         testutil::aim_doc(aim_config("Slot2.Func0", "0x3b", "0", "0", fw) +
                                           aim_config("Slot1.Func1", "59", "0", "1",
                                                      aim_group("Firmware Information",
                                                                aim_setting("Software ID", "10DE1533"))) +
                                           aim_config("Slot9.Func0", "0x99", "0", "0", fw)));
    o = aimctl("machine" + texts() + " --aim " + dir + "/a.xml --format json");
    EXPECT_EQ(1, o.status) << o.err;
    nlohmann::json j = nlohmann::json::parse(o.out);
    ASSERT_EQ(3u, j["configs"].size());
    std::map<std::string, nlohmann::json> by_id;
    for (const auto& c : j["configs"]) by_id[c["id"]] = c;
    EXPECT_EQ(
        R"({"address":"0000:3b:00.0","aim_slot":2,"designation":"Slot 1","found":true,"ids_differ":false,"slot":1,"slot_differs":true,"software_ids":["8086159B"]})",
        nlohmann::json({{"address", by_id["Slot2.Func0"]["address"]},
                        {"aim_slot", by_id["Slot2.Func0"]["aim_slot"]},
                        {"designation", by_id["Slot2.Func0"]["designation"]},
                        {"found", by_id["Slot2.Func0"]["status"] == "found"},
                        {"ids_differ", by_id["Slot2.Func0"]["ids_differ"]},
                        {"slot", by_id["Slot2.Func0"]["slot"]},
                        {"slot_differs", by_id["Slot2.Func0"]["slot_differs"]},
                        {"software_ids", by_id["Slot2.Func0"]["software_ids"]}})
            .dump());
    EXPECT_EQ(true, by_id["Slot1.Func1"]["ids_differ"]);
    EXPECT_EQ(false, by_id["Slot1.Func1"]["slot_differs"]);
    EXPECT_EQ("missing", by_id["Slot9.Func0"]["status"]);
    EXPECT_TRUE(by_id["Slot9.Func0"]["slot"].is_null());
    EXPECT_EQ(1, j["missing"]);
    EXPECT_EQ(2, j["found"]);
    // 3b:00.0 and .1 are described; the other nine present functions are listed.
    EXPECT_EQ(9u, j["functions_without_config"].size());
}

}  // namespace
