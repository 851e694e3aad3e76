// CNtfsVolume on small volumes built byte by byte: a $MFT whose own
// $ATTRIBUTE_LIST moves its second $DATA and $BITMAP extents into an
// extension record, the end of the table, and the failures of record 0.
//
// Layout (4 KiB clusters, 1 KiB records, 64 clusters): boot sector; $MFT
// records 0-7 at clusters 4-5 and 8-15 at clusters 10-11; $MFT $BITMAP in
// clusters 20 (first extent, in record 0) and 21 (second, in record 3).
// Records 0-3, 5, 8 and 10 are marked in use; the root (5) has an $I30 root
// naming record 8 "far".
#include <gtest/gtest.h>

#include "ntfs/ntfs_record_builder.h"
#include "ntfs/ntfs_test_util.h"
#include "testing/log_capture.h"

using namespace indexer::fast_ntfs_indexer;
using namespace ngitest::ntfs;

namespace {

constexpr size_t kCluster = 4096;

struct TImageOptions {
    bool residentData = false;
    bool noBitmap = false;
    bool residentBitmap = false;
    bool badExtension = false;
    uint64_t mftBytes = 16 * 1024;  // the $MFT stream's size
    uint8_t farNameLength = 3;       // in the $I30 key naming record 8
};

TBytes BuildImage(const TImageOptions& o = {}) {
    TBytes image = BootSector(512, 8, 0xF6, 1, 64 * 8, 4);
    image.resize(64 * kCluster);

    const TBytes list = Cat({ListEntry(0x80, 0), ListEntry(0x80, 3), ListEntry(0x80, 0x0005000000000003)});
    std::vector<TBytes> base = {ResidentAttr(0x20, list)};
    base.push_back(o.residentData ? ResidentAttr(0x80, TBytes(16, 0))
                                  : NonResidentAttr(0x80, {0x11, 0x02, 0x04}, 0, 2 * kCluster, o.mftBytes, o.mftBytes));
    if (o.residentBitmap) base.push_back(ResidentAttr(0xB0, TBytes(8, 0xFF)));
    else if (!o.noBitmap) base.push_back(NonResidentAttr(0xB0, {0x11, 0x01, 0x14}, 0, 0x2000, 2, 2));
    TBytes extension = FileRecord({NonResidentAttr(0x80, {0x11, 0x02, 0x0A}, 2, 0x9999, 0x9999, 0x9999),
                                   NonResidentAttr(0xB0, {0x11, 0x01, 0x15}, 1, 0x5555, 0x7777, 0x7777)});
    if (o.badExtension) extension[0] = 'X';
    auto place = [&](uint64_t frn, const TBytes& record) {
        const uint64_t at = frn < 8 ? 4 * kCluster + frn * 1024 : 10 * kCluster + (frn - 8) * 1024;
        std::copy(record.begin(), record.end(), image.begin() + static_cast<std::ptrdiff_t>(at));
    };
    place(0, FileRecord(base));
    place(3, extension);
    TBytes key = FileNameValue(5, u"far", 1);
    key[0x40] = o.farNameLength;
    place(5, FileRecord({ResidentAttr(0x30, FileNameValue(5, u".", 3)),
                         ResidentAttr(0x90, IndexRootValue({IndexEntry(8, key, 0)}, 0x30), u"$I30")},
                        1024, 3));
    place(4, FileRecord({}));  // readable, but free
    place(8, FileRecord({ResidentAttr(0x30, FileNameValue(5, u"far", 1))}));
    place(10, FileRecord({ResidentAttr(0x30, FileNameValue(5, u"farther", 1))}));
    image[20 * kCluster] = 0x2F;      // records 0-3 and 5
    image[20 * kCluster + 1] = 0x05;  // records 8 and 10
    return image;
}

class NtfsSynthetic : public ::testing::Test {
protected:
    // Each image goes to a file of its own: on Windows the previous one is
    // still open until its volume goes.
    void Open(const TBytes& image) {
        m_Volume.reset();
        const std::filesystem::path path = m_Dir.Native() / ("volume" + std::to_string(m_Count++) + ".img");
        WriteBytes(path, image);
        m_Volume = std::make_unique<CImageVolume>();
        m_Volume->Open(path);
    }
    CNtfsVolume& V() { return m_Volume->Volume(); }

