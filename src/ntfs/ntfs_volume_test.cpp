// CNtfsVolume, CAttributeContent and CNtfsIndex on the committed fixture
// volume with 4 KiB clusters (built by scripts/make-ntfs-fixtures.sh), and
// the corruption suite on copies of it: damaged boot sector, record 0, file
// records, attribute headers, run lists and index blocks, and truncations.
// Each damaged copy must give a CExc or a result the reader allows; a crash,
// a hang or a read outside a buffer (under the sanitizers) fails the suite.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <random>

#include "base/utf.h"
#include "ntfs/ntfs_attributes.h"
#include "ntfs/ntfs_index.h"
#include "ntfs/ntfs_test_util.h"
#include "testing/log_capture.h"
#include "testing/temp_dir.h"

using namespace indexer::fast_ntfs_indexer;
namespace fs = std::filesystem;

namespace {

std::string Text(const CExc& e) { return util::Utf16ToUtf8(e.GetDescription()); }

class NtfsVolumeTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_Dir = new ngitest::CTempDir();
        s_Image = s_Dir->Native() / "ntfs-4k.img";
        if (!ngitest::ntfs::Decompress(ngitest::ntfs::SourceDir() / "fixtures" / "ntfs" / "ntfs-4k.img.gz", s_Image))
            s_Image.clear();
    }
    static void TearDownTestSuite() {
        delete s_Dir;
        s_Dir = nullptr;
    }
    void SetUp() override {
        if (s_Image.empty()) GTEST_SKIP() << "fixture image missing";
        m_Volume.Open(s_Image);
    }
    CNtfsVolume& V() { return m_Volume.Volume(); }
    std::vector<uint8_t> Record(uint64_t frn) {
        std::vector<uint8_t> r(V().GetVolumeGeometry().FileRecordSize);
        V().GetFileRecord(frn, r.data(), 1);
        return r;
    }
    uint64_t Lookup(uint64_t folder, std::u16string_view name) {
        CNtfsIndex index(&V());
        return index.FindFileInDirectory(Record(folder).data(), folder, name);
    }
    // The content of one attribute of a file found by name in the root.
    std::shared_ptr<CAttributeContent> Content(std::u16string_view file, uint32_t type, std::u16string_view name) {
        const uint64_t frn = Lookup(5, file);
        EXPECT_NE(frn, 0u) << util::Utf16ToUtf8(std::u16string(file));
        auto content = std::make_shared<CAttributeContent>(&V(), frn, std::u16string(name));
        CNtfsAttributes(&V()).ReadAttributeContent(Record(frn).data(), frn, type, name, *content);
        return content;
    }

    static ngitest::CTempDir* s_Dir;
    static fs::path s_Image;
    ngitest::ntfs::CImageVolume m_Volume;
};

ngitest::CTempDir* NtfsVolumeTest::s_Dir = nullptr;
fs::path NtfsVolumeTest::s_Image;

TEST_F(NtfsVolumeTest, GeometryAndTableOfTheFixture) {
    const TVolumeGeometry& g = V().GetVolumeGeometry();
    EXPECT_EQ(g.BytesPerSector, 512);
    EXPECT_EQ(g.BytesPerCluster, 4096u);
    EXPECT_EQ(g.FileRecordSize, 1024u);
    EXPECT_EQ(g.IndexBlockSize, 4096u);
    EXPECT_EQ(V().GetVolumeSize(), (48ull << 20) - 512);  // mkntfs keeps the last sector for the backup boot sector
    // The fixture script fragments $MFT on purpose.
    EXPECT_GT(V().GetMftBlocks().size(), 10u);
    // The table ends with the $MFT stream (istat: 3,943,424 bytes), inside
    // its last run, which is allocated ahead.
    EXPECT_EQ(V().GetFileRecordCount() * g.FileRecordSize, 3943424u);
    EXPECT_LT(V().GetFileRecordCount() * g.FileRecordSize,
              (V().GetMftBlocks().back().LastVcn + 1) * g.BytesPerCluster);
}

TEST_F(NtfsVolumeTest, ScanPastTheLastRecordInUseReturnsTheCountAndLeavesTheBuffer) {
    const uint64_t count = V().GetFileRecordCount();
    std::vector<uint8_t> r(1024);
    uint64_t last = 0;
    for (uint64_t ref = 0; ref < count;) {
        const uint64_t got = V().GetFileRecord(ref, r.data(), 0);
        if (got >= count) break;
        last = got;
        ref = got + 1;
    }
    std::fill(r.begin(), r.end(), 0xAB);
    EXPECT_EQ(V().GetFileRecord(last + 1, r.data(), 0), count);
    // A scan that starts at or past the count (here the last record in use
    // is the table's last) ends at the count too, not one past it.
    EXPECT_EQ(V().GetFileRecord(count, r.data(), 0), count);
    EXPECT_EQ(V().GetFileRecord(count + 3, r.data(), 0), count);
    EXPECT_EQ(r, std::vector<uint8_t>(1024, 0xAB));
}

