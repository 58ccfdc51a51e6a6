// The inventory database as the Redfish service reads it: the adapter tables and "PCIs",
// read whole in one read transaction of a read-only connection, so that one answer sees
// one state of the database. Nothing here writes.
#pragma once

#include <stdint.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

struct sqlite3;

namespace redfish {

// One cell as SQLite stored it.
struct cell {
    enum kind_t { null, integer, real, text, blob } kind = null;
    int64_t i = 0;
    double d = 0;
    std::string s;  // text or blob bytes
};

struct table {
    std::vector<std::string> columns;
    std::vector<std::string> types;       // each column's declared type ("INTEGER", "TEXT", "")
    std::vector<std::vector<cell>> rows;  // in "_id" order
    int column(const char* name) const;   // -1 when the table has no such column
};

// One row of a table, read by column name.
class rec {
public:
    rec(const table& t, size_t row) : t_(&t), row_(row) {}
    // A text that says something: the cell's text (a number as decimal text) unless NULL,
    // empty, blank or "N/A".
    std::optional<std::string> text(const char* column) const;
    // An integer: an integer cell, or a text that is a whole decimal or "0x" number.
    std::optional<int64_t> number(const char* column) const;
    // The row id "_id".
    int64_t id() const { return number("_id").value_or(0); }
    // Every column that holds a value, as (name, cell) in table order.
    std::vector<std::pair<std::string, const cell*>> values() const;
    // The declared type of a column ("" when it has none or the table lacks it).
    const std::string& declared_type(const std::string& column) const;

private:
    const cell* at(const char* column) const;
    const table* t_;
    size_t row_;
};

// The tables of one read. A table that the database lacks reads as empty.
class snapshot {
public:
    static const char* const table_names[];
    // Reads every table of table_names from the SQLite database at `path`; false with the
    // reason in `error` when the database cannot be opened or read.
    bool read(const std::string& path, std::string& error);
    // The same from an open connection, in one read transaction of its own.
    bool read(sqlite3* db, std::string& error);
    const table& operator[](const std::string& name) const;
    // Every row of a table, as records.
    std::vector<rec> rows(const std::string& name) const;

private:
    std::map<std::string, table> tables_;
};

}  // namespace redfish
