// The directory walk over real folders and links: rows checked against the
// tree on disk, the filter, the nesting limit, every kind of link and how
// each is classified, the cap on logged skips, and the failures.
#include "walk/ff_indexer.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "testing/log_capture.h"
#include "testing/temp_dir.h"
#include "testing/temp_registry.h"
#include "walk/reparse_processor.h"
#include "walk/walk_test_env.h"

namespace fs = std::filesystem;
using namespace walktest;
using indexer::CFfIndexer;
using indexer::CIncExcNode;
using Lines = std::set<std::string>;

namespace {

class FfIndexerTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (const auto& folder : {C(), D(), Out()}) fs::create_directories(folder);
    }

    fs::path C() const { return m_Tmp.Native() / "c"; }
    fs::path D() const { return m_Tmp.Native() / "d"; }
    fs::path Out() const { return m_Tmp.Native() / "out"; }
    std::u16string IndexFile() const { return (Out() / "volume.C_.ifd").u16string(); }

    void UseVolumes(std::vector<platform::TVolumeTableEntry> extra = {}) {
        extra.push_back(Volume(u"C:", kVolC, C()));
        extra.push_back(Volume(u"D:", kVolD, D()));
        m_Volumes.reset();
        m_Volumes = std::make_unique<CTestVolumes>(std::move(extra));
    }

    void Settings(const std::string& values) {
        m_Registry.Set("[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\r\n" + values + "\r\n");
    }

    // One walk of C: into a fresh index file, decoded.
    Lines Walk(const CIncExcNode& root, std::u16string realPath = DeviceName(kVolC)) {
        if (!m_Volumes) UseVolumes();
        {
            indexer::CIndexBase base;
            base.Open(Out().u16string(), false, u"volume.C_.ifd");
            base.AddOwner(u"S-1-0-0", u"", u"", nullptr);
            CFfIndexer indexer;
            indexer.IndexVolumeFF(u"C:", realPath, &root, &base);
            m_Skipped = indexer.GetSkippedReparseCount();
            base.Close();
        }
        return DecodeIndex(IndexFile());
    }

    void Link(const std::string& target, const fs::path& at) {
        fs::create_directories(at.parent_path());
        ASSERT_EQ(::symlink(target.c_str(), at.c_str()), 0) << at;
    }

    ngitest::CTempDir m_Tmp;
    ngitest::CTempRegistry m_Registry;
    ngitest::CLogCapture m_Log;
    std::unique_ptr<CTestVolumes> m_Volumes;
    uint64_t m_Skipped = 0;
    const CIncExcNode m_All{std::vector<std::u16string>{}, std::vector<std::u16string>{}};
};

// The tree as std::filesystem sees it, in the lines of DecodeIndex: an
// oracle independent of the walk.
Lines LinesOfTree(const fs::path& root) {
    Lines lines = {"D "};
    for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
        std::string rel = fs::relative(it->path(), root).string();
        std::replace(rel.begin(), rel.end(), '/', '\\');
        lines.insert(it->is_directory() ? "D " + rel : "F " + rel + " " + std::to_string(it->file_size()));
    }
    return lines;
}

TEST_F(FfIndexerTest, WholeTreeMatchesTheDiskInPreOrder) {
    WriteFile(C() / "a" / "b" / "f1", 10);
    WriteFile(C() / "a" / "f2", 3);
    WriteFile(C() / "top.txt", 0);
    fs::create_directories(C() / "empty");
    const struct timespec times[2] = {{0, UTIME_OMIT}, {1700000000, 123456789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (C() / "top.txt").c_str(), times, 0), 0);
    EXPECT_EQ(Walk(m_All), LinesOfTree(C()));

    // Pre-order ids: the root is row 0 and its own parent; a subfolder is
    // walked when met, so "a\b" directly follows "a".
    indexer::CIndexBaseReader reader;
    reader.Open(IndexFile());
    reader.PrepareIdIndexes();
    rec::CDirRecord dir;
    for (uint64_t id = 0; id < reader.GetDirCount(); ++id) {
        reader.GetDir(id, dir);
        EXPECT_TRUE(dir.m_ParentId < id || dir.m_ParentId == 0) << U8(dir.m_Name);
    }
    EXPECT_EQ(reader.GetDirPath(1), u"a");
    EXPECT_EQ(reader.GetDirPath(2), u"a\\b");
    // File rows: owner 0, the write time in FILETIME ticks.
    reader.ForEachFile([&](uint64_t, uint64_t, const rec::CFileRecord& f) {
        EXPECT_EQ(f.m_Owner, 0u);
        if (f.m_Name == u"top.txt") {
            EXPECT_EQ(f.m_ModificationTime, (1700000000ULL + 11644473600ULL) * 10000000ULL + 1234567);
        }
    });
}

