// Helpers shared by the tests of adapters without AIM data: row expectations, present
// functions with chosen ids, the simulated A100, and an AIM file that covers nothing.
#pragma once

#include <string>

#include "tests/fixture.h"

namespace awtest {

using testutil::columns;
using testutil::expect_columns;

// The keys of the simulated NVIDIA A100 that answers the device query (the inside of its
// JSON object under "nvidia_gpus").
const char* const a100 = R"("serial": "1650123456789012", "marketing_name": "NVIDIA A100 80GB PCIe",
    "part_number": "900-21001-0020-100", "firmware_version": "92.00.36.00.01",
    "build_date": [21, 1, 35, 32], "vendor_id": "0x10DE", "device_id": "0x20B5",
    "subsystem_vendor_id": "0x10DE", "subsystem_device_id": "0x1533")";

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
    int run_empty() { return run_xml(empty_aim()); }
    void set_designation(unsigned bus, const std::string& text) {
        exec("UPDATE PCIs SET SlotDesignation='" + text + "' WHERE BusNo=" + num(bus));
    }
};

}  // namespace awtest
