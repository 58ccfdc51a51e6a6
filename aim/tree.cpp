// The AIM document tree: static names, containers, ownership and the setting accessors.
#include <stdlib.h>
#include <string.h>

#include <stdexcept>

#include "aim/document.h"

namespace aim_parser {

const char* aim_file = "/pstorage/cmr/aim.xml";
const char* debug_aim_file = "/tmp/aim.xml";

const char* inventories::TAG = "inventories";
const char* configset::TAG = "configset";
const char* config::TAG = "config";
const char* group::TAG = "group";
const char* setting_node::TAG = "setting";

namespace {

void check_name(const char* name) {
    if (!name) throw std::logic_error("AIM Doc: null name passed to a container lookup");
}

std::string key_of(const char* name) {
    check_name(name);
    return std::string(name);
}

// The family of container operations, shared by every parent/child pair. A multimap
// inserts a new element after the existing ones of an equal key, so equal names stay in
// insertion order.
//
// Children often arrive in key order (numbered ports, sorted settings), so the insert first
// tries the end: one comparison with the last key when the new key is not smaller, the
// usual descent otherwise; either way equal keys keep their insertion order.
template <class T>
void add_child(std::multimap<std::string, T*>& m, T* child) {
    if (child) m.emplace_hint(m.end(), child->name, child);
}

// A container this small (a group's settings, a config's groups) is searched in key order
// without building a key string: keys of another first byte or length are passed over
// without comparing them, and the search ends at the first key that sorts after the name's
// first byte. A larger container is searched through the tree.
const size_t small_container = 16;

template <class T>
T* first_child(const std::multimap<std::string, T*>& m, const char* name) {
    if (m.size() <= small_container) {
        check_name(name);
        size_t len = strlen(name);
        const unsigned char first = static_cast<unsigned char>(name[0]);
        for (const auto& kv : m) {
            const std::string& key = kv.first;
            // An empty key orders first; its "first byte" is the terminating NUL.
            unsigned char key_first = static_cast<unsigned char>(key.c_str()[0]);
            if (key_first < first) continue;
            if (key_first > first) break;
            if (key.size() == len && memcmp(key.data(), name, len) == 0) return kv.second;
        }
        return nullptr;
    }
    auto it = m.find(key_of(name));
    return it == m.end() ? nullptr : it->second;
}

template <class T>
void children_named(const std::multimap<std::string, T*>& m, const char* name, std::vector<T*>& out) {
    auto range = m.equal_range(key_of(name));
    for (auto it = range.first; it != range.second; ++it) out.push_back(it->second);
}

template <class T>
void all_children(const std::multimap<std::string, T*>& m, std::vector<T*>& out) {
    for (const auto& kv : m) out.push_back(kv.second);
}

// Deletes groups and every sub-group below them without recursing: each group's
// sub-groups are detached onto a work list before the group itself is deleted, so its
// destructor finds no sub-groups left.
void delete_groups(std::vector<group*> pending) {
    while (!pending.empty()) {
        group* g = pending.back();
        pending.pop_back();
        for (const auto& kv : g->groups) pending.push_back(kv.second);
        g->groups.clear();
        delete g;
    }
}

template <class T>
bool remove_children(std::multimap<std::string, T*>& m, const char* name) {
    auto range = m.equal_range(key_of(name));
    if (range.first == range.second) return false;
    std::vector<T*> doomed;
    for (auto it = range.first; it != range.second; ++it) doomed.push_back(it->second);
    m.erase(range.first, range.second);
    for (T* c : doomed) delete c;
    return true;
}

bool remove_groups(std::multimap<std::string, group*>& m, const char* name) {
    auto range = m.equal_range(key_of(name));
    if (range.first == range.second) return false;
    std::vector<group*> doomed;
    for (auto it = range.first; it != range.second; ++it) doomed.push_back(it->second);
    m.erase(range.first, range.second);
    delete_groups(std::move(doomed));
    return true;
}

// The children are detached (the container is empty) before the first one is deleted. The
// container is in name order but the children lie in memory in the order they were read, so
// the processor cannot guess where the next one is: it is fetched while the one before it
// is freed.
template <class T>
void clear_children(std::multimap<std::string, T*>& m) {
    std::multimap<std::string, T*> doomed;
    doomed.swap(m);
    for (auto it = doomed.begin(); it != doomed.end();) {
        T* c = it->second;
        if (++it != doomed.end()) __builtin_prefetch(it->second);
        delete c;
    }
}

void clear_group_map(std::multimap<std::string, group*>& m) {
    if (m.empty()) return;
    std::vector<group*> doomed;
    doomed.reserve(m.size());
    all_children(m, doomed);
    m.clear();
    delete_groups(std::move(doomed));
}

}  // namespace

element::~element() {}

// ---- setting_node ----------------------------------------------------------------------------

setting_node::~setting_node() {}

uint32_t setting_node::get_type() const { return setting_node_type; }

const char* setting_node::map_data_type(setting_data_type t) {
    switch (t) {
        case text_data:
            return "text_data";
        case numeric_data:
            return "numeric_data";
        case enumerate_data:
            return "enumerate_data";
        case boolean_data:
            return "boolean_data";
    }
    return "unknow_value";
}

namespace {

// strtoll(s, nullptr, 0) for the common value: a decimal number without sign, leading zero
// or blank, of at most 18 digits (which cannot overflow). Anything else goes to strtoll.
long long to_int64(const std::string& s) {
    size_t n = s.size();
    if (n == 0 || n > 18 || s[0] < '1' || s[0] > '9') return strtoll(s.c_str(), nullptr, 0);
    long long v = 0;
    for (size_t i = 0; i < n; ++i) {
        unsigned d = static_cast<unsigned char>(s[i]) - '0';
        if (d > 9) return strtoll(s.c_str(), nullptr, 0);
        v = v * 10 + d;
    }
    return v;
}

}  // namespace

long long setting_node::get_int64(long long dflt) const {
    switch (type) {
        case numeric_data:
            return to_int64(value);
        case boolean_data:
            return value == "true" || value == "1" ? 1 : 0;
        default:
            return dflt;
    }
}

// ---- group -----------------------------------------------------------------------------------

group::~group() {
    clear_setting_nodes();
    clear_groups();
}

uint32_t group::get_type() const { return group_type; }

void group::add_setting_node(setting_node* child) { add_child(settings, child); }
setting_node* group::get_setting_node(const char* name) const { return first_child(settings, name); }
bool group::has_setting_node(const char* name) const { return first_child(settings, name) != nullptr; }
void group::get_setting_node(const char* name, std::vector<setting_node*>& out) const {
    children_named(settings, name, out);
}
bool group::remove_setting_node(const char* name) { return remove_children(settings, name); }
void group::clear_setting_nodes() { clear_children(settings); }

void group::add_group(group* child) { add_child(groups, child); }
group* group::get_group(const char* name) const { return first_child(groups, name); }
bool group::has_group(const char* name) const { return first_child(groups, name) != nullptr; }
void group::get_group(const char* name, std::vector<group*>& out) const { children_named(groups, name, out); }

void group::get_group_list(const char* part, std::vector<group*>& out) const {
    const char* p = part ? part : "";
    for (const auto& kv : groups) {
        if (kv.first.find(p) != std::string::npos) out.push_back(kv.second);
    }
}

bool group::remove_group(const char* name) { return remove_groups(groups, name); }
void group::clear_groups() { clear_group_map(groups); }

// ---- config ----------------------------------------------------------------------------------

// Above glibc's per-thread cache (at most 1032 bytes) and in its large-request range on
// 32 and 64 bits, so that the request always reaches the merging step.
constexpr size_t merge_request = 4096;

// A config's release ends with one large request. glibc keeps the small blocks that are
// freed (a setting's container entry, short texts) unmerged until a large request or a
// large free comes; a large request merges them back into the free memory around them.
// Asking for one here merges the config's blocks while they are still in cache; left to
// itself, glibc merges them all at once later in the release, or at the start of the next
// run, over a heap that no longer fits any cache (twice the release's time at 4096 configs,
// and an instruction count that depended on the heap's history).
config::~config() {
    clear_groups();
    void* volatile large = malloc(merge_request);
    free(large);
}

uint32_t config::get_type() const { return config_type; }

void config::add_group(group* child) { add_child(groups, child); }
group* config::get_group(const char* name) const { return first_child(groups, name); }
bool config::has_group(const char* name) const { return first_child(groups, name) != nullptr; }
void config::get_group(const char* name, std::vector<group*>& out) const {
    children_named(groups, name, out);
}
bool config::remove_group(const char* name) { return remove_groups(groups, name); }
void config::clear_groups() { clear_group_map(groups); }

// ---- configset -------------------------------------------------------------------------------

configset::~configset() { clear_configs(); }

uint32_t configset::get_type() const { return configset_type; }

void configset::add_config(config* child) { add_child(configs, child); }
config* configset::get_config(const char* name) const { return first_child(configs, name); }
bool configset::has_config(const char* name) const { return first_child(configs, name) != nullptr; }
void configset::get_config(const char* name, std::vector<config*>& out) const {
    children_named(configs, name, out);
}
void configset::get_config_list(std::vector<config*>& out) const { all_children(configs, out); }
bool configset::remove_config(const char* name) { return remove_children(configs, name); }
void configset::clear_configs() { clear_children(configs); }

// ---- inventories -----------------------------------------------------------------------------

inventories::~inventories() {
    clear_configsets();
    clear_configs();
}

uint32_t inventories::get_type() const { return inventories_type; }

void inventories::add_configset(configset* child) { add_child(configsets, child); }
configset* inventories::get_configset(const char* name) const { return first_child(configsets, name); }
bool inventories::has_configset(const char* name) const { return first_child(configsets, name) != nullptr; }
void inventories::get_configset(const char* name, std::vector<configset*>& out) const {
    children_named(configsets, name, out);
}
void inventories::get_configset_list(std::vector<configset*>& out) const { all_children(configsets, out); }
bool inventories::remove_configset(const char* name) { return remove_children(configsets, name); }
void inventories::clear_configsets() { clear_children(configsets); }

void inventories::add_config(config* child) { add_child(configs, child); }
config* inventories::get_config(const char* name) const { return first_child(configs, name); }
bool inventories::has_config(const char* name) const { return first_child(configs, name) != nullptr; }
void inventories::get_config(const char* name, std::vector<config*>& out) const {
    children_named(configs, name, out);
}
void inventories::get_config_list(std::vector<config*>& out) const { all_children(configs, out); }
bool inventories::remove_config(const char* name) { return remove_children(configs, name); }
void inventories::clear_configs() { clear_children(configs); }

// ---- documents -------------------------------------------------------------------------------

xml_document::~xml_document() {}

document::~document() {}

}  // namespace aim_parser
