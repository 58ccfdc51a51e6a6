// Simulated IPMI request path (to be written).
#include "host/machine.h"
#include "platform/ipmi_cmd.h"

HOST_MACHINE_SECTION("vpd_devices", [](const host::machine&, const nlohmann::json&) {});

int send_ipmi_cmd(const uint8_t*, int, uint8_t* response, int* response_length) {
    if (response) response[0] = 0xC1;  // invalid command
    if (response_length) *response_length = 1;
    return 0;
}
