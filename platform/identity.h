// Platform identity: which server platform the controller runs on, and the server maker's
// data that the library keeps placeholders for.
#pragma once

#include <stdint.h>

bool is_alder_platform();
bool is_birch_platform();
bool is_cedar_platform();
bool is_dogwood_platform();
bool is_elmwood_platform();
bool is_firwood_platform();
bool is_ginkgo_platform();

// The server maker's PCI vendor id number `which` (0 or 1), or 0 when the platform keeps
// the library's placeholder value.
uint16_t platform_server_maker_vendor_id(unsigned which);
