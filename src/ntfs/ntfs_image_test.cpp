// The reader on real NTFS images: every folder's $I30 walk against the
// Sleuth Kit's listing (fls) on every fixture and shared sample, and on the
// folder of 100,000 entries that scripts/test-ntfs.sh names in NGI_NTFS_LARGE
// (the records' names, sizes, times and owners are compared through the
// pipeline, in fast/fast_image_test.cpp). On the 4 KiB-cluster fixture: what
// no comparison reads (holes, fragments, named streams) and copies with a
// damaged index block.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>

#include "ntfs/ntfs_attributes.h"
#include "ntfs/ntfs_test_util.h"

using namespace indexer::fast_ntfs_indexer;
using namespace ngitest::ntfs;
namespace fs = std::filesystem;

namespace {

// Upper case for ASCII letters, or swapped case; nullopt for other names.
std::optional<std::u16string> AsciiCase(std::u16string s, bool swap) {
    for (char16_t& c : s) {
        if (c >= 0x80) return std::nullopt;
        if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
        else if (swap && c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
    }
    return s;
}

// Every folder's $I30 walk of `file` against fls: the same (name, record)
// pairs, in key order; the lookup finds a spread of them in swapped case.
// DOS-only names are refused by the reader and not listed by fls.
void ExpectFoldersAsFls(const fs::path& file) {
    CImageVolume v;
    v.Open(file);
    // fls's children of each folder from record 16 on.
    const std::vector<TFlsLine> lines = ListFls(file);
    std::map<std::string, uint64_t> dirs = {{"", 5}};
    for (const TFlsLine& e : lines)
        if (e.Directory && !e.Stream) dirs[e.Path] = e.Inode;
    std::map<uint64_t, std::set<std::pair<std::string, uint64_t>>> children;
    for (const TFlsLine& e : lines) {
        const auto parent = dirs.find(e.Path.substr(0, e.Path.rfind('/')));
        if (e.Inode >= 16 && parent != dirs.end())
            children[parent->second].insert({e.Path.substr(e.Path.rfind('/') + 1), e.Inode});
    }
    ASSERT_FALSE(children.empty());
    CNtfsIndex index(&v.Volume());
    std::vector<uint8_t> record(v.Volume().GetVolumeGeometry().FileRecordSize);
    for (const auto& [path, dir] : dirs) {
        if (dir < 16) continue;
        const auto entries = FolderEntries(v.Volume(), dir);
        std::set<std::pair<std::string, uint64_t>> walked;
        for (const auto& e : entries) walked.insert({util::Utf16ToUtf8(e.first), e.second});
        EXPECT_EQ(walked, children[dir]) << "folder " << path;
        for (size_t k = 1; k < entries.size(); ++k) {
            const auto a = AsciiCase(entries[k - 1].first, false), b = AsciiCase(entries[k].first, false);
            EXPECT_TRUE(!a || !b || *a <= *b) << "order in folder " << path;
        }
        v.Volume().GetFileRecord(dir, record.data(), 1);
        for (size_t k = 0; k < entries.size(); k += entries.size() / 16 + 1) {
            EXPECT_EQ(index.FindFileInDirectory(record.data(), dir, entries[k].first), entries[k].second);
            if (const auto swapped = AsciiCase(entries[k].first, true)) {
                EXPECT_EQ(index.FindFileInDirectory(record.data(), dir, *swapped), entries[k].second);
            }
        }
        EXPECT_EQ(index.FindFileInDirectory(record.data(), dir, u"no such name \u00e9"), 0u);
    }
}

class NtfsOracle : public ::testing::TestWithParam<TImage> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(NtfsOracle);

TEST_P(NtfsOracle, FoldersMatchTheSleuthKit) try {
    if (GetParam().Name == "ntfs-2m") GTEST_SKIP() << "the Sleuth Kit cannot open 2 MiB clusters";
    if (!HaveTool("fls")) GTEST_SKIP() << "no Sleuth Kit";
    const fs::path file = UnpackedImage(GetParam());
    ASSERT_FALSE(file.empty());
    ExpectFoldersAsFls(file);
} catch (const CExc& e) {
    FAIL() << "CExc: " << util::Utf16ToUtf8(e.GetDescription());
}

INSTANTIATE_TEST_SUITE_P(Images, NtfsOracle, ::testing::ValuesIn(AllImages()), TImageTestName());

class NtfsVolumeTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_Image = UnpackedImage({"ntfs-4k", SourceDir() / "fixtures/ntfs/ntfs-4k.img.gz"});
        if (m_Image.empty()) GTEST_SKIP() << "fixture image missing";
        m_Volume.Open(m_Image);
    }
    CNtfsVolume& V() { return m_Volume.Volume(); }
    std::vector<uint8_t> Record(uint64_t frn) {
        std::vector<uint8_t> r(V().GetVolumeGeometry().FileRecordSize);
        V().GetFileRecord(frn, r.data(), 1);
        return r;
    }
    // The content of one attribute of a file in the root.
    std::shared_ptr<CAttributeContent> Content(std::u16string_view file, uint32_t type, std::u16string_view name) {
        const uint64_t frn = CNtfsIndex(&V()).FindFileInDirectory(Record(5).data(), 5, file);
        auto content = std::make_shared<CAttributeContent>(&V(), frn, std::u16string(name));
        CNtfsAttributes(&V()).ReadAttributeContent(Record(frn).data(), frn, type, name, *content);
        return content;
    }

