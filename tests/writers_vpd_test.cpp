// Hardware VPD through parse_aim: the "VPDs" row from the AIM group, and the card VPD read
// over the simulated IPMI path for the function of the hardware VPD table.
#include "ingest/parser.h"
#include "tests/writers_util.h"

using namespace writers_test;

namespace {

const unsigned fun_key = 0x1a0000;  // bus 0x1a, device 0, function 0

// A card VPD image: `size` zero bytes with texts placed at their offsets.
struct image {
    std::string bytes;
    explicit image(size_t size) : bytes(size, '\0') {}
    image& at(size_t offset, const std::string& data) {
        bytes.replace(offset, data.size(), data);
        return *this;
    }
};

image vpd_256(uint8_t barcode, const std::string& part, const std::string& fru, const std::string& serial) {
    image i(256);
    return i.at(0, std::string("\xFE\x00", 2))
        .at(7, std::string(1, static_cast<char>(barcode)))
        .at(14, part)
        .at(26, fru)
        .at(38, serial);
}

std::string uuid_bytes() {
    std::string u;
    for (int i = 0; i < 17; ++i) u += static_cast<char>(0xA0 + i);
    return u;
}

// The UUID column of a 1 KB card: 17 bytes then zeros, 255 bytes as 510 hexadecimal digits.
std::string uuid_column() {
    std::string hex;
    for (int i = 0; i < 17; ++i) {
        char b[3];
        snprintf(b, sizeof(b), "%02X", 0xA0 + i);
        hex += b;
    }
    return hex + std::string(510 - 34, '0');
}

image vpd_1kb_basic(const std::string& model) {
    image i(1024);
    return i.at(0, "\x03\xFE")
        .at(10, "\x01\x02\x03")
        .at(14, model)
        .at(60, "  PN-1KB\t")
        .at(72, "FRU-1KB")
        .at(84, "SN-1KB")
        .at(96, "Mk")
        .at(159, uuid_bytes())
        .at(270, "\r\n Card from VPD \n");
}

image vpd_1kb_extended() {
    image i(1024);
    return i.at(0, "\x03\xFE")
        .at(10, "\xFF\xEE\x00")
        .at(14, "basic-model")
        .at(159, uuid_bytes())
        .at(270, "basic product name")
        .at(640, "7X99CTO1WW")
        .at(704, "PN-EXT")
        .at(736, "SN-EXT")
        .at(800, "Card Company");
}

class HardwareVpd : public testutil::IngestTest {
protected:
    void add_card(unsigned hardware_type = 3, unsigned subvendor = 0xFE00, unsigned subdevice = 0x0301) {
        add_pci_function(0x1a, 0, 0, 0x1B4B, 0x9230, subvendor, subdevice, 6, 7, 2);
        exec("UPDATE PCIs SET HardwareTypeId=" + std::to_string(hardware_type));
    }
    // A machine with the card's VPD image as device 0x42 and the given PLATFORM_NO_REV.
    void machine(const image& card, const std::string& platform = "50002d", const std::string& extra = "") {
        testutil::write_file(dir + "/machine/card.bin", card.bytes);
        load_machine_json(R"({"env": {"PLATFORM_NO_REV": ")" + platform +
                          R"("}, "vpd_devices": {"66": {"image": "card.bin")" + extra + "}}}");
    }
    static std::string aim_vpd() {
        return text("Card Name", "AIM card") + text("UUID", "aim-uuid") + text("Manufacturer", "AIM maker") +
               text("Serial Number", "AIM-SN") + text("Part Number", "AIM-PN") + text("Model", "AIM-MODEL") +
               text("Card SKU", "AIM-SKU");
    }
    int run(const std::string& generic = aim_vpd()) {
        return run_xml(aim_doc(aim_config("vpd", "0x1a", "0", "0", generic)));
    }
    host::row vpd() {
        auto r = rows("VPDs");
        EXPECT_EQ(1u, r.size());
        return r.empty() ? host::row() : r[0];
    }
    bool ipmi(const std::string& args) {
        return logged(host::log_level::warn, "AIM PARSER: ipmicmd 0x3A 0x0B " + args);
    }
};

