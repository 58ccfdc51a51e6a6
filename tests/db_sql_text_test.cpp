// Rewriting of the client's condition and raw texts: the exact SQL text and bound values
// that SQLite is given, and the texts refused before anything runs.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/sql_text.h"

namespace {

using host::sql::value;

// The binds as one text: integers as numbers, reals with a trailing "r", texts in quotes.
std::string render(const std::vector<value>& binds) {
    std::string out;
    for (const value& v : binds) {
        if (!out.empty()) out += ' ';
        if (v.type == SQLITE_INTEGER) out += std::to_string(v.i);
        if (v.type == SQLITE_FLOAT) out += std::to_string(v.d) + "r";
        if (v.type == SQLITE_TEXT) out += "'" + v.s + "'";
    }
    return out;
}

struct lift_case {
    const char* text;
    const char* sql;    // null: refused
    const char* binds;  // the lifted values, as render() shows them
};

TEST(SqlText, LiteralsBecomeParametersAndUnusableTextsAreRefused) {
    const lift_case cases[] = {
        {"Classification=\"13\" AND HardwareId=5", "Classification=? AND HardwareId=?", "'13' 5"},
        {"Model='it''s' OR Model=\"a\"\"b\"", "Model=? OR Model=?", "'it's' 'a\"b'"},
        {"VendorId=0x10DE AND x=0X1", "VendorId=? AND x=?", "4318 1"},
        {"a=0xFFFFFFFFFFFFFFFF", "a=?", "-1"},
        {"a=0x10000000000000000", "a=0x10000000000000000", ""},
        {"a=99999999999999999999", "a=99999999999999999999", ""},
        {"a=1.5 AND b=2e3 AND c=.5", "a=? AND b=? AND c=?", "1.500000r 2000.000000r 0.500000r"},
        {"Col1=2 AND t2.x=3", "Col1=? AND t2.x=?", "2 3"},
        {"`Slot 1`=4 AND [a b]='x'", "`Slot 1`=? AND [a b]=?", "4 'x'"},
        {"x=1 -- 'not a literal'\nAND y=2", "x=? -- 'not a literal'\nAND y=?", "1 2"},
        {"x=/* 5 */ 6", "x=/* 5 */ ?", "6"},
        {"b=x'00ff'", "b=x'00ff'", ""},
        {"a=1 GROUP BY 2 ORDER BY 1", "a=? GROUP BY 2 ORDER BY 1", "1"},
        {"a IN (SELECT b FROM t GROUP BY 1) AND c=3", "a IN (SELECT b FROM t GROUP BY 1) AND c=?", "3"},
        {"a=1;", "a=?;", "1"},
        {"a=1;  \n", "a=?;  \n", "1"},
        {"a=1; DELETE FROM PCIs", nullptr, ""},
        {";a=1", nullptr, ""},
        {"a=1;;", nullptr, ""},
        {"a='x", nullptr, ""},
        {"a=\"x", nullptr, ""},
        {"`a=1", nullptr, ""},
        {"[a=1", nullptr, ""},
        {"b=x'00", nullptr, ""},
        {"a=?1", nullptr, ""},
        {"a=?", nullptr, ""},
        {"a=:v", nullptr, ""},
        {"a=@v", nullptr, ""},
        {"a=$v", nullptr, ""},
        {"a=#v", nullptr, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        std::string out;
        std::vector<value> binds;
        bool ok = host::sql::lift_literals(c.text, strlen(c.text), out, binds, nullptr, 0);
        if (!c.sql) {
            EXPECT_FALSE(ok);
            continue;
        }
        ASSERT_TRUE(ok);
        EXPECT_EQ(c.sql, out);
        EXPECT_EQ(c.binds, render(binds));
    }
}

// The "?" of an update's condition takes the caller's values in order, unsigned ones only,
// and exactly as many as given.
TEST(SqlText, QuestionMarksTakeTheCallersValuesInOrder) {
    const vqm_db_param_t two[] = {{VQM_DB_PARAM_UINT, 7}, {VQM_DB_PARAM_UINT, 4294967295u}};
    std::string out;
    std::vector<value> binds;
    ASSERT_TRUE(host::sql::lift_literals("a=? AND b='q' AND c=?", 21, out, binds, two, 2));
    EXPECT_EQ("a=? AND b=? AND c=?", out);
    EXPECT_EQ("7 'q' 4294967295", render(binds));
    EXPECT_FALSE(host::sql::lift_literals("a=?", 3, out, binds, two, 2)) << "a value left over";
    EXPECT_FALSE(host::sql::lift_literals("a=? AND b=? AND c=?", 19, out, binds, two, 2)) << "one too few";
    const vqm_db_param_t other[] = {{VQM_DB_PARAM_UINT + 1, 1}};
    EXPECT_FALSE(host::sql::lift_literals("a=?", 3, out, binds, other, 1));
}

// A condition starts with " WHERE "; runs of "<>" terms on one column become one NOT IN test
// where they are whole operands of an AND chain, and only there.
TEST(SqlText, ConditionsCollapseRunsOfNotEqualTerms) {
    const std::pair<const char*, const char*> cases[] = {
        {"(DevKey <> 1) AND (DevKey <> 2) AND (DevKey <> 3) AND Present=1",
         " WHERE (DevKey NOT IN (?,?,?)) AND Present=?"},
        {"( DevKey<>1 )  AND (DevKey <> 2) AND 1", " WHERE (DevKey NOT IN (?,?)) AND ?"},
        {"(DevKey <> 1) AND (Slot <> 2) AND 1", " WHERE (DevKey <> ?) AND (Slot <> ?) AND ?"},
        {"(DevKey <> 1) AND 1", " WHERE (DevKey <> ?) AND ?"},
        {"NOT (DevKey <> 1) AND (DevKey <> 2) AND (DevKey <> 3) AND 1",
         " WHERE NOT (DevKey <> ?) AND (DevKey NOT IN (?,?)) AND ?"},
        {"x=1 AND ((DevKey <> 1) AND (DevKey <> 2) AND 1)", " WHERE x=? AND ((DevKey NOT IN (?,?)) AND ?)"},
    };
    for (const auto& c : cases) {
        std::string sql;
        std::vector<value> binds;
        ASSERT_TRUE(host::sql::add_condition(sql, c.first, binds, nullptr, 0)) << c.first;
        EXPECT_EQ(c.second, sql) << c.first;
    }
    std::string sql = "SELECT 1";
    std::vector<value> binds;
    EXPECT_TRUE(host::sql::add_condition(sql, nullptr, binds, nullptr, 0));
    EXPECT_EQ("SELECT 1", sql) << "no condition, no WHERE";
    const vqm_db_param_t one[] = {{VQM_DB_PARAM_UINT, 1}};
    EXPECT_FALSE(host::sql::add_condition(sql, nullptr, binds, one, 1)) << "values for no condition";
    EXPECT_FALSE(host::sql::add_condition(sql, " \t\r\n", binds, nullptr, 0)) << "blanks are not every row";
}

TEST(SqlText, IdentifiersAreQuotedAndRawStatementsNamed) {
    std::string out;
    host::sql::append_identifier(out, "Slot \"1\"");
    EXPECT_EQ("\"Slot \"\"1\"\"\"", out);

    const char* const cases[][3] = {
        {"DELETE FROM PCIs WHERE 1", "delete", "pcis"},
        {"insert into \"VPDs\" (a) values (1)", "insert", "vpds"},
        {"  UPDATE `Firmwares` SET a=1", "update", "firmwares"},
        {"SELECT * FROM PCIs", "query", ""},
        {"", "query", ""},
    };
    for (const auto& c : cases) {
        std::string op, table;
        host::sql::raw_target(c[0], strlen(c[0]), op, table);
        EXPECT_EQ(c[1], op) << c[0];
        EXPECT_EQ(c[2], table) << c[0];
    }
}

}  // namespace
