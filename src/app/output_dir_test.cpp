// The recursive creation of the output folder and its failures.
#include "app/output_dir.h"

#include <gtest/gtest.h>

#include "base/exc.h"
#include "testing/temp_dir.h"

namespace {

namespace fs = std::filesystem;

TEST(CreateOutputDirectory, MakesEveryMissingLevelAndNamesTheOneThatFails) {
    ngitest::CTempDir dir;
    for (const std::u16string rest : {u"a/b\\c", u"a/b\\c", u"a\\d\\", u"a"})
        indexer::CreateOutputDirectory(dir.Path(rest));
    EXPECT_TRUE(fs::is_directory(dir.Native() / "a" / "b" / "c"));
    EXPECT_TRUE(fs::is_directory(dir.Native() / "a" / "d"));

    dir.WriteFile("file", "x");
    const std::vector<std::pair<std::u16string, std::u16string>> cases = {
        {u"relative", u"Invalid folder path: [relative]."},
        {dir.Path(u"x//y"), u"Invalid folder path: [" + dir.Path(u"x//y") + u"]."},
        {dir.Path(u"file/sub"), u"CreateDirectoryW(" + dir.Path(u"file/sub") + u") failed."},
    };
    for (const auto& [path, deepest] : cases) {
        SCOPED_TRACE(std::string(path.begin(), path.end()));
        try {
            indexer::CreateOutputDirectory(path);
            ADD_FAILURE() << "no exception";
        } catch (const CExc& e) {
            const auto& m = e.GetMessages();
            EXPECT_EQ(m.front(), u"Cannot create folder [" + path + u"].");
            EXPECT_NE(std::find(m.begin(), m.end(), deepest), m.end());
        }
    }
}

}  // namespace