TEST_F(NtfsVolumeTest, MustExistOnAClearBitThrowsEvenIfTheRecordIsReadable) {
    // The fixture frees every other filler record; find a clear bit below the count.
    std::vector<uint8_t> r(1024);
    uint64_t ref = 16, clear = 0;
    while (!clear) {
        const uint64_t got = V().GetFileRecord(ref, r.data(), 0);
        ASSERT_LT(got, V().GetFileRecordCount());
        if (got > ref) clear = ref;
        ref = got + 1;
    }
    EXPECT_EQ(V().GetFileRecordWithoutExistTest(clear, r.data()), 1);  // freed records keep their signature
    try {
        V().GetFileRecord(clear, r.data(), 1);
        ADD_FAILURE();
    } catch (const CExc& e) {
        EXPECT_NE(Text(e).find("is not actual."), std::string::npos) << Text(e);
    }
    EXPECT_EQ(V().GetFileRecordWithoutExistTest(V().GetFileRecordCount(), r.data()), 0);
}

TEST_F(NtfsVolumeTest, SparseFileReadsZerosInItsHolesAndDataInTheMiddle) {
    auto content = Content(u"sparse.bin", kAttrData, u"");
    ASSERT_EQ(content->GetState(), NonResident);
    // The size is the valid data length: the file's data ends with the
    // written middle, the rest of its 8 MiB is unwritten.
    const uint64_t valid = 4194304 + 14;
    EXPECT_EQ(content->GetSize(), valid);
    char text[14] = {};
    EXPECT_EQ(content->Read(4194304, text, 13), 13u);
    EXPECT_EQ(std::string(text, 13), "in the middle");
    std::vector<uint8_t> hole(70000, 0xAB);
    EXPECT_EQ(content->Read(100, hole.data(), hole.size()), hole.size());
    EXPECT_EQ(hole, std::vector<uint8_t>(hole.size(), 0));
    // A read may start up to the valid length and run on to the extents' end.
    char tail[100];
    EXPECT_EQ(content->Read(valid - 1, tail, sizeof tail), sizeof tail);
    EXPECT_EQ(tail[0], '\n');
    EXPECT_THROW(content->Read(valid, text, 1), CExc);
}

TEST_F(NtfsVolumeTest, NonResidentFileReadsBackInPiecesAcrossExtents) {
    auto content = Content(u"nonresident.bin", kAttrData, u"");
    std::string expected;
    for (int i = 0; i < 25000; ++i) {
        char n[8];
        std::snprintf(n, sizeof n, "%06d", i);
        expected += n;
    }
    ASSERT_EQ(content->GetSize(), expected.size());
    std::string got(expected.size(), '\0');
    for (size_t at = 0; at < got.size();) {
        const uint64_t n = content->Read(at, got.data() + at, std::min<size_t>(7777, got.size() - at));
        ASSERT_GT(n, 0u);
        at += n;
    }
    EXPECT_EQ(got, expected);
}

TEST_F(NtfsVolumeTest, NamedStreamsAreFoundByExactName) {
    auto small = Content(u"streams.txt", kAttrData, u"small");
    char text[16] = {};
    ASSERT_EQ(small->Read(0, text, sizeof text), 11u);
    EXPECT_EQ(std::string(text, 11), "stream data");
    EXPECT_EQ(Content(u"streams.txt", kAttrData, u"SMALL")->GetState(), None);
    EXPECT_EQ(Content(u"streams.txt", kAttrData, u"big")->GetSize(), 3000u);
}

TEST_F(NtfsVolumeTest, NamesInAnAttributeListAreAllFound) {
    const uint64_t folder = Lookup(5, u"manylinks");
    const uint64_t base = Lookup(folder, u"base.txt");
    ASSERT_NE(base, 0u);
    std::vector<uint64_t> extensions;
    const std::vector<uint8_t> r = Record(base);
    ForEachAttribute(r.data(), r.size(), base, kNoLimit, [&](const CAttrHeader& a) {
        if (a.Type() == kAttrAttributeList) V()._ProcessAttributeList(base, a, extensions);
        return true;
    });
    EXPECT_GT(extensions.size(), 5u);
    for (int i : {1, 60, 120}) {
        char name[80];
        std::snprintf(name, sizeof name, "link_with_a_rather_long_name_to_fill_records_%04d.txt", i);
        EXPECT_EQ(Lookup(folder, util::Utf8ToUtf16(name)), base) << name;
    }
}

