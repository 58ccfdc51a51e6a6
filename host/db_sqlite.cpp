// Inventory database client over SQLite: the vqm_db_* calls of the library and the
// host-only calls of host/db.h.
//
// Statements. Every library call runs exactly one SQL statement that the client builds from
// the table, the column names (quoted as identifiers) and the caller's condition or raw
// text. A condition or raw text that holds a second statement, or parameters of its own
// (other than the "?" of an update), is refused with a non-zero code before anything runs.
//
// Dialect. Condition and raw texts are written in the controller's database dialect, where
// "abc" and 'abc' are both string literals. The client lifts every literal of such a text
// into a bound parameter before SQLite sees it (host/sql_text.h), so a double-quoted text
// is always a string, even when a column of the same name exists, and double-quoted
// identifiers are switched off (SQLITE_DBCONFIG_DQS_*).
//
// Speed. Lifting the literals makes the SQL text of a call depend only on its shape, so
// prepared statements are cached by that text (inserts by their table and column names)
// and one run prepares each shape once. Values are bound straight from the caller's
// content values; the SQL text, the lifted values and the content values' slots reuse
// their storage from call to call.
// Writes run inside a transaction that the client opens on the first write and commits
// after kBatchWrites writes, after kBatchAge of age (checked at the next call; a handle may
// be given another age, or none), before a host script, and in vqm_db_close; reads on the
// same handle see the uncommitted rows.
// The age bounds how long other writers of the database wait; the count bounds a batch
// of a fast run. Large batches write a page that many rows change to the WAL once per
// batch: batches of 10000 rather than 1000 writes cut the WAL writes of a run of 1000
// configs to a third.
// File databases use WAL journaling with synchronous=NORMAL: a commit is durable against
// a crash of the process and costs no fsync (only checkpoints sync). Temporary B-trees
// stay in memory. The page cache keeps SQLite's default size: a larger one measured no
// faster, as the adapter tables of one run are a few megabytes at most. So a run costs
// about what the same inserts cost in one transaction, and everything is committed when
// vqm_db_close returns.
//
// A handle is used by one thread at a time (the statement cache and the batch state are
// not locked), so connections are opened without SQLite's per-call mutex.
#include <errno.h>
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/db.h"
#include "host/sql_text.h"
#include "host/inventory_schema.h"
#include "platform/kora_log.h"
#include "platform/vqm_db.h"

namespace {

using host::sql::add_condition;
using host::sql::append_identifier;
using host::sql::lift_literals;
using host::sql::raw_target;
using host::sql::value;

// Codes of the client itself (SQLite's own codes are passed on as they are).
const int kRefused = -1;             // bad arguments, a second statement, stray parameters
const int kInjected = SQLITE_IOERR;  // a write failed on purpose (host::db_fail_writes)

const unsigned kBatchWrites = 10000;
const std::chrono::milliseconds kBatchAge(200);
const size_t kStatementCacheSize = 256;

struct fail_rule {
    std::string table;  // "*" for every table
    std::string op;     // "insert", "update", "delete", "query", or "" for every write
};

}  // namespace

// The columns put since the last clear are the first `count` slots. Clearing keeps the
// slots, so the next row reuses their name and text storage.
struct vqm_db_content_values {
    struct column {
        std::string name;
        value v;
    };
    std::vector<column> slots;
    size_t count = 0;
    // One bit per hash of the names in use (see name_bit): a put whose bit is clear is of a
    // column not put yet, found without searching the slots.
    uint64_t names = 0;
};

// The rows of a query, read into memory when the query runs, so that a result stays valid
// whatever the handle runs next.
struct vqm_db_result {
    std::shared_ptr<const std::vector<std::string>> names;  // the statement's column names
    size_t columns = 0;
    size_t rows = 0;
    std::vector<value> cells;  // row after row, `columns` cells each
    long current = -1;         // index of the row read by the column calls; -1 before the first step
};

