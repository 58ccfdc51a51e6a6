// The AIM document: the in-memory tree of one AIM file, its XML reader and its writer.
//
// A document holds one inventories root; the root holds configsets and, directly, configs;
// a configset holds configs; a config holds groups; a group holds settings and nested
// groups. Every container is an ordered multimap keyed by the child's name as it stood when
// the child was added: lookups by name return the first-added match and duplicates are
// kept in insertion order. A container owns its children.
#pragma once

#include <stdint.h>

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "platform/aim_export.h"
#include "platform/sysxml.h"

namespace aim_parser {

// Default AIM file and the debug override that the reader prefers when it exists.
AIM_EXPORT extern const char* aim_file;        // "/pstorage/cmr/aim.xml"
AIM_EXPORT extern const char* debug_aim_file;  // "/tmp/aim.xml"

// Node kinds, as get_type() reports them.
enum element_type : uint32_t {
    setting_node_type = 0,
    group_type = 1,
    config_type = 2,
    configset_type = 3,
    inventories_type = 4,
};

// Result codes of the reader.
enum parse_result : uint32_t {
    parse_ok = 0,
    parse_bad_setting = 2,
    parse_bad_group = 3,
    parse_bad_pfa_field = 4,
    parse_bad_config = 5,
    parse_bad_configset = 6,
    parse_bad_root = 7,
    parse_xml_exception = 8,
};

// Nested groups deeper than this below a config are treated as groups that failed to
// parse, so that no input can exhaust the stack.
constexpr uint32_t max_group_depth = 256;

class AIM_EXPORT element {
public:
    element() = default;
    element(const element&) = delete;
    element& operator=(const element&) = delete;
    virtual ~element();
    virtual uint32_t get_type() const = 0;
    virtual void dump(std::ostream& os, unsigned unit) const = 0;

    uint32_t depth = 0;
};

class AIM_EXPORT setting_node : public element {
public:
    enum setting_data_type : uint32_t {
        text_data = 0,
        numeric_data = 1,
        enumerate_data = 2,
        boolean_data = 3,
    };
    AIM_EXPORT static const char* TAG;  // "setting"

    ~setting_node() override;
    uint32_t get_type() const override;
    void dump(std::ostream& os, unsigned unit) const override;

    uint32_t parse(sysxml::node& n);
    // The type's text: "text_data", "numeric_data", "enumerate_data", "boolean_data", or
    // "unknow_value" for any other value.
    static const char* map_data_type(setting_data_type t);
    // numeric_data: strtoll(value, nullptr, 0); boolean_data: 1 for "true" or "1", else 0;
    // any other type: dflt.
    long long get_int64(long long dflt) const;

    std::string name;
    std::string mri_name;
    std::string desc;
    std::string value;
    uint32_t type = 4;
    std::string id;
    std::string suppress_if;
    std::string redfish;
};

class AIM_EXPORT group : public element {
public:
    AIM_EXPORT static const char* TAG;  // "group"

    ~group() override;
    uint32_t get_type() const override;
    void dump(std::ostream& os, unsigned unit) const override;
    uint32_t parse(sysxml::node& n);

    void add_setting_node(setting_node* child);
    setting_node* get_setting_node(const char* name) const;
    bool has_setting_node(const char* name) const;
    void get_setting_node(const char* name, std::vector<setting_node*>& out) const;
    bool remove_setting_node(const char* name);
    void clear_setting_nodes();

    void add_group(group* child);
    group* get_group(const char* name) const;
    bool has_group(const char* name) const;
    void get_group(const char* name, std::vector<group*>& out) const;
    // Appends, in key order, every sub-group whose name contains `part`.
    void get_group_list(const char* part, std::vector<group*>& out) const;
    bool remove_group(const char* name);
    void clear_groups();

    std::string name;
    std::string mri_name;
    std::string suppress_if;
    std::string redfish;
    std::multimap<std::string, setting_node*> settings;
    std::multimap<std::string, group*> groups;
};

class AIM_EXPORT config : public element {
public:
    AIM_EXPORT static const char* TAG;  // "config"

    ~config() override;
    uint32_t get_type() const override;
    void dump(std::ostream& os, unsigned unit) const override;
    uint32_t parse(sysxml::node& n);
    uint32_t parse_pfa(sysxml::node& n);

    void add_group(group* child);
    group* get_group(const char* name) const;
    bool has_group(const char* name) const;
    void get_group(const char* name, std::vector<group*>& out) const;
    bool remove_group(const char* name);
    void clear_groups();

    std::string name;
    std::string mri_name;
    std::string desc;
    std::string segment;
    std::string bus;
    std::string device;
    std::string function;
    std::string id;
    std::string redfish;
    std::multimap<std::string, group*> groups;
};

class AIM_EXPORT configset : public element {
public:
    AIM_EXPORT static const char* TAG;  // "configset"

    ~configset() override;
    uint32_t get_type() const override;
    void dump(std::ostream& os, unsigned unit) const override;
    uint32_t parse(sysxml::node& n);

    void add_config(config* child);
    config* get_config(const char* name) const;
    bool has_config(const char* name) const;
    void get_config(const char* name, std::vector<config*>& out) const;
    void get_config_list(std::vector<config*>& out) const;
    bool remove_config(const char* name);
    void clear_configs();

    std::string name;
    std::string mri_name;
    std::multimap<std::string, config*> configs;
};

class AIM_EXPORT inventories : public element {
public:
    AIM_EXPORT static const char* TAG;  // "inventories"

    ~inventories() override;
    uint32_t get_type() const override;
    void dump(std::ostream& os, unsigned unit) const override;
    uint32_t parse(sysxml::node& root);

    void add_configset(configset* child);
    configset* get_configset(const char* name) const;
    bool has_configset(const char* name) const;
    void get_configset(const char* name, std::vector<configset*>& out) const;
    void get_configset_list(std::vector<configset*>& out) const;
    bool remove_configset(const char* name);
    void clear_configsets();

    // Configs standing directly under the root, outside any configset.
    void add_config(config* child);
    config* get_config(const char* name) const;
    bool has_config(const char* name) const;
    void get_config(const char* name, std::vector<config*>& out) const;
    void get_config_list(std::vector<config*>& out) const;
    bool remove_config(const char* name);
    void clear_configs();

    std::multimap<std::string, configset*> configsets;
    std::multimap<std::string, config*> configs;
};

// The DOM of one parse, as the reader holds it.
class AIM_EXPORT xml_document : public sysxml::document {
public:
    using sysxml::document::document;
    ~xml_document() override;
};

class AIM_EXPORT document {
public:
    document() = default;
    document(const document&) = delete;
    document& operator=(const document&) = delete;
    virtual ~document();

    // Reads "/tmp/aim.xml" when it exists, else `path` (cut to 31 characters), else, for a
    // null path, a freshly written empty default file.
    uint32_t parse(const char* path);
    uint32_t parse(std::istream& in);
    uint32_t parse(sysxml::node& root);

    void dump(std::ostream& os, unsigned unit) const;
    // Writes the document without indentation; a null path does nothing.
    void dump(const char* path) const;

    aim_parser::inventories inventories;
};

AIM_EXPORT std::istream& operator>>(std::istream& in, document& doc);
AIM_EXPORT std::ostream& operator<<(std::ostream& os, const document& doc);

}  // namespace aim_parser
