// Unit tests of the structure layer: boot sector, fix-ups, attribute views,
// run lists and the index entry loop, on byte buffers.
#include <gtest/gtest.h>

#include "base/utf.h"
#include "ntfs/ntfs_index.h"
#include "ntfs/ntfs_record_builder.h"
#include "ntfs/ntfs_volume.h"
#include "testing/log_capture.h"

using namespace indexer::fast_ntfs_indexer;
using namespace ngitest::ntfs;

namespace {

std::string Text(const CExc& e) { return util::Utf16ToUtf8(e.GetDescription()); }

// Expects a CExc whose text holds `part`.
template <class F>
void ExpectExc(F&& f, const std::string& part) {
    try {
        f();
        ADD_FAILURE() << "no exception, expected one with: " << part;
    } catch (const CExc& e) {
        EXPECT_NE(Text(e).find(part), std::string::npos) << Text(e);
    }
}

TBytes Boot(uint16_t bytesPerSector, uint8_t sectorsPerCluster, uint8_t recordByte, uint8_t indexByte,
            uint64_t totalSectors = 100000, uint64_t mftLcn = 4) {
    return BootSector(bytesPerSector, sectorsPerCluster, recordByte, indexByte, totalSectors, mftLcn);
}

TEST(NtfsBootSector, GeometryFromTheEncodedBytes) {
    struct Case {
        uint16_t bps;
        uint8_t spc, rec, idx;
        uint32_t cluster, record, index;
    } cases[] = {
        {512, 8, 0xF6, 1, 4096, 1024, 4096},          // the usual volume
        {512, 8, 0x02, 0xF4, 4096, 8192, 4096},       // records counted in clusters
        {512, 1, 0xF6, 8, 512, 1024, 4096},           // 512-byte clusters
        {512, 0xF4, 0xF6, 0xF4, 2u << 20, 1024, 4096},  // 2^12 sectors: 2 MiB clusters
        {512, 0x80, 0xF6, 0xF4, 65536, 1024, 4096},   // 0x80 is 128, not 2^128
        {4096, 1, 0xF4, 1, 4096, 4096, 4096},         // 4096-byte sectors and records
    };
    for (const Case& c : cases) {
        TVolumeGeometry g;
        uint64_t size = 0;
        ParseBootSector(Boot(c.bps, c.spc, c.rec, c.idx).data(), g, size);
        EXPECT_EQ(g.BytesPerCluster, c.cluster);
        EXPECT_EQ(g.FileRecordSize, c.record);
        EXPECT_EQ(g.IndexBlockSize, c.index);
        EXPECT_EQ(g.MftOffset, 4ull * c.cluster);
        EXPECT_EQ(size, 100000ull * c.bps);
    }
}

TEST(NtfsBootSector, GeometriesThatCannotWorkAreRefused) {
    TVolumeGeometry g;
    uint64_t size = 0;
    // A zero record byte means 2^0 = 1 byte, which cannot hold a record.
    const std::pair<TBytes, const char*> cases[] = {
        {Boot(0, 8, 0xF6, 1), "cluster size"},       {Boot(512, 0, 0xF6, 1), "cluster size"},
        {Boot(512, 0xE0, 0xF6, 1), "cluster size"},  {Boot(512, 8, 0x00, 1), "file record size"},
        {Boot(512, 8, 0x81, 1), "file record size"}, {Boot(512, 8, 0xF6, 0x7F), "index block size"},
        {Boot(512, 8, 0xF6, 1, ~0ull), "64 bits"},   {Boot(512, 8, 0xF6, 1, 1000, ~0ull), "$MFT cluster"},
    };
    for (const auto& [boot, text] : cases) ExpectExc([&] { ParseBootSector(boot.data(), g, size); }, text);
}

TEST(NtfsFixups, AppliedEverySixteenthOfAKilobyteWhateverTheSectorSize) {
    // 4096 bytes, count 9: eight places at 510, 1022, ..., 4094.
    TBytes r = FileRecord({}, 4096);
    for (int i = 1; i <= 8; ++i) EXPECT_EQ(Le16(r.data() + i * 512 - 2), 1);
    Put16(r, 0x30 + 2 * 8, 0xBEEF);
    const TFixupResult ok = ApplyFixups(r.data(), r.size(), 0x30, 9);
    EXPECT_EQ(ok.Status, TFixupResult::Ok);
    EXPECT_EQ(Le16(r.data() + 4094), 0xBEEF);
}

TEST(NtfsFixups, MismatchStopsWithTheSectorsBeforeItFixed) {
    TBytes r = FileRecord({}, 1024);
    Put16(r, 0x32, 0x1111);
    Put16(r, 1022, 0x0002);  // the second sector was torn
    const TFixupResult fix = ApplyFixups(r.data(), r.size(), 0x30, 3);
    EXPECT_EQ(fix.Status, TFixupResult::Mismatch);
    EXPECT_EQ(fix.Sector, 1u);
    EXPECT_EQ(fix.Found, 2);
    EXPECT_EQ(fix.Expected, 1);
    EXPECT_EQ(Le16(r.data() + 510), 0x1111);
}

TEST(NtfsFixups, ArrayOrPlacesOutsideTheBufferChangeNothing) {
    TBytes r = FileRecord({}, 1024);
    const TBytes before = r;
    EXPECT_EQ(ApplyFixups(r.data(), r.size(), 1020, 3).Status, TFixupResult::OutOfBounds);
    EXPECT_EQ(ApplyFixups(r.data(), r.size(), 0x30, 4).Status, TFixupResult::OutOfBounds);  // place at 1534
    EXPECT_EQ(ApplyFixups(r.data(), r.size(), 0xFFFF, 0xFFFF).Status, TFixupResult::OutOfBounds);
    EXPECT_EQ(r, before);
    EXPECT_EQ(ApplyFixups(r.data(), r.size(), 0xFFFF, 1).Status, TFixupResult::Ok);  // nothing to apply
}

TEST(NtfsAttributeWalk, DamagedHeadersFailNamingTheRecord) {
    struct Case {
        const char* what;  // the damage, for the reader of the table
        size_t at;  // offset from the first attribute
        uint32_t value;
        int width;
        const char* message;
        bool fromEnd = false;  // value counts from the record's end
    } cases[] = {
        {"length 0", 4, 0, 16, "length 0"},
        {"length 8 bytes past the record", 4, 8, 16, " of length ", true},
        {"length below a header", 4, 8, 16, "shorter than its header"},
        {"length past the record", 4, 0x7000, 16, "passes the record's end"},
        {"value past the attribute", 0x10, 0x400, 32, "value of the attribute"},
        {"name past the attribute", 0x0A, 0x3F0, 16, "name of the attribute"},
    };
    for (const Case& c : cases) {
        TBytes r = FileRecord({ResidentAttr(0x80, TBytes(8, 0), u"n")});
        const size_t first = Le16(r.data() + kRecFirstAttribute);
        const uint32_t value = c.fromEnd ? static_cast<uint32_t>(r.size() - first) + c.value : c.value;
        if (c.width == 16) Put16(r, first + c.at, static_cast<uint16_t>(value));
        else Put32(r, first + c.at, value);
        ExpectExc(
            [&] {
                ForEachAttribute(r.data(), r.size(), 0x1234, kNoLimit, [](const CAttrHeader& a) {
                    a.Name();
                    a.Value();
                    return true;
                });
            },
            c.message);
    }
}

TEST(NtfsAttributeWalk, NoEndMarkerFailsUnlessBoundedByBytesInUse) {
    TBytes r = FileRecord({ResidentAttr(0x10, TBytes(8, 0))});
    const size_t first = Le16(r.data() + kRecFirstAttribute);
    // Two attributes fill the rest of the record: no end marker.
    Put32(r, first, 0x40);
    Put32(r, first + 4, 16);
    Put32(r, first + 16, 0x40);
    Put32(r, first + 20, static_cast<uint32_t>(r.size() - first - 16));
    ExpectExc([&] { ForEachAttribute(r.data(), r.size(), 7, kNoLimit, [](const CAttrHeader&) { return true; }); },
              "File record FRN=0x0000000000000007 is corrupted: the attribute list of the record has no end marker");
    size_t seen = 0;
    ForEachAttribute(r.data(), r.size(), 7, first + 16, [&](const CAttrHeader&) { return ++seen, true; });
    EXPECT_EQ(seen, 1u);
}

TEST(NtfsAttributeWalk, NonResidentFieldsNeedTheWholeHeader) {
    TBytes a = NonResidentAttr(0x80, {0x11, 0x01, 0x10}, 0, 4096, 100, 100);
    TBytes r = FileRecord({a});
    const size_t first = Le16(r.data() + kRecFirstAttribute);
    Put16(r, first + 4, 0x20);  // claims a 32-byte attribute
    Put32(r, first + 0x20, 0xFFFFFFFF);
    ExpectExc(
        [&] {
            ForEachAttribute(r.data(), r.size(), 1, kNoLimit, [](const CAttrHeader& h) { return h.FileSize(), true; });
        },
        "shorter than its header");
}

// Decodes mapping pairs given as bytes, with 4096-byte clusters.
CAttrHeader Runs(TBytes& record, const TBytes& pairs) {
    record = FileRecord({NonResidentAttr(0x80, pairs, 0, 0, 0, 0)});
    return CAttrHeader::At(record.data(), record.size(), Le16(record.data() + kRecFirstAttribute), 99);
}

TEST(NtfsRunList, DecodesCountsDeltasAndSparseRuns) {
    TBytes r;
    TBlockVector blocks;
    // 16 clusters at LCN 0x100; 8 sparse; 4 at 0x100 - 0x10 = 0xF0 (negative delta).
    const uint64_t next = DecodeRunList(Runs(r, {0x21, 0x10, 0x00, 0x01, 0x01, 0x08, 0x11, 0x04, 0xF0}), 4096, blocks);
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_EQ(next, 28u);
    EXPECT_EQ(blocks[0].FirstVcn, 0u);
    EXPECT_EQ(blocks[0].LastVcn, 15u);
    EXPECT_EQ(blocks[0].DiskOffset, 0x100u * 4096);
    EXPECT_EQ(blocks[0].ByteLength, 16u * 4096);
    EXPECT_TRUE(blocks[1].Sparse);
    EXPECT_EQ(blocks[1].FirstVcn, 16u);
    EXPECT_EQ(blocks[1].DiskOffset, 0x100u * 4096);  // a sparse run repeats the last LCN
    EXPECT_EQ(blocks[2].FirstVcn, 24u);
    EXPECT_EQ(blocks[2].DiskOffset, 0xF0u * 4096);
    EXPECT_FALSE(blocks[2].Sparse);
}

TEST(NtfsRunList, DamagedRunsFail) {
    struct Case {
        TBytes pairs;
        const char* message;
    } cases[] = {
        {{0x10, 0x05}, "cluster count"},                      // no count bytes: zero clusters
        {{0x11, 0x00, 0x05}, "cluster count"},                // count 0
        {{0x11, 0x01, 0x80}, "outside the volume"},           // LCN -128
        {{0x17, 1, 2, 3, 4, 5, 6, 0x10, 1}, "cluster count"}, // 2^40 and more
    };
    for (const Case& c : cases) {
        TBytes r;
        TBlockVector blocks;
        ExpectExc([&] { DecodeRunList(Runs(r, c.pairs), 4096, blocks); }, c.message);
    }
    // A run whose fields pass the attribute's end: by far, and by one byte.
    for (const auto& [header, back] : {std::pair<uint8_t, size_t>{0x77, 1}, {0x21, 3}}) {
        TBytes r;
        CAttrHeader h = Runs(r, {0x11, 0x01, 0x01});
        const size_t first = Le16(r.data() + kRecFirstAttribute);
        Put16(r, first + 0x20, static_cast<uint16_t>(h.Length() - back));
        r[first + h.Length() - back] = header;
        TBlockVector blocks;
        ExpectExc([&] { DecodeRunList(CAttrHeader::At(r.data(), r.size(), first, 99), 4096, blocks); },
                  "passes the attribute's end");
    }
}

TEST(NtfsRunList, FindBlockByVcnAnswersNotFoundInHolesAndPastTheEnd) {
    TBlockVector blocks = {{10, 19, 0, 0, false}, {0, 4, 0, 0, false}, {30, 30, 0, 0, true}};
    SortBlocks(blocks);
    const TBlockDescription* b = nullptr;
    for (uint64_t vcn : {0u, 4u, 10u, 19u, 30u}) {
        ASSERT_TRUE(FindBlockByVcn(blocks, vcn, b)) << vcn;
        EXPECT_LE(b->FirstVcn, vcn);
        EXPECT_GE(b->LastVcn, vcn);
    }
    for (uint64_t vcn : {5u, 9u, 20u, 29u, 31u, 1000000u}) {
        EXPECT_FALSE(FindBlockByVcn(blocks, vcn, b)) << vcn;
        EXPECT_EQ(b, nullptr);
    }
    EXPECT_FALSE(FindBlockByVcn({}, 0, b));
}

// The index entry loop, on one node held in a buffer.
struct TNode {
    TBytes bytes;
    std::vector<std::string> order;  // "key:<ref>" and "child:<vcn>" in the order met
};

void Walk(TNode& node, uint8_t stopAt = 0) {
    CNtfsIndex::ParseEntries(
        node.bytes.data(), 0, node.bytes.size(), 5,
        [&](uint64_t vcn) { node.order.push_back("child:" + std::to_string(vcn)); },
        [&](const TIndexEntryView& e, uint64_t, uint64_t) -> uint8_t {
            node.order.push_back("key:" + std::to_string(e.FileReference()));
            return e.FileReference() == stopAt ? 0 : 1;
        },
        0, 0, u"test");
}

TBytes Cat(const std::vector<TBytes>& parts) {
    TBytes all;
    for (const TBytes& p : parts) all.insert(all.end(), p.begin(), p.end());
    return all;
}

// Children come before their key, the last entry is not delivered, a zero
// from the callback ends the level, and an empty tree ends by the length test.
TEST(NtfsIndexEntries, WalkOrder) {
    const struct {
        TBytes bytes;
        uint8_t stopAt;
        std::vector<std::string> order;
    } cases[] = {
        {Cat({IndexEntry(1, TBytes(8, 0), 0), IndexEntry(2, TBytes(8, 0), 1, 7), IndexEntry(0, {}, 3, 9)}), 0,
         {"key:1", "child:7", "key:2", "child:9"}},
        {Cat({IndexEntry(1, TBytes(8, 0), 0), IndexEntry(2, TBytes(8, 0), 0), IndexEntry(0, {}, 2)}), 1, {"key:1"}},
        {IndexEntry(0, {}, 2), 0, {}},  // length 16
    };
    for (const auto& c : cases) {
        TNode node{c.bytes, {}};
        Walk(node, c.stopAt);
        EXPECT_EQ(node.order, c.order);
    }
}

TEST(NtfsIndexEntries, EntriesThatLeaveTheNodeFail) {
    TBytes tooLong = IndexEntry(1, TBytes(8, 0), 0);
    Put16(tooLong, 8, 0x400);
    TNode a{tooLong, {}};
    ExpectExc([&] { Walk(a); }, "passes its node's end");
    TNode b{IndexEntry(1, TBytes(8, 0), 0), {}};  // no last entry behind it
    ExpectExc([&] { Walk(b); }, "passes its node's end");
    TBytes lastTooLong = IndexEntry(0, {}, 2);
    Put16(lastTooLong, 8, 24);  // 8 bytes more than the node holds
    TNode d{lastTooLong, {}};
    ExpectExc([&] { Walk(d); }, "passes its node's end");
    TBytes shortChild = IndexEntry(1, {}, 0);
    Put16(shortChild, 8, 20);
    Put16(shortChild, 0x0C, 1);
    shortChild.resize(24);
    TNode c{shortChild, {}};
    ExpectExc([&] { Walk(c); }, "too short for its child pointer");
    TBytes badKey = Cat({IndexEntry(1, TBytes(8, 0), 0), IndexEntry(0, {}, 2)});
    Put16(badKey, 0x0A, 200);
    CNtfsIndex::ParseEntries(badKey.data(), 0, badKey.size(), 5, nullptr, [&](const TIndexEntryView& e, uint64_t, uint64_t) -> uint8_t {
        ExpectExc([&] { e.Key(); }, "passes its entry");
        return 1;
    }, 0, 0, u"test");
}

TEST(NtfsIndexBlock, SignatureAndFixupsAreStrict) {
    TBytes block(4096, 0);
    ExpectExc([&] { CNtfsIndex::_IndexAllocationUpdateSequence(block.data(), block.size(), 5); },
              "INVALID INDEX_ALLOCATION_BUFFER signature!");
    block[0] = 'I', block[1] = 'N', block[2] = 'D', block[3] = 'X';
    Put16(block, 6, 9);
    Put16(block, 0x28, 0x0007);
    for (int i = 1; i < 9; ++i) Put16(block, i * 512 - 2, 0x0007), Put16(block, 0x28 + 2 * i, static_cast<uint16_t>(i));
    CNtfsIndex::_IndexAllocationUpdateSequence(block.data(), block.size(), 5);
    EXPECT_EQ(Le16(block.data() + 4094), 8);
    // A count of 1: nothing to apply.
    Put16(block, 6, 1);
    CNtfsIndex::_IndexAllocationUpdateSequence(block.data(), block.size(), 5);
    // A torn sector.
    ngitest::CLogCapture log;
    Put16(block, 6, 9);
    Put16(block, 1022, 0x0008);
    ExpectExc([&] { CNtfsIndex::_IndexAllocationUpdateSequence(block.data(), block.size(), 5); },
              "INDEX_ALLOCATION_BUFFER corrupted.");
    EXPECT_TRUE(log.Contains(u"Sequence numbers of sector #0 with seqN=0x0001. It`s not equal 0x0007"));
}

}  // namespace
