// aimctl check FILE: parses an AIM file as the controller's reader does and prints what it
// found. The reader's messages go to standard error through the logger.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <fstream>
#include <vector>

#include "aim/document.h"
#include "tools/aimctl/command.h"

namespace aimctl {
namespace {

struct counts {
    size_t configsets = 0, configs = 0, groups = 0, settings = 0;
};

// Counts the groups and settings of a config at every depth, without recursion.
void count_config(const aim_parser::config& cfg, counts& n) {
    ++n.configs;
    std::vector<const aim_parser::group*> pending;
    for (const auto& kv : cfg.groups) pending.push_back(kv.second);
    while (!pending.empty()) {
        const aim_parser::group* g = pending.back();
        pending.pop_back();
        ++n.groups;
        n.settings += g->settings.size();
        for (const auto& kv : g->groups) pending.push_back(kv.second);
    }
}

int run_check(const std::vector<std::string>& args) {
    if (args.size() != 1) return usage_error("check", args.empty() ? "missing FILE" : "too many arguments");
    const std::string& path = args[0];
    if (path.size() > 1 && path[0] == '-') return usage_error("check", "unknown option '" + path + "'");
    std::ifstream in(path.c_str());
    if (!in.is_open()) {
        fprintf(stderr, "aimctl check: cannot open '%s': %s\n", path.c_str(), strerror(errno));
        return exit_failed;
    }
    aim_parser::document doc;
    uint32_t rc = doc.parse(in);

    counts n;
    n.configsets = doc.inventories.configsets.size();
    for (const auto& cs : doc.inventories.configsets) {
        for (const auto& kv : cs.second->configs) count_config(*kv.second, n);
    }
    for (const auto& kv : doc.inventories.configs) count_config(*kv.second, n);
    printf("configsets: %zu\nconfigs: %zu\ngroups: %zu\nsettings: %zu\nresult: %u\n", n.configsets, n.configs,
           n.groups, n.settings, static_cast<unsigned>(rc));
    return rc == 0 ? exit_ok : exit_failed;
}

}  // namespace

AIMCTL_COMMAND("check", "parse an AIM file and count what it holds",
               "usage: aimctl check FILE\n\n"
               "Parses the AIM file FILE with the library's reader (the file is read as given: no\n"
               "path cut, no /tmp/aim.xml override). The reader's messages are logged on standard\n"
               "error; standard output gets the counts of configsets, configs (inside configsets\n"
               "and directly under the root), groups and settings (at every depth), and as last\n"
               "line 'result: N', the reader's result code (0 success, 7 root is not\n"
               "inventories, 8 ill-formed XML).\n\n"
               "Exit status: 0 when the result is 0, 1 otherwise or when FILE cannot be opened\n"
               "(then nothing is printed on standard output), 2 for bad arguments.\n",
               run_check);

}  // namespace aimctl
