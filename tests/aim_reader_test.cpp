// The AIM reader: result codes, exact messages, the text rule, the setting walk, the file
// entry point (override, path cut, null path) and deep input.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "aim/document.h"
#include "aim/setting_parser.h"
#include "host/log.h"
#include "host/sysroot.h"

using namespace aim_parser;

namespace {

class AimReader : public ::testing::Test {
  protected:
    void SetUp() override { host::log_capture_begin(); }
    void TearDown() override { host::log_capture_end(); }

    uint32_t parse(const std::string& xml) {
        host::log_capture_begin();
        std::istringstream in(xml);
        return doc.parse(in);
    }
    // Every captured message as "LEVEL text".
    std::vector<std::string> log() const {
        std::vector<std::string> out;
        for (const auto& m : host::log_captured())
            out.push_back(std::string(host::log_level_name(m.level)) + " " + m.text);
        return out;
    }
    // The messages other than the per-config "[OK]" lines.
    std::vector<std::string> errors() const {
        std::vector<std::string> out;
        for (const auto& m : host::log_captured()) {
            if (m.level != host::log_level::info) out.push_back(m.text);
        }
        return out;
    }
    // The first config of the first configset.
    config* first_config() const {
        auto cs = doc.inventories.configsets.begin();
        if (cs == doc.inventories.configsets.end() || cs->second->configs.empty()) return nullptr;
        return cs->second->configs.begin()->second;
    }
    group* first_group() const {
        config* c = first_config();
        return c && !c->groups.empty() ? c->groups.begin()->second : nullptr;
    }
    setting_node* setting(const char* name) const {
        group* g = first_group();
        return g ? g->get_setting_node(name) : nullptr;
    }

