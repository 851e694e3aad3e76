#include "platform/xml.h"

#include <gtest/gtest.h>

#include "testing/temp_dir.h"

namespace platform {
namespace {

int32_t LoadText(CXmlDocument& document, const ngitest::CTempDir& dir, const std::string& text,
                 bool validate = true) {
    dir.WriteFile("d.xml", text);
    EXPECT_EQ(document.Create(), kXmlOk);
    EXPECT_EQ(document.SetValidateOnParse(validate), kXmlOk);
    return document.Load(dir.Path(u"d.xml"));
}

TEST(XmlTest, ChildrenAndText) {
    ngitest::CTempDir dir;
    CXmlDocument document;
    ASSERT_EQ(LoadText(document, dir,
                       "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- top -->\n<List>\n"
                       "  <A>  one &amp; two\n</A>\n  <!-- note -->\n  <?pi data?>\n"
                       "  <B><![CDATA[<raw>]]></B>\n  loose text\n  <A>second</A>\n"
                       "  <C><D>deep</D> <E>er</E></C><U>\xC3\x84</U>\n</List>\n"),
              kXmlOk);
    const CXmlNode list = document.GetDocument().FindChild(u"List");
    ASSERT_FALSE(list.IsNull());
    const auto children = list.GetChildren();
    std::vector<std::u16string> names;
    for (const auto& child : children) names.push_back(child.GetName());
    EXPECT_EQ(names, (std::vector<std::u16string>{u"A", u"#comment", u"pi", u"B", u"#text", u"A", u"C", u"U"}));
    EXPECT_FALSE(children[1].IsElement());
    EXPECT_EQ(list.FindChild(u"A").GetText(), u"one & two");  // the first of the name, trimmed
    EXPECT_EQ(list.FindChild(u"B").GetText(), u"<raw>");
    // White space alone between elements is no text, as without preserveWhiteSpace.
    EXPECT_EQ(list.FindChild(u"C").GetText(), u"deeper");
    EXPECT_EQ(list.FindChild(u"U").GetText(), u"\u00c4");
    EXPECT_TRUE(list.FindChild(u"a").IsNull());  // names are exact
}

TEST(XmlTest, ValidationOnlyWithADoctype) {
    ngitest::CTempDir dir;
    const std::string dtd = "<!DOCTYPE R [<!ELEMENT R (X)><!ELEMENT X (#PCDATA)>]>\n";
    struct {
        std::string text;
        bool validate;
        int32_t result;
    } cases[] = {
        {"<R><Y/></R>", true, kXmlOk},              // no DOCTYPE: nothing to validate against
        {dtd + "<R><X>1</X></R>", true, kXmlOk},
        {dtd + "<R><Y/></R>", true, kXmlFalse},
        {dtd + "<R><Y/></R>", false, kXmlOk},
        {"<!DOCTYPE R SYSTEM \"missing.dtd\">\n<R><X>1</X></R>", true, kXmlFalse},
        {"<R>", true, kXmlFalse},
    };
    for (const auto& c : cases) {
        CXmlDocument document;
        EXPECT_EQ(LoadText(document, dir, c.text, c.validate), c.result) << c.text;
        EXPECT_EQ(document.GetErrorText().empty(), c.result == kXmlOk) << c.text;
        EXPECT_EQ(document.GetDocument().IsNull(), c.result != kXmlOk);
    }
}

TEST(XmlTest, ExternalEntitiesAndNetworkAreNotFetched) {
    ngitest::CTempDir dir;
    dir.WriteFile("secret.txt", "hidden");
    CXmlDocument document;
    const std::string text = "<!DOCTYPE R [<!ENTITY s SYSTEM \"secret.txt\">]>\n<R>&s;</R>";
    if (LoadText(document, dir, text, false) == kXmlOk) {
        EXPECT_EQ(document.GetDocument().FindChild(u"R").GetText(), u"");
    }
}

}  // namespace
}  // namespace platform
