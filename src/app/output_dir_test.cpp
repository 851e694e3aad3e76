// The recursive creation of the output folder and its failures.
#include "app/output_dir.h"

#include <gtest/gtest.h>

#include <fstream>

#include "base/exc.h"
#include "testing/temp_dir.h"

namespace {

namespace fs = std::filesystem;

TEST(CreateOutputDirectory, MakesEveryMissingLevelAndAcceptsAnExistingOne) {
    ngitest::CTempDir dir;
    for (const std::u16string rest : {u"a/b\\c", u"a/b\\c", u"a\\d\\", u"a"}) {
        indexer::CreateOutputDirectory(dir.Path(rest));
    }
    EXPECT_TRUE(fs::is_directory(dir.Native() / "a" / "b" / "c"));
    EXPECT_TRUE(fs::is_directory(dir.Native() / "a" / "d"));
}

TEST(CreateOutputDirectory, FailuresCarryTheFolderOfEachLevel) {
    ngitest::CTempDir dir;
    std::ofstream(dir.Native() / "file") << "x";
    struct TCase {
        std::u16string path;
        std::u16string deepest;
        int32_t code;
    };
    const std::vector<TCase> cases = {
        {u"relative", u"Invalid folder path: [relative].", kHrInvalidArg},
        {dir.Path(u"x//y"), u"Invalid folder path: [" + dir.Path(u"x//y") + u"].", kHrInvalidArg},
        {dir.Path(u"file/sub"), u"CreateDirectoryW(" + dir.Path(u"file/sub") + u") failed.", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.path.begin(), c.path.end()));
        try {
            indexer::CreateOutputDirectory(c.path);
            ADD_FAILURE() << "no exception";
        } catch (const CExc& e) {
            const auto& m = e.GetMessages();
            EXPECT_EQ(m.front(), u"Cannot create folder [" + c.path + u"].");
            const bool found = std::find(m.begin(), m.end(), c.deepest) != m.end();
            EXPECT_TRUE(found) << std::string(e.GetDescription().begin(), e.GetDescription().end());
            if (c.code != 0) {
                EXPECT_EQ(e.GetCode(), c.code);
            }
        }
    }
}

}  // namespace
