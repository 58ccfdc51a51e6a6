// The AIM tree: the container family shared by every parent (lookups in small and large
// containers, duplicates, removal, ownership), substring lists, get_int64, deep deletion.
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "aim/document.h"

using namespace aim_parser;

namespace {

int g_deleted = 0;

template <class T>
struct counted : T {
    ~counted() override { ++g_deleted; }
};

template <class T>
T* named(const std::string& name) {
    T* n = new counted<T>();
    n->name = name;
    return n;
}

// One parent/child container family, through its operations. Lookups are checked in a
// container of a few children and again once it holds many.
template <class P, class C>
void check_family(void (P::*add)(C*), C* (P::*get)(const char*) const,
                  void (P::*get_all)(const char*, std::vector<C*>&) const, bool (P::*remove)(const char*),
                  void (P::*clear)(), const std::multimap<std::string, C*> P::*children) {
    P p;
    const std::vector<std::string> keys = {"A", "", "\xC3\xA9t\xC3\xA9", "B", "AB", "z"};
    std::vector<C*> added;
    for (const std::string& k : keys) (p.*add)(added.emplace_back(named<C>(k)));
    C* second_a = named<C>("A");
    (p.*add)(second_a);
    (p.*add)(nullptr);  // ignored
    for (int round = 0; round < 2; ++round) {
        for (size_t i = 0; i < keys.size(); ++i) EXPECT_EQ(added[i], (p.*get)(keys[i].c_str())) << keys[i];
        for (const char* missing : {"a", "AC", "\xC3", "zz", "0"}) EXPECT_EQ(nullptr, (p.*get)(missing));
        for (int f = 0; f < 20 && round == 0; ++f) (p.*add)(named<C>("f" + std::to_string(f)));
    }
    std::vector<C*> out{added[3]};  // appended to
    (p.*get_all)("A", out);
    EXPECT_EQ((std::vector<C*>{added[3], added[0], second_a}), out);

    g_deleted = 0;
    EXPECT_TRUE((p.*remove)("A"));
    EXPECT_EQ(2, g_deleted);
    EXPECT_FALSE((p.*remove)("A"));
    g_deleted = 0;
    (p.*clear)();
    EXPECT_EQ(25, g_deleted);
    EXPECT_TRUE((p.*children).empty());
    EXPECT_THROW((p.*get)(nullptr), std::logic_error);
    EXPECT_THROW((p.*remove)(nullptr), std::logic_error);
}

TEST(AimTree, EveryContainerFamilyBehavesAlike) {
    check_family<group, setting_node>(&group::add_setting_node, &group::get_setting_node,
                                      &group::get_setting_node, &group::remove_setting_node,
                                      &group::clear_setting_nodes, &group::settings);
    check_family<group, group>(&group::add_group, &group::get_group, &group::get_group, &group::remove_group,
                               &group::clear_groups, &group::groups);
    check_family<config, group>(&config::add_group, &config::get_group, &config::get_group,
                                &config::remove_group, &config::clear_groups, &config::groups);
    check_family<configset, config>(&configset::add_config, &configset::get_config, &configset::get_config,
                                    &configset::remove_config, &configset::clear_configs,
                                    &configset::configs);
    check_family<inventories, configset>(&inventories::add_configset, &inventories::get_configset,
                                         &inventories::get_configset, &inventories::remove_configset,
                                         &inventories::clear_configsets, &inventories::configsets);
    check_family<inventories, config>(&inventories::add_config, &inventories::get_config,
                                      &inventories::get_config, &inventories::remove_config,
                                      &inventories::clear_configs, &inventories::configs);
}

TEST(AimTree, GroupListMatchesSubstringsInKeyOrder) {
    group g;
    group* port = named<group>("Port 1");
    group* logical = named<group>("Logical Port 1");
    group* fw = named<group>("Firmware");
    for (group* c : {port, logical, fw}) g.add_group(c);
    std::vector<group*> out;
    g.get_group_list("Port", out);
    g.get_group_list("", out);      // appends; an empty part matches all
    g.get_group_list("port", out);  // case-sensitive
    EXPECT_EQ((std::vector<group*>{logical, port, fw, logical, port}), out);
}

TEST(AimTree, Int64ByType) {
    // Types: 0 text, 1 numeric, 2 enumerate, 3 boolean, 4 unset.
    const std::tuple<uint32_t, const char*, long long> rows[] = {
        std::make_tuple(0u, "12", 7LL),     std::make_tuple(1u, "0x10", 16LL),
        std::make_tuple(1u, "010", 8LL),    std::make_tuple(1u, "-1", -1LL),
        std::make_tuple(1u, "12abc", 12LL), std::make_tuple(1u, "", 0LL),
        std::make_tuple(3u, "true", 1LL),   std::make_tuple(3u, "1", 1LL),
        std::make_tuple(3u, "True", 0LL),   std::make_tuple(3u, "true ", 0LL),
        std::make_tuple(2u, "5", 7LL),      std::make_tuple(4u, "5", 7LL)};
    for (const auto& r : rows) {
        setting_node s;
        s.type = std::get<0>(r);
        s.value = std::get<1>(r);
        EXPECT_EQ(std::get<2>(r), s.get_int64(7)) << s.type << " '" << s.value << "'";
    }
}

// Deleting (or removing) a chain of 200 000 nested groups must not recurse.
TEST(AimTree, DeletingAVeryDeepGroupChainDoesNotRecurse) {
    const int levels = 200000;
    g_deleted = 0;
    for (bool by_remove : {false, true}) {
        config cfg;
        group* cur = named<group>("x");
        cfg.add_group(cur);
        for (int i = 1; i < levels; ++i) {
            group* next = named<group>("x");
            next->add_setting_node(named<setting_node>("s"));
            cur->add_group(next);
            cur = next;
        }
        if (by_remove) {
            EXPECT_TRUE(cfg.remove_group("x"));
        }
    }
    EXPECT_EQ(2 * (levels + levels - 1), g_deleted);
}

}  // namespace
