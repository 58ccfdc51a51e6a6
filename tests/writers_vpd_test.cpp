// Hardware VPD through parse_aim: the "VPDs" row from the AIM group, and the card VPD read
// over the simulated IPMI path for the function of the hardware VPD table.
#include "tests/writers_util.h"

using namespace writers_test;

namespace {

// A card VPD image: `size` zero bytes with texts placed at their offsets.
struct image {
    std::string bytes;
    explicit image(size_t size) : bytes(size, '\0') {}
    image& at(size_t offset, const std::string& data) {
        bytes.replace(offset, data.size(), data);
        return *this;
    }
};

image vpd_256(char barcode, const std::string& part, const std::string& fru, const std::string& serial) {
    return image(256).at(0, "\xFE").at(7, std::string(1, barcode)).at(14, part).at(26, fru).at(38, serial);
}

// A 1 KB card, the basic layout (mark 01 02 03) or the extended one (FF EE 00); the UUID bytes
// A0..B0 are the same in both.
image vpd_1kb(const std::string& model, bool extended = false) {
    std::string uuid;
    for (int i = 0; i < 17; ++i) uuid += static_cast<char>(0xA0 + i);
    image i =
        image(1024).at(0, "\x03\xFE").at(10, extended ? std::string("\xFF\xEE\x00", 3) : "\x01\x02\x03");
    i.at(14, model).at(159, uuid).at(60, "  PN-1KB\t").at(72, "FRU-1KB").at(84, "SN-1KB").at(96, "Mk");
    i.at(270, "\r\n Card from VPD \n");
    if (extended) i.at(640, "7X99CTO1WW").at(704, "PN-EXT").at(736, "SN-EXT").at(800, "Card Company");
    return i;
}
const std::string uuid_column = "A0A1A2A3A4A5A6A7A8A9AAABACADAEAFB0" + std::string(510 - 34, '0');

class HardwareVpd : public testutil::IngestTest {
protected:
    void add_card(unsigned hardware_type = 3, unsigned subvendor = 0xFE00) {
        exec("DELETE FROM PCIs");
        add_pci_function(0x1a, 0, 0, 0x1B4B, 0x9230, subvendor, 0x0301, 6, 7, 2);
        exec("UPDATE PCIs SET HardwareTypeId=" + std::to_string(hardware_type));
    }
    // A machine with the card's image as VPD device `device` (0x42 is the card's), `env` and
    // `extra` keys of the device.
    void machine(const image& card, const std::string& extra = "", const std::string& device = "66",
                 const std::string& env = R"("env": {"PLATFORM_NO_REV": "50002d"})") {
        testutil::write_file(dir + "/machine/card.bin", card.bytes);
        load_machine_json("{" + env + R"(, "vpd_devices": {")" + device + R"(": {"image": "card.bin")" +
                          extra + "}}}");
    }
    host::row run() {
        EXPECT_EQ(
            0,
            run_xml(aim_doc(aim_config(
                "vpd", "0x1a", "0", "0",
                settings("Card Name=AIM card; UUID=aim-uuid; Manufacturer=AIM maker; Serial Number=AIM-SN; "
                         "Part Number=AIM-PN; Model=AIM-MODEL; Card SKU=AIM-SKU")))));
        auto r = rows("VPDs");
        return r.size() == 1 ? r[0] : host::row();
    }
    bool ipmi(const std::string& args) {
        return logged(host::log_level::warn, "AIM PARSER: ipmicmd 0x3A 0x0B " + args);
    }
};

// The row is typed 0 for an untyped "PCIs" row and 3 otherwise; the card update selects the
// row by the type of the "PCIs" row, so a card typed 1 there keeps its AIM values.
TEST_F(HardwareVpd, AimRowAndHardwareType) {
    machine(vpd_256(0x01, "PN", "FRU", "SN"));
    const std::pair<unsigned, std::string> cases[] = {{0, "HardwareTypeId=0; SerialNo=SN"},
                                                      {3, "HardwareTypeId=3; SerialNo=SN"},
                                                      {1, "HardwareTypeId=3; SerialNo=AIM-SN"}};
    for (const auto& c : cases) {
        add_card(c.first);
        std::string expected =
            "UUID=aim-uuid; ProductName=AIM card; Manufacture=AIM maker; Model=AIM-MODEL; "
            "HardwareId=1703936; SlotNo=6; Location=2; " +
            c.second;
        EXPECT_EQ(expected, pick(run(), expected));
    }
    EXPECT_TRUE(logged(
        "AIM PARSER: Get UUID from AIM file, location/slot = 2/6, func_key = 1703936, uuid = aim-uuid"));
}

// The table row matches the placeholder sub-vendor, or the machine's first server maker id,
// on platform 0x50002D however PLATFORM_NO_REV writes it.
TEST_F(HardwareVpd, PlatformAndIdMatch) {
    struct Case {
        std::string env;
        unsigned subvendor;
        const char* platform_logged;  // null: the card is read
    } cases[] = {
        {R"("env": {"PLATFORM_NO_REV": "50002d"})", 0xFE00, nullptr},
        {R"("env": {"PLATFORM_NO_REV": "0x50002D"})", 0xFE00, nullptr},
        {R"("env": {})", 0xFE00, "0x0"},
        {R"("env": {"PLATFORM_NO_REV": "50002e"})", 0xFE00, "0x50002e"},
        {R"("env": {"PLATFORM_NO_REV": "250002d"})", 0xFE00, "0x250002d"},
        {R"("env": {"PLATFORM_NO_REV": "50002d"})", 0xFE01, "0x50002d"},
        {R"("env": {"PLATFORM_NO_REV": "50002d"}, "server_maker_vendor_ids": [43981, 43982])", 0xABCD,
         nullptr},
        {R"("env": {"PLATFORM_NO_REV": "50002d"}, "server_maker_vendor_ids": ["0xABCD", "0xABCE"])", 0xFE00,
         "0x50002d"},
    };
    for (const auto& c : cases) {
        host::log_capture_end();
        host::log_capture_begin();
        add_card(3, c.subvendor);
        machine(vpd_256(0x01, "PN", "FRU", "SN"), "", "66", c.env);
        EXPECT_EQ(c.platform_logged ? "AIM-SN" : "SN", col(run(), "SerialNo")) << c.env;
        char ids[80];
        snprintf(ids, sizeof(ids), "vendor:0x1B4B, sub_vendor:0x%04X, device:0x9230, sub_device:0x0301",
                 c.subvendor);
        std::string line =
            c.platform_logged
                ? std::string("AIM PARSER: no need to update vpd, ") + ids + ", platform=" + c.platform_logged
                : std::string("AIM PARSER: update_hw_vpd, ") + ids + ", vpd_device_id=0x42";
        EXPECT_TRUE(logged(line)) << line << "\n" << log_text();
    }
}

// The serial number is read only when bit 0 or 1 of the barcode byte is set; blank part and
// FRU numbers keep the AIM values, a blank serial read is written as an empty text.
TEST_F(HardwareVpd, Barcode256Byte) {
    add_card();
    struct Case {
        char barcode;
        const char *part, *fru, *serial, *expected;
    } cases[] = {
        {0x00, "PN256", " FRU256 ", "SN256\r\n",
         "SerialNo=AIM-SN; PartNo=PN256; FRUNo=FRU256; Model=AIM-MODEL"},
        {0x01, "PN256", "FRU256", "SN256\r\n", "SerialNo=SN256; UUID=aim-uuid"},
        {0x02, "PN256", "FRU256", "SN256", "SerialNo=SN256"},
        {0x04, "PN256", "FRU256", "SN256", "SerialNo=AIM-SN"},
        {char(0x81), "PN256", "FRU256", "SN256", "SerialNo=SN256"},
        {0x00, " \t ", "\r\n", "SN", "SerialNo=AIM-SN; PartNo=AIM-PN; FRUNo=AIM-SKU"},
        {0x02, "", "", "    ", "SerialNo=; PartNo=AIM-PN; FRUNo=AIM-SKU"},
    };
    for (const auto& c : cases) {
        host::log_capture_end();
        host::log_capture_begin();
        machine(vpd_256(c.barcode, c.part, c.fru, c.serial));
        EXPECT_EQ(c.expected, pick(run(), c.expected));
        char line[32];
        snprintf(line, sizeof(line), "256 Byte Barcode : %02X", c.barcode & 0xFF);
        EXPECT_TRUE(logged(line)) << log_text();
        EXPECT_EQ((c.barcode & 3) != 0, ipmi("0x26 0x00 0x42 0x0C")) << line;
    }
}

// Both 1 KB layouts, the "N/A" model (the AIM model stays) and the 510-digit UUID.
TEST_F(HardwareVpd, OneKilobyteVariants) {
    add_card();
    const std::pair<image, std::string> cases[] = {
        {vpd_1kb("7X99"),
         "ProductName=Card from VPD; Manufacture=Mk; SerialNo=SN-1KB; PartNo=PN-1KB; Model=7X99; "
         "FRUNo=FRU-1KB; UUID=" +
             uuid_column},
        {vpd_1kb("N/A"), "Model=AIM-MODEL; PartNo=PN-1KB"},
        {vpd_1kb(" N/A "), "Model=AIM-MODEL"},
        {vpd_1kb("N/A1"), "Model=N/A1"},
        {vpd_1kb("basic", true),
         "ProductName=AIM card; Manufacture=Card Company; SerialNo=SN-EXT; PartNo=PN-EXT; "
         "Model=7X99CTO1WW; FRUNo=AIM-SKU; UUID=" +
             uuid_column},
    };
    for (const auto& c : cases) {
        machine(c.first);
        EXPECT_EQ(c.second, pick(run(), c.second));
    }
    EXPECT_TRUE(logged(host::log_level::info, "1KB UUID: " + uuid_column));
    EXPECT_TRUE(logged(host::log_level::info, "1KB Company Name: Card Company"));
}

// Failed reads: no layout mark (nothing updated), no UUID (the fields still are), no device
// 0x42 or an unknown layout mark (nothing more is read).
TEST_F(HardwareVpd, UnreadableCard) {
    add_card();
    struct Case {
        image card;
        std::string extra, device, expected;
        bool uuid_read;
    } cases[] = {
        {vpd_1kb("7X99"), R"(, "fail_offsets": [10])", "66", "UUID=aim-uuid; ProductName=AIM card", false},
        {vpd_1kb("7X99"), R"(, "fail_offsets": [159])", "66", "UUID=aim-uuid; ProductName=Card from VPD",
         true},
        {vpd_1kb("7X99"), "", "67", "UUID=aim-uuid; ProductName=AIM card", false},
        {image(256).at(0, "\xFE\x01").at(14, "PN"), "", "66", "PartNo=AIM-PN", false},
    };
    for (const auto& c : cases) {
        host::log_capture_end();
        host::log_capture_begin();
        machine(c.card, c.extra, c.device);
        EXPECT_EQ(c.expected, pick(run(), c.expected));
        EXPECT_TRUE(ipmi("0x00 0x00 0x42 0x02")) << c.extra << c.device;
        EXPECT_FALSE(ipmi("0x07 0x00 0x42 0x01")) << c.extra << c.device;
        EXPECT_EQ(c.uuid_read, ipmi("0x9F 0x00 0x42 0x11")) << c.extra << c.device;
    }
}

TEST_F(HardwareVpd, WriteFailures) {
    add_card();
    machine(vpd_256(0x01, "PN", "FRU", "SN"));
    host::db_fail_writes(db, "VPDs", "insert");
    run();
    EXPECT_EQ(1u, logged_prefix(host::log_level::warn, "AIM PARSER: failed to insert VPD Information, rc="));
    EXPECT_FALSE(ipmi("0x00 0x00 0x42 0x02"));  // no card read after a failed insert

    host::db_fail_writes(db, "");
    host::db_fail_writes(db, "VPDs", "update");
    run();
    EXPECT_TRUE(logged(host::log_level::warn, "AIM PARSER: 256 Byte failed to update hw vpd"));
    // A blank 1 KB card still updates its UUID; without the UUID there is nothing to update.
    machine(image(1024).at(0, "\x03\xFE"), R"(, "fail_offsets": [159])");
    run();
    EXPECT_EQ(0u, logged_prefix(host::log_level::warn, "AIM PARSER: 1KB failed to update hw vpd"));
    machine(image(1024).at(0, "\x03\xFE"));
    run();
    EXPECT_EQ(1u, logged_prefix(host::log_level::warn, "AIM PARSER: 1KB failed to update hw vpd"));
}

}  // namespace
