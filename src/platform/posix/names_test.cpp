#include "platform/names.h"

#include <gtest/gtest.h>

#include <random>

namespace platform {
namespace {

struct TNameCase {
    const char* what;
    std::string bytes;
    std::u16string name;
};

TEST(Names, BytesToNameAndBack) {
    const TNameCase cases[] = {
        {"ascii", "abc.txt", u"abc.txt"},
        {"utf-8 letters", "\xC3\xA9t\xC3\xA9", u"\u00E9t\u00E9"},
        {"four-byte character", "\xF0\x9F\x98\x80", u"\U0001F600"},
        {"backslash", "a\\b", u"a\uF05Cb"},
        {"every reserved character", "\"*:<>?|", u"\uF022\uF02A\uF03A\uF03C\uF03E\uF03F\uF07C"},
        {"control characters", "\x01x\x1F", u"\uF001x\uF01F"},
        {"invalid byte", "a\xFF", u"a\xDCFF"},
        {"truncated sequence", "\xC3", u"\xDCC3"},
        {"overlong slash", "\xC0\xAF", u"\xDCC0" u"\xDCAF"},
        {"encoded surrogate", "\xED\xA0\x80", u"\xDCED" u"\xDCA0" u"\xDC80"},
        {"beyond U+10FFFF", "\xF4\x90\x80\x80", u"\xDCF4" u"\xDC90" u"\xDC80" u"\xDC80"},
        // The UTF-8 of a private-use character that stands for a reserved
        // one is kept as bytes, else it would read back as '*'.
        {"literal U+F02A", "\xEF\x80\xAA", u"\xDCEF" u"\xDC80" u"\xDCAA"},
        {"private use not in the set", "\xEF\x81\x81", u"\uF041"},
        {"DEL is allowed", "\x7F", u"\x7F"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(NameFromNative(c.bytes), c.name);
        auto back = NameToNative(c.name);
        ASSERT_TRUE(back.has_value());
        EXPECT_EQ(*back, c.bytes);
    }
}

TEST(Names, RefusesWhatNoPosixNameHolds) {
    const std::u16string refused[] = {
        std::u16string(u"a\0b", 3), u"a/b", u"\xD800", u"x\xD800" u"y", u"\xDC41", u"\xDC7F",
    };
    for (const auto& name : refused) EXPECT_FALSE(NameToNative(name).has_value());
}

TEST(Names, ReservedCharactersWrittenAsThemselvesPassThrough) {
    EXPECT_EQ(NameToNative(u"a*b:c"), std::optional<std::string>("a*b:c"));
}

// Every byte string without NUL and '/' survives the trip to UTF-16 and back,
// and its UTF-16 form never holds a character a Windows name can't.
TEST(Names, RandomBytesRoundTrip) {
    std::mt19937 rng(20261121);
    // Bias towards the interesting bytes: lead and continuation bytes,
    // reserved characters, the bytes of U+F0xx.
    const unsigned char pool[] = {'a', '.', '\\', '*', ':', 0x01, 0x1F, 0x7F, 0x80, 0x81, 0xBF,
                                  0xC0, 0xC3, 0xA9, 0xE0, 0xED, 0xA0, 0xEF, 0x80, 0xAA, 0xF0,
                                  0xF4, 0x90, 0x9F, 0xF8, 0xFF};
    for (int round = 0; round < 20000; ++round) {
        std::string bytes(rng() % 24, '\0');
        for (auto& b : bytes) {
            unsigned char v = (rng() % 2) ? pool[rng() % sizeof pool]
                                          : static_cast<unsigned char>(1 + rng() % 255);
            if (v == '/') v = 'x';
            b = static_cast<char>(v);
        }
        const std::u16string name = NameFromNative(bytes);
        for (char16_t c : name) ASSERT_FALSE(IsWindowsReservedNameChar(c)) << round;
        auto back = NameToNative(name);
        ASSERT_TRUE(back.has_value()) << round;
        ASSERT_EQ(*back, bytes) << round;
    }
}

}  // namespace
}  // namespace platform
