// The host XML layer is a conforming XML 1.0 parser: a document that breaks a well-formedness
// rule fails the reader with 8 and the "AIM Doc: [exception]" message (through
// document::parse and through aimctl check), internal entities are expanded within limits,
// and nothing outside the document is ever read.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "aim/document.h"
#include "host/log.h"
#include "host/sysroot.h"
#include "tests/fixture.h"

namespace {

struct ill_formed {
    const char* rule;
    std::string xml;
};

std::string repeat(const std::string& s, int n) {
    std::string out;
    for (int i = 0; i < n; ++i) out += s;
    return out;
}

// "<!DOCTYPE inventories [DECLS]><inventories>BODY</inventories>"
std::string with_dtd(const std::string& decls, const std::string& body) {
    return "<!DOCTYPE inventories [" + decls + "]><inventories>" + body + "</inventories>";
}

// Ten levels of ten references each: 10^10 "lol"s if expanded.
std::string billion_laughs() {
    std::string decls = "<!ENTITY l0 \"lol\">";
    for (int i = 1; i <= 10; ++i)
        decls +=
            "<!ENTITY l" + std::to_string(i) + " \"" + repeat("&l" + std::to_string(i - 1) + ";", 10) + "\">";
    return with_dtd(decls, "<configset><name>&l10;</name></configset>");
}

// `n` entities, each used once.
std::string many_entities(int n) {
    std::string decls, body;
    for (int i = 0; i < n; ++i) {
        decls += "<!ENTITY e" + std::to_string(i) + " \"x\">";
        body += "&e" + std::to_string(i) + ";";
    }
    return with_dtd(decls, "<configset><name>" + body + "</name></configset>");
}

const ill_formed cases[] = {
    {"bare ampersand in text", "<inventories><configset><name>a & b</name></configset></inventories>"},
    {"undeclared entity", "<inventories><configset><name>a&foo;b</name></configset></inventories>"},
    {"double hyphen in a comment", "<inventories><!-- a -- b --></inventories>"},
    {"comment ending in --->", "<inventories><!-- a ---></inventories>"},
    {"text after the root", "<inventories/>junk"},
    {"a second root", "<inventories/><inventories/>"},
    {"doubled attribute", "<inventories><config ID=\"a\" ID=\"b\"/></inventories>"},
    {"< in an attribute value", "<config ID=\"a<b\"/>"},
    {"& in an attribute value", "<inventories ID=\"a&b\"/>"},
    {"unquoted attribute value", "<inventories ID=a/>"},
    {"attribute without a value", "<inventories ID/>"},
    {"]]> in text", "<inventories>a]]>b</inventories>"},
    {"character reference to NUL", "<inventories>&#0;</inventories>"},
    {"character reference to a surrogate", "<inventories>&#xD800;</inventories>"},
    {"character reference beyond Unicode", "<inventories>&#x110000;</inventories>"},
    {"character reference to U+FFFE", "<inventories>&#xFFFE;</inventories>"},
    {"malformed character reference", "<inventories>&#12a;</inventories>"},
    {"reference without a semicolon", "<inventories>&lt</inventories>"},
    {"control character in text", "<inventories>a\x01z</inventories>"},
    {"XML declaration after a line feed", "\n<?xml version=\"1.0\"?><inventories/>"},
    {"XML declaration after a comment", "<!-- c --><?xml version=\"1.0\"?><inventories/>"},
    {"reserved processing-instruction target", "<inventories><?xml x?></inventories>"},
    {"name starting with a digit", "<1inventories/>"},
    {"name starting with a hyphen", "<inventories><-a/></inventories>"},
    {"mismatched end tag", "<inventories><config></configset></inventories>"},
    {"unclosed root", "<inventories><configset></configset>"},
    {"unterminated CDATA section", "<inventories><![CDATA[x</inventories>"},
    {"CDATA section outside the root", "<![CDATA[x]]><inventories/>"},
    {"unterminated comment", "<inventories><!-- x </inventories>"},
    {"invalid UTF-8", "<inventories>\xC3\x28</inventories>"},
    {"UTF-8 overlong form", "<inventories>\xC0\xAF</inventories>"},
    {"unknown declared encoding", "<?xml version=\"1.0\" encoding=\"x-unknown-7\"?><inventories/>"},
    {"no root element", "<?xml version=\"1.0\"?>\n<!-- only a comment -->\n"},
    {"second DOCTYPE", "<!DOCTYPE a><!DOCTYPE a><inventories/>"},
    {"DOCTYPE after the root", "<inventories/><!DOCTYPE inventories>"},
    {"< in an attribute through an entity", with_dtd("<!ENTITY e \"&#60;\">", "<config ID=\"&e;\"/>")},
    {"entity with unbalanced markup", with_dtd("<!ENTITY e \"<name>\">", "&e;</name>")},
    {"recursive entities", with_dtd("<!ENTITY a \"&b;\"><!ENTITY b \"&a;\">", "&a;")},
    {"billion laughs", billion_laughs()},
    {"too many entity declarations", many_entities(300)},
};

class XmlConformance : public ::testing::Test {
protected:
    void TearDown() override { host::log_capture_end(); }
    host::scoped_sysroot sys;
};

TEST_F(XmlConformance, IllFormedDocumentsFailTheReaderWith8) {
    for (const ill_formed& c : cases) {
        SCOPED_TRACE(c.rule);
        host::log_capture_begin();
        aim_parser::document doc;
        std::istringstream in(c.xml);
        EXPECT_EQ(aim_parser::parse_xml_exception, doc.parse(in));
        auto messages = host::log_captured();
        ASSERT_EQ(1u, messages.size());
        EXPECT_EQ(host::log_level::err, messages[0].level);
        EXPECT_EQ(0u, messages[0].text.find("AIM Doc: [exception], msg = ill-formed XML at line "))
            << messages[0].text;
        EXPECT_TRUE(doc.inventories.configsets.empty());
        host::log_capture_end();
    }
}

TEST_F(XmlConformance, AimctlCheckReportsResult8) {
    int i = 0;
    for (const ill_formed& c : cases) {
        SCOPED_TRACE(c.rule);
        std::string path = sys.dir() + "/ill" + std::to_string(i++) + ".xml";
        testutil::write_file(path, c.xml);
        testutil::aimctl_result r = testutil::run_aimctl("check " + path, sys.dir());
        EXPECT_EQ(1, r.status);
        EXPECT_NE(std::string::npos, r.out.find("\nresult: 8\n")) << r.out;
        EXPECT_NE(std::string::npos, r.err.find("ERR AIM Doc: [exception], msg = ill-formed XML at line "))
            << r.err;
    }
}

// The reader's text of the configset name of a well-formed document that uses entities.
std::string configset_name(const std::string& xml) {
    aim_parser::document doc;
    std::istringstream in(xml);
    EXPECT_EQ(aim_parser::parse_ok, doc.parse(in)) << xml;
    std::vector<aim_parser::configset*> all;
    doc.inventories.get_configset_list(all);
    return all.size() == 1 ? all[0]->name : std::to_string(all.size()) + " configsets";
}

TEST_F(XmlConformance, EntitiesExpandAsDeclaredAndNothingOutsideIsRead) {
    const std::pair<std::string, std::string> rows[] = {
        // An internal entity expands where it is used, merged with the text around it into
        // the one text node that the reader takes.
        {with_dtd("<!ENTITY e \"ent\">", "<configset><name>&e;</name></configset>"), "ent"},
        {with_dtd("<!ENTITY e \"ent\">", "<configset><name>a&e;b</name></configset>"), "aentb"},
        {with_dtd("<!ENTITY a \"x\"><!ENTITY b \"&a;&a;\">", "<configset><name>&b;&b;</name></configset>"),
         "xxxx"},
        {"<inventories><configset><name>a &amp; b "
         "&lt;&#x41;&#66;&gt;&apos;&quot;</name></configset></inventories>",
         "a & b <AB>'\""},
        // Line ends are normalised; a CDATA section is a text node of its own.
        {"<inventories><configset><name>a\r\nb</name></configset></inventories>", "a\nb"},
        {"<inventories><configset><name><![CDATA[<x>&amp;]]>tail</name></configset></inventories>",
         "<x>&amp;"},
        // External entities, an external DTD subset and external parameter entities are never
        // read (a reference to an external entity is dropped; an undeclared entity in a
        // document with an external subset may be declared there, so it is dropped too).
        {"<!DOCTYPE inventories [<!ENTITY ext SYSTEM \"file:///etc/hostname\">]>"
         "<inventories><configset><name>&ext;|x</name></configset></inventories>",
         "|x"},
        {"<!DOCTYPE inventories SYSTEM \"file:///etc/hostname\">"
         "<inventories><configset><name>&undeclared;y</name></configset></inventories>",
         "y"},
        {"<!DOCTYPE inventories [<!ENTITY % p SYSTEM \"file:///etc/hostname\"> %p;]>"
         "<inventories><configset><name>z</name></configset></inventories>",
         "z"},
    };
    for (const auto& r : rows) EXPECT_EQ(r.second, configset_name(r.first)) << r.first;

    // An attribute value takes entities and normalises its blanks.
    aim_parser::document doc;
    std::istringstream in(
        with_dtd("<!ENTITY e \"Slot1\">", "<config ID=\"&e;.F\tx\"><name>n</name></config>"));
    ASSERT_EQ(aim_parser::parse_ok, doc.parse(in));
    ASSERT_TRUE(doc.inventories.get_config("n"));
    EXPECT_EQ("Slot1.F x", doc.inventories.get_config("n")->id);
}

// The DOM's own limits and its reading in blocks, apart from expat's rules: exactly 256 entity
// declarations are accepted and the 257th refused; a document read in several 64 KiB blocks
// gives the same tree whatever token a block edge cuts (a name, an entity reference, a
// character of two, three or four UTF-8 bytes, the end of a CDATA section).
TEST_F(XmlConformance, EntityLimitAndBlockEdges) {
    EXPECT_EQ(std::string(256, 'x'), configset_name(many_entities(256)));
    {
        host::log_capture_begin();
        aim_parser::document doc;
        std::istringstream in(many_entities(257));
        EXPECT_EQ(aim_parser::parse_xml_exception, doc.parse(in));
        auto messages = host::log_captured();
        ASSERT_EQ(1u, messages.size());
        EXPECT_NE(std::string::npos, messages[0].text.find("more than 256 entity declarations"))
            << messages[0].text;
        host::log_capture_end();
    }

    const size_t block = 64 * 1024;
    const std::string head = "<!DOCTYPE inventories [<!ENTITY ent \"ENT\">]><inventories>";
    // Each token, the configset name it gives, and where in the token the edge may fall.
    const struct {
        const char* what;
        std::string name_xml;  // inside <name>...</name>
        std::string expect;
    } tokens[] = {
        {"an element name", "plain", "plain"},
        {"an entity reference", "a&ent;b", "aENTb"},
        {"a two-byte character", "\xC3\xA9t\xC3\xA9", "\xC3\xA9t\xC3\xA9"},
        {"a three-byte character", "\xE2\x82\xAC" "9", "\xE2\x82\xAC" "9"},
        {"a four-byte character", "\xF0\x9D\x84\x9E!", "\xF0\x9D\x84\x9E!"},
        {"the end of a CDATA section", "<![CDATA[c]]>", "c"},
    };
    for (const auto& t : tokens) {
        const std::string tail = "<configset><name>" + t.name_xml + "</name></configset></inventories>";
        for (size_t edge : {block, 2 * block, 3 * block}) {
            for (size_t cut = 1; cut < tail.size(); ++cut) {
                // A comment pads the document so that the block edge falls `cut` bytes into the tail.
                size_t pad = edge - cut - head.size() - 7;  // "<!--" and "-->"
                std::string xml = head + "<!--" + std::string(pad, 'p') + "-->" + tail;
                ASSERT_EQ(edge, head.size() + 7 + pad + cut);
                SCOPED_TRACE(std::string(t.what) + ", edge " + std::to_string(edge) + ", cut " +
                             std::to_string(cut));
                EXPECT_EQ(t.expect, configset_name(xml));
            }
        }
    }
}

// The pool of a document grows chunk by chunk: thousands of nodes spread over many chunks,
// texts around the size from which a text gets a chunk of its own, and one larger than a
// whole chunk, all read back whole and in place.
TEST_F(XmlConformance, PoolGrowsPastItsFirstChunk) {
    const size_t big[] = {16 * 1024 - 40, 16 * 1024 - 8, 16 * 1024, 16 * 1024 + 8, 70 * 1024};
    std::map<std::string, std::string> expected;  // configset name -> its config's ID
    std::string xml = "<inventories>";
    for (int i = 0; i < 3000; ++i) {
        std::string name = "cs" + std::to_string(i);
        if (i % 600 == 300) name += std::string(big[i / 600], static_cast<char>('a' + i / 600));
        std::string id = "id" + std::to_string(i);
        expected[name] = id;
        xml += "<configset><name>" + name + "</name><!-- c" + std::to_string(i) + " --><config ID=\"" + id +
               "\" x=\"y\"><name>n</name></config></configset>";
    }
    xml += "</inventories>";
    aim_parser::document doc;
    std::istringstream in(xml);
    ASSERT_EQ(aim_parser::parse_ok, doc.parse(in));
    std::vector<aim_parser::configset*> sets;
    doc.inventories.get_configset_list(sets);
    ASSERT_EQ(expected.size(), sets.size());
    auto want = expected.begin();
    for (aim_parser::configset* cs : sets) {
        ASSERT_EQ(want->first, cs->name);
        std::vector<aim_parser::config*> configs;
        cs->get_config_list(configs);
        ASSERT_EQ(1u, configs.size()) << cs->name;
        EXPECT_EQ(want->second, configs[0]->id);
        ++want;
    }
}

}  // namespace
