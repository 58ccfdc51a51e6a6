// The AIM writer: exact layout, indentation by depth, unit 0 to a file.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "aim/document.h"
#include "host/sysroot.h"

using namespace aim_parser;

namespace {

const char* header =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
    "<?xml-stylesheet type=\"text/xsl\" href=\"setup.xsl\" ?>\n"
    "<inventories ID=\"\" schema-version=\"3.00\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xsi:noNamespaceSchemaLocation=\"file:setup.xsd\">\n";

template <class T>
T* node(const char* name, uint32_t depth) {
    T* n = new T();
    n->name = name;
    n->depth = depth;
    return n;
}

// One configset (depth 1) with one config (depth 2) holding a group with a setting and a
// sub-group, as the reader would have built it.
void build(document& doc) {
    configset* cs = node<configset>("Set", 1);
    cs->mri_name = "SetMri";
    config* c = node<config>("Card", 2);
    c->id = "not written";
    c->segment = "0";
    c->bus = "0x3b";
    c->device = "0";
    c->function = "1";
    c->desc = "a < b";
    c->redfish = "not written";
    group* g = node<group>("Generic", 3);
    g->suppress_if = "not written";
    group* sub = node<group>("Sub", 4);
    setting_node* s = node<setting_node>("Width", 4);
    s->type = setting_node::numeric_data;
    s->value = "10";
    s->desc = "lanes";
    setting_node* fresh = node<setting_node>("Fresh", 5);
    sub->add_setting_node(fresh);
    g->add_group(sub);
    g->add_setting_node(s);
    c->add_group(g);
    cs->add_config(c);
    doc.inventories.add_configset(cs);
    doc.inventories.add_config(node<config>("Direct", 1));  // never written
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
    "        <mriName></mriName>\n"
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

std::string strip_leading_spaces(const std::string& text) {
    std::istringstream in(text);
    std::string line, out;
    while (std::getline(in, line))
        out += line.substr(line.find_first_not_of(' ') == std::string::npos ? line.size()
                                                                            : line.find_first_not_of(' ')) +
               "\n";
    return out;
}

TEST(AimWriter, StreamOperatorIndentsByDepthTimesTwo) {
    document doc;
    build(doc);
    std::ostringstream os;
    os << doc;
    EXPECT_EQ(std::string(header) + expected_body, os.str());
}

TEST(AimWriter, UnitScalesIndentation) {
    document doc;
    build(doc);
    std::ostringstream os;
    doc.dump(os, 3);
    EXPECT_NE(std::string::npos, os.str().find("\n   <configset>\n      <name>Set</name>\n"));
    EXPECT_NE(std::string::npos, os.str().find("\n         <segment>0</segment>\n"));
    std::ostringstream one;
    doc.inventories.get_configset("Set")->get_config("Card")->dump(one, 1);
    EXPECT_EQ(0u, one.str().find("  <config>\n   <name>Card</name>\n"));
}

TEST(AimWriter, FileDumpHasNoIndentation) {
    host::scoped_sysroot sys;
    document doc;
    build(doc);
    doc.dump("/tmp/out.xml");  // a controller path, placed below the sysroot
    std::ifstream in(sys.dir() + "/tmp/out.xml");
    ASSERT_TRUE(in.is_open());
    std::stringstream ss;
    ss << in.rdbuf();
    EXPECT_EQ(std::string(header) + strip_leading_spaces(expected_body), ss.str());
    EXPECT_EQ(std::string::npos, ss.str().find("\n "));

    doc.dump(static_cast<const char*>(nullptr));  // does nothing
    doc.dump("/no/such/dir/out.xml");             // not reported
}

TEST(AimWriter, EmptyDocumentAndOrdering) {
    document empty;
    std::ostringstream os;
    os << empty;
    EXPECT_EQ(std::string(header) + "</inventories>\n", os.str());

    // Children print in key order; settings before sub-groups.
    group g;
    g.name = "G";
    g.add_group(node<group>("b", 1));
    g.add_group(node<group>("a", 1));
    g.add_setting_node(node<setting_node>("z", 1));
    std::ostringstream gs;
    g.dump(gs, 0);
    std::string out = gs.str();
    size_t z = out.find("<name>z</name>"), a = out.find("<name>a</name>"), b = out.find("<name>b</name>");
    ASSERT_NE(std::string::npos, z);
    EXPECT_LT(z, a);
    EXPECT_LT(a, b);
}

TEST(AimWriter, DataTypeTags) {
    const std::pair<uint32_t, const char*> rows[] = {
        {0, "<text_data>v</text_data>"},           {1, "<numeric_data>v</numeric_data>"},
        {2, "<enumerate_data>v</enumerate_data>"}, {3, "<boolean_data>v</boolean_data>"},
        {4, "<unknow_value>v</unknow_value>"},     {77, "<unknow_value>v</unknow_value>"},
    };
    for (const auto& r : rows) {
        setting_node s;
        s.type = r.first;
        s.value = "v";
        std::ostringstream os;
        s.dump(os, 2);
        EXPECT_EQ(std::string("<setting>\n  <name></name>\n  <mriName></mriName>\n  ") + r.second +
                      "\n  <desc></desc>\n</setting>\n",
                  os.str());
    }
}

}  // namespace
