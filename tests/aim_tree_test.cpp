// The AIM tree: the container family shared by every parent (lookups in small and large
// containers, duplicates, removal, ownership), get_int64; the writer's
// exact layout, indentation by depth times the unit, unit 0 to a file.
#include <gtest/gtest.h>

#include <climits>

#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "aim/document.h"
#include "host/sysroot.h"
#include "tests/fixture.h"

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
                  void (P::*clear)()) {
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
    EXPECT_THROW((p.*get)(nullptr), std::logic_error);
    EXPECT_THROW((p.*remove)(nullptr), std::logic_error);
}

// Every family shares these helpers; the settings and the sub-groups of a group are deleted
// by different ones.
TEST(AimTree, ContainerFamilies) {
    check_family<group, setting_node>(&group::add_setting_node, &group::get_setting_node,
                                      &group::get_setting_node, &group::remove_setting_node,
                                      &group::clear_setting_nodes);
    check_family<group, group>(&group::add_group, &group::get_group, &group::get_group, &group::remove_group,
                               &group::clear_groups);
}

TEST(AimTree, Int64ByType) {
    // Types: 0 text, 1 numeric, 2 enumerate, 3 boolean, 4 unset.
    const std::tuple<uint32_t, const char*, long long> rows[] = {
        std::make_tuple(0u, "12", 7LL), std::make_tuple(1u, "0x10", 16LL), std::make_tuple(1u, "010", 8LL),
        std::make_tuple(1u, "-1", -1LL), std::make_tuple(1u, "12abc", 12LL), std::make_tuple(3u, "true", 1LL),
        std::make_tuple(3u, "1", 1LL), std::make_tuple(3u, "True", 0LL), std::make_tuple(3u, "true ", 0LL),
        std::make_tuple(4u, "5", 7LL),
        // Around the largest value: 18 and 19 digits are exact, beyond it strtoll's limits.
        std::make_tuple(1u, "999999999999999999", 999999999999999999LL),
        std::make_tuple(1u, "9223372036854775807", LLONG_MAX),
        std::make_tuple(1u, "9223372036854775808", LLONG_MAX),
        std::make_tuple(1u, "99999999999999999999", LLONG_MAX),
        std::make_tuple(1u, "-9223372036854775809", LLONG_MIN)};
    for (const auto& r : rows) {
        setting_node s;
        s.type = std::get<0>(r);
        s.value = std::get<1>(r);
        EXPECT_EQ(std::get<2>(r), s.get_int64(7)) << s.type << " '" << s.value << "'";
    }
}

// ---- the writer ------------------------------------------------------------------------------

const char* header =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
    "<?xml-stylesheet type=\"text/xsl\" href=\"setup.xsl\" ?>\n"
    "<inventories ID=\"\" schema-version=\"3.00\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xsi:noNamespaceSchemaLocation=\"file:setup.xsd\">\n";

// One configset with one config holding a group with a setting and a sub-group, read by
// the reader (which sets the depths); the marked fields and the direct config are not written.
void build(document& doc) {
    std::istringstream in(
        "<inventories><configset><name>Set</name><mriName>SetMri</mriName><config ID=\"not written\">"
        "<name>Card</name><redfish>not written</redfish><pfa><segment>0</segment><bus>0x3b</bus><device>0"
        "</device><function>1</function></pfa><desc>a &lt; b</desc><group suppress-if=\"not written\"><name>"
        "Generic</name><mriName>GM</mriName><group><name>Sub</name><setting "
        "ID=\"f\"><name>Fresh</name></setting></group><setting "
        "ID=\"w\"><name>Width</name><numeric_data><value>10</value></numeric_data><desc>lanes</desc></"
        "setting>"
        "</group></config></configset><config ID=\"d\"><name>Direct</name></config></inventories>");
    ASSERT_EQ(0u, doc.parse(in));
}

const char* expected_body =
    "  <configset>\n"
    "    <name>Set</name>\n"
    "    <mriName>SetMri</mriName>\n"
    "    <config>\n"
    "      <name>Card</name>\n"
    "      <mriName></mriName>\n"
    "      <pfa>\n"
    "      <segment>0</segment>\n"
    "      <bus>0x3b</bus>\n"
    "      <device>0</device>\n"
    "      <function>1</function>\n"
    "      </pfa>\n"
    "      <desc>a < b</desc>\n"
    "      <group>\n"
    "        <name>Generic</name>\n"
    "        <mriName>GM</mriName>\n"
    "        <setting>\n"
    "          <name>Width</name>\n"
    "          <mriName></mriName>\n"
    "          <numeric_data>10</numeric_data>\n"
    "          <desc>lanes</desc>\n"
    "        </setting>\n"
    "        <group>\n"
    "          <name>Sub</name>\n"
    "          <mriName></mriName>\n"
    "          <setting>\n"
    "            <name>Fresh</name>\n"
    "            <mriName></mriName>\n"
    "            <unknow_value></unknow_value>\n"
    "            <desc></desc>\n"
    "          </setting>\n"
    "        </group>\n"
    "      </group>\n"
    "    </config>\n"
    "  </configset>\n"
    "</inventories>\n";

// `text` (indented two spaces a level) as indented `unit` spaces a level.
std::string indent(const std::string& text, size_t unit) {
    std::istringstream in(text);
    std::string line, out;
    while (std::getline(in, line)) {
        size_t spaces = line.find_first_not_of(' ');
        out += std::string(spaces / 2 * unit, ' ') + line.substr(spaces) + "\n";
    }
    return out;
}

TEST(AimWriter, LayoutIndentsByDepthTimesUnit) {
    document doc;
    build(doc);
    std::ostringstream two, three;
    two << doc;
    EXPECT_EQ(std::string(header) + expected_body, two.str());
    doc.dump(three, 3);
    EXPECT_EQ(indent(std::string(header) + expected_body, 3), three.str());

    host::scoped_sysroot sys;
    doc.dump("/tmp/out.xml");  // a controller path, placed below the sysroot: no indentation
    EXPECT_EQ(indent(std::string(header) + expected_body, 0),
              testutil::read_file(sys.dir() + "/tmp/out.xml"));
    doc.dump(static_cast<const char*>(nullptr));  // does nothing

    document empty;
    std::ostringstream os;
    os << empty;
    EXPECT_EQ(std::string(header) + "</inventories>\n", os.str());
}

TEST(AimWriter, DataTypeTags) {
    const char* tags[] = {"text_data", "numeric_data", "enumerate_data", "boolean_data", "unknow_value"};
    for (uint32_t type : {0u, 1u, 2u, 3u, 4u, 77u}) {
        setting_node s;
        s.type = type;
        std::ostringstream os;
        s.dump(os, 0);
        std::string tag = tags[type < 4 ? type : 4];
        EXPECT_NE(std::string::npos, os.str().find("\n<" + tag + "></" + tag + ">\n")) << os.str();
    }
}

}  // namespace
