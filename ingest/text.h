// Small text helpers shared by the writers and the card actions.
#pragma once

#include <stddef.h>
#include <string.h>

namespace aim_parser {

// Copies `src` into the fixed-size field `dst`, cut to size - 1 bytes and always terminated.
inline void copy_text(char* dst, size_t size, const char* src) {
    if (size == 0) return;
    size_t n = src ? strnlen(src, size - 1) : 0;
    memcpy(dst, src ? src : "", n);
    dst[n] = '\0';
}

}  // namespace aim_parser