// ---- The corruption suite ------------------------------------------------

// Everything a run does with a volume, on a damaged copy: set-up, every
// record with the per-record decoders, and a few index walks. Returns
// normally or throws CExc.
void ReadEverything(const fs::path& image) {
    ngitest::ntfs::CImageVolume v;
    v.Open(image);
    CNtfsVolume& volume = v.Volume();
    CNtfsAttributes attributes(&volume);
    CNtfsIndex index(&volume);
    const uint32_t size = volume.GetVolumeGeometry().FileRecordSize;
    std::vector<uint8_t> r(size);
    const uint64_t count = volume.GetFileRecordCount();
    uint64_t walked = 0;
    for (uint64_t ref = 0; ref < count;) {
        const uint64_t got = volume.GetFileRecord(ref, r.data(), 0);
        if (got == ~uint64_t{0}) {
            ++ref;
            continue;
        }
        if (got >= count) break;
        ref = got + 1;
        try {
            TFileNamePropsList names;
            uint64_t dataSize = 0;
            ForEachAttribute(r.data(), size, got, kNoLimit, [&](const CAttrHeader& a) {
                uint32_t id;
                uint64_t time;
                switch (a.Type()) {
                    case kAttrFileName: attributes.GetFileNameProps(a, names); break;
                    case kAttrStandardInformation:
                        attributes.GetSecurityId(a, id);
                        attributes.GetLastWriteTime(a, time);
                        break;
                    case kAttrData: attributes.GetUnnamedDataSize(a, dataSize); break;
                    default: break;
                }
                return true;
            });
            if ((Le16(r.data() + kRecFlags) & kRecFlagDirectory) && walked < 40) {
                ++walked;
                index.ParseIndexFileRecord_Process(r.data(), got, u"$I30",
                                                   [](const TIndexEntryView& e, uint64_t, uint64_t) -> uint8_t {
                                                       e.Key();
                                                       return 1;
                                                   },
                                                   0, 0);
                index.FindFileInDirectory(r.data(), got, u"entry_0300.dat");
            }
        } catch (const CExc&) {
            // One damaged record fails alone, as the pipeline skips it.
        }
    }
}

struct TDamage {
    std::string What;
    uint64_t Offset;
    uint8_t (*Change)(uint8_t);
};

uint8_t Zero(uint8_t) { return 0; }
uint8_t Flip(uint8_t b) { return static_cast<uint8_t>(~b); }
uint8_t High(uint8_t b) { return static_cast<uint8_t>(b ^ 0x80); }

class NtfsCorruption : public NtfsVolumeTest {
protected:
    // Applies each damage to a copy, reads everything, undoes it.
    void Run(const std::vector<TDamage>& damages) {
        const fs::path copy = s_Dir->Native() / "damaged.img";
        if (!fs::exists(copy)) fs::copy_file(s_Image, copy);
        std::fstream f(copy, std::ios::in | std::ios::out | std::ios::binary);
        ASSERT_TRUE(f.good());
        size_t failures = 0;
        for (const TDamage& d : damages) {
            char before = 0;
            f.seekg(static_cast<std::streamoff>(d.Offset));
            f.read(&before, 1);
            const char after = static_cast<char>(d.Change(static_cast<uint8_t>(before)));
            f.seekp(static_cast<std::streamoff>(d.Offset));
            f.write(&after, 1);
            f.flush();
            const auto start = std::chrono::steady_clock::now();
            try {
                ReadEverything(copy);
            } catch (const CExc& e) {
                ++failures;
                EXPECT_FALSE(Text(e).empty()) << d.What;
            }
            EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20)) << d.What;
            f.seekp(static_cast<std::streamoff>(d.Offset));
            f.write(&before, 1);
            f.flush();
        }
        RecordProperty("failed_with_cexc", static_cast<int>(failures));
    }
    // Disk offset of byte `at` of file record `frn`.
    uint64_t RecordOffset(uint64_t frn, uint64_t at = 0) {
        const TVolumeGeometry& g = V().GetVolumeGeometry();
        const uint64_t mftByte = frn * g.FileRecordSize + at;
        const TBlockDescription* b = nullptr;
        EXPECT_TRUE(FindBlockByVcn(V().GetMftBlocks(), mftByte / g.BytesPerCluster, b));
        return b->DiskOffset + mftByte - b->FirstVcn * g.BytesPerCluster;
    }
    // Samples positions: every byte of [begin, end) when few, else `n` of them.
    static std::vector<uint64_t> Positions(uint64_t begin, uint64_t end, size_t n, uint32_t seed) {
        std::vector<uint64_t> out;
        if (end - begin <= n) {
            for (uint64_t p = begin; p < end; ++p) out.push_back(p);
            return out;
        }
        std::mt19937 rng(seed);
        for (size_t i = 0; i < n; ++i) out.push_back(begin + rng() % (end - begin));
        return out;
    }
    void Damage(std::vector<TDamage>& out, const std::string& what, const std::vector<uint64_t>& at) {
        uint8_t (*changes[])(uint8_t) = {Zero, Flip, High};
        size_t k = 0;
        for (uint64_t p : at) out.push_back({what + " @" + std::to_string(p), p, changes[k++ % 3]});
    }
    // The attribute headers of a record: their disk offsets and lengths.
    std::vector<std::pair<uint64_t, uint32_t>> AttributeHeaders(uint64_t frn) {
        std::vector<std::pair<uint64_t, uint32_t>> out;
        const std::vector<uint8_t> r = Record(frn);
        ForEachAttribute(r.data(), r.size(), frn, kNoLimit, [&](const CAttrHeader& a) {
            out.push_back({RecordOffset(frn, a.OffsetInRecord()), a.Length()});
            return true;
        });
        return out;
    }
};

