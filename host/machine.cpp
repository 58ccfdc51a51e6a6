#include "host/machine.h"

#include <stdlib.h>

#include <fstream>
#include <map>

namespace host {
namespace {

std::map<std::string, section_loader>& sections() {
    static std::map<std::string, section_loader> s;
    return s;
}

machine& installed() {
    static machine m;
    return m;
}

}  // namespace

section_registrar::section_registrar(const char* key, section_loader loader) {
    sections()[key] = std::move(loader);
}

void reset_machine() {
    installed() = machine();
    nlohmann::json null_value;
    for (auto& s : sections()) s.second(installed(), null_value);
}

void load_machine(const std::string& dir) {
    std::string path = dir + "/machine.json";
    std::ifstream in(path);
    if (!in) throw machine_error("cannot open " + path);
    nlohmann::json description;
    try {
        description = nlohmann::json::parse(in);
    } catch (const nlohmann::json::exception& e) {
        throw machine_error(path + ": " + e.what());
    }
    load_machine(dir, description);
}

void load_machine(const std::string& dir, const nlohmann::json& description) {
    std::string path = dir + "/machine.json";
    machine m;
    m.dir = dir;
    m.json = description;
    if (!m.json.is_object()) throw machine_error(path + ": the machine description must be a JSON object");
    for (auto it = m.json.begin(); it != m.json.end(); ++it) {
        if (!sections().count(it.key())) throw machine_error(path + ": unknown key \"" + it.key() + "\"");
    }
    reset_machine();
    installed() = m;
    const machine& cur = installed();
    nlohmann::json null_value;
    for (auto& s : sections()) {
        auto it = cur.json.find(s.first);
        try {
            s.second(cur, it == cur.json.end() ? null_value : *it);
        } catch (const nlohmann::json::exception& e) {
            throw machine_error(path + ": \"" + s.first + "\": " + e.what());
        } catch (const machine_error& e) {
            throw machine_error(path + ": \"" + s.first + "\": " + e.what());
        }
    }
}

const machine& current_machine() { return installed(); }

unsigned long long json_number(const nlohmann::json& v, const std::string& what, unsigned long long lo,
                               unsigned long long hi) {
    unsigned long long n = 0;
    if (v.is_number_unsigned()) {
        n = v.get<unsigned long long>();
    } else if (v.is_number_integer()) {
        long long s = v.get<long long>();
        if (s < 0) throw machine_error(what + " must not be negative");
        n = static_cast<unsigned long long>(s);
    } else if (v.is_string()) {
        const std::string& t = v.get_ref<const std::string&>();
        char* end = nullptr;
        n = strtoull(t.c_str(), &end, 0);
        if (t.empty() || *end != '\0' || t[0] == '-')
            throw machine_error(what + " is not a number: \"" + t + "\"");
    } else {
        throw machine_error(what + " must be a number");
    }
    if (n < lo || n > hi) {
        throw machine_error(what + " is out of range (" + std::to_string(lo) + " to " + std::to_string(hi) +
                            ")");
    }
    return n;
}

std::string json_text(const nlohmann::json& v, const std::string& what) {
    if (!v.is_string()) throw machine_error(what + " must be a text");
    return v.get<std::string>();
}

}  // namespace host
