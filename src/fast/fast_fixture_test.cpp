// Owners and reparse points of the fast pipeline on the richest fixture
// volume (made by mkntfs and filled through ntfs-3g): its owners folder has
// one file per owner SID, named by the SID; its reparse folder holds junctions
// and symbolic links of every kind, and files with other tags.
#include <gtest/gtest.h>

#include "fast/fast_test_util.h"
#include "platform/volume_table.h"
#include "testing/log_capture.h"
#include "testing/temp_registry.h"

using namespace ngitest::fast;
using indexer::fast_ntfs_indexer::TProcessorServices;

namespace {

constexpr char kSettings[] = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\n";
constexpr char16_t kVolumeC[] = u"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}\\";

fs::path Image() {
    return ngitest::ntfs::UnpackedImage({"ntfs-4k", ngitest::ntfs::SourceDir() / "fixtures/ntfs/ntfs-4k.img.gz"});
}

class FastFixture : public ::testing::Test {
protected:
    std::string Run(const std::string& settings, TProcessorServices services = {}) {
        ngitest::CTempRegistry registry(std::string(kSettings) + settings);
        ngitest::CTempDir out;
        indexer::CIncExcNode root(std::vector<std::u16string>{}, std::vector<std::u16string>{});
        try {
            m_Content = ReadIndex(RunPipeline(Image(), root, out, services));
        } catch (const CExc& e) {
            return U8(e.GetDescription());
        }
        return "";
    }
    std::tuple<std::string, std::string, std::string> OwnerOf(const std::string& path) {
        const auto it = m_Content.FileOwners.find(path);
        if (it == m_Content.FileOwners.end()) return {"no such file", "", ""};
        return m_Content.Owners.at(it->second);
    }
    TIndexContent m_Content;
};

constexpr char kNoReparse[] = "\"IndexerSkipReparsePoints\"=dword:00000001\n";

TEST_F(FastFixture, OwnersComeFromSecureThroughTheOwnerTable) {
    ngitest::CLogCapture log;
    ASSERT_EQ(Run(kNoReparse), "");
    using T = std::tuple<std::string, std::string, std::string>;
    EXPECT_EQ(m_Content.Owners.at(0), (T{"S-1-0-0", "", ""}));
    EXPECT_EQ(OwnerOf("owners/S-1-5-18.txt"), (T{"S-1-5-18", "SYSTEM", "NT AUTHORITY"}));
    EXPECT_EQ(OwnerOf("owners/S-1-5-32-544.txt"), (T{"S-1-5-32-544", "Administrators", "BUILTIN"}));
    EXPECT_EQ(OwnerOf("owners/S-1-1-0.txt"), (T{"S-1-1-0", "Everyone", ""}));
    // No account known: the row stays, with empty names.
    EXPECT_EQ(OwnerOf("owners/S-1-5-21-1111-2222-3333-1001.txt"), (T{"S-1-5-21-1111-2222-3333-1001", "", ""}));
    // Each owner once, whatever number of descriptors names it.
    std::set<std::string> sids;
    for (const auto& owner : m_Content.Owners) EXPECT_TRUE(sids.insert(std::get<0>(owner)).second);
    EXPECT_TRUE(log.Contains(u"Failed to recognize 2 owners."));
}

TEST_F(FastFixture, SkippedOwnersLeaveOwnerZeroEverywhere) {
    ngitest::CLogCapture log;
    ASSERT_EQ(Run(std::string(kNoReparse) + "\"IndexerSkipOwnersParsing\"=dword:00000001\n"), "");
    EXPECT_EQ(m_Content.Owners.size(), 1u);
    for (const auto& [path, owner] : m_Content.FileOwners) EXPECT_EQ(owner, 0u) << path;
    EXPECT_FALSE(log.Contains(u"$Secure metafile parse."));
}

TEST_F(FastFixture, ReparsePointsResolveOnTheVolumeAndStopAtARelativeLink) {
    std::vector<platform::TVolumeTableEntry> volumes(1);
    volumes[0].mountPoints = {u"C:"};
    volumes[0].volumeName = kVolumeC;
    platform::CVolumeTable table(volumes, {});
    ngitest::CLogCapture log;
    ASSERT_EQ(Run("", {.Volumes = &table}), "");
    // The junction into the volume: its empty folder row and a reparse row
    // naming the target inside the volume.
    EXPECT_EQ(m_Content.Reparses,
              (std::vector<std::tuple<std::string, std::string, std::string>>{{"reparse", "j_abs", "reparse\\target"}}));
    EXPECT_TRUE(m_Content.Dirs.count("reparse/j_abs"));
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
    // A decoded link to a file is no file row of its own.
    bool fileLink = false;
    for (const auto& row : m_Content.Files) fileLink |= std::get<0>(row) == "reparse/file_link";
    EXPECT_FALSE(fileLink);
    // Other tags: ordinary files; each reported once, unknown ones counted.
    EXPECT_TRUE(log.Contains(u"ReparseTag IO_REPARSE_TAG_DEDUP found."));
    EXPECT_TRUE(log.Contains(u"Unknown reparse tag 0x8000001b found 1 times."));
    EXPECT_TRUE(log.Contains(u"Unknown reparse tag 0x9000001a found 1 times."));
    bool tagFile = false;
    for (const auto& row : m_Content.Files) tagFile |= std::get<0>(row) == "reparse/tag_8000001B";
    EXPECT_TRUE(tagFile);
}

TEST_F(FastFixture, SkippedReparsePointsAreNeitherListedNorReported) {
    ngitest::CLogCapture log;
    ASSERT_EQ(Run(kNoReparse), "");
    EXPECT_TRUE(m_Content.Reparses.empty());
    EXPECT_FALSE(log.Contains(u"Enumerate all ReparsePoints"));
    EXPECT_FALSE(log.Contains(u"Unknown reparse tag"));
}

}  // namespace
