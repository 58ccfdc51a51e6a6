// aimctl dump FILE [--unit N]: parses an AIM file and prints it with the library's writer.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <iostream>

#include "aim/document.h"
#include "tools/aimctl/command.h"

namespace aimctl {
namespace {

constexpr unsigned max_unit = 64;

int run_dump(const std::vector<std::string>& args) {
    std::string path;
    unsigned unit = 2;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--unit") {
            if (i + 1 >= args.size()) return usage_error("dump", "--unit needs a value");
            const std::string& v = args[++i];
            char* end = nullptr;
            errno = 0;
            unsigned long n = strtoul(v.c_str(), &end, 10);
            if (v.empty() || v[0] == '-' || *end || errno || n > max_unit) {
                return usage_error("dump", "--unit takes a number of spaces from 0 to 64, not '" + v + "'");
            }
            unit = static_cast<unsigned>(n);
        } else if (a.size() > 1 && a[0] == '-') {
            return usage_error("dump", "unknown option '" + a + "'");
        } else if (path.empty()) {
            path = a;
        } else {
            return usage_error("dump", "too many arguments");
        }
    }
    if (path.empty()) return usage_error("dump", "missing FILE");

    std::ifstream in(path.c_str());
    if (!in.is_open()) {
        fprintf(stderr, "aimctl dump: cannot open '%s': %s\n", path.c_str(), strerror(errno));
        return exit_failed;
    }
    aim_parser::document doc;
    uint32_t rc = doc.parse(in);
    if (rc != 0) {
        fprintf(stderr, "aimctl dump: %s: result: %u\n", path.c_str(), static_cast<unsigned>(rc));
        return exit_failed;
    }
    doc.dump(std::cout, unit);
    return exit_ok;
}

}  // namespace

AIMCTL_COMMAND("dump", "parse an AIM file and print it with the writer",
               "usage: aimctl dump FILE [--unit N]\n\n"
               "Parses the AIM file FILE as 'aimctl check' does and prints the tree with the\n"
               "library's writer on standard output, indenting N spaces per level (default 2,\n"
               "0 to 64). The writer prints a reduced view: names, addresses, values and\n"
               "descriptions, without IDs, and not the configs standing directly under the root.\n\n"
               "Exit status: 0 on success; 1 when FILE cannot be opened or the reader's result is\n"
               "not 0 (the result is printed on standard error); 2 for bad arguments.\n",
               run_dump);

}  // namespace aimctl
