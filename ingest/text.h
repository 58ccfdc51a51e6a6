// Small text helpers shared by the writers and the card actions.
#pragma once

#include <stddef.h>
#include <stdio.h>
#include <string.h>

namespace aim_parser {

// Copies `src` into the fixed-size field `dst`, cut to size - 1 bytes and always terminated.
inline void copy_text(char* dst, size_t size, const char* src) {
    if (size == 0) return;
    size_t n = src ? strnlen(src, size - 1) : 0;
    memcpy(dst, src ? src : "", n);
    dst[n] = '\0';
}

// The "SoftwareID" text of two PCI ids: both in four upper-case hexadecimal digits.
inline void software_id(char (&out)[16], unsigned first, unsigned second) {
    snprintf(out, sizeof out, "%04X%04X", first, second);
}

}  // namespace aim_parser
