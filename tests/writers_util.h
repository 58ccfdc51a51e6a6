// Helpers of the group writer tests: numeric settings, and the text of one column of the
// rows of a table.
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

// One column of each row, "<null>" where the row has none.
inline std::vector<std::string> column(const std::vector<host::row>& rows, const std::string& name) {
    std::vector<std::string> out;
    for (const auto& r : rows) {
        auto it = r.find(name);
        out.push_back(it == r.end() ? "<null>" : it->second);
    }
    return out;
}

// The value of `name` in `r`, "<null>" when absent.
inline std::string col(const host::row& r, const std::string& name) {
    auto it = r.find(name);
    return it == r.end() ? "<null>" : it->second;
}

}  // namespace writers_test
