// Any bytes as the rows of the inventory tables that the Redfish service reads, in an
// in-memory SQLite database with the inventory schema; then every resource that the service
// lists must render (as valid JSON, but for $metadata's XML), every link in a resource must
// lead to a listed resource, and a crawl from the service root must end.
//
// Input: one row per line, "TABLE<TAB>COLUMN=VALUE<TAB>..." ("COLUMN" alone is NULL). A value
// that reads as a decimal integer in 64 bits is stored as an integer, any other as text (the
// bytes as they are, invalid UTF-8 included). Unknown tables and columns are skipped; rows
// that the schema refuses are left out.
#include <errno.h>
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>

#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "fuzz/harness.h"
#include "redfish/cache.h"
#include "redfish/service.h"

namespace {

std::string schema;

[[noreturn]] void finding(const std::string& uri, const std::string& what) {
    fprintf(stderr, "redfish_db: %s: %s\n", uri.c_str(), what.c_str());
    abort();
}

std::vector<std::string> split(const std::string& s, char sep) {
    std::vector<std::string> out;
    size_t start = 0;
    for (;;) {
        size_t end = s.find(sep, start);
        out.push_back(s.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos) return out;
        start = end + 1;
    }
}

bool integer(const std::string& v, sqlite3_int64& out) {
    if (v.empty() || v.size() > 20) return false;
    char* end = nullptr;
    errno = 0;
    long long n = strtoll(v.c_str(), &end, 10);
    if (errno || *end || (v[0] != '-' && (v[0] < '0' || v[0] > '9'))) return false;
    out = n;
    return true;
}

void insert(sqlite3* db, const std::string& line) {
    std::vector<std::string> fields = split(line, '\t');
    std::string table = fields[0], names, marks;
    if (table.empty() || table.find('"') != std::string::npos) return;
    std::vector<std::pair<bool, std::string>> values;  // (NULL, value)
    for (size_t i = 1; i < fields.size(); ++i) {
        size_t eq = fields[i].find('=');
        std::string column = fields[i].substr(0, eq);
        if (column.empty() || column.find('"') != std::string::npos) continue;
        names += std::string(names.empty() ? "" : ",") + "\"" + column + "\"";
        marks += marks.empty() ? "?" : ",?";
        values.emplace_back(eq == std::string::npos, eq == std::string::npos ? "" : fields[i].substr(eq + 1));
    }
    std::string sql = "INSERT INTO \"" + table + "\"" +
                      (names.empty() ? " DEFAULT VALUES" : "(" + names + ") VALUES(" + marks + ")");
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) return;  // no such table/column
    for (size_t i = 0; i < values.size(); ++i) {
        int at = static_cast<int>(i + 1);
        sqlite3_int64 n = 0;
        if (values[i].first)
            sqlite3_bind_null(stmt, at);
        else if (integer(values[i].second, n))
            sqlite3_bind_int64(stmt, at, n);
        else
            sqlite3_bind_text(stmt, at, values[i].second.data(), static_cast<int>(values[i].second.size()),
                              SQLITE_TRANSIENT);
    }
    sqlite3_step(stmt);
    sqlite3_finalize(stmt);
}

void links(const redfish::json& j, std::vector<std::string>& out) {
    if (j.is_object()) {
        for (auto it = j.begin(); it != j.end(); ++it) {
            if (it.key() == "@odata.id" && it.value().is_string())
                out.push_back(it.value().get<std::string>());
            links(it.value(), out);
        }
    } else if (j.is_array()) {
        for (const auto& v : j) links(v, out);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    schema = fuzz::source_file("schema/inventory.sql");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    sqlite3* db = nullptr;
    if (sqlite3_open(":memory:", &db) != SQLITE_OK ||
        sqlite3_exec(db, schema.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        fprintf(stderr, "redfish_db: no database: %s\n", sqlite3_errmsg(db));
        abort();
    }
    std::string input(reinterpret_cast<const char*>(data), size);
    size_t lines = 0;
    for (const std::string& line : split(input, '\n')) {
        if (++lines > 2000) break;  // bounded work per input
        insert(db, line);
    }
    redfish::snapshot snap;
    std::string error;
    if (!snap.read(db, error)) finding("(database)", "cannot be read: " + error);
    sqlite3_close(db);

    redfish::generation gen(std::move(snap));
    std::vector<std::string> listed = gen.resources().uris();
    std::set<std::string> known(listed.begin(), listed.end());
    if (known.size() != listed.size()) finding("(list)", "a URI is listed twice");
    // The crawl: from the root along every link, each resource once.
    std::set<std::string> seen;
    std::vector<std::pair<std::string, std::string>> pending = {{"/redfish/v1", ""}};  // (link, from)
    while (!pending.empty()) {
        std::string uri = pending.back().first, from = pending.back().second;
        pending.pop_back();
        if (!seen.insert(uri).second) continue;
        if (!known.count(uri)) finding(uri, "a link from " + from + " to a resource that is not listed");
        auto r = gen.get(uri);
        if (r->status != 200) finding(uri, "answers " + std::to_string(r->status));
        redfish::json j = redfish::json::parse(r->body, nullptr, false);
        if (j.is_discarded()) finding(uri, "not valid JSON");
        std::vector<std::string> to;
        links(j, to);
        for (std::string& t : to) pending.emplace_back(std::move(t), uri);
    }
    for (const std::string& uri : listed) {
        if (seen.count(uri)) continue;  // rendered and checked on the crawl
        auto r = gen.get(uri);
        bool json_text = r->content_type == "application/json";  // not $metadata's XML
        if (r->status != 200 || r->body.empty() ||
            (json_text && redfish::json::parse(r->body, nullptr, false).is_discarded()))
            finding(uri, "a listed resource that does not render");
    }
    return 0;
}
