// The SQLite inventory database client: return conventions, typed values, the
// one-statement rule, the controller's literal dialect and batching.
#include <stdint.h>
#include <string.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "host/db.h"
#include "tests/fixture.h"

namespace {

class DbClient : public testutil::IngestTest {
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
    // Rows that `where` selects from `table`, or -1 when the query is refused.
    long selected(const char* table, const char* where) {
        vqm_db_result_t* r = nullptr;
        const char* col = "_id";
        if (vqm_db_query(db, table, &col, 1, where, nullptr, nullptr, nullptr, &r) != 0) {
            EXPECT_EQ(nullptr, r);
            return -1;
        }
        long n = static_cast<long>(vqm_db_result_row_count(r));
        vqm_db_free_result(r);
        return n;
    }
    vqm_db_content_values_t* cv = nullptr;
};

TEST_F(DbClient, TypedPutsReadBackThroughTypedColumnReads) {
    vqm_db_content_put_uint(cv, "SegNo", 0xFFFFFFFFu);
    vqm_db_content_put_int(cv, "BusNo", -5);
    vqm_db_content_put_uint64(cv, "MaxSpeed", 25000000000ULL);
    vqm_db_content_put_uchar(cv, "DeviceNo", 0xAB);
    vqm_db_content_put_text(cv, "PermanentAddress", "x");
    EXPECT_EQ(0, vqm_db_content_put_text(cv, "permanentaddress", "001A2B3C4D5E")) << "replaces the value";
    ASSERT_EQ(0, vqm_db_insert(db, "PCILogicalPort", cv, 0, 0));

    const char* cols[] = {"SegNo", "BusNo", "MaxSpeed", "DeviceNo", "PermanentAddress", "Role"};
    vqm_db_result_t* r = nullptr;
    ASSERT_EQ(0, vqm_db_query(db, "PCILogicalPort", cols, 6, nullptr, nullptr, nullptr, nullptr, &r));
    EXPECT_EQ(1u, vqm_db_result_row_count(r));
    ASSERT_EQ(VQM_DB_ROW, vqm_db_result_step(r));
    uint32_t u = 0;
    uint16_t s = 0;
    int64_t big = 0;
    char text[8];
    EXPECT_TRUE(vqm_db_result_column_uint(r, 0, &u) == 0 && u == 0xFFFFFFFFu);
    EXPECT_TRUE(vqm_db_result_column_uint(r, 1, &u) == 0 && u == 0xFFFFFFFBu) << "-5 as its unsigned pattern";
    EXPECT_NE(0, vqm_db_result_column_short_uint(r, 1, &s)) << "too wide for 16 bits";
    EXPECT_TRUE(vqm_db_result_column_short_uint(r, 3, &s) == 0 && s == 0xAB);
    EXPECT_TRUE(vqm_db_result_column_int64(r, 2, &big) == 0 && big == 25000000000LL);
    EXPECT_NE(0, vqm_db_result_column_uint(r, 2, &u)) << "a value above 32 bits does not fit";
    EXPECT_EQ(0, vqm_db_result_column_text(r, 4, text, sizeof text));
    EXPECT_STREQ("001A2B3", text) << "cut to the buffer and terminated";
    EXPECT_NE(0, vqm_db_result_column_uint(r, 4, &u)) << "a text that is no number";
    EXPECT_NE(0, vqm_db_result_column_text(r, 5, text, sizeof text)) << "NULL";
    EXPECT_NE(0, vqm_db_result_column_uint(r, 6, &u)) << "beyond the list";
    EXPECT_NE(VQM_DB_ROW, vqm_db_result_step(r));
    EXPECT_NE(0, vqm_db_result_column_uint(r, 0, &u)) << "no current row after the end";
    vqm_db_free_result(r);

    EXPECT_EQ(0, selected("PCIs", "SegNo=9"));
    EXPECT_EQ(-1, selected("NoSuchTable", nullptr));
    EXPECT_NE(0, vqm_db_insert(nullptr, "PCIs", cv, 0, 0));
    EXPECT_NE(0, vqm_db_delete(db, "PCIs", "   ", 0, 0, 0)) << "a blank condition is not \"every row\"";
}

// Text that holds a second statement or a stray parameter is refused and runs nothing.
TEST_F(DbClient, ASecondStatementIsRefusedAndRunsNothing) {
    add_pci_function(0x3b, 0, 0);
    add_pci_function(0x3b, 0, 1);
    for (const char* where : {"0; DELETE FROM PCIs", "0;DELETE FROM PCIs;", "BusNo=59; DROP TABLE PCIs --",
                              "1; SELECT 1", "BusNo=?1", "BusNo=:bus", "BusNo=@b", "BusNo=$b", "SegNo='x"}) {
        SCOPED_TRACE(where);
        EXPECT_EQ(-1, selected("PCIs", where));
        EXPECT_NE(0, vqm_db_delete(db, "PCIs", where, 0, 0, 0));
        vqm_db_content_clear(cv);
        vqm_db_content_put_uint(cv, "FunType", 1);
        EXPECT_NE(0, vqm_db_update(db, "PCIs", cv, where, nullptr, 0, 0));
    }
    vqm_db_result_t* r = nullptr;
    EXPECT_NE(0, vqm_db_raw_query(db, "SELECT 1; DELETE FROM PCIs", 160, &r));
    EXPECT_EQ(nullptr, r);
    EXPECT_NE(0, vqm_db_raw_query(db, "DELETE FROM PCIs; ", 5, &r)) << "cut by the buffer size: \"DELET\"";
    EXPECT_EQ(2u, count("PCIs", "FunType=7"));
    // One statement with a trailing semicolon is fine; a raw write returns no result.
    EXPECT_EQ(0, vqm_db_raw_query(db, "DELETE FROM PCIs WHERE FunctionNo=1;", 160, &r));
    EXPECT_EQ(nullptr, r);
    EXPECT_EQ(0, vqm_db_raw_query(db, "select BusNo from PCIs where VendorId=0x8086", 160, &r));
    EXPECT_EQ(1u, vqm_db_result_row_count(r));
    vqm_db_free_result(r);
}

// Double-quoted texts are strings, also when they equal a column name; hexadecimal numbers
// are numbers; a condition may group rows.
TEST_F(DbClient, ConditionsUseTheControllerLiteralDialect) {
    exec(
        "INSERT INTO VPDs (Model, Manufacture, HardwareId, SerialNo) VALUES ('Model', 'NVIDIA', 7, '13'),"
        " ('X1', 'Model', 4318, NULL), ('it''s \"q\"', 'A', 9, NULL)");
    const std::pair<const char*, long> cases[] = {
        {"Model=\"Model\"", 1},
        {"Manufacture=\"Model\"", 1},
        {"Model=\"it's \"\"q\"\"\"", 1},
        {"SerialNo=\"13\" AND Manufacture=\"NVIDIA\"", 1},
        {"SerialNo=13 AND HardwareId=0x7", 1},
        {"HardwareId=0x10de AND Model like \"%1\"", 1},
        {"(HardwareId <> 1) GROUP BY HardwareId > 8", 2},
        // A run of "<>" terms on one column is one set test; NULLs stay out, NOT keeps its term.
        {"(HardwareId <> 7) AND (HardwareId <> 9) AND (Model <> \"\")", 1},
        {"(SerialNo <> 14) AND ( SerialNo<>15 )  AND 1", 1},
        {"NOT (HardwareId <> 7) AND (HardwareId <> 9) AND (HardwareId <> 4318) AND HardwareId > 0", 1},
    };
    for (const auto& c : cases) EXPECT_EQ(c.second, selected("VPDs", c.first)) << c.first;
}

// Writes are batched and committed by close, to a WAL journal. A run inserts thousands of
// rows, which batching keeps far above autocommit speed.
TEST_F(DbClient, BatchedWritesAreFastAndKeptByClose) {
    std::string path = dir + "/batch.db";
    _vqm_db_handle_t* a = host::db_open_file(path);
    ASSERT_EQ(0, host::db_apply_schema(a));
    const int n = 20000;
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < n; ++i) {
        vqm_db_content_clear(cv);
        vqm_db_content_put_uint(cv, "BusNo", static_cast<uint32_t>(i));
        vqm_db_content_put_text(cv, "CardName", "Network Adapter");
        ASSERT_EQ(0, vqm_db_insert(a, "PCIAdapter", cv, 0, 0));
    }
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 4.0);
    vqm_db_close(a);
    _vqm_db_handle_t* b = host::db_open_file(path);
    std::vector<host::row> rows;
    ASSERT_EQ(0, host::db_select(b, "SELECT count(*) AS n, journal_mode FROM PCIAdapter, pragma_journal_mode",
                                 rows));
    EXPECT_EQ("20000 wal", rows.at(0)["n"] + " " + rows.at(0)["journal_mode"]);
    vqm_db_close(b);
}

