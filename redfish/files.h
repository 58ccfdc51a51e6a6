// The whole of a small file that aimctl serve reads at start (a PEM file, the users file).
#pragma once

#include <stdio.h>

#include <string>

namespace redfish {

// The bytes of the file at `path` in `out`; false when it cannot be opened or read.
inline bool read_whole_file(const std::string& path, std::string& out) {
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) return false;
    out.clear();
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
    bool ok = !ferror(f);
    fclose(f);
    return ok;
}

}  // namespace redfish
