// The directory walk over real folders and links: rows checked against the
// tree on disk, the filter, the nesting limit, every kind of link, the cap
// on logged skips, the byte form of an empty volume, and the failures.
#include "walk/ff_indexer.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "diag/settings.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "store/store_test_util.h"
#include "testing/log_capture.h"
#include "testing/temp_dir.h"
#include "testing/temp_registry.h"
#include "walk/walk_test_env.h"

namespace fs = std::filesystem;
using namespace walktest;
using indexer::CFfIndexer;
using indexer::CIncExcNode;
using indexer::CIndexBase;
using Lines = std::set<std::string>;

namespace {

std::string SettingsText(std::string_view values) {
    return "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\r\n" + std::string(values);
}

class FfIndexerTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(C());
        fs::create_directories(D());
        fs::create_directories(Out());
    }

    fs::path C() const { return m_Tmp.Native() / "c"; }
    fs::path D() const { return m_Tmp.Native() / "d"; }
    fs::path Out() const { return m_Tmp.Native() / "out"; }
    std::u16string IndexFile() const { return (Out() / "volume.C_.ifd").u16string(); }

    void UseVolumes(std::vector<platform::TVolumeTableEntry> extra = {}) {
        std::vector<platform::TVolumeTableEntry> volumes = {Volume(u"C:", kVolC, C()),
                                                            Volume(u"D:", kVolD, D())};
        for (auto& v : extra) volumes.push_back(std::move(v));
        m_Volumes.reset();
        m_Volumes = std::make_unique<CTestVolumes>(std::move(volumes));
    }

    // One walk of C: into a fresh index file, decoded.
    Lines Walk(const CIncExcNode& root, std::u16string realPath = DeviceName(kVolC)) {
        if (!m_Volumes) UseVolumes();
        {
            CIndexBase base;
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
        for (auto& c : rel)
            if (c == '/') c = '\\';
        if (it->is_directory()) lines.insert("D " + rel);
        else lines.insert("F " + rel + " " + std::to_string(it->file_size()));
    }
    return lines;
}

TEST_F(FfIndexerTest, WholeTreeMatchesTheDiskInPreOrder) {
    WriteFile(C() / "a" / "b" / "f1", 10);
    WriteFile(C() / "a" / "f2", 3);
    WriteFile(C() / "top.txt", 0);
    WriteFile(C() / "\xC3\xBC-\xE5\x90\x8D\xE5\x89\x8D" / "x", 1);  // "ü-名前"
    WriteFile(C() / std::string(200, 'n') / std::string(200, 'f'), 7);
    fs::create_directories(C() / "empty");
    const Lines lines = Walk(m_All);
    EXPECT_EQ(lines, LinesOfTree(C()));

    // Pre-order ids: the root is row 0 and its own parent; every other
    // directory comes after its parent.
    indexer::CIndexBaseReader reader;
    reader.Open(IndexFile());
    reader.PrepareIdIndexes();
    rec::CDirRecord root, dir;
    reader.GetDir(0, root);
    EXPECT_EQ(root.m_Name, u"");
    EXPECT_EQ(root.m_ParentId, 0u);
    for (uint64_t id = 1; id < reader.GetDirCount(); ++id) {
        reader.GetDir(id, dir);
        EXPECT_LT(dir.m_ParentId, id) << U8(dir.m_Name);
        if (dir.m_Name == u"a") {
            EXPECT_EQ(dir.m_ParentId, 0u);
        }
    }
    // Subfolders are walked when met: "a\b" directly follows "a".
    EXPECT_EQ(reader.GetDirPath(1), u"a");
    EXPECT_EQ(reader.GetDirPath(2), u"a\\b");
    EXPECT_TRUE(m_Log.Contains(u"Execute FindFirst/FindNext algorithm!"));
    EXPECT_TRUE(m_Log.Contains(std::u16string(53, u'+')));
}

TEST_F(FfIndexerTest, FileRowsCarryOwnerZeroAndTheWriteTimeInFileTimeTicks) {
    WriteFile(C() / "f", 5);
    const struct timespec times[2] = {{0, UTIME_OMIT}, {1700000000, 123456789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (C() / "f").c_str(), times, 0), 0);
    Walk(m_All);
    indexer::CIndexBaseReader reader;
    reader.Open(IndexFile());
    reader.PrepareIdIndexes();
    int files = 0;
    reader.ForEachFile([&](uint64_t, uint64_t, const rec::CFileRecord& f) {
        ++files;
        EXPECT_EQ(f.m_Owner, 0u);
        EXPECT_EQ(f.m_ParentId, 0u);
        EXPECT_EQ(f.m_ModificationTime, (1700000000ULL + 11644473600ULL) * 10000000ULL + 1234567);
    });
    EXPECT_EQ(files, 1);
}

