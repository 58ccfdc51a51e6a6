// Hardware VPD through parse_aim: the "VPDs" row from the AIM group, and the card VPD read
// over the simulated IPMI path for the function of the hardware VPD table.
#include <tuple>

#include "tests/writers_util.h"

using namespace writers_test;

namespace {

// A card VPD image: `size` zero bytes with texts placed at their offsets.
struct image : std::string {
    explicit image(size_t size) : std::string(size, '\0') {}
    image& at(size_t offset, const std::string& data) {
        return static_cast<image&>(replace(offset, data.size(), data));
    }
};

std::string vpd_256(char barcode, const char* part, const char* fru, const char* serial) {
    return image(256).at(0, "\xFE").at(7, std::string(1, barcode)).at(14, part).at(26, fru).at(38, serial);
}

// A 1 KB card, the basic layout (mark 01 02 03) or the extended one (FF EE 00) that reads its
// own fields; the UUID bytes A0..B0 are the same in both.
std::string vpd_1kb(const std::string& model, bool extended = false) {
    std::string uuid;
    for (int i = 0; i < 17; ++i) uuid += static_cast<char>(0xA0 + i);
    image i(1024);
    i.at(0, "\x03\xFE").at(10, extended ? std::string("\xFF\xEE\x00", 3) : "\x01\x02\x03").at(14, model);
    i.at(60, "  PN-1KB\t").at(72, "FRU-1KB").at(84, "SN-1KB").at(96, "Mk").at(159, uuid);
    i.at(270, "\r\n Card from VPD \n").at(640, "7X99CTO1WW").at(704, "PN-EXT").at(736, "SN-EXT");
    return i.at(800, "Card Company");
}
const std::string uuid_column = "A0A1A2A3A4A5A6A7A8A9AAABACADAEAFB0" + std::string(510 - 34, '0');
const std::string vpd_doc = aim_doc(aim_config("vpd", "0x1a", "0", "0",
                                               settings("Card Name=AIM card; UUID=aim-uuid; Manufacturer=AIM "
                                                        "maker; Serial Number=AIM-SN; Part Number=AIM-PN; "
                                                        "Model=AIM-MODEL; Card SKU=AIM-SKU")));

class HardwareVpd : public testutil::IngestTest {
protected:
    void add_card(unsigned hardware_type = 3, unsigned subvendor = 0xFE00) {
        exec("DELETE FROM PCIs");
        add_pci_function(0x1a, 0, 0, 0x1B4B, 0x9230, subvendor, 0x0301, 6, 7, 2);
        exec("UPDATE PCIs SET HardwareTypeId=" + std::to_string(hardware_type));
    }
    // A machine with the card image as VPD device `device` (66 is the card's), and `top` keys.
    void machine(const std::string& card, const std::string& device = R"("66": {"image": "card.bin"})",
                 const std::string& top = R"("env": {"PLATFORM_NO_REV": "50002d"})") {
        host::log_capture_end();
        host::log_capture_begin();
        testutil::write_file(dir + "/machine/card.bin", card);
        load_machine_json("{" + top + R"(, "vpd_devices": {)" + device + "}}");
    }
    // Runs the card's AIM group: the "VPDs" row.
    host::row run() {
        EXPECT_EQ(0, run_xml(vpd_doc));
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
    const std::string row =
        "UUID=aim-uuid; ProductName=AIM card; Manufacture=AIM maker; Model=AIM-MODEL; "
        "HardwareId=1703936; SlotNo=6; Location=2; HardwareTypeId=";
    const std::pair<unsigned, std::string> cases[] = {
        {0, "0; SerialNo=SN"}, {3, "3; SerialNo=SN"}, {1, "3; SerialNo=AIM-SN"}};
    for (const auto& c : cases) {
        add_card(c.first);
        EXPECT_EQ(row + c.second, pick(run(), row + c.second));
    }
    EXPECT_TRUE(logged(
        "AIM PARSER: Get UUID from AIM file, location/slot = 2/6, func_key = 1703936, uuid = aim-uuid"));
}

// The table row matches the placeholder sub-vendor, or the machine's first server maker id,
// on platform 0x50002D however PLATFORM_NO_REV writes it; other cards keep their AIM values.
TEST_F(HardwareVpd, PlatformAndIdMatch) {
    const std::string p = R"("env": {"PLATFORM_NO_REV": )", ids = R"(}, "server_maker_vendor_ids": )";
    const std::tuple<std::string, unsigned, bool> cases[] = {
        // the machine's keys, the card's sub-vendor, whether the card is read
        {p + R"("50002d"})", 0xFE00, true},
        {p + R"("0x50002D"})", 0xFE00, true},
        {R"("env": {})", 0xFE00, false},
        {p + R"("50002e"})", 0xFE00, false},
        {p + R"("250002d"})", 0xFE00, false},
        {p + R"("50002d"})", 0xFE01, false},
        {p + R"("50002d")" + ids + "[43981, 43982]", 0xABCD, true},
        {p + R"("50002d")" + ids + R"(["0xABCD", "0xABCE"])", 0xFE00, false}};
    for (const auto& c : cases) {
        add_card(3, std::get<1>(c));
        machine(vpd_256(0x01, "PN", "FRU", "SN"), R"("66": {"image": "card.bin"})", std::get<0>(c));
        EXPECT_EQ(std::get<2>(c) ? "SN" : "AIM-SN", col(run(), "SerialNo")) << std::get<0>(c);
    }
}

// The serial number is read only when bit 0 or 1 of the barcode byte is set; blank part and
// FRU numbers keep the AIM values, a blank serial read is written as an empty text.
TEST_F(HardwareVpd, Barcode256Byte) {
    add_card();
    const std::pair<std::string, std::string> cases[] = {
        {vpd_256(0x00, "PN2", " FRU2 ", "SN2\r\n"),
         "SerialNo=AIM-SN; PartNo=PN2; FRUNo=FRU2; Model=AIM-MODEL"},
        {vpd_256(0x01, "PN2", "FRU2", "SN2\r\n"), "SerialNo=SN2; UUID=aim-uuid"},
        {vpd_256(0x02, "PN2", "FRU2", "SN2"), "SerialNo=SN2"},
        {vpd_256(0x04, "PN2", "FRU2", "SN2"), "SerialNo=AIM-SN"},
        {vpd_256(char(0x81), "PN2", "FRU2", "SN2"), "SerialNo=SN2"},
        {vpd_256(0x00, " \t ", "\r\n", "SN"), "SerialNo=AIM-SN; PartNo=AIM-PN; FRUNo=AIM-SKU"},
        {vpd_256(0x02, "", "", "    "), "SerialNo=; PartNo=AIM-PN; FRUNo=AIM-SKU"}};
    for (const auto& c : cases) {
        machine(c.first);
        EXPECT_EQ(c.second, pick(run(), c.second));
        char line[32];
        snprintf(line, sizeof(line), "256 Byte Barcode : %02X", c.first[7] & 0xFF);
        EXPECT_TRUE(logged(line)) << log_text();
        EXPECT_EQ((c.first[7] & 3) != 0, ipmi("0x26 0x00 0x42 0x0C")) << line;
    }
}

// Both 1 KB layouts, the "N/A" model (the AIM model stays) and the 510-digit UUID.
TEST_F(HardwareVpd, OneKilobyteVariants) {
    add_card();
    const std::pair<std::string, std::string> cases[] = {
        {vpd_1kb("7X99"), "UUID=" + uuid_column +
                              "; ProductName=Card from VPD; Manufacture=Mk; SerialNo=SN-1KB; PartNo=PN-1KB; "
                              "Model=7X99; FRUNo=FRU-1KB"},
        {vpd_1kb("N/A"), "Model=AIM-MODEL; PartNo=PN-1KB"},
        {vpd_1kb(" N/A "), "Model=AIM-MODEL"},
        {vpd_1kb("N/A1"), "Model=N/A1"},
        {vpd_1kb("basic", true), "UUID=" + uuid_column +
                                     "; ProductName=AIM card; Manufacture=Card Company; SerialNo=SN-EXT; "
                                     "PartNo=PN-EXT; Model=7X99CTO1WW; FRUNo=AIM-SKU"}};
    for (const auto& c : cases) {
        machine(c.first);
        EXPECT_EQ(c.second, pick(run(), c.second));
    }
    EXPECT_TRUE(logged(host::log_level::info, "1KB UUID: " + uuid_column));
}

// Failed reads: no layout mark (nothing updated), no UUID (the fields still are), no device
// 0x42 or an unknown layout mark (nothing more is read).
TEST_F(HardwareVpd, UnreadableCard) {
    add_card();
    const std::string card = R"("66": {"image": "card.bin", "fail_offsets": )";
    const std::tuple<std::string, std::string, const char*, bool> cases[] = {
        // the image, the VPD device, the product name written, whether the UUID is read
        {vpd_1kb("7X99"), card + "[10]}", "AIM card", false},
        {vpd_1kb("7X99"), card + "[159]}", "Card from VPD", true},
        {vpd_1kb("7X99"), R"("67": {"image": "card.bin"})", "AIM card", false},
        {image(256).at(0, "\xFE\x01").at(14, "PN"), card + "[]}", "AIM card", false}};
    for (const auto& c : cases) {
        machine(std::get<0>(c), std::get<1>(c));
        EXPECT_EQ(std::string("UUID=aim-uuid; ProductName=") + std::get<2>(c),
                  pick(run(), "UUID; ProductName"));
        EXPECT_TRUE(ipmi("0x00 0x00 0x42 0x02") && !ipmi("0x07 0x00 0x42 0x01")) << std::get<1>(c);
        EXPECT_EQ(std::get<3>(c), ipmi("0x9F 0x00 0x42 0x11")) << std::get<1>(c);
    }
}

}  // namespace
