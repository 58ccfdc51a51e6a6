// aimctl gpu --machine DIR NAME: asks the simulated NVIDIA GPU NAME of a machine for its
// identity, as the library does, and prints what was read.
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "gpu/gpu_dev_info.h"
#include "host/machine.h"
#include "host/sim.h"
#include "tools/aimctl/command.h"

namespace {

bool parse_ids(const std::string& text, unsigned short (&ids)[4]) {
    const char* p = text.c_str();
    for (int i = 0; i < 4; ++i) {
        char* end = nullptr;
        unsigned long v = strtoul(p, &end, 16);
        if (end == p || v > 0xFFFF) return false;
        ids[i] = static_cast<unsigned short>(v);
        if (i < 3) {
            if (*end != ':') return false;
            p = end + 1;
        } else if (*end != '\0') {
            return false;
        }
    }
    return true;
}

int run_gpu(const std::vector<std::string>& args) {
    std::string dir, name;
    bool json = false;
    unsigned short ids[4] = {0, 0, 0, 0};
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--machine" || a == "--ids") {
            if (i + 1 >= args.size()) return aimctl::usage_error("gpu", a + " needs a value");
            const std::string& v = args[++i];
            if (a == "--machine") {
                dir = v;
            } else if (!parse_ids(v, ids)) {
                return aimctl::usage_error("gpu", "--ids takes four hexadecimal ids VVVV:DDDD:SVSV:SDSD");
            }
        } else if (a == "--json") {
            json = true;
        } else if (!a.empty() && a[0] == '-') {
            return aimctl::usage_error("gpu", "unknown option " + a);
        } else if (name.empty()) {
            name = a;
        } else {
            return aimctl::usage_error("gpu", "expected one GPU NAME");
        }
    }
    if (dir.empty()) return aimctl::usage_error("gpu", "--machine DIR is required");
    if (name.empty()) return aimctl::usage_error("gpu", "a GPU NAME is required");
    try {
        host::load_machine(dir);
    } catch (const host::machine_error& e) {
        fprintf(stderr, "aimctl gpu: %s\n", e.what());
        return aimctl::exit_failed;
    }

    aim_parser::gpu_dev_info dev;
    aim_parser::gpu_info info;
    std::vector<char> cio_name(name.begin(), name.end());
    cio_name.push_back('\0');
    if (!dev.read_gpu_data(cio_name.data(), info, ids[0], ids[1], ids[2], ids[3])) {
        fprintf(stderr, "aimctl gpu: cannot open GPU %s\n", name.c_str());
        return aimctl::exit_failed;
    }
    const std::pair<const char*, const std::string*> texts[] = {
        {"manufacturer", &info.manufacturer}, {"serial_num", &info.serial_num},
        {"product_name", &info.product_name}, {"uuid", &info.uuid},
        {"part_num", &info.part_num},         {"fru_num", &info.fru_num},
        {"build_date", &info.build_date},     {"fw_version", &info.fw_version}};
    const std::pair<const char*, uint32_t> numbers[] = {{"vendor_id", info.vendor_id},
                                                        {"device_id", info.device_id},
                                                        {"subsystem_vendor_id", info.subsystem_vendor_id},
                                                        {"subsystem_device_id", info.subsystem_device_id}};
    if (json) {
        nlohmann::ordered_json out;
        for (const auto& t : texts) out[t.first] = *t.second;
        char hex[8];
        for (const auto& n : numbers) {
            snprintf(hex, sizeof hex, "0x%04X", static_cast<unsigned>(n.second));
            out[n.first] = hex;
        }
        out["requests"] = host::nvidia_gpu_calls(name);
        printf("%s\n", out.dump(2).c_str());
    } else {
        for (const auto& t : texts)
            printf("%-20s %s\n", (std::string(t.first) + ":").c_str(), t.second->c_str());
        for (const auto& n : numbers) {
            printf("%-20s 0x%04X\n", (std::string(n.first) + ":").c_str(), static_cast<unsigned>(n.second));
        }
        printf("%-20s %u\n", "requests:", host::nvidia_gpu_calls(name));
    }
    return aimctl::exit_ok;
}

}  // namespace

AIMCTL_COMMAND("gpu", "query a simulated NVIDIA GPU of a machine",
               "usage: aimctl gpu --machine DIR [--ids VVVV:DDDD:SVSV:SDSD] [--json] NAME\n\n"
               "Loads the simulated machine DIR (its machine.json) and reads the identity of the NVIDIA\n"
               "GPU whose cio device name is NAME (a key of \"nvidia_gpus\") with the library's device\n"
               "query: serial number, marketing name, part number, build date, firmware version and\n"
               "PCI ids. --ids gives the card's four PCI ids (hexadecimal) for the platform's table of\n"
               "hard-coded GPU names. Prints \"field: value\" lines, or a JSON object with --json, and\n"
               "the number of post-box requests the GPU received (retries included).\n"
               "Texts not read stay empty.\n",
               run_gpu);
