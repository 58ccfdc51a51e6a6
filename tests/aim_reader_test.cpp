// The AIM reader: result codes, exact messages, what each fault keeps of the tree, the text
// rule, the setting walk, the file entry point (override, path cut, null path), deep input.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "aim/document.h"
#include "host/log.h"
#include "host/sysroot.h"
#include "tests/fixture.h"

using namespace aim_parser;

namespace {

// The tree in one line: configsets as name{...}, configs as id@bus[...], groups as
// name(setting=value;... sub-groups); configs directly under the root come last.
std::string shape(const group& g) {
    std::string s = g.name + "(";
    for (const auto& kv : g.settings) s += kv.second->name + "=" + kv.second->value + ";";
    for (const auto& kv : g.groups) s += shape(*kv.second);
    return s + ")";
}
std::string shape(const config& c) {
    std::string s = c.id + (c.bus.empty() ? "" : "@" + c.bus) + "[";
    for (const auto& kv : c.groups) s += shape(*kv.second);
    return s + "]";
}
std::string shape(const inventories& r) {
    std::string s;
    for (const auto& cs : r.configsets) {
        s += cs.second->name + "{";
        for (const auto& kv : cs.second->configs) s += shape(*kv.second);
        s += "}";
    }
    for (const auto& kv : r.configs) s += shape(*kv.second);
    return s;
}

class AimReader : public ::testing::Test {
protected:
    void TearDown() override { host::log_capture_end(); }
    uint32_t parse(const std::string& xml) {
        host::log_capture_begin();
        std::istringstream in(xml);
        return doc.parse(in);
    }
    // Every captured message as "LEVEL text", one a line.
    std::string log() const {
        std::string out;
        for (const auto& m : host::log_captured())
            out += std::string(out.empty() ? "" : "\n") + host::log_level_name(m.level) + " " + m.text;
        return out;
    }
    // A setting of the group "G" of config "C" in configset "Set".
    setting_node* setting(const char* name) const {
        return doc.inventories.get_configset("Set")->get_config("C")->get_group("G")->get_setting_node(name);
    }