TEST_F(HardwareVpd, AimRowAndHardwareType) {
    struct Case {
        unsigned pcis_type;
        const char* row_type;
    } cases[] = {{0, "0"}, {3, "3"}, {1, "3"}};
    for (const auto& c : cases) {
        exec("DELETE FROM PCIs");
        add_pci_function(0x1a, 0, 0, 0x8086, 0x1572, 0x8086, 0x0001, 6, 7, 2);
        exec("UPDATE PCIs SET HardwareTypeId=" + std::to_string(c.pcis_type));
        ASSERT_EQ(0, run());
        auto r = vpd();
        const std::vector<std::pair<std::string, std::string>> expected = {
            {"UUID", "aim-uuid"},
            {"ProductName", "AIM card"},
            {"Manufacture", "AIM maker"},
            {"SerialNo", "AIM-SN"},
            {"PartNo", "AIM-PN"},
            {"Model", "AIM-MODEL"},
            {"FRUNo", "AIM-SKU"},
            {"HardwareId", std::to_string(fun_key)},
            {"HardwareTypeId", c.row_type},
            {"SlotNo", "6"},
            {"Location", "2"},
        };
        for (const auto& e : expected)
            EXPECT_EQ(e.second, col(r, e.first)) << e.first << " type " << c.pcis_type;
        EXPECT_TRUE(logged("AIM PARSER: Get UUID from AIM file, location/slot = 2/6, func_key = " +
                           std::to_string(fun_key) + ", uuid = aim-uuid"));
        EXPECT_TRUE(
            logged("AIM PARSER: no need to update vpd, vendor:0x8086, sub_vendor:0x8086, device:0x1572, "
                   "sub_device:0x0001, platform=0x0"));
    }
}

TEST_F(HardwareVpd, GroupWithoutLabelsInsertsNoRowButReadsCard) {
    add_card();
    machine(vpd_256(0x01, "PN", "FRU", "SN"));
    ASSERT_EQ(0, run(text("Other", "x")));
    EXPECT_EQ(0u, count("VPDs"));
    EXPECT_TRUE(logged("AIM PARSER: Get UUID from AIM file, location/slot = 2/6, func_key = " +
                       std::to_string(fun_key) + ", uuid = "));
    EXPECT_TRUE(ipmi("0x00 0x00 0x42 0x02"));
    EXPECT_TRUE(logged("256 Byte Serial Number: SN"));
}

// The table row matches the placeholder sub-vendor, or the machine's first server maker id,
// on platform 0x50002D however PLATFORM_NO_REV writes it.
TEST_F(HardwareVpd, PlatformAndIdMatch) {
    struct Case {
        const char* platform;  // null: unset
        unsigned subvendor;
        const char* vendor_ids;  // machine's server_maker_vendor_ids, null: none
        bool read;
        const char* platform_logged;
    } cases[] = {
        {"50002d", 0xFE00, nullptr, true, ""},
        {"0x50002D", 0xFE00, nullptr, true, ""},
        {"50002D", 0xFE00, nullptr, true, ""},
        {nullptr, 0xFE00, nullptr, false, "0x0"},
        {"50002e", 0xFE00, nullptr, false, "0x50002e"},
        {"250002d", 0xFE00, nullptr, false, "0x250002d"},
        {"50002d", 0xFE01, nullptr, false, "0x50002d"},
        {"50002d", 0xABCD, "[43981, 43982]", true, ""},
        {"50002d", 0xFE00, "[\"0xABCD\", \"0xABCE\"]", false, "0x50002d"},
    };
    testutil::write_file(dir + "/machine/card.bin", vpd_256(0x01, "PN", "FRU", "SN").bytes);
    for (const auto& c : cases) {
        host::log_capture_end();
        host::log_capture_begin();
        exec("DELETE FROM PCIs");
        add_card(3, c.subvendor);
        std::string json = R"({"vpd_devices": {"66": {"image": "card.bin"}})";
        if (c.platform) json += R"(, "env": {"PLATFORM_NO_REV": ")" + std::string(c.platform) + "\"}";
        if (c.vendor_ids) json += R"(, "server_maker_vendor_ids": )" + std::string(c.vendor_ids);
        load_machine_json(json + "}");
        ASSERT_EQ(0, run());
        std::string what = std::string(c.platform ? c.platform : "unset") + " " + std::to_string(c.subvendor);
        EXPECT_EQ(c.read, ipmi("0x00 0x00 0x42 0x02")) << what;
        EXPECT_EQ(c.read ? "SN" : "AIM-SN", col(vpd(), "SerialNo")) << what;
        if (!c.read) {
            char sub[8];
            snprintf(sub, sizeof(sub), "0x%04X", c.subvendor);
            EXPECT_TRUE(
                logged("AIM PARSER: no need to update vpd, vendor:0x1B4B, sub_vendor:" + std::string(sub) +
                       ", device:0x9230, sub_device:0x0301, platform=" + c.platform_logged))
                << what << "\n"
                << log_text();
        } else {
            char sub[8];
            snprintf(sub, sizeof(sub), "0x%04X", c.subvendor);
            EXPECT_TRUE(logged("AIM PARSER: update_hw_vpd, vendor:0x1B4B, sub_vendor:" + std::string(sub) +
                               ", device:0x9230, sub_device:0x0301, vpd_device_id=0x42"))
                << what;
        }
    }
}