namespace {

// Process-wide failure injection (host::db_set_fault), checked at the entry of every client
// call after its arguments were accepted.
struct fault_state {
    host::db_fault fault;
    unsigned long count = 0;
    // The first kMaxCalls calls since db_set_fault; nothing is recorded before a test asks,
    // so that ordinary runs pay no allocation per call.
    bool recording = false;
    std::vector<std::pair<std::string, std::string>> calls;
    static const size_t kMaxCalls = 1u << 20;
    fault_state() {
        const char* call = getenv("AIM_DB_FAIL_CALL");
        const char* op = getenv("AIM_DB_FAIL_OP");
        const char* die = getenv("AIM_DB_FAIL_DIE");
        fault.call = call ? strtoul(call, nullptr, 10) : 0;
        fault.op = op ? op : "";
        fault.die = die && strcmp(die, "1") == 0;
    }
};

fault_state& faults() {
    static fault_state s;
    return s;
}

// Non-zero when this call is to fail. `kind` is the call's own ("raw" for a raw query), `op`
// the kind of its statement.
int fault_hook(const char* kind, const char* op, const char* table) {
    fault_state& f = faults();
    if (f.recording && f.calls.size() < fault_state::kMaxCalls)
        f.calls.emplace_back(strcmp(kind, "raw") == 0 ? std::string("raw ") + op : std::string(op), table);
    if (f.fault.call == ++f.count) {
        if (f.fault.die) _exit(137);
        return kInjected;
    }
    return f.fault.op == op ? kInjected : 0;
}

// A prepared statement of the cache, with its column names (shared with the results).
struct statement {
    sqlite3_stmt* stmt = nullptr;
    std::shared_ptr<const std::vector<std::string>> names;
};

}  // namespace

struct _vqm_db_handle {
    sqlite3* db = nullptr;
    std::unordered_map<std::string, statement> statements;  // by SQL text
    std::unordered_map<std::string, statement> inserts;     // by insert key
    bool own_transaction = false;
    unsigned pending_writes = 0;
    std::chrono::steady_clock::time_point transaction_start;
    std::chrono::milliseconds batch_age = kBatchAge;  // zero: no age limit
    std::vector<fail_rule> fail_rules;
    // Scratch of the call being run (SQL text and lifted values), kept to reuse their storage.
    std::string sql;
    std::vector<value> binds;
};

