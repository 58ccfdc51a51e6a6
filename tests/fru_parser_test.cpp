// fru_parser over crafted FRU images: header, both areas, field chains, bounds, messages, and
// random or truncated images.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <cstddef>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "fru/fru_parser.h"
#include "host/log.h"

namespace {

using aim_parser::fru_parser;
using bytes = std::vector<unsigned char>;

std::string join(std::initializer_list<const char*> texts) {
    std::string out;
    for (const char* t : texts) {
        EXPECT_EQ(0, t[31]);  // every text is terminated within its 32 bytes
        out += (t == *texts.begin() ? "" : "|") + std::string(t);
    }
    return out;
}

// 8-bit ASCII type/length fields of the texts separated by '|', then the end-of-fields byte 0xC1.
bytes fields(const std::string& texts) {
    bytes out;
    std::istringstream in(texts);
    for (std::string t; std::getline(in, t, '|');) {
        out.push_back(static_cast<unsigned char>(0xC0 | t.size()));
        out.insert(out.end(), t.begin(), t.end());
    }
    out.push_back(0xC1);
    return out;
}

const std::string product_texts = "Xilinx|Alveo U50|A-U50-P00G-PQ-G|1.0|XFL1QOQ1ATTY|Asset7|fru.xml";
const std::string board_texts = "Xilinx|ALVEO U50 PQ|50121119B0JX|05080-01|v1.0";

// An area: version 1, length byte `len8` (the real length / 8 when < 0), language 25, the
// board's date when `board`, then the fields.
bytes area(bool board, int len8 = -1) {
    bytes a{0x01, 0x00, 25};
    if (board) a.insert(a.end(), {0x12, 0x34, 0x56});
    bytes f = fields(board ? board_texts : product_texts);
    a.insert(a.end(), f.begin(), f.end());
    while (a.size() % 8) a.push_back(0);
    a[1] = static_cast<unsigned char>(len8 < 0 ? a.size() / 8 : static_cast<unsigned>(len8));
    return a;
}

// Appends `a` at the next multiple of 8 and points header byte `slot` (3 board, 4 product) at it.
bytes& place(bytes& img, unsigned slot, const bytes& a) {
    img.resize((img.size() + 7) / 8 * 8, 0);
    img[slot] = static_cast<unsigned char>(img.size() / 8);
    img.insert(img.end(), a.begin(), a.end());
    return img;
}

// Runs the parser on a heap copy of exactly the image's size, so that a read past the end
// is caught by AddressSanitizer; keeps the messages, the errors one a line.
struct parsed {
    explicit parsed(const bytes& image) : buf(new unsigned char[image.empty() ? 1 : image.size()]) {
        if (!image.empty()) memcpy(buf.get(), image.data(), image.size());
        fru.reset(new fru_parser(static_cast<unsigned>(image.size()), buf.get()));
        host::log_capture_begin();
        ok = fru->parser();
        log = host::log_capture_end();
        for (const auto& m : log)
            if (m.level == host::log_level::err) errors += (errors.empty() ? "" : "\n") + m.text;
    }
    std::string product() const {
        const auto& p = fru->product;
        return join({p.manufacturer, p.product_name, p.part_number, p.product_version, p.serial_number,
                     p.asset_tag, p.fru_file_id});
    }
    std::string board() const {
        const auto& b = fru->board;
        return join({b.manufacturer, b.product_name, b.serial_number, b.part_number, b.fru_file_id});
    }
    std::unique_ptr<unsigned char[]> buf;
    std::unique_ptr<fru_parser> fru;
    bool ok = false;
    std::vector<host::log_message> log;
    std::string errors;
};

TEST(FruParser, ParsesBothAreasAndLogsTheirSummaries) {
    bytes img(8, 0);
    place(place(img, 3, area(true)), 4, area(false)).resize(256, 0xFF);
    parsed p(img);
    // Version, language and date show in the two messages.
    ASSERT_TRUE(p.ok && p.fru->product.valid && p.fru->board.valid && p.log.size() == 2u);
    EXPECT_EQ(product_texts, p.product());
    EXPECT_EQ(board_texts, p.board());
    EXPECT_EQ(
        "get_pia, version: 1 language 25 maufactory_name: Xilinx(6), product_name: Alveo U50(9), "
        "product_part_number A-U50-P00G-PQ-G(15), product_version 1.0(3), product_serial_number "
        "XFL1QOQ1ATTY(12), asset 65(6), fru 102(7)",
        p.log[0].text);
    EXPECT_EQ(
        "get_bia, version: 1 language: 25, manufacturer_date: 18/52/86(5649426), manufacturer: Xilinx(6), "
        "board_product_name: ALVEO U50 PQ(12), board_serial_number 50121119B0JX(12), board_part_number "
        "05080-01(8), fruid 118(4)",
        p.log[1].text);
}

// Areas that are absent or do not fit: the result, the messages, and the other area intact.
TEST(FruParser, AbsentAndOversizedAreas) {
    // Areas in the order given, then `pad` bytes: 'P' or 'B' with their length byte (-1: the real one).
    auto image = [](std::initializer_list<std::pair<char, int>> areas, size_t pad = 0) {
        bytes img(8, 0);
        for (const auto& a : areas) place(img, a.first == 'B' ? 3 : 4, area(a.first == 'B', a.second));
        img.resize(img.size() + pad, 0xFF);
        return img;
    };
    bytes pia_len_last = image({{'B', -1}});  // the product length byte is the buffer's last byte
    pia_len_last[4] = static_cast<unsigned char>(pia_len_last.size() / 8);
    pia_len_last.push_back(0x01);
    bytes pia_exact = image({{'P', -1}}), pia_one_more = pia_exact;  // area ends on / before the end
    pia_one_more.push_back(0);

    const std::string no_pia = "get_pia, PIA not exsit!", no_bia = "get_bia, BIA not exsit!";
    const std::string long_pia = "get_pia:106, fru too long!", long_bia = "get_bia, fru too long!";
    const std::tuple<const char*, bytes, bool, const char*, std::string> rows[] = {
        std::make_tuple("PIA absent", image({{'B', -1}}, 8), true, "-B", no_pia),
        std::make_tuple("both absent", bytes(512, 0), true, "--", no_pia + "\n" + no_bia),
        std::make_tuple("PIA length past buffer", image({{'B', -1}, {'P', 200}}), true, "-B", long_pia),
        std::make_tuple("BIA length past buffer", image({{'P', -1}, {'B', 200}}), true, "P-", long_bia),
        std::make_tuple("both past buffer", image({{'P', 60}, {'B', 60}}), false, "--",
                        long_pia + "\n" + long_bia),
        // An absent area is no failure: the image still counts as parsed.
        std::make_tuple("PIA absent, BIA past buffer", image({{'B', 200}}), true, "--",
                        no_pia + "\n" + long_bia),
        std::make_tuple("PIA length byte last", pia_len_last, true, "-B", "get_pia:99, fru too long!"),
        std::make_tuple("PIA ends on buffer end", pia_exact, true, "--", long_pia + "\n" + no_bia),
        std::make_tuple("PIA ends before buffer end", pia_one_more, true, "P-", no_bia)};
    for (const auto& r : rows) {
        SCOPED_TRACE(std::get<0>(r));
        parsed p(std::get<1>(r));
        EXPECT_EQ(std::get<2>(r), p.ok);
        EXPECT_EQ(std::get<3>(r),
                  std::string(p.fru->product.valid ? "P" : "-") + (p.fru->board.valid ? "B" : "-"));
        EXPECT_EQ(std::get<4>(r), p.errors);
        EXPECT_EQ(p.fru->product.valid ? product_texts : "||||||", p.product());
        EXPECT_EQ(p.fru->board.valid ? board_texts : "||||", p.board());
    }
    for (size_t n = 0; n < 8; ++n) {  // shorter than the header: nothing read
        parsed p(bytes(n, 0x01));
        EXPECT_TRUE(!p.ok && p.log.empty() && !p.fru->product_area_offset && !p.fru->board_area_offset) << n;
    }
}

// Field chains of the product area: cuts, the end-of-fields byte, fields that reach the end.
TEST(FruParser, FieldChains) {
    bytes six = fields("A|B|C|D|E|F");
    six.pop_back();  // no end marker
    bytes last = six, beyond = six;
    last.insert(last.end(), {0xC2, 'G', 'H'});  // the last field's last byte is the buffer's last byte
    beyond.insert(beyond.end(), {0xC3, 'G', 'H'});
    const std::tuple<const char*, bytes, size_t, std::string> rows[] = {
        std::make_tuple("40-byte field cut to 31", fields(std::string(40, 'x') + "|B|C|D|E|F|G"), 8,
                        std::string(31, 'x') + "|B|C|D|E|F|G"),
        std::make_tuple(
            "0xC1 is a one-byte field",
            bytes{0xC2, 'A', 'B', 0xC1, 'Z', 0xC1, 'Y', 0xC0, 0xC1, 'W', 0xC2, 'V', 'U', 0xC1, 'T'}, 8,
            "AB|Z|Y||W|VU|T"),
        std::make_tuple("field ends on the last byte", last, 0, "A|B|C|D|E|F|GH"),
        std::make_tuple("field ends past the last byte", beyond, 0, "A|B|C|D|E|F|"),
        std::make_tuple("first field past the end", bytes{0xC3, 'A', 'B'}, 0, "||||||")};
    for (const auto& r : rows) {
        SCOPED_TRACE(std::get<0>(r));
        bytes img = {0, 0, 0, 0, 1, 0, 0, 0, 0x01, 0x00, 0x00};  // product area at 8
        img.insert(img.end(), std::get<1>(r).begin(), std::get<1>(r).end());
        img.resize(img.size() + std::get<2>(r), 0);
        parsed p(img);
        EXPECT_TRUE(p.ok && p.fru->product.valid);
        EXPECT_EQ(std::get<3>(r), p.product());
    }
}

// Random images (offsets pointing into the buffer more often than not) and every
// truncation of a valid image: no crash, no read past the end, texts terminated.
TEST(FruParser, RandomAndTruncatedImages) {
    fflush(stderr);  // the thousands of messages go to /dev/null
    int saved = dup(2), null_fd = open("/dev/null", O_WRONLY);
    dup2(null_fd, 2);
    close(null_fd);
    std::mt19937 rng(20240601);
    for (int i = 0; i < 20000; ++i) {
        bytes img(rng() % 600);
        for (auto& b : img) b = static_cast<unsigned char>(rng());
        if (img.size() >= 8 && rng() % 2) {
            img[3] = static_cast<unsigned char>(rng() % (img.size() / 8 + 2));
            img[4] = static_cast<unsigned char>(rng() % (img.size() / 8 + 2));
        }
        parsed p(img);
        p.product() + p.board();
    }
    // The product area is placed last: it parses once the buffer reaches past its end.
    bytes full(8, 0);
    place(place(full, 3, area(true)), 4, area(false));
    const size_t product_end = full.size();
    full.resize(product_end + 8, 0xFF);
    for (size_t n = 0; n <= full.size(); ++n) {
        parsed p(bytes(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(n)));
        EXPECT_EQ(n > product_end ? product_texts : "||||||", p.product());
        EXPECT_EQ(n > 8 + area(true).size() ? board_texts : "||||", p.board());
    }
    fflush(stderr);
    dup2(saved, 2);
    close(saved);
}

TEST(SeqStr, JoinsTextNumberText) {
    EXPECT_EQ("alveo_slot3_fru_dev|-12",
              std::string(aim_parser::seq_str("alveo_slot", 3, "_fru_dev").c_str()) + "|" +
                  aim_parser::seq_str(nullptr, -12, nullptr).c_str());
}

}  // namespace
