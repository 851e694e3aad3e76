// Each NTFS image (the committed fixtures and the shared samples, where
// present) indexed twice by the built program: by the directory walk over
// its ntfs-3g mount (links read from the mount's Windows reparse data, the
// extended attribute system.ntfs_reparse_data) and by the NTFS pipeline
// from the image. Apart from what the two readers give differently by
// design (below), both indexes hold the same rows; the walk also agrees
// with the Sleuth Kit's listing of the image. Skips where an image cannot
// be mounted (no FUSE, no ntfs-3g, a volume ntfs-3g refuses).

#include <gtest/gtest.h>

#include <sstream>

#include "app/run_test_env.h"
#include "ntfs/ntfs_test_util.h"
#include "walk/walk_test_env.h"

namespace {

using namespace runtest;
using Lines = std::set<std::string>;

const std::string kGuidC = "0000000c-0000-0000-0000-00000000000c";
const std::string kShadow = "/dev/mapper/ngi-test-shadow-c";

Lines Decode(const fs::path& file) { return walktest::DecodeIndex(util::Utf8ToUtf16(file.string())); }

Lines Minus(const Lines& a, const Lines& b) {
    Lines out;
    for (const auto& line : a)
        if (!b.count(line)) out.insert(line);
    return out;
}

std::vector<fs::path> AllImages() {
    std::vector<fs::path> images;
    for (const fs::path& folder : {ngitest::ntfs::SourceDir() / "fixtures" / "ntfs", ngitest::ntfs::SamplesDir()}) {
        std::error_code ec;
        for (const auto& e : fs::directory_iterator(folder, ec))
            if (e.path().extension() == ".gz") images.push_back(e.path());
    }
    std::sort(images.begin(), images.end());
    return images;
}

// The volume's own files, which an ntfs-3g mount does not show, and the
// Sleuth Kit's folder of orphans, which is no folder of the volume.
bool IsMetafile(const std::string& path) {
    static const std::set<std::string> names = {"$MFT",  "$MFTMirr", "$LogFile", "$Volume", "$AttrDef",
                                                "$Bitmap", "$Boot",  "$BadClus", "$Secure", "$UpCase",
                                                "$Extend", "$OrphanFiles"};
    return names.count(path.substr(0, path.find('/')));
}

class WalkOverNtfs3g : public ::testing::TestWithParam<fs::path> {
protected:
    void SetUp() override {
        ASSERT_TRUE(ngitest::ntfs::Decompress(GetParam(), Image()));
        fs::create_directories(Mount());
        if (std::system(("ntfs-3g -o ro '" + Image().string() + "' '" + Mount().string() + "' 2>/dev/null").c_str()) !=
            0)
            GTEST_SKIP() << "the image cannot be mounted with ntfs-3g here";
        m_Mounted = true;
        m_Run.SetVolumes({{"C:", kGuidC, Mount(), {}}}, {{kShadow, Image(), Mount()}});
        m_Run.Filters({"C:\\"}, {});
    }
    void TearDown() override {
        if (m_Mounted) std::system(("fusermount -u '" + Mount().string() + "' 2>/dev/null || umount '" +
                                    Mount().string() + "'").c_str());
    }
    fs::path Image() const { return m_Run.Root() / "c.img"; }
    fs::path Mount() const { return m_Run.Root() / "mnt"; }

