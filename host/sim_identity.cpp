// Simulated platform identity (to be written).
#include "host/machine.h"
#include "platform/identity.h"

HOST_MACHINE_SECTION("platform", [](const host::machine&, const nlohmann::json&) {});

bool is_alder_platform() { return false; }
bool is_birch_platform() { return false; }
bool is_cedar_platform() { return false; }
bool is_dogwood_platform() { return false; }
bool is_elmwood_platform() { return false; }
bool is_firwood_platform() { return false; }
bool is_ginkgo_platform() { return false; }