    ngitest::CTempDir m_Dir;
    int m_Count = 0;
    std::unique_ptr<CImageVolume> m_Volume;
};

TEST_F(NtfsSynthetic, MftExtentsInAnExtensionRecordAreJoined) {
    ngitest::CLogCapture log;
    Open(BuildImage());
    EXPECT_EQ(V().GetFileRecordCount(), 16u);
    ASSERT_EQ(V().GetMftBlocks().size(), 2u);
    EXPECT_EQ(V().GetMftBlocks()[1].FirstVcn, 2u);
    EXPECT_EQ(V().GetMftBlocks()[1].DiskOffset, 10 * kCluster);
    // Record 3, named twice in the list, is read once: two $BITMAP blocks.
    EXPECT_TRUE(log.Contains(u"$MFT $BITMAP block descriptions length 2 records"));
    for (uint64_t frn = 0; frn < 16; ++frn)
        EXPECT_EQ(V().IsRecordInUse(frn), frn <= 3 || frn == 5 || frn == 8 || frn == 10) << frn;

    TBytes r(1024);
    EXPECT_EQ(V().GetFileRecord(8, r.data(), 1), 8u);  // in the second extent
    EXPECT_EQ(r[0], 'F');
    EXPECT_EQ(V().GetFileRecord(6, r.data(), 0), 8u);  // scans forward to the next in use
    std::fill(r.begin(), r.end(), 0xCD);
    EXPECT_EQ(V().GetFileRecord(11, r.data(), 0), 16u);  // none left: the count, buffer untouched
    EXPECT_EQ(r, TBytes(1024, 0xCD));
    EXPECT_EQ(V().GetFileRecordWithoutExistTest(4, r.data()), 1);
    EXPECT_THROW(V().GetFileRecord(4, r.data(), 1), CExc);  // the bit decides
}

// The lookup by name takes a key's name length only where the name fits the
// key: one character more fails.
TEST_F(NtfsSynthetic, LookupFindsKeysIgnoringCaseAndRefusesANamePastItsKey) {
    TBytes root(1024);
    Open(BuildImage());
    V().GetFileRecord(5, root.data(), 1);
    EXPECT_EQ(CNtfsIndex(&V()).FindFileInDirectory(root.data(), 5, u"FAR"), 8u);
    EXPECT_EQ(CNtfsIndex(&V()).FindFileInDirectory(root.data(), 5, u"fa"), 0u);
    Open(BuildImage({.farNameLength = 4}));
    V().GetFileRecord(5, root.data(), 1);
    ExpectExc([&] { CNtfsIndex(&V()).FindFileInDirectory(root.data(), 5, u"fare"); }, "passes its key");
}

TEST_F(NtfsSynthetic, RecordZeroFailuresStopTheVolume) {
    TBytes badSignature = BuildImage(), torn = BuildImage(), noSectors = BuildImage();
    badSignature[4 * kCluster] = 'X';
    Put16(torn, 4 * kCluster + 1022, 0x0042);
    Put64(noSectors, 0x28, 0);  // the read limit cannot be 0
    const std::pair<TBytes, const char*> cases[] = {
        {badSignature, "INVALID MFT FILE RECORD signature!"},
        {torn, "Fail FILE RECORD! Sequence numbers of sector #1 with seqN=42. It`s not equal to 1\n"},
        {BuildImage({.residentData = true}), "RESIDENT_FORM for $MFT."},
        {BuildImage({.noBitmap = true}), "$MFT %BITMAP empty!"},
        {BuildImage({.residentBitmap = true}), "$MFT $BITMAP RESIDENT_FORM parse not implemented!"},
        {BuildImage({.badExtension = true}), "FileRecordCorrupted. FRN=0x0000000000000003"},
        {noSectors, "Read limit cannot be zero"},
    };
    for (const auto& [image, text] : cases) ExpectExc([&] { Open(image); }, text);
}

}  // namespace
