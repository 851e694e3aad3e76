// The legacy run (no "-opt yes") as a user starts it: an NTFS volume whose
// device is the legacy fixture image, scanned by the MFT scanner, and a
// folder volume that the volume table calls ReFS, walked.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "app/legacy_run.h"
#include "app/run_test_env.h"
#include "legacy/legacy_indexers.h"
#include "ntfs/ntfs_test_util.h"
#include "testing/log_capture.h"
#include "walk/walk_test_env.h"

namespace {

using namespace runtest;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string kGuidC = "0000000c-0000-0000-0000-00000000000c";
const std::string kGuidD = "0000000d-0000-0000-0000-00000000000d";

std::set<std::string> Decode(const fs::path& file) {
    return walktest::DecodeIndex(util::Utf8ToUtf16(file.string()));
}

// An instance whose C: is the legacy image (an empty folder for its live
// tree) and whose D: is a folder the table calls ReFS.
class LegacyRun : public ::testing::Test {
protected:
    void SetUp() override {
        const fs::path gz = ngitest::ntfs::SourceDir() / "fixtures/ntfs/ntfs-legacy.img.gz";
        ASSERT_TRUE(ngitest::ntfs::Decompress(gz, m_Run.Root() / "c.img"));
        fs::create_directories(m_Run.Root() / "c");
        fs::create_directories(m_Run.Root() / "d/docs/.git");
        fs::create_directories(m_Run.Root() / "d/data");
        fs::create_directories(m_Run.Root() / "d/database");
        std::ofstream(m_Run.Root() / "d/docs/readme.txt") << "hello";
        std::ofstream(m_Run.Root() / "d/docs/.git/HEAD") << "ref";
        std::ofstream(m_Run.Root() / "d/data/x.bin") << "xx";
        std::ofstream(m_Run.Root() / "d/database/y.bin") << "yyy";
        m_Run.FileSystems["D:"] = "ReFS";
        m_Run.SetVolumes({{"C:", kGuidC, m_Run.Root() / "c", m_Run.Root() / "c.img"},
                          {"D:", kGuidD, m_Run.Root() / "d", {}}},
                         {});
        m_Run.Filters({"C:\\", "D:\\"}, {"C:\\skipped", "D:\\data"});
        m_Run.Mode = "";
    }

    CInstance m_Run;
};

TEST_F(LegacyRun, IndexesTheNtfsImageByTheScannerAndTheReFsFolderByTheWalk) {
    ASSERT_EQ(m_Run.Run(), 0) << m_Run.Output();
    EXPECT_THAT(m_Run.Output(), HasSubstr("Gathering MFT from disk: [C:]."));
    // The flat form only: no type attribute, no Volumes subtree.
    const std::string summary = TextOf(m_Run.Out() / "summary.txt");
    EXPECT_THAT(summary, HasSubstr("volume.C=volume.C.ifd"));
    EXPECT_THAT(summary, HasSubstr("volume.D=volume.D.ifd"));
    EXPECT_THAT(summary, Not(HasSubstr("type")));
    EXPECT_THAT(summary, Not(HasSubstr("Volumes")));

    const auto c = Decode(m_Run.Out() / "volume.C.ifd");
    for (const char* line : {
             "F data\\a.txt 2", "F database\\b.txt 3", "F data\\big.bin 70000",
             "F .hidden\\h.txt 7",                           // the scanner goes into dot-folders
             "F links\\a\\second.txt 7",                     // two links: one row, the last name
             "F jtarget\\inner.txt 6", "F jlink\\inner.txt 6",  // below a junction's target: twice
             "F jtarget\\sub\\deeper.txt 12", "F jlink\\sub\\deeper.txt 12",
             "F slink\\deeper.txt 12",                       // a directory symbolic link too
         })
        EXPECT_EQ(c.count(line), 1u) << line;
    EXPECT_EQ(c.count("F links\\target.txt 7"), 0u);
    for (const auto& line : c) EXPECT_THAT(line, Not(HasSubstr("skipped"))) << "excluded, and no row on its account";
    // The non-resident junction's target lies two long folders down.
    size_t far = 0;
    for (const auto& line : c) far += line.starts_with("F jlong\\") || line.starts_with("F jtarget\\L");
    EXPECT_EQ(far, 2u);

    EXPECT_EQ(Decode(m_Run.Out() / "volume.D.ifd"),
              (std::set<std::string>{"D ", "D data", "D database", "D docs", "F database\\y.bin 3",
                                     "F docs\\readme.txt 5"}));
}

}  // namespace
