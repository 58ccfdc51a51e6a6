// Environment of a simulated run and the server maker's PCI vendor ids.
//
// machine.json:
//   "env": {"PLATFORM_NO_REV": "50002d", "RVT_CODENAME": "gravel", ...}
//     variables set (setenv) while the machine is loaded; resetting the machine restores
//     each to the value it had before (or unsets it), so runs stay independent.
//   "server_maker_vendor_ids": [first, second]
//     the server maker's two PCI vendor ids (1 to 0xFFFF), replacing the library's
//     placeholders; absent, the placeholders stay.
#include <stdlib.h>

#include <map>
#include <string>
#include <utility>

#include "host/machine.h"
#include "platform/identity.h"

namespace {

// Variables set by the loaded machine, with the value each had before (false: unset).
std::map<std::string, std::pair<bool, std::string>>& saved() {
    static std::map<std::string, std::pair<bool, std::string>> s;
    return s;
}

void restore_environment() {
    for (const auto& v : saved()) {
        if (v.second.first) {
            setenv(v.first.c_str(), v.second.second.c_str(), 1);
        } else {
            unsetenv(v.first.c_str());
        }
    }
    saved().clear();
}

void load_env(const host::machine&, const nlohmann::json& value) {
    restore_environment();
    if (value.is_null()) return;
    if (!value.is_object()) throw host::machine_error("must be an object from variable name to text");
    std::map<std::string, std::string> vars;
    for (auto it = value.begin(); it != value.end(); ++it) {
        const std::string& name = it.key();
        if (name.empty() || name.find('=') != std::string::npos) {
            throw host::machine_error("\"" + name + "\" is not a variable name");
        }
        vars[name] = host::json_text(it.value(), "variable " + name);
    }
    for (const auto& v : vars) {
        const char* old = getenv(v.first.c_str());
        saved()[v.first] =
            old ? std::make_pair(true, std::string(old)) : std::make_pair(false, std::string());
        setenv(v.first.c_str(), v.second.c_str(), 1);
    }
}

uint16_t vendor_ids[2] = {0, 0};

void load_vendor_ids(const host::machine&, const nlohmann::json& value) {
    uint16_t ids[2] = {0, 0};
    if (!value.is_null()) {
        if (!value.is_array() || value.size() != 2)
            throw host::machine_error("must be a list of two PCI vendor ids");
        for (size_t i = 0; i < 2; ++i) {
            ids[i] = static_cast<uint16_t>(
                host::json_number(value[i], "vendor id " + std::to_string(i), 1, 0xFFFF));
        }
    }
    vendor_ids[0] = ids[0];
    vendor_ids[1] = ids[1];
}

}  // namespace

HOST_MACHINE_SECTION("env", load_env);
HOST_MACHINE_SECTION("server_maker_vendor_ids", load_vendor_ids);

uint16_t platform_server_maker_vendor_id(unsigned which) { return which < 2 ? vendor_ids[which] : 0; }
