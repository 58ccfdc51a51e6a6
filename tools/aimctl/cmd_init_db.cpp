// aimctl init-db DB: creates an inventory database with every table of the schema.
#include <stdio.h>

#include "host/db.h"
#include "tools/aimctl/command.h"

namespace aimctl {
namespace {

int run_init_db(const std::vector<std::string>& args) {
    if (args.size() != 1) return usage_error("init-db", args.empty() ? "missing DB" : "too many arguments");
    const std::string& path = args[0];
    if (path.size() > 1 && path[0] == '-') return usage_error("init-db", "unknown option '" + path + "'");
    _vqm_db_handle_t* db = open_database("init-db", path, false);
    if (!db) return exit_failed;
    std::string err;
    int rc = host::db_apply_schema(db, &err);
    vqm_db_close(db);
    if (rc != 0) {
        fprintf(stderr, "aimctl init-db: cannot create the tables in '%s': %s\n", path.c_str(), err.c_str());
        return exit_failed;
    }
    return exit_ok;
}

}  // namespace

AIMCTL_COMMAND("init-db", "create an inventory database with the schema",
               "usage: aimctl init-db DB\n\n"
               "Creates the SQLite inventory database DB (file created when absent) with every\n"
               "table and index of the inventory schema that it does not have yet; existing\n"
               "rows are kept.\n\n"
               "Exit status: 0 on success, 1 when the database cannot be written, 2 for bad\n"
               "arguments.\n",
               run_init_db);

}  // namespace aimctl
