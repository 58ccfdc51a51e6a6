// aimctl show --db DB TABLE [--format table|csv|json]: prints the rows of a table.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <nlohmann/json.hpp>

#include "host/db.h"
#include "tools/aimctl/command.h"

namespace aimctl {
namespace {

std::string sql_text(const std::string& s) {
    std::string out = "'";
    for (char c : s) out += c == '\'' ? std::string("''") : std::string(1, c);
    return out + "'";
}

std::string sql_identifier(const std::string& s) {
    std::string out = "\"";
    for (char c : s) out += c == '"' ? std::string("\"\"") : std::string(1, c);
    return out + "\"";
}

struct cell {
    std::string type;  // "integer", "real", "text", "blob" or "null"
    std::string text;
};

std::string csv_field(const cell& c) {
    if (c.type == "null") return "";
    if (c.text.find_first_of(",\"\r\n") == std::string::npos) return c.text;
    std::string out = "\"";
    for (char ch : c.text) out += ch == '"' ? std::string("\"\"") : std::string(1, ch);
    return out + "\"";
}

// Widest cell of the aligned table: a "VPDs" row with its raw image still fits a terminal.
const size_t kMaxCellWidth = 64;

// A cell as one line of the aligned table: control and non-ASCII bytes are written as \n, \t,
// \r or \xHH, so that a value read with its line feed (the AMD FRU tool's texts) keeps the
// table aligned; a cell wider than kMaxCellWidth is cut with "..." (never inside an escape).
std::string table_text(const cell& c) {
    if (c.type == "null") return "NULL";
    std::string out;
    size_t cut = std::string::npos;  // where "..." goes when the cell is too wide
    for (unsigned char ch : c.text) {
        char piece[8];
        if (ch == '\n') {
            snprintf(piece, sizeof piece, "\\n");
        } else if (ch == '\t') {
            snprintf(piece, sizeof piece, "\\t");
        } else if (ch == '\r') {
            snprintf(piece, sizeof piece, "\\r");
        } else if (ch < 0x20 || ch > 0x7E) {
            snprintf(piece, sizeof piece, "\\x%02X", static_cast<unsigned>(ch));
        } else {
            piece[0] = static_cast<char>(ch);
            piece[1] = '\0';
        }
        size_t len = strlen(piece);
        if (cut == std::string::npos && out.size() + len > kMaxCellWidth - 3) cut = out.size();
        out.append(piece, len);
        if (out.size() > kMaxCellWidth) break;
    }
    if (out.size() > kMaxCellWidth) {
        out.resize(cut);
        out += "...";
    }
    return out;
}

void print_table(const std::vector<std::string>& names, const std::vector<std::vector<cell>>& rows) {
    // Columns that are NULL in every row are left out: the adapter tables are wide and sparse.
    std::vector<size_t> shown;
    for (size_t c = 0; c < names.size(); ++c) {
        bool any = rows.empty();
        for (const auto& r : rows) any = any || r[c].type != "null";
        if (any) shown.push_back(c);
    }
    std::vector<std::vector<std::string>> texts;
    for (const auto& r : rows) {
        texts.emplace_back();
        for (const auto& v : r) texts.back().push_back(table_text(v));
    }
    std::vector<size_t> width(names.size());
    for (size_t c : shown) {
        width[c] = names[c].size();
        for (const auto& t : texts) width[c] = std::max(width[c], t[c].size());
    }
    auto line = [&](const std::vector<std::string>& texts) {
        std::string out;
        for (size_t i = 0; i < shown.size(); ++i) {
            size_t c = shown[i];
            out += texts[c];
            if (i + 1 < shown.size()) out += std::string(width[c] - texts[c].size() + 2, ' ');
        }
        printf("%s\n", out.c_str());
    };
    line(names);
    std::vector<std::string> rule(names.size());
    for (size_t c : shown) rule[c] = std::string(width[c], '-');
    line(rule);
    for (const auto& t : texts) line(t);
    printf("(%zu row%s)\n", rows.size(), rows.size() == 1 ? "" : "s");
}

void print_json(const std::vector<std::string>& names, const std::vector<std::vector<cell>>& rows) {
    nlohmann::ordered_json out = nlohmann::ordered_json::array();
    for (const auto& r : rows) {
        nlohmann::ordered_json obj = nlohmann::ordered_json::object();
        for (size_t c = 0; c < names.size(); ++c) {
            const cell& v = r[c];
            if (v.type == "null") {
                obj[names[c]] = nullptr;
            } else if (v.type == "integer") {
                obj[names[c]] = strtoll(v.text.c_str(), nullptr, 10);
            } else if (v.type == "real") {
                obj[names[c]] = strtod(v.text.c_str(), nullptr);
            } else {
                obj[names[c]] = v.text;
            }
        }
        out.push_back(obj);
    }
    printf("%s\n", out.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
}

int run_show(const std::vector<std::string>& args) {
    std::string path, table, format = "table";
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--db" || a == "--format") {
            if (i + 1 >= args.size()) return usage_error("show", a + " needs a value");
            (a == "--db" ? path : format) = args[++i];
        } else if (a.rfind("--format=", 0) == 0) {
            format = a.substr(9);
        } else if (a.size() > 1 && a[0] == '-') {
            return usage_error("show", "unknown option '" + a + "'");
        } else if (table.empty()) {
            table = a;
        } else {
            return usage_error("show", "unexpected argument '" + a + "'");
        }
    }
    if (path.empty()) return usage_error("show", "missing --db DB");
    if (table.empty()) return usage_error("show", "missing TABLE");
    if (format != "table" && format != "csv" && format != "json") {
        return usage_error("show", "unknown format '" + format + "' (use table, csv or json)");
    }
    _vqm_db_handle_t* db = open_database("show", path, true);
    if (!db) return exit_failed;
    std::string err;
    std::vector<host::row> info;
    int rc = host::db_select(db, "SELECT name FROM pragma_table_info(" + sql_text(table) + ") ORDER BY cid",
                             info, &err);
    if (rc == 0 && info.empty()) {
        std::vector<host::row> tables;
        host::db_select(db, "SELECT name FROM sqlite_master WHERE type='table' ORDER BY name", tables);
        std::string list;
        for (auto& t : tables) list += (list.empty() ? "" : ", ") + t["name"];
        vqm_db_close(db);
        return usage_error("show", "unknown table '" + table + "' (tables of " + path + ": " + list + ")");
    }
    std::vector<std::string> names;
    std::string sql = "SELECT ";
    bool has_id = false;
    for (size_t i = 0; i < info.size(); ++i) {
        names.push_back(info[i]["name"]);
        has_id = has_id || names.back() == "_id";
        std::string n = std::to_string(i), col = sql_identifier(names.back());
        sql += (i ? ", " : "") + std::string("typeof(") + col + ") AS t" + n + ", " + col + " AS v" + n;
    }
    sql += " FROM " + sql_identifier(table) + (has_id ? " ORDER BY \"_id\"" : "");
    std::vector<host::row> raw;
    if (rc == 0) rc = host::db_select(db, sql, raw, &err);
    vqm_db_close(db);
    if (rc != 0) {
        fprintf(stderr, "aimctl show: cannot read table '%s': %s\n", table.c_str(), err.c_str());
        return exit_failed;
    }
    std::vector<std::vector<cell>> rows;
    for (auto& r : raw) {
        std::vector<cell> out;
        for (size_t i = 0; i < names.size(); ++i) {
            std::string n = std::to_string(i);
            out.push_back({r["t" + n], r.count("v" + n) ? r["v" + n] : std::string()});
        }
        rows.push_back(std::move(out));
    }
    if (format == "json") {
        print_json(names, rows);
    } else if (format == "csv") {
        std::string header;
        for (size_t c = 0; c < names.size(); ++c) header += (c ? "," : "") + csv_field({"text", names[c]});
        printf("%s\n", header.c_str());
        for (const auto& r : rows) {
            std::string line;
            for (size_t c = 0; c < r.size(); ++c) line += (c ? "," : "") + csv_field(r[c]);
            printf("%s\n", line.c_str());
        }
    } else {
        print_table(names, rows);
    }
    return exit_ok;
}

}  // namespace

AIMCTL_COMMAND("show", "print the rows of a database table",
               "usage: aimctl show --db DB TABLE [--format table|csv|json]\n\n"
               "Prints every row of TABLE of the database DB in row id order.\n"
               "  table  aligned columns with a header and a row count (default); columns that\n"
               "         are NULL in every row are left out, other NULLs print as NULL; a value\n"
               "         wider than 64 characters is cut with \"...\"\n"
               "  csv    a header line, then one line per row with every column (whole); NULL is an\n"
               "         empty field, fields holding , \" or line breaks are quoted\n"
               "  json   an array of objects, one per row, every column with its stored type\n"
               "         (number, text or null)\n\n"
               "Exit status: 0 on success, 1 when DB cannot be read, 2 for bad arguments or an\n"
               "unknown table.\n",
               run_show);

}  // namespace aimctl
