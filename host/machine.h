// A simulated controller, described by a machine directory holding "machine.json".
//
// Each top-level key of machine.json belongs to one section of the simulation (the PCI
// functions, storage controllers, MCTP endpoints, GPUs, ...). A section registers a loader
// for its key with HOST_MACHINE_SECTION; loading a machine runs the loader of every key
// present and reports unknown keys as errors. Sections whose key is absent are reset.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

namespace host {

// A machine description that cannot be used; the message says which key and why.
class machine_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct machine {
    std::string dir;      // the machine directory (files of the sysroot and images live here)
    nlohmann::json json;  // the parsed machine.json
};

// Loader of one section: validates `value` (throws machine_error) and installs it. Called
// with a null json value when the machine does not have the key, to reset the section.
typedef std::function<void(const machine& m, const nlohmann::json& value)> section_loader;

struct section_registrar {
    section_registrar(const char* key, section_loader loader);
};

#define HOST_MACHINE_SECTION_CAT2(a, b) a##b
#define HOST_MACHINE_SECTION_CAT(a, b) HOST_MACHINE_SECTION_CAT2(a, b)
#define HOST_MACHINE_SECTION(key, loader) \
    static ::host::section_registrar HOST_MACHINE_SECTION_CAT(host_section_, __LINE__)(key, loader)

// Reads `dir`/machine.json and installs every section. Throws machine_error.
void load_machine(const std::string& dir);
// Installs an already parsed description of the machine directory `dir` (its files are
// still read from `dir`), as if it stood in `dir`/machine.json. Throws machine_error.
void load_machine(const std::string& dir, const nlohmann::json& description);
// Resets every section to an empty machine.
void reset_machine();
// The machine installed last (empty dir and null json when none).
const machine& current_machine();

// Helpers for section loaders: a number in [lo, hi] (JSON number, or text in automatic
// base such as "0x10DE"), with `what` naming the value in the error message.
unsigned long long json_number(const nlohmann::json& v, const std::string& what, unsigned long long lo,
                               unsigned long long hi);
std::string json_text(const nlohmann::json& v, const std::string& what);

}  // namespace host