TEST_F(FfIndexerTest, FilterTakesTwoFoldersLessAnExcludedSubfolder) {
    for (const char* f : {"a/x/f", "a/y/f", "a/f", "b/f", "b/z/f", "c/f", "rootfile"}) WriteFile(C() / f, 1);
    // A link to an excluded folder is excluded by its own name; a file link
    // at the root lies outside every include.
    Link((C() / "a" / "x").string(), C() / "a" / "to_x");
    Link((C() / "a" / "f").string(), C() / "outside_file");
    const CIncExcNode root({u"a", u"B"}, {u"a\\X", u"a\\to_x"});
    EXPECT_EQ(Walk(root), (Lines{"D ", "D a", "D a\\y", "D b", "D b\\z", "F a\\f 1", "F a\\y\\f 1", "F b\\f 1",
                                 "F b\\z\\f 1"}));
}

TEST_F(FfIndexerTest, NestingLimitCutsTheWalkBelowNLevels) {
    for (const char* f : {"a/b/c/d/f", "a/b/g", "a/b/c/h"}) WriteFile(C() / f, 1);
    Settings("\"IndexerMaxNestedFolders\"=dword:00000002");
    // The root and two levels below it are read; "a\b\c" has its row only.
    EXPECT_EQ(Walk(m_All), (Lines{"D ", "D a", "D a\\b", "D a\\b\\c", "F a\\b\\g 1"}));
    EXPECT_TRUE(m_Log.Contains(u"Cannot index path [" + DeviceName(kVolC) + u"\\a\\b\\c]. Path too long"));
    Settings("\"IndexerMaxNestedFolders\"=dword:00000000");  // no limit at all
    EXPECT_EQ(Walk(m_All), LinesOfTree(C()));
}

TEST_F(FfIndexerTest, EachKindOfLinkGivesItsRows) {
    WriteFile(C() / "target" / "inner", 4);
    WriteFile(C() / "file.txt", 6);
    WriteFile(D() / "other" / "f", 1);
    Link((C() / "file.txt").string(), C() / "links" / "to_file");
    Link((C() / "target").string(), C() / "links" / "to_dir");
    Link((D() / "other").string(), C() / "links" / "to_other_volume");
    Link("../target", C() / "links" / "relative");
    Link(C().string(), C() / "links" / "loop");
    Link((C() / "missing").string(), C() / "links" / "dangling");  // followed, finds nothing, dropped
    Link("/nowhere/at/all", C() / "links" / "off_the_table");
    EXPECT_EQ(Walk(m_All),
              (Lines{"D ", "D target", "F target\\inner 4", "F file.txt 6", "D links",
                     // followed: a file row from the link; a directory row and a reparse row
                     "F links\\to_file 0", "D links\\to_dir", "R links|to_dir|C:\\target",
                     "D links\\loop", "R links|loop|C:",
                     // another volume: an empty directory
                     "D links\\to_other_volume",
                     // relative, and off every volume: listed as they are, not followed
                     "D links\\relative", "F links\\off_the_table 0"}));
    EXPECT_EQ(m_Skipped, 2u);
}

TEST_F(FfIndexerTest, SkipReparsePointsSettingListsEveryLinkAsAPlainRow) {
    WriteFile(C() / "target" / "inner", 4);
    Link((C() / "target").string(), C() / "to_dir");
    Link((C() / "target" / "inner").string(), C() / "to_file");
    Link((D()).string(), C() / "to_d");
    Settings("\"IndexerSkipReparsePoints\"=dword:00000001");
    // No filter decides about skipped links: even under a pure node they stay.
    EXPECT_EQ(Walk(CIncExcNode({u"target"}, {})),
              (Lines{"D ", "D target", "F target\\inner 4", "D to_dir", "F to_file 0", "D to_d"}));
    EXPECT_EQ(m_Skipped, 3u);
}

