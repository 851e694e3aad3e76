#include "platform/codepage.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

TEST(CodePage, Utf8WithWindows1252Fallback) {
    const struct {
        std::string bytes;
        std::u16string text;
    } cases[] = {
        {"plain", u"plain"},
        {"caf\xC3\xA9", u"caf\u00E9"},
        {"caf\xE9", u"caf\u00E9"},              // Latin-1 byte, not UTF-8
        {"\x80\x99\x9F", u"\u20AC\u2122\u0178"},  // Windows-1252 specials
        {"\x81\x8D", u"\x0081\x008D"},          // holes keep their value
        {"\xF0\x9F\x98\x80", u"\U0001F600"},
        {"\xC3", u"\u00C3"},                    // truncated sequence
    };
    for (const auto& c : cases) EXPECT_EQ(AnsiToUtf16(c.bytes), c.text) << c.bytes;
}

}  // namespace
}  // namespace platform