TEST_F(NtfsCorruption, BootSector) {
    std::vector<TDamage> d;
    Damage(d, "boot", Positions(0x0B, 0x48, 64, 1));
    Damage(d, "boot", {0x0B, 0x0C, 0x0D, 0x28, 0x2F, 0x30, 0x37, 0x40, 0x44});
    Run(d);
}

TEST_F(NtfsCorruption, RecordZeroAndItsAttributes) {
    std::vector<TDamage> d;
    Damage(d, "record 0 header", Positions(RecordOffset(0), RecordOffset(0, 0x38), 56, 2));
    for (const auto& [at, length] : AttributeHeaders(0)) Damage(d, "record 0 attribute", Positions(at, at + length, 24, 3));
    Run(d);
}

TEST_F(NtfsCorruption, FileRecordsAttributeHeadersAndRunLists) {
    const uint64_t many = Lookup(5, u"many");
    const uint64_t manylinks = Lookup(5, u"manylinks");
    const uint64_t base = Lookup(manylinks, u"base.txt");
    const uint64_t data = Lookup(5, u"nonresident.bin");
    std::vector<TDamage> d;
    for (uint64_t frn : {uint64_t{5}, uint64_t{9}, many, base, data}) {
        Damage(d, "record header " + std::to_string(frn), Positions(RecordOffset(frn), RecordOffset(frn, 0x38), 12, 4));
        for (const auto& [at, length] : AttributeHeaders(frn))
            Damage(d, "attribute of " + std::to_string(frn), Positions(at, at + std::min<uint32_t>(length, 0x60), 10, 5));
    }
    Run(d);
}

TEST_F(NtfsCorruption, IndexBlocks) {
    const uint64_t many = Lookup(5, u"many");
    auto allocation = std::make_shared<CAttributeContent>(&V(), many, u"$I30");
    CNtfsAttributes(&V()).ReadAttributeContent(Record(many).data(), many, kAttrIndexAllocation, u"$I30", *allocation);
    ASSERT_FALSE(allocation->GetExtents().empty());
    const uint64_t first = allocation->GetExtents()[0].DiskOffset;
    std::vector<TDamage> d;
    Damage(d, "index block header", Positions(first, first + 0x40, 40, 6));
    Damage(d, "index entries", Positions(first + 0x40, first + 4096, 60, 7));
    Damage(d, "second block", Positions(first + 4096, first + 8192, 30, 8));
    Run(d);
}