TEST_F(HardwareVpd, Barcode256ByteSelectsSerialRead) {
    add_card();
    struct Case {
        uint8_t barcode;
        bool serial;
    } cases[] = {{0x00, false}, {0x01, true},  {0x02, true}, {0x03, true},
                 {0x04, false}, {0xFC, false}, {0x81, true}};
    for (const auto& c : cases) {
        host::log_capture_end();
        host::log_capture_begin();
        machine(vpd_256(c.barcode, "PN256", " FRU256 ", "SN256\r\n"));
        ASSERT_EQ(0, run());
        auto r = vpd();
        EXPECT_EQ(c.serial ? "SN256" : "AIM-SN", col(r, "SerialNo")) << int(c.barcode);
        EXPECT_EQ("PN256", col(r, "PartNo"));
        EXPECT_EQ("FRU256", col(r, "FRUNo"));
        EXPECT_EQ("AIM-MODEL", col(r, "Model"));
        EXPECT_EQ("aim-uuid", col(r, "UUID"));
        EXPECT_EQ(c.serial, ipmi("0x26 0x00 0x42 0x0C")) << int(c.barcode);
        char line[32];
        snprintf(line, sizeof(line), "256 Byte Barcode : %02X", c.barcode);
        EXPECT_TRUE(logged(line)) << log_text();
        EXPECT_TRUE(logged("AIM PARSER: update_hw_vpd_256Byte"));
    }
    // The request sequence of one card read.
    std::vector<std::string> requests;
    for (const auto& m : messages) {
        if (m.text.compare(0, 20, "AIM PARSER: ipmicmd ") == 0) requests.push_back(m.text.substr(20));
    }
    EXPECT_EQ((std::vector<std::string>{"0x3A 0x0B 0x00 0x00 0x42 0x02", "0x3A 0x0B 0x07 0x00 0x42 0x01",
                                        "0x3A 0x0B 0x26 0x00 0x42 0x0C", "0x3A 0x0B 0x0E 0x00 0x42 0x0C",
                                        "0x3A 0x0B 0x1A 0x00 0x42 0x0C"}),
              requests);
}

TEST_F(HardwareVpd, Blank256ByteFields) {
    add_card();
    // Blank part and FRU numbers and no serial: no update is tried.
    machine(vpd_256(0x00, " \t ", "\r\n", "SN"));
    host::db_fail_writes(db, "VPDs", "update");
    ASSERT_EQ(0, run());
    EXPECT_EQ("AIM-PN", col(vpd(), "PartNo"));
    EXPECT_FALSE(logged("AIM PARSER: 256 Byte failed to update hw vpd"));
    host::db_fail_writes(db, "");
    // A blank serial with a barcode bit set is still written, as an empty text.
    machine(vpd_256(0x02, "", "", "    "));
    ASSERT_EQ(0, run());
    auto r = vpd();
    EXPECT_EQ("", col(r, "SerialNo"));
    EXPECT_EQ("AIM-PN", col(r, "PartNo"));
    EXPECT_TRUE(logged("256 Byte Serial Number: "));
}

