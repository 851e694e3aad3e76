// Unit tests of the structure layer on byte buffers: boot sector, fix-ups,
// attribute views, run lists, the index entry loop, the attribute decoders,
// the attribute list and resident attribute content.
#include <gtest/gtest.h>

#include "ntfs/ntfs_attributes.h"
#include "ntfs/ntfs_record_builder.h"
#include "ntfs/ntfs_test_util.h"
#include "testing/log_capture.h"

using namespace indexer::fast_ntfs_indexer;
using namespace ngitest::ntfs;

namespace {

TEST(NtfsBootSector, GeometryFromTheEncodedBytes) {
    struct Case {
        uint16_t bps;
        uint8_t spc, rec, idx;
        uint32_t cluster, record, index;
    } cases[] = {
        {512, 8, 0xF6, 1, 4096, 1024, 4096},          // the usual volume
        {512, 8, 0x02, 0xF4, 4096, 8192, 4096},       // records counted in clusters
        {512, 0xF4, 0xF6, 0xF4, 2u << 20, 1024, 4096},  // 2^12 sectors: 2 MiB clusters
        {512, 0x80, 0xF6, 0xF4, 65536, 1024, 4096},   // 0x80 is 128, not 2^128
        {4096, 1, 0xF4, 1, 4096, 4096, 4096},         // 4096-byte sectors and records
    };
    for (const Case& c : cases) {
        TVolumeGeometry g;
        uint64_t size = 0;
        ParseBootSector(BootSector(c.bps, c.spc, c.rec, c.idx, 100000, 4).data(), g, size);
        EXPECT_EQ(std::tuple(g.BytesPerCluster, g.FileRecordSize, g.IndexBlockSize, g.MftOffset, size),
                  std::tuple(c.cluster, c.record, c.index, 4ull * c.cluster, 100000ull * c.bps));
    }
}

TEST(NtfsFixups, AppliedEverySixteenthOfAKilobyteWhateverTheSectorSize) {
    // 4096 bytes, count 9: eight places at 510, 1022, ..., 4094.
    TBytes r = FileRecord({}, 4096);
    Put16(r, 0x30 + 2 * 8, 0xBEEF);
    EXPECT_EQ(ApplyFixups(r.data(), r.size(), 0x30, 9).Status, TFixupResult::Ok);
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
    EXPECT_EQ(Le16(r.data() + 510), 0x1111);
}

TEST(NtfsAttributeWalk, DamagedHeadersFailNamingTheRecord) {
    struct Case {
        size_t at;  // offset from the first attribute
        uint32_t value;
        int width;
        const char* message;
        bool fromEnd = false;  // value counts from the record's end
    } cases[] = {
        {4, 0, 16, "length 0"},
        {4, 8, 16, " of length ", true},  // 8 bytes past the record
        {4, 8, 16, "shorter than its header"},
        {0x10, 0x400, 32, "value of the attribute"},
        {0x0A, 0x3F0, 16, "name of the attribute"},
    };
    for (const Case& c : cases) {
        TBytes r = FileRecord({ResidentAttr(0x80, TBytes(8, 0), u"n")});
        const size_t first = Le16(r.data() + kRecFirstAttribute);
        const uint32_t value = c.fromEnd ? static_cast<uint32_t>(r.size() - first) + c.value : c.value;
        if (c.width == 16) Put16(r, first + c.at, static_cast<uint16_t>(value));
        else Put32(r, first + c.at, value);
        ExpectExc(
            [&] {
                ForEachAttribute(r.data(), r.size(), 0x1234, kNoLimit,
                                 [](const CAttrHeader& a) { return a.Name(), a.Value(), true; });
            },
            c.message);
    }
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
    EXPECT_EQ(DecodeRunList(Runs(r, {0x21, 0x10, 0x00, 0x01, 0x01, 0x08, 0x11, 0x04, 0xF0}), 4096, blocks), 28u);
    const TBlockVector expected = {{0, 15, 0x100u * 4096, 16u * 4096, false},
                                   {16, 23, 0x100u * 4096, 8u * 4096, true},  // repeats the last LCN
                                   {24, 27, 0xF0u * 4096, 4u * 4096, false}};
    ASSERT_EQ(blocks.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        const TBlockDescription &b = blocks[i], &e = expected[i];
        EXPECT_EQ(std::tuple(b.FirstVcn, b.LastVcn, b.DiskOffset, b.Sparse),
                  std::tuple(e.FirstVcn, e.LastVcn, e.DiskOffset, e.Sparse)) << i;
    }
}

TEST(NtfsRunList, DamagedRunsFail) {
    const std::pair<TBytes, const char*> cases[] = {
        {{0x10, 0x05}, "cluster count"},                      // no count bytes: zero clusters
        {{0x11, 0x01, 0x80}, "outside the volume"},           // LCN -128
        {{0x17, 1, 2, 3, 4, 5, 6, 0x10, 1}, "cluster count"}, // 2^40 and more
    };
    TBlockVector blocks;
    for (const auto& [pairs, message] : cases) {
        TBytes r;
        ExpectExc([&] { DecodeRunList(Runs(r, pairs), 4096, blocks); }, message);
    }
    // A run whose fields pass the attribute's end by one byte.
    TBytes r;
    CAttrHeader h = Runs(r, {0x11, 0x01, 0x01});
    const size_t first = Le16(r.data() + kRecFirstAttribute);
    Put16(r, first + 0x20, static_cast<uint16_t>(h.Length() - 3));
    r[first + h.Length() - 3] = 0x21;
    ExpectExc([&] { DecodeRunList(CAttrHeader::At(r.data(), r.size(), first, 99), 4096, blocks); },
              "passes the attribute's end");
}

// The index entry loop on one node held in a buffer: "key:<ref>" and
// "child:<vcn>" in the order met; a key `stopAt` ends the level.
std::vector<std::string> Walk(const TBytes& node, uint8_t stopAt = 0) {
    std::vector<std::string> order;
    CNtfsIndex::ParseEntries(
        node.data(), 0, node.size(), 5, [&](uint64_t vcn) { order.push_back("child:" + std::to_string(vcn)); },
        [&](const TIndexEntryView& e, uint64_t, uint64_t) -> uint8_t {
            order.push_back("key:" + std::to_string(e.FileReference()));
            return e.FileReference() == stopAt ? 0 : 1;
        },
        0, 0, u"test");
    return order;
}

// Children come before their key, the last entry is not delivered, a zero
// from the callback ends the level, and an empty tree ends by the length test.
TEST(NtfsIndexEntries, WalkOrder) {
    const TBytes key(8, 0);
    EXPECT_EQ(Walk(Cat({IndexEntry(1, key, 0), IndexEntry(2, key, 1, 7), IndexEntry(0, {}, 3, 9)})),
              (std::vector<std::string>{"key:1", "child:7", "key:2", "child:9"}));
    EXPECT_EQ(Walk(Cat({IndexEntry(1, key, 0), IndexEntry(2, key, 0), IndexEntry(0, {}, 2)}), 1),
              std::vector<std::string>{"key:1"});
    EXPECT_TRUE(Walk(IndexEntry(0, {}, 2)).empty());
}

TEST(NtfsIndexEntries, EntriesThatLeaveTheNodeFail) {
    TBytes lastTooLong = IndexEntry(0, {}, 2), shortChild = IndexEntry(1, {}, 0);
    Put16(lastTooLong, 8, 24);  // 8 bytes more than the node holds
    Put16(shortChild, 8, 20);
    Put16(shortChild, 0x0C, 1);
    shortChild.resize(24);
    ExpectExc([&] { Walk(IndexEntry(1, TBytes(8, 0), 0)); }, "passes its node's end");  // no last entry
    ExpectExc([&] { Walk(lastTooLong); }, "passes its node's end");
    ExpectExc([&] { Walk(shortChild); }, "too short for its child pointer");
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
    Put16(block, 1022, 0x0008);  // a torn sector
    ngitest::CLogCapture log;
    ExpectExc([&] { CNtfsIndex::_IndexAllocationUpdateSequence(block.data(), block.size(), 5); },
              "INDEX_ALLOCATION_BUFFER corrupted.");
}

// The first attribute of a record holding `attributes`, and the record.
struct TParsed {
    TBytes record;
    std::vector<CAttrHeader> attrs;
};

TParsed Parse(const std::vector<TBytes>& attributes) {
    TParsed p{FileRecord(attributes), {}};
    ForEachAttribute(p.record.data(), p.record.size(), 77, kNoLimit,
                     [&](const CAttrHeader& a) { return p.attrs.push_back(a), true; });
    return p;
}

TEST(NtfsAttributes, DosOnlyNamesAreRefusedAndAllOthersKept) {
    CNtfsAttributes attributes(nullptr);
    for (uint8_t nameSpace : {0, 1, 2, 3}) {
        TParsed p = Parse({ResidentAttr(0x30, FileNameValue(0x0005000000000123ull, u"Name.txt", nameSpace))});
        TFileNamePropsList list;
        attributes.GetFileNameProps(p.attrs[0], list);
        ASSERT_EQ(list.size(), nameSpace == 2 ? 0u : 1u) << int{nameSpace};
        if (nameSpace == 2) continue;
        EXPECT_EQ(list[0]->FileName, u"Name.txt");
        EXPECT_EQ(list[0]->ParentFileRef, 0x123u);  // sequence number dropped
    }
}

TEST(NtfsAttributes, NameLongerThanItsValueFails) {
    CNtfsAttributes attributes(nullptr);
    TFileNamePropsList list;
    TBytes value = FileNameValue(5, u"abc", 1);
    value[0x40] = 4;  // one character past
    TParsed p = Parse({ResidentAttr(0x30, value)}), tiny = Parse({ResidentAttr(0x30, TBytes(0x20, 0))});
    EXPECT_THROW(attributes.GetFileNameProps(p.attrs[0], list), CExc);
    EXPECT_THROW(attributes.GetFileNameProps(tiny.attrs[0], list), CExc);
}

// Each failed read names the attribute and its record.
TEST(NtfsAttributeContent, ResidentValueIsReadAndRefusesMoreContent) {
    CNtfsVolume volume;
    TParsed p = Parse({ResidentAttr(0x80, {'a', 'b', 'c'}, u"s", 4), NonResidentAttr(0x80, {0x11, 1, 1}, 0, 4096, 5, 5)});
    CAttributeContent content(&volume, 77, u"s");
    const std::string named = "Attribute [s] of file record FRN=0x000000000000004d.";
    char out[8] = {};
    ExpectExc([&] { content.Read(0, out, 1); }, "Attribute isn`t initialized.");
    ExpectExc([&] { content.Read(0, out, 1); }, named);
    content.ParseAttribute(p.attrs[0]);
    EXPECT_EQ(content.Read(1, out, 8), 2u);
    EXPECT_EQ(std::string(out, 2), "bc");
    ExpectExc([&] { content.Read(3, out, 0); }, named);
    EXPECT_THROW(content.ParseAttribute(p.attrs[0]), CExc);  // it has content already
    EXPECT_THROW(content.ParseAttribute(p.attrs[1]), CExc);
}

}  // namespace
