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

namespace {

// The rows of both runs over the same image, split into what only one of
// them holds.
TEST_F(LegacyRun, DiffersFromTheOptimizedRunOnlyAsTheTwoReadersDiffer) {
    m_Run.Filters({"C:\\"}, {"C:\\skipped"});
    ASSERT_EQ(m_Run.Run(), 0) << m_Run.Output();
    const auto legacy = Decode(m_Run.Out() / "volume.C.ifd");

    m_Run.Mode = "-opt yes";
    m_Run.Mapping({{VolumeName(kGuidC), (m_Run.Root() / "c.img").string()}});
    ASSERT_EQ(m_Run.Run("", m_Run.Root() / "out-opt"), 0) << m_Run.Output();
    const auto optimized = Decode(m_Run.Root() / "out-opt" / "volume.c_.ifd");

    std::set<std::string> onlyLegacy, onlyOptimized;
    std::set_difference(legacy.begin(), legacy.end(), optimized.begin(), optimized.end(),
                        std::inserter(onlyLegacy, onlyLegacy.end()));
    std::set_difference(optimized.begin(), optimized.end(), legacy.begin(), legacy.end(),
                        std::inserter(onlyOptimized, onlyOptimized.end()));
    const std::string l(240, 'L'), m(200, 'M');
    // The scanner reports files below a link's target again under the link,
    // with folders made for the link's path; and the files of $Extend, whose
    // parent it never registers, under the root.
    EXPECT_EQ(onlyLegacy, (std::set<std::string>{
                              "D jlink\\" + l, "D jlink\\" + l + "\\" + m, "D jlink\\sub",
                              "F jlink\\" + l + "\\" + m + "\\far.txt 4", "F jlink\\inner.txt 6",
                              "F jlink\\sub\\deeper.txt 12", "F jlong\\far.txt 4", "F slink\\deeper.txt 12",
                              "F $ObjId 0", "F $Quota 0", "F $Reparse 0"}));
    // The pipeline keeps links as reparse rows, and a row for every hard
    // link of a file where the scanner keeps the record's last name.
    std::set<std::string> hardLinks;
    for (const auto& line : onlyOptimized)
        if (line.starts_with("F ")) hardLinks.insert(line);
    EXPECT_EQ(onlyOptimized.size() - hardLinks.size(), 3u);
    EXPECT_EQ(onlyOptimized.count("R |jlink|jtarget"), 1u);
    EXPECT_EQ(onlyOptimized.count("R |slink|jtarget\\sub"), 1u);
    EXPECT_EQ(onlyOptimized.count("R |jlong|jtarget\\" + l + "\\" + m), 1u);
    EXPECT_EQ(hardLinks.count("F links\\target.txt 7"), 1u);
    EXPECT_EQ(hardLinks.size(), 1u + 60u);  // manylinks: 61 names, one of them in both
    for (const auto& line : hardLinks)
        EXPECT_TRUE(line.starts_with("F manylinks\\") || line == "F links\\target.txt 7") << line;
}

}  // namespace
