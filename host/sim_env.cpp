// Environment of a simulated run and the server maker's data (to be written).
#include "host/machine.h"
#include "platform/identity.h"

HOST_MACHINE_SECTION("env", [](const host::machine&, const nlohmann::json&) {});
HOST_MACHINE_SECTION("server_maker_vendor_ids", [](const host::machine&, const nlohmann::json&) {});

uint16_t platform_server_maker_vendor_id(unsigned) {
    return 0;
}
