// fru_parser over crafted FRU images: header, both areas, field chains, bounds and messages.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <cstddef>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "fru/fru_parser.h"
#include "host/log.h"
#include "tests/fixture.h"

namespace {

using aim_parser::fru_parser;
using bytes = std::vector<unsigned char>;

// An 8-bit ASCII type/length field.
bytes field(const std::string& text) {
    bytes b(text.begin(), text.end());
    b.insert(b.begin(), static_cast<unsigned char>(0xC0 | text.size()));
    return b;
}

bytes fields(const std::vector<std::string>& texts) {
    bytes out;
    for (const auto& t : texts) {
        bytes f = field(t);
        out.insert(out.end(), f.begin(), f.end());
    }
    out.push_back(0xC1);
    return out;
}

// An area: version 1, length byte `len8` (the real length rounded up when < 0), language
// 25, `extra` bytes (the board's date), then `body`.
bytes area(const bytes& extra, const bytes& body, int len8 = -1) {
    bytes a{0x01, 0x00, 25};
    a.insert(a.end(), extra.begin(), extra.end());
    a.insert(a.end(), body.begin(), body.end());
    while (a.size() % 8) a.push_back(0);
    a[1] = static_cast<unsigned char>(len8 < 0 ? a.size() / 8 : static_cast<unsigned>(len8));
    return a;
}

const std::vector<std::string> product_texts = {"Xilinx",       "Alveo U50", "A-U50-P00G-PQ-G", "1.0",
                                                "XFL1QOQ1ATTY", "Asset7",    "fru.xml"};
const std::vector<std::string> board_texts = {"Xilinx", "ALVEO U50 PQ", "50121119B0JX", "05080-01", "v1.0"};

bytes product_area(const std::vector<std::string>& t = product_texts, int len8 = -1) {
    return area({}, fields(t), len8);
}
bytes board_area(const std::vector<std::string>& t = board_texts, int len8 = -1) {
    return area({0x12, 0x34, 0x56}, fields(t), len8);
}

// Header bytes 3, 4 and 5 hold the board, product and multirecord offsets / 8.
struct image_builder {
    bytes img = bytes(8, 0);
    unsigned place(const bytes& a) {
        while (img.size() % 8) img.push_back(0);
        unsigned off = static_cast<unsigned>(img.size());
        img.insert(img.end(), a.begin(), a.end());
        return off;
    }
    image_builder& board(const bytes& a) {
        img[3] = static_cast<unsigned char>(place(a) / 8);
        return *this;
    }
    image_builder& product(const bytes& a) {
        img[4] = static_cast<unsigned char>(place(a) / 8);
        return *this;
    }
    image_builder& pad_to(size_t n) {
        img.resize(n, 0xFF);
        return *this;
    }
};

// Runs the parser on a heap copy of exactly the image's size, so that a read past the end
// is caught by AddressSanitizer; keeps the captured messages.
struct parsed {
    explicit parsed(const bytes& image) : buf(new unsigned char[image.size() ? image.size() : 1]) {
        if (!image.empty()) memcpy(buf.get(), image.data(), image.size());
        fru.reset(new fru_parser(static_cast<unsigned>(image.size()), buf.get()));
        host::log_capture_begin();
        ok = fru->parser();
        log = host::log_capture_end();
    }
    std::vector<std::string> errors() const {
        std::vector<std::string> out;
        for (const auto& m : log)
            if (m.level == host::log_level::err) out.push_back(m.text);
        return out;
    }
    std::unique_ptr<unsigned char[]> buf;
    std::unique_ptr<fru_parser> fru;
    bool ok = false;
    std::vector<host::log_message> log;
};

std::vector<std::string> product_fields(const fru_parser& f) {
    const auto& p = f.product;
    return {p.manufacturer,  p.product_name, p.part_number, p.product_version,
            p.serial_number, p.asset_tag,    p.fru_file_id};
}
std::vector<std::string> board_fields(const fru_parser& f) {
    const auto& b = f.board;
    return {b.manufacturer, b.product_name, b.serial_number, b.part_number, b.fru_file_id};
}

const std::vector<std::string> no_product(7), no_board(5);

TEST(FruParser, ParsesBothAreasAndLogsTheirSummaries) {
    image_builder b;
    b.board(board_area()).product(product_area()).pad_to(256);
    b.img[5] = 0x1E;
    parsed p(b.img);
    ASSERT_TRUE(p.ok);
    EXPECT_EQ(8u, p.fru->header_length);
    EXPECT_EQ(256u, p.fru->size);
    EXPECT_EQ(8u, p.fru->board_area_offset);
    EXPECT_EQ(64u, p.fru->product_area_offset);
    EXPECT_EQ(0x1Eu * 8u, p.fru->multirecord_area_offset);
    EXPECT_EQ(product_texts, product_fields(*p.fru));
    EXPECT_EQ(board_texts, board_fields(*p.fru));
    EXPECT_EQ(1, p.fru->product.valid);
    EXPECT_EQ(1, p.fru->board.valid);
    EXPECT_EQ(1, p.fru->product.version);
    EXPECT_EQ(25, p.fru->product.language);
    EXPECT_EQ(25, p.fru->board.language);
    EXPECT_EQ(0x12, p.fru->board.mfg_date[0]);
    EXPECT_EQ(0x34, p.fru->board.mfg_date[1]);
    EXPECT_EQ(0x56, p.fru->board.mfg_date[2]);
    ASSERT_EQ(2u, p.log.size());
    EXPECT_TRUE(p.errors().empty());
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

TEST(FruParser, ExampleImagesParse) {
    struct {
        const char* file;
        bool product_valid;
        const char* product_name;
        const char* board_product;
    } cases[] = {
        {"examples/fru/alveo_u50.bin", true, "Alveo U50", "ALVEO U50 PQ"},
        {"examples/fru/pac_d5005_board_only.bin", false, "", "Intel FPGA PAC D5005"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        std::string s = testutil::read_file(testutil::source_path(c.file));
        parsed p(bytes(s.begin(), s.end()));
        EXPECT_TRUE(p.ok);
        EXPECT_EQ(c.product_valid, p.fru->product.valid != 0);
        EXPECT_STREQ(c.product_name, p.fru->product.product_name);
        EXPECT_EQ(1, p.fru->board.valid);
        EXPECT_STREQ(c.board_product, p.fru->board.product_name);
    }
}

// Areas that are absent or do not fit: the message, the result, and the other area intact.
TEST(FruParser, AbsentAndOversizedAreas) {
    struct area_case {
        const char* name;
        bytes image;
        bool ok;
        bool product_valid, board_valid;
        std::vector<std::string> errors;
    };
    auto board_only = image_builder().board(board_area()).pad_to(512).img;
    auto product_only = image_builder().product(product_area()).pad_to(512).img;
    auto neither = image_builder().pad_to(512).img;

    // Product area whose length byte reaches past the buffer; board area intact.
    auto product_long = image_builder().board(board_area()).product(product_area(product_texts, 200)).img;
    auto board_long = image_builder().product(product_area()).board(board_area(board_texts, 200)).img;
    auto both_long =
        image_builder().product(product_area(product_texts, 60)).board(board_area(board_texts, 60)).img;
    // Offset whose length byte itself is the buffer's end: size == offset + 1.
    auto product_at_end = image_builder().board(board_area()).img;
    product_at_end[4] = static_cast<unsigned char>(product_at_end.size() / 8);
    product_at_end.push_back(0x01);
    auto board_at_end = image_builder().product(product_area()).img;
    board_at_end[3] = static_cast<unsigned char>(board_at_end.size() / 8);
    board_at_end.push_back(0x01);
    // Area exactly as long as the rest of the buffer: size == offset + 8 * length fails.
    auto product_exact = image_builder().product(product_area()).img;
    auto product_one_more = product_exact;
    product_one_more.push_back(0);

    std::vector<area_case> cases = {
        {"PIA absent", board_only, true, false, true, {"get_pia, PIA not exsit!"}},
        {"BIA absent", product_only, true, true, false, {"get_bia, BIA not exsit!"}},
        {"both absent", neither, true, false, false, {"get_pia, PIA not exsit!", "get_bia, BIA not exsit!"}},
        {"PIA length past buffer", product_long, true, false, true, {"get_pia:106, fru too long!"}},
        {"BIA length past buffer", board_long, true, true, false, {"get_bia, fru too long!"}},
        {"both past buffer",
         both_long,
         false,
         false,
         false,
         {"get_pia:106, fru too long!", "get_bia, fru too long!"}},
        {"PIA length byte last", product_at_end, true, false, true, {"get_pia:99, fru too long!"}},
        {"BIA length byte last", board_at_end, true, true, false, {"get_bia, fru too long!"}},
        {"PIA ends on buffer end",
         product_exact,
         true,
         false,
         false,
         {"get_pia:106, fru too long!", "get_bia, BIA not exsit!"}},
        {"PIA ends before buffer end", product_one_more, true, true, false, {"get_bia, BIA not exsit!"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        parsed p(c.image);
        EXPECT_EQ(c.ok, p.ok);
        EXPECT_EQ(c.product_valid, p.fru->product.valid != 0);
        EXPECT_EQ(c.board_valid, p.fru->board.valid != 0);
        EXPECT_EQ(c.errors, p.errors());
        EXPECT_EQ(c.product_valid ? product_texts : no_product, product_fields(*p.fru));
        EXPECT_EQ(c.board_valid ? board_texts : no_board, board_fields(*p.fru));
    }
}

TEST(FruParser, ImageShorterThanHeaderReadsNothing) {
    for (size_t n = 0; n < 8; ++n) {
        SCOPED_TRACE(n);
        bytes img(n, 0x01);
        parsed p(img);
        EXPECT_FALSE(p.ok);
        EXPECT_TRUE(p.log.empty());
        EXPECT_EQ(0u, p.fru->product_area_offset);
        EXPECT_EQ(0u, p.fru->board_area_offset);
    }
    fru_parser none(0, nullptr);
    EXPECT_FALSE(none.parser());
}

// Field chains: cuts, the end-of-fields byte, and fields that reach the buffer's end.
TEST(FruParser, FieldChains) {
    const std::string forty(40, 'x');
    struct chain_case {
        const char* name;
        bytes body;    // the product area's fields, the image ends right after them
        size_t extra;  // bytes added after the body
        std::vector<std::string> expect;
    };
    bytes cut = field(forty);
    bytes next = fields({"B", "C", "D", "E", "F", "G"});
    cut.insert(cut.end(), next.begin(), next.end());

    bytes c1 = field("AB");
    c1.insert(c1.end(), {0xC1, 'Z', 0xC1, 'Y', 0xC0, 0xC1, 'W', 0xC2, 'V', 'U', 0xC1, 'T'});

    bytes six = fields({"A", "B", "C", "D", "E", "F"});
    six.pop_back();  // no end marker: the last field's last byte is the buffer's last byte
    bytes last = six;
    last.insert(last.end(), {0xC2, 'G', 'H'});
    bytes beyond = six;
    beyond.insert(beyond.end(), {0xC3, 'G', 'H'});
    bytes early = {0xC3, 'A', 'B'};  // the first field already runs past the end

    std::vector<chain_case> cases = {
        {"40-byte field cut to 31", cut, 8, {std::string(31, 'x'), "B", "C", "D", "E", "F", "G"}},
        {"0xC1 is a one-byte field", c1, 8, {"AB", "Z", "Y", "", "W", "VU", "T"}},
        {"field ends on the last byte", last, 0, {"A", "B", "C", "D", "E", "F", "GH"}},
        {"field ends past the last byte", beyond, 0, {"A", "B", "C", "D", "E", "F", ""}},
        {"first field past the end", early, 0, no_product},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        bytes img(8, 0);
        img[4] = 1;
        bytes a = {0x01, 0x00, 0x00};
        a.insert(a.end(), c.body.begin(), c.body.end());
        img.insert(img.end(), a.begin(), a.end());
        img.resize(img.size() + c.extra, 0);
        parsed p(img);
        EXPECT_TRUE(p.ok);
        EXPECT_EQ(1, p.fru->product.valid);
        EXPECT_EQ(c.expect, product_fields(*p.fru));
        EXPECT_EQ(0, p.fru->product.manufacturer[31]);
    }
}

// A length byte of 0 lets the area end right after it: the bytes after it that lie
// outside the buffer read as zero and every field is empty.
TEST(FruParser, ZeroLengthAreaAtBufferEnd) {
    bytes img(8, 0);
    img[3] = 1;
    img.push_back(0x01);
    img.push_back(0x00);
    parsed p(img);
    EXPECT_TRUE(p.ok);
    EXPECT_EQ(1, p.fru->board.valid);
    EXPECT_EQ(0, p.fru->board.language);
    EXPECT_EQ(0, p.fru->board.mfg_date[0]);
    EXPECT_EQ(no_board, board_fields(*p.fru));
}

TEST(FruParser, CopyFieldPositionsAndSkips) {
    bytes img = {0, 0, 0, 0xC2, 'a', 'b', 0x01, 'c', 0x00, 0xC3, 'd', 'e', 'f', 0xFF};
    fru_parser f(static_cast<unsigned>(img.size()), img.data());
    struct {
        unsigned pos, max, skip, ret;
        std::string text;
    } cases[] = {
        {0, 31, 0, 0, ""},  // a failed field fails the rest of the chain
        {3, 31, 0, 6, "ab"},         {3, 1, 0, 6, "a"},  {3, 31, 1, 8, "c"}, {3, 31, 2, 9, ""},
        {3, 31, 3, 13, "def"},       {3, 31, 4, 0, ""},  // 0xFF: 63 bytes, too long
        {3, 31, 0xFFFFFFFFu, 0, ""}, {13, 31, 0, 0, ""}, {14, 31, 0, 0, ""}, {0xFFFFFFFFu, 31, 0, 0, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.pos) + "/" + std::to_string(c.skip));
        char dst[32] = {};
        EXPECT_EQ(c.ret, f.fru_cp_typelen_buf(c.pos, reinterpret_cast<unsigned char*>(dst), c.max, c.skip));
        EXPECT_EQ(c.text, std::string(dst));
    }
    EXPECT_EQ(2u, f.fru_get_len(3));
    EXPECT_EQ(63u, f.fru_get_len(13));
    EXPECT_EQ(0u, f.fru_get_len(14));
}

// Positions next to the largest size: no sum may wrap. The image pointer is placed so that
// only positions size-2 and size-1 map onto the real buffer.
TEST(FruParser, CopyFieldNearLargestSize) {
    unsigned char buf[2] = {0xC0, 0xC1};
    const unsigned size = 0xFFFFFFFFu;
    auto* data = reinterpret_cast<unsigned char*>(reinterpret_cast<uintptr_t>(buf) - (size - 2));
    fru_parser f(size, data);
    unsigned char dst[32] = {};
    EXPECT_EQ(size - 1, f.fru_cp_typelen_buf(size - 2, dst, 31, 0));  // an empty field at size-2
    EXPECT_EQ(0u, f.fru_cp_typelen_buf(size - 1, dst, 31, 0));        // one byte would end at size
    EXPECT_EQ(0u, f.fru_cp_typelen_buf(size - 2, dst, 31, 1));
    EXPECT_EQ(0u, f.fru_cp_typelen_buf(size - 2, dst, 31, 0xFFFFFFFFu));
    buf[0] = 0xFF;
    EXPECT_EQ(0u, f.fru_cp_typelen_buf(size - 2, dst, 31, 0));
    EXPECT_EQ(0, dst[0]);
}

// Keeps the thousands of messages of the loops below off standard error.
struct quiet_stderr {
    quiet_stderr() {
        fflush(stderr);
        saved = dup(2);
        int fd = open("/dev/null", O_WRONLY);
        dup2(fd, 2);
        close(fd);
    }
    ~quiet_stderr() {
        fflush(stderr);
        dup2(saved, 2);
        close(saved);
    }
    int saved;
};

void expect_terminated(const fru_parser& f) {
    for (const char* t :
         {f.product.manufacturer, f.product.product_name, f.product.part_number, f.product.product_version,
          f.product.serial_number, f.product.asset_tag, f.product.fru_file_id, f.board.manufacturer,
          f.board.product_name, f.board.serial_number, f.board.part_number, f.board.fru_file_id})
        ASSERT_EQ(0, t[31]);
}

// Random images (offsets pointing into the buffer more often than not) and every
// truncation of a valid image: no crash, no read past the end, texts terminated.
TEST(FruParser, RandomAndTruncatedImages) {
    quiet_stderr quiet;
    std::mt19937 rng(20240601);
    for (int i = 0; i < 20000; ++i) {
        size_t n = rng() % 600;
        bytes img(n);
        for (auto& b : img) b = static_cast<unsigned char>(rng());
        if (n >= 8 && rng() % 2) {
            img[3] = static_cast<unsigned char>(rng() % (n / 8 + 2));
            img[4] = static_cast<unsigned char>(rng() % (n / 8 + 2));
        }
        parsed p(img);
        if (n < 8) {
            EXPECT_FALSE(p.ok);
        }
        expect_terminated(*p.fru);
        unsigned char dst[32] = {};
        unsigned pos = static_cast<unsigned>(rng() % (n + 4));
        unsigned ret =
            p.fru->fru_cp_typelen_buf(pos, dst, 31, rng() % 4 ? rng() % 8 : static_cast<unsigned>(rng()));
        EXPECT_TRUE(ret == 0 || (ret > pos && ret <= n));
    }
    // The product area is placed last: it parses once the buffer reaches past its end.
    bytes full = image_builder().board(board_area()).product(product_area()).img;
    const size_t product_end = full.size();
    full.resize(product_end + 8, 0xFF);
    for (size_t n = 0; n <= full.size(); ++n) {
        parsed p(bytes(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(n)));
        expect_terminated(*p.fru);
        EXPECT_EQ(n > product_end, p.fru->product.valid != 0);
        EXPECT_EQ(n > 8 + board_area().size(), p.fru->board.valid != 0);
    }
}

TEST(SeqStr, JoinsTextNumberText) {
    struct {
        const char* first;
        int n;
        const char* second;
        const char* text;
    } cases[] = {
        {"alveo_slot", 3, "_fru_dev", "alveo_slot3_fru_dev"},
        {"pac", -12, "", "pac-12"},
        {"", 0, "x", "0x"},
        {nullptr, 2147483647, nullptr, "2147483647"},
    };
    for (const auto& c : cases) EXPECT_STREQ(c.text, aim_parser::seq_str(c.first, c.n, c.second).c_str());
}

}  // namespace
