// Helpers of the group writer tests: settings written as "Label=value; Label=value" lists,
// and columns of rows read back in the same form.
#pragma once

#include <string>
#include <vector>

#include "tests/fixture.h"

namespace writers_test {

using testutil::aim_config;
using testutil::aim_doc;
using testutil::aim_group;
using testutil::aim_setting;

inline std::string text(const std::string& name, const std::string& value) {
    return aim_setting(name, value);
}
inline std::string num(const std::string& name, const std::string& value) {
    return aim_setting(name, value, "numeric_data");
}

// The "A=x" items of a "A=x; B=y" list.
inline std::vector<std::string> items(const std::string& list) {
    std::vector<std::string> out;
    for (size_t start = 0, end; start < list.size(); start = end + 2) {
        end = list.find("; ", start);
        if (end == std::string::npos) end = list.size();
        out.push_back(list.substr(start, end - start));
    }
    return out;
}

// Text settings (numeric data with `numeric`) from a "Label=value; Label=value" list.
inline std::string settings(const std::string& list, bool numeric = false) {
    std::string out;
    for (const auto& i : items(list))
        out += aim_setting(i.substr(0, i.find('=')), i.substr(i.find('=') + 1),
                           numeric ? "numeric_data" : "text_data");
    return out;
}

// The value of `name` in `r`, "<null>" when absent.
inline std::string col(const host::row& r, const std::string& name) {
    auto it = r.find(name);
    return it == r.end() ? "<null>" : it->second;
}

// The columns that `expected` ("Name=value; Name=value") names, with their values in `r`,
// in the same form: EXPECT_EQ(expected, pick(r, expected)).
inline std::string pick(const host::row& r, const std::string& expected) {
    std::string out;
    for (const auto& i : items(expected)) {
        std::string name = i.substr(0, i.find('='));
        out += (out.empty() ? "" : "; ") + name + "=" + col(r, name);
    }
    return out;
}

// One column of each row, "<null>" where the row has none.
inline std::vector<std::string> column(const std::vector<host::row>& rows, const std::string& name) {
    std::vector<std::string> out;
    for (const auto& r : rows) out.push_back(col(r, name));
    return out;
}

}  // namespace writers_test
