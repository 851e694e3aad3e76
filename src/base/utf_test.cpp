// The lossless pair against the plain one: a lone surrogate survives WTF-8
// and only WTF-8; everything else is read and written alike.

#include <gtest/gtest.h>

#include "base/utf.h"

namespace {

TEST(Wtf8, KeepsLoneSurrogatesAndNothingElseDiffers) {
    const char16_t lead = 0xD800, trail = 0xDFFF;
    struct {
        std::u16string text;
        std::string wtf8;
        bool lone;
    } cases[] = {
        {u"plain \u00e9\u4e2d", "plain \xC3\xA9\xE4\xB8\xAD", false},
        {u"\U0001F600", "\xF0\x9F\x98\x80", false},
        {std::u16string(u"a") + lead, "a\xED\xA0\x80", true},
        {std::u16string{trail, u'b'}, "\xED\xBF\xBF" "b", true},
        {std::u16string{trail, lead}, "\xED\xBF\xBF\xED\xA0\x80", true},  // reversed: two lone halves
    };
    for (const auto& c : cases) {
        EXPECT_EQ(util::Utf16ToWtf8(c.text), c.wtf8);
        EXPECT_EQ(util::Wtf8ToUtf16(c.wtf8), c.text);
        EXPECT_EQ(util::HasLoneSurrogate(c.text), c.lone);
        // The plain pair agrees where there is no lone half, and replaces it.
        EXPECT_EQ(util::Utf16ToUtf8(c.text) == c.wtf8, !c.lone);
        EXPECT_EQ(util::Utf8ToUtf16(c.wtf8) == c.text, !c.lone);
    }
    // Bytes that are not even WTF-8 still become U+FFFD.
    EXPECT_EQ(util::Wtf8ToUtf16("x\xFF\xC3"), u"x\uFFFD\uFFFD");
}

}  // namespace