TEST_F(HardwareVpd, OneKilobyteVariants) {
    add_card();
    struct Case {
        image card;
        std::vector<std::pair<std::string, std::string>> columns;
        std::vector<std::string> logs;
    } cases[] = {
        {vpd_1kb_basic("7X99"),
         {{"ProductName", "Card from VPD"},
          {"Manufacture", "Mk"},
          {"SerialNo", "SN-1KB"},
          {"PartNo", "PN-1KB"},
          {"Model", "7X99"},
          {"FRUNo", "FRU-1KB"},
          {"UUID", uuid_column()}},
         {"1KB Product Name: Card from VPD", "1KB Manufacturer: Mk", "1KB Serial Number: SN-1KB",
          "1KB Part Number: PN-1KB", "1KB Machine Type/Model: 7X99", "1KB FRU Number: FRU-1KB",
          "1KB UUID: " + uuid_column()}},
        {vpd_1kb_basic("N/A"), {{"Model", "AIM-MODEL"}, {"PartNo", "PN-1KB"}}, {}},
        {vpd_1kb_basic(" N/A "), {{"Model", "AIM-MODEL"}}, {}},
        {vpd_1kb_basic("N/A1"), {{"Model", "N/A1"}}, {}},
        {vpd_1kb_extended(),
         {{"ProductName", "AIM card"},
          {"Manufacture", "Card Company"},
          {"SerialNo", "SN-EXT"},
          {"PartNo", "PN-EXT"},
          {"Model", "7X99CTO1WW"},
          {"FRUNo", "AIM-SKU"},
          {"UUID", uuid_column()}},
         {"1KB Machine Type/Model: 7X99CTO1WW", "1KB Part Number: PN-EXT", "1KB Serial Number: SN-EXT",
          "1KB Company Name: Card Company"}},
    };
    for (const auto& c : cases) {
        host::log_capture_end();
        host::log_capture_begin();
        machine(c.card);
        ASSERT_EQ(0, run());
        auto r = vpd();
        for (const auto& e : c.columns) EXPECT_EQ(e.second, col(r, e.first)) << e.first;
        for (const auto& l : c.logs) EXPECT_TRUE(logged(host::log_level::info, l)) << l << "\n" << log_text();
        EXPECT_TRUE(logged("AIM PARSER: update_hw_vpd_1KB"));
        EXPECT_EQ(510u, col(r, "UUID").size());
    }
}

TEST_F(HardwareVpd, OneKilobyteReadFailures) {
    add_card();
    // The variant mark cannot be read: no update at all.
    machine(vpd_1kb_basic("7X99"), "50002d", R"(, "fail_offsets": [10])");
    ASSERT_EQ(0, run());
    EXPECT_EQ("aim-uuid", col(vpd(), "UUID"));
    EXPECT_EQ("AIM card", col(vpd(), "ProductName"));
    EXPECT_FALSE(ipmi("0x9F 0x00 0x42 0x11"));

    // The UUID cannot be read: the fields are still written.
    machine(vpd_1kb_basic("7X99"), "50002d", R"(, "fail_offsets": [159])");
    ASSERT_EQ(0, run());
    EXPECT_EQ("aim-uuid", col(vpd(), "UUID"));
    EXPECT_EQ("Card from VPD", col(vpd(), "ProductName"));

    // Neither fields nor UUID: nothing to update.
    image blank(1024);
    blank.at(0, "\x03\xFE");
    machine(blank, "50002d", R"(, "fail_offsets": [159])");
    host::db_fail_writes(db, "VPDs", "update");
    ASSERT_EQ(0, run());
    EXPECT_EQ(0u, logged_prefix(host::log_level::warn, "AIM PARSER: 1KB failed to update hw vpd"));
    // With the UUID read, a blank card still updates the UUID.
    machine(blank);
    ASSERT_EQ(0, run());
    EXPECT_EQ(1u, logged_prefix(host::log_level::warn, "AIM PARSER: 1KB failed to update hw vpd"));
}

