// The legacy run's file and volume filters, and the ReFS walk over a folder
// volume, read back through the index reader.

#include "legacy/legacy_indexers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <list>

#include "base/case.h"
#include "base/utf.h"
#include "store/seq_table.h"
#include "testing/temp_dir.h"
#include "walk/walk_test_env.h"

namespace {

using indexer::legacy::CLegacyFilter;
using indexer::legacy::CLegacyTables;

std::u16string U16(const std::string& s) { return util::Utf8ToUtf16(s); }

TEST(LegacyFilter, FilesPassByCharacterPrefix) {
    const CLegacyFilter filter({u"c:\\users\\", u"c:\\data"}, {u"c:\\users\\bob\\", u"c:\\data\\tmp"});
    const std::pair<const char16_t*, bool> cases[] = {
        {u"C:\\Users\\alice\\a.txt", true},   // lower-cased before comparing
        {u"c:\\users\\bob\\b.txt", false},
        {u"c:\\users\\bobby\\b.txt", true},   // "bob\" is not a prefix of "bobby\"
        {u"c:\\database\\x.db", true},        // "c:\data" is a prefix by characters
        {u"c:\\data\\tmpfile", false},        // and so is "c:\data\tmp"
        {u"d:\\users\\a.txt", false},
    };
    for (const auto& [path, passes] : cases)
        EXPECT_EQ(filter.IsFileAllowedByFilter(path), passes) << util::Utf16ToUtf8(path);
}

TEST(LegacyFilter, VolumesPassByTheirMountPoint) {
    const CLegacyFilter filter({u"c:\\users\\", u"d:\\", u"e"}, {u"d:\\", u"f:\\data\\"});
    const std::pair<const char16_t*, bool> cases[] = {
        {u"C:\\", true},   // an include line below the volume's root
        {u"D:\\", false},  // an exclude line that is the volume itself
        {u"E:\\", false},  // an include line shorter than the mount point
        {u"F:\\", false},  // not included
    };
    for (const auto& [mountPoint, passes] : cases)
        EXPECT_EQ(filter.IsVolumeAllowedByFilter(mountPoint), passes) << util::Utf16ToUtf8(mountPoint);
}

// The three tables joined into an index file and decoded.
std::set<std::string> Decode(CLegacyTables& tables, const ngitest::CTempDir& out) {
    std::list<std::u16string> combine;
    idxdata::AddToCombine(combine, tables.Files());
    idxdata::AddToCombine(combine, tables.Dirs());
    idxdata::AddToCombine(combine, tables.Owners());
    const std::u16string file = out.Path(u"volume.T.ifd");
    idxdata::CombineTables(combine, file);
    return walktest::DecodeIndex(file);
}

TEST(LegacyWalk, EveryDirectoryButDotFoldersAndOnlyFilteredFiles) {
    ngitest::CTempDir volume, out;
    volume.WriteFile("a/keep.txt", "12345");
    volume.WriteFile("a/skip/no.txt", "x");
    volume.WriteFile("b/c/deep.txt", "xy");
    volume.WriteFile(".git/config", "x");
    volume.WriteFile(".profile", "xyz");  // a file whose name begins with a dot is a file
    std::filesystem::create_directories(volume.Native() / "empty");
    std::filesystem::create_directory_symlink(volume.Native() / "a", volume.Native() / "linked");

    const std::string root = volume.Native().string();
    const std::u16string lower = util::AsciiLower(U16(root));
    const CLegacyFilter filter({lower + u"\\"}, {lower + u"\\a\\skip\\"});
    CLegacyTables tables(out.Path());
    indexer::legacy::IndexVolumeByWalk(tables, U16(root), filter);
    EXPECT_EQ(Decode(tables, out),
              (std::set<std::string>{"D ", "D a", "D a\\skip", "D b", "D b\\c", "D empty", "D linked",
                                     "F a\\keep.txt 5", "F b\\c\\deep.txt 2", "F .profile 3"}));
    // The owner table holds nobody alone.
    indexer::CIndexBaseReader reader;
    reader.Open(out.Path(u"volume.T.ifd"));
    reader.PrepareIdIndexes();
    ASSERT_EQ(reader.GetOwnerCount(), 1u);
    rec::COwnerRecord owner;
    reader.GetOwner(0, owner);
    EXPECT_EQ(owner.m_Sid + u"|" + owner.m_Second + u"|" + owner.m_Third, u"S-1-0-0|Nobody|");
}

TEST(LegacyTables, DiscardLeavesNoTemporaryFile) {
    ngitest::CTempDir out;
    {
        CLegacyTables tables(out.Path());
        tables.Discard();
    }
    EXPECT_TRUE(std::filesystem::is_empty(out.Native()));
}

}  // namespace
