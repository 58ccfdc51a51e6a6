// The AIM reader: result codes, exact messages, what each fault keeps of the tree, the text
// rule, the setting walk, the file entry point (override, path cut, null path), deep input;
// the host's sysxml DOM under it: node kinds in document order, ill-formed input with line
// numbers.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>
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

// Each fault: every message in order (one a line) and what the tree keeps.
TEST_F(AimReader, FaultsMessagesAndWhatIsKept) {
    const std::string rows[][3] = {
        // Both redfish spellings are fields of a config and of a group.
        {set(cfg(
             "C1",
             "<redfish>r</redfish><Redfish>R</Redfish><group><name>G</name><Redfish>R</Redfish></group>")),
         "Set{C1[G()]}", "INFO AIM Doc: config C1 is [OK]"},
        {set(cfg("C2", "<foo/><!-- note --><group><name>G</name></group>")), "Set{C2[G()]}",
         "ERR AIM Doc: unknown config field\nERR AIM XML ERROR: Unexpected node 'foo' in config\n"
         "ERR AIM Doc: unknown config field\nERR AIM XML ERROR: Unexpected node 'comment' in config\n"
         "ERR AIM Doc: config C2 parse failed"},
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
         "ERR unknown group field\nERR AIM XML ERROR: Unexpected node 'comment' in group\nERR unknown group "
         "field\nERR AIM XML ERROR: Unexpected node 'bogus' in group\nERR AIM Doc: group G parse "
         "failed\nINFO AIM "
         "Doc: config C is [OK]"},
        // A setting without a name cuts its group short.
        {in_group("<setting ID=\"a\"><name>A</name></setting><setting ID=\"nameless\"><text_data>"
                  "<value>1</value></text_data></setting><setting ID=\"c\"><name>C</name></setting>"),
         "Set{C[G(A=;)]}",
         "ERR AIM Doc: setting nameless has an empty name\nERR AIM Doc: group G parse failed\nINFO AIM Doc: "
         "config C is [OK]"},
        // An unknown element makes a setting invalid; it is kept and the walk descends into it.
        {in_setting(
             "<name>N</name><numeric_data><value>1</value><extra><value>9</value></extra></numeric_data>"),
         "Set{C[G(N=9;)]}",
         "ERR unknown setting field\nERR AIM XML ERROR: Unexpected node 'extra' in setting\nERR AIM Doc: "
         "setting S is invalid\nINFO AIM Doc: config C is [OK]"},
    };
    for (const auto& r : rows) {
        doc.inventories.clear_configs();  // kept across parses
        EXPECT_EQ(0u, parse(r[0])) << r[0];
        EXPECT_EQ(r[1], shape(doc.inventories)) << r[0];
        EXPECT_EQ(r[2], log()) << r[0];
    }

    EXPECT_EQ(7u, parse("<inventory><configset/></inventory>"));
    EXPECT_EQ("", log());
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

// A configset, config or group parsed again from another node holds only that node's
// children afterwards.
TEST_F(AimReader, ReparseOfAnElementReplacesItsChildren) {
    host::log_capture_begin();
    auto dom = [](const std::string& xml) {
        std::istringstream in(xml);
        return std::make_unique<sysxml::document>(in, false);
    };
    auto first =
        dom("<configset><name>S</name><config ID=\"A\"><name>A</name><group><name>G</name>"
            "<setting ID=\"s1\"><name>s1</name><value>1</value></setting><group><name>Sub</name></group>"
            "</group></config></configset>");
    auto second =
        dom("<configset><name>S</name><config ID=\"B\"><name>B</name><group><name>H</name>"
            "<setting ID=\"s2\"><name>s2</name><value>2</value></setting></group></config></configset>");
    sysxml::node first_config = first->root().first_child().next_sibling();
    sysxml::node second_config = second->root().first_child().next_sibling();
    sysxml::node first_group = first_config.first_child().next_sibling();
    sysxml::node second_group = second_config.first_child().next_sibling();

    group g;
    ASSERT_EQ(0u, g.parse(first_group));
    ASSERT_EQ("G(s1=1;Sub())", shape(g));
    ASSERT_EQ(0u, g.parse(second_group));
    EXPECT_EQ("H(s2=2;)", shape(g));

    config c;
    ASSERT_EQ(0u, c.parse(first_config));
    ASSERT_EQ(0u, c.parse(second_config));
    EXPECT_EQ("B[H(s2=2;)]", shape(c));

    // Each parses only its own element.
    setting_node s;
    EXPECT_EQ(parse_bad_setting, s.parse(first_group));
    EXPECT_EQ(parse_bad_group, g.parse(first_config));
    EXPECT_EQ(parse_bad_config, c.parse(first_group));
    EXPECT_EQ(
        "ERR AIM Doc: NOT element node or setting_node::TAG\nERR NOT group node\nERR AIM Doc: node is not "
        "config",
        log().substr(log().find("ERR")));

    configset cs;
    sysxml::node first_set = first->root(), second_set = second->root();
    ASSERT_EQ(0u, cs.parse(first_set));
    ASSERT_EQ(0u, cs.parse(second_set));
    ASSERT_EQ(1u, cs.configs.size());
    EXPECT_EQ("B[H(s2=2;)]", shape(*cs.configs.begin()->second));
}