TEST_F(NtfsCorruption, ChildPointerCycleFailsInsteadOfRecursing) {
    // Point every child VCN of the root of "many" at block 0, and block 0's
    // children at block 0 again: a cycle.
    const uint64_t many = Lookup(5, u"many");
    auto allocation = std::make_shared<CAttributeContent>(&V(), many, u"$I30");
    CNtfsAttributes(&V()).ReadAttributeContent(Record(many).data(), many, kAttrIndexAllocation, u"$I30", *allocation);
    const uint64_t block0 = allocation->GetExtents()[0].DiskOffset;
    const fs::path copy = s_Dir->Native() / "cycle.img";
    ngitest::ntfs::CopyImage(s_Image, copy);
    {
        std::fstream f(copy, std::ios::in | std::ios::out | std::ios::binary);
        std::vector<char> block(4096);
        f.seekg(static_cast<std::streamoff>(block0));
        f.read(block.data(), 4096);
        // Walk the block's entries (fix-ups leave entries before 510 intact
        // enough for the first ones) and give the first one a child at VCN 0.
        uint8_t* b = reinterpret_cast<uint8_t*>(block.data());
        const size_t entry = 0x18 + Le32(b + 0x18);
        const uint16_t length = Le16(b + entry + 8);
        // Grow the entry by 8 bytes for the pointer is not possible in place;
        // instead reuse its last 8 bytes as the child VCN.
        b[entry + 0x0C] |= 1;
        std::memset(b + entry + length - 8, 0, 8);
        f.seekp(static_cast<std::streamoff>(block0));
        f.write(block.data(), 4096);
    }
    ngitest::ntfs::CImageVolume v;
    v.Open(copy);
    std::vector<uint8_t> r(1024);
    v.Volume().GetFileRecord(many, r.data(), 1);
    CNtfsIndex index(&v.Volume());
    try {
        index.ParseIndexFileRecord_Process(r.data(), many, u"$I30",
                                           [](const TIndexEntryView&, uint64_t, uint64_t) -> uint8_t { return 1; }, 0, 0);
        ADD_FAILURE() << "the cycle was not noticed";
    } catch (const CExc& e) {
        EXPECT_NE(Text(e).find("reached twice"), std::string::npos) << Text(e);
    }
}

// Found by the damaged-volume runs: an index block that could not be read
// (an image cut inside it) or had lost its signature failed with a message
// that named neither the directory nor the block.
TEST_F(NtfsCorruption, AnUnusableIndexBlockNamesItsDirectoryAndVcn) {
    const uint64_t many = Lookup(5, u"many");
    auto allocation = std::make_shared<CAttributeContent>(&V(), many, u"$I30");
    CNtfsAttributes(&V()).ReadAttributeContent(Record(many).data(), many, kAttrIndexAllocation, u"$I30", *allocation);
    const uint64_t block0 = allocation->GetExtents()[0].DiskOffset;
    const fs::path copy = s_Dir->Native() / "index-block.img";
    for (const bool cut : {false, true}) {
        ngitest::ntfs::CopyImage(s_Image, copy);
        if (cut) {
            fs::resize_file(copy, block0 + 100);
        } else {
            std::fstream f(copy, std::ios::in | std::ios::out | std::ios::binary);
            f.seekp(static_cast<std::streamoff>(block0));
            f.write("XXXX", 4);
        }
        ngitest::ntfs::CImageVolume v;
        v.Open(copy);
        std::vector<uint8_t> r(1024);
        v.Volume().GetFileRecord(many, r.data(), 1);
        try {
            CNtfsIndex(&v.Volume())
                .ParseIndexFileRecord_Process(r.data(), many, u"$I30",
                                              [](const TIndexEntryView&, uint64_t, uint64_t) -> uint8_t { return 1; },
                                              0, 0);
            ADD_FAILURE() << "the damaged block was read";
        } catch (const CExc& e) {
            const std::string text = Text(e);
            EXPECT_NE(text.find(cut ? "Can`t read all cluster" : "INVALID INDEX_ALLOCATION_BUFFER"), std::string::npos)
                << text;
            EXPECT_NE(text.find("Index block at VCN 0x"), std::string::npos) << text;
            char frn[17];
            std::snprintf(frn, sizeof frn, "%016llx", static_cast<unsigned long long>(many));
            EXPECT_NE(text.find(frn), std::string::npos) << text;
        }
    }
}

TEST_F(NtfsCorruption, Truncations) {
    const uint64_t full = fs::file_size(s_Image);
    const uint64_t mft = V().GetVolumeGeometry().MftOffset;
    for (uint64_t size : {uint64_t{0}, uint64_t{511}, uint64_t{512}, mft, mft + 1024, mft + 300 * 1024, full / 2,
                          full - 4096}) {
        const fs::path copy = s_Dir->Native() / "short.img";
        ngitest::ntfs::CopyImage(s_Image, copy);
        fs::resize_file(copy, size);
        try {
            ReadEverything(copy);
        } catch (const CExc& e) {
            EXPECT_FALSE(Text(e).empty());
        }
    }
}

}  // namespace
