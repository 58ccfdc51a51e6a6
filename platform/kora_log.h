// Controller logging library. Each call writes one message at its level, printf style.
#pragma once

namespace kora_log {
void logDbg(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void logInfo(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void logWarn(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void logErr(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
}  // namespace kora_log
