// Wildcard masks as the Windows file search reads them, the same on both
// systems: '*' and '?' before a dot, "*.*", case folded beyond ASCII.

#include <gtest/gtest.h>

#include "base/utf.h"
#include "platform/find.h"

namespace platform {
namespace {

TEST(Wildcard, WindowsRules) {
    const struct {
        const char16_t* mask;
        const char16_t* name;
        bool match;
    } cases[] = {
        {u"*", u"anything.at.all", true},
        {u"*.*", u"noext", true},                  // "*.*" is "*"
        {u"*.txt", u"A.TXT", true},
        {u"*.txt", u"a.b.txt", true},
        {u"*.txt", u"a.txt.bak", false},
        {u"*.", u"noext", true},
        {u"*.", u"a.b", false},
        {u"*.b", u"x.y.b", true},                  // the star stops at the last dot
        {u"a*c", u"abbbc", true},
        {u"a*b*.c", u"a1b2b3.c", true},
        {u"a*b*.c", u"a1c.c", false},
        {u"ifd????.tmp", u"ifd1A2B.tmp", true},
        {u"ifd????.tmp", u"ifdF.tmp", true},       // '?' matches nothing before the dot
        {u"ifd????.tmp", u"ifd12345.tmp", false},
        {u"a?c", u"abc", true},
        {u"a?c", u"ac", false},                    // not in the middle of a name
        {u"ab?", u"ab", true},                     // at the end
        {u"a.?", u"a", true},                      // a dot before '?' may match the end
        {u"a.*", u"a", true},
        {u"a.*", u"ab", false},
        {u"exact", u"exactly", false},
        {u"\u00E9*", u"\u00C9t\u00E9", true},      // case folding beyond ASCII
        {u"", u"x", false},
        {u"*a*a*a*a*a*b", u"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(MatchesWildcard(c.mask, c.name), c.match)
            << util::Utf16ToUtf8(c.mask) << " vs " << util::Utf16ToUtf8(c.name);
    // Each star is one sweep of the name, not one per reachable position.
    EXPECT_FALSE(MatchesWildcard(std::u16string(50, u'*') + u"x", std::u16string(2000, u'a')));
}

}  // namespace
}  // namespace platform
