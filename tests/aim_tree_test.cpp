// The AIM tree: containers, ownership, setting accessors, static names.
#include <gtest/gtest.h>

#include <string.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "aim/document.h"

using namespace aim_parser;

namespace {

int g_deleted = 0;

struct counted_setting : setting_node {
    ~counted_setting() override { ++g_deleted; }
};
struct counted_group : group {
    ~counted_group() override { ++g_deleted; }
};
struct counted_config : config {
    ~counted_config() override { ++g_deleted; }
};
struct counted_configset : configset {
    ~counted_configset() override { ++g_deleted; }
};

template <class T>
T* named(const char* name) {
    T* n = new T();
    n->name = name;
    return n;
}

// One container family of the tree, driven through the same checks.
template <class Parent, class Child>
struct family {
    const char* what;
    std::function<void(Parent&, Child*)> add;
    std::function<Child*(const Parent&, const char*)> get;
    std::function<bool(const Parent&, const char*)> has;
    std::function<void(const Parent&, const char*, std::vector<Child*>&)> get_all;
    std::function<bool(Parent&, const char*)> remove;
    std::function<void(Parent&)> clear;
    std::function<size_t(const Parent&)> size;
};

template <class Parent, class Child, class Counted>
void check_family(const family<Parent, Child>& f) {
    SCOPED_TRACE(f.what);
    Parent p;
    Child* a1 = named<Counted>("A");
    Child* b = named<Counted>("B");
    Child* a2 = named<Counted>("A");
    f.add(p, a1);
    f.add(p, b);
    f.add(p, a2);
    f.add(p, nullptr);  // ignored
    EXPECT_EQ(3u, f.size(p));

    EXPECT_EQ(a1, f.get(p, "A"));
    EXPECT_EQ(b, f.get(p, "B"));
    EXPECT_EQ(nullptr, f.get(p, "C"));
    EXPECT_TRUE(f.has(p, "A"));
    EXPECT_FALSE(f.has(p, "a"));

    std::vector<Child*> out{b};  // not cleared first
    f.get_all(p, "A", out);
    EXPECT_EQ((std::vector<Child*>{b, a1, a2}), out);

    g_deleted = 0;
    EXPECT_TRUE(f.remove(p, "A"));
    EXPECT_EQ(2, g_deleted);
    EXPECT_FALSE(f.remove(p, "A"));
    EXPECT_EQ(1u, f.size(p));

    f.add(p, named<Counted>(""));  // an empty name is a valid key
    EXPECT_TRUE(f.has(p, ""));
    g_deleted = 0;
    f.clear(p);
    EXPECT_EQ(2, g_deleted);
    EXPECT_EQ(0u, f.size(p));

    EXPECT_THROW(f.get(p, nullptr), std::logic_error);
    EXPECT_THROW(f.has(p, nullptr), std::logic_error);
    EXPECT_THROW(f.remove(p, nullptr), std::logic_error);
}

}  // namespace

