#include <gtest/gtest.h>

#include "platform/find.h"

namespace platform {
namespace {

TEST(Win32Wildcard, DosRules) {
    struct Case {
        const char16_t* mask;
        const char16_t* name;
        bool match;
    } cases[] = {
        {u"*", u"anything.txt", true},
        {u"*", u"", true},
        {u"*.*", u"noext", true},            // "*.*" is "*"
        {u"*.txt", u"a.TXT", true},          // case folded
        {u"*.txt", u"a.txt.bak", false},
        {u"*.tmp", u"ifd1A2B.tmp", true},
        {u"ifd????.tmp", u"ifd1a.tmp", true},  // '?' matches nothing before a dot
        {u"ifd????.tmp", u"ifd12345.tmp", false},
        {u"a?", u"a", true},                 // nothing at the end
        {u"a?", u"ab", true},
        {u"a?", u"abc", false},
        {u"a?c", u"ac", false},              // only before a dot or at the end
        {u"a.", u"a", true},                 // DOS_DOT: nothing at the end
        {u"a.*", u"a", true},
        {u"a.*", u"a.b", true},
        {u"*.", u"noext", true},
        {u"*.", u"has.ext", false},
        {u"*.b", u"x.y.b", true},            // DOS_STAR stops at the last dot
        {u"*.y", u"x.y.b", false},
        {u"a*b*.c", u"a1b2b3.c", true},
        {u"a*b*.c", u"a1c.c", false},
        {u"\u00e9*", u"\u00c9T\u00c9", true},  // non-ASCII case folding
        {u"abc", u"abd", false},
        {u"", u"", true},
        {u"", u"a", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(MatchesWildcard(c.mask, c.name), c.match)
            << std::string(c.mask, c.mask + std::char_traits<char16_t>::length(c.mask)) << " / "
            << std::string(c.name, c.name + std::char_traits<char16_t>::length(c.name));
}

TEST(Win32Wildcard, ManyStarsOverALongName) {
    // Each star is one sweep of the name: mask length times name length, not
    // more (a star per reachable position would take seconds here).
    std::u16string mask(200, u'*');
    mask += u"x";
    std::u16string name(5000, u'a');
    EXPECT_FALSE(MatchesWildcard(mask, name));
}

}  // namespace
}  // namespace platform
