// aimctl rebuild --db DB: refills the port statistics table with rebuild_tables_in_memory.
#include <stdio.h>

#include "ingest/parse_aim.h"
#include "tools/aimctl/command.h"

namespace aimctl {
namespace {

int run_rebuild(const std::vector<std::string>& args) {
    std::string path;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--db" && i + 1 < args.size()) {
            path = args[++i];
        } else if (args[i] == "--db") {
            return usage_error("rebuild", "--db needs a value");
        } else {
            return usage_error("rebuild", "unexpected argument '" + args[i] + "'");
        }
    }
    if (path.empty()) return usage_error("rebuild", "missing --db DB");
    _vqm_db_handle_t* db = open_database("rebuild", path, true);
    if (!db) return exit_failed;
    int rc = rebuild_tables_in_memory(db);
    vqm_db_close(db);
    if (rc != 0) {
        fprintf(stderr, "aimctl rebuild: rebuild_tables_in_memory returned %d\n", rc);
        return exit_failed;
    }
    return exit_ok;
}

}  // namespace

AIMCTL_COMMAND("rebuild", "refill the port statistics table of a database",
               "usage: aimctl rebuild --db DB\n\n"
               "Runs rebuild_tables_in_memory on the inventory database DB: when its table\n"
               "\"PCIPhysicalPortStat\" is empty, it gets one row per \"PCIPhysicalPort\" row.\n\n"
               "Exit status: 0 when rebuild_tables_in_memory returned 0, 1 when it failed or DB\n"
               "does not exist, 2 for bad arguments.\n",
               run_rebuild);

}  // namespace aimctl