    document doc;
};

std::string root(const std::string& body) { return "<inventories ID=\"\">" + body + "</inventories>"; }
std::string set(const std::string& b) { return root("<configset><name>Set</name>" + b + "</configset>"); }
std::string cfg(const std::string& id, const std::string& body) {
    return "<config ID=\"" + id + "\"><name>" + id + "</name>" + body + "</config>";
}
std::string in_group(const std::string& b) { return set(cfg("C", "<group><name>G</name>" + b + "</group>")); }
std::string in_setting(const std::string& b) { return in_group("<setting ID=\"S\">" + b + "</setting>"); }

TEST_F(AimReader, ExampleFileParsesCleanly) {
    std::ifstream in(AIM_SOURCE_DIR "/examples/aim/server-2u.xml");
    host::log_capture_begin();
    ASSERT_EQ(0u, doc.parse(in));
    EXPECT_EQ(std::string::npos, log().find("ERR ")) << log();
    config* nic = doc.inventories.get_configset("PCI Adapters")
                      ->get_config("Intel(R) Ethernet Network Adapter E810-XXVDA2 - Port 1");
    ASSERT_NE(nullptr, nic);
    EXPECT_EQ("Slot1.Func0@0x3b", nic->id + "@" + nic->bus);
    setting_node* speed = nic->get_group("PCI Generic Information")
                              ->get_group("Network Information")
                              ->get_group("Physical Port 2")
                              ->get_group("Logical Port 1")
                              ->get_setting_node("Max Speed");
    EXPECT_EQ(25000, speed->get_int64(0));
    EXPECT_EQ("Mbps", speed->desc);
    EXPECT_EQ(7u, speed->depth);  // configset 1, config 2, four groups, the setting
    ASSERT_EQ(1u, doc.inventories.configs.size());
    EXPECT_EQ(1u, doc.inventories.configs.begin()->second->depth);  // a config directly under the root
}

// Each fault: every message in order (one a line) and what the tree keeps.
TEST_F(AimReader, FaultsMessagesAndWhatIsKept) {
    const char* ok = "\nINFO AIM Doc: config C is [OK]";
    const std::string rows[][3] = {
        {set(cfg("C1", "<group><name>G</name></group>")), "Set{C1[G()]}", "INFO AIM Doc: config C1 is [OK]"},
        {set(cfg("C2", "<foo/><!-- note --><group><name>G</name></group>")), "Set{C2[G()]}",
         "ERR AIM Doc: unknown config field\nERR AIM XML ERROR: Unexpected node 'foo' in config\n"
         "ERR AIM Doc: unknown config field\nERR AIM XML ERROR: Unexpected node 'comment' in config\n"
         "ERR AIM Doc: config C2 parse failed"},
        {set(cfg("C3", "<?target data?>")), "Set{C3[]}",
         "ERR AIM Doc: unknown config field\nERR AIM XML ERROR: Unexpected node 'target' in config\n"
         "ERR AIM Doc: config C3 parse failed"},
        // An unknown pfa field: the pfa loop goes on, the config's reading stops.
        {set(cfg("P",
                 "<pfa><segment>0</segment><slot>3</slot><bus>5</bus></pfa><group><name>L</name></group>")),
         "Set{P@5[]}", "ERR AIM Doc: unknown pfa field\nERR AIM Doc: config P parse failed"},
        // A config without ID ends its parent and the rest of the file.
        {root(cfg("A", "") + "<config><name>B</name></config>" + cfg("C", "")), "A[]",
         "INFO AIM Doc: config A is [OK]\nERR AIM Doc: config id is null"},
        {root("<configset><name>S1</name>" + cfg("A", "") + "<config/>" + cfg("B", "") +
              "</configset><configset><name>S2</name></configset>"),
         "S1{A[]}S2{}", "INFO AIM Doc: config A is [OK]\nERR AIM Doc: config id is null"},
        {in_group("<!-- c --><bogus/><setting ID=\"s\"><name>S</name></setting>"), "Set{C[G(S=;)]}",
         std::string("ERR unknown group field\nERR AIM XML ERROR: Unexpected node 'comment' in group\n"
                     "ERR unknown group field\nERR AIM XML ERROR: Unexpected node 'bogus' in group\n"
                     "ERR AIM Doc: group G parse failed") +
             ok},
        // A setting without a name or without an ID cuts its group short.
        {in_group("<setting ID=\"a\"><name>A</name></setting><setting ID=\"nameless\"><text_data>"
                  "<value>1</value></text_data></setting><setting ID=\"c\"><name>C</name></setting>"),
         "Set{C[G(A=;)]}",
         std::string("ERR AIM Doc: setting nameless has an empty name\nERR AIM Doc: group G parse failed") +
             ok},
        {in_group("<setting><name>A</name></setting><setting ID=\"b\"><name>B</name></setting>"),
         "Set{C[G()]}", std::string("ERR AIM Doc: group G parse failed") + ok},
        // An unknown element makes a setting invalid; it is kept and the walk descends into it.
        {in_setting(
             "<name>N</name><numeric_data><value>1</value><extra><value>9</value></extra></numeric_data>"),
         "Set{C[G(N=9;)]}",
         std::string("ERR unknown setting field\nERR AIM XML ERROR: Unexpected node 'extra' in setting\n"
                     "ERR AIM Doc: setting S is invalid") +
             ok},
        {in_setting("<label/>"), "Set{C[G(=;)]}",
         std::string("ERR unknown setting field\nERR AIM XML ERROR: Unexpected node 'label' in setting\n"
                     "ERR AIM Doc: setting S is invalid") +
             ok},
    };
    for (const auto& r : rows) {
        doc.inventories.clear_configs();  // kept across parses
        EXPECT_EQ(0u, parse(r[0])) << r[0];
        EXPECT_EQ(r[1], shape(doc.inventories)) << r[0];
        EXPECT_EQ(r[2], log()) << r[0];
    }

    EXPECT_EQ(7u, parse("<inventory><configset/></inventory>"));
    EXPECT_EQ("", log());
    EXPECT_EQ(8u, parse(""));
    EXPECT_EQ("ERR AIM Doc: [exception], msg = empty XML stream", log());
    EXPECT_EQ(8u, parse("<inventories>\n  <configset>\n  </config>\n</inventories>\n"));
    EXPECT_EQ(0u, log().find("ERR AIM Doc: [exception], msg = ill-formed XML at line 3: ")) << log();
    std::ifstream missing("/nonexistent/aim.xml");
    host::log_capture_begin();
    EXPECT_EQ(8u, doc.parse(missing));
    EXPECT_EQ("ERR AIM Doc: [exception], msg = cannot read the XML stream", log());
    std::istringstream bad("<inventories>");
    bad >> doc;
    EXPECT_TRUE(bad.fail());
}

// A parse replaces the configsets and keeps the configs under the root, even on a wrong root.
TEST_F(AimReader, ReparseKeepsDirectConfigs) {
    ASSERT_EQ(0u, parse(root("<configset><name>A</name></configset>" + cfg("D", ""))));
    ASSERT_EQ(0u, parse(root("<configset><name>B</name></configset>" + cfg("D", ""))));
    EXPECT_EQ("B{}D[]D[]", shape(doc.inventories));
    EXPECT_EQ(7u, parse("<inventory/>"));
    EXPECT_EQ("D[]D[]", shape(doc.inventories));
}

TEST_F(AimReader, NodeParsersRejectOtherElements) {
    sysxml::node none;
    host::log_capture_begin();
    EXPECT_EQ((std::vector<uint32_t>{5, 5, 3, 2}),
              (std::vector<uint32_t>{config().parse_pfa(none), config().parse(none), group().parse(none),
                                     setting_node().parse(none)}));
    EXPECT_EQ(
        "ERR AIM Doc: node is not pfa\nERR AIM Doc: node is not config\nERR NOT group node\n"
        "ERR AIM Doc: NOT element node or setting_node::TAG",
        log());

    std::istringstream in("<notagroup><name>x</name></notagroup>");
    xml_document dom(in, false);
    sysxml::node n = dom.root();
    EXPECT_EQ((std::vector<uint32_t>{2, 3, 5, 6, 7}),
              (std::vector<uint32_t>{setting_node().parse(n), group().parse(n), config().parse(n),
                                     configset().parse(n), inventories().parse(n)}));
}

TEST_F(AimReader, FieldsAndRedfishSpellings) {
    ASSERT_EQ(
        0u, parse(set("<config ID=\"X\"><name>N</name><mriName>M</mriName><desc>D</desc><redfish>r1</redfish>"
                      "<Redfish>r2</Redfish><pfa><segment>1</segment><bus>0x3b</bus><device>2</device>"
                      "<function>3</function></pfa><group suppress-if=\"true\"><name>G</name><mriName>GM"
                      "</mriName><Redfish>rf</Redfish><setting ID=\"S\" suppress-if=\"c\"><name>N</name>"
                      "<mriName>SM</mriName><desc>SD</desc><redfish>SR</redfish><boolean_data><value>true"
                      "</value></boolean_data></setting></group></config>")));
    config* c = doc.inventories.get_configset("Set")->get_config("N");
    ASSERT_NE(nullptr, c);
    EXPECT_EQ("X|N|M|D|r2|1|0x3b|2|3", c->id + "|" + c->name + "|" + c->mri_name + "|" + c->desc + "|" +
                                           c->redfish + "|" + c->segment + "|" + c->bus + "|" + c->device +
                                           "|" + c->function);
    group* g = c->get_group("G");
    EXPECT_EQ("true|GM|rf", g->suppress_if + "|" + g->mri_name + "|" + g->redfish);
    setting_node* s = g->get_setting_node("N");
    EXPECT_EQ("S|c|SM|SD|SR|true", s->id + "|" + s->suppress_if + "|" + s->mri_name + "|" + s->desc + "|" +
                                       s->redfish + "|" + s->value);
    EXPECT_EQ(setting_node::boolean_data, s->type);
    EXPECT_EQ(4u, s->depth);
}

// The text rule, on a setting's "value" and on a group's "name".
TEST_F(AimReader, TextRule) {
    const std::pair<const char*, const char*> rows[] = {
        {"<value>12</value>", "12"},
        {"<value>\n      12\n    </value>", "keep"},  // starts with a line feed: nothing stored
        {"<value>12\n    </value>", "12\n    "},      // starts on the tag's line: stored whole
        {"<value>  padded  </value>", "  padded  "},
        {"<value/>", "keep"},
        {"<value><![CDATA[<raw>]]></value>", "<raw>"},
        {"<value>a &amp; b &lt;c&gt; &#65;</value>", "a & b <c> A"},
        {"<value>\r\nx</value>", "keep"},            // the XML library turns CR LF into a line feed
        {"<value><!--note-->text</value>", "note"},  // the first child's text, whatever its kind
        {"<value><b>bold</b></value>", "keep"},      // an element child has no text of its own
        {"<value>first</value><value>second</value>", "second"},  // the later one wins
    };
    for (const auto& r : rows) {
        ASSERT_EQ(0u, parse(in_setting(std::string("<name>N</name><text_data><value>keep</value>") + r.first +
                                       "</text_data>")));
        EXPECT_EQ(r.second, setting("N")->value) << r.first;
    }
    ASSERT_EQ(0u, parse(set(cfg("C", "<group><name>Named</name><name>\n  Later\n</name></group>"))));
    EXPECT_EQ("Set{C[Named()]}", shape(doc.inventories));
    ASSERT_EQ(0u, parse(set(cfg("C", "<group><name>\n  Indented\n</name></group>"))));
    EXPECT_EQ("Set{C[()]}", shape(doc.inventories));
}

// Data types, the enumerate rule, and the walk's depth-first document order.
TEST_F(AimReader, DataTypesEnumerationsAndWalkOrder) {
    struct row {
        const char* body;
        uint32_t type;
        const char* value;
    };
    const row rows[] = {
        {"<text_data/>", 4, ""},
        {"<text_data><value>t</value></text_data>", 0, "t"},
        {"<numeric_data><value>10</value></numeric_data>", 1, "10"},
        {"<boolean_data><value>1</value></boolean_data>", 3, "1"},
        {"<enumerate_data><value>2</value><instance><value>5</value></instance></enumerate_data>", 2, "2"},
        {"<enumerate_data><value>1</value><value>2</value><instance/><value>3</value></enumerate_data>", 2,
         "2"},
        {"<enumerate_data><instance><choice><value>1</value><label>One</label></choice></instance></"
         "enumerate_data>",
         2, ""},
        // A later data element ends the enumeration; a new one forgets the previous instance.
        {"<enumerate_data><instance/></enumerate_data><text_data><value>x</value></text_data>", 0, "x"},
        {"<enumerate_data><instance/></enumerate_data><enumerate_data><value>y</value></enumerate_data>", 2,
         "y"},
        // Outside an enumeration an instance is read like a value; the last one wins.
        {"<numeric_data><value>4</value><instance>5</instance></numeric_data>", 1, "5"},
        {"<numeric_data><value>1<value>2</value></value><value>3</value></numeric_data>", 1, "3"},
        {"<numeric_data><desc><value>1</value></desc><value>2</value></numeric_data>", 1, "2"},
        {"<numeric_data><value>2</value><desc><value>1</value></desc></numeric_data>", 1, "1"},
    };
    for (const row& r : rows) {
        ASSERT_EQ(0u, parse(in_setting(std::string("<name>N</name>") + r.body))) << r.body;
        EXPECT_EQ(r.type, setting("N")->type) << r.body;
        EXPECT_EQ(r.value, setting("N")->value) << r.body;
        EXPECT_EQ("INFO AIM Doc: config C is [OK]", log()) << r.body;
    }
}

// ---- the file entry point --------------------------------------------------------------------

TEST_F(AimReader, DebugOverrideAndNullPath) {
    host::scoped_sysroot sys;
    const std::string pstorage = sys.dir() + "/pstorage/cmr/aim.xml";
    testutil::write_file(sys.dir() + "/tmp/aim.xml", set(cfg("Override", "")));
    testutil::write_file(pstorage, set(cfg("Old", "")));
    EXPECT_EQ(0u, doc.parse("/pstorage/cmr/aim.xml"));
    EXPECT_EQ("Set{Override[]}", shape(doc.inventories));
    EXPECT_EQ(0u, doc.parse(static_cast<const char*>(nullptr)));  // the override still wins
    EXPECT_EQ("Set{Override[]}", shape(doc.inventories));
    EXPECT_EQ(set(cfg("Old", "")), testutil::read_file(pstorage));
    testutil::write_file(sys.dir() + "/tmp/aim.xml", "<inventory/>");
    EXPECT_EQ(7u, doc.parse("/pstorage/cmr/aim.xml"));

    // Without the override, a null path replaces the default file with an empty document.
    remove((sys.dir() + "/tmp/aim.xml").c_str());
    EXPECT_EQ(0u, doc.parse(static_cast<const char*>(nullptr)));
    EXPECT_EQ("", shape(doc.inventories));
    EXPECT_EQ(
        "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
        "<?xml-stylesheet type=\"text/xsl\" href=\"setup.xsl\" ?>\n<inventories ID=\"\">\n</inventories>\n",
        testutil::read_file(pstorage));
}

TEST_F(AimReader, PathIsCutTo31Characters) {
    host::scoped_sysroot sys;
    // The first 31 characters of a 40-character path; one shorter.
    testutil::write_file(sys.dir() + "/tmp/abcdefghijklmnopqrstuvwxyz", set(cfg("Cut", "")));
    testutil::write_file(sys.dir() + "/tmp/abcdefghijklmnopqrstuvwxy", set(cfg("Shorter", "")));
    EXPECT_EQ(0u, doc.parse("/tmp/abcdefghijklmnopqrstuvwxyz012345678"));
    EXPECT_EQ("Set{Cut[]}", shape(doc.inventories));
    EXPECT_EQ(0u, doc.parse("/tmp/abcdefghijklmnopqrstuvwxyz"));  // 31: taken whole
    EXPECT_EQ("Set{Cut[]}", shape(doc.inventories));
}

// ---- deep input ------------------------------------------------------------------------------

std::string repeat(const std::string& s, int n) {
    std::string out;
    for (int i = 0; i < n; ++i) out += s;
    return out;
}

TEST_F(AimReader, GroupNestingIsCappedBelowTheConfig) {
    ASSERT_EQ(0u, parse(set(cfg("Deep", repeat("<group><name>L</name>", 300) + repeat("</group>", 300)) +
                            cfg("After", ""))));
    config* c = doc.inventories.get_configset("Set")->get_config("Deep");
    uint32_t count = 0;
    for (group* g = c->get_group("L"); g; g = g->get_group("L")) ++count;
    EXPECT_EQ(max_group_depth, count);
    EXPECT_EQ(
        "ERR AIM Doc: group L nests groups deeper than 256 levels\nERR AIM Doc: group L parse failed\n"
        "INFO AIM Doc: config Deep is [OK]\nINFO AIM Doc: config After is [OK]",
        log());
}

TEST_F(AimReader, HundredThousandNestedElementsInASettingAreFast) {
    for (const char* element : {"value", "instance", "choice"}) {
        std::string open = std::string("<") + element + ">", close = std::string("</") + element + ">";
        auto start = std::chrono::steady_clock::now();
        ASSERT_EQ(0u, parse(in_setting("<name>N</name><enumerate_data>" + repeat(open, 100000) + "x" +
                                       repeat(close, 100000) + "</enumerate_data>")));
        EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 5.0);
        EXPECT_EQ(std::string(element) == "value" ? "x" : "", setting("N")->value) << element;
    }
}

}  // namespace
