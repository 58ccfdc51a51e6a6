// SQL text of the inventory database client: the condition and raw texts that the library
// writes in the controller's dialect, rewritten for SQLite.
//
// Dialect. "abc" and 'abc' are both string literals, 0x10DE is a number, identifiers are
// bare, in backquotes or in brackets. lift_literals() turns every literal into a "?" and
// its value (so "Classification=\"13\" AND HardwareId=5" becomes
// "Classification=? AND HardwareId=?" with '13' and 5), which makes the SQL text of a call
// depend only on its shape; numbers after a top-level GROUP BY / ORDER BY stay in place
// (they are column positions there). A text that could make SQLite run more than the one
// statement of a call is refused: anything but blanks after a semicolon, numbered or named
// parameters, an unterminated literal or quoted name, more or fewer "?" than the caller
// gave values for.
#pragma once

#include <sqlite3.h>
#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "platform/vqm_db.h"

namespace host {
namespace sql {

// One SQL value: of a lifted literal, a bound parameter or a result cell.
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

// A byte of a bare identifier (bytes of 0x80 and above included, as SQLite takes them).
bool ident_char(char c);

// Appends `name` to `out` as a quoted identifier (a quote inside it doubled).
void append_identifier(std::string& out, const char* name);

// Appends text[0, len) to `out` with every literal lifted into "?" and its value appended to
// `binds`; each "?" of the text takes the next of `params` (unsigned values only). False when
// the text cannot be used as one statement of the library (see above).
bool lift_literals(const char* text, size_t len, std::string& out, std::vector<value>& binds,
                   const vqm_db_param_t* params, int param_count);

// Appends " WHERE " and the lifted condition `where` to `sql`; a null condition adds nothing.
// A run of two or more "(Col <> ?) AND " terms on one column, as the library writes to
// leave out a set of keys, becomes one "(Col NOT IN (?,...)) AND " term. False for a
// condition of blanks only (a mistake, not "every row") or one that lift_literals refuses.
bool add_condition(std::string& sql, const char* where, std::vector<value>& binds,
                   const vqm_db_param_t* params, int param_count);

// The kind of a raw statement ("insert", "update", "delete", else "query") and, for a write,
// the table it names (lower case), for failure injection.
void raw_target(const char* sql, size_t len, std::string& op, std::string& table);

}  // namespace sql
}  // namespace host
