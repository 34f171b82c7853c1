#include <gtest/gtest.h>

#include <sstream>

#include "settings/domLite/domLite.h"
#include "tests/settings/SettingsTestUtil.h"

using namespace domLite;

namespace {
document Parse(const std::string& text) { return parser().parse_string(text); }

std::string ParseError(const std::string& text) {
    try {
        Parse(text);
    } catch (const parse_exception& e) {
        return e.what();
    }
    return "(no error)";
}
}  // namespace

TEST(DomLite, BuildsTreeWithTrimmedValuesAndAttributes) {
    document d = Parse("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n"
                       "<root a=\"1\" b=\"x y\">\n  <a>  true \n</a><b>\t \r\n</b><a>second</a>"
                       "<c>one<!-- note -->two</c></root>");
    node_ptr r = d.root();
    ASSERT_TRUE(r);
    EXPECT_EQ(d.version(), "1.0");
    EXPECT_EQ(d.encoding(), "ISO-8859-1");
    EXPECT_EQ(r->name(), "root");
    EXPECT_EQ(r->attribute("b"), "x y");
    EXPECT_EQ(r->attribute("missing"), "");
    EXPECT_FALSE(r->has_attribute("missing"));
    ASSERT_EQ(r->children().size(), 4u);
    EXPECT_EQ(r->find_child("a")->value(), "true");  // first of two
    EXPECT_EQ(r->children()[2]->value(), "second");
    EXPECT_EQ(r->find_child("b")->value(), "");
    EXPECT_EQ(r->find_child("c")->value(), "onetwo");
    EXPECT_EQ(r->find_child("zzz"), nullptr);
}

TEST(DomLite, ParseErrorsCarryLineAndExpatText) {
    EXPECT_EQ(ParseError("<a>\n<b>\n</a>"), "Parse error at line 3 --- mismatched tag");
    EXPECT_EQ(ParseError(""), "Parse error at line 1 --- no element found");
    EXPECT_EQ(ParseError("<a></a><b/>"), "Parse error at line 1 --- junk after document element");
}

TEST(DomLite, RefusesEntityBombsAndDeepNesting) {
    std::string bomb =
        "<?xml version=\"1.0\"?><!DOCTYPE l [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;\">]>"
        "<l>&b;</l>";
    EXPECT_NE(ParseError(bomb).find("entity declarations are not supported"), std::string::npos);

    std::string deep;
    for (int i = 0; i < 300; ++i) deep += "<d>";
    for (int i = 0; i < 300; ++i) deep += "</d>";
    EXPECT_NE(ParseError(deep).find("nested too deeply"), std::string::npos);

    parser small;
    small.set_max_input(16);
    EXPECT_THROW(small.parse_string("<a>0123456789abcdef</a>"), parse_exception);
}

TEST(DomLite, WritesDeclarationEscapesAndTypedNodes) {
    auto root = std::make_shared<node>("r");
    root->set_attribute("q", std::string("a>b\"c<d&e"));
    root->append_child(std::make_shared<node>("flag", true));
    root->append_child(std::make_shared<node>("count", -12));
    root->add_child("text", "1 < 2 & 3 > 2");
    root->add_child("empty");
    root->children().back()->set_attribute("f", 0.25);
    document d(root);
    d.set_version("1.0");
    d.set_encoding("UTF-8");
    std::string s = d.to_string();
    EXPECT_EQ(s.rfind("<?xml version = \"1.0\" encoding = \"UTF-8\"?>\n", 0), 0u) << s;
    // '>' and '"' stay as they are; only '<' and '&' are escaped.
    EXPECT_NE(s.find("q=\"a>b\"c&lt;d&amp;e\""), std::string::npos) << s;
    EXPECT_NE(s.find("<flag>true</flag>"), std::string::npos);
    EXPECT_NE(s.find("<count>-12</count>"), std::string::npos);
    EXPECT_NE(s.find("<text>1 &lt; 2 &amp; 3 > 2</text>"), std::string::npos);
    EXPECT_NE(s.find("<empty f=\"0.25\"/>"), std::string::npos);
    EXPECT_TRUE(root->children()[0]->is_bool());
    EXPECT_TRUE(root->children()[1]->is_int());

    // What was written reads back to the same values (a '"' written into an
    // attribute cannot be read back, so that attribute goes first).
    root->attributes().erase("q");
    document back = Parse(d.to_string());
    EXPECT_EQ(back.root()->find_child("text")->value(), "1 < 2 & 3 > 2");
}

TEST(DomLite, XmpPacketWrapperReplacesDeclaration) {
    auto root = std::make_shared<node>("x:xmpmeta");
    root->set_attribute("xmlns:x", "urn:example:xmp-meta/");
    document d(root);
    d.set_xmp_packet(true);
    d.set_version("");
    d.set_encoding("");
    std::string s = d.to_string();
    EXPECT_EQ(s.rfind("<?xpacket begin=''?>\n", 0), 0u) << s;
    EXPECT_EQ(s.find("<?xml"), std::string::npos);
    EXPECT_EQ(s.substr(s.size() - 19), "<?xpacket end='r'?>");

    // With a version and an encoding the declaration is written after all.
    d.set_version("1.0");
    d.set_encoding("UTF-8");
    EXPECT_EQ(d.to_string().rfind("<?xml version = ", 0), 0u);
}

TEST(DomLite, FileParsingAndMissingFile) {
    ScratchDir dir;
    std::string path = dir.Write("a.xml", "<a x=\"1\"><b>v</b></a>");
    document d = parser().parse_file(path);
    EXPECT_EQ(d.root()->find_child("b")->value(), "v");
    EXPECT_THROW(parser().parse_file(dir / "none.xml"), parse_exception);
}
