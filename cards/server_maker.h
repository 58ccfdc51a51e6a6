// The server maker's PCI vendor ids. The platform supplies them; where it keeps the
// library's default (0), a placeholder id is used so that rows keyed on them stay
// distinguishable from every real vendor.
#pragma once

#include <stdint.h>

#include "platform/identity.h"

namespace aim_parser {

// Placeholders for the server maker's two PCI vendor ids.
constexpr uint16_t server_maker_vendor_placeholder[2] = {0xFE00, 0xFE01};

// The server maker's PCI vendor id number `which` (0 or 1).
inline uint16_t server_maker_vendor_id(unsigned which) {
    uint16_t id = platform_server_maker_vendor_id(which);
    if (id != 0) return id;
    return server_maker_vendor_placeholder[which ? 1 : 0];
}

}  // namespace aim_parser
