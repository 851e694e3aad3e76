#include "base/case.h"

#include <gtest/gtest.h>

namespace {

TEST(CaseTest, SimpleUpperCaseAcrossScripts) {
    struct {
        char16_t from, to;
    } cases[] = {
        {u'a', u'A'},          {u'0', u'0'},
        {u'\u00ff', u'\u0178'},  // y diaeresis leaves Latin-1
        {u'\u00df', u'\u00df'},  // sharp s: the full mapping is two letters, the simple one none
        {u'\u0131', u'I'},       // dotless i
        {u'\u03c2', u'\u03a3'},  // final sigma
        {u'\u044f', u'\u042f'},  // Cyrillic ya
        {u'\u1f80', u'\u1f88'},  // Greek with iota subscript: title case, one character
        {u'\u24d0', u'\u24b6'},  // circled a
        {u'\uff41', u'\uff21'},  // fullwidth a
        {char16_t(0xd801), char16_t(0xd801)},  // surrogates stay
    };
    for (const auto& c : cases)
        EXPECT_EQ(static_cast<int>(util::ToUpperChar(c.from)), static_cast<int>(c.to))
            << std::hex << static_cast<int>(c.from);
}

TEST(CaseTest, ComparisonFoldsBeyondAscii) {
    EXPECT_FALSE(util::EqualNoCase(u"ABC", u"ABCD"));
    EXPECT_TRUE(util::EqualNoCase(u"\u041f\u0430\u043f\u043a\u0430", u"\u043f\u0410\u041f\u041a\u0410"));
    EXPECT_FALSE(util::EqualNoCase(u"stra\u00dfe", u"STRASSE"));
    EXPECT_LT(util::CompareNoCase(u"abc", u"ABD"), 0);
    EXPECT_GT(util::CompareNoCase(u"abcd", u"ABC"), 0);
    EXPECT_TRUE(util::StartsWithNoCase(u"C:\\Data\\x", u"c:\\data"));
    EXPECT_FALSE(util::StartsWithNoCase(u"C:", u"c:\\"));
}

TEST(CaseTest, AsciiLowerLeavesOtherLettersAlone) {
    EXPECT_EQ(util::AsciiLower(u"C:\\\u00c4BCZ"), u"c:\\\u00c4bcz");
}

}  // namespace
