// Simulated platform identity: machine.json "platform" names the server platform
// ("alder", "birch", "cedar", "dogwood", "elmwood", "firwood", "ginkgo"); absent means
// none of them.
#include <string>

#include "host/machine.h"
#include "platform/identity.h"

namespace {

const char* const platforms[] = {"alder", "birch", "cedar", "dogwood", "elmwood", "firwood", "ginkgo"};

std::string g_platform;

void load_platform(const host::machine&, const nlohmann::json& v) {
    g_platform.clear();
    if (v.is_null()) return;
    std::string name = host::json_text(v, "the platform");
    for (const char* p : platforms) {
        if (name == p) {
            g_platform = name;
            return;
        }
    }
    throw host::machine_error("unknown platform \"" + name +
                              "\" (use alder, birch, cedar, dogwood, elmwood, firwood or ginkgo)");
}

bool on(const char* name) { return g_platform == name; }

}  // namespace

HOST_MACHINE_SECTION("platform", load_platform);

bool is_alder_platform() { return on("alder"); }
bool is_birch_platform() { return on("birch"); }
bool is_cedar_platform() { return on("cedar"); }
bool is_dogwood_platform() { return on("dogwood"); }
bool is_elmwood_platform() { return on("elmwood"); }
bool is_firwood_platform() { return on("firwood"); }
bool is_ginkgo_platform() { return on("ginkgo"); }
