// The fast pipeline on real NTFS images. On every fixture and shared sample:
// what the pipeline gives against the Sleuth Kit (the directory tree by path,
// files with size and last-write time cut to fls's whole seconds, metafiles
// left out, parent-first rows, each file's owner SID against istat's), with
// reparse points skipped so that a link is the file or folder fls lists; and
// the same index bytes and log lines whether the $MFT is read ahead or block
// by block. On the richest fixture, ntfs-4k: reparse points (junctions and
// symbolic links of every kind, files with other tags).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fast/fast_test_util.h"
#include "testing/log_capture.h"
#include "testing/temp_registry.h"

using namespace ngitest::fast;
using indexer::fast_ntfs_indexer::TProcessorServices;
using ngitest::ntfs::TImage;

namespace {

// Indexes the image with the whole volume included; throws what the pipeline throws.
TIndexContent Index(const fs::path& image, const std::string& settings, TProcessorServices services = {}) {
    ngitest::CTempRegistry registry(kSettingsKey + settings);
    ngitest::CTempDir out;
    indexer::CIncExcNode root(std::vector<std::u16string>{}, std::vector<std::u16string>{});
    return ReadIndex(RunPipeline(image, root, out, services));
}

class FastOracle : public ::testing::TestWithParam<TImage> {};

TEST_P(FastOracle, TreeAndOwnersMatchTheSleuthKit) try {
    if (!ngitest::ntfs::HaveTool("fls") || !ngitest::ntfs::HaveTool("istat")) GTEST_SKIP() << "no Sleuth Kit";
    const fs::path file = ngitest::ntfs::UnpackedImage(GetParam());
    ASSERT_FALSE(file.empty());
    const TIndexContent ours = Index(file, kSkipReparse);
    ASSERT_FALSE(ours.DirRows.empty());
    for (size_t i = 1; i < ours.DirRows.size(); ++i) EXPECT_LT(ours.DirRows[i].second, ours.DirRows[i].first);

    const TFlsContent fls = RunFls(file);
    if (fls.Records.empty()) GTEST_SKIP() << "fls cannot read " << GetParam().Name;  // 2 MiB clusters
    // On a difference: the rows only in the index, and those only in fls.
    EXPECT_THAT(ours.Dirs, ::testing::ContainerEq(fls.Dirs));
    EXPECT_THAT(ours.Files, ::testing::ContainerEq(fls.Files));

    // The first file of each owner row and an even spread of the others (one
    // istat costs tens of milliseconds). A record without a security id (the
    // early 48-byte form) has owner row 0, "S-1-0-0"; istat shows the owner
    // SID on all but the 64 KiB-cluster image.
    std::set<uint32_t> rows;
    size_t n = 0;
    for (const auto& [filePath, ownerRow] : ours.FileOwners) {
        if (!rows.insert(ownerRow).second && n++ % (ours.FileOwners.size() / 24 + 1) != 0) continue;
        ASSERT_TRUE(fls.Records.count(filePath)) << filePath;
        ASSERT_LT(ownerRow, ours.Owners.size()) << filePath;
        const std::string& sid = std::get<0>(ours.Owners[ownerRow]);
        const ngitest::ntfs::TIstatSecurity istat = ngitest::ntfs::IstatSecurity(file, fls.Records.at(filePath));
        EXPECT_EQ(sid, !istat.Id ? "S-1-0-0" : istat.Owner.empty() ? sid : istat.Owner) << filePath;
    }
} catch (const CExc& e) {
    FAIL() << U8(e.GetDescription());
}

INSTANTIATE_TEST_SUITE_P(Images, FastOracle, ::testing::ValuesIn(ngitest::ntfs::AllImages()),
                         ngitest::ntfs::TImageTestName());

// The index bytes and the log; every run writes into the same folder, so
// that the log names the same files.
std::pair<std::vector<uint8_t>, std::string> IndexWith(const fs::path& image, uint32_t depth, uint32_t requestKiB,
                                                       bool async, bool directIo) {
    static ngitest::CTempDir out;
    fs::remove(out.Native() / "volume.C.ifd");
    indexer::CIncExcNode root(std::vector<std::u16string>{}, std::vector<std::u16string>{});
    indexer::CBlockReadAhead::TTuning tuning;
    tuning.depth = depth;
    tuning.requestBytes = requestKiB << 10;
    tuning.async = async;
    ngitest::CLogCapture capture;
    std::vector<uint8_t> index = ngitest::ntfs::ReadBytes(RunPipeline(image, root, out, {}, {tuning, directIo}));
    return {index, U8(capture.Text())};
}

class FastReadAhead : public ::testing::TestWithParam<TImage> {};

// With or without the asynchronous queue (io_uring, overlapped ReadFile), in
// large or small requests, and unbuffered.
TEST_P(FastReadAhead, SameIndexAndLogAsBlockByBlock) {
    const fs::path image = ngitest::ntfs::UnpackedImage(GetParam());
    ASSERT_FALSE(image.empty());
    const auto plain = IndexWith(image, 0, 1024, true, false);
    ASSERT_FALSE(plain.first.empty());
    const struct {
        const char* what;
        uint32_t depth, requestKiB;
        bool async, directIo;
    } cases[] = {
        {"asynchronous, depth 8, 1 MiB", 8, 1024, true, false},
        {"asynchronous, depth 1, one block", 1, 256, true, false},
        {"synchronous, depth 4, 2 MiB", 4, 2048, false, false},
        {"asynchronous, unbuffered", 8, 1024, true, true},
        {"no read-ahead, unbuffered", 0, 1024, true, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        try {
            const auto run = IndexWith(image, c.depth, c.requestKiB, c.async, c.directIo);
            EXPECT_TRUE(run.first == plain.first);
            EXPECT_EQ(run.second, plain.second);
        } catch (const CExc&) {
            // Only unbuffered reads may be refused, by a file system without
            // direct I/O (tmpfs).
            EXPECT_TRUE(c.directIo);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Images, FastReadAhead, ::testing::ValuesIn(ngitest::ntfs::AllImages()),
                         ngitest::ntfs::TImageTestName());

TEST(FastFixture, ReparsePointsResolveOnTheVolumeAndStopAtARelativeLink) {
    const fs::path image = ngitest::ntfs::UnpackedImage({"ntfs-4k", ngitest::ntfs::SourceDir() / "fixtures/ntfs/ntfs-4k.img.gz"});
    ASSERT_FALSE(image.empty());
    platform::CVolumeTable table = DriveC();
    ngitest::CLogCapture log;
    const TIndexContent content = Index(image, "", {.Volumes = &table});
    // The junction into the volume: its empty folder row and a reparse row
    // naming the target inside the volume.
    EXPECT_EQ(content.Reparses,
              (std::vector<std::tuple<std::string, std::string, std::string>>{{"reparse", "j_abs", "reparse\\target"}}));
    EXPECT_TRUE(content.Dirs.count("reparse/j_abs"));
    EXPECT_TRUE(log.Contains(u"ReparsePoint [j_abs] SubstituteName [\\??\\C:\\reparse\\target] is included."));
    // By volume name: the path's first part is the volume name, not a mount
    // point of it, so the target counts as another volume's.
    EXPECT_TRUE(log.Contains(u"SubstituteName [\\??\\Volume{01234567-89ab-cdef-0123-456789abcdef}\\data] is invalid!"));
    // A junction whose target has no volume: given up and counted.
    EXPECT_TRUE(log.Contains(u"Invalid SubstituteName path [\\??\\..\\target]. Volume name not found."));
    EXPECT_TRUE(log.Contains(u"2 unparsed reparse points was skipped"));
    // The relative symbolic link ends the check: the links after it stay out.
    EXPECT_TRUE(log.Contains(u"Relative substitute path was detected. It`s not supported yet."));
    EXPECT_FALSE(log.Contains(u"ReparsePoint [s_abs]"));
    // A decoded link to a file is no file row of its own; other tags are
    // ordinary files, each reported once, unknown ones counted.
    std::set<std::string> files;
    for (const auto& row : content.Files) files.insert(std::get<0>(row));
    EXPECT_FALSE(files.count("reparse/file_link"));
    EXPECT_TRUE(files.count("reparse/tag_8000001B"));
    EXPECT_TRUE(log.Contains(u"ReparseTag IO_REPARSE_TAG_DEDUP found."));
    EXPECT_TRUE(log.Contains(u"Unknown reparse tag 0x8000001b found 1 times."));
}

}  // namespace
