// Each NTFS image (the committed fixtures and the shared samples, where
// present) indexed twice by the built program: by the directory walk over
// its ntfs-3g mount (links read from the mount's Windows reparse data, the
// extended attribute system.ntfs_reparse_data) and by the NTFS pipeline
// from the image. Apart from what the two readers give differently by
// design (below), both indexes hold the same rows. Skips where an image
// cannot be mounted (no FUSE, no ntfs-3g, a volume ntfs-3g refuses).
#include "app/run_test_env.h"
#include "ntfs/ntfs_test_util.h"

namespace {

using namespace runtest;

const std::string kShadow = "/dev/mapper/ngi-test-shadow-c";

Lines Minus(const Lines& a, const Lines& b) {
    Lines out;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::inserter(out, out.end()));
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

// The volume indexed by the walk of the mount (no shadow), then by the
// pipeline (the image as the shadow), with the filters set.
struct TTwoIndexes {
    Lines walked, parsed;
};

TTwoIndexes IndexBothWays(CInstance& run) {
    TTwoIndexes both;
    fs::remove(run.Bin() / "NorvaGuestIndexer.SnapshotMapping.xml");
    EXPECT_EQ(run.Run(), 0) << run.Output();
    EXPECT_NE(run.LogText().find("Execute FindFirst/FindNext algorithm!"), std::string::npos);
    both.walked = Rows(run.Out() / "volume.c_.ifd");
    run.Mapping({{VolumeName(kGuidC), kShadow}});
    EXPECT_EQ(run.Run(), 0) << run.Output();
    EXPECT_NE(run.LogText().find("Execute NTFS parsing algorithm"), std::string::npos);
    both.parsed = Rows(run.Out() / "volume.c_.ifd");
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

// Unfiltered, then, on the images made by the fixture script (which hold the
// chain deep\l1\...\l8 and the folder many), with filters that include,
// exclude, and include below an exclude. Each filter case also names rows
// that must be there and rows that must not, so that a filter ignored by
// both readers alike cannot pass.
//
// One difference by design: an include below an exclude. The exclude line
// makes the folder excluded and a node of the tree at once; the walk asks
// only whether a folder is excluded, and does not enter it, while the
// pipeline decides every folder from its place on the tree, so it gives
// the folders on the way rows (nodes, without files) and indexes the
// included folder below. Rows below `pipelineOnly` are the pipeline's alone.
TEST_P(WalkOverNtfs3g, TheWalkAndThePipelineIndexTheSameVolumeAlike) {
    const TTwoIndexes unfiltered = IndexBothWays(m_Run);
    size_t links = 0;
    EXPECT_EQ(Differences(unfiltered, &links), "");
    if (GetParam().filename() == "ntfs-legacy.img.gz") {
        EXPECT_EQ(links, 3u);  // jlink, jlong, slink
    }
    if (!unfiltered.parsed.count("D deep\\l1\\l2\\l3\\l4\\l5")) return;  // not an image of the fixture script

    struct TCase {
        std::vector<std::string> include, exclude;
        std::vector<std::string> present, absent;  // in the pipeline's index
        std::string pipelineOnly;
    };
    const std::vector<TCase> cases = {
        {{"C:\\deep", "C:\\many"}, {}, {"D deep\\l1\\l2", "D many"}, {"D reparse"}, ""},
        {{"C:\\"}, {"C:\\many", "C:\\deep\\l1\\l2"}, {"D deep\\l1"}, {"D many", "D deep\\l1\\l2"}, ""},
        {{"C:\\", "C:\\deep\\l1\\l2\\l3\\l4"}, {"C:\\deep\\l1"},
         {"D deep\\l1\\l2\\l3\\l4\\l5", "F deep\\l1\\l2\\l3\\l4\\l5\\l6\\l7\\l8\\bottom.txt"}, {}, "deep\\l1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.include.back());
        m_Run.Filters(c.include, c.exclude);
        const TTwoIndexes both = IndexBothWays(m_Run);
        auto below = [&](const std::string& row) {
            const std::string path = row.substr(2), folder = c.pipelineOnly;
            return !folder.empty() && (path == folder || path.starts_with(folder + "\\"));
        };
        TTwoIndexes compared{both.walked, {}};
        for (const auto& row : both.walked) EXPECT_FALSE(below(row)) << "the walk entered an excluded folder";
        for (const auto& row : both.parsed)
            if (!below(row)) compared.parsed.insert(row);
        EXPECT_EQ(Differences(compared), "");
        EXPECT_LT(both.parsed.size(), unfiltered.parsed.size());
        auto has = [&](const std::string& row) {
            return std::any_of(both.parsed.begin(), both.parsed.end(),
                               [&](const std::string& line) { return line == row || line.starts_with(row + " "); });
        };
        for (const auto& row : c.present) EXPECT_TRUE(has(row)) << row;
        for (const auto& row : c.absent) EXPECT_FALSE(has(row)) << row;
    }
}

INSTANTIATE_TEST_SUITE_P(Images, WalkOverNtfs3g, ::testing::ValuesIn(AllImages()),
                         [](const ::testing::TestParamInfo<fs::path>& info) {
                             std::string name = info.param.stem().stem().string();
                             for (char& c : name)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return name;
                         });

}  // namespace
