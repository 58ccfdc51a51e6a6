// IPMI property store of the controller.
#pragma once

// Reads the value of `key` into `value` (a 128-byte buffer). 0 on success.
int propdb_get_string(const char* key, char* value);
