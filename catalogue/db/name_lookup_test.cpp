// The name index is asked for the rarest trigrams of a piece, all of them
// when every one is common, and what it answers still holds every name
// that holds the piece.

#include <gtest/gtest.h>

#include "catalogue/db/name_lookup.h"
#include "catalogue/db/schema.h"
#include "testing/temp_dir.h"

namespace {

using namespace catalogue;

TEST(NameLookup, AsksForTheRarestTrigramsOnly) {
    ngitest::CTempDir dir;
    auto db = OpenDatabase((dir.Native() / "c.sqlite").string());
    // 10,000 names hold COM and OMM; one name alone holds REC and ECO.
    db->Exec(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 10000) "
        "INSERT INTO name_grams(rowid, folded) SELECT i, 'COMMON' || i FROM n; "
        "INSERT INTO name_grams(rowid, folded) VALUES(20000, 'RARECOMMON'), (20001, 'WRECK ECONOMY'); "
        "INSERT INTO names(id, hash, name) VALUES(20000, 0, 'RareCommon'), (20001, 0, 'wreck economy')");
    const struct {
        std::u16string piece;
        std::string query;
        std::vector<int64_t> names;  // what the query finds; the caller matches each exactly
    } cases[] = {
        {u"RECOMM", R"("REC" "ECO")", {20000, 20001}},
        {u"COMMON9999", R"("999" "N99" "ON9")", {}},  // by how many names hold each: 19, 111, 1111
        {u"COMMON", NameQuery(EDialect::kSqlite, u"COMMON"), {20000}},
        {u"ZZZCOM", R"("ZZZ" "ZZC" "ZCO")", {}},
    };
    for (const auto& c : cases) {
        const std::string query = NamesHoldingQuery(*db, c.piece);
        EXPECT_EQ(query, c.query);
        auto found = db->Prepare(DialectSql(EDialect::kSqlite).namesHolding);
        found->Bind(1, std::string_view(query));
        std::vector<int64_t> names;
        while (found->Step()) names.push_back(found->Int(0));
        EXPECT_EQ(names, c.names) << query;
    }
}

}  // namespace
