// Lines of a users file as Apache's htpasswd (apache2-utils) makes them, for the tests of
// aimctl serve's accounts.
#pragma once

#include <stdio.h>

#include <string>

// "NAME:HASH" as `htpasswd -nb FLAGS NAME PASSWORD` prints it ("" when htpasswd fails).
inline std::string htpasswd(const std::string& flags, const std::string& name, const std::string& password) {
    std::string cmd = "htpasswd -nb" + flags + " '" + name + "' '" + password + "' 2>/dev/null";
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return std::string();
    std::string out;
    char buf[256];
    while (size_t n = fread(buf, 1, sizeof buf, p)) out.append(buf, n);
    pclose(p);
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    return out;
}
