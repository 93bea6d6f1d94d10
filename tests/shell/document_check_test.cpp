// The report readers of these tests must refuse what is broken, or "well-formed" means nothing.
#include <gtest/gtest.h>

#include "document_check.h"

namespace
{

using shelltest::read_json;
using shelltest::read_xml;

TEST(XmlReader, ReadsAWellFormedDocument)
{
    std::string error;
    const auto root = read_xml(
        "<?xml version=\"1.0\"?>\n<a x=\"1 &amp; 2\"><b/><!-- note --><b>t&lt;&#13;&#x41;</b></a>\n", error);
    ASSERT_TRUE(root) << error;
    EXPECT_EQ(root->name, "a");
    EXPECT_EQ(root->attributes.at("x"), "1 & 2");
    ASSERT_EQ(root->all("b").size(), 2u);
    EXPECT_EQ(root->all("b")[1]->text, "t<\rA");
}

TEST(XmlReader, RefusesBrokenDocuments)
{
    for (const char *broken : {"<a>", "<a></b>", "<a x=1/>", "<a x=\"1\" x=\"2\"/>", "<a>&bogus;</a>",
                               "<a>\x01</a>", "<a>\xFF</a>", "<a>&#1;</a>", "<a x=\"<\"/>", "<a/><b/>",
                               "<a>]]></a>", "<a x=\"1\"y=\"2\"/>", ""}) {
        std::string error;
        EXPECT_FALSE(read_xml(broken, error)) << broken;
        EXPECT_NE(error, "") << broken;
    }
}

TEST(JsonReader, ReadsAWellFormedDocument)
{
    std::string error;
    const auto root = read_json(R"({"a": [1, -2.5e3, true, null], "b": "x\n\u00e9\ud83d\ude00"})", error);
    ASSERT_TRUE(root) << error;
    ASSERT_NE(root->get("a"), nullptr);
    EXPECT_EQ(root->get("a")->array.size(), 4u);
    EXPECT_EQ(root->get("a")->array[1].number, -2500);
    EXPECT_EQ(root->get("b")->string, "x\n\xC3\xA9\xF0\x9F\x98\x80");
}

TEST(JsonReader, RefusesBrokenDocuments)
{
    for (const char *broken : {"{", "[1,]", "{\"a\" 1}", "\"raw\x01\"", "\"\xFF\"", "01", "{\"a\":1}x", "tru",
                               "\"\\ud800\"", "\"\\q\"", ""}) {
        std::string error;
        EXPECT_FALSE(read_json(broken, error)) << broken;
        EXPECT_NE(error, "") << broken;
    }
}

} // namespace
