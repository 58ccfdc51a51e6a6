// Operating-system access for the host: controller paths are mapped below AIM_SYSROOT.
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "host/sysroot.h"
#include "platform/os.h"

namespace host {

std::string map_path(const char* path) {
    if (!path) return std::string();
    const char* root = getenv("AIM_SYSROOT");
    if (!root || !*root || path[0] != '/') return path;
    std::string out(root);
    while (!out.empty() && out.back() == '/') out.pop_back();
    out += path;
    return out;
}

namespace {
unsigned long long g_slept_us = 0;
bool g_real_sleep = true;
}  // namespace

void set_real_sleep(bool enabled) { g_real_sleep = enabled; }
unsigned long long total_sleep_us() { return g_slept_us; }

}  // namespace host

std::string os_path(const char* path) { return host::map_path(path); }

FILE* os_popen_read(const char* command) {
    if (!command) return nullptr;
    // The program is the first word; it is a controller path and is mapped like a file.
    std::string cmd(command);
    size_t end = cmd.find(' ');
    std::string program = cmd.substr(0, end);
    std::string rest = end == std::string::npos ? std::string() : cmd.substr(end);
    std::string mapped = host::map_path(program.c_str());
    if (access(mapped.c_str(), X_OK) != 0) return nullptr;
    return popen((mapped + rest).c_str(), "r");
}

int os_pclose(FILE* pipe) { return pipe ? pclose(pipe) : -1; }

void os_usleep(unsigned microseconds) {
    host::g_slept_us += microseconds;
    if (host::g_real_sleep) usleep(microseconds);
}
