// The legacy run (no "-opt yes") as a user starts it: an NTFS volume whose
// device is the legacy fixture image, scanned by the MFT scanner, and a
// folder volume that the volume table calls ReFS, walked.
#include <gmock/gmock.h>

#include "app/run_test_env.h"
#include "ntfs/ntfs_test_util.h"

namespace {

using namespace runtest;
using ::testing::HasSubstr;
using ::testing::Not;

// An instance whose C: is the legacy image (an empty folder for its live
// tree) and whose D: is a folder the table calls ReFS.
class LegacyRun : public ::testing::Test {
protected:
    void SetUp() override {
        const fs::path gz = ngitest::ntfs::SourceDir() / "fixtures/ntfs/ntfs-legacy.img.gz";
        ASSERT_TRUE(ngitest::ntfs::Decompress(gz, m_Run.Root() / "c.img"));
        fs::create_directories(m_Run.C());
        for (const auto& [file, size] : {std::pair{"docs/readme.txt", 5}, {"docs/.git/HEAD", 3}, {"data/x.bin", 2},
                                         {"database/y.bin", 3}})
            walktest::WriteFile(m_Run.Root() / "d" / file, size);
        m_Run.FileSystems["D:"] = "ReFS";
        m_Run.SetVolumes({{"C:", kGuidC, m_Run.C(), m_Run.Root() / "c.img"}, {"D:", kGuidD, m_Run.Root() / "d", {}}},
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
    EXPECT_EQ(TextOf(m_Run.Out() / "summary.txt"), "volume.C=volume.C.ifd\r\nvolume.D=volume.D.ifd");

    const auto c = Rows(m_Run.Out() / "volume.C.ifd");
    for (const char* line : {
             "F data\\a.txt 2", "F data\\big.bin 70000",
             "F .hidden\\h.txt 7",                              // the scanner goes into dot-folders
             "F links\\a\\second.txt 7",                        // two links: one row, the last name
             "F jtarget\\inner.txt 6", "F jlink\\inner.txt 6",  // below a junction's target: twice
         })
        EXPECT_EQ(c.count(line), 1u) << line;
    EXPECT_EQ(c.count("F links\\target.txt 7"), 0u);
    for (const auto& line : c) EXPECT_THAT(line, Not(HasSubstr("skipped")));
    EXPECT_EQ(Rows(m_Run.Out() / "volume.D.ifd"),
              (Lines{"D ", "D data", "D database", "D docs", "F database\\y.bin 3", "F docs\\readme.txt 5"}));
}

// The rows of both runs over the same image, split into what only one of
// them holds.
TEST_F(LegacyRun, DiffersFromTheOptimizedRunOnlyAsTheTwoReadersDiffer) {
    m_Run.Filters({"C:\\"}, {"C:\\skipped"});
    ASSERT_EQ(m_Run.Run(), 0) << m_Run.Output();
    const auto legacy = Rows(m_Run.Out() / "volume.C.ifd");
    m_Run.Mode = "-opt yes";
    m_Run.Mapping({{VolumeName(kGuidC), (m_Run.Root() / "c.img").string()}});
    ASSERT_EQ(m_Run.Run("", m_Run.Root() / "out-opt"), 0) << m_Run.Output();
    const auto optimized = Rows(m_Run.Root() / "out-opt" / "volume.c_.ifd");

    Lines onlyLegacy, onlyOptimized;
    std::set_difference(legacy.begin(), legacy.end(), optimized.begin(), optimized.end(),
                        std::inserter(onlyLegacy, onlyLegacy.end()));
    std::set_difference(optimized.begin(), optimized.end(), legacy.begin(), legacy.end(),
                        std::inserter(onlyOptimized, onlyOptimized.end()));
    const std::string l(240, 'L'), m(200, 'M');
    // The scanner reports files below a link's target again under the link,
    // with folders made for the link's path; and the files of $Extend, whose
    // parent it never registers, under the root.
    EXPECT_EQ(onlyLegacy, (Lines{"D jlink\\" + l, "D jlink\\" + l + "\\" + m, "D jlink\\sub",
                                 "F jlink\\" + l + "\\" + m + "\\far.txt 4", "F jlink\\inner.txt 6",
                                 "F jlink\\sub\\deeper.txt 12", "F jlong\\far.txt 4", "F slink\\deeper.txt 12",
                                 "F $ObjId 0", "F $Quota 0", "F $Reparse 0"}));
    // The pipeline keeps links as reparse rows, and a row for every hard
    // link of a file where the scanner keeps the record's last name
    // (manylinks: 61 names, one of them in both).
    Lines expected = {"R |jlink|jtarget", "R |slink|jtarget\\sub", "R |jlong|jtarget\\" + l + "\\" + m,
                      "F links\\target.txt 7"};
    for (const auto& line : onlyOptimized)
        if (line.starts_with("F manylinks\\")) expected.insert(line);
    EXPECT_EQ(onlyOptimized, expected);
    EXPECT_EQ(expected.size(), 4u + 60u);
}

}  // namespace
