// The host's sysxml DOM: node kinds and names in document order, attributes, content,
// ill-formed input with line numbers, no DTD or external entity loaded. (Deep documents:
// the reader's and aimctl's tests.)
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "platform/sysxml.h"

namespace {

std::vector<std::string> children(const sysxml::node& n) {
    static const char* kinds[] = {"none", "element", "text", "comment", "pi"};
    std::vector<std::string> out;
    for (sysxml::node c = n.first_child(); c; c = c.next_sibling())
        out.push_back(std::string(kinds[static_cast<int>(c.kind())]) + ":" + c.name() + "=" + c.content());
    return out;
}

// The message and line of the exception that building a DOM from `xml` throws.
std::string failure(const std::string& xml, unsigned& line) {
    std::istringstream in(xml);
    try {
        sysxml::document doc(in, false);
    } catch (const sysipc::exception& e) {
        line = e.line();
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
    EXPECT_TRUE(!none && !none.first_child() && !none.attribute("a") &&
                none.kind() == sysxml::node_kind::none);
    EXPECT_EQ("", none.content() + none.name());
}

TEST(AimXml, IllFormedInputThrowsWithTheLine) {
    const std::tuple<const char*, unsigned, const char*> rows[] = {
        std::make_tuple("<a>\n<b>\n</a>\n", 3, "ill-formed XML at line 3: "),
        std::make_tuple("<a>\n<b>\n", 0, "ill-formed XML at line "),
        std::make_tuple("<a/>\n\n<b/>\n", 3, "ill-formed XML at line 3: more than one document element"),
        std::make_tuple("   \n  ", 0, "ill-formed XML at line "),
        std::make_tuple("<?xml version=\"1.0\"?>\n", 0, "ill-formed XML at line "),
        std::make_tuple("<a x=1/>", 1, "ill-formed XML at line 1: "),
        std::make_tuple("", 1, "empty XML stream"),
        // Parsing in place overwrites the line feed that ends a name and turns one inside an
        // attribute value into a blank; the error's line still counts them.
        std::make_tuple("<a\n>\n<b\n/>\n<c>\n</a>", 6, "ill-formed XML at line 6: "),
        std::make_tuple("<a x=\"1\n2\">\n</b>", 3, "ill-formed XML at line 3: "),
        std::make_tuple("<a\n/>\n<b/>", 3, "ill-formed XML at line 3: ")};
    for (const auto& r : rows) {
        unsigned line = 0;
        std::string msg = failure(std::get<0>(r), line);
        EXPECT_EQ(0u, msg.find(std::get<2>(r))) << std::get<0>(r) << " -> " << msg;
        EXPECT_TRUE(!std::get<1>(r) || std::get<1>(r) == line) << std::get<0>(r) << " at " << line;
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

}  // namespace
