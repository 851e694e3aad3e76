#include <gtest/gtest.h>

#include "base/utf.h"
#include "catalogue/model/glob.h"
#include "catalogue/model/values.h"

using namespace catalogue;

TEST(CatalogueGlob, MatchesAsWindowsComparesNames) {
    struct {
        const char16_t* pattern;
        const char16_t* name;
        bool match;
    } cases[] = {
        {u"*", u"anything", true},        {u"*", u"", true},
        {u"*.TXT", u"read me.txt", true}, {u"*.txt", u"a.txt.bak", false},
        {u"a?c", u"ABC", true},           {u"a?c", u"ac", false},
        {u"*a*b*", u"xxaYYbzz", true},    {u"*a*b", u"ab-a", false},
        {u"straße", u"STRASSE", false},   {u"ÄRGER*", u"ärger.doc", true},
        {u"привет.*", u"ПРИВЕТ.md", true}, {u"", u"", true},
        {u"", u"a", false},               {u"**?", u"", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(CGlob(c.pattern).Match(c.name), c.match) << util::Utf16ToUtf8(c.pattern) << " / " << util::Utf16ToUtf8(c.name);
}

TEST(CatalogueValues, TimesRoundTripAndRefuseNonsense) {
    // 2026-11-21T13:45:07Z with 1234567 ticks of fraction.
    const uint64_t ticks = (1795268707ull + 11644473600ull) * 10000000ull + 1234567;
    EXPECT_EQ(IsoTime(ticks), "2026-11-21T13:45:07Z");
    EXPECT_EQ(IsoTime(ticks, true), "2026-11-21T13:45:07.1234567Z");
    EXPECT_EQ(IsoTime(0), "1601-01-01T00:00:00Z");
    EXPECT_EQ(IsoTime(~uint64_t{0}), "ticks:18446744073709551615");
    EXPECT_EQ(ParseIsoTime("2026-11-21T13:45:07Z"), ticks - 1234567);
    EXPECT_EQ(ParseIsoTime("2026-11-21 13:45:07"), ticks - 1234567);
    EXPECT_EQ(ParseIsoTime("2026-11-21"), (1795219200ull + 11644473600ull) * 10000000ull);
    EXPECT_EQ(ParseIsoTime("2024-02-29"), (1709164800ull + 11644473600ull) * 10000000ull);
    for (const char* bad : {"2026-02-30", "2026-13-01", "2026-1-01", "1600-12-31", "2026-11-21T25:00", "2026-11-21x",
                            "", "yesterday"})
        EXPECT_FALSE(ParseIsoTime(bad)) << bad;
}

TEST(CatalogueValues, SizesAndQuoting) {
    EXPECT_EQ(ParseSize("0"), 0u);
    EXPECT_EQ(ParseSize("10K"), 10240u);
    EXPECT_EQ(ParseSize("3g"), 3ull << 30);
    for (const char* bad : {"10KB", "-1", "99999999T"}) EXPECT_FALSE(ParseSize(bad)) << bad;
    std::string csv;
    AppendCsv(csv, "plain");
    csv += ',';
    AppendCsv(csv, "a,\"b\"\nc");
    EXPECT_EQ(csv, "plain,\"a,\"\"b\"\"\nc\"");
    // JSON: quotes, control characters, a pair as UTF-8, lone halves escaped.
    const std::u16string text =
        u"C:\\a \"q\"\x01 \U0001F600 " + std::u16string{char16_t(0xDC00), u'-', char16_t(0xD83D)};
    std::string json;
    AppendJson(json, text);
    EXPECT_EQ(json, "\"C:\\\\a \\\"q\\\"\\u0001 \xF0\x9F\x98\x80 \\udc00-\\ud83d\"");
}
