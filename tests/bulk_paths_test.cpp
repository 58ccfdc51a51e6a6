// The paths that large inputs take: the DOM read in blocks from a stream of unknown size, and
// the printable filter across its blocks and buffers. (Error lines after parsing in place:
// the sysxml tests in aim_reader_test.cpp.)
#include <gtest/gtest.h>
#include <stdint.h>

#include <algorithm>
#include <streambuf>
#include <string>

#include "ingest/parser.h"
#include "platform/sysxml.h"
#include "tests/fixture.h"

namespace {

// A stream buffer that hands its text out 1000 bytes at a time and cannot seek, like a pipe:
// a stream that never says its size is read whole, the buffer growing several times.
TEST(BulkPaths, AStreamThatNeverSaysItsSizeIsReadWhole) {
    struct trickle_buf : std::streambuf {
        std::string text;
        size_t pos = 0;
        int_type underflow() override {
            if (pos >= text.size()) return traits_type::eof();
            size_t n = std::min<size_t>(text.size() - pos, 1000);
            setg(&text[pos], &text[pos], &text[pos] + n);
            pos += n;
            return traits_type::to_int_type(text[pos - n]);
        }
    } buf;
    std::string value = "A" + std::string(300 * 1000, 'v') + "Z";
    buf.text = "<root><v>" + value + "</v></root>";
    std::istream in(&buf);
    sysxml::document doc(in, false);
    EXPECT_EQ(value, doc.root().first_child().content());
    EXPECT_TRUE(in.good()) << "reading leaves the stream's state alone";
}

// Files of a few buffers' size with non-printable bytes alone, in runs, at the edges of the
// 16-byte lanes, of the 64-byte blocks and of the 64 KB buffer, and every byte value in
// every lane of a block, against the byte-by-byte rule.
class BulkFilter : public testutil::IngestTest {};

TEST_F(BulkFilter, KeepsThePrintableBytesWhereverTheOthersFall) {
    const size_t buffer = 64 * 1024;
    std::string printable(3 * buffer + 17, 'x'), edges = printable, mixed, values;
    for (size_t at :
         {size_t(0), size_t(15), size_t(16), size_t(31), size_t(32), size_t(63), size_t(64), size_t(127),
          size_t(128), buffer - 1, buffer, buffer + 32, buffer + 64, 2 * buffer - 1, edges.size() - 1})
        edges[at] = '\n';
    for (unsigned v = 0; v < 256; ++v) {
        // A line feed starts a run, so the run's first 64-byte block holds byte v at lane v % 64
        // among printable bytes only.
        std::string block(128, 'y');
        block[0] = '\n';
        block[1 + v % 64] = static_cast<char>(v);
        values += block;
    }
    uint32_t seed = 12345;
    for (size_t i = 0; i < 3 * buffer; ++i) {  // mostly printable, with single bytes and runs of the others
        seed = seed * 1103515245u + 12345u;
        unsigned r = (seed >> 16) & 0xFF;
        mixed += (r < 230) ? (char)(0x20 + r % 95) : (char)(r % 2 ? '\r' : 0x80 + r % 0x80);
    }
    aim_parser::parser p;
    for (const std::string& in : {printable, edges, mixed, values}) {
        write_sysroot_file("/tmp/in.bin", in);
        ASSERT_TRUE(p.filter_xml("/tmp/in.bin", "/tmp/out.bin"));
        std::string expected;
        for (char c : in)
            if (c >= 0x20 && c <= 0x7E) expected += c;
        EXPECT_EQ(expected, testutil::read_file(sysroot_file("/tmp/out.bin")));
    }
}

}  // namespace
