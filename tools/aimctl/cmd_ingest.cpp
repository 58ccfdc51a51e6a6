// aimctl ingest --db DB [--machine DIR] FILE: runs parse_aim on FILE against the inventory
// database DB, as the controller's inventory service does, inside a private sysroot.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>

#include "host/db.h"
#include "host/machine.h"
#include "host/storage.h"
#include "host/sysroot.h"
#include "ingest/parse_aim.h"
#include "tools/aimctl/command.h"

namespace fs = std::filesystem;

namespace aimctl {
namespace {

// Where FILE is placed in the sysroot for the library: the controller's own AIM path.
const char* const kControllerPath = "/pstorage/cmr/aim.xml";

const char* const kAdapterTables[] = {
    "PCIAdapter",          "PCIMisc",        "VPDs",   "Firmwares",  "PCINetwork", "PCIPhysicalPort",
    "PCIPhysicalPortStat", "PCILogicalPort", "PCIGPU", "PCIGPUChip", "AimDisks",   "PldmDeviceFirmware"};

int ingest(const std::string& db_path, const std::string& machine_dir, const std::string& file) {
    // The library sees only the private sysroot: its fixed paths (/tmp/aim.xml,
    // /tmp/aim_filtered.xml, /pstorage, /bin) and the properties database live there.
    std::unique_ptr<host::scoped_sysroot> root;
    try {
        root.reset(new host::scoped_sysroot(machine_dir));
    } catch (const std::exception& e) {
        fprintf(stderr, "aimctl ingest: cannot set up the sysroot: %s\n", e.what());
        return exit_failed;
    }
    std::error_code ec;
    fs::remove(fs::path(root->dir()) / "machine.json", ec);
    host::set_database_dir(root->dir() + "/.aimctl-db");
    fs::create_directories(host::database_dir(), ec);
    if (!machine_dir.empty()) {
        try {
            host::load_machine(machine_dir);
        } catch (const host::machine_error& e) {
            fprintf(stderr, "aimctl ingest: %s\n", e.what());
            return exit_usage;
        }
    }

    std::string err;
    _vqm_db_handle_t* db = host::db_open_file(db_path, &err);
    if (!db || host::db_apply_schema(db, &err) != 0) {
        fprintf(stderr, "aimctl ingest: cannot open the database '%s': %s\n", db_path.c_str(), err.c_str());
        if (db) vqm_db_close(db);
        return exit_failed;
    }
    if (!machine_dir.empty() && host::load_machine_pcis(db, &err) != 0) {
        fprintf(stderr, "aimctl ingest: cannot load the PCI functions of the machine: %s\n", err.c_str());
        vqm_db_close(db);
        return exit_failed;
    }
    // A FILE that cannot be read is left to the library, which fails on it like the controller.
    std::string target = root->dir() + kControllerPath;
    fs::remove(target, ec);
    fs::copy_file(file, target, ec);

    int rc = parse_aim(db, kControllerPath);
    for (const char* table : kAdapterTables) {
        std::vector<host::row> n;
        if (host::db_select(db, std::string("SELECT count(*) AS n FROM \"") + table + "\"", n) == 0 &&
            !n.empty() && n[0]["n"] != "0") {
            printf("%-20s %s rows\n", table, n[0]["n"].c_str());
        }
    }
    vqm_db_close(db);
    host::reset_machine();
    printf("parse_aim: %d\n", rc);
    return rc == 0 ? exit_ok : exit_failed;
}

int run_ingest(const std::vector<std::string>& args) {
    std::string db, machine, file;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--db" || a == "--machine") {
            if (i + 1 >= args.size()) return usage_error("ingest", a + " needs a value");
            (a == "--db" ? db : machine) = args[++i];
        } else if (a.size() > 1 && a[0] == '-') {
            return usage_error("ingest", "unknown option '" + a + "'");
        } else if (file.empty()) {
            file = a;
        } else {
            return usage_error("ingest", "unexpected argument '" + a + "'");
        }
    }
    if (db.empty()) return usage_error("ingest", "missing --db DB");
    if (file.empty()) return usage_error("ingest", "missing FILE");
    if (!machine.empty()) {
        struct stat st;
        if (stat((machine + "/machine.json").c_str(), &st) != 0) {
            return usage_error("ingest", "no machine description '" + machine + "/machine.json'");
        }
        machine = fs::absolute(machine).string();
    }
    return ingest(fs::absolute(db).string(), machine, fs::absolute(file).string());
}

}  // namespace

AIMCTL_COMMAND("ingest", "run parse_aim on an AIM file against an inventory database",
               "usage: aimctl ingest --db DB [--machine DIR] FILE\n\n"
               "Runs parse_aim on the AIM file FILE with the inventory database DB (created with\n"
               "the schema when absent), as the controller's inventory service does.\n"
               "  --machine DIR  simulated controller: DIR/machine.json describes it, and the\n"
               "                 PCI functions of its \"pcis\" replace the rows of \"PCIs\" of DB\n\n"
               "The library runs in a private sysroot (a fresh temporary directory holding the\n"
               "files of DIR but machine.json), so the real /tmp, /pstorage and /bin are never\n"
               "read or written. FILE is copied there to the controller path\n"
               "/pstorage/cmr/aim.xml, the path handed to parse_aim; messages name the\n"
               "controller's paths. The properties database of the machine lives there too.\n"
               "Standard output gets the row count of every adapter table that is not empty\n"
               "and 'parse_aim: N'.\n\n"
               "Exit status: 0 when parse_aim returned 0, 1 when it returned -1 or DB cannot be\n"
               "opened, 2 for bad arguments or a machine description that cannot be used.\n",
               run_ingest);

}  // namespace aimctl
