// Inventory database client over SQLite: the vqm_db_* calls of the library and the
// host-only calls of host/db.h.
//
// Statements. Every library call runs exactly one SQL statement that the client builds from
// the table, the column names (quoted as identifiers) and the caller's condition or raw
// text. A condition or raw text that holds a second statement, or parameters of its own
// (other than the "?" of an update), is refused with a non-zero code before anything runs.
//
// Dialect. Condition and raw texts are written in the controller's database dialect:
// "abc" and 'abc' are both string literals, 0x10DE is a number, identifiers are bare or
// in backquotes. The client lifts every literal of such a text into a bound parameter
// before SQLite sees it ("Classification=\"13\" AND HardwareId=5" runs as
// "Classification=? AND HardwareId=?" with '13' and 5 bound), so a double-quoted text is
// always a string, even when a column of the same name exists, and double-quoted
// identifiers are switched off (SQLITE_DBCONFIG_DQS_*). Numbers after a top-level
// GROUP BY / ORDER BY stay in place (they are column positions there).
//
// Speed. Lifting the literals makes the SQL text of a call depend only on its shape, so
// prepared statements are cached by that text and one run prepares each shape once.
// Writes run inside a transaction that the client opens on the first write and commits
// after kBatchWrites writes, after kBatchAge of age (checked at the next call), before a
// host script, and in vqm_db_close; reads on the same handle see the uncommitted rows.
// File databases use WAL journaling with synchronous=NORMAL: a commit is durable against
// a crash of the process and costs no fsync. So a run costs about what the same inserts
// cost in one transaction, and everything is committed when vqm_db_close returns.
#include <ctype.h>
#include <errno.h>
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <chrono>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/db.h"
#include "host/inventory_schema.h"
#include "platform/kora_log.h"
#include "platform/vqm_db.h"

namespace {

// Codes of the client itself (SQLite's own codes are passed on as they are).
const int kRefused = -1;             // bad arguments, a second statement, stray parameters
const int kInjected = SQLITE_IOERR;  // a write failed on purpose (host::db_fail_writes)

const unsigned kBatchWrites = 1000;
const std::chrono::milliseconds kBatchAge(200);
const size_t kStatementCacheSize = 256;

struct value {
    int type = SQLITE_NULL;  // SQLITE_INTEGER, SQLITE_FLOAT, SQLITE_TEXT, SQLITE_BLOB or SQLITE_NULL
    int64_t i = 0;
    double d = 0;
    std::string s;  // text or blob bytes

    static value integer(int64_t v) {
        value x;
        x.type = SQLITE_INTEGER;
        x.i = v;
        return x;
    }
    static value text(std::string v) {
        value x;
        x.type = SQLITE_TEXT;
        x.s = std::move(v);
        return x;
    }
};

struct fail_rule {
    std::string table;  // "*" for every table
    std::string op;     // "insert", "update", "delete", "query", or "" for every write
};

}  // namespace

struct vqm_db_content_values {
    std::vector<std::pair<std::string, value>> columns;
};

struct vqm_db_result {
    std::vector<std::string> names;
    std::vector<std::vector<value>> rows;
    long current = -1;  // index of the row read by the column calls; -1 before the first step
};

struct _vqm_db_handle {
    sqlite3* db = nullptr;
    std::unordered_map<std::string, sqlite3_stmt*> statements;
    bool own_transaction = false;
    unsigned pending_writes = 0;
    std::chrono::steady_clock::time_point transaction_start;
    std::vector<fail_rule> fail_rules;
};

namespace {

std::string quote_identifier(const char* name) {
    std::string out = "\"";
    for (const char* p = name; *p; ++p) {
        if (*p == '"') out += '"';
        out += *p;
    }
    out += '"';
    return out;
}

bool ident_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           (static_cast<unsigned char>(c) >= 0x80);
}

