// The fast pipeline on real NTFS images (the reader's fixtures and the shared
// samples) against the Sleuth Kit's listing: the same directory paths and
// the same (file path, size, last-write time) rows.
//
// Differences on purpose, and how this test handles them:
// - Metafiles (records below 16, $Extend and below) have no rows; they are
//   taken out of the listing.
// - Reparse points are switched off here (IndexerSkipReparsePoints), so a
//   link is an ordinary file or folder, as the listing shows it; how links
//   change the rows is the business of FastReparse.
// - The listing gives times in whole seconds; the rows are cut to that.
#include <gtest/gtest.h>

#include <algorithm>

#include "fast/fast_test_util.h"
#include "testing/log_capture.h"
#include "testing/temp_registry.h"

using namespace ngitest::fast;

namespace {

struct TImage {
    std::string Name;
    fs::path Gz;
};

void PrintTo(const TImage& image, std::ostream* os) { *os << image.Name; }

std::vector<TImage> AllImages() {
    std::vector<TImage> images;
    for (const fs::path& folder : {ngitest::ntfs::SourceDir() / "fixtures" / "ntfs", ngitest::ntfs::SamplesDir()}) {
        std::error_code ec;
        for (const auto& e : fs::directory_iterator(folder, ec))
            if (e.path().extension() == ".gz") images.push_back({e.path().stem().stem().string(), e.path()});
    }
    std::sort(images.begin(), images.end(), [](const TImage& a, const TImage& b) { return a.Name < b.Name; });
    return images;
}

fs::path ImageFile(const TImage& image) {
    static ngitest::CTempDir dir;
    const fs::path out = dir.Native() / (image.Name + ".img");
    if (!fs::exists(out) && !ngitest::ntfs::Decompress(image.Gz, out)) return {};
    return out;
}

constexpr char kSkipReparse[] =
    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\n"
    "\"IndexerSkipReparsePoints\"=dword:00000001\n";

class FastOracle : public ::testing::TestWithParam<TImage> {};

TEST_P(FastOracle, RowsMatchTheSleuthKit) {
    const TImage& image = GetParam();
    if (!ngitest::ntfs::HaveTool("fls")) GTEST_SKIP() << "no Sleuth Kit";
    const fs::path file = ImageFile(image);
    ASSERT_FALSE(file.empty());
    ngitest::CTempRegistry registry(kSkipReparse);
    ngitest::CTempDir out;
    indexer::CIncExcNode root(std::vector<std::u16string>{}, std::vector<std::u16string>{});
    TIndexContent ours;
    try {
        ours = ReadIndex(RunPipeline(file, root, out));
    } catch (const CExc& e) {
        FAIL() << U8(e.GetDescription());
    }
    // Row order: the root is row 0; every directory comes after its parent.
    ASSERT_FALSE(ours.DirRows.empty());
    EXPECT_EQ(ours.DirNames[0], "");
    for (size_t i = 1; i < ours.DirRows.size(); ++i) EXPECT_LT(ours.DirRows[i].second, ours.DirRows[i].first);

    // The image with 2 MiB clusters is indexed, but has no listing to compare.
    const TFlsContent oracle = RunFls(file);
    if (!oracle.Read) GTEST_SKIP() << "indexed; the Sleuth Kit cannot read " << image.Name;
    EXPECT_EQ(ours.Dirs, oracle.Dirs) << "only in the index:\n"
                                      << Missing(ours.Dirs, oracle.Dirs, [](auto& s) { return s; })
                                      << "only in the listing:\n"
                                      << Missing(oracle.Dirs, ours.Dirs, [](auto& s) { return s; });
    EXPECT_EQ(ours.Files, oracle.Files) << "only in the index:\n"
                                        << Missing(ours.Files, oracle.Files, ShowRow) << "only in the listing:\n"
                                        << Missing(oracle.Files, ours.Files, ShowRow);
}

INSTANTIATE_TEST_SUITE_P(Images, FastOracle, ::testing::ValuesIn(AllImages()),
                         [](const ::testing::TestParamInfo<TImage>& info) {
                             std::string name = info.param.Name;
                             for (char& c : name)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return name;
                         });

// With a filter: two folders included, one excluded below them. The listing
// is cut by path the same way; the root is a node (a row, no files).
TEST(FastOracleFiltered, IncludedFoldersMatchTheSleuthKit) {
    if (!ngitest::ntfs::HaveTool("fls")) GTEST_SKIP() << "no Sleuth Kit";
    const fs::path file = ImageFile({"ntfs-4k", ngitest::ntfs::SourceDir() / "fixtures/ntfs/ntfs-4k.img.gz"});
    ASSERT_FALSE(file.empty());
    auto under = [](const std::string& path, const std::string& folder) {
        return path == folder || path.rfind(folder + "/", 0) == 0;
    };
    auto included = [&](const std::string& dir) {
        return (under(dir, "deep") || under(dir, "links")) && !under(dir, "deep/l1/l2/l3");
    };
    const TFlsContent oracle = RunFls(file);
    ASSERT_TRUE(oracle.Read);
    std::set<std::string> dirs{""};
    std::set<TFileRow> files;
    for (const std::string& d : oracle.Dirs)
        if (included(d)) dirs.insert(d);
    for (const TFileRow& f : oracle.Files) {
        const std::string& path = std::get<0>(f);
        const size_t slash = path.rfind('/');
        if (slash != std::string::npos && included(path.substr(0, slash))) files.insert(f);
    }

    ngitest::CTempRegistry registry(kSkipReparse);
    ngitest::CTempDir out;
    indexer::CIncExcNode root(std::vector<std::u16string>{u"deep", u"links"},
                              std::vector<std::u16string>{u"deep\\l1\\l2\\l3"});
    TIndexContent ours;
    try {
        ours = ReadIndex(RunPipeline(file, root, out));
    } catch (const CExc& e) {
        FAIL() << U8(e.GetDescription());
    }
    EXPECT_EQ(ours.Dirs, dirs) << "only in the index:\n"
                               << Missing(ours.Dirs, dirs, [](auto& x) { return x; }) << "only in the listing:\n"
                               << Missing(dirs, ours.Dirs, [](auto& x) { return x; });
    EXPECT_EQ(ours.Files, files) << "only in the index:\n"
                                 << Missing(ours.Files, files, ShowRow) << "only in the listing:\n"
                                 << Missing(files, ours.Files, ShowRow);
    EXPECT_TRUE(ours.Dirs.count("deep/l1/l2"));
    EXPECT_FALSE(ours.Dirs.count("deep/l1/l2/l3"));
}

}  // namespace
