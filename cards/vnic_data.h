// Layout of the vNIC capability data set ("iscsi-cap-data") that the host firmware leaves
// for the controller: a 10-byte header, N 7-byte device records, then one 6-byte MAC
// address per record whose vNIC bit is set, in record order. Little-endian.
//
// Header-only so that the library's reader and the engineering tool decode it the same
// way. Every accessor is bounded by the body length it is given.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

namespace aim_parser {
namespace vnic {

const unsigned header_size = 10;
const unsigned record_size = 7;
const unsigned mac_size = 6;
// The data set is opened with this size; a larger size field is read as this much.
const unsigned data_set_size = 4096;
const uint8_t vnic_flag = 0x80;

struct header {
    uint16_t size;  // total size in bytes, header included
    uint8_t count;  // device count
};

inline header decode_header(const uint8_t* h) {
    header out;
    out.size = static_cast<uint16_t>(h[1] | (h[2] << 8));
    out.count = h[9];
    return out;
}

// Body bytes to read after the header for a size field `size`: 0 when the set is too
// short to hold anything (sizes below 11).
inline unsigned body_length(unsigned size) {
    if (size > data_set_size) return data_set_size - header_size;
    if (size < header_size + 1) return 0;
    return size - header_size;
}

struct record {
    uint8_t bus;
    uint8_t device;    // high nibble of the device/function byte (the format's own packing)
    uint8_t function;  // low nibble
    uint8_t flags;
    bool vnic() const { return (flags & vnic_flag) != 0; }
};

// Record `n` of a body of `len` bytes; false when it does not lie wholly inside the body.
inline bool get_record(const uint8_t* body, size_t len, unsigned n, record& r) {
    size_t off = static_cast<size_t>(n) * record_size;
    if (off + record_size > len) return false;
    const uint8_t* p = body + off;
    r.device = static_cast<uint8_t>(p[2] >> 4);
    r.function = static_cast<uint8_t>(p[2] & 0x0F);
    r.bus = p[3];
    r.flags = p[4];
    return true;
}

// Offset in the body of the MAC table, right after the last of `count` records.
inline size_t mac_table_offset(unsigned count) { return static_cast<size_t>(count) * record_size; }

// The MAC at body offset `off` as twelve upper-case hexadecimal digits into `text` (13
// bytes); false when the six bytes do not lie wholly inside the body.
inline bool mac_text(const uint8_t* body, size_t len, size_t off, char (&text)[13]) {
    if (off > len || len - off < mac_size) return false;
    const uint8_t* m = body + off;
    snprintf(text, sizeof text, "%02X%02X%02X%02X%02X%02X", m[0], m[1], m[2], m[3], m[4], m[5]);
    return true;
}

}  // namespace vnic
}  // namespace aim_parser
