// aimctl commands register themselves with AIMCTL_COMMAND; main() dispatches on the first
// argument. Each command gets its own arguments (the command name removed) after the
// common options (--log-level) were taken out, and returns the process exit code.
#pragma once

#include <string>
#include <vector>

#include "platform/vqm_db.h"

namespace aimctl {

// Exit codes shared by all commands.
enum { exit_ok = 0, exit_failed = 1, exit_usage = 2 };

typedef int (*command_fn)(const std::vector<std::string>& args);

struct command {
    const char* name;
    const char* summary;  // one line for the command list
    const char* usage;    // full --help text
    command_fn run;
};

struct command_registrar {
    explicit command_registrar(const command& c);
};

#define AIMCTL_CAT2(a, b) a##b
#define AIMCTL_CAT(a, b) AIMCTL_CAT2(a, b)
#define AIMCTL_COMMAND(...) \
    static ::aimctl::command_registrar AIMCTL_CAT(aimctl_cmd_, __LINE__)({__VA_ARGS__})

// Prints "aimctl NAME: MESSAGE" and the usage hint on standard error; returns exit_usage.
int usage_error(const char* name, const std::string& message);
// True when args hold -h or --help (the caller then prints its usage and exits 0).
bool wants_help(const std::vector<std::string>& args);
// Opens the inventory database at `path` for command `name`; null after printing
// "aimctl NAME: cannot open 'PATH': ERROR" on standard error. With `must_exist`, a missing
// file is "aimctl NAME: no database 'PATH'" instead of a new database.
_vqm_db_handle_t* open_database(const char* name, const std::string& path, bool must_exist);

}  // namespace aimctl
