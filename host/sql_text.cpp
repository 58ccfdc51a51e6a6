// Rewriting of the client's condition and raw texts (see host/sql_text.h).
#include "host/sql_text.h"

#include <ctype.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

namespace host {
namespace sql {

// Appends `name` to `out` as a quoted identifier (a quote inside it doubled).
void append_identifier(std::string& out, const char* name) {
    out += '"';
    for (const char* p = name;;) {
        size_t n = strcspn(p, "\"");
        out.append(p, n);
        if (!p[n]) break;
        out += "\"\"";
        p += n + 1;
    }
    out += '"';
}

bool ident_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           (static_cast<unsigned char>(c) >= 0x80);
}

namespace {

bool digit(char c) { return c >= '0' && c <= '9'; }
bool hex_digit(char c) { return digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

// True when the word text[0, len) is the literal `keyword`, ignoring case.
template <size_t N>
bool word_is(const char* text, size_t len, const char (&keyword)[N]) {
    return len == N - 1 && strncasecmp(text, keyword, len) == 0;
}

// Converts the number token text[0, len) into `v` the way SQLite reads such a literal;
// false when it does not convert (an integer out of the 64-bit range stays in the text).
bool number_value(const char* text, size_t len, bool hex, bool real, value& v) {
    char small[64];
    std::string large;
    const char* token = small;
    if (len < sizeof small) {
        memcpy(small, text, len);
        small[len] = '\0';
    } else {
        large.assign(text, len);
        token = large.c_str();
    }
    errno = 0;
    char* end = nullptr;
    if (real) {
        v.type = SQLITE_FLOAT;
        v.d = strtod(token, &end);
        return *end == '\0';
    }
    if (hex) {
        // A hexadecimal literal is a 64-bit pattern, as SQLite reads it.
        if (len - 2 > 16) return false;
        v = value::integer(static_cast<int64_t>(strtoull(token + 2, &end, 16)));
        return true;
    }
    long long n = strtoll(token, &end, 10);
    if (errno != 0 || *end != '\0') return false;
    v = value::integer(n);
    return true;
}

}  // namespace

// Rewrites a condition or raw text of the library: every literal becomes "?" with its value
// appended to `binds`; each "?" of the text takes the next of `params`. False when the text
// cannot be used (unterminated literal, numbered or named parameters, wrong parameter count).
bool lift_literals(const char* text, size_t len, std::string& out, std::vector<value>& binds,
                   const vqm_db_param_t* params, int param_count) {
    int used = 0;
    int depth = 0;
    int no_lift_depth = -1;  // numbers stay in place inside a GROUP BY / ORDER BY at this depth
    const char* prev_word = "";
    size_t prev_len = 0;
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
            value v;
            if (no_lift_depth < 0 && (j >= len || !ident_char(text[j])) &&
                number_value(text + i, j - i, hex, real, v)) {
                binds.push_back(std::move(v));
                out += '?';
            } else {
                out.append(text + i, j - i);
            }
            i = j;
        } else if (ident_char(c)) {
            size_t j = i;
            while (j < len && ident_char(text[j])) ++j;
            const char* word = text + i;
            size_t word_len = j - i;
            if (word_is(word, word_len, "x") && j < len && text[j] == '\'') {
                // Blob literal x'..': kept as it is.
                size_t k = j + 1;
                while (k < len && text[k] != '\'') ++k;
                if (k >= len) return false;
                out.append(text + i, k + 1 - i);
                i = k + 1;
                continue;
            }
            if (word_is(word, word_len, "BY") &&
                (word_is(prev_word, prev_len, "GROUP") || word_is(prev_word, prev_len, "ORDER")) &&
                no_lift_depth < 0) {
                no_lift_depth = depth;
            }
            prev_word = word;
            prev_len = word_len;
            out.append(word, word_len);
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

namespace {

bool blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

size_t skip_blanks(const std::string& s, size_t i) {
    while (i < s.size() && blank(s[i])) ++i;
    return i;
}

// Matches one lifted term "(Col <> ?) AND " at `i` (blanks allowed between its tokens). On a
// match sets the column's position and length and returns the position after the term; 0
// otherwise.
size_t not_equal_term(const std::string& s, size_t i, size_t& col, size_t& col_len) {
    if (i >= s.size() || s[i] != '(') return 0;
    i = skip_blanks(s, i + 1);
    col = i;
    while (i < s.size() && ident_char(s[i])) ++i;
    col_len = i - col;
    if (col_len == 0 || digit(s[col])) return 0;
    i = skip_blanks(s, i);
    if (s.compare(i, 2, "<>") != 0) return 0;
    i = skip_blanks(s, i + 2);
    if (i >= s.size() || s[i] != '?') return 0;
    i = skip_blanks(s, i + 1);
    if (i >= s.size() || s[i] != ')') return 0;
    size_t and_at = skip_blanks(s, i + 1);
    if (and_at == i + 1 || s.compare(and_at, 3, "AND") != 0) return 0;
    size_t end = skip_blanks(s, and_at + 3);
    return end == and_at + 3 ? 0 : end;
}

// True when a term at `i` is a whole operand of the AND chain it starts: it stands first in
// the condition, right after an opening parenthesis or right after "AND" (after NOT or a
// comparison it would be an operand of those instead).
bool starts_conjunct(const std::string& s, size_t from, size_t i) {
    size_t j = i;
    while (j > from && blank(s[j - 1])) --j;
    if (j == from || s[j - 1] == '(') return true;
    return j >= from + 4 && !ident_char(s[j - 4]) && s.compare(j - 3, 3, "AND") == 0 && j < i;
}

// The library leaves out a set of keys with a run of "(Col <> k) AND " terms, one per key
// (the functions that the AIM file covered, for instance). SQLite would test every row
// against every term, which grows with the square of the keys, and refuses expressions
// deeper than 1000 terms; so a run of two or more such terms on one column becomes one
// "(Col NOT IN (?,...)) AND " test, which SQLite answers from a sorted list. The parameters
// keep their order, and a NULL column or a NULL key leaves a row out as the terms did.
void collapse_not_equal_runs(std::string& sql, size_t from) {
    std::string out;
    size_t i = from;
    size_t copied = 0;
    while (i < sql.size()) {
        size_t col = 0, col_len = 0;
        size_t next = starts_conjunct(sql, from, i) ? not_equal_term(sql, i, col, col_len) : 0;
        size_t run = 0;
        size_t end = i;
        while (next != 0) {
            ++run;
            end = next;
            size_t c2 = 0, l2 = 0;
            next = not_equal_term(sql, end, c2, l2);
            if (next != 0 && sql.compare(c2, l2, sql, col, col_len) != 0) next = 0;
        }
        if (run < 2) {
            ++i;
            continue;
        }
        out.append(sql, copied, i - copied);
        out += '(';
        out.append(sql, col, col_len);
        out += " NOT IN (?";
        for (size_t k = 1; k < run; ++k) out += ",?";
        out += ")) AND ";
        copied = i = end;
    }
    if (copied == 0) return;
    out.append(sql, copied, std::string::npos);
    sql.swap(out);
}

}  // namespace

// Lifts a condition text, appending " WHERE ..." to `sql`. A null condition adds nothing.
bool add_condition(std::string& sql, const char* where, std::vector<value>& binds,
                   const vqm_db_param_t* params, int param_count) {
    if (!where) return param_count == 0;
    size_t len = strlen(where);
    if (strspn(where, " \t\r\n") == len) return false;  // an empty condition is a mistake, not "every row"
    sql += " WHERE ";
    size_t from = sql.size();
    if (!lift_literals(where, len, sql, binds, params, param_count)) return false;
    collapse_not_equal_runs(sql, from);
    return true;
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
}  // namespace sql
}  // namespace host
