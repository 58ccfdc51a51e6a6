// Device access layer (cio): block devices answering GPU post-box requests or holding a
// card's FRU EEPROM, and the controller's integer flags.
#pragma once

#include <stdint.h>

// Attributes of an opened block device; opaque to the library.
struct cio_attr {
    uint8_t raw[64];
};

// One GPU post-box request and its answer (26 bytes on the wire).
struct nv_msg {
    uint8_t data[26];
};

// 0 on success.
int cio_block_open(const char* name, int* handle);
// 0 on success.
int cio_get_attrib(int handle, cio_attr* attr);
// Non-zero on success; fills bytes 19 to 23 of `msg`.
int get_cio_nv_data(int handle, nv_msg& msg, bool flag);
// Reads up to `length` bytes from `offset` of an opened block device (an EEPROM) into
// `buffer`. Returns the number of bytes read (fewer at the end of the device), or a
// negative error code.
int cio_block_read(int handle, uint32_t offset, uint8_t* buffer, uint32_t length);

// Integer flags ("RS_EXIST", "GPU_PROP_V2_EXIST"). 0 on success.
int cio_integer_open(const char* name, int* handle);
int cio_integer_get(int handle, int* value);
// A text describing a cio error code.
const char* get_cio_err_str(int code);
