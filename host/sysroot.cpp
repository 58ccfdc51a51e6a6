#include <stdlib.h>

#include <filesystem>
#include <stdexcept>

#include "host/sysroot.h"

namespace fs = std::filesystem;

namespace host {

scoped_sysroot::scoped_sysroot(const std::string& populate_from) {
    std::string tmpl = (fs::temp_directory_path() / "aim-sysroot-XXXXXX").string();
    if (!mkdtemp(&tmpl[0])) throw std::runtime_error("cannot create a temporary sysroot");
    dir_ = tmpl;
    fs::create_directories(fs::path(dir_) / "tmp");
    fs::create_directories(fs::path(dir_) / "pstorage" / "cmr");
    fs::create_directories(fs::path(dir_) / "bin");
    if (!populate_from.empty()) {
        fs::copy(populate_from, dir_, fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    }
    if (const char* prev = getenv("AIM_SYSROOT")) {
        previous_ = prev;
        had_previous_ = true;
    }
    setenv("AIM_SYSROOT", dir_.c_str(), 1);
}

scoped_sysroot::~scoped_sysroot() {
    if (had_previous_) {
        setenv("AIM_SYSROOT", previous_.c_str(), 1);
    } else {
        unsetenv("AIM_SYSROOT");
    }
    std::error_code ec;
    fs::remove_all(dir_, ec);
}

}  // namespace host