TEST_F(FfIndexerTest, OnlyTheFirst32SkippedLinksAreLogged) {
    for (int i = 0; i < 33; ++i) Link("rel" + std::to_string(i), C() / ("l" + std::to_string(100 + i)));
    EXPECT_EQ(Walk(m_All).size(), 34u);
    EXPECT_EQ(m_Log.Count(u"Reparse point skipped:"), 32u);
    EXPECT_EQ(m_Log.Count(u"Was added as an empty file."), 32u);
    EXPECT_EQ(m_Skipped, 33u);
}

TEST_F(FfIndexerTest, AFolderWhereAnotherVolumeIsMountedIsAnEmptyDirectory) {
    WriteFile(C() / "mnt" / "data" / "inside", 1);
    UseVolumes({Volume(u"C:\\mnt\\data", u"{0000000e-0000-0000-0000-00000000000e}", C() / "mnt" / "data")});
    EXPECT_EQ(Walk(m_All), (Lines{"D ", "D mnt", "D mnt\\data"}));
}

TEST_F(FfIndexerTest, ALinkMissingFromTheLiveVolumeIsNotWalkedThrough) {
    // The tree is read from a shadow copy; reparse data from the live volume,
    // where the link no longer is. The search would follow the link back to
    // its ancestor again and again; it is listed instead.
    const fs::path shadow = m_Tmp.Native() / "shadow";
    WriteFile(shadow / "f", 1);
    Link(shadow.string(), shadow / "up");
    EXPECT_EQ(Walk(m_All, shadow.u16string()), (Lines{"D ", "F f 1", "D up"}));
}

TEST_F(FfIndexerTest, ARootThatCannotBeListedFailsNamingIt) {
    const std::u16string path = (m_Tmp.Native() / "no_such_folder").u16string();
    try {
        Walk(m_All, path);
        ADD_FAILURE() << "no exception";
    } catch (const CExc& e) {
        const auto& m = e.GetMessages();
        EXPECT_NE(std::find(m.begin(), m.end(), u"Cannot list the root folder [" + path + u"] of the tree to index."),
                  m.end());
    }
}

TEST_F(FfIndexerTest, ClassifySymlinkAnswers) {
    UseVolumes();
    const struct {
        std::u16string path, substitute;
        bool skipUnc;
        indexer::EReparseClass expected;
    } cases[] = {
        {u"C:\\l", u"..\\x", true, indexer::ReparseSkipped},
        {u"C:\\l", u"\\??\\UNC\\server\\share", true, indexer::ReparseSkippedUnc},
        {u"C:\\l", u"\\??\\UNC\\server\\share", false, indexer::ReparseSkipped},  // no volume name
        {u"C:\\l", u"\\??\\D:\\x", true, indexer::ReparseOtherVolume},
        {u"C:\\l", u"\\??\\c:\\x", true, indexer::ReparseFollow},  // c: and C: are one volume
        {u"C:\\l", u"\\??\\Q:\\x", true, indexer::ReparseSkipped},
        // A link met again below itself is a loop; elsewhere the same target is none.
        {u"C:\\a\\up", u"\\??\\C:\\a", true, indexer::ReparseFollow},
        {u"C:\\a\\up\\up", u"\\??\\C:\\a", true, indexer::ReparseSkipped},
        {u"C:\\b\\up", u"\\??\\C:\\a", true, indexer::ReparseFollow},
    };
    CFfIndexer indexer;
    indexer.SetLogicalVolumePath(u"C:");
    for (const auto& c : cases) {
        SCOPED_TRACE(U8(c.path + u" -> " + c.substitute));
        indexer.SetSkipUnc(c.skipUnc);
        EXPECT_EQ(indexer.ClassifySymlink({indexer::kReparseTagSymlink, c.path, c.substitute}), c.expected);
    }
}

}  // namespace