// The text rule, on a setting's "value" and on a group's "name".
TEST_F(AimReader, TextRule) {
    const std::pair<const char*, const char*> rows[] = {
        {"<value>12</value>", "12"},
        {"<value>\n      12\n    </value>", "keep"},  // starts with a line feed: nothing stored
        {"<value>12\n    </value>", "12\n    "},      // starts on the tag's line: stored whole
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

// Data types ("type:value"), the enumerate rule, and the walk's depth-first document order.
TEST_F(AimReader, DataTypesEnumerationsAndWalkOrder) {
    const std::pair<const char*, const char*> rows[] = {
        {"<text_data/>", "4:"},
        {"<text_data><value>t</value></text_data>", "0:t"},
        {"<enumerate_data><value>2</value><instance><value>5</value></instance></enumerate_data>", "2:2"},
        {"<enumerate_data><value>1</value><value>2</value><instance/><value>3</value></enumerate_data>",
         "2:2"},
        {"<enumerate_data><instance><choice><value>1</value></choice></instance></enumerate_data>", "2:"},
        // A later data element ends the enumeration; a new one forgets the previous instance.
        {"<enumerate_data><instance/></enumerate_data><text_data><value>x</value></text_data>", "0:x"},
        {"<enumerate_data><instance/></enumerate_data><enumerate_data><value>y</value></enumerate_data>",
         "2:y"},
        // Outside an enumeration an instance is read like a value; the last one wins.
        {"<numeric_data><value>4</value><instance>5</instance></numeric_data>", "1:5"},
        {"<numeric_data><value>1<value>2</value></value><desc><value>3</value></desc></numeric_data>", "1:3"},
    };
    for (const auto& r : rows) {
        ASSERT_EQ(0u, parse(in_setting(std::string("<name>N</name>") + r.first))) << r.first;
        EXPECT_EQ(r.second, std::to_string(setting("N")->type) + ":" + setting("N")->value) << r.first;
        EXPECT_EQ("INFO AIM Doc: config C is [OK]", log()) << r.first;
    }
}

// ---- the file entry point --------------------------------------------------------------------

TEST_F(AimReader, DebugOverrideNullPathAndPathCut) {
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

    // A path is cut to its first 31 characters of a 40-character path; one shorter.
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
    EXPECT_EQ("Set{After[]Deep[" + repeat("L(", max_group_depth) + repeat(")", max_group_depth) + "]}",
              shape(doc.inventories));
    EXPECT_EQ(
        "ERR AIM Doc: group L nests groups deeper than 256 levels\nERR AIM Doc: group L parse failed\n"
        "INFO AIM Doc: config Deep is [OK]\nINFO AIM Doc: config After is [OK]",
        log());
}

// ---- the host's sysxml DOM under the reader ----------------------------------------------------

std::vector<std::string> children(const sysxml::node& n) {
    static const char* kinds[] = {"none", "element", "text", "comment", "pi"};
    std::vector<std::string> out;
    for (sysxml::node c = n.first_child(); c; c = c.next_sibling())
        out.push_back(std::string(kinds[static_cast<int>(c.kind())]) + ":" + c.name() + "=" + c.content());
    return out;
}

TEST(AimXml, NodesInDocumentOrder) {
    std::istringstream in(
        "<?xml version=\"1.0\"?>\n<!-- before -->\n<r a=\"1\" b=\"x &amp; y\">\n"
        "  <e>t</e><![CDATA[<raw>]]><!-- c --><?target data?>tail<empty/>\n</r>\n");
    sysxml::document doc(in, false);
    sysxml::node r = doc.root();
    ASSERT_TRUE(r.is_element() && !r.attribute("c"));
    EXPECT_EQ("r|1|x & y", std::string(r.name()) + "|" + r.attribute("a") + "|" + r.attribute("b"));
    EXPECT_EQ(
        (std::vector<std::string>{"text:text=\n  ", "element:e=t", "text:text=<raw>", "comment:comment= c ",
                                  "pi:target=data", "text:text=tail", "element:empty=", "text:text=\n"}),
        children(r));
    EXPECT_EQ("\n  t<raw>tail\n", r.content());  // text of every descendant, not comments or PIs
    sysxml::node none;
    EXPECT_TRUE(!none && !none.first_child() && !none.attribute("a") &&
                none.kind() == sysxml::node_kind::none);
    EXPECT_EQ("", none.content() + none.name());
}

// The message's start and the line (0: any) of the exception that a DOM built from the text throws.
TEST(AimXml, IllFormedInputThrowsWithTheLine) {
    const std::tuple<const char*, unsigned, const char*> rows[] = {
        std::make_tuple("<a>\n<b>\n</a>\n", 3, "ill-formed XML at line 3: "),
        std::make_tuple("<a>\n<b>\n", 0, "ill-formed XML at line "),
        std::make_tuple("<a/>\n\n<b/>\n", 3, "ill-formed XML at line 3: junk after document element"),
        std::make_tuple("<?xml version=\"1.0\"?>\n  ", 0, "ill-formed XML at line "),
        std::make_tuple("", 1, "empty XML stream"),
        // Line feeds inside a tag and inside an attribute value count as lines.
        std::make_tuple("<a\n>\n<b\n/>\n<c>\n</a>", 6, "ill-formed XML at line 6: "),
        std::make_tuple("<a x=\"1\n2\">\n</b>", 3, "ill-formed XML at line 3: "),
        std::make_tuple("<a\n/>\n<b/>", 3, "ill-formed XML at line 3: ")};
    for (const auto& r : rows) {
        std::istringstream in(std::get<0>(r));
        try {
            sysxml::document doc(in, false);
            ADD_FAILURE() << "no exception: " << std::get<0>(r);
        } catch (const sysipc::exception& e) {
            EXPECT_EQ(0u, e.message().find(std::get<2>(r))) << std::get<0>(r) << " -> " << e.what();
            EXPECT_TRUE(!std::get<1>(r) || std::get<1>(r) == e.line())
                << std::get<0>(r) << " at " << e.line();
        }
    }
}

}  // namespace