TEST_F(FfIndexerTest, FilterTakesTwoFoldersLessAnExcludedSubfolder) {
    for (const char* f : {"a/x/f", "a/y/f", "a/f", "b/f", "b/z/f", "c/f", "rootfile"})
        WriteFile(C() / f, 1);
    const CIncExcNode root({u"a", u"B"}, {u"a\\X"});
    EXPECT_EQ(Walk(root), (Lines{"D ", "D a", "D a\\y", "D b", "D b\\z", "F a\\f 1", "F a\\y\\f 1",
                                 "F b\\f 1", "F b\\z\\f 1"}));
    EXPECT_TRUE(m_Log.Contains(u"Directory 'C:\\a\\x' is excluded!"));
}

TEST_F(FfIndexerTest, NestingLimitCutsTheWalkBelowNLevels) {
    WriteFile(C() / "a" / "b" / "c" / "d" / "f", 1);
    WriteFile(C() / "a" / "b" / "g", 1);
    WriteFile(C() / "a" / "b" / "c" / "h", 1);
    m_Registry.Set(SettingsText("\"IndexerMaxNestedFolders\"=dword:00000002\r\n"));
    // The root and two levels below it are read; "a\b\c" has its row only.
    EXPECT_EQ(Walk(m_All), (Lines{"D ", "D a", "D a\\b", "D a\\b\\c", "F a\\b\\g 1"}));
    EXPECT_TRUE(m_Log.Contains(u"Maximum nested path set [2]."));
    EXPECT_TRUE(m_Log.Contains(u"Cannot index path [" + DeviceName(kVolC) + u"\\a\\b\\c]. Path too long"));

    // 0 is no limit at all.
    m_Registry.Set(SettingsText("\"IndexerMaxNestedFolders\"=dword:00000000\r\n"));
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
    Link((C() / "missing").string(), C() / "links" / "dangling");
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
    EXPECT_TRUE(m_Log.Contains(u"Symlink found: [C:\\links\\to_dir]. Substitute: [\\??\\C:\\target]."));
    EXPECT_TRUE(m_Log.Contains(u"Reparse point [C:\\links\\to_other_volume] added as empty directory. "
                               u"Substitute [\\??\\D:\\other]."));
    EXPECT_TRUE(m_Log.Contains(u"Reparse point skipped: [C:\\links\\relative]. Substitute: [..\\target]."));
    EXPECT_TRUE(m_Log.Contains(u"Was added as an empty directory."));
    EXPECT_TRUE(m_Log.Contains(u"Was added as an empty file."));
    // A link to nothing is followed, finds nothing and is dropped quietly.
    EXPECT_TRUE(m_Log.Contains(u"Symlink found: [C:\\links\\dangling]."));
    EXPECT_FALSE(m_Log.Contains(u"Getting attributes"));
    EXPECT_EQ(m_Skipped, 2u);
}

TEST_F(FfIndexerTest, SkipReparsePointsSettingListsEveryLinkAsAPlainRow) {
    WriteFile(C() / "target" / "inner", 4);
    Link((C() / "target").string(), C() / "to_dir");
    Link((C() / "target" / "inner").string(), C() / "to_file");
    Link((D()).string(), C() / "to_d");
    m_Registry.Set(SettingsText("\"IndexerSkipReparsePoints\"=dword:00000001\r\n"));
    // No filter decides about skipped links: even under a pure node they stay.
    const CIncExcNode root({u"target"}, {});
    EXPECT_EQ(Walk(root), (Lines{"D ", "D target", "F target\\inner 4", "D to_dir", "F to_file 0",
                                 "D to_d"}));
    EXPECT_EQ(m_Skipped, 3u);
}

TEST_F(FfIndexerTest, OnlyTheFirst32SkippedLinksAreLogged) {
    for (int i = 0; i < 33; ++i) Link("rel" + std::to_string(i), C() / ("l" + std::to_string(100 + i)));
    const Lines lines = Walk(m_All);
    EXPECT_EQ(lines.size(), 34u);
    int logged = 0, added = 0;
    for (const auto& line : m_Log.Lines()) {
        if (line.text.find(u"Reparse point skipped:") != std::u16string::npos) ++logged;
        if (line.text.find(u"Was added as an empty file.") != std::u16string::npos) ++added;
    }
    EXPECT_EQ(logged, 32);
    EXPECT_EQ(added, 32);
    EXPECT_EQ(m_Skipped, 33u);
    EXPECT_FALSE(m_Log.Contains(u"[C:\\l132]"));
}