TEST(AimTree, EveryContainerFamilyBehavesAlike) {
    check_family<group, setting_node, counted_setting>(
        {"group settings", [](group& p, setting_node* c) { p.add_setting_node(c); },
         [](const group& p, const char* n) { return p.get_setting_node(n); },
         [](const group& p, const char* n) { return p.has_setting_node(n); },
         [](const group& p, const char* n, std::vector<setting_node*>& v) { p.get_setting_node(n, v); },
         [](group& p, const char* n) { return p.remove_setting_node(n); },
         [](group& p) { p.clear_setting_nodes(); }, [](const group& p) { return p.settings.size(); }});
    check_family<group, group, counted_group>(
        {"group sub-groups", [](group& p, group* c) { p.add_group(c); },
         [](const group& p, const char* n) { return p.get_group(n); },
         [](const group& p, const char* n) { return p.has_group(n); },
         [](const group& p, const char* n, std::vector<group*>& v) { p.get_group(n, v); },
         [](group& p, const char* n) { return p.remove_group(n); }, [](group& p) { p.clear_groups(); },
         [](const group& p) { return p.groups.size(); }});
    check_family<config, group, counted_group>(
        {"config groups", [](config& p, group* c) { p.add_group(c); },
         [](const config& p, const char* n) { return p.get_group(n); },
         [](const config& p, const char* n) { return p.has_group(n); },
         [](const config& p, const char* n, std::vector<group*>& v) { p.get_group(n, v); },
         [](config& p, const char* n) { return p.remove_group(n); }, [](config& p) { p.clear_groups(); },
         [](const config& p) { return p.groups.size(); }});
    check_family<configset, config, counted_config>(
        {"configset configs", [](configset& p, config* c) { p.add_config(c); },
         [](const configset& p, const char* n) { return p.get_config(n); },
         [](const configset& p, const char* n) { return p.has_config(n); },
         [](const configset& p, const char* n, std::vector<config*>& v) { p.get_config(n, v); },
         [](configset& p, const char* n) { return p.remove_config(n); },
         [](configset& p) { p.clear_configs(); }, [](const configset& p) { return p.configs.size(); }});
    check_family<inventories, configset, counted_configset>(
        {"root configsets", [](inventories& p, configset* c) { p.add_configset(c); },
         [](const inventories& p, const char* n) { return p.get_configset(n); },
         [](const inventories& p, const char* n) { return p.has_configset(n); },
         [](const inventories& p, const char* n, std::vector<configset*>& v) { p.get_configset(n, v); },
         [](inventories& p, const char* n) { return p.remove_configset(n); },
         [](inventories& p) { p.clear_configsets(); },
         [](const inventories& p) { return p.configsets.size(); }});
    check_family<inventories, config, counted_config>(
        {"root configs", [](inventories& p, config* c) { p.add_config(c); },
         [](const inventories& p, const char* n) { return p.get_config(n); },
         [](const inventories& p, const char* n) { return p.has_config(n); },
         [](const inventories& p, const char* n, std::vector<config*>& v) { p.get_config(n, v); },
         [](inventories& p, const char* n) { return p.remove_config(n); },
         [](inventories& p) { p.clear_configs(); }, [](const inventories& p) { return p.configs.size(); }});
}

TEST(AimTree, GroupListMatchesSubstringsInKeyOrder) {
    group g;
    group* port = named<group>("Port 1");
    group* logical = named<group>("Logical Port 1");
    group* fw = named<group>("Firmware");
    g.add_group(port);
    g.add_group(logical);
    g.add_group(fw);
    std::vector<group*> out;
    g.get_group_list("Port", out);
    EXPECT_EQ((std::vector<group*>{logical, port}), out);
    g.get_group_list("", out);  // appends, and an empty part matches all
    EXPECT_EQ((std::vector<group*>{logical, port, fw, logical, port}), out);
    out.clear();
    g.get_group_list("port", out);  // case-sensitive
    EXPECT_TRUE(out.empty());
}

TEST(AimTree, ListsAreInKeyOrderThenInsertionOrderAndAppend) {
    configset cs;
    config* b1 = named<config>("b");
    config* a = named<config>("a");
    config* b2 = named<config>("b");
    cs.add_config(b1);
    cs.add_config(a);
    cs.add_config(b2);
    std::vector<config*> out;
    cs.get_config_list(out);
    EXPECT_EQ((std::vector<config*>{a, b1, b2}), out);

    inventories root;
    root.add_configset(named<configset>("x"));
    root.add_configset(named<configset>("y"));
    std::vector<configset*> sets;
    root.get_configset_list(sets);
    root.get_configset_list(sets);
    EXPECT_EQ(4u, sets.size());

    // Root configs are separate from the configs inside configsets.
    root.add_config(named<config>("direct"));
    std::vector<config*> direct;
    root.get_config_list(direct);
    ASSERT_EQ(1u, direct.size());
    EXPECT_EQ("direct", direct[0]->name);
    EXPECT_EQ(nullptr, root.get_config("a"));
}

TEST(AimTree, KeysAreUnsignedBytesAndCopiedAtInsertion) {
    group g;
    g.add_group(named<group>("\xC3\xA9t\xC3\xA9"));
    g.add_group(named<group>("AB"));
    g.add_group(named<group>("A"));
    g.add_group(named<group>("z"));
    std::vector<group*> out;
    g.get_group_list("", out);
    ASSERT_EQ(4u, out.size());
    EXPECT_EQ("A", out[0]->name);  // a prefix orders first
    EXPECT_EQ("AB", out[1]->name);
    EXPECT_EQ("z", out[2]->name);
    EXPECT_EQ("\xC3\xA9t\xC3\xA9", out[3]->name);  // bytes above 0x7F after ASCII

    // Renaming a child does not re-key it.
    out[0]->name = "renamed";
    EXPECT_TRUE(g.has_group("A"));
    EXPECT_FALSE(g.has_group("renamed"));
}