namespace {

void log_sql_error(_vqm_db_handle_t* h, const char* sql, int rc) {
    kora_log::logDbg("vqm_db: rc=%d (%s) for: %s", rc, sqlite3_errmsg(h->db), sql);
}

int commit(_vqm_db_handle_t* h) {
    if (!h->own_transaction) return 0;
    h->own_transaction = false;
    h->pending_writes = 0;
    if (sqlite3_get_autocommit(h->db)) return 0;  // rolled back by SQLite after an I/O error
    int rc = sqlite3_exec(h->db, "COMMIT", nullptr, nullptr, nullptr);
    if (rc != SQLITE_OK) {
        kora_log::logErr("vqm_db: commit failed, rc=%d (%s)", rc, sqlite3_errmsg(h->db));
        sqlite3_exec(h->db, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    return rc;
}

// Commits the batch when it is large or old enough.
void maybe_commit(_vqm_db_handle_t* h) {
    if (h->own_transaction && (h->pending_writes >= kBatchWrites ||
                               (h->batch_age.count() > 0 &&
                                std::chrono::steady_clock::now() - h->transaction_start >= h->batch_age))) {
        commit(h);
    }
}

int begin_write(_vqm_db_handle_t* h) {
    if (h->own_transaction || !sqlite3_get_autocommit(h->db)) return 0;
    int rc = sqlite3_exec(h->db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    if (rc != SQLITE_OK) return rc;
    h->own_transaction = true;
    h->pending_writes = 0;
    h->transaction_start = std::chrono::steady_clock::now();
    return 0;
}

void clear_statements(std::unordered_map<std::string, statement>& cache) {
    for (auto& s : cache) sqlite3_finalize(s.second.stmt);
    cache.clear();
}

// An insert is cached under a key made of its table and column names, which is cheaper to
// build than its SQL text: the table and each column, each ended by a NUL byte. These keys
// have a cache of their own. A name is appended with the NUL that ends its storage.
void make_insert_key(std::string& key, const char* table, const vqm_db_content_values_t* cv) {
    key.assign(table, strlen(table) + 1);
    for (size_t i = 0; i < cv->count; ++i) {
        const std::string& name = cv->slots[i].name;
        key.append(name.c_str(), name.size() + 1);
    }
}

// The SQL text of an insert key.
std::string insert_sql(const std::string& key) {
    const char* p = key.c_str();
    std::string sql = "INSERT INTO ";
    append_identifier(sql, p);
    p += strlen(p) + 1;
    if (p == key.c_str() + key.size()) return sql + " DEFAULT VALUES";
    std::string marks;
    sql += " (";
    for (; p < key.c_str() + key.size(); p += strlen(p) + 1) {
        if (!marks.empty()) {
            sql += ',';
            marks += ',';
        }
        append_identifier(sql, p);
        marks += '?';
    }
    return sql + ") VALUES (" + marks + ")";
}

// Prepares the statement of `key`, an SQL text or (`insert`) an insert key, from its cache
// when it was prepared before. Refuses a text that holds more than one statement.
int prepare(_vqm_db_handle_t* h, const std::string& key, bool insert, const statement** out) {
    std::unordered_map<std::string, statement>& cache = insert ? h->inserts : h->statements;
    auto it = cache.find(key);
    if (it != cache.end()) {
        *out = &it->second;
        return 0;
    }
    std::string sql = insert ? insert_sql(key) : key;
    sqlite3_stmt* stmt = nullptr;
    const char* tail = nullptr;
    int rc = sqlite3_prepare_v3(h->db, sql.c_str(), static_cast<int>(sql.size() + 1),
                                SQLITE_PREPARE_PERSISTENT, &stmt, &tail);
    if (rc != SQLITE_OK) {
        log_sql_error(h, sql.c_str(), rc);
        sqlite3_finalize(stmt);
        return rc;
    }
    while (tail && *tail && strchr(" \t\r\n\f\v", *tail)) ++tail;
    if (!stmt || (tail && *tail)) {
        kora_log::logDbg("vqm_db: refused, not exactly one statement: %s", sql.c_str());
        sqlite3_finalize(stmt);
        return kRefused;
    }
    if (cache.size() >= kStatementCacheSize) clear_statements(cache);
    statement& entry = cache[key];
    entry.stmt = stmt;
    auto names = std::make_shared<std::vector<std::string>>();
    for (int c = 0; c < sqlite3_column_count(stmt); ++c) {
        const char* n = sqlite3_column_name(stmt, c);
        names->push_back(n ? n : "");
    }
    entry.names = std::move(names);
    *out = &entry;
    return 0;
}

// Binds `v` to parameter `index`. Texts and blobs are not copied: the caller keeps `v`
// alive until the statement has run, and clears the bindings after it.
int bind_value(sqlite3_stmt* stmt, int index, const value& v) {
    switch (v.type) {
        case SQLITE_INTEGER:
            return sqlite3_bind_int64(stmt, index, v.i);
        case SQLITE_FLOAT:
            return sqlite3_bind_double(stmt, index, v.d);
        case SQLITE_TEXT:
            return sqlite3_bind_text(stmt, index, v.s.data(), static_cast<int>(v.s.size()), SQLITE_STATIC);
        case SQLITE_BLOB:
            return sqlite3_bind_blob(stmt, index, v.s.data(), static_cast<int>(v.s.size()), SQLITE_STATIC);
        default:
            return sqlite3_bind_null(stmt, index);
    }
}

// Appends the value of column `col` of the current row to `cells`.
void read_cell(sqlite3_stmt* stmt, int col, std::vector<value>& cells) {
    cells.emplace_back();
    value& v = cells.back();
    v.type = sqlite3_column_type(stmt, col);
    switch (v.type) {
        case SQLITE_INTEGER:
            v.i = sqlite3_column_int64(stmt, col);
            break;
        case SQLITE_FLOAT:
            v.d = sqlite3_column_double(stmt, col);
            break;
        case SQLITE_TEXT: {
            const unsigned char* t = sqlite3_column_text(stmt, col);
            v.s.assign(reinterpret_cast<const char*>(t),
                       static_cast<size_t>(sqlite3_column_bytes(stmt, col)));
            break;
        }
        case SQLITE_BLOB: {
            const void* b = sqlite3_column_blob(stmt, col);
            int n = sqlite3_column_bytes(stmt, col);
            if (b && n > 0) v.s.assign(static_cast<const char*>(b), static_cast<size_t>(n));
            break;
        }
        default:
            break;
    }
}

bool injected_failure(_vqm_db_handle_t* h, const char* op, const char* table) {
    bool write = strcmp(op, "query") != 0;
    for (const auto& r : h->fail_rules) {
        bool table_match = r.table == "*" || strcasecmp(r.table.c_str(), table) == 0;
        bool op_match = r.op == op || (r.op.empty() && write);
        if (table_match && op_match) return true;
    }
    return false;
}

// Runs one statement (`key` as prepare() takes it): binds the values of `cv` (when given)
// and then `binds`, in order, steps it to the end and, when `result` is given and the
// statement has columns, collects its rows into a new result object. `op` and `table` name
// the call for failure injection ("" table: not known).
int run(_vqm_db_handle_t* h, const std::string& key, bool insert, const vqm_db_content_values_t* cv,
        const std::vector<value>& binds, vqm_db_result_t** result, const char* op, const char* table) {
    if (injected_failure(h, op, table)) return kInjected;
    maybe_commit(h);
    const statement* prepared = nullptr;
    int rc = prepare(h, key, insert, &prepared);
    if (rc != 0) return rc;
    sqlite3_stmt* stmt = prepared->stmt;
    size_t count = (cv ? cv->count : 0) + binds.size();
    if (sqlite3_bind_parameter_count(stmt) != static_cast<int>(count)) {
        kora_log::logDbg("vqm_db: refused, %d parameters for %zu values: %s",
                         sqlite3_bind_parameter_count(stmt), count, sqlite3_sql(stmt));
        return kRefused;
    }
    bool write = !sqlite3_stmt_readonly(stmt);
    if (write) {
        rc = begin_write(h);
        if (rc != 0) {
            log_sql_error(h, "BEGIN", rc);
            return rc;
        }
    }
    int index = 0;
    if (cv) {
        for (size_t i = 0; i < cv->count && rc == SQLITE_OK; ++i)
            rc = bind_value(stmt, ++index, cv->slots[i].v);
    }
    for (size_t i = 0; i < binds.size() && rc == SQLITE_OK; ++i) rc = bind_value(stmt, ++index, binds[i]);
    if (rc != SQLITE_OK) {
        sqlite3_clear_bindings(stmt);
        return rc;
    }
    vqm_db_result_t* res = nullptr;
    int ncols = sqlite3_column_count(stmt);
    if (result && ncols > 0) {
        res = new vqm_db_result_t;
        res->names = prepared->names;
        res->columns = static_cast<size_t>(ncols);
        res->cells.reserve(res->columns);
    }
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
        if (!res) continue;
        for (int c = 0; c < ncols; ++c) read_cell(stmt, c, res->cells);
        ++res->rows;
    }
    if (rc == SQLITE_DONE) rc = 0;
    if (rc != 0) log_sql_error(h, sqlite3_sql(stmt), rc);
    sqlite3_reset(stmt);
    sqlite3_clear_bindings(stmt);
    if (h->own_transaction && sqlite3_get_autocommit(h->db)) {
        // SQLite rolled the whole batch back (I/O error, disk full): nothing is pending now.
        kora_log::logErr("vqm_db: the open transaction was rolled back, rc=%d", rc);
        h->own_transaction = false;
        h->pending_writes = 0;
    }
    if (rc != 0) {
        delete res;
        return rc;
    }
    if (write && h->own_transaction) ++h->pending_writes;
    if (result)
        *result = res;
    else
        delete res;
    return 0;
}

void configure(_vqm_db_handle_t* h, bool file) {
    sqlite3_busy_timeout(h->db, 5000);
    sqlite3_db_config(h->db, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
    sqlite3_db_config(h->db, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
    if (file) {
        sqlite3_exec(h->db, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr);
        sqlite3_exec(h->db, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
    }
    // Temporary B-trees (a GROUP BY, a NOT IN list) stay in memory rather than in files.
    sqlite3_exec(h->db, "PRAGMA temp_store=MEMORY", nullptr, nullptr, nullptr);
    // Debian's SQLite overwrites deleted content with zeros by default. The adapter tables
    // hold nothing secret, and every run deletes the previous run's rows, which the zeroing
    // made about a sixth of the wipe's cost.
    sqlite3_exec(h->db, "PRAGMA secure_delete=OFF", nullptr, nullptr, nullptr);
}

_vqm_db_handle_t* open_path(const std::string& path, int flags, std::string* error) {
    sqlite3* db = nullptr;
    int rc = sqlite3_open_v2(path.c_str(), &db, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc != SQLITE_OK) {
        if (error) *error = path + ": " + (db ? sqlite3_errmsg(db) : sqlite3_errstr(rc));
        sqlite3_close_v2(db);
        return nullptr;
    }
    _vqm_db_handle_t* h = new _vqm_db_handle_t;
    h->db = db;
    configure(h, path != ":memory:" && !path.empty());
    return h;
}

std::string& database_dir_ref() {
    static std::string dir;
    return dir;
}

// Integer value of a cell: integers, integral reals and texts holding one decimal or
// "0x" hexadecimal integer convert; NULL and blobs do not.
bool cell_int64(const value& v, int64_t* out) {
    switch (v.type) {
        case SQLITE_INTEGER:
            *out = v.i;
            return true;
        case SQLITE_FLOAT:
            if (!(v.d >= -9223372036854775808.0 && v.d < 9223372036854775808.0)) return false;
            if (static_cast<double>(static_cast<int64_t>(v.d)) != v.d) return false;
            *out = static_cast<int64_t>(v.d);
            return true;
        case SQLITE_TEXT: {
            const char* s = v.s.c_str();
            while (*s == ' ') ++s;
            if (!*s || strlen(s) != v.s.size() - static_cast<size_t>(s - v.s.c_str())) return false;
            char* end = nullptr;
            errno = 0;
            long long n;
            if (s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
                n = static_cast<long long>(strtoull(s + 2, &end, 16));
                if (end == s + 2) return false;
            } else {
                n = strtoll(s, &end, 10);
                if (end == s) return false;
            }
            while (*end == ' ') ++end;
            if (errno != 0 || *end) return false;
            *out = n;
            return true;
        }
        default:
            return false;
    }
}

const value* cell(vqm_db_result_t* r, int column) {
    if (!r || r->current < 0 || static_cast<size_t>(r->current) >= r->rows) return nullptr;
    if (column < 0 || static_cast<size_t>(column) >= r->columns) return nullptr;
    return &r->cells[static_cast<size_t>(r->current) * r->columns + static_cast<size_t>(column)];
}

// The bit of a column name of `len` bytes in vqm_db_content_values::names: from its length
// and its first and last bytes with the ASCII case bit set, so names that differ only in
// case share their bit.
uint64_t name_bit(const char* name, size_t len) {
    unsigned first = static_cast<unsigned char>(name[0]) | 0x20u;
    unsigned last = static_cast<unsigned char>(name[len - 1]) | 0x20u;
    return uint64_t(1) << ((len * 7 + first * 3 + last) & 63);
}

// The slot of `column` in `cv`: the one put before under that name (SQLite column names
// ignore case, and putting a column again replaces its value), else the next free slot,
// whose name storage is reused. Null for a bad call.
value* slot(vqm_db_content_values_t* cv, const char* column) {
    if (!cv || !column || !*column) return nullptr;
    size_t len = strlen(column);
    uint64_t bit = name_bit(column, len);
    if (cv->names & bit) {
        for (size_t i = 0; i < cv->count; ++i) {
            vqm_db_content_values::column& c = cv->slots[i];
            if (c.name.size() == len && strcasecmp(c.name.c_str(), column) == 0) return &c.v;
        }
    }
    cv->names |= bit;
    if (cv->count == cv->slots.size()) cv->slots.emplace_back();
    vqm_db_content_values::column& c = cv->slots[cv->count++];
    if (c.name.size() != len || memcmp(c.name.data(), column, len) != 0) c.name.assign(column, len);
    return &c.v;
}

int put_integer(vqm_db_content_values_t* cv, const char* column, int64_t n) {
    value* v = slot(cv, column);
    if (!v) return kRefused;
    v->type = SQLITE_INTEGER;
    v->i = n;
    return 0;
}

}  // namespace

extern "C" {

_vqm_db_handle_t* vqm_db_open(const char*, const char*, const char*, const char* name, int) {
    const std::string& dir = database_dir_ref();
    if (!name || !*name || strchr(name, '/') || dir.empty()) return nullptr;
    return open_path(dir + "/" + name + ".db", SQLITE_OPEN_READWRITE, nullptr);
}

void vqm_db_close(_vqm_db_handle_t* h) {
    if (!h) return;
    commit(h);
    clear_statements(h->statements);
    clear_statements(h->inserts);
    sqlite3_close_v2(h->db);
    delete h;
}

vqm_db_content_values_t* vqm_db_get_content_values(void) { return new vqm_db_content_values_t; }
void vqm_db_free_content_values(vqm_db_content_values_t* cv) { delete cv; }
void vqm_db_content_clear(vqm_db_content_values_t* cv) {
    if (!cv) return;
    cv->count = 0;
    cv->names = 0;
}

int vqm_db_content_put_text(vqm_db_content_values_t* cv, const char* column, const char* text) {
    value* v = slot(cv, column);
    if (!v) return kRefused;
    v->type = text ? SQLITE_TEXT : SQLITE_NULL;
    v->s.assign(text ? text : "");
    return 0;
}
int vqm_db_content_put_uint(vqm_db_content_values_t* cv, const char* column, uint32_t v) {
    return put_integer(cv, column, v);
}
int vqm_db_content_put_int(vqm_db_content_values_t* cv, const char* column, int32_t v) {
    return put_integer(cv, column, v);
}
// SQLite integers are signed 64-bit: values above INT64_MAX are stored as their two's
// complement and read back unchanged through vqm_db_result_column_int64.
int vqm_db_content_put_uint64(vqm_db_content_values_t* cv, const char* column, uint64_t v) {
    return put_integer(cv, column, static_cast<int64_t>(v));
}
int vqm_db_content_put_uchar(vqm_db_content_values_t* cv, const char* column, uint8_t v) {
    return put_integer(cv, column, v);
}

int vqm_db_insert(_vqm_db_handle_t* h, const char* table, vqm_db_content_values_t* cv, int, int) {
    if (!h || !table || !*table || !cv) return kRefused;
    if (int rc = fault_hook("insert", "insert", table)) return rc;
    make_insert_key(h->sql, table, cv);
    h->binds.clear();
    return run(h, h->sql, true, cv, h->binds, nullptr, "insert", table);
}

int vqm_db_update(_vqm_db_handle_t* h, const char* table, vqm_db_content_values_t* cv, const char* where,
                  const vqm_db_param_t* params, int param_count, int) {
    if (!h || !table || !*table || !cv || cv->count == 0 || param_count < 0) return kRefused;
    if (int rc = fault_hook("update", "update", table)) return rc;
    std::string& sql = h->sql;
    sql.assign("UPDATE ");
    append_identifier(sql, table);
    sql += " SET ";
    for (size_t i = 0; i < cv->count; ++i) {
        if (i) sql += ',';
        append_identifier(sql, cv->slots[i].name.c_str());
        sql += "=?";
    }
    h->binds.clear();
    if (!add_condition(sql, where, h->binds, params, param_count)) return kRefused;
    return run(h, sql, false, cv, h->binds, nullptr, "update", table);
}

int vqm_db_delete(_vqm_db_handle_t* h, const char* table, const char* where, int, int, int) {
    if (!h || !table || !*table) return kRefused;
    if (int rc = fault_hook("delete", "delete", table)) return rc;
    std::string& sql = h->sql;
    sql.assign("DELETE FROM ");
    append_identifier(sql, table);
    h->binds.clear();
    if (!add_condition(sql, where, h->binds, nullptr, 0)) return kRefused;
    return run(h, sql, false, nullptr, h->binds, nullptr, "delete", table);
}

int vqm_db_query(_vqm_db_handle_t* h, const char* table, const char* const* columns, int column_count,
                 const char* where, void*, void*, void*, vqm_db_result_t** result) {
    if (result) *result = nullptr;
    if (!h || !table || !*table || !result) return kRefused;
    if (int rc = fault_hook("query", "query", table)) return rc;
    std::string& sql = h->sql;
    sql.assign("SELECT ");
    if (!columns || column_count <= 0) {
        sql += "*";
    } else {
        for (int i = 0; i < column_count; ++i) {
            if (!columns[i] || !*columns[i]) return kRefused;
            if (i) sql += ',';
            append_identifier(sql, columns[i]);
        }
    }
    sql += " FROM ";
    append_identifier(sql, table);
    h->binds.clear();
    if (!add_condition(sql, where, h->binds, nullptr, 0)) return kRefused;
    return run(h, sql, false, nullptr, h->binds, result, "query", table);
}

// `size` is the caller's buffer size: the text ends at its terminator or after `size` bytes.
int vqm_db_raw_query(_vqm_db_handle_t* h, const char* sql, int size, vqm_db_result_t** result) {
    if (result) *result = nullptr;
    if (!h || !sql) return kRefused;
    size_t len = size > 0 ? strnlen(sql, static_cast<size_t>(size)) : strlen(sql);
    std::string& lifted = h->sql;
    lifted.clear();
    h->binds.clear();
    size_t blank = 0;
    while (blank < len && strchr(" \t\r\n", sql[blank])) ++blank;
    if (blank == len || !lift_literals(sql, len, lifted, h->binds, nullptr, 0)) return kRefused;
    std::string op, table;
    raw_target(sql, len, op, table);
    if (int rc = fault_hook("raw", op.c_str(), table.c_str())) return rc;
    return run(h, lifted, false, nullptr, h->binds, result, op.c_str(), table.c_str());
}

int vqm_db_result_step(vqm_db_result_t* r) {
    if (!r) return -1;
    if (r->current + 1 < static_cast<long>(r->rows)) {
        ++r->current;
        return VQM_DB_ROW;
    }
    r->current = static_cast<long>(r->rows);
    return 0;
}

unsigned vqm_db_result_row_count(vqm_db_result_t* r) { return r ? static_cast<unsigned>(r->rows) : 0; }

// A 32-bit read also takes negative values of 32 bits: a key put with
// vqm_db_content_put_int reads back as the same unsigned key.
int vqm_db_result_column_uint(vqm_db_result_t* r, int column, uint32_t* out) {
    const value* v = cell(r, column);
    int64_t n;
    if (!v || !out || !cell_int64(*v, &n) || n < INT32_MIN || n > static_cast<int64_t>(UINT32_MAX))
        return kRefused;
    *out = static_cast<uint32_t>(n);
    return 0;
}

int vqm_db_result_column_short_uint(vqm_db_result_t* r, int column, uint16_t* out) {
    const value* v = cell(r, column);
    int64_t n;
    if (!v || !out || !cell_int64(*v, &n) || n < 0 || n > UINT16_MAX) return kRefused;
    *out = static_cast<uint16_t>(n);
    return 0;
}

int vqm_db_result_column_int64(vqm_db_result_t* r, int column, int64_t* out) {
    const value* v = cell(r, column);
    if (!v || !out || !cell_int64(*v, out)) return kRefused;
    return 0;
}

int vqm_db_result_column_text(vqm_db_result_t* r, int column, char* buffer, unsigned size) {
    const value* v = cell(r, column);
    if (!v || !buffer || size == 0 || v->type == SQLITE_NULL) return kRefused;
    std::string text;
    char num[64];
    if (v->type == SQLITE_INTEGER) {
        snprintf(num, sizeof num, "%lld", static_cast<long long>(v->i));
        text = num;
    } else if (v->type == SQLITE_FLOAT) {
        sqlite3_snprintf(sizeof num, num, "%!.15g", v->d);
        text = num;
    } else {
        text = v->s;
    }
    size_t n = text.size() < size - 1 ? text.size() : size - 1;
    memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
    return 0;
}

int vqm_db_result_column_blob(vqm_db_result_t* r, int column, void* buffer, unsigned size) {
    const value* v = cell(r, column);
    if (!v || (!buffer && size) || (v->type != SQLITE_BLOB && v->type != SQLITE_TEXT)) return kRefused;
    size_t n = v->s.size() < size ? v->s.size() : size;
    if (n) memcpy(buffer, v->s.data(), n);
    return 0;
}

void vqm_db_free_result(vqm_db_result_t* r) { delete r; }

int extract_str_column_from_result(vqm_db_result_t* r, const char* column, char* buffer, unsigned size) {
    if (!r || !column || !r->names) return kRefused;
    const std::vector<std::string>& names = *r->names;
    int found = -1;
    for (size_t i = 0; i < names.size() && found < 0; ++i) {
        if (names[i] == column) found = static_cast<int>(i);
    }
    for (size_t i = 0; i < names.size() && found < 0; ++i) {
        if (strcasecmp(names[i].c_str(), column) == 0) found = static_cast<int>(i);
    }
    if (found < 0) return kRefused;
    return vqm_db_result_column_text(r, found, buffer, size);
}

}  // extern "C"

namespace host {

_vqm_db_handle_t* db_open_file(const std::string& path, std::string* error) {
    return open_path(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, error);
}

int db_apply_schema(_vqm_db_handle_t* db, std::string* error) {
    return db_exec_script(db, inventory_schema_sql, error);
}

void set_database_dir(const std::string& dir) { database_dir_ref() = dir; }
const std::string& database_dir() { return database_dir_ref(); }

int db_select(_vqm_db_handle_t* db, const std::string& sql, std::vector<row>& rows, std::string* error) {
    rows.clear();
    if (!db) return kRefused;
    const statement* prepared = nullptr;
    int rc = prepare(db, sql, false, &prepared);
    if (rc != 0) {
        if (error) *error = rc == kRefused ? "not exactly one statement: " + sql : sqlite3_errmsg(db->db);
        return rc;
    }
    sqlite3_stmt* stmt = prepared->stmt;
    if (!sqlite3_stmt_readonly(stmt) || sqlite3_bind_parameter_count(stmt) != 0) {
        if (error) *error = "not a read-only statement without parameters: " + sql;
        return kRefused;
    }
    int ncols = sqlite3_column_count(stmt);
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
        row r;
        for (int c = 0; c < ncols; ++c) {
            const unsigned char* t = sqlite3_column_text(stmt, c);
            if (t) r[sqlite3_column_name(stmt, c)] = reinterpret_cast<const char*>(t);
        }
        rows.push_back(std::move(r));
    }
    if (rc == SQLITE_DONE) rc = 0;
    if (rc != 0 && error) *error = sqlite3_errmsg(db->db);
    sqlite3_reset(stmt);
    return rc;
}

int db_exec_script(_vqm_db_handle_t* db, const std::string& sql, std::string* error) {
    if (!db) return kRefused;
    commit(db);
    char* msg = nullptr;
    int rc = sqlite3_exec(db->db, sql.c_str(), nullptr, nullptr, &msg);
    if (rc != SQLITE_OK && error) *error = msg ? msg : sqlite3_errstr(rc);
    sqlite3_free(msg);
    return rc;
}

int db_commit(_vqm_db_handle_t* db) { return db ? commit(db) : kRefused; }

void db_set_batch_age(_vqm_db_handle_t* db, unsigned milliseconds) {
    if (db) db->batch_age = std::chrono::milliseconds(milliseconds);
}

void db_set_fault(const db_fault& fault) {
    faults().fault = fault;
    faults().count = 0;
    faults().calls.clear();
    faults().recording = true;
}

const std::vector<std::pair<std::string, std::string>>& db_calls() { return faults().calls; }

void db_fail_writes(_vqm_db_handle_t* db, const std::string& table, const std::string& op) {
    if (!db) return;
    if (table.empty()) {
        db->fail_rules.clear();
    } else {
        db->fail_rules.push_back({table, op});
    }
}

}  // namespace host
