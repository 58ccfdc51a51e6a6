// Simulated data store: machine.json "datastore" maps a data set name ("iscsi-cap-data")
// to a file relative to the machine directory.
//
// A data set has the fixed size given when it is opened: reads inside that size succeed,
// and bytes past the end of the file read as zero (as in a data set written shorter than
// its size); a read that goes past the size fails.
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "host/machine.h"
#include "platform/datastore.h"

namespace {

std::map<std::string, std::string> g_sets;  // name to file path

struct open_set {
    std::vector<char> bytes;
    int size;
};
std::map<int, open_set> g_open;
int g_next = 1;

void load_sets(const host::machine& m, const nlohmann::json& v) {
    g_sets.clear();
    g_open.clear();
    g_next = 1;
    if (v.is_null()) return;
    if (!v.is_object()) throw host::machine_error("must be an object from data set name to file");
    for (auto it = v.begin(); it != v.end(); ++it) {
        std::string file = host::json_text(it.value(), "data set \"" + it.key() + "\"");
        std::string path = file.empty() || file[0] == '/' ? file : m.dir + "/" + file;
        if (!std::ifstream(path, std::ios::binary)) {
            throw host::machine_error("data set \"" + it.key() + "\": cannot read " + path);
        }
        g_sets[it.key()] = path;
    }
}

}  // namespace

HOST_MACHINE_SECTION("datastore", load_sets);

int DSOpen(const char* name, int, int size, int) {
    if (!name || size <= 0) return -1;
    auto it = g_sets.find(name);
    if (it == g_sets.end()) return -1;
    std::ifstream in(it->second, std::ios::binary);
    if (!in) return -1;
    open_set s;
    s.bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    s.size = size;
    int h = g_next++;
    g_open[h] = std::move(s);
    return h;
}

int DSRead(int handle, int offset, int length, void* buffer) {
    auto it = g_open.find(handle);
    if (it == g_open.end() || !buffer || offset < 0 || length < 0) return -1;
    const open_set& s = it->second;
    if (offset > s.size || length > s.size - offset) return -1;
    char* out = static_cast<char*>(buffer);
    for (int i = 0; i < length; ++i) {
        size_t at = static_cast<size_t>(offset + i);
        out[i] = at < s.bytes.size() ? s.bytes[at] : 0;
    }
    return length;
}

int DSClose(int handle) { return g_open.erase(handle) ? 0 : -1; }
