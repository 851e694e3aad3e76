// The texts the databases are given: parameters numbered for PostgreSQL,
// name-index queries that hold every trigram with quotes and wildcards
// taken literally, paths and volume names from users and summaries.

#include <gtest/gtest.h>

#include "catalogue/model/answer_out.h"
#include "catalogue/db/catalogue_db.h"
#include "catalogue/db/postgres/pg_connection.h"
#include "catalogue/db/schema.h"
#include "catalogue/index/run_folder.h"

namespace {

using namespace catalogue;

TEST(CatalogueSchema, TextsGivenToTheDatabases) {
    EXPECT_EQ(NumberParameters("SELECT ? WHERE a = '?' AND b = ?"), "SELECT $1 WHERE a = '?' AND b = $2");
    EXPECT_EQ(NameQuery(EDialect::kSqlite, u"AB\"CD"), R"("AB""" "B""C" """CD")");
    EXPECT_EQ(NameQuery(EDialect::kPostgres, u"5%_\\X"), "%5\\%\\_\\\\X%");
    EXPECT_NE(NameHash("a"), NameHash("b"));

    const TUserPath path = SplitUserPath(u"c:/Users\\\\alice/");
    EXPECT_EQ(path.volume, u"c:");
    EXPECT_EQ(path.names, (std::vector<std::u16string>{u"Users", u"alice"}));
    EXPECT_TRUE(SplitUserPath(u"\\").names.empty());

    EXPECT_EQ(VolumeName({u"c", u"volume.c_.ifd", {}, false}), u"C:");
    EXPECT_EQ(VolumeName({u"D:\\", u"volume.D_.ifd", {}, false}), u"D:");
    EXPECT_EQ(VolumeName({u"C:\\Mount\\Data\\", u"x.ifd", {}, false}), u"C:\\Mount\\Data");
    EXPECT_EQ(VolumeName({u"", u"volume.B_.ifd", {}, false}), u"volume.B_.ifd");

    EXPECT_EQ(PointList({1, 2, 3, 5, 7, 8}), "1-3,5,7,8");
    EXPECT_EQ(PointList({}), "");
}

}  // namespace
