#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

#include "host/db.h"
#include "host/log.h"
#include "tools/aimctl/command.h"

namespace aimctl {
namespace {

std::map<std::string, command>& commands() {
    static std::map<std::string, command> c;
    return c;
}

void print_overview(FILE* out) {
    fprintf(
        out,
        "usage: aimctl [--log-level dbg|info|warn|err] COMMAND [ARGS...]\n"
        "       aimctl --help | --version\n\n"
        "Engineering tool of libvqmdb_aim_parser: parse, write and ingest AIM files on a Linux machine.\n\n"
        "commands:\n");
    for (const auto& c : commands()) fprintf(out, "  %-10s %s\n", c.first.c_str(), c.second.summary);
    fprintf(out, "\nRun 'aimctl COMMAND --help' for a command's options.\n");
}

}  // namespace

command_registrar::command_registrar(const command& c) { commands()[c.name] = c; }

int usage_error(const char* name, const std::string& message) {
    fprintf(stderr, "aimctl %s: %s\nRun 'aimctl %s --help' for usage.\n", name, message.c_str(), name);
    return exit_usage;
}

bool wants_help(const std::vector<std::string>& args) {
    for (const auto& a : args) {
        if (a == "-h" || a == "--help") return true;
    }
    return false;
}

_vqm_db_handle_t* open_database(const char* name, const std::string& path, bool must_exist) {
    struct stat st;
    if (must_exist && stat(path.c_str(), &st) != 0) {
        fprintf(stderr, "aimctl %s: no database '%s'\n", name, path.c_str());
        return nullptr;
    }
    std::string err;
    _vqm_db_handle_t* db = host::db_open_file(path, &err);
    if (!db) fprintf(stderr, "aimctl %s: cannot open '%s': %s\n", name, path.c_str(), err.c_str());
    return db;
}

}  // namespace aimctl

int main(int argc, char** argv) {
    using namespace aimctl;
    std::vector<std::string> args;
    std::string name;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--log-level" || a.rfind("--log-level=", 0) == 0) {
            std::string v;
            if (a == "--log-level") {
                if (i + 1 >= argc) {
                    fprintf(stderr, "aimctl: --log-level needs a value (dbg, info, warn, err)\n");
                    return exit_usage;
                }
                v = argv[++i];
            } else {
                v = a.substr(strlen("--log-level="));
            }
            host::log_level level;
            if (!host::parse_log_level(v.c_str(), level)) {
                fprintf(stderr, "aimctl: unknown log level '%s' (use dbg, info, warn or err)\n", v.c_str());
                return exit_usage;
            }
            host::set_log_level(level);
        } else if (name.empty() && (a == "-h" || a == "--help")) {
            print_overview(stdout);
            return exit_ok;
        } else if (name.empty() && a == "--version") {
            printf("aimctl %s\n", AIMCTL_VERSION);
            return exit_ok;
        } else if (name.empty()) {
            name = a;
        } else {
            args.push_back(a);
        }
    }
    if (name.empty()) {
        print_overview(stderr);
        return exit_usage;
    }
    auto it = commands().find(name);
    if (it == commands().end()) {
        fprintf(stderr, "aimctl: unknown command '%s'\n", name.c_str());
        print_overview(stderr);
        return exit_usage;
    }
    if (wants_help(args)) {
        fputs(it->second.usage, stdout);
        return exit_ok;
    }
    return it->second.run(args);
}
