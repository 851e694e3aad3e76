// Reparse points on real entries of a Linux tree under a volume table of the
// test's own: the buffer that grows on ERROR_MORE_DATA, CheckReparsePoint,
// and each answer of ClassifySymlink. (Decoding: reparse_data_test.cpp.)
#include "walk/reparse_processor.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "testing/log_capture.h"
#include "testing/temp_dir.h"
#include "testing/temp_registry.h"
#include "walk/ff_indexer.h"
#include "walk/walk_test_env.h"

namespace fs = std::filesystem;
using namespace walktest;
using indexer::CFfIndexer;
using indexer::SReparsePointInfo;

namespace {

class ReparseTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(m_Tmp.Native() / "c");
        fs::create_directories(m_Tmp.Native() / "d");
    }
    fs::path C() const { return m_Tmp.Native() / "c"; }

    ngitest::CTempDir m_Tmp;
    ngitest::CTempRegistry m_Registry;
    ngitest::CLogCapture m_Log;
    CTestVolumes m_Volumes{{Volume(u"C:", kVolC, m_Tmp.Native() / "c"),
                            Volume(u"D:", kVolD, m_Tmp.Native() / "d")}};
};

TEST_F(ReparseTest, BufferGrowsFromTheFirst28BytesToTheLengthAsked) {
    const std::string target = (C() / std::string(100, 't')).string();
    ASSERT_EQ(::symlink(target.c_str(), (C() / "l").c_str()), 0);
    indexer::CPeparsePointProcessor processor(u"C:\\l");
    std::u16string substitute;
    uint32_t tag = 0;
    ASSERT_TRUE(processor.Parse(substitute, tag));
    EXPECT_EQ(tag, indexer::kReparseTagSymlink);
    EXPECT_EQ(substitute, u"\\??\\C:\\" + std::u16string(100, u't'));
    // Data: 12 bytes of fields, the substitute ("\??\C:\" and 100 units)
    // and the print name ("C:\" and 100 units).
    EXPECT_EQ(processor.GetBufferSize(), 12u + 2 * 107 + 2 * 103 + 28);
}

TEST_F(ReparseTest, CheckReparsePointTellsLinksFromOtherEntries) {
    ASSERT_EQ(::symlink("x", (C() / "rel").c_str()), 0);
    walktest::WriteFile(C() / "plain", 1);
    CFfIndexer indexer;
    SReparsePointInfo info;
    ASSERT_TRUE(indexer.CheckReparsePoint(u"C:", u"rel", info));
    EXPECT_EQ(info.fullPath, u"C:\\rel");
    EXPECT_EQ(info.substitute, u"x");
    EXPECT_EQ(info.tag, indexer::kReparseTagSymlink);
    // No reparse point, or no entry at all: false; only the first is logged.
    EXPECT_FALSE(indexer.CheckReparsePoint(u"C:", u"plain", info));
    EXPECT_TRUE(m_Log.Contains(u"CPeparsePointProcessor::Parse fail! FSCTL_GET_REPARSE_POINT nonzero exit code!"));
    const size_t lines = m_Log.Lines().size();
    EXPECT_FALSE(indexer.CheckReparsePoint(u"C:", u"gone", info));
    EXPECT_EQ(m_Log.Lines().size(), lines);
}

TEST_F(ReparseTest, ClassifySymlinkAnswers) {
    struct TCase {
        std::u16string substitute;
        bool skipUnc;
        indexer::EReparseClass expected;
    };
    const std::vector<TCase> cases = {
        {u"..\\x", true, indexer::ReparseSkipped},
        {u"\\??\\UNC\\server\\share", true, indexer::ReparseSkippedUnc},
        {u"\\??\\UNC\\server\\share", false, indexer::ReparseSkipped},  // no volume name
        {u"\\??\\D:\\x", true, indexer::ReparseOtherVolume},
        {u"\\??\\c:\\x", true, indexer::ReparseFollow},  // c: and C: are one volume
        {u"\\??\\Q:\\x", true, indexer::ReparseSkipped},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(U8(c.substitute));
        CFfIndexer indexer;
        indexer.SetLogicalVolumePath(u"C:");
        indexer.SetSkipUnc(c.skipUnc);
        EXPECT_EQ(indexer.ClassifySymlink({indexer::kReparseTagSymlink, u"C:\\l", c.substitute}), c.expected);
    }
    EXPECT_TRUE(m_Log.Contains(u"Symlink [C:\\l] haven`t volume name. Substitute [\\??\\Q:\\x]."));
}

TEST_F(ReparseTest, ALinkMetAgainBelowItselfIsALoop) {
    CFfIndexer indexer;
    indexer.SetLogicalVolumePath(u"C:");
    const std::u16string up = u"\\??\\C:\\a";
    EXPECT_EQ(indexer.ClassifySymlink({indexer::kReparseTagSymlink, u"C:\\a\\up", up}), indexer::ReparseFollow);
    EXPECT_EQ(indexer.ClassifySymlink({indexer::kReparseTagSymlink, u"C:\\a\\up\\up", up}),
              indexer::ReparseSkipped);
    EXPECT_TRUE(m_Log.Contains(u"Recursive symlink is found. [C:\\a\\up\\up]."));
    // Another place with the same target is no loop.
    EXPECT_EQ(indexer.ClassifySymlink({indexer::kReparseTagSymlink, u"C:\\b\\up", up}), indexer::ReparseFollow);
}

}  // namespace
