// Host mapping of the controller's fixed paths, and the private sysroot of a run.
#pragma once

#include <string>

namespace host {

// `path` below $AIM_SYSROOT when that variable is set, else unchanged.
std::string map_path(const char* path);

// Retry sleeps of the library: really sleep (default) or only count them (tests).
void set_real_sleep(bool enabled);
unsigned long long total_sleep_us();

// A fresh temporary directory used as AIM_SYSROOT for the lifetime of the object; the
// previous value of AIM_SYSROOT is restored and the directory removed on destruction.
class scoped_sysroot {
public:
    // Creates the directory (with tmp/, pstorage/cmr/ and bin/ inside) and, when
    // `populate_from` is not empty, copies that directory's files into it.
    explicit scoped_sysroot(const std::string& populate_from = std::string());
    ~scoped_sysroot();
    scoped_sysroot(const scoped_sysroot&) = delete;
    scoped_sysroot& operator=(const scoped_sysroot&) = delete;
    const std::string& dir() const { return dir_; }

private:
    std::string dir_;
    std::string previous_;
    bool had_previous_ = false;
};

}  // namespace host
