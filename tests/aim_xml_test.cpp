// The host's sysxml DOM: node kinds and names in document order, attributes, content,
// ill-formed input with line numbers, no DTD or external entity loaded.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/sysxml.h"

namespace {

std::vector<std::string> children(const sysxml::node& n) {
    std::vector<std::string> out;
    for (sysxml::node c = n.first_child(); c; c = c.next_sibling()) {
        std::string kind;
        switch (c.kind()) {
            case sysxml::node_kind::element:
                kind = "element";
                break;
            case sysxml::node_kind::text:
                kind = "text";
                break;
            case sysxml::node_kind::comment:
                kind = "comment";
                break;
            case sysxml::node_kind::pi:
                kind = "pi";
                break;
            case sysxml::node_kind::none:
                kind = "none";
                break;
        }
        out.push_back(kind + ":" + c.name() + "=" + c.content());
    }
    return out;
}

// The message and line of the exception that building a DOM from `xml` throws.
std::string failure(const std::string& xml, unsigned* line = nullptr) {
    std::istringstream in(xml);
    try {
        sysxml::document doc(in, false);
    } catch (const sysipc::exception& e) {
        if (line) *line = e.line();
        EXPECT_EQ(nullptr, e.file());
        EXPECT_EQ(e.message(), e.what());
        return e.message();
    }
    return "no exception";
}

TEST(AimXml, NodesInDocumentOrder) {
    std::istringstream in(
        "<?xml version=\"1.0\"?>\n<!-- before -->\n<r a=\"1\" b=\"x &amp; y\">\n"
        "  <e>t</e><![CDATA[<raw>]]><!-- c --><?target data?>tail<empty/>\n</r>\n");
    sysxml::document doc(in, false);
    sysxml::node r = doc.root();
    ASSERT_TRUE(r);
    EXPECT_TRUE(r.is_element());
    EXPECT_STREQ("r", r.name());
    EXPECT_STREQ("1", r.attribute("a"));
    EXPECT_STREQ("x & y", r.attribute("b"));
    EXPECT_EQ(nullptr, r.attribute("c"));
    EXPECT_EQ(
        (std::vector<std::string>{"text:text=\n  ", "element:e=t", "text:text=<raw>", "comment:comment= c ",
                                  "pi:target=data", "text:text=tail", "element:empty=", "text:text=\n"}),
        children(r));
    EXPECT_EQ("\n  t<raw>tail\n", r.content());  // text of every descendant, not comments or PIs
    sysxml::node none;
    EXPECT_FALSE(none);
    EXPECT_STREQ("", none.name());
    EXPECT_EQ("", none.content());
    EXPECT_FALSE(none.first_child());
    EXPECT_EQ(nullptr, none.attribute("a"));
    EXPECT_EQ(sysxml::node_kind::none, none.kind());
}

TEST(AimXml, IllFormedInputThrowsWithTheLine) {
    struct row {
        const char* xml;
        unsigned line;
        const char* text;
    };
    const row rows[] = {
        {"<a>\n<b>\n</a>\n", 3, "ill-formed XML at line 3: "},
        {"<a>\n<b>\n", 0, "ill-formed XML at line "},
        {"<a/>\n\n<b/>\n", 3, "ill-formed XML at line 3: more than one document element"},
        {"   \n  ", 0, "ill-formed XML at line "},
        {"<?xml version=\"1.0\"?>\n", 0, "ill-formed XML at line "},
        {"<a x=1/>", 1, "ill-formed XML at line 1: "},
        {"", 1, "empty XML stream"},
    };
    for (const row& r : rows) {
        unsigned line = 0;
        std::string msg = failure(r.xml, &line);
        EXPECT_EQ(0u, msg.find(r.text)) << r.xml << " -> " << msg;
        if (r.line) {
            EXPECT_EQ(r.line, line) << r.xml;
        }
    }

    std::ifstream missing("/nonexistent/aim.xml");
    try {
        sysxml::document doc(missing, false);
        ADD_FAILURE() << "no exception";
    } catch (const sysipc::exception& e) {
        EXPECT_EQ("cannot read the XML stream", e.message());
    }
}

TEST(AimXml, NoDtdOrExternalEntityIsLoaded) {
    std::istringstream in(
        "<!DOCTYPE r [<!ENTITY ext SYSTEM \"file:///etc/passwd\"><!ENTITY int \"expanded\">]>\n"
        "<r>&ext;|&int;</r>");
    sysxml::document doc(in, false);
    std::string text = doc.root().content();
    EXPECT_EQ(std::string::npos, text.find("root:"));
    EXPECT_EQ(std::string::npos, text.find("expanded"));
}

TEST(AimXml, DeepDocumentsNeedNoStack) {
    const int levels = 200000;
    std::string xml;
    for (int i = 0; i < levels; ++i) xml += "<d>";
    xml += "x";
    for (int i = 0; i < levels; ++i) xml += "</d>";
    std::istringstream in(xml);
    sysxml::document doc(in, false);
    EXPECT_EQ("x", doc.root().content());
}

}  // namespace
