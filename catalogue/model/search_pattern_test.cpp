// What a search pattern matches, and the piece a name index may narrow it
// with: a piece every matching name holds, never one a match may lack.

#include <gtest/gtest.h>

#include "catalogue/model/search_pattern.h"

namespace {

TEST(CatalogueSearchPattern, MatchesAndNarrowsAsEachKindOfPatternShould) {
    struct {
        std::u16string pattern;
        bool path;
        std::u16string piece;
        std::vector<std::u16string> match, miss;
    } cases[] = {
        // a part of a name, as a desktop search finds it
        {u"budget", false, u"BUDGET", {u"Budget-2026.xlsx", u"old-BUDGET"}, {u"budge", u"bud get"}},
        // the whole name, as find matches it
        {u"*.xlsx", false, u".XLSX", {u"a.XLSX", u".xlsx"}, {u"a.xlsx.bak"}},
        {u"re?ort*", false, u"ORT", {u"report.docx", u"RESORT"}, {u"rport"}},
        {u"a?", false, u"", {u"ab"}, {u"a", u"abc"}},
        // a path: contained, and no piece (its last part may start any name below it)
        {u"alice/Doc", true, u"", {u"\\Users\\alice\\Documents\\x.txt"}, {u"\\Users\\alice"}},
        // a path matched whole: the part after the last star and separator is the name's end
        {u"\\users\\*\\*.txt", true, u".TXT", {u"\\Users\\a\\b\\c.TXT"}, {u"\\Windows\\c.txt"}},
        {u"\\Users\\*", true, u"", {u"\\Users\\a"}, {u"\\Usersx"}},
        {u"\\Users\\report?.doc", true, u"REPORT", {u"\\Users\\report1.doc"}, {u"\\Users\\x\\report1.doc"}},
        // surrogates end a piece (trigrams are of characters, not units)
        {u"ab\U0001F600cdef", false, u"CDEF", {u"xab\U0001F600cdefx"}, {u"abcdef"}},
    };
    for (const auto& c : cases) {
        const catalogue::CSearchPattern plan(c.pattern);
        EXPECT_EQ(plan.MatchesPath(), c.path) << std::string(c.pattern.begin(), c.pattern.end());
        EXPECT_EQ(plan.Piece(), c.piece);
        for (const auto& text : c.match) EXPECT_TRUE(plan.Match(text));
        for (const auto& text : c.miss) EXPECT_FALSE(plan.Match(text));
    }
}

}  // namespace
