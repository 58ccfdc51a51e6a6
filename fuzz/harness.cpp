#include "fuzz/harness.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/db.h"
#include "host/log.h"
#include "host/machine.h"
#include "host/storage.h"
#include "host/sysroot.h"
#include "ingest/parse_aim.h"

namespace fs = std::filesystem;

namespace fuzz {
namespace {

struct state {
    host::scoped_sysroot sysroot;
    _vqm_db_handle_t* db = nullptr;
    state() {
        std::string dir = sysroot.dir() + "/.fuzz", err;
        fs::create_directories(dir);
        host::set_database_dir(dir);
        host::set_real_sleep(false);
        // In memory: the library sees the same client, without a file write per statement.
        db = host::db_open_file(":memory:", &err);
        if (!db || host::db_apply_schema(db, &err) != 0) {
            fprintf(stderr, "fuzz: no database: %s\n", err.c_str());
            abort();
        }
        quiet();
    }
};

state& the_state() {
    static state* s = new state();  // lives as long as the process
    return *s;
}

}  // namespace

void quiet() {
    host::set_log_level(host::log_level::err);  // only errors are printed
    host::log_capture_begin();
}

void drop_log() {
    host::log_capture_end();
    host::log_capture_begin();
}

_vqm_db_handle_t* controller() { return the_state().db; }

std::string machine_copy(const std::string& name) {
    std::string to = the_state().sysroot.dir() + "/.fuzz/machine-" + name;
    fs::remove_all(to);
    fs::copy(source_path("examples/machines/" + name), to, fs::copy_options::recursive);
    return to;
}

void load_machine(const std::string& dir, bool pcis) {
    state& s = the_state();
    for (const auto& e : fs::directory_iterator(dir)) {
        if (e.path().filename() == "machine.json") continue;
        fs::copy(e.path(), fs::path(s.sysroot.dir()) / e.path().filename(),
                 fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    }
    host::load_machine(dir);
    std::string err;
    if (pcis && host::load_machine_pcis(s.db, &err) != 0) {
        fprintf(stderr, "fuzz: machine %s: %s\n", dir.c_str(), err.c_str());
        abort();
    }
}

int run_aim(const std::string& xml) {
    const char* path = "/pstorage/cmr/aim.xml";
    // Without its sysroot every run would only fail to read the file: stop loudly instead.
    if (!fs::is_directory(the_state().sysroot.dir() + "/pstorage/cmr")) {
        fprintf(stderr, "fuzz: the sysroot %s was removed\n", the_state().sysroot.dir().c_str());
        abort();
    }
    write_file(host::map_path(path), reinterpret_cast<const uint8_t*>(xml.data()), xml.size());
    int rc = parse_aim(controller(), path);
    drop_log();
    return rc;
}

std::string machine_database(const std::string& name) {
    std::string path = the_state().sysroot.dir() + "/.fuzz/" + name + ".db", err;
    if (fs::exists(path)) return path;
    load_machine(source_path("examples/machines/" + name));
    run_aim(source_file("examples/aim/" + name + ".xml"));
    if (host::db_exec_script(controller(), "VACUUM INTO '" + path + "'", &err) != 0) {
        fprintf(stderr, "fuzz: cannot write %s: %s\n", path.c_str(), err.c_str());
        abort();
    }
    return path;
}

std::string source_path(const std::string& relative) { return std::string(AIM_SOURCE_DIR) + "/" + relative; }

std::string source_file(const std::string& relative) {
    std::ifstream in(source_path(relative), std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void write_file(const std::string& path, const uint8_t* data, size_t size) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
}

}  // namespace fuzz
