// The server maker's PCI vendor ids, as the known-card rows and the hardware VPD table use
// them.
#pragma once

#include <stdint.h>

#include "platform/identity.h"

namespace aim_parser {

// Placeholders for the server maker's two PCI vendor ids. They stand in until the platform
// supplies the real ids (platform_server_maker_vendor_id); no shipped card carries them.
constexpr uint16_t server_maker_vendor_id_placeholder_0 = 0xFE00;
constexpr uint16_t server_maker_vendor_id_placeholder_1 = 0xFE01;

// The server maker's PCI vendor id number `which` (0 or 1): the platform's value when it
// supplies one, else the placeholder. Any other `which` gives 0.
inline uint16_t server_maker_vendor_id(unsigned which) {
    if (which > 1) return 0;
    uint16_t id = platform_server_maker_vendor_id(which);
    if (id != 0) return id;
    return which == 0 ? server_maker_vendor_id_placeholder_0 : server_maker_vendor_id_placeholder_1;
}

}  // namespace aim_parser