// An open batch older than the handle's age is committed by its next call, whatever the call;
// a handle without an age commits by the count of its writes, or when asked, only.
TEST_F(DbClient, BatchAgeCommitsAtTheNextCallAndNoAgeWaits) {
    const struct {
        unsigned age_ms;
        const char* seen;  // rows another connection sees after the second insert
    } cases[] = {{1, "1"}, {0, "0"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.age_ms);
        std::string path = dir + "/age" + std::to_string(c.age_ms) + ".db";
        _vqm_db_handle_t* a = host::db_open_file(path);
        _vqm_db_handle_t* b = host::db_open_file(path);
        ASSERT_EQ(0, host::db_apply_schema(a));
        host::db_set_batch_age(a, c.age_ms);
        auto seen = [&] {
            std::vector<host::row> rows;
            EXPECT_EQ(0, host::db_select(b, "SELECT count(*) AS n FROM PCIAdapter", rows));
            return rows.empty() ? std::string("?") : rows[0]["n"];
        };
        for (uint32_t bus = 1; bus <= 2; ++bus) {
            vqm_db_content_clear(cv);
            vqm_db_content_put_uint(cv, "BusNo", bus);
            ASSERT_EQ(0, vqm_db_insert(a, "PCIAdapter", cv, 0, 0));
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        EXPECT_EQ(c.seen, seen());
        EXPECT_EQ(0, host::db_commit(a));
        EXPECT_EQ("2", seen());
        vqm_db_close(b);
        vqm_db_close(a);
    }
}

// One content-values object reused row after row, as the writers do: a column put again
// (in any case) replaces its value, whatever the names and order of the rows before.
TEST_F(DbClient, ReusedContentValuesKeepOneSlotPerColumn) {
    struct put {
        const char* column;
        const char* value;
    };
    const struct {
        const char* what;
        std::vector<std::vector<put>> rows;                       // rows put before the one checked, then it
        std::vector<std::pair<const char*, const char*>> expect;  // the last row's columns
    } cases[] = {
        {"same shape twice",
         {{{"Role", "a"}, {"ProtocolType", "b"}}, {{"Role", "c"}, {"ProtocolType", "d"}}},
         {{"Role", "c"}, {"ProtocolType", "d"}}},
        {"order swapped",
         {{{"Role", "a"}, {"ProtocolType", "b"}}, {{"ProtocolType", "d"}, {"Role", "c"}}},
         {{"Role", "c"}, {"ProtocolType", "d"}}},
        {"a repeat in the next row",
         {{{"Role", "a"}, {"ProtocolType", "b"}}, {{"ProtocolType", "d"}, {"ProtocolType", "e"}}},
         {{"ProtocolType", "e"}}},
        {"a repeat where the row before had another column",
         {{{"Role", "a"}, {"ProtocolType", "b"}, {"iSCSI", "c"}},
          {{"iSCSI", "x"}, {"ProtocolType", "y"}, {"ISCSI", "z"}}},
         {{"iSCSI", "z"}, {"ProtocolType", "y"}}},
        {"a repeat in another case",
         {{{"Role", "a"}}, {{"Role", "b"}, {"ROLE", "c"}, {"role", "d"}}},
         {{"Role", "d"}}},
        {"a shorter row",
         {{{"Role", "a"}, {"ProtocolType", "b"}, {"iSCSI", "c"}}, {{"Role", "e"}}},
         {{"Role", "e"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_EQ(0, vqm_db_delete(db, "PCILogicalPort", nullptr, 0, 0, 0));
        for (const auto& row : c.rows) {
            vqm_db_content_clear(cv);
            for (const put& p : row) ASSERT_EQ(0, vqm_db_content_put_text(cv, p.column, p.value));
            ASSERT_EQ(0, vqm_db_insert(db, "PCILogicalPort", cv, 0, 0));
        }
        const char* cols[] = {"Role", "ProtocolType", "iSCSI"};
        vqm_db_result_t* r = nullptr;
        ASSERT_EQ(0, vqm_db_query(db, "PCILogicalPort", cols, 3, nullptr, nullptr, nullptr, nullptr, &r));
        ASSERT_EQ(c.rows.size(), vqm_db_result_row_count(r));
        for (size_t i = 0; i < c.rows.size(); ++i) ASSERT_EQ(VQM_DB_ROW, vqm_db_result_step(r));
        for (int col = 0; col < 3; ++col) {
            const char* want = nullptr;
            for (const auto& e : c.expect)
                if (strcmp(e.first, cols[col]) == 0) want = e.second;
            char text[16] = "";
            int rc = vqm_db_result_column_text(r, col, text, sizeof text);
            if (want) {
                EXPECT_EQ(0, rc) << cols[col];
                EXPECT_STREQ(want, text) << cols[col];
            } else {
                EXPECT_NE(0, rc) << cols[col] << " is NULL";
            }
        }
        vqm_db_free_result(r);
    }
}

}  // namespace
