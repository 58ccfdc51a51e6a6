// The AIM writer: exact layout, indentation by depth times the unit, unit 0 to a file.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "aim/document.h"
#include "host/sysroot.h"
#include "tests/fixture.h"

using namespace aim_parser;

namespace {

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
        "Generic</name><group><name>Sub</name><setting ID=\"f\"><name>Fresh</name></setting></group><setting "
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
    doc.dump("/no/such/dir/out.xml");             // not reported

    document empty;
    std::ostringstream os;
    os << empty;
    EXPECT_EQ(std::string(header) + "</inventories>\n", os.str());
}

TEST(AimWriter, DataTypeTags) {
    const std::pair<uint32_t, const char*> rows[] = {
        std::make_pair(0u, "text_data"),      std::make_pair(1u, "numeric_data"),
        std::make_pair(2u, "enumerate_data"), std::make_pair(3u, "boolean_data"),
        std::make_pair(4u, "unknow_value"),   std::make_pair(77u, "unknow_value")};
    for (const auto& r : rows) {
        setting_node s;
        s.type = r.first;
        s.value = "v";
        std::ostringstream os;
        s.dump(os, 2);
        EXPECT_EQ(std::string("<setting>\n  <name></name>\n  <mriName></mriName>\n  <") + r.second + ">v</" +
                      r.second + ">\n  <desc></desc>\n</setting>\n",
                  os.str());
    }
}

}  // namespace
