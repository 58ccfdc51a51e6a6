// GPU device query: the answers of a simulated NVIDIA GPU (its four texts, build date, the
// ids and the request faults) taken from the input, read by gpu_dev_info.
#include <fuzzer/FuzzedDataProvider.h>

#include <string>

#include <nlohmann/json.hpp>

#include "fuzz/harness.h"
#include "host/machine.h"
#include "gpu/gpu_dev_info.h"

namespace {
std::string g_dir;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::controller();
    g_dir = fuzz::machine_copy("pcie-gpu");
    fuzz::load_machine(g_dir);  // its files into the sysroot, once
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    nlohmann::json gpu;
    for (const char* key : {"serial", "marketing_name", "part_number", "firmware_version"})
        gpu[key] = in.ConsumeRandomLengthString(64);
    nlohmann::json date = nlohmann::json::array();
    for (int i = 0; i < 4; ++i) date.push_back(in.ConsumeIntegral<uint8_t>());
    gpu["build_date"] = date;
    uint16_t ids[4];
    for (uint16_t& id : ids) id = in.ConsumeIntegral<uint16_t>();
    gpu["vendor_id"] = ids[0], gpu["device_id"] = ids[1];
    gpu["subsystem_vendor_id"] = ids[2], gpu["subsystem_device_id"] = ids[3];
    uint8_t faults = in.ConsumeIntegral<uint8_t>();
    nlohmann::json f = nlohmann::json::object();
    if (faults & 1) f["fail_first"] = in.ConsumeIntegralInRange<unsigned>(0, 8);
    if (faults & 2) f["fail_count"] = in.ConsumeIntegral<uint8_t>();
    if (faults & 4) f["repeat_selectors"] = {in.ConsumeIntegralInRange<unsigned>(2, 5)};
    if (faults & 8)
        f["fail_chunks"] = {{in.ConsumeIntegralInRange<unsigned>(2, 5), in.ConsumeIntegral<uint8_t>()}};
    if (faults & 16) f["fail_selectors"] = {in.ConsumeIntegralInRange<unsigned>(2, 5)};
    if (!f.empty()) gpu["faults"] = f;
    nlohmann::json machine = {{"nvidia_gpus", {{"gpu0", gpu}}}};
    try {
        host::load_machine(g_dir, machine);
    } catch (const host::machine_error&) {
        host::reset_machine();
        fuzz::drop_log();
        return 0;  // answers that the simulation itself cannot give (found by fuzzing)
    }

    aim_parser::gpu_info info;
    char name[] = "gpu0";
    aim_parser::gpu_dev_info().read_gpu_data(name, info, ids[0], ids[1], ids[2], ids[3]);
    // Frees the simulated GPU and the messages within the input, so that an input's
    // allocations and frees balance and libFuzzer does not run a leak scan after each one.
    host::reset_machine();
    fuzz::drop_log();
    return 0;
}
