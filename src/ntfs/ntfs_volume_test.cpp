// CAttributeContent and CNtfsIndex on the committed fixture volume with 4 KiB
// clusters (built by scripts/make-ntfs-fixtures.sh): what the comparison with
// the Sleuth Kit does not read (holes, fragments, named streams), and
// copies with a damaged index block.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

#include "base/utf.h"
#include "ntfs/ntfs_attributes.h"
#include "ntfs/ntfs_index.h"
#include "ntfs/ntfs_test_util.h"
#include "testing/temp_dir.h"

using namespace indexer::fast_ntfs_indexer;
namespace fs = std::filesystem;

namespace {

std::string Text(const CExc& e) { return util::Utf16ToUtf8(e.GetDescription()); }

class NtfsVolumeTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_Image = ngitest::ntfs::UnpackedImage({"ntfs-4k", ngitest::ntfs::SourceDir() / "fixtures/ntfs/ntfs-4k.img.gz"});
        if (m_Image.empty()) GTEST_SKIP() << "fixture image missing";
        m_Volume.Open(m_Image);
    }
    CNtfsVolume& V() { return m_Volume.Volume(); }
    std::vector<uint8_t> Record(uint64_t frn) {
        std::vector<uint8_t> r(V().GetVolumeGeometry().FileRecordSize);
        V().GetFileRecord(frn, r.data(), 1);
        return r;
    }
    uint64_t Lookup(uint64_t folder, std::u16string_view name) {
        return CNtfsIndex(&V()).FindFileInDirectory(Record(folder).data(), folder, name);
    }
    // The content of one attribute of a file in the root.
    std::shared_ptr<CAttributeContent> Content(std::u16string_view file, uint32_t type, std::u16string_view name) {
        const uint64_t frn = Lookup(5, file);
        auto content = std::make_shared<CAttributeContent>(&V(), frn, std::u16string(name));
        CNtfsAttributes(&V()).ReadAttributeContent(Record(frn).data(), frn, type, name, *content);
        return content;
    }

    fs::path m_Image;
    ngitest::ntfs::CImageVolume m_Volume;
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
    const uint64_t many = Lookup(5, u"many");
    CAttributeContent allocation(&V(), many, u"$I30");
    CNtfsAttributes(&V()).ReadAttributeContent(Record(many).data(), many, kAttrIndexAllocation, u"$I30", allocation);
    const uint64_t block0 = allocation.GetExtents().at(0).DiskOffset;
    char frn[17];
    std::snprintf(frn, sizeof frn, "%016llx", static_cast<unsigned long long>(many));
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
        const fs::path copy = dir.Native() / (std::string(c.damage) + ".img");
        ngitest::ntfs::CopyImage(m_Image, copy);
        if (c.damage == std::string("cut")) {
            fs::resize_file(copy, block0 + 100);
        } else {
            std::fstream f(copy, std::ios::in | std::ios::out | std::ios::binary);
            std::vector<uint8_t> b(4096);
            f.seekg(static_cast<std::streamoff>(block0));
            f.read(reinterpret_cast<char*>(b.data()), 4096);
            if (c.damage == std::string("signature")) {
                std::memcpy(b.data(), "XXXX", 4);
            } else {
                const size_t entry = 0x18 + Le32(b.data() + 0x18);
                b[entry + 0x0C] |= 1;
                std::memset(b.data() + entry + Le16(b.data() + entry + 8) - 8, 0, 8);
            }
            f.seekp(static_cast<std::streamoff>(block0));
            f.write(reinterpret_cast<const char*>(b.data()), 4096);
        }
        ngitest::ntfs::CImageVolume v;
        v.Open(copy);
        std::vector<uint8_t> r(1024);
        v.Volume().GetFileRecord(many, r.data(), 1);
        try {
            CNtfsIndex(&v.Volume()).ParseIndexFileRecord_Process(
                r.data(), many, u"$I30", [](const TIndexEntryView&, uint64_t, uint64_t) -> uint8_t { return 1; }, 0, 0);
            ADD_FAILURE() << "the damaged block was read";
        } catch (const CExc& e) {
            for (const std::string& t : c.texts) EXPECT_NE(Text(e).find(t), std::string::npos) << Text(e);
        }
    }
}

}  // namespace