bool digit(char c) {
    return c >= '0' && c <= '9';
}
bool hex_digit(char c) {
    return digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Rewrites a condition or raw text of the library: every literal becomes "?" with its value
// appended to `binds`; each "?" of the text takes the next of `params`. False when the text
// cannot be used (unterminated literal, numbered or named parameters, wrong parameter count).
bool lift_literals(const char* text, size_t len, std::string& out, std::vector<value>& binds,
                   const vqm_db_param_t* params, int param_count) {
    int used = 0;
    int depth = 0;
    int no_lift_depth = -1;  // numbers stay in place inside a GROUP BY / ORDER BY at this depth
    std::string prev_word;
    size_t i = 0;
    while (i < len) {
        char c = text[i];
        if (c == '\'' || c == '"') {
            std::string s;
            size_t j = i + 1;
            bool closed = false;
            while (j < len) {
                if (text[j] == c) {
                    if (j + 1 < len && text[j + 1] == c) {
                        s += c;
                        j += 2;
                        continue;
                    }
                    closed = true;
                    break;
                }
                s += text[j++];
            }
            if (!closed) return false;
            out += '?';
            binds.push_back(value::text(std::move(s)));
            i = j + 1;
        } else if (c == '`' || c == '[') {
            char close = c == '`' ? '`' : ']';
            size_t j = i + 1;
            while (j < len && text[j] != close) ++j;
            if (j >= len) return false;
            out.append(text + i, j + 1 - i);
            i = j + 1;
        } else if (c == '-' && i + 1 < len && text[i + 1] == '-') {
            size_t j = i;
            while (j < len && text[j] != '\n') ++j;
            out.append(text + i, j - i);
            i = j;
        } else if (c == '/' && i + 1 < len && text[i + 1] == '*') {
            size_t j = i + 2;
            while (j + 1 < len && !(text[j] == '*' && text[j + 1] == '/')) ++j;
            j = j + 1 < len ? j + 2 : len;
            out.append(text + i, j - i);
            i = j;
        } else if (digit(c) || (c == '.' && i + 1 < len && digit(text[i + 1]))) {
            size_t j = i;
            bool hex = c == '0' && i + 2 < len && (text[i + 1] == 'x' || text[i + 1] == 'X') &&
                       hex_digit(text[i + 2]);
            bool real = false;
            if (hex) {
                j += 2;
                while (j < len && hex_digit(text[j])) ++j;
            } else {
                while (j < len && digit(text[j])) ++j;
                if (j < len && text[j] == '.') {
                    real = true;
                    ++j;
                    while (j < len && digit(text[j])) ++j;
                }
                if (j < len && (text[j] == 'e' || text[j] == 'E')) {
                    size_t k = j + 1;
                    if (k < len && (text[k] == '+' || text[k] == '-')) ++k;
                    if (k < len && digit(text[k])) {
                        real = true;
                        j = k;
                        while (j < len && digit(text[j])) ++j;
                    }
                }
            }
            std::string token(text + i, j - i);
            bool lifted = false;
            if (no_lift_depth < 0 && (j >= len || !ident_char(text[j]))) {
                errno = 0;
                char* end = nullptr;
                if (real) {
                    double d = strtod(token.c_str(), &end);
                    if (*end == '\0') {
                        value v;
                        v.type = SQLITE_FLOAT;
                        v.d = d;
                        binds.push_back(v);
                        lifted = true;
                    }
                } else if (hex) {
                    // A hexadecimal literal is a 64-bit pattern, as SQLite reads it.
                    if (token.size() - 2 <= 16) {
                        binds.push_back(
                            value::integer(static_cast<int64_t>(strtoull(token.c_str() + 2, &end, 16))));
                        lifted = true;
                    }
                } else {
                    long long v = strtoll(token.c_str(), &end, 10);
                    if (errno == 0 && *end == '\0') {
                        binds.push_back(value::integer(v));
                        lifted = true;
                    }
                }
            }
            if (lifted) {
                out += '?';
            } else {
                out += token;
            }
            i = j;
        } else if (ident_char(c)) {
            size_t j = i;
            while (j < len && ident_char(text[j])) ++j;
            std::string word(text + i, j - i);
            if ((word == "x" || word == "X") && j < len && text[j] == '\'') {
                // Blob literal x'..': kept as it is.
                size_t k = j + 1;
                while (k < len && text[k] != '\'') ++k;
                if (k >= len) return false;
                out.append(text + i, k + 1 - i);
                i = k + 1;
                continue;
            }
            if (strcasecmp(word.c_str(), "BY") == 0 &&
                (strcasecmp(prev_word.c_str(), "GROUP") == 0 ||
                 strcasecmp(prev_word.c_str(), "ORDER") == 0) &&
                no_lift_depth < 0) {
                no_lift_depth = depth;
            }
            prev_word = word;
            out += word;
            i = j;
        } else if (c == '?') {
            if (i + 1 < len && digit(text[i + 1])) return false;
            if (used >= param_count || !params) return false;
            const vqm_db_param_t& p = params[used++];
            if (p.type != VQM_DB_PARAM_UINT) return false;
            binds.push_back(value::integer(p.value));
            out += '?';
            ++i;
        } else if ((c == ':' || c == '@' || c == '$' || c == '#') && i + 1 < len && ident_char(text[i + 1])) {
            return false;  // named parameters are not the library's
        } else if (c == ';') {
            // Only blanks may follow a semicolon: one statement per call, and no empty one before it.
            for (size_t k = i + 1; k < len; ++k) {
                if (!strchr(" \t\r\n", text[k])) return false;
            }
            out += c;
            ++i;
        } else {
            if (c == '(') ++depth;
            if (c == ')') {
                --depth;
                if (no_lift_depth >= 0 && depth < no_lift_depth) no_lift_depth = -1;
            }
            out += c;
            ++i;
        }
    }
    return used == param_count;
}

void log_sql_error(_vqm_db_handle_t* h, const std::string& sql, int rc) {
    kora_log::logDbg("vqm_db: rc=%d (%s) for: %s", rc, sqlite3_errmsg(h->db), sql.c_str());
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
                               std::chrono::steady_clock::now() - h->transaction_start >= kBatchAge)) {
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

void clear_statements(_vqm_db_handle_t* h) {
    for (auto& s : h->statements) sqlite3_finalize(s.second);
    h->statements.clear();
}

// Prepares `sql` (from the cache when it was prepared before). Refuses a text that holds
// more than one statement.
int prepare(_vqm_db_handle_t* h, const std::string& sql, sqlite3_stmt** out) {
    auto it = h->statements.find(sql);
    if (it != h->statements.end()) {
        *out = it->second;
        return 0;
    }
    sqlite3_stmt* stmt = nullptr;
    const char* tail = nullptr;
    int rc = sqlite3_prepare_v3(h->db, sql.c_str(), static_cast<int>(sql.size() + 1),
                                SQLITE_PREPARE_PERSISTENT, &stmt, &tail);
    if (rc != SQLITE_OK) {
        log_sql_error(h, sql, rc);
        sqlite3_finalize(stmt);
        return rc;
    }
    while (tail && *tail && strchr(" \t\r\n\f\v", *tail)) ++tail;
    if (!stmt || (tail && *tail)) {
        kora_log::logDbg("vqm_db: refused, not exactly one statement: %s", sql.c_str());
        sqlite3_finalize(stmt);
        return kRefused;
    }
    if (h->statements.size() >= kStatementCacheSize) clear_statements(h);
    h->statements[sql] = stmt;
    *out = stmt;
    return 0;
}

int bind_value(sqlite3_stmt* stmt, int index, const value& v) {
    switch (v.type) {
        case SQLITE_INTEGER:
            return sqlite3_bind_int64(stmt, index, v.i);
        case SQLITE_FLOAT:
            return sqlite3_bind_double(stmt, index, v.d);
        case SQLITE_TEXT:
            return sqlite3_bind_text(stmt, index, v.s.data(), static_cast<int>(v.s.size()), SQLITE_TRANSIENT);
        case SQLITE_BLOB:
            return sqlite3_bind_blob(stmt, index, v.s.data(), static_cast<int>(v.s.size()), SQLITE_TRANSIENT);
        default:
            return sqlite3_bind_null(stmt, index);
    }
}

value read_cell(sqlite3_stmt* stmt, int col) {
    value v;
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
    return v;
}

bool injected_failure(_vqm_db_handle_t* h, const char* op, const std::string& table) {
    bool write = strcmp(op, "query") != 0;
    for (const auto& r : h->fail_rules) {
        bool table_match = r.table == "*" || strcasecmp(r.table.c_str(), table.c_str()) == 0;
        bool op_match = r.op == op || (r.op.empty() && write);
        if (table_match && op_match) return true;
    }
    return false;
}

// Runs one statement: binds `binds` in order, steps it to the end and, when `result` is
// given and the statement has columns, collects its rows into a new result object.
// `op` and `table` name the call for failure injection ("" table: not known).
int run(_vqm_db_handle_t* h, const std::string& sql, const std::vector<value>& binds,
        vqm_db_result_t** result, const char* op, const std::string& table) {
    if (injected_failure(h, op, table)) return kInjected;
    maybe_commit(h);
    sqlite3_stmt* stmt = nullptr;
    int rc = prepare(h, sql, &stmt);
    if (rc != 0) return rc;
    if (sqlite3_bind_parameter_count(stmt) != static_cast<int>(binds.size())) {
        kora_log::logDbg("vqm_db: refused, %d parameters for %zu values: %s",
                         sqlite3_bind_parameter_count(stmt), binds.size(), sql.c_str());
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
    for (size_t i = 0; i < binds.size(); ++i) {
        rc = bind_value(stmt, static_cast<int>(i + 1), binds[i]);
        if (rc != SQLITE_OK) {
            sqlite3_clear_bindings(stmt);
            return rc;
        }
    }
    vqm_db_result_t* res = nullptr;
    int ncols = sqlite3_column_count(stmt);
    if (result && ncols > 0) {
        res = new vqm_db_result_t;
        for (int c = 0; c < ncols; ++c) {
            const char* n = sqlite3_column_name(stmt, c);
            res->names.push_back(n ? n : "");
        }
    }
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
        if (!res) continue;
        std::vector<value> row;
        row.reserve(static_cast<size_t>(ncols));
        for (int c = 0; c < ncols; ++c) row.push_back(read_cell(stmt, c));
        res->rows.push_back(std::move(row));
    }
    if (rc == SQLITE_DONE) rc = 0;
    if (rc != 0) log_sql_error(h, sql, rc);
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

// Lifts a condition text, appending " WHERE ..." to `sql`. A null condition adds nothing.
bool add_condition(std::string& sql, const char* where, std::vector<value>& binds,
                   const vqm_db_param_t* params, int param_count) {
    if (!where) return param_count == 0;
    size_t len = strlen(where);
    if (strspn(where, " \t\r\n") == len) return false;  // an empty condition is a mistake, not "every row"
    sql += " WHERE ";
    return lift_literals(where, len, sql, binds, params, param_count);
}

void configure(_vqm_db_handle_t* h, bool file) {
    sqlite3_busy_timeout(h->db, 5000);
    sqlite3_db_config(h->db, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
    sqlite3_db_config(h->db, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
    if (file) {
        sqlite3_exec(h->db, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr);
        sqlite3_exec(h->db, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
    }
}

_vqm_db_handle_t* open_path(const std::string& path, int flags, std::string* error) {
    sqlite3* db = nullptr;
    int rc = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
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
    if (!r || r->current < 0 || static_cast<size_t>(r->current) >= r->rows.size()) return nullptr;
    const std::vector<value>& row = r->rows[static_cast<size_t>(r->current)];
    if (column < 0 || static_cast<size_t>(column) >= row.size()) return nullptr;
    return &row[static_cast<size_t>(column)];
}

int put(vqm_db_content_values_t* cv, const char* column, value v) {
    if (!cv || !column || !*column) return kRefused;
    for (auto& c : cv->columns) {
        // Putting a column again replaces its value (SQLite column names ignore case).
        if (strcasecmp(c.first.c_str(), column) == 0) {
            c.second = std::move(v);
            return 0;
        }
    }
    cv->columns.emplace_back(column, std::move(v));
    return 0;
}

// First word of `sql` and the table that a raw write names, for failure injection.
void raw_target(const char* sql, size_t len, std::string& op, std::string& table) {
    std::vector<std::string> words;
    size_t i = 0;
    while (i < len && words.size() < 4) {
        while (i < len && !ident_char(sql[i]) && sql[i] != '"' && sql[i] != '`' && sql[i] != '[') ++i;
        size_t j = i;
        if (j < len && (sql[j] == '"' || sql[j] == '`' || sql[j] == '[')) ++j;
        while (j < len && ident_char(sql[j])) ++j;
        std::string w(sql + i, j - i);
        if (!w.empty() && (w[0] == '"' || w[0] == '`' || w[0] == '[')) w.erase(0, 1);
        for (auto& ch : w) ch = static_cast<char>(tolower(static_cast<unsigned char>(ch)));
        words.push_back(w);
        i = j + 1;
    }
    op = words.empty() ? "" : words[0];
    table.clear();
    if (op == "delete" && words.size() > 2) table = words[2];
    if (op == "insert" && words.size() > 2) table = words[2];
    if (op == "update" && words.size() > 1) table = words[1];
    if (op != "delete" && op != "insert" && op != "update") op = "query";
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
    clear_statements(h);
    sqlite3_close_v2(h->db);
    delete h;
}

vqm_db_content_values_t* vqm_db_get_content_values(void) {
    return new vqm_db_content_values_t;
}
void vqm_db_free_content_values(vqm_db_content_values_t* cv) {
    delete cv;
}
void vqm_db_content_clear(vqm_db_content_values_t* cv) {
    if (cv) cv->columns.clear();
}

int vqm_db_content_put_text(vqm_db_content_values_t* cv, const char* column, const char* text) {
    return put(cv, column, text ? value::text(text) : value());
}
int vqm_db_content_put_uint(vqm_db_content_values_t* cv, const char* column, uint32_t v) {
    return put(cv, column, value::integer(v));
}
int vqm_db_content_put_int(vqm_db_content_values_t* cv, const char* column, int32_t v) {
    return put(cv, column, value::integer(v));
}
// SQLite integers are signed 64-bit: values above INT64_MAX are stored as their two's
// complement and read back unchanged through vqm_db_result_column_int64.
int vqm_db_content_put_uint64(vqm_db_content_values_t* cv, const char* column, uint64_t v) {
    return put(cv, column, value::integer(static_cast<int64_t>(v)));
}
int vqm_db_content_put_uchar(vqm_db_content_values_t* cv, const char* column, uint8_t v) {
    return put(cv, column, value::integer(v));
}

int vqm_db_insert(_vqm_db_handle_t* h, const char* table, vqm_db_content_values_t* cv, int, int) {
    if (!h || !table || !*table || !cv) return kRefused;
    std::string sql = "INSERT INTO " + quote_identifier(table);
    std::vector<value> binds;
    if (cv->columns.empty()) {
        sql += " DEFAULT VALUES";
    } else {
        std::string names, marks;
        for (const auto& c : cv->columns) {
            if (!names.empty()) {
                names += ",";
                marks += ",";
            }
            names += quote_identifier(c.first.c_str());
            marks += "?";
            binds.push_back(c.second);
        }
        sql += " (" + names + ") VALUES (" + marks + ")";
    }
    return run(h, sql, binds, nullptr, "insert", table);
}

int vqm_db_update(_vqm_db_handle_t* h, const char* table, vqm_db_content_values_t* cv, const char* where,
                  const vqm_db_param_t* params, int param_count, int) {
    if (!h || !table || !*table || !cv || cv->columns.empty() || param_count < 0) return kRefused;
    std::string sql = "UPDATE " + quote_identifier(table) + " SET ";
    std::vector<value> binds;
    for (size_t i = 0; i < cv->columns.size(); ++i) {
        if (i) sql += ",";
        sql += quote_identifier(cv->columns[i].first.c_str()) + "=?";
        binds.push_back(cv->columns[i].second);
    }
    if (!add_condition(sql, where, binds, params, param_count)) return kRefused;
    return run(h, sql, binds, nullptr, "update", table);
}

int vqm_db_delete(_vqm_db_handle_t* h, const char* table, const char* where, int, int, int) {
    if (!h || !table || !*table) return kRefused;
    std::string sql = "DELETE FROM " + quote_identifier(table);
    std::vector<value> binds;
    if (!add_condition(sql, where, binds, nullptr, 0)) return kRefused;
    return run(h, sql, binds, nullptr, "delete", table);
}

int vqm_db_query(_vqm_db_handle_t* h, const char* table, const char* const* columns, int column_count,
                 const char* where, void*, void*, void*, vqm_db_result_t** result) {
    if (result) *result = nullptr;
    if (!h || !table || !*table || !result) return kRefused;
    std::string sql = "SELECT ";
    if (!columns || column_count <= 0) {
        sql += "*";
    } else {
        for (int i = 0; i < column_count; ++i) {
            if (!columns[i] || !*columns[i]) return kRefused;
            if (i) sql += ",";
            sql += quote_identifier(columns[i]);
        }
    }
    sql += " FROM " + quote_identifier(table);
    std::vector<value> binds;
    if (!add_condition(sql, where, binds, nullptr, 0)) return kRefused;
    return run(h, sql, binds, result, "query", table);
}

// `size` is the caller's buffer size: the text ends at its terminator or after `size` bytes.
int vqm_db_raw_query(_vqm_db_handle_t* h, const char* sql, int size, vqm_db_result_t** result) {
    if (result) *result = nullptr;
    if (!h || !sql) return kRefused;
    size_t len = size > 0 ? strnlen(sql, static_cast<size_t>(size)) : strlen(sql);
    std::string lifted;
    std::vector<value> binds;
    size_t blank = 0;
    while (blank < len && strchr(" \t\r\n", sql[blank])) ++blank;
    if (blank == len || !lift_literals(sql, len, lifted, binds, nullptr, 0)) return kRefused;
    std::string op, table;
    raw_target(sql, len, op, table);
    return run(h, lifted, binds, result, op.c_str(), table);
}

int vqm_db_result_step(vqm_db_result_t* r) {
    if (!r) return -1;
    if (r->current + 1 < static_cast<long>(r->rows.size())) {
        ++r->current;
        return VQM_DB_ROW;
    }
    r->current = static_cast<long>(r->rows.size());
    return 0;
}

unsigned vqm_db_result_row_count(vqm_db_result_t* r) {
    return r ? static_cast<unsigned>(r->rows.size()) : 0;
}

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

void vqm_db_free_result(vqm_db_result_t* r) {
    delete r;
}

int extract_str_column_from_result(vqm_db_result_t* r, const char* column, char* buffer, unsigned size) {
    if (!r || !column) return kRefused;
    int found = -1;
    for (size_t i = 0; i < r->names.size() && found < 0; ++i) {
        if (r->names[i] == column) found = static_cast<int>(i);
    }
    for (size_t i = 0; i < r->names.size() && found < 0; ++i) {
        if (strcasecmp(r->names[i].c_str(), column) == 0) found = static_cast<int>(i);
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

void set_database_dir(const std::string& dir) {
    database_dir_ref() = dir;
}
const std::string& database_dir() {
    return database_dir_ref();
}

int db_select(_vqm_db_handle_t* db, const std::string& sql, std::vector<row>& rows, std::string* error) {
    rows.clear();
    if (!db) return kRefused;
    sqlite3_stmt* stmt = nullptr;
    int rc = prepare(db, sql, &stmt);
    if (rc != 0) {
        if (error) *error = rc == kRefused ? "not exactly one statement: " + sql : sqlite3_errmsg(db->db);
        return rc;
    }
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

int db_commit(_vqm_db_handle_t* db) {
    return db ? commit(db) : kRefused;
}

void db_fail_writes(_vqm_db_handle_t* db, const std::string& table, const std::string& op) {
    if (!db) return;
    if (table.empty()) {
        db->fail_rules.clear();
    } else {
        db->fail_rules.push_back({table, op});
    }
}

}  // namespace host
