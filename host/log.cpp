#include "host/log.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "platform/kora_log.h"

namespace host {
namespace {

bool g_level_set = false;
log_level g_level = log_level::info;
bool g_capturing = false;
std::vector<log_message> g_captured;

log_level threshold() {
    if (!g_level_set) {
        log_level parsed;
        const char* env = getenv("KORA_LOG_LEVEL");
        g_level = (env && parse_log_level(env, parsed)) ? parsed : log_level::info;
        g_level_set = true;
    }
    return g_level;
}

// A vprintf-style function: its callers hand on their own checked format.
__attribute__((format(printf, 2, 0))) void emit(log_level level, const char* fmt, va_list ap) {
    bool print = level >= threshold();
    if (!print && !g_capturing) return;
    char small[512];
    va_list copy;
    va_copy(copy, ap);
    int n = vsnprintf(small, sizeof small, fmt, copy);
    va_end(copy);
    std::string text;
    if (n < 0) {
        text = fmt;
    } else if (static_cast<size_t>(n) < sizeof small) {
        text.assign(small, static_cast<size_t>(n));
    } else {
        text.resize(static_cast<size_t>(n) + 1);
        vsnprintf(&text[0], text.size(), fmt, ap);
        text.resize(static_cast<size_t>(n));
    }
    // A message's own trailing line feed is not doubled.
    if (!text.empty() && text.back() == '\n') text.pop_back();
    if (print) fprintf(stderr, "%s %s\n", log_level_name(level), text.c_str());
    if (g_capturing) g_captured.push_back({level, std::move(text)});
}

}  // namespace

const char* log_level_name(log_level level) {
    switch (level) {
        case log_level::dbg:
            return "DBG";
        case log_level::info:
            return "INFO";
        case log_level::warn:
            return "WARN";
        case log_level::err:
            return "ERR";
    }
    return "ERR";
}

bool parse_log_level(const char* text, log_level& out) {
    static const struct {
        const char* name;
        log_level level;
    } names[] = {{"dbg", log_level::dbg},
                 {"info", log_level::info},
                 {"warn", log_level::warn},
                 {"err", log_level::err}};
    for (const auto& n : names) {
        if (strcmp(text, n.name) == 0) {
            out = n.level;
            return true;
        }
    }
    return false;
}

void set_log_level(log_level level) {
    g_level = level;
    g_level_set = true;
}

log_level get_log_level() { return threshold(); }

void log_capture_begin() {
    g_captured.clear();
    g_capturing = true;
}

std::vector<log_message> log_capture_end() {
    g_capturing = false;
    std::vector<log_message> out;
    out.swap(g_captured);
    return out;
}

const std::vector<log_message>& log_captured() { return g_captured; }

}  // namespace host

namespace kora_log {

#define HOST_KORA_LOG(fn, level)                     \
    void fn(const char* fmt, ...) {                  \
        va_list ap;                                  \
        va_start(ap, fmt);                           \
        host::emit(host::log_level::level, fmt, ap); \
        va_end(ap);                                  \
    }

HOST_KORA_LOG(logDbg, dbg)
HOST_KORA_LOG(logInfo, info)
HOST_KORA_LOG(logWarn, warn)
HOST_KORA_LOG(logErr, err)

}  // namespace kora_log