    document doc;
};

std::string root(const std::string& body) {
    return "<inventories ID=\"\">" + body + "</inventories>";
}
std::string set(const std::string& body) {
    return root("<configset><name>Set</name>" + body + "</configset>");
}
std::string cfg(const std::string& id, const std::string& body) {
    return "<config ID=\"" + id + "\"><name>" + id + "</name>" + body + "</config>";
}
// A document with one config "C" holding one group "G" with `body`.
std::string in_group(const std::string& body) {
    return set(cfg("C", "<group><name>G</name>" + body + "</group>"));
}
// A document whose group "G" holds one setting "S" with `body`.
std::string in_setting(const std::string& body) {
    return in_group("<setting ID=\"S\">" + body + "</setting>");
}

TEST_F(AimReader, ExampleFileParsesCleanly) {
    std::ifstream in(AIM_SOURCE_DIR "/examples/aim/server-2u.xml");
    ASSERT_TRUE(in.is_open());
    host::log_capture_begin();
    EXPECT_EQ(0u, doc.parse(in));
    EXPECT_TRUE(errors().empty()) << ::testing::PrintToString(errors());
    configset* cs = doc.inventories.get_configset("PCI Adapters");
    ASSERT_NE(nullptr, cs);
    EXPECT_EQ(5u, cs->configs.size());
    config* nic = cs->get_config("Intel(R) Ethernet Network Adapter E810-XXVDA2 - Port 1");
    ASSERT_NE(nullptr, nic);
    EXPECT_EQ("Slot1.Func0", nic->id);
    EXPECT_EQ("0x3b", nic->bus);
    EXPECT_EQ("0x00", nic->device);
    group* gen = nic->get_group("PCI Generic Information");
    ASSERT_NE(nullptr, gen);
    EXPECT_EQ(8, gen->get_setting_node("Max Data Width")->get_int64(0));
    EXPECT_EQ("3", gen->get_setting_node("Connector Layout")->value);
    group* port = gen->get_group("Network Information")->get_group("Physical Port 2");
    ASSERT_NE(nullptr, port);
    setting_node* speed = port->get_group("Logical Port 1")->get_setting_node("Max Speed");
    EXPECT_EQ(25000, speed->get_int64(0));
    EXPECT_EQ("Mbps", speed->desc);
    EXPECT_EQ(7u, speed->depth);                    // configset 1, config 2, four groups, the setting
    EXPECT_EQ(1u, doc.inventories.configs.size());  // the onboard device stands under the root
}

TEST_F(AimReader, WrongRootIsSevenWithoutMessage) {
    doc.inventories.add_configset(new configset());
    doc.inventories.add_config(new config());
    EXPECT_EQ(7u, parse("<inventory><configset/></inventory>"));
    EXPECT_TRUE(log().empty());
    EXPECT_TRUE(doc.inventories.configsets.empty());
    EXPECT_EQ(1u, doc.inventories.configs.size());  // direct configs are kept

    std::ifstream in(AIM_SOURCE_DIR "/examples/aim/bad-root.xml");
    EXPECT_EQ(7u, doc.parse(in));
}

TEST_F(AimReader, ReparseKeepsDirectConfigsAndReplacesConfigsets) {
    ASSERT_EQ(0u, parse(root("<configset><name>A</name></configset>" + cfg("D", ""))));
    ASSERT_EQ(0u, parse(root("<configset><name>B</name></configset>" + cfg("D", ""))));
    EXPECT_FALSE(doc.inventories.has_configset("A"));
    EXPECT_TRUE(doc.inventories.has_configset("B"));
    std::vector<config*> direct;
    doc.inventories.get_config("D", direct);
    EXPECT_EQ(2u, direct.size());
}

TEST_F(AimReader, DepthsFollowNesting) {
    ASSERT_EQ(0u, parse(in_setting("<name>N</name>") + ""));
    EXPECT_EQ(0u, doc.inventories.depth);
    EXPECT_EQ(1u, doc.inventories.configsets.begin()->second->depth);
    EXPECT_EQ(2u, first_config()->depth);
    EXPECT_EQ(3u, first_group()->depth);
    EXPECT_EQ(4u, setting("N")->depth);
    ASSERT_EQ(0u, parse(root(cfg("D", ""))));
    EXPECT_EQ(1u, doc.inventories.get_config("D")->depth);
}

TEST_F(AimReader, ConfigMessagesAndFaults) {
    ASSERT_EQ(0u, parse(set(cfg("C1", "<group><name>G</name></group>"))));
    EXPECT_EQ(std::vector<std::string>{"INFO AIM Doc: config C1 is [OK]"}, log());

    ASSERT_EQ(0u, parse(set(cfg("C2", "<foo/><!-- note --><group><name>G</name></group>"))));
    EXPECT_EQ(
        (std::vector<std::string>{
            "ERR AIM Doc: unknown config field", "ERR AIM XML ERROR: Unexpected node 'foo' in config",
            "ERR AIM Doc: unknown config field", "ERR AIM XML ERROR: Unexpected node 'comment' in config",
            "ERR AIM Doc: config C2 parse failed"}),
        log());
    ASSERT_NE(nullptr, first_config());
    EXPECT_TRUE(first_config()->has_group("G"));  // kept with what was read

    ASSERT_EQ(0u, parse(set(cfg("C3", "<?target data?>"))));
    EXPECT_EQ("ERR AIM XML ERROR: Unexpected node 'target' in config", log().at(1));
}

TEST_F(AimReader, ConfigFieldsAndRedfishSpellings) {
    ASSERT_EQ(
        0u, parse(set("<config ID=\"X\"><name>N</name><mriName>M</mriName><desc>D</desc>"
                      "<redfish>r1</redfish><Redfish>r2</Redfish>"
                      "<pfa><segment>1</segment><bus>0x3b</bus><device>2</device><function>3</function></pfa>"
                      "</config>")));
    config* c = first_config();
    ASSERT_NE(nullptr, c);
    EXPECT_EQ("X", c->id);
    EXPECT_EQ("N", c->name);
    EXPECT_EQ("M", c->mri_name);
    EXPECT_EQ("D", c->desc);
    EXPECT_EQ("r2", c->redfish);
    EXPECT_EQ("1", c->segment);
    EXPECT_EQ("0x3b", c->bus);
    EXPECT_EQ("2", c->device);
    EXPECT_EQ("3", c->function);
}

TEST_F(AimReader, ConfigWithoutIdEndsItsParent) {
    // Directly under the root: the rest of the file is not read.
    ASSERT_EQ(0u, parse(root(cfg("A", "") + "<config><name>B</name></config>" + cfg("C", ""))));
    EXPECT_TRUE(doc.inventories.has_config("A"));
    EXPECT_FALSE(doc.inventories.has_config("B"));
    EXPECT_FALSE(doc.inventories.has_config("C"));
    EXPECT_EQ((std::vector<std::string>{"INFO AIM Doc: config A is [OK]", "ERR AIM Doc: config id is null"}),
              log());

    // In a configset: the configset ends there and so does the file.
    ASSERT_EQ(0u, parse(root("<configset><name>S1</name>" + cfg("A", "") + "<config/>" + cfg("B", "") +
                             "</configset><configset><name>S2</name></configset>")));
    configset* s1 = doc.inventories.get_configset("S1");
    ASSERT_NE(nullptr, s1);
    EXPECT_EQ(1u, s1->configs.size());
    EXPECT_TRUE(doc.inventories.has_configset("S2"));  // the configset itself succeeded
}

TEST_F(AimReader, PfaFaults) {
    ASSERT_EQ(0u, parse(set(cfg("P",
                                "<pfa><segment>0</segment><slot>3</slot><bus>5</bus></pfa>"
                                "<group><name>Late</name></group>"))));
    config* c = first_config();
    ASSERT_NE(nullptr, c);
    EXPECT_EQ("0", c->segment);
    EXPECT_EQ("5", c->bus);              // the pfa loop goes on
    EXPECT_FALSE(c->has_group("Late"));  // the config's reading stops
    EXPECT_EQ(
        (std::vector<std::string>{"ERR AIM Doc: unknown pfa field", "ERR AIM Doc: config P parse failed"}),
        log());

    host::log_capture_begin();
    config direct;
    sysxml::node none;
    EXPECT_EQ(5u, direct.parse_pfa(none));
    EXPECT_EQ(std::vector<std::string>{"ERR AIM Doc: node is not pfa"}, log());
    host::log_capture_begin();
    EXPECT_EQ(5u, direct.parse(none));
    EXPECT_EQ(std::vector<std::string>{"ERR AIM Doc: node is not config"}, log());
    host::log_capture_begin();
    group g;
    EXPECT_EQ(3u, g.parse(none));
    EXPECT_EQ(std::vector<std::string>{"ERR NOT group node"}, log());
    host::log_capture_begin();
    setting_node s;
    EXPECT_EQ(2u, s.parse(none));
    EXPECT_EQ(std::vector<std::string>{"ERR AIM Doc: NOT element node or setting_node::TAG"}, log());
    configset cs;
    EXPECT_EQ(6u, cs.parse(none));
}

TEST_F(AimReader, WrongElementNamesGiveTheirCodes) {
    std::istringstream in("<notagroup><name>x</name></notagroup>");
    sysxml::parser ctx;
    xml_document dom(in, false);
    sysxml::node n = dom.root();
    EXPECT_EQ(2u, setting_node().parse(n));
    EXPECT_EQ(3u, group().parse(n));
    EXPECT_EQ(5u, config().parse(n));
    EXPECT_EQ(6u, configset().parse(n));
    EXPECT_EQ(7u, inventories().parse(n));
}

TEST_F(AimReader, GroupFieldsAndUnknownChildren) {
    ASSERT_EQ(0u, parse(set(cfg("C",
                                "<group suppress-if=\"true\"><name>G</name><mriName>GM</mriName>"
                                "<Redfish>rf</Redfish><!-- a comment --><bogus/>"
                                "<setting ID=\"s\"><name>S</name></setting></group>"))));
    group* g = first_group();
    ASSERT_NE(nullptr, g);
    EXPECT_EQ("true", g->suppress_if);
    EXPECT_EQ("GM", g->mri_name);
    EXPECT_EQ("rf", g->redfish);
    EXPECT_TRUE(g->has_setting_node("S"));
    EXPECT_EQ(
        (std::vector<std::string>{"unknown group field", "AIM XML ERROR: Unexpected node 'comment' in group",
                                  "unknown group field", "AIM XML ERROR: Unexpected node 'bogus' in group",
                                  "AIM Doc: group G parse failed"}),
        errors());
}

TEST_F(AimReader, SettingWithoutNameOrIdCutsItsGroupShort) {
    ASSERT_EQ(0u, parse(in_group("<setting ID=\"a\"><name>A</name></setting>"
                                 "<setting ID=\"nameless\"><text_data><value>1</value></text_data></setting>"
                                 "<setting ID=\"c\"><name>C</name></setting>")));
    group* g = first_group();
    ASSERT_NE(nullptr, g);
    EXPECT_TRUE(g->has_setting_node("A"));
    EXPECT_FALSE(g->has_setting_node("C"));
    EXPECT_EQ(1u, g->settings.size());
    EXPECT_EQ((std::vector<std::string>{"AIM Doc: setting nameless has an empty name",
                                        "AIM Doc: group G parse failed"}),
              errors());

    ASSERT_EQ(0u,
              parse(in_group("<setting><name>A</name></setting><setting ID=\"b\"><name>B</name></setting>")));
    EXPECT_TRUE(first_group()->settings.empty());
    EXPECT_EQ(std::vector<std::string>{"AIM Doc: group G parse failed"}, errors());
}

TEST_F(AimReader, SettingAttributesAndFields) {
    ASSERT_EQ(0u, parse(in_setting("<name>N</name><mriName>M</mriName><desc>D</desc><redfish>R</redfish>"
                                   "<boolean_data><value>true</value></boolean_data>")));
    setting_node* s = setting("N");
    ASSERT_NE(nullptr, s);
    EXPECT_EQ("S", s->id);
    EXPECT_EQ("M", s->mri_name);
    EXPECT_EQ("D", s->desc);
    EXPECT_EQ("R", s->redfish);
    EXPECT_EQ(setting_node::boolean_data, s->type);
    EXPECT_EQ(1, s->get_int64(0));

    ASSERT_EQ(0u, parse(in_group("<setting ID=\"x\" suppress-if=\"cond\"><name>N</name></setting>")));
    EXPECT_EQ("cond", setting("N")->suppress_if);
}

// The text rule, on a setting's "value" and on a group's "name".
TEST_F(AimReader, TextRule) {
    struct row {
        const char* element;  // the value element as written
        const char* expected;
    };
    const row rows[] = {
        {"<value>12</value>", "12"},
        {"<value>\n      12\n    </value>", "keep"},  // starts with a line feed: nothing stored
        {"<value>12\n    </value>", "12\n    "},      // starts on the tag's line: stored whole
        {"<value>  padded  </value>", "  padded  "},
        {"<value></value>", "keep"},
        {"<value/>", "keep"},
        {"<value><![CDATA[<raw>]]></value>", "<raw>"},
        {"<value>a &amp; b &lt;c&gt; &#65;</value>", "a & b <c> A"},
        {"<value>\r\nx</value>", "keep"},            // the XML library turns CR LF into a line feed
        {"<value><!--note-->text</value>", "note"},  // the first child's text, whatever its kind
        {"<value><b>bold</b></value>", "keep"},      // an element child has no text of its own
        {"<value>first</value><value>second</value>", "second"},  // the later one wins
    };
    for (const row& r : rows) {
        ASSERT_EQ(0u, parse(in_setting(std::string("<name>N</name><text_data><value>keep</value>") +
                                       r.element + "</text_data>")))
            << r.element;
        ASSERT_NE(nullptr, setting("N")) << r.element;
        EXPECT_EQ(r.expected, setting("N")->value) << r.element;
    }

    ASSERT_EQ(0u, parse(set(cfg("C", "<group><name>Named</name><name>\n  Later\n</name></group>"))));
    EXPECT_TRUE(first_config()->has_group("Named"));
    ASSERT_EQ(0u, parse(set(cfg("C", "<group><name>\n  Indented\n</name></group>"))));
    EXPECT_TRUE(first_config()->has_group(""));
}

TEST_F(AimReader, DataTypesAndEnumerations) {
    struct row {
        const char* body;
        uint32_t type;
        const char* value;
    };
    const row rows[] = {
        {"<text_data/>", 4, ""},
        {"<text_data></text_data>", 4, ""},
        {"<text_data><value>t</value></text_data>", 0, "t"},
        {"<numeric_data><value>10</value></numeric_data>", 1, "10"},
        {"<boolean_data><value>1</value></boolean_data>", 3, "1"},
        {"<enumerate_data><value>2</value><instance><value>5</value></instance></enumerate_data>", 2, "2"},
        {"<enumerate_data><value>1</value><value>2</value><instance/><value>3</value></enumerate_data>", 2,
         "2"},
        {"<enumerate_data><instance><choice><value>1</value><label>One</label></choice></instance></"
         "enumerate_data>",
         2, ""},
        // A later data element ends the enumeration: its values count again.
        {"<enumerate_data><instance/></enumerate_data><text_data><value>x</value></text_data>", 0, "x"},
        // A new enumeration forgets the instance of the previous one.
        {"<enumerate_data><instance/></enumerate_data><enumerate_data><value>y</value></enumerate_data>", 2,
         "y"},
        // Outside an enumeration an instance is read like a value; the last one wins.
        {"<numeric_data><value>4</value><instance>5</instance></numeric_data>", 1, "5"},
        // The walk dispatches on the element name at any depth.
        {"<numeric_data><value><value>7</value></value></numeric_data>", 1, "7"},
    };
    for (const row& r : rows) {
        ASSERT_EQ(0u, parse(in_setting(std::string("<name>N</name>") + r.body))) << r.body;
        setting_node* s = setting("N");
        ASSERT_NE(nullptr, s) << r.body;
        EXPECT_EQ(r.type, s->type) << r.body;
        EXPECT_EQ(r.value, s->value) << r.body;
        EXPECT_TRUE(errors().empty()) << r.body;
    }
}

TEST_F(AimReader, UnknownSettingFieldsMakeItInvalidButKept) {
    ASSERT_EQ(0u,
              parse(in_setting("<name>N</name><text_data><value>1</value><choice>c</choice></text_data>")));
    ASSERT_NE(nullptr, setting("N"));
    EXPECT_EQ("1", setting("N")->value);
    EXPECT_EQ((std::vector<std::string>{"unknown setting field",
                                        "AIM XML ERROR: Unexpected node 'choice' in setting",
                                        "AIM Doc: setting S is invalid"}),
              errors());

    // The walk still descends into the unknown element; comments inside a setting are not looked at.
    ASSERT_EQ(0u,
              parse(in_setting("<!-- c --><name>N</name><numeric_data><value>1</value><extra><value>9</value>"
                               "</extra></numeric_data>")));
    EXPECT_EQ("9", setting("N")->value);
    EXPECT_EQ((std::vector<std::string>{"unknown setting field",
                                        "AIM XML ERROR: Unexpected node 'extra' in setting",
                                        "AIM Doc: setting S is invalid"}),
              errors());

    // An invalid setting without a name is kept as well.
    ASSERT_EQ(0u, parse(in_setting("<label/>")));
    EXPECT_TRUE(first_group()->has_setting_node(""));
}

TEST_F(AimReader, SettingWalkIsDepthFirstInDocumentOrder) {
    // The last "value" met in document order wins, so the order shows in the value kept.
    const std::pair<const char*, const char*> rows[] = {
        {"<value>1<value>2</value></value>", "2"},
        {"<value>1<value>2</value></value><value>3</value>", "3"},
        {"<desc><value>1</value></desc><value>2</value>", "2"},
        {"<value>2</value><desc><value>1</value></desc>", "1"},
        {"<name>N<name>inner</name></name>", "keep"},
    };
    for (const auto& r : rows) {
        std::istringstream in(std::string("<setting ID=\"s\"><name>N</name><value>keep</value>") + r.first +
                              "</setting>");
        sysxml::parser ctx;
        xml_document dom(in, false);
        sysxml::node n = dom.root();
        setting_node s;
        EXPECT_EQ(0u, s.parse(n)) << r.first;
        EXPECT_EQ(r.second, s.value) << r.first;
    }

    setting_node s;
    setting_parser p(&s);
    std::istringstream in("<x><!-- c -->text</x>");
    xml_document dom(in, false);
    sysxml::node x = dom.root();
    sysxml::node comment = x.first_child();
    sysxml::node text = comment.next_sibling();
    EXPECT_TRUE(p(comment, 0));
    EXPECT_TRUE(p(text, 1));
    EXPECT_EQ(0u, p.status);
    EXPECT_TRUE(p(x, 0));  // unknown: flagged, and the walk still descends
    EXPECT_EQ(2u, p.status);
}

TEST_F(AimReader, ExceptionsGiveEightWithTheLine) {
    EXPECT_EQ(8u, parse("<inventories>\n  <configset>\n  </config>\n</inventories>\n"));
    ASSERT_EQ(1u, log().size());
    EXPECT_EQ(0u, log()[0].find("ERR AIM Doc: [exception], msg = ill-formed XML at line 3: ")) << log()[0];

    EXPECT_EQ(8u, parse(""));
    EXPECT_EQ(std::vector<std::string>{"ERR AIM Doc: [exception], msg = empty XML stream"}, log());

    EXPECT_EQ(8u, parse("<inventories/>\n\n<inventories/>\n"));
    EXPECT_EQ(
        std::vector<std::string>{"ERR AIM Doc: [exception], msg = ill-formed XML at line 3: more than one "
                                 "document element"},
        log());

    std::ifstream missing("/nonexistent/aim.xml");
    host::log_capture_begin();
    EXPECT_EQ(8u, doc.parse(missing));
    EXPECT_EQ(std::vector<std::string>{"ERR AIM Doc: [exception], msg = cannot read the XML stream"}, log());

    std::istringstream bad("<inventories>");
    bad >> doc;
    EXPECT_TRUE(bad.fail());
    std::istringstream good(root(""));
    good >> doc;
    EXPECT_FALSE(good.fail());
}

// ---- the file entry point --------------------------------------------------------------------

void write(const std::string& path, const std::string& text) {
    std::ofstream out(path.c_str(), std::ios::trunc);
    out << text;
}

std::string read(const std::string& path) {
    std::ifstream in(path.c_str());
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

TEST_F(AimReader, DebugOverrideWins) {
    host::scoped_sysroot sys;
    write(sys.dir() + "/tmp/aim.xml", set(cfg("Override", "")));
    write(sys.dir() + "/pstorage/cmr/aim.xml", root(""));
    EXPECT_EQ(0u, doc.parse("/pstorage/cmr/aim.xml"));
    EXPECT_NE(nullptr, first_config());
    EXPECT_EQ(0u, doc.parse(static_cast<const char*>(nullptr)));
    EXPECT_NE(nullptr, first_config());
    EXPECT_EQ(root(""), read(sys.dir() + "/pstorage/cmr/aim.xml"));  // untouched by a null path then

    write(sys.dir() + "/tmp/aim.xml", "<inventory/>");
    EXPECT_EQ(7u, doc.parse("/pstorage/cmr/aim.xml"));
}

TEST_F(AimReader, PathIsCutTo31Characters) {
    host::scoped_sysroot sys;
    const std::string full = "/tmp/abcdefghijklmnopqrstuvwxyz012345678";  // 40 characters
    ASSERT_EQ(40u, full.size());
    write(sys.dir() + full.substr(0, 31), set(cfg("Cut", "")));
    EXPECT_EQ(0u, doc.parse(full.c_str()));
    ASSERT_NE(nullptr, first_config());
    EXPECT_EQ("Cut", first_config()->id);

    write(sys.dir() + "/tmp/abcdefghijklmnopqrstuvwxyz", root(""));  // 31 characters: taken whole
    write(sys.dir() + "/tmp/abcdefghijklmnopqrstuvwxy", set(cfg("Shorter", "")));
    EXPECT_EQ(0u, doc.parse("/tmp/abcdefghijklmnopqrstuvwxyz"));
    EXPECT_EQ(nullptr, first_config());

    host::log_capture_begin();
    EXPECT_EQ(8u, doc.parse("/tmp/missing.xml"));
    EXPECT_EQ(std::vector<std::string>{"ERR AIM Doc: [exception], msg = cannot read the XML stream"}, log());
}

TEST_F(AimReader, NullPathWritesTheEmptyDefaultFile) {
    host::scoped_sysroot sys;
    write(sys.dir() + "/pstorage/cmr/aim.xml", set(cfg("Old", "")));
    doc.inventories.add_configset(new configset());
    EXPECT_EQ(0u, doc.parse(static_cast<const char*>(nullptr)));
    EXPECT_TRUE(doc.inventories.configsets.empty());
    EXPECT_EQ(
        "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
        "<?xml-stylesheet type=\"text/xsl\" href=\"setup.xsl\" ?>\n"
        "<inventories ID=\"\">\n"
        "</inventories>\n",
        read(sys.dir() + "/pstorage/cmr/aim.xml"));
}

// ---- deep input ------------------------------------------------------------------------------

std::string repeat(const std::string& s, int n) {
    std::string out;
    out.reserve(s.size() * static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) out += s;
    return out;
}

TEST_F(AimReader, GroupNestingIsCappedBelowTheConfig) {
    const int levels = 300;
    std::string xml = set(cfg("Deep", repeat("<group><name>L</name>", levels) + repeat("</group>", levels)) +
                          cfg("After", ""));
    ASSERT_EQ(0u, parse(xml));
    config* c = doc.inventories.configsets.begin()->second->get_config("Deep");
    ASSERT_NE(nullptr, c);
    uint32_t count = 0;
    for (group* g = c->get_group("L"); g; g = g->get_group("L")) ++count;
    EXPECT_EQ(max_group_depth, count);
    EXPECT_EQ((std::vector<std::string>{"AIM Doc: group L nests groups deeper than 256 levels",
                                        "AIM Doc: group L parse failed"}),
              errors());
    EXPECT_TRUE(doc.inventories.configsets.begin()->second->has_config("After"));
}

TEST_F(AimReader, HundredThousandNestedGroupsAreFast) {
    const int levels = 100000;
    std::string xml = set(cfg("Deep", repeat("<group><name>L</name>", levels) + repeat("</group>", levels)));
    auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(0u, parse(xml));
    doc.inventories.clear_configsets();
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LT(seconds, 5.0);
}

TEST_F(AimReader, HundredThousandNestedElementsInASettingAreFast) {
    const int levels = 100000;
    for (const char* element : {"value", "instance", "choice"}) {
        std::string open = std::string("<") + element + ">", close = std::string("</") + element + ">";
        std::string xml = in_setting("<name>N</name><enumerate_data>" + repeat(open, levels) + "x" +
                                     repeat(close, levels) + "</enumerate_data>");
        auto start = std::chrono::steady_clock::now();
        ASSERT_EQ(0u, parse(xml)) << element;
        ASSERT_NE(nullptr, setting("N")) << element;
        double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        EXPECT_LT(seconds, 5.0) << element;
        EXPECT_EQ(std::string(element) == "value" ? "x" : "", setting("N")->value) << element;
    }
}

}  // namespace
