// Simulated IPMI property store (to be written).
#include "host/machine.h"
#include "platform/ipmi_prop.h"

HOST_MACHINE_SECTION("ipmi_properties", [](const host::machine&, const nlohmann::json&) {});

int propdb_get_string(const char*, char*) { return 1; }