    CInstance m_Run;
    bool m_Mounted = false;
};

// Indexes the volume twice with the filters set: by the walk of the mount
// (no shadow), then by the pipeline (the image as the shadow).
struct TTwoIndexes {
    Lines walked, parsed;
};

TTwoIndexes IndexBothWays(CInstance& run) {
    TTwoIndexes both;
    fs::remove(run.Bin() / "NorvaGuestIndexer.SnapshotMapping.xml");
    EXPECT_EQ(run.Run(), 0) << run.Output();
    EXPECT_NE(run.LogText().find("Execute FindFirst/FindNext algorithm!"), std::string::npos);
    both.walked = Decode(run.Out() / "volume.c_.ifd");
    run.Mapping({{VolumeName(kGuidC), kShadow}});
    EXPECT_EQ(run.Run(), 0) << run.Output();
    EXPECT_NE(run.LogText().find("Execute NTFS parsing algorithm"), std::string::npos);
    both.parsed = Decode(run.Out() / "volume.c_.ifd");
    return both;
}

// The rows of the two indexes compared, apart from the differences by
// design; "" when they agree, else what only one of them holds.
std::string Differences(const TTwoIndexes& both, size_t* links = nullptr) {
    // The walk's link rows give the target with its volume ("C:\jtarget"),
    // the pipeline's from the volume's root ("jtarget"). With that taken
    // off, the rows are the same.
    Lines walkedAsParsed;
    size_t count = 0;
    for (std::string line : both.walked) {
        if (line.starts_with("R ")) {
            const size_t target = line.rfind('|') + 1;
            EXPECT_EQ(line.compare(target, 3, "C:\\"), 0) << line;
            line.erase(target, 3);
            ++count;
        }
        walkedAsParsed.insert(line);
    }
    if (links) *links = count;
    // The fixtures' "reparse" folder holds files with reparse tags that are
    // no links: ntfs-3g shows them as links it cannot follow, with no data
    // size, so the walk has their rows without it. And the pipeline's check
    // of links stops at the first relative one (j_rel, s_rel), so the links
    // after it (file_link, s_abs) have rows only in the walk.
    auto reparseFolder = [](const std::string& line) {
        if (line.starts_with("F reparse\\tag_")) return line.substr(0, line.rfind(' '));
        return line;
    };
    const Lines mayBeOnlyWalked = {"F reparse\\file_link", "R reparse|s_abs|reparse\\target"};
    Lines walkedCompared, parsedCompared;
    for (const auto& line : walkedAsParsed) walkedCompared.insert(reparseFolder(line));
    for (const auto& line : both.parsed) parsedCompared.insert(reparseFolder(line));
    std::string onlyWalked, onlyParsed;
    for (const auto& line : Minus(walkedCompared, parsedCompared))
        if (!mayBeOnlyWalked.count(line.starts_with("F ") ? line.substr(0, line.rfind(' ')) : line))
            onlyWalked += line + "\n";
    for (const auto& line : Minus(parsedCompared, walkedCompared)) onlyParsed += line + "\n";
    if (onlyWalked.empty() && onlyParsed.empty()) return "";
    return "only in the walk:\n" + onlyWalked + "only in the pipeline:\n" + onlyParsed;
}

TEST_P(WalkOverNtfs3g, TheWalkAndThePipelineIndexTheSameVolumeAlike) {
    const TTwoIndexes both = IndexBothWays(m_Run);
    size_t links = 0;
    EXPECT_EQ(Differences(both, &links), "");
    if (GetParam().filename() == "ntfs-legacy.img.gz") {
        EXPECT_EQ(links, 3u);  // jlink, jlong, slink
    }
}

// The same with filters that include, exclude, and include below an
// exclude, on the images made by the fixture script (which hold the chain
// deep\l1\...\l8 and the folder many). Each case also names rows that
// must be there and rows that must not, so that a filter ignored by both
// readers alike cannot pass.
//
// One difference by design: an include below an exclude. The exclude line
// makes the folder excluded and a node of the tree at once; the walk asks
// only whether a folder is excluded, and does not enter it, while the
// pipeline decides every folder from its place on the tree, so it gives
// the folders on the way rows (nodes, without files) and indexes the
// included folder below. Rows below `pipelineOnly` are the pipeline's alone.
TEST_P(WalkOverNtfs3g, FiltersCutBothIndexesAlike) {
    struct TCase {
        std::vector<std::string> include, exclude;
        std::vector<std::string> present, absent;  // in the pipeline's index
        std::string pipelineOnly;
    };
    const std::vector<TCase> cases = {
        {{"C:\\deep", "C:\\many"}, {},
         {"D deep\\l1\\l2", "D many"}, {"D reparse"}, ""},
        {{"C:\\"}, {"C:\\many", "C:\\deep\\l1\\l2"},
         {"D deep\\l1"}, {"D many", "D deep\\l1\\l2"}, ""},
        {{"C:\\", "C:\\deep\\l1\\l2\\l3\\l4"}, {"C:\\deep\\l1"},
         {"D deep\\l1\\l2\\l3\\l4\\l5", "F deep\\l1\\l2\\l3\\l4\\l5\\l6\\l7\\l8\\bottom.txt"},
         {}, "D deep\\l1"},
    };
    Lines unfiltered;
    {
        const Lines all = IndexBothWays(m_Run).parsed;
        if (!all.count("D deep\\l1\\l2\\l3\\l4\\l5")) GTEST_SKIP() << "not an image of the fixture script";
        unfiltered = all;
    }
    for (size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE("filter case " + std::to_string(i));
        const TCase& c = cases[i];
        m_Run.Filters(c.include, c.exclude);
        TTwoIndexes both = IndexBothWays(m_Run);
        if (!c.pipelineOnly.empty()) {
            const std::string folder = c.pipelineOnly.substr(2);
            auto below = [&](const std::string& row) {
                const std::string path = row.substr(2);
                return path == folder || path.starts_with(folder + "\\");
            };
            Lines walkedBelow, parsedRest;
            for (const auto& row : both.walked)
                if (below(row)) walkedBelow.insert(row);
            for (const auto& row : both.parsed)
                if (!below(row)) parsedRest.insert(row);
            EXPECT_EQ(walkedBelow, Lines{}) << "the walk entered an excluded folder";
            const TTwoIndexes rest{both.walked, parsedRest};
            EXPECT_EQ(Differences(rest), "");
        } else {
            EXPECT_EQ(Differences(both), "");
        }
        EXPECT_LT(both.parsed.size(), unfiltered.size());
        auto has = [&](const std::string& row) {
            for (const auto& line : both.parsed)
                if (line == row || line.starts_with(row + " ")) return true;
            return false;
        };
        for (const auto& row : c.present) EXPECT_TRUE(has(row)) << row;
        for (const auto& row : c.absent) EXPECT_FALSE(has(row)) << row;
    }
}

// The walk's rows against the Sleuth Kit's listing of the image: every
// directory and file that fls lists (less the metafiles, which the mount
// hides, and what lies below a link, which the walk does not enter).
TEST_P(WalkOverNtfs3g, TheWalkListsWhatTheSleuthKitLists) {
    if (!ngitest::ntfs::HaveTool("fls")) GTEST_SKIP() << "no fls";
    ASSERT_EQ(m_Run.Run(), 0) << m_Run.Output();
    const Lines walked = Decode(m_Run.Out() / "volume.c_.ifd");
    std::istringstream listing(ngitest::ntfs::RunCommand("fls -r -p -u '" + Image().string() + "'"));
    Lines fromFls = {"D "};
    for (std::string line; std::getline(listing, line);) {
        // "d/d 64-144-2:\tpath" or "r/r 70-128-2:\tpath"; ":$I30"-like streams have a ':'.
        const size_t tab = line.find('\t');
        if (tab == std::string::npos || line.size() < 3) continue;
        std::string path = line.substr(tab + 1);
        if (path.find(':') != std::string::npos || IsMetafile(path)) continue;
        for (auto& c : path)
            if (c == '/') c = '\\';
        fromFls.insert((line[0] == 'd' ? "D " : "F ") + path);
    }
    if (fromFls.size() == 1) GTEST_SKIP() << "fls cannot read this volume (the fast oracle compares it with fsntfsinfo)";
    Lines walkedPaths;
    for (const auto& row : walked) {
        if (row.starts_with("R ")) continue;
        std::string path = row;
        if (row.starts_with("F ")) path.erase(path.rfind(' '));  // the size
        walkedPaths.insert(path);
    }
    EXPECT_EQ(walkedPaths, fromFls);
}

INSTANTIATE_TEST_SUITE_P(Images, WalkOverNtfs3g, ::testing::ValuesIn(AllImages()),
                         [](const ::testing::TestParamInfo<fs::path>& info) {
                             std::string name = info.param.stem().stem().string();
                             for (char& c : name)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return name;
                         });

}  // namespace
