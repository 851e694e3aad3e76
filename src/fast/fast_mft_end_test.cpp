// The end of the master file table, on crafted copies of the 64 KiB-cluster
// fixture, against the Sleuth Kit (istat, fls) and libfsntfs (fsntfsinfo).
//
// The fixture's $MFT stream holds 710 records, but its runs are allocated to
// 768 and its bitmap has 768 bits. A copy of the file record of empty.bin,
// renamed emptz.bin, is written to one record number and that record's bitmap
// bit is set; where the bytes go is taken from istat's list of the $MFT's
// clusters, not from the reader under test.
// - At the last record of the stream (709): both oracles show it in use; the
//   reader must deliver it as the last record and the fast pipeline must give
//   its row.
// - At the last bit of the bitmap and the last record of the last run (767),
//   behind the stream's end: both oracles say there is no such record; the
//   reader must not deliver it (it once counted records to the end of the
//   runs and read this one).
#include <gtest/gtest.h>

#include <sstream>

#include "base/utf.h"
#include "fast/fast_test_util.h"
#include "ntfs/fsntfsinfo_listing.h"
#include "ntfs/ntfs_test_util.h"
#include "testing/temp_dir.h"
#include "testing/temp_registry.h"

using namespace indexer::fast_ntfs_indexer;
namespace fs = std::filesystem;

namespace {

using ngitest::fast::IstatRuns;

constexpr uint64_t kCluster = 65536, kRecord = 1024;

class MftEnd : public ::testing::Test {
protected:
    // A copy of the fixture with record `target` holding emptz.bin; false
    // when a tool or the fixture is missing.
    bool Craft(uint64_t target) {
        if (!ngitest::ntfs::HaveTool("istat") || !ngitest::ntfs::HaveTool("fsntfsinfo")) return false;
        m_Image = m_Dir.Native() / "mft-end.img";
        if (!ngitest::ntfs::Decompress(ngitest::ntfs::SourceDir() / "fixtures/ntfs/ntfs-64k.img.gz", m_Image))
            return false;
        const std::string istat = ngitest::ntfs::RunCommand("istat " + ngitest::ntfs::Quote(m_Image) + " 0");
        const auto [data, dataSize] = IstatRuns(istat, "$DATA (128-");
        const auto [bitmap, bitmapSize] = IstatRuns(istat, "$BITMAP (176-");
        EXPECT_EQ(dataSize, 710 * kRecord);
        EXPECT_EQ(data.size() * kCluster, 768 * kRecord);
        EXPECT_EQ(bitmapSize * 8, 768u);
        if (data.empty() || bitmap.empty()) return false;
        auto offsetOf = [&](uint64_t record) {
            const uint64_t byte = record * kRecord;
            return data.at(byte / kCluster) * kCluster + byte % kCluster;
        };
        std::vector<uint8_t> bytes = ngitest::ntfs::ReadBytes(m_Image);
        const uint64_t source = 80;  // empty.bin (fls of the root)
        std::vector<uint8_t> record(bytes.begin() + offsetOf(source), bytes.begin() + offsetOf(source) + kRecord);
        const std::u16string from = u"empty.bin";
        bool renamed = false;
        for (size_t i = 0; i + 2 * from.size() <= record.size() && !renamed; ++i) {
            bool match = true;
            for (size_t k = 0; k < from.size() && match; ++k) match = Le16(record.data() + i + 2 * k) == from[k];
            if (match) record[i + 8] = 'z', renamed = true;  // "empty" -> "emptz"
        }
        EXPECT_TRUE(renamed);
        record[0x2C] = static_cast<uint8_t>(target);  // the record's own number
        record[0x2D] = static_cast<uint8_t>(target >> 8);
        std::copy(record.begin(), record.end(), bytes.begin() + offsetOf(target));
        bytes.at(bitmap[0] * kCluster + target / 8) |= static_cast<uint8_t>(1u << (target % 8));
        ngitest::ntfs::WriteBytes(m_Image, bytes);
        return true;
    }

