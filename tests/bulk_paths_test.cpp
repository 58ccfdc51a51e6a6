// The paths that large inputs take: the DOM read in blocks and parsed in place (error lines
// on the text as read), the printable filter across its blocks and buffers, and the
// database client's statement caches and reused content values.
#include <gtest/gtest.h>
#include <stdint.h>

#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "ingest/parser.h"
#include "platform/sysxml.h"
#include "tests/fixture.h"

namespace {

using testutil::IngestTest;

// A stream buffer that hands its text out a few bytes at a time and never says how much
// is left, like a pipe.
class trickle_buf : public std::streambuf {
public:
    explicit trickle_buf(std::string text) : text_(std::move(text)) {}

protected:
    int_type underflow() override {
        if (pos_ >= text_.size()) return traits_type::eof();
        size_t n = text_.size() - pos_ < 1000 ? text_.size() - pos_ : 1000;
        char* p = &text_[pos_];
        setg(p, p, p + n);
        pos_ += n;
        return traits_type::to_int_type(*p);
    }

private:
    std::string text_;
    size_t pos_ = 0;
};

unsigned failure_line(const std::string& xml) {
    std::istringstream in(xml);
    try {
        sysxml::document doc(in, false);
    } catch (const sysipc::exception& e) {
        return e.line();
    }
    return 0;
}

// Parsing in place overwrites the line feed that ends a name and turns one inside an
// attribute value into a blank; the error's line still counts them.
TEST(BulkPaths, ErrorLinesCountLineFeedsThatTheParseOverwrote) {
    EXPECT_EQ(6u, failure_line("<a\n>\n<b\n/>\n<c>\n</a>"));
    EXPECT_EQ(3u, failure_line("<a x=\"1\n2\">\n</b>"));
    EXPECT_EQ(3u, failure_line("<a\n/>\n<b/>"));
}

TEST(BulkPaths, AStreamThatNeverSaysItsSizeIsReadWhole) {
    // Larger than the first block, so the buffer grows several times.
    std::string value(300 * 1000, 'v');
    value[0] = 'A';
    value.back() = 'Z';
    trickle_buf buf("<root><v>" + value + "</v></root>");
    std::istream in(&buf);
    sysxml::document doc(in, false);
    sysxml::node v = doc.root().first_child();
    ASSERT_TRUE(v.is_element());
    EXPECT_EQ(value, v.content());
    EXPECT_TRUE(in.good()) << "reading leaves the stream's state alone";
}

class BulkFilter : public IngestTest {};

// Files of a few buffers' size with non-printable bytes alone, in runs and at the edges of
// the 32-byte blocks and of the 64 KB buffer, against the byte-by-byte rule.
TEST_F(BulkFilter, KeepsThePrintableBytesWhereverTheOthersFall) {
    const size_t buffer = 64 * 1024;
    std::vector<std::string> inputs;
    std::string printable(3 * buffer + 17, 'x');
    inputs.push_back(printable);
    std::string edges = printable;
    for (size_t at : {size_t(0), size_t(31), size_t(32), size_t(63), buffer - 1, buffer, buffer + 32,
                      2 * buffer - 1, edges.size() - 1})
        edges[at] = '\n';
    inputs.push_back(edges);
    std::string mixed;
    uint32_t seed = 12345;
    for (size_t i = 0; i < 3 * buffer; ++i) {
        seed = seed * 1103515245u + 12345u;
        unsigned r = (seed >> 16) & 0xFF;
        // Mostly printable text, with single bytes and runs of the others.
        mixed += (r < 230) ? (char)(0x20 + r % 95) : (char)(r % 2 ? '\r' : 0x80 + r % 0x80);
    }
    inputs.push_back(mixed);

    aim_parser::parser p;
    for (const std::string& in : inputs) {
        write_sysroot_file("/tmp/in.bin", in);
        ASSERT_TRUE(p.filter_xml("/tmp/in.bin", "/tmp/out.bin"));
        std::string expected;
        for (char c : in) {
            if (c >= 0x20 && c <= 0x7E) expected += c;
        }
        EXPECT_EQ(expected, testutil::read_file(sysroot_file("/tmp/out.bin")));
    }
}

class BulkClient : public IngestTest {
protected:
    void SetUp() override {
        IngestTest::SetUp();
        cv = vqm_db_get_content_values();
        ASSERT_NE(nullptr, cv);
    }
    void TearDown() override {
        vqm_db_free_content_values(cv);
        IngestTest::TearDown();
    }
    vqm_db_content_values_t* cv = nullptr;
};

// Inserts are cached by table and column names: the same columns in another order, fewer
// columns, or another table each get their own statement.
TEST_F(BulkClient, InsertsOfOtherColumnsOrTablesGetTheirOwnStatements) {
    vqm_db_content_put_uint(cv, "Idx", 1);
    vqm_db_content_put_text(cv, "ConnectorLayout", "RJ45");
    ASSERT_EQ(0, vqm_db_insert(db, "PCIPhysicalPort", cv, 0, 0));
    vqm_db_content_clear(cv);
    vqm_db_content_put_text(cv, "ConnectorLayout", "SFP");
    vqm_db_content_put_uint(cv, "Idx", 2);
    ASSERT_EQ(0, vqm_db_insert(db, "PCIPhysicalPort", cv, 0, 0));
    vqm_db_content_clear(cv);
    vqm_db_content_put_uint(cv, "Idx", 3);
    ASSERT_EQ(0, vqm_db_insert(db, "PCIPhysicalPort", cv, 0, 0));
    ASSERT_EQ(0, vqm_db_insert(db, "PCIPhysicalPortStat", cv, 0, 0));

    auto ports = rows("PCIPhysicalPort");
    ASSERT_EQ(3u, ports.size());
    EXPECT_EQ("1", ports[0]["Idx"]);
    EXPECT_EQ("RJ45", ports[0]["ConnectorLayout"]);
    EXPECT_EQ("2", ports[1]["Idx"]);
    EXPECT_EQ("SFP", ports[1]["ConnectorLayout"]);
    EXPECT_EQ("3", ports[2]["Idx"]);
    EXPECT_EQ(0u, ports[2].count("ConnectorLayout"));
    EXPECT_EQ(1u, count("PCIPhysicalPortStat", "Idx=3"));
}

// A slot of the content values that held a text holds a number or NULL in the next row.
TEST_F(BulkClient, ReusedSlotsTakeTheTypeOfTheirNewValue) {
    vqm_db_content_put_text(cv, "CardName", "a name longer than a short string buffer");
    vqm_db_content_put_text(cv, "ConnectorType", "RJ45");
    ASSERT_EQ(0, vqm_db_insert(db, "PCIAdapter", cv, 0, 0));
    vqm_db_content_clear(cv);
    vqm_db_content_put_uint(cv, "CardName", 7);
    vqm_db_content_put_text(cv, "ConnectorType", nullptr);
    ASSERT_EQ(0, vqm_db_insert(db, "PCIAdapter", cv, 0, 0));

    std::vector<host::row> types;
    ASSERT_EQ(0, host::db_select(db,
                                 "SELECT typeof(CardName) AS card, typeof(ConnectorType) AS conn, CardName "
                                 "FROM PCIAdapter ORDER BY _id",
                                 types));
    ASSERT_EQ(2u, types.size());
    EXPECT_EQ("text", types[0]["card"]);
    EXPECT_EQ("a name longer than a short string buffer", types[0]["CardName"]);
    // "CardName" is a text column: the number is stored as its text.
    EXPECT_EQ("text", types[1]["card"]);
    EXPECT_EQ("7", types[1]["CardName"]);
    EXPECT_EQ("null", types[1]["conn"]);
}

// A result keeps its column names when the statement cache is emptied under it.
TEST_F(BulkClient, ResultsOutliveTheStatementCache) {
    vqm_db_content_put_text(cv, "CardName", "NIC");
    ASSERT_EQ(0, vqm_db_insert(db, "PCIAdapter", cv, 0, 0));
    const char* columns[] = {"SlotNo", "CardName"};
    vqm_db_result_t* r = nullptr;
    ASSERT_EQ(0, vqm_db_query(db, "PCIAdapter", columns, 2, nullptr, nullptr, nullptr, nullptr, &r));
    ASSERT_NE(nullptr, r);
    // More statement shapes than the cache holds.
    for (int i = 0; i < 300; ++i) {
        vqm_db_result_t* other = nullptr;
        std::string sql = "SELECT 1 AS c" + std::to_string(i);
        ASSERT_EQ(0, vqm_db_raw_query(db, sql.c_str(), 160, &other));
        vqm_db_free_result(other);
    }
    ASSERT_EQ(VQM_DB_ROW, vqm_db_result_step(r));
    char text[16] = {};
    EXPECT_EQ(0, extract_str_column_from_result(r, "CardName", text, sizeof text));
    EXPECT_STREQ("NIC", text);
    vqm_db_free_result(r);
}

// Number literals longer than the lifter's local buffer, and a column name that needs
// quoting inside its identifier.
TEST_F(BulkClient, LongLiteralsAndQuotedNamesKeepTheirMeaning) {
    vqm_db_content_put_uint(cv, "SlotNo", 1);
    ASSERT_EQ(0, vqm_db_insert(db, "PCIAdapter", cv, 0, 0));
    std::string zeros(80, '0');
    const char* id = "_id";
    for (std::string where :
         {"SlotNo=" + zeros + "1", "SlotNo=1." + zeros, "SlotNo=2 OR SlotNo=" + zeros + "1"}) {
        vqm_db_result_t* r = nullptr;
        ASSERT_EQ(0, vqm_db_query(db, "PCIAdapter", &id, 1, where.c_str(), nullptr, nullptr, nullptr, &r))
            << where;
        EXPECT_EQ(1u, vqm_db_result_row_count(r)) << where;
        vqm_db_free_result(r);
    }

    vqm_db_content_clear(cv);
    vqm_db_content_put_uint(cv, "Slot\"No", 2);
    EXPECT_NE(0, vqm_db_insert(db, "PCIAdapter", cv, 0, 0)) << "no such column";
    vqm_db_content_clear(cv);
    vqm_db_content_put_uint(cv, "SlotNo", 3);
    EXPECT_EQ(0, vqm_db_insert(db, "PCIAdapter", cv, 0, 0));
    EXPECT_EQ(2u, count("PCIAdapter"));
}

}  // namespace
