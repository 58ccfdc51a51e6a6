// Helpers of the group writer tests: settings and expected rows written as "Name=value; ..."
// lists.
#pragma once

#include <string>
#include <vector>

#include "tests/fixture.h"

namespace writers_test {

using testutil::aim_config;
using testutil::aim_doc;
using testutil::aim_group;
typedef std::vector<std::string> texts;

inline std::string text(const std::string& n, const std::string& v) { return testutil::aim_setting(n, v); }

// The items of a "A=x; B=y" list.
inline texts items(const std::string& list) {
    texts out;
    for (size_t start = 0, end = 0; end != std::string::npos; start = end + 2) {
        end = list.find("; ", start);
        out.push_back(list.substr(start, end - start));
    }
    return out;
}

// The settings of a "Label=value; #Label=value" list: text data, or numeric data after a '#'.
inline std::string settings(const std::string& list) {
    std::string out;
    for (const auto& i : items(list)) {
        size_t num = i[0] == '#', eq = i.find('=');
        out += testutil::aim_setting(i.substr(num, eq - num), i.substr(eq + 1),
                                     num ? "numeric_data" : "text_data");
    }
    return out;
}

// The value of `name` in `r`, "<null>" when absent.
inline std::string col(const host::row& r, const std::string& name) {
    auto it = r.find(name);
    return it == r.end() ? "<null>" : it->second;
}

// The columns that `expected` ("Column=value; Column") names, with their values in `r`, in the
// form "Column=value; Column=value": EXPECT_EQ(expected, pick(r, expected)).
inline std::string pick(const host::row& r, const std::string& expected) {
    std::string out;
    for (const auto& i : items(expected)) {
        std::string name = i.substr(0, i.find('='));
        out += (out.empty() ? "" : "; ") + name + "=" + col(r, name);
    }
    return out;
}

// One column of each row, "<null>" where the row has none.
inline texts column(const std::vector<host::row>& rows, const std::string& name) {
    texts out;
    for (const auto& r : rows) out.push_back(col(r, name));
    return out;
}

}  // namespace writers_test
