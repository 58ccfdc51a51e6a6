// The SQLite inventory database client: return conventions, typed values, the
// one-statement rule, the controller's literal dialect, batching and failure injection.
#include <stdint.h>
#include <string.h>

#include <chrono>
#include <string>
#include <vector>

#include "host/db.h"
#include "tests/fixture.h"

namespace {

using testutil::IngestTest;

class DbClient : public IngestTest {
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
    // Runs a query and returns its result (the test frees it).
    vqm_db_result_t* query(const char* table, std::vector<const char*> columns, const char* where) {
        vqm_db_result_t* r = nullptr;
        EXPECT_EQ(0, vqm_db_query(db, table, columns.data(), static_cast<int>(columns.size()), where, nullptr,
                                  nullptr, nullptr, &r));
        EXPECT_NE(nullptr, r);
        return r;
    }
    vqm_db_content_values_t* cv = nullptr;
};

TEST_F(DbClient, TypedPutsReadBackThroughTypedColumnReads) {
    vqm_db_content_clear(cv);
    EXPECT_EQ(0, vqm_db_content_put_uint(cv, "SegNo", 0xFFFFFFFFu));
    EXPECT_EQ(0, vqm_db_content_put_int(cv, "BusNo", -5));
    EXPECT_EQ(0, vqm_db_content_put_uint64(cv, "MaxSpeed", 25000000000ULL));
    EXPECT_EQ(0, vqm_db_content_put_uchar(cv, "DeviceNo", 0xAB));
    EXPECT_EQ(0, vqm_db_content_put_text(cv, "PermanentAddress", "001A2B3C4D5E"));
    EXPECT_EQ(0, vqm_db_content_put_text(cv, "Ethernet", "1"));
    ASSERT_EQ(0, vqm_db_insert(db, "PCILogicalPort", cv, 0, 0));

    vqm_db_result_t* r =
        query("PCILogicalPort", {"SegNo", "BusNo", "MaxSpeed", "DeviceNo", "PermanentAddress", "Role", "_id"},
              nullptr);
    ASSERT_NE(nullptr, r);
    EXPECT_EQ(1u, vqm_db_result_row_count(r));
    ASSERT_EQ(VQM_DB_ROW, vqm_db_result_step(r));
    uint32_t u = 0;
    EXPECT_EQ(0, vqm_db_result_column_uint(r, 0, &u));
    EXPECT_EQ(0xFFFFFFFFu, u);
    // A signed 32-bit value reads back as its unsigned pattern; it does not fit 16 bits.
    EXPECT_EQ(0, vqm_db_result_column_uint(r, 1, &u));
    EXPECT_EQ(0xFFFFFFFBu, u);
    uint16_t s = 7;
    EXPECT_NE(0, vqm_db_result_column_short_uint(r, 1, &s));
    EXPECT_NE(0, vqm_db_result_column_short_uint(r, 0, &s));
    EXPECT_EQ(0, vqm_db_result_column_short_uint(r, 3, &s));
    EXPECT_EQ(0xAB, s);
    int64_t big = 0;
    EXPECT_EQ(0, vqm_db_result_column_int64(r, 2, &big));
    EXPECT_EQ(25000000000LL, big);
    EXPECT_NE(0, vqm_db_result_column_uint(r, 2, &u)) << "a value above 32 bits does not fit";
    char text[8];
    EXPECT_EQ(0, vqm_db_result_column_text(r, 4, text, sizeof text));
    EXPECT_STREQ("001A2B3", text) << "cut to the buffer and terminated";
    EXPECT_EQ(0, vqm_db_result_column_text(r, 3, text, sizeof text));
    EXPECT_STREQ("171", text) << "a number reads as its decimal text";
    // NULL columns and columns beyond the list fail.
    EXPECT_NE(0, vqm_db_result_column_text(r, 5, text, sizeof text));
    EXPECT_NE(0, vqm_db_result_column_uint(r, 5, &u));
    EXPECT_NE(0, vqm_db_result_column_int64(r, 5, &big));
    EXPECT_NE(0, vqm_db_result_column_uint(r, 7, &u));
    EXPECT_NE(0, vqm_db_result_column_text(r, 0, text, 0));
    // A text holding a number converts; other texts do not.
    EXPECT_NE(0, vqm_db_result_column_uint(r, 4, &u));
    EXPECT_EQ(0, extract_str_column_from_result(r, "PermanentAddress", text, sizeof text));
    EXPECT_STREQ("001A2B3", text);
    EXPECT_NE(0, extract_str_column_from_result(r, "NoSuchColumn", text, sizeof text));
    EXPECT_NE(VQM_DB_ROW, vqm_db_result_step(r));
    EXPECT_NE(0, vqm_db_result_column_uint(r, 0, &u)) << "no current row after the end";
    vqm_db_free_result(r);

    auto rows = this->rows("PCILogicalPort");
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ("1", rows[0]["Ethernet"]);
    EXPECT_EQ("-5", rows[0]["BusNo"]);
}

TEST_F(DbClient, ResultsOfEmptyQueriesAndNullArguments) {
    vqm_db_result_t* r = query("PCIs", {"_id"}, "SegNo=9");
    ASSERT_NE(nullptr, r);
    EXPECT_EQ(0u, vqm_db_result_row_count(r));
    EXPECT_NE(VQM_DB_ROW, vqm_db_result_step(r));
    vqm_db_free_result(r);

    EXPECT_NE(VQM_DB_ROW, vqm_db_result_step(nullptr));
    EXPECT_EQ(0u, vqm_db_result_row_count(nullptr));
    vqm_db_free_result(nullptr);
    EXPECT_NE(0, vqm_db_insert(nullptr, "PCIs", cv, 0, 0));
    EXPECT_NE(0, vqm_db_insert(db, nullptr, cv, 0, 0));
    EXPECT_NE(0, vqm_db_content_put_uint(nullptr, "SegNo", 1));
    EXPECT_NE(0, vqm_db_content_put_uint(cv, nullptr, 1));
    const char* col = "_id";
    EXPECT_NE(0, vqm_db_query(db, "PCIs", &col, 1, nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_NE(0, vqm_db_query(db, "NoSuchTable", &col, 1, nullptr, nullptr, nullptr, nullptr, &r));
    EXPECT_EQ(nullptr, r);
    EXPECT_NE(0, vqm_db_delete(db, "PCIs", "   ", 0, 0, 0)) << "a blank condition is not \"every row\"";
}

TEST_F(DbClient, PuttingAColumnAgainReplacesItsValueAndClearEmptiesTheList) {
    vqm_db_content_put_text(cv, "ConnectorLayout", "RJ45");
    vqm_db_content_put_uint(cv, "Idx", 2);
    vqm_db_content_put_text(cv, "connectorlayout", "5");
    ASSERT_EQ(0, vqm_db_insert(db, "PCIPhysicalPort", cv, 0, 0));
    vqm_db_content_clear(cv);
    vqm_db_content_put_uint(cv, "SlotNo", 4);
    ASSERT_EQ(0, vqm_db_insert(db, "PCIPhysicalPort", cv, 0, 0));
    auto rows = this->rows("PCIPhysicalPort");
    ASSERT_EQ(2u, rows.size());
    EXPECT_EQ("5", rows[0]["ConnectorLayout"]);
    EXPECT_EQ("2", rows[0]["Idx"]);
    EXPECT_EQ(0u, rows[1].count("Idx")) << "nothing of the earlier row leaks into the next";
    EXPECT_EQ("4", rows[1]["SlotNo"]);
}

// Text that holds a second statement is refused and runs nothing, wherever it is given.
TEST_F(DbClient, ASecondStatementIsRefusedAndRunsNothing) {
    add_pci_function(0x3b, 0, 0);
    add_pci_function(0x3b, 0, 1);
    const char* col = "_id";
    vqm_db_result_t* r = nullptr;
    const char* evil[] = {"0; DELETE FROM PCIs", "0;DELETE FROM PCIs;", "BusNo=59; DROP TABLE PCIs --",
                          "1; SELECT 1"};
    for (const char* where : evil) {
        SCOPED_TRACE(where);
        EXPECT_NE(0, vqm_db_query(db, "PCIs", &col, 1, where, nullptr, nullptr, nullptr, &r));
        EXPECT_EQ(nullptr, r);
        EXPECT_NE(0, vqm_db_delete(db, "PCIAdapter", where, 0, 0, 0));
        vqm_db_content_clear(cv);
        vqm_db_content_put_uint(cv, "FunType", 1);
        EXPECT_NE(0, vqm_db_update(db, "PCIs", cv, where, nullptr, 0, 0));
    }
    EXPECT_NE(0, vqm_db_raw_query(db, "SELECT 1; DELETE FROM PCIs", 160, &r));
    EXPECT_EQ(nullptr, r);
    EXPECT_NE(0, vqm_db_raw_query(db, "; DELETE FROM PCIs", 160, &r));
    EXPECT_NE(0, vqm_db_raw_query(db, "DELETE FROM PCIs; ", 5, &r)) << "cut by the buffer size: \"DELET\"";
    ASSERT_EQ(2u, count("PCIs"));
    EXPECT_EQ(0u, count("PCIs", "FunType=1"));
    // One statement with a trailing semicolon is fine.
    EXPECT_EQ(0, vqm_db_raw_query(db, "DELETE FROM PCIs WHERE FunctionNo=1;", 160, &r));
    EXPECT_EQ(nullptr, r);
    EXPECT_EQ(1u, count("PCIs"));
}

TEST_F(DbClient, StrayParametersInAConditionAreRefused) {
    add_pci_function(1, 0, 0);
    const char* col = "_id";
    vqm_db_result_t* r = nullptr;
    for (const char* where :
         {"BusNo=?", "BusNo=?1", "BusNo=:bus", "BusNo=@b", "BusNo=$b", "SegNo='unterminated"}) {
        SCOPED_TRACE(where);
        EXPECT_NE(0, vqm_db_query(db, "PCIs", &col, 1, where, nullptr, nullptr, nullptr, &r));
        EXPECT_NE(0, vqm_db_delete(db, "PCIs", where, 0, 0, 0));
    }
    EXPECT_EQ(1u, count("PCIs"));
}

// Double-quoted texts are strings, also when they equal a column name; hexadecimal numbers
// are numbers.
TEST_F(DbClient, ConditionsUseTheControllerLiteralDialect) {
    exec("INSERT INTO VPDs (Model, Manufacture, HardwareId) VALUES ('Model', 'NVIDIA', 7)");
    exec("INSERT INTO VPDs (Model, Manufacture, HardwareId) VALUES ('X1', 'Model', 8)");
    exec("INSERT INTO VPDs (Model, Manufacture, HardwareId) VALUES ('it''s \"q\"', 'A', 9)");
    exec("INSERT INTO Firmwares (Classification, SoftwareID, HardwareId) VALUES ('13', 'Model', 4318)");
    struct {
        const char* table;
        const char* where;
        unsigned rows;
    } cases[] = {
        {"VPDs", "Model=\"Model\"", 1},
        {"VPDs", "Manufacture=\"Model\"", 1},
        {"VPDs", "Manufacture='Model'", 1},
        {"VPDs", "Model=\"it's \"\"q\"\"\"", 1},
        {"VPDs", "Model='it''s \"q\"'", 1},
        {"VPDs", "Manufacture!='NVIDIA' OR Manufacture IS NULL", 2},
        {"VPDs", "HardwareId NOT IN (7,9)", 1},
        {"Firmwares", "Classification=\"13\" AND SoftwareID=\"Model\"", 1},
        {"Firmwares", "Classification=13 AND HardwareId=0x10DE", 1},
        {"Firmwares", "HardwareId=0x10de", 1},
        {"Firmwares", "SoftwareID like \"%ode%\"", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.where);
        vqm_db_result_t* r = query(c.table, {"_id"}, c.where);
        EXPECT_EQ(c.rows, vqm_db_result_row_count(r));
        vqm_db_free_result(r);
    }
}

TEST_F(DbClient, ConditionsMayGroupRowsByColumns) {
    add_pci_function(0x3b, 0, 0);
    add_pci_function(0x3b, 0, 1);
    add_pci_function(0x5e, 0, 0);
    vqm_db_result_t* r = query("PCIs", {"DevKey", "FunctionNo"},
                               "((DevKey <> 1) AND (ClsCode!=67586) AND (FunType!=7 OR 1) AND (Location!=2)) "
                               "GROUP BY DevKey,VendorId,DeviceId,SegNo,BusNo");
    EXPECT_EQ(2u, vqm_db_result_row_count(r));
    vqm_db_free_result(r);
    r = query("PCIs", {"BusNo"}, "1 ORDER BY 1 DESC");
    ASSERT_EQ(VQM_DB_ROW, vqm_db_result_step(r));
    uint32_t bus = 0;
    EXPECT_EQ(0, vqm_db_result_column_uint(r, 0, &bus));
    EXPECT_EQ(0x5eu, bus) << "a number after ORDER BY is a column position";
    vqm_db_free_result(r);
}

TEST_F(DbClient, UpdateBindsUnsignedParametersInOrder) {
    add_pci_function(0x3b, 0, 0);
    add_pci_function(0x3b, 0, 1);
    vqm_db_content_put_uint(cv, "FunType", 0);
    vqm_db_param_t p = {VQM_DB_PARAM_UINT, (0x3bu << 16) | 1};
    EXPECT_EQ(0, vqm_db_update(db, "PCIs", cv, "FunKey=?", &p, 1, 0));
    auto rows = this->rows("PCIs");
    EXPECT_EQ("7", rows[0]["FunType"]);
    EXPECT_EQ("0", rows[1]["FunType"]);

    vqm_db_param_t two[2] = {{VQM_DB_PARAM_UINT, 0x3b}, {VQM_DB_PARAM_UINT, 0}};
    vqm_db_content_clear(cv);
    vqm_db_content_put_uint(cv, "SlotNo", 9);
    EXPECT_EQ(0, vqm_db_update(db, "PCIs", cv, "BusNo=? AND FunctionNo=? AND \"x\"='x'", two, 2, 0));
    EXPECT_EQ(1u, count("PCIs", "SlotNo=9"));
    // Parameters that do not match the placeholders, or of another type, are refused.
    EXPECT_NE(0, vqm_db_update(db, "PCIs", cv, "FunKey=?", two, 2, 0));
    EXPECT_NE(0, vqm_db_update(db, "PCIs", cv, "FunKey=? AND BusNo=?", &p, 1, 0));
    vqm_db_param_t bad = {1, 5};
    EXPECT_NE(0, vqm_db_update(db, "PCIs", cv, "FunKey=?", &bad, 1, 0));
    vqm_db_content_clear(cv);
    EXPECT_NE(0, vqm_db_update(db, "PCIs", cv, "FunKey=?", &p, 1, 0)) << "nothing to set";
    EXPECT_EQ(1u, count("PCIs", "SlotNo=9"));
}

TEST_F(DbClient, RawQueriesReturnRowsOrRunOneWrite) {
    exec("INSERT INTO PCIs (HardwareId, VendorId) VALUES (7, 4318)");
    exec("INSERT INTO VPDs (Manufacture, HardwareId) VALUES ('NVIDIA', 7), ('NVIDIA', 8), ('Intel', 9)");
    vqm_db_result_t* r = nullptr;
    char sql[160] = {0};
    snprintf(
        sql, sizeof sql,
        "delete from %s where (Manufacture='%s' and HardwareId NOT in (select HardwareId from PCIs where "
        "VendorId=0x10DE))",
        "VPDs", "NVIDIA");
    EXPECT_EQ(0, vqm_db_raw_query(db, sql, 160, &r));
    EXPECT_EQ(nullptr, r);
    EXPECT_EQ(2u, count("VPDs"));
    EXPECT_EQ(0, vqm_db_raw_query(db, "select HardwareId from VPDs where Manufacture=\"NVIDIA\"", 160, &r));
    ASSERT_NE(nullptr, r);
    EXPECT_EQ(1u, vqm_db_result_row_count(r));
    vqm_db_free_result(r);
}

TEST_F(DbClient, InjectedFailuresHitTheNamedTableAndOperation) {
    host::db_fail_writes(db, "PCIMisc", "delete");
    EXPECT_NE(0, vqm_db_delete(db, "PCIMisc", nullptr, 0, 0, 0));
    EXPECT_EQ(0, vqm_db_delete(db, "PCIAdapter", nullptr, 0, 0, 0));
    vqm_db_content_put_uint(cv, "SlotNo", 1);
    EXPECT_EQ(0, vqm_db_insert(db, "PCIMisc", cv, 0, 0));
    host::db_fail_writes(db, "VPDs");
    EXPECT_NE(0, vqm_db_insert(db, "VPDs", cv, 0, 0));
    vqm_db_result_t* r = nullptr;
    EXPECT_NE(0, vqm_db_raw_query(db, "delete from VPDs where HardwareId=1", 160, &r));
    const char* col = "_id";
    EXPECT_EQ(0, vqm_db_query(db, "VPDs", &col, 1, nullptr, nullptr, nullptr, nullptr, &r));
    vqm_db_free_result(r);
    host::db_fail_writes(db, "*", "query");
    EXPECT_NE(0, vqm_db_query(db, "VPDs", &col, 1, nullptr, nullptr, nullptr, nullptr, &r));
    EXPECT_EQ(nullptr, r);
    host::db_fail_writes(db, "");
    EXPECT_EQ(0, vqm_db_insert(db, "VPDs", cv, 0, 0));
    EXPECT_EQ(0, vqm_db_delete(db, "PCIMisc", nullptr, 0, 0, 0));
    EXPECT_EQ(0u, count("PCIMisc"));
    EXPECT_EQ(1u, count("VPDs"));
}

// Writes are batched; they are committed for other connections by db_commit and by close.
TEST_F(DbClient, WritesAreVisibleToOtherConnectionsAfterCommitAndClose) {
    std::string path = dir + "/visibility.db";
    std::string err;
    _vqm_db_handle_t* a = host::db_open_file(path, &err);
    ASSERT_NE(nullptr, a) << err;
    ASSERT_EQ(0, host::db_apply_schema(a, &err)) << err;
    vqm_db_content_put_uint(cv, "SlotNo", 3);
    for (int i = 0; i < 5; ++i) ASSERT_EQ(0, vqm_db_insert(a, "PCIAdapter", cv, 0, 0));
    std::vector<host::row> rows;
    ASSERT_EQ(0, host::db_select(a, "SELECT * FROM PCIAdapter", rows, &err)) << err;
    EXPECT_EQ(5u, rows.size()) << "the handle reads its own writes";

    _vqm_db_handle_t* b = host::db_open_file(path, &err);
    ASSERT_NE(nullptr, b) << err;
    ASSERT_EQ(0, host::db_commit(a));
    ASSERT_EQ(0, host::db_select(b, "SELECT * FROM PCIAdapter", rows, &err)) << err;
    EXPECT_EQ(5u, rows.size());
    for (int i = 0; i < 3; ++i) ASSERT_EQ(0, vqm_db_insert(a, "PCIAdapter", cv, 0, 0));
    vqm_db_close(a);
    ASSERT_EQ(0, host::db_select(b, "SELECT * FROM PCIAdapter", rows, &err)) << err;
    EXPECT_EQ(8u, rows.size());
    ASSERT_EQ(0, host::db_select(b, "SELECT journal_mode FROM pragma_journal_mode", rows, &err)) << err;
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ("wal", rows[0]["journal_mode"]);
    vqm_db_close(b);
}

TEST_F(DbClient, HostSelectTakesOneReadOnlyStatement) {
    std::vector<host::row> rows;
    std::string err;
    EXPECT_NE(0, host::db_select(db, "DELETE FROM PCIs", rows, &err));
    EXPECT_NE(0, host::db_select(db, "SELECT 1; SELECT 2", rows, &err));
    EXPECT_EQ(0, host::db_select(db, "SELECT 1 AS one, NULL AS absent", rows, &err)) << err;
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ("1", rows[0]["one"]);
    EXPECT_EQ(0u, rows[0].count("absent"));
}

TEST_F(DbClient, OpenByNameFindsOnlyExistingDatabasesOfTheDatabaseDir) {
    EXPECT_EQ(nullptr, vqm_db_open("localhost", "root", "", "propertiesdb", 0));
    EXPECT_EQ(nullptr, vqm_db_open("localhost", "root", "", "../x", 0));
    EXPECT_EQ(nullptr, vqm_db_open("localhost", "root", "", nullptr, 0));
    exec("ATTACH DATABASE '" + dir + "/propertiesdb.db' AS p; CREATE TABLE p.t (a); DETACH DATABASE p");
    _vqm_db_handle_t* h = vqm_db_open("localhost", "root", "", "propertiesdb", 0);
    ASSERT_NE(nullptr, h);
    vqm_db_close(h);
    vqm_db_close(nullptr);
}

TEST_F(DbClient, SchemaHasEveryTableAndIsIdempotent) {
    std::string err;
    EXPECT_EQ(0, host::db_apply_schema(db, &err)) << err;
    for (const char* t : {"PCIs", "PCIAdapter", "PCIMisc", "VPDs", "Firmwares", "PCINetwork",
                          "PCIPhysicalPort", "PCIPhysicalPortStat", "PCILogicalPort", "PCIGPU", "PCIGPUChip",
                          "AimDisks", "PldmDeviceFirmware"}) {
        SCOPED_TRACE(t);
        std::vector<host::row> found;
        EXPECT_EQ(
            0, host::db_select(
                   db, std::string("SELECT name FROM sqlite_master WHERE type='table' AND name='") + t + "'",
                   found, &err));
        EXPECT_EQ(1u, found.size());
    }
    exec("INSERT INTO PCIPhysicalPortStat (PCIFuncKey, Idx) VALUES (5, 1)");
    auto rows = this->rows("PCIPhysicalPortStat");
    ASSERT_EQ(1u, rows.size());
    for (const char* c : {"LinkStatus", "LinkSpeed", "TxUtil", "RxUtil"}) EXPECT_EQ("0", rows[0][c]) << c;
    vqm_db_content_put_text(cv, "FCoENetworkAddressess", "x");
    EXPECT_EQ(0, vqm_db_insert(db, "PCILogicalPort", cv, 0, 0));
}

// A run inserts thousands of rows; batching keeps that far above autocommit speed.
TEST_F(DbClient, ThousandsOfInsertsAreFast) {
    const int n = 20000;
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < n; ++i) {
        vqm_db_content_clear(cv);
        vqm_db_content_put_uint(cv, "SegNo", 0);
        vqm_db_content_put_uint(cv, "BusNo", static_cast<uint32_t>(i));
        vqm_db_content_put_uint(cv, "PCIFuncKey", static_cast<uint32_t>(i));
        vqm_db_content_put_text(cv, "CardName", "Network Adapter");
        ASSERT_EQ(0, vqm_db_insert(db, "PCIAdapter", cv, 0, 0));
    }
    double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    RecordProperty("inserts_per_second", static_cast<int>(n / s));
    printf("inserts: %d in %.3f s, %.0f rows/s\n", n, s, n / s);
    EXPECT_LT(s, 4.0);
    EXPECT_EQ(static_cast<size_t>(n), count("PCIAdapter"));
}

}  // namespace