    // Every record the reader delivers from 16 on, in order.
    std::vector<uint64_t> Delivered(CNtfsVolume& volume) {
        std::vector<uint64_t> out;
        std::vector<uint8_t> buffer(volume.GetVolumeGeometry().FileRecordSize);
        for (uint64_t ref = 16; ref < volume.GetFileRecordCount();) {
            const uint64_t got = volume.GetFileRecord(ref, buffer.data(), 0);
            if (got >= volume.GetFileRecordCount()) break;
            out.push_back(got);
            ref = got + 1;
        }
        return out;
    }

    bool HasRow(const std::string& path) {
        ngitest::CTempRegistry registry(
            "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\n"
            "\"IndexerSkipReparsePoints\"=dword:00000001\n");
        ngitest::CTempDir out;
        indexer::CIncExcNode root(std::vector<std::u16string>{}, std::vector<std::u16string>{});
        const auto content = ngitest::fast::ReadIndex(ngitest::fast::RunPipeline(m_Image, root, out));
        for (const auto& row : content.Files)
            if (std::get<0>(row) == path) return true;
        return false;
    }

    ngitest::CTempDir m_Dir;
    fs::path m_Image;
};

TEST_F(MftEnd, LastRecordOfTheStreamInUseIsDeliveredAndIndexed) {
    if (!Craft(709)) GTEST_SKIP() << "no Sleuth Kit, libfsntfs or fixture";
    const auto oracle = ngitest::ntfs::RunFsntfsinfo(m_Image);
    ASSERT_TRUE(oracle.count(709));
    EXPECT_TRUE(oracle.at(709).Allocated);
    ASSERT_EQ(oracle.at(709).Names.size(), 1u);
    EXPECT_EQ(oracle.at(709).Names[0].Name, "emptz.bin");
    EXPECT_EQ(oracle.rbegin()->first, 709u) << "libfsntfs sees records past 709";
    EXPECT_NE(ngitest::ntfs::RunCommand("istat " + ngitest::ntfs::Quote(m_Image) + " 709").find("Name: emptz.bin"),
              std::string::npos);
    try {
        ngitest::ntfs::CImageVolume v;
        v.Open(m_Image);
        EXPECT_EQ(v.Volume().GetFileRecordCount(), 710u);
        const std::vector<uint64_t> delivered = Delivered(v.Volume());
        ASSERT_FALSE(delivered.empty());
        EXPECT_EQ(delivered.back(), 709u);
        std::vector<uint8_t> buffer(kRecord);
        EXPECT_EQ(v.Volume().GetFileRecord(709, buffer.data(), 1), 709u);
        EXPECT_TRUE(HasRow("emptz.bin"));
        EXPECT_TRUE(HasRow("empty.bin"));
    } catch (const CExc& e) {
        FAIL() << util::Utf16ToUtf8(e.GetDescription());
    }
}

TEST_F(MftEnd, RecordPastTheStreamAtTheLastBitIsNoRecord) {
    if (!Craft(767)) GTEST_SKIP() << "no Sleuth Kit, libfsntfs or fixture";
    const auto oracle = ngitest::ntfs::RunFsntfsinfo(m_Image);
    ASSERT_FALSE(oracle.empty());
    EXPECT_EQ(oracle.rbegin()->first, 709u) << "libfsntfs has records past the stream";
    EXPECT_NE(ngitest::ntfs::RunCommand("istat " + ngitest::ntfs::Quote(m_Image) + " 767 2>&1").find("too large"),
              std::string::npos);
    try {
        ngitest::ntfs::CImageVolume v;
        v.Open(m_Image);
        EXPECT_EQ(v.Volume().GetFileRecordCount(), 710u);
        const std::vector<uint64_t> delivered = Delivered(v.Volume());
        ASSERT_FALSE(delivered.empty());
        EXPECT_LT(delivered.back(), 710u);
        std::vector<uint8_t> buffer(kRecord);
        EXPECT_EQ(v.Volume().GetFileRecordWithoutExistTest(767, buffer.data()), 0);
        EXPECT_FALSE(HasRow("emptz.bin"));
    } catch (const CExc& e) {
        FAIL() << util::Utf16ToUtf8(e.GetDescription());
    }
}

}  // namespace
