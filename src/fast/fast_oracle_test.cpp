// The fast pipeline on real NTFS images (the fixtures and the shared samples)
// against the Sleuth Kit, for what the pipeline adds to the reader (whose
// records ntfs_oracle_test.cpp compares): the directory tree by path, the
// metafiles left out, the rows in parent-first order, and each file's owner
// SID against the one istat shows beside the record's security id (istat
// run once per id). Reparse points are skipped, so a link is an ordinary
// file or folder as fls lists it; times are cut to fls's whole seconds.
#include <gtest/gtest.h>

#include "fast/fast_test_util.h"
#include "testing/temp_registry.h"

using namespace ngitest::fast;
using ngitest::ntfs::TImage;

namespace {

// The elements of a that b lacks, one a line, at most 20.
template <class T, class Show>
std::string Missing(const std::set<T>& a, const std::set<T>& b, Show show) {
    std::string out;
    int n = 0;
    for (const T& x : a)
        if (!b.count(x) && n++ < 20) out += "  " + show(x) + "\n";
    return out;
}

class FastOracle : public ::testing::TestWithParam<TImage> {};

TEST_P(FastOracle, TreeAndOwnersMatchTheSleuthKit) try {
    if (!ngitest::ntfs::HaveTool("fls") || !ngitest::ntfs::HaveTool("istat")) GTEST_SKIP() << "no Sleuth Kit";
    const fs::path file = ngitest::ntfs::UnpackedImage(GetParam());
    ASSERT_FALSE(file.empty());
    ngitest::CTempRegistry registry(
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\n"
        "\"IndexerSkipReparsePoints\"=dword:00000001\n");
    ngitest::CTempDir out;
    indexer::CIncExcNode root(std::vector<std::u16string>{}, std::vector<std::u16string>{});
    const TIndexContent ours = ReadIndex(RunPipeline(file, root, out));
    ASSERT_FALSE(ours.DirRows.empty());
    for (size_t i = 1; i < ours.DirRows.size(); ++i) EXPECT_LT(ours.DirRows[i].second, ours.DirRows[i].first);

    const TFlsContent fls = RunFls(file);
    if (fls.Records.empty()) GTEST_SKIP() << "fls cannot read " << GetParam().Name;  // 2 MiB clusters
    auto path = [](const std::string& p) { return p; };
    auto row = [](const TFileRow& r) {
        return std::get<0>(r) + " size " + std::to_string(std::get<1>(r)) + " time " + std::to_string(std::get<2>(r));
    };
    EXPECT_EQ(ours.Dirs, fls.Dirs) << "only in the index:\n"
                                   << Missing(ours.Dirs, fls.Dirs, path) << "only in fls:\n"
                                   << Missing(fls.Dirs, ours.Dirs, path);
    EXPECT_EQ(ours.Files, fls.Files) << "only in the index:\n"
                                     << Missing(ours.Files, fls.Files, row) << "only in fls:\n"
                                     << Missing(fls.Files, ours.Files, row);

    // The first file of each owner row and an even spread of the others (one
    // istat costs tens of milliseconds). A record without a security id (the
    // early 48-byte form) has owner row 0, "S-1-0-0"; istat shows the owner
    // SID on all but the 64 KiB-cluster image.
    std::set<uint32_t> rows;
    size_t n = 0, checked = 0;
    for (const auto& [filePath, ownerRow] : ours.FileOwners) {
        if (!rows.insert(ownerRow).second && n++ % (ours.FileOwners.size() / 24 + 1) != 0) continue;
        ASSERT_TRUE(fls.Records.count(filePath)) << filePath;
        ASSERT_LT(ownerRow, ours.Owners.size()) << filePath;
        const std::string& sid = std::get<0>(ours.Owners[ownerRow]);
        const ngitest::ntfs::TIstatSecurity istat = ngitest::ntfs::IstatSecurity(file, fls.Records.at(filePath));
        EXPECT_EQ(sid, !istat.Id ? "S-1-0-0" : istat.Owner.empty() ? sid : istat.Owner) << filePath;
        checked += !istat.Owner.empty();
    }
    ::testing::Test::RecordProperty("owners_checked", static_cast<int>(checked));
} catch (const CExc& e) {
    FAIL() << U8(e.GetDescription());
}

INSTANTIATE_TEST_SUITE_P(Images, FastOracle, ::testing::ValuesIn(ngitest::ntfs::AllImages()),
                         ngitest::ntfs::TImageTestName());

}  // namespace