TEST_F(FfIndexerTest, ALinkToAnExcludedFolderAddsNoRow) {
    WriteFile(C() / "a" / "x" / "f", 1);
    WriteFile(C() / "a" / "f", 1);
    Link((C() / "a" / "x").string(), C() / "a" / "to_x");
    Link((C() / "a" / "f").string(), C() / "outside_file");
    // "to_x" is excluded by name; the file link at the root lies outside
    // every include, while a skipped link at the same place would be listed.
    const CIncExcNode root({u"a"}, {u"a\\x", u"a\\to_x"});
    EXPECT_EQ(Walk(root), (Lines{"D ", "D a", "F a\\f 1"}));
}

TEST_F(FfIndexerTest, AFolderWhereAnotherVolumeIsMountedIsAnEmptyDirectory) {
    WriteFile(C() / "mnt" / "data" / "inside", 1);
    UseVolumes({Volume(u"C:\\mnt\\data", u"{0000000e-0000-0000-0000-00000000000e}", C() / "mnt" / "data")});
    EXPECT_EQ(Walk(m_All), (Lines{"D ", "D mnt", "D mnt\\data"}));
    EXPECT_TRUE(m_Log.Contains(u"Reparse point [C:\\mnt\\data] added as empty directory. Substitute "
                               u"[\\??\\Volume{0000000e-0000-0000-0000-00000000000e}\\]."));
}

TEST_F(FfIndexerTest, ALinkMissingFromTheLiveVolumeIsNotWalkedThrough) {
    // The tree is read from a shadow copy; reparse data from the live volume,
    // where the link no longer is. The search would follow the link back to
    // its ancestor again and again; it is listed instead.
    const fs::path shadow = m_Tmp.Native() / "shadow";
    WriteFile(shadow / "f", 1);
    Link(shadow.string(), shadow / "up");
    EXPECT_EQ(Walk(m_All, shadow.u16string()), (Lines{"D ", "F f 1", "D up"}));
    EXPECT_TRUE(m_Log.Contains(u"Reparse point skipped: [C:\\up]. Substitute: []."));
}

TEST_F(FfIndexerTest, AnEmptyVolumeIsThe208ByteFile) {
    Walk(m_All);
    EXPECT_EQ(store_testing::ReadAll(fs::path(IndexFile())), store_testing::EmptyIndexBytes());
}

TEST_F(FfIndexerTest, ARootThatCannotBeListedFailsNamingIt) {
    WriteFile(m_Tmp.Native() / "image.img", 4096);
    const std::vector<std::pair<std::u16string, std::u16string>> cases = {
        {(m_Tmp.Native() / "no_such_folder").u16string(), u"no_such_folder"},
        {(m_Tmp.Native() / "image.img").u16string(), u"image.img"},
    };
    for (const auto& [path, name] : cases) {
        SCOPED_TRACE(U8(path));
        try {
            Walk(m_All, path);
            ADD_FAILURE() << "no exception";
        } catch (const CExc& e) {
            const auto& m = e.GetMessages();
            ASSERT_GE(m.size(), 3u);
            EXPECT_EQ(m[0], u"Failed to execute FindFirst/FindNext algorithm for volume [" + path + u"]");
            EXPECT_EQ(m[1], u"Failed to index path [" + path + u"]");
            EXPECT_EQ(m[2], u"Cannot list the root folder [" + path + u"] of the tree to index.");
        }
    }
}

TEST(FileFinder, FindNextWithoutASearchThrows) {
    indexer::CFileFinder finder;
    platform::TFindData data;
    try {
        finder.FindNext(data);
        ADD_FAILURE();
    } catch (const CExc& e) {
        EXPECT_EQ(e.GetDescription(),
                  u"CFileFinder::FindNext fail. Previous FindFirstFile call was unsuccessful.");
        EXPECT_EQ(e.GetCode(), kHrFail);
    }
    ngitest::CTempDir dir;
    EXPECT_FALSE(finder.FindFirst(dir.Path(u"missing\\*"), data));
    EXPECT_EQ(finder.GetFirstError(), platform::kErrPathNotFound);
}

TEST(RecursionCounter, CountsLevelsAndBreaksAboveTheLimit) {
    auto counter = std::make_shared<indexer::CRecursionCounter>(1, u"Path too long");
    {
        indexer::CRecursionGuard g0(counter);
        indexer::CRecursionGuard g1(counter);
        EXPECT_EQ(counter->GetDepth(), 2u);
        try {
            indexer::CRecursionGuard g2(counter);
            ADD_FAILURE();
        } catch (const indexer::CRecursionBreakExc& e) {
            EXPECT_EQ(e.GetDescription(), u"Path too long");
            EXPECT_EQ(e.GetCode(), static_cast<int32_t>(0x80004004));
        }
        EXPECT_EQ(counter->GetDepth(), 2u);
    }
    EXPECT_EQ(counter->GetDepth(), 0u);
    indexer::CRecursionGuard none(nullptr);  // no counter, no limit
}

}  // namespace
