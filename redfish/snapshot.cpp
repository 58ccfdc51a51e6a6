// Reading the inventory database for the Redfish service (see redfish/snapshot.h).
#include "redfish/snapshot.h"

#include <sqlite3.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

namespace redfish {

const char* const snapshot::table_names[] = {"PCIs",
                                             "PCIAdapter",
                                             "PCIMisc",
                                             "VPDs",
                                             "Firmwares",
                                             "PCINetwork",
                                             "PCIPhysicalPort",
                                             "PCIPhysicalPortStat",
                                             "PCILogicalPort",
                                             "PCIGPU",
                                             "PCIGPUChip",
                                             "AimDisks",
                                             "PldmDeviceFirmware",
                                             nullptr};

int table::column(const char* name) const {
    for (size_t i = 0; i < columns.size(); ++i) {
        if (columns[i] == name) return static_cast<int>(i);
    }
    return -1;
}

const cell* rec::at(const char* column) const {
    int c = t_->column(column);
    if (c < 0) return nullptr;
    const cell& v = t_->rows[row_][static_cast<size_t>(c)];
    return v.kind == cell::null ? nullptr : &v;
}

std::optional<std::string> rec::text(const char* column) const {
    const cell* v = at(column);
    if (!v) return std::nullopt;
    switch (v->kind) {
        case cell::integer:
            return std::to_string(v->i);
        case cell::real:
            return std::to_string(v->d);
        case cell::text: {
            if (v->s.find_first_not_of(" \t\r\n") == std::string::npos || v->s == "N/A") return std::nullopt;
            return v->s;
        }
        default:
            return std::nullopt;
    }
}

std::optional<int64_t> rec::number(const char* column) const {
    const cell* v = at(column);
    if (!v) return std::nullopt;
    if (v->kind == cell::integer) return v->i;
    if (v->kind != cell::text || v->s.empty()) return std::nullopt;
    const char* s = v->s.c_str();
    bool hex = s[0] == '0' && (s[1] == 'x' || s[1] == 'X');
    if (!hex && s[0] != '-' && (s[0] < '0' || s[0] > '9')) return std::nullopt;
    char* end = nullptr;
    long long n = strtoll(s, &end, hex ? 16 : 10);
    if (!end || *end != '\0') return std::nullopt;
    return static_cast<int64_t>(n);
}

std::vector<std::pair<std::string, const cell*>> rec::values() const {
    std::vector<std::pair<std::string, const cell*>> out;
    for (size_t c = 0; c < t_->columns.size(); ++c) {
        const cell& v = t_->rows[row_][c];
        if (v.kind != cell::null) out.emplace_back(t_->columns[c], &v);
    }
    return out;
}

const std::string& rec::declared_type(const std::string& column) const {
    static const std::string none;
    for (size_t c = 0; c < t_->columns.size(); ++c) {
        if (t_->columns[c] == column) return c < t_->types.size() ? t_->types[c] : none;
    }
    return none;
}

namespace {

struct closer {
    void operator()(sqlite3* db) const { sqlite3_close(db); }
};
struct finalizer {
    void operator()(sqlite3_stmt* s) const { sqlite3_finalize(s); }
};

// Reads one table whole; a missing table reads as empty.
bool read_table(sqlite3* db, const char* name, table& out, std::string& error) {
    std::string sql = std::string("SELECT * FROM \"") + name + "\" ORDER BY \"_id\"";
    sqlite3_stmt* raw = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &raw, nullptr) != SQLITE_OK) {
        std::string message = sqlite3_errmsg(db);
        if (message.rfind("no such table", 0) == 0) return true;
        error = message;
        return false;
    }
    std::unique_ptr<sqlite3_stmt, finalizer> stmt(raw);
    int columns = sqlite3_column_count(raw);
    for (int c = 0; c < columns; ++c) {
        out.columns.emplace_back(sqlite3_column_name(raw, c));
        const char* type = sqlite3_column_decltype(raw, c);
        out.types.emplace_back(type ? type : "");
    }
    int rc;
    while ((rc = sqlite3_step(raw)) == SQLITE_ROW) {
        std::vector<cell> row(static_cast<size_t>(columns));
        for (int c = 0; c < columns; ++c) {
            cell& v = row[static_cast<size_t>(c)];
            switch (sqlite3_column_type(raw, c)) {
                case SQLITE_INTEGER:
                    v.kind = cell::integer;
                    v.i = sqlite3_column_int64(raw, c);
                    break;
                case SQLITE_FLOAT:
                    v.kind = cell::real;
                    v.d = sqlite3_column_double(raw, c);
                    break;
                case SQLITE_TEXT:
                case SQLITE_BLOB: {
                    v.kind = sqlite3_column_type(raw, c) == SQLITE_TEXT ? cell::text : cell::blob;
                    const void* p = sqlite3_column_blob(raw, c);
                    int n = sqlite3_column_bytes(raw, c);
                    if (p && n > 0) v.s.assign(static_cast<const char*>(p), static_cast<size_t>(n));
                    break;
                }
                default:
                    break;
            }
        }
        out.rows.push_back(std::move(row));
    }
    if (rc != SQLITE_DONE) {
        error = sqlite3_errmsg(db);
        return false;
    }
    return true;
}

}  // namespace

bool snapshot::read(const std::string& path, std::string& error) {
    tables_.clear();
    sqlite3* raw = nullptr;
    // Read-only, and never created: a missing file is an error, not an empty database.
    int rc = sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
    std::unique_ptr<sqlite3, closer> db(raw);
    if (rc != SQLITE_OK) {
        error = raw ? sqlite3_errmsg(raw) : "out of memory";
        return false;
    }
    sqlite3_busy_timeout(raw, 2000);
    return read(raw, error);
}

bool snapshot::read(sqlite3* db, std::string& error) {
    tables_.clear();
    if (sqlite3_exec(db, "PRAGMA query_only=1; BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK) {
        error = sqlite3_errmsg(db);
        return false;
    }
    for (const char* const* name = table_names; *name; ++name) {
        if (!read_table(db, *name, tables_[*name], error)) {
            tables_.clear();
            sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
            return false;
        }
    }
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    return true;
}

const table& snapshot::operator[](const std::string& name) const {
    static const table empty;
    auto it = tables_.find(name);
    return it == tables_.end() ? empty : it->second;
}

std::vector<rec> snapshot::rows(const std::string& name) const {
    const table& t = (*this)[name];
    std::vector<rec> out;
    out.reserve(t.rows.size());
    for (size_t r = 0; r < t.rows.size(); ++r) out.emplace_back(t, r);
    return out;
}

}  // namespace redfish
