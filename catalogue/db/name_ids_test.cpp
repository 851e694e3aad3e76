// The in-memory table of names an ingest has met: every name found after the
// table grew many times over, names that differ only in case or length
// apart, an absent name not found.

#include <gtest/gtest.h>

#include "catalogue/db/name_ids.h"

namespace {

using catalogue::CNameIds;

TEST(CatalogueNameIds, FindsEveryNameAfterGrowing) {
    CNameIds ids;  // no Reserve: it grows from its first slots on
    auto name = [](int i) { return u"file_" + std::u16string(static_cast<size_t>(i % 7), u'x') + char16_t(u'A' + i % 26) +
                                   std::u16string(1, char16_t(0x400 + i / 26)); };
    const int count = 5000;
    for (int i = 0; i < count; ++i) ids.Add(name(i), CNameIds::Hash(name(i)), i + 1);
    ids.Add(name(7), CNameIds::Hash(name(7)), 99999);  // a name has one id: the first
    for (int i = 0; i < count; ++i) ASSERT_EQ(ids.Find(name(i), CNameIds::Hash(name(i))), i + 1) << i;
    const std::u16string folded = u"FILE_A" + std::u16string(1, char16_t(0x400));
    EXPECT_EQ(ids.Find(folded, CNameIds::Hash(folded)), 0);
    EXPECT_EQ(ids.Find(u"", CNameIds::Hash(u"")), 0);
    EXPECT_EQ(CNameIds().Find(u"a", CNameIds::Hash(u"a")), 0);
}

}  // namespace
