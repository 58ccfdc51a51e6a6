// Helpers shared by the tests of adapters without AIM data: row expectations, present
// functions with chosen ids, and an AIM file that covers nothing.
#pragma once

#include <map>
#include <string>

#include "tests/fixture.h"

namespace awtest {

typedef std::map<std::string, std::string> columns;

// Every column of `expected` has that value in `row` (an empty expected value: NULL).
inline void expect_columns(const host::row& row, const columns& expected) {
    for (const auto& c : expected) {
        auto it = row.find(c.first);
        if (c.second.empty()) {
            EXPECT_TRUE(it == row.end()) << c.first << " is " << it->second;
        } else if (it == row.end()) {
            ADD_FAILURE() << c.first << " is NULL, expected " << c.second;
        } else {
            EXPECT_EQ(c.second, it->second) << "column " << c.first;
        }
    }
}

// An AIM file with one config that matches no present function.
inline std::string empty_aim() {
    return testutil::aim_doc(
        testutil::aim_config("none", "0xFE", "0x1F", "7", testutil::aim_setting("Card Name", "Absent")));
}

// Keys of a function as IngestTest::add_pci_function makes them.
inline unsigned dev_key(unsigned bus, unsigned device) { return (bus << 16) | (device << 8); }
inline unsigned fun_key(unsigned bus, unsigned device, unsigned function) {
    return dev_key(bus, device) | function;
}
inline std::string num(unsigned v) { return std::to_string(v); }

class AfterWalkTest : public testutil::IngestTest {
protected:
    // Lines of the captured log at `level` that begin with `prefix`.
    size_t logged_prefix(host::log_level level, const std::string& prefix) const {
        size_t n = 0;
        for (const auto& m : host::log_captured()) n += m.level == level && m.text.rfind(prefix, 0) == 0;
        return n;
    }
    int run_empty() { return run_xml(empty_aim()); }
    void set_designation(unsigned bus, const std::string& text) {
        exec("UPDATE PCIs SET SlotDesignation='" + text + "' WHERE BusNo=" + num(bus));
    }
};

}  // namespace awtest
