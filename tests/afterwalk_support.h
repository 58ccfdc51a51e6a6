// Helpers shared by the tests of adapters without AIM data: compact row expectations, the
// simulated A100, an AIM file that covers nothing, and the FRU tool.
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/fixture.h"

namespace awtest {

// The keys of the simulated NVIDIA A100 that answers the device query (the inside of its
// JSON object under "nvidia_gpus").
const char* const a100 = R"("serial": "1650123456789012", "marketing_name": "NVIDIA A100 80GB PCIe",
    "part_number": "900-21001-0020-100", "firmware_version": "92.00.36.00.01",
    "build_date": [21, 1, 35, 32], "vendor_id": "0x10DE", "device_id": "0x20B5",
    "subsystem_vendor_id": "0x10DE", "subsystem_device_id": "0x1533")";

// Keys of a function as IngestTest::add_pci_function makes them.
inline unsigned fun_key(unsigned bus, unsigned device, unsigned function = 0) {
    return (bus << 16) | (device << 8) | function;
}
inline std::string num(unsigned v) { return std::to_string(v); }

class AfterWalkTest : public testutil::IngestTest {
protected:
    // Runs an AIM file with one config that matches no present function.
    int run_empty() {
        return run_xml(testutil::aim_doc(
            testutil::aim_config("none", "0xFE", "0x1F", "7", testutil::aim_setting("Card Name", "Absent"))));
    }
    // `table` has exactly one row matching `where`, with the columns of `expected`, written as
    // "Name=value;Name=value" (an empty value stands for NULL, '' for an empty text).
    void expect_row(const std::string& table, const std::string& where, const std::string& expected) {
        auto r = rows(table, where);
        ASSERT_EQ(1u, r.size()) << table << " WHERE " << where << "\n" << log_text();
        for (size_t at = 0, end; at < expected.size(); at = end + 1) {
            end = std::min(expected.find(';', at), expected.size());
            size_t eq = expected.find('=', at);
            std::string name = expected.substr(at, eq - at), want = expected.substr(eq + 1, end - eq - 1);
            auto it = r[0].find(name);
            EXPECT_EQ(want, it == r[0].end()     ? ""
                            : it->second.empty() ? "''"
                                                 : it->second)
                << table << "." << name;
        }
    }
    // Each "LEVEL text" line was logged.
    void expect_log(const std::vector<std::string>& lines) {
        std::string log = "\n" + log_text();
        for (const auto& l : lines) EXPECT_NE(std::string::npos, log.find("\n" + l + "\n")) << l << log;
    }
    // An executable /bin/fru-tool that runs the shell commands `body`.
    void install_fru_tool(const std::string& body) {
        write_sysroot_file("/bin/fru-tool", "#!/bin/sh\n" + body);
        chmod(sysroot_file("/bin/fru-tool").c_str(), 0755);
    }
};

}  // namespace awtest
