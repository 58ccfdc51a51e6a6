// Host logging: one line per message on standard error, "LEVEL message", with a threshold
// from KORA_LOG_LEVEL (dbg, info, warn, err; default info). Tests capture messages in-process.
#pragma once

#include <string>
#include <vector>

namespace host {

enum class log_level { dbg = 0, info = 1, warn = 2, err = 3 };

struct log_message {
    log_level level;
    std::string text;  // the formatted message, its own trailing line feed removed
};

const char* log_level_name(log_level level);  // "DBG", "INFO", "WARN", "ERR"
// Parses "dbg", "info", "warn" or "err"; false for anything else.
bool parse_log_level(const char* text, log_level& out);
// Overrides the threshold taken from KORA_LOG_LEVEL.
void set_log_level(log_level level);
log_level get_log_level();

// While a capture is active every message (whatever the threshold) is recorded as well.
void log_capture_begin();
std::vector<log_message> log_capture_end();
// Messages recorded so far by the active capture.
const std::vector<log_message>& log_captured();

}  // namespace host