TEST(AimTree, Int64ByType) {
    struct row {
        uint32_t type;
        const char* value;
        long long expected;
    };
    const row rows[] = {
        {setting_node::text_data, "12", 7},
        {setting_node::numeric_data, "0x10", 16},
        {setting_node::numeric_data, "010", 8},
        {setting_node::numeric_data, "-1", -1},
        {setting_node::numeric_data, "12abc", 12},
        {setting_node::numeric_data, "abc", 0},
        {setting_node::numeric_data, "", 0},
        {setting_node::numeric_data, "9223372036854775807", 9223372036854775807LL},
        {setting_node::boolean_data, "true", 1},
        {setting_node::boolean_data, "1", 1},
        {setting_node::boolean_data, "True", 0},
        {setting_node::boolean_data, "yes", 0},
        {setting_node::boolean_data, "true ", 0},
        {setting_node::enumerate_data, "5", 7},
        {4, "5", 7},
    };
    for (const row& r : rows) {
        setting_node s;
        s.type = r.type;
        s.value = r.value;
        EXPECT_EQ(r.expected, s.get_int64(7)) << "type " << r.type << " value '" << r.value << "'";
    }
}

TEST(AimTree, KindsDataTypesAndNames) {
    setting_node s;
    EXPECT_EQ(0u, s.get_type());
    EXPECT_EQ(4u, s.type);
    EXPECT_STREQ("unknow_value",
                 setting_node::map_data_type(static_cast<setting_node::setting_data_type>(s.type)));
    EXPECT_STREQ("text_data", setting_node::map_data_type(setting_node::text_data));
    EXPECT_STREQ("numeric_data", setting_node::map_data_type(setting_node::numeric_data));
    EXPECT_STREQ("enumerate_data", setting_node::map_data_type(setting_node::enumerate_data));
    EXPECT_STREQ("boolean_data", setting_node::map_data_type(setting_node::boolean_data));
    EXPECT_STREQ("unknow_value",
                 setting_node::map_data_type(static_cast<setting_node::setting_data_type>(99)));

    EXPECT_EQ(1u, group().get_type());
    EXPECT_EQ(2u, config().get_type());
    EXPECT_EQ(3u, configset().get_type());
    EXPECT_EQ(4u, inventories().get_type());

    EXPECT_STREQ("inventories", inventories::TAG);
    EXPECT_STREQ("configset", configset::TAG);
    EXPECT_STREQ("config", config::TAG);
    EXPECT_STREQ("group", group::TAG);
    EXPECT_STREQ("setting", setting_node::TAG);
    EXPECT_STREQ("/pstorage/cmr/aim.xml", aim_file);
    EXPECT_STREQ("/tmp/aim.xml", debug_aim_file);
    EXPECT_EQ(21u, strlen(aim_file));
}

TEST(AimTree, DestructorsDeleteWholeSubtrees) {
    g_deleted = 0;
    {
        document doc;
        auto* cs = named<counted_configset>("set");
        auto* cfg = named<counted_config>("cfg");
        auto* g = named<counted_group>("g");
        auto* sub = named<counted_group>("sub");
        sub->add_setting_node(named<counted_setting>("s1"));
        g->add_group(sub);
        g->add_setting_node(named<counted_setting>("s2"));
        cfg->add_group(g);
        cs->add_config(cfg);
        doc.inventories.add_configset(cs);
        doc.inventories.add_config(named<counted_config>("direct"));
    }
    EXPECT_EQ(7, g_deleted);
}

TEST(AimTree, DeletingAVeryDeepGroupChainDoesNotRecurse) {
    const int levels = 200000;
    g_deleted = 0;
    {
        config cfg;
        group* top = named<counted_group>("level");
        cfg.add_group(top);
        group* cur = top;
        for (int i = 1; i < levels; ++i) {
            group* next = named<counted_group>("level");
            next->add_setting_node(named<counted_setting>("s"));
            cur->add_group(next);
            cur = next;
        }
    }
    EXPECT_EQ(levels + (levels - 1), g_deleted);

    // remove_group takes the same path.
    group root;
    group* cur = &root;
    for (int i = 0; i < levels; ++i) {
        group* next = named<group>("x");
        cur->add_group(next);
        cur = next;
    }
    EXPECT_TRUE(root.remove_group("x"));
    EXPECT_TRUE(root.groups.empty());
}