    fs::path m_Image;
    CImageVolume m_Volume;
};

TEST_F(NtfsVolumeTest, ContentReadsHolesAsZerosAcrossExtentsAndStreamsByExactName) {
    auto sparse = Content(u"sparse.bin", kAttrData, u"");
    ASSERT_EQ(sparse->GetState(), NonResident);
    // The size is the valid data length: the written middle ends it.
    const uint64_t valid = 4194304 + 14;
    EXPECT_EQ(sparse->GetSize(), valid);
    char text[14] = {};
    EXPECT_EQ(sparse->Read(4194304, text, 13), 13u);
    EXPECT_EQ(std::string(text, 13), "in the middle");
    std::vector<uint8_t> hole(70000, 0xAB);
    EXPECT_EQ(sparse->Read(100, hole.data(), hole.size()), hole.size());
    EXPECT_EQ(hole, std::vector<uint8_t>(hole.size(), 0));
    // A read may start up to the valid length and run on to the extents' end.
    char tail[100];
    EXPECT_EQ(sparse->Read(valid - 1, tail, sizeof tail), sizeof tail);
    EXPECT_THROW(sparse->Read(valid, text, 1), CExc);

    auto fragmented = Content(u"nonresident.bin", kAttrData, u"");
    std::string expected;
    for (int i = 0; i < 25000; ++i) expected += std::string(6 - std::to_string(i).size(), '0') + std::to_string(i);
    std::string got(expected.size(), '\0');
    ASSERT_EQ(fragmented->GetSize(), expected.size());
    for (size_t at = 0, n = 1; at < got.size() && n > 0; at += n)
        n = fragmented->Read(at, got.data() + at, std::min<size_t>(7777, got.size() - at));
    EXPECT_EQ(got, expected);

    EXPECT_EQ(Content(u"streams.txt", kAttrData, u"small")->Read(0, text, sizeof text), 11u);
    EXPECT_EQ(std::string(text, 11), "stream data");
    EXPECT_EQ(Content(u"streams.txt", kAttrData, u"SMALL")->GetState(), None);
    EXPECT_EQ(Content(u"streams.txt", kAttrData, u"big")->GetSize(), 3000u);
}

// The first index block of folder "many" damaged on a copy: a child pointer
// cycle, a lost signature, or the image cut inside the block. The walk must
// fail naming what went wrong (and for the block, its VCN and directory).
TEST_F(NtfsVolumeTest, DamagedIndexBlockFailsTheWalkNamingIt) {
    const uint64_t many = CNtfsIndex(&V()).FindFileInDirectory(Record(5).data(), 5, u"many");
    CAttributeContent allocation(&V(), many, u"$I30");
    CNtfsAttributes(&V()).ReadAttributeContent(Record(many).data(), many, kAttrIndexAllocation, u"$I30", allocation);
    const uint64_t block0 = allocation.GetExtents().at(0).DiskOffset;
    char frn[17];
    std::snprintf(frn, sizeof frn, "%016llx", static_cast<unsigned long long>(many));
    const std::vector<uint8_t> original = ReadBytes(m_Image);
    const struct {
        const char* damage;
        std::vector<std::string> texts;
    } cases[] = {
        // The first entry's last 8 bytes taken as a child pointer to VCN 0,
        // the block itself.
        {"cycle", {"reached twice"}},
        {"signature", {"INVALID INDEX_ALLOCATION_BUFFER", "Index block at VCN 0x", frn}},
        {"cut", {"Can`t read all cluster", "Index block at VCN 0x", frn}},
    };
    ngitest::CTempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.damage);
        std::vector<uint8_t> bytes = original;
        uint8_t* b = bytes.data() + block0;
        if (c.damage == std::string("cut")) {
            bytes.resize(block0 + 100);
        } else if (c.damage == std::string("signature")) {
            std::memcpy(b, "XXXX", 4);
        } else {
            const size_t entry = 0x18 + Le32(b + 0x18);
            b[entry + 0x0C] |= 1;
            std::memset(b + entry + Le16(b + entry + 8) - 8, 0, 8);
        }
        const fs::path copy = dir.Native() / (std::string(c.damage) + ".img");
        WriteBytes(copy, bytes);
        CImageVolume v;
        v.Open(copy);
        for (const std::string& t : c.texts) ExpectExc([&] { FolderEntries(v.Volume(), many); }, t);
    }
}

// The folder of 100,000 entries, its names alternating "file_000000.DAT"
// and "File_000001.dat" (keys collate by their upper-case form).
TEST(NtfsLarge, HundredThousandEntriesMatchTheSleuthKit) try {
    const char* image = std::getenv("NGI_NTFS_LARGE");
    if (!image || !fs::exists(image)) GTEST_SKIP() << "NGI_NTFS_LARGE not set (scripts/test-ntfs.sh)";
    if (!HaveTool("fls")) GTEST_SKIP() << "no Sleuth Kit";
    ExpectFoldersAsFls(image);
} catch (const CExc& e) {
    FAIL() << util::Utf16ToUtf8(e.GetDescription());
}

}  // namespace
