// Simulated IPMI property store: machine.json "ipmi_properties" maps property keys to
// their text values.
#include <string.h>

#include <map>
#include <string>

#include "host/machine.h"
#include "platform/ipmi_prop.h"

namespace {

std::map<std::string, std::string> g_props;

void load_props(const host::machine&, const nlohmann::json& v) {
    g_props.clear();
    if (v.is_null()) return;
    if (!v.is_object()) throw host::machine_error("must be an object from property key to value");
    for (auto it = v.begin(); it != v.end(); ++it) {
        g_props[it.key()] = host::json_text(it.value(), "property \"" + it.key() + "\"");
    }
}

}  // namespace

HOST_MACHINE_SECTION("ipmi_properties", load_props);

// The value is copied into the caller's 128-byte buffer, cut to 127 characters.
int propdb_get_string(const char* key, char* value) {
    if (!key || !value) return -1;
    auto it = g_props.find(key);
    if (it == g_props.end()) return 1;
    size_t n = it->second.size() < 127 ? it->second.size() : 127;
    memcpy(value, it->second.data(), n);
    value[n] = '\0';
    return 0;
}