TEST_F(HardwareVpd, UnreadableOrUnknownCard) {
    add_card();
    const std::string cases[] = {
        // No VPD device 0x42: the mark read answers a non-zero completion code.
        R"({"env": {"PLATFORM_NO_REV": "50002d"}})",
        R"({"env": {"PLATFORM_NO_REV": "50002d"}, "vpd_devices": {"67": {"image": "card.bin"}}})",
        // An unknown layout mark.
        R"({"env": {"PLATFORM_NO_REV": "50002d"}, "vpd_devices": {"66": {"image": "card.bin"}}})",
    };
    image unknown(256);
    unknown.at(0, "\xFE\x01").at(14, "PN");
    testutil::write_file(dir + "/machine/card.bin", unknown.bytes);
    for (const auto& c : cases) {
        host::log_capture_end();
        host::log_capture_begin();
        load_machine_json(c);
        ASSERT_EQ(0, run());
        EXPECT_TRUE(ipmi("0x00 0x00 0x42 0x02")) << c;
        EXPECT_FALSE(ipmi("0x07 0x00 0x42 0x01")) << c;
        EXPECT_FALSE(ipmi("0x0A 0x00 0x42 0x03")) << c;
        EXPECT_EQ("AIM-PN", col(vpd(), "PartNo"));
    }
}

TEST_F(HardwareVpd, WriteFailures) {
    add_card();
    machine(vpd_256(0x01, "PN", "FRU", "SN"));
    host::db_fail_writes(db, "VPDs", "insert");
    ASSERT_EQ(0, run());
    EXPECT_EQ(1u, logged_prefix(host::log_level::warn, "AIM PARSER: failed to insert VPD Information, rc="));
    EXPECT_FALSE(ipmi("0x00 0x00 0x42 0x02"));  // no card read after a failed insert

    host::db_fail_writes(db, "");
    host::db_fail_writes(db, "VPDs", "update");
    ASSERT_EQ(0, run());
    EXPECT_TRUE(logged(host::log_level::warn, "AIM PARSER: 256 Byte failed to update hw vpd"));
    EXPECT_EQ("AIM-PN", col(vpd(), "PartNo"));
}

// The update selects the row by the hardware type id of the "PCIs" row: a card typed 1 there
// (its VPDs row is typed 3) keeps its AIM values; one typed 0 is updated.
TEST_F(HardwareVpd, UpdateSelectsRowByPcisHardwareType) {
    struct Case {
        unsigned type;
        const char* serial;
    } cases[] = {{0, "SN"}, {3, "SN"}, {1, "AIM-SN"}};
    for (const auto& c : cases) {
        exec("DELETE FROM PCIs");
        add_card(c.type);
        machine(vpd_256(0x01, "PN", "FRU", "SN"));
        ASSERT_EQ(0, run());
        EXPECT_EQ(c.serial, col(vpd(), "SerialNo")) << c.type;
    }
}

// A remembered (function key, product name) pair replaces the AIM card name of that function.
TEST_F(HardwareVpd, RememberedProductName) {
    add_pci_function(0x1a, 0, 0);
    aim_parser::parser p;
    ASSERT_TRUE(p.init());
    aim_parser::aim_pci_key_unit key;
    key.bus = 0x1a;
    ASSERT_EQ(0, p.get_pci_node_slot_key_by_pfa(db, &key));
    aim_parser::group g;
    auto* name = new aim_parser::setting_node;
    name->name = "Card Name";
    name->value = "AIM card";
    g.add_setting_node(name);

    p.remembered_func_key = key.func_key;
    p.remembered_product_name = "Remembered";
    EXPECT_EQ(1u, p.insert_aim_vpd_info(db, &g, &key));
    // The remembered name alone does not make a row.
    EXPECT_EQ(0u, count("VPDs"));
    auto* serial = new aim_parser::setting_node;
    serial->name = "Serial Number";
    serial->value = "S1";
    g.add_setting_node(serial);
    EXPECT_EQ(1u, p.insert_aim_vpd_info(db, &g, &key));
    EXPECT_EQ("Remembered", col(vpd(), "ProductName"));

    exec("DELETE FROM VPDs");
    p.remembered_func_key = key.func_key + 1;
    EXPECT_EQ(1u, p.insert_aim_vpd_info(db, &g, &key));
    EXPECT_EQ("AIM card", col(vpd(), "ProductName"));

    EXPECT_EQ(0u, p.insert_aim_vpd_info(db, nullptr, &key));
    EXPECT_EQ(0u, p.insert_aim_vpd_info(db, &g, nullptr));
}

}  // namespace
