// The write collector and read cache: block boundaries, eviction order, the
// read limit, a failed block write. Reads while the file grows are those of
// TableStream's writer.
#include <gtest/gtest.h>

#include "platform/errors.h"
#include "store/store_test_util.h"
#include "store/write_collector.h"

using indexer::CFileWriteCollectorReadCache;
using namespace store_testing;

namespace {

// A handle the test owns and lends to the collector.
struct TNativeFile {
    explicit TNativeFile(std::u16string_view path, uint32_t access = platform::kGenericRead,
                         uint32_t disposition = platform::kOpenExisting)
        : handle(platform::FileOpen(path, access, platform::kShareRead | platform::kShareWrite,
                                    disposition, platform::kAttrNormal)) {}
    platform::NativeHandle Handle() const { return handle.Get(); }
    platform::CHandle handle;
};

TEST(WriteCollector, FullBlockIsFlushedOnlyByTheNextWrite) {
    CTempDir dir;
    CFileWriteCollectorReadCache c;
    c.SetCacheProps(13, 4);
    c.Open(dir.Path(u"w.bin"));
    const auto data = Pattern(8193);
    c.WriteSequentially(data.data(), 8192);
    EXPECT_EQ(std::filesystem::file_size(dir.Native("w.bin")), 0u);
    c.WriteSequentially(data.data() + 8192, 1);
    EXPECT_EQ(std::filesystem::file_size(dir.Native("w.bin")), 8192u);
    EXPECT_EQ(c.GetWritePos(), 8193u);
    // The flushed block went to the cache: read across the boundary after
    // the file was emptied behind the collector's back, still served.
    std::filesystem::resize_file(dir.Native("w.bin"), 0);
    std::vector<uint8_t> back(10);
    EXPECT_EQ(c.ReadRandomly(8186, back.data(), 7), 7u);
    EXPECT_TRUE(std::equal(back.begin(), back.begin() + 7, data.begin() + 8186));
    EXPECT_EQ(c.GetCachedBlockCount(), 1u);
}

// Typed reads of unflushed bytes; a damaged string count fails without a
// huge allocation.
TEST(WriteCollector, TypedWritesAndReadsAreLittleEndian) {
    CTempDir dir;
    CFileWriteCollectorReadCache c;
    c.Open(dir.Path(u"t.bin"));
    c.WriteWord(0x0102);
    c.WriteDWord(0x03040506);
    c.WriteLongLong(0x0708090A0B0C0D0Eull);
    c.WriteDWord(0xFFFFFFFFu);
    c.WriteBuf(u"hi", 4);
    c.SetReadPos(2);
    EXPECT_EQ(c.ReadDWord(), 0x03040506u);
    EXPECT_EQ(c.ReadLongLong(), 0x0708090A0B0C0D0Eull);
    EXPECT_ANY_THROW(c.ReadString());
    c.Close();
    EXPECT_EQ(ReadAll(dir.Native("t.bin")), (std::vector<uint8_t>{2, 1, 6, 5, 4, 3, 0xE, 0xD, 0xC, 0xB, 0xA, 9, 8, 7,
                                                                  0xFF, 0xFF, 0xFF, 0xFF, 'h', 0, 'i', 0}));
}

// Blocks evicted from a full cache lend their memory to the next block
// loaded. Each step's bytes are checked against the file and the cache's
// order after it, front first: a recycled buffer must hold only its new
// block (never bytes or a size left from the old one), also when it held the
// block cut by the read limit before or holds it now.
TEST(WriteCollector, EvictedBlocksAreRecycledWithoutStaleBytes) {
    constexpr uint32_t kBlock = 512;
    constexpr uint64_t kLimit = 5 * kBlock + 100;  // block 5 holds 100 bytes
    struct TStep {
        const char* what;
        uint64_t position;
        uint32_t size;
        std::vector<uint64_t> cached;  // block numbers, front first
    };
    const TStep steps[] = {
        {"first block", 10, 20, {0}},
        {"read over the boundary of 1 and 2", 1 * kBlock + 500, 30, {2, 1, 0}},
        {"hit moves 0 to the front", 0, kBlock, {0, 2, 1}},
        {"3 and 4 evict 1, then 2", 3 * kBlock + 256, kBlock, {4, 3, 0}},
        {"evicted 1 read again", 1 * kBlock, 16, {1, 4, 3}},
        {"block cut by the limit", 5 * kBlock + 50, 100, {5, 1, 4}},
        {"hits over the boundary of 4 and the cut 5", 4 * kBlock + 500, 40, {5, 4, 1}},
        {"three blocks in one read", 2 * kBlock + 100, 1000, {4, 3, 2}},
        {"cut block loaded into a full block's memory", 5 * kBlock, 200, {5, 4, 3}},
        {"0 evicts 3", 0, kBlock, {0, 5, 4}},
        {"1 evicts 4", 1 * kBlock, kBlock, {1, 0, 5}},
        {"2 evicts the cut 5", 2 * kBlock, kBlock, {2, 1, 0}},
        {"3 loaded into the cut block's memory", 3 * kBlock, kBlock, {3, 2, 1}},
        {"last byte before the limit", kLimit - 1, 10, {5, 3, 2}},
    };
    CTempDir dir;
    const auto file = Pattern(6 * kBlock, 3);
    WriteAll(dir.Native("v.bin"), file);
    TNativeFile handle(dir.Path(u"v.bin"));
    CFileWriteCollectorReadCache c;
    c.SetCacheProps(9, 3);
    c.OpenForReadByHandle(handle.Handle());
    c.SetReadMaxLimit(kLimit);
    for (const TStep& step : steps) {
        SCOPED_TRACE(step.what);
        std::vector<uint8_t> back(step.size, 0xEE);
        const uint64_t expected = std::min<uint64_t>(step.size, kLimit - step.position);
        ASSERT_EQ(c.ReadRandomly(step.position, back.data(), step.size), expected);
        EXPECT_TRUE(std::equal(back.begin(), back.begin() + expected, file.begin() + step.position));
        ASSERT_EQ(c.GetCachedBlockCount(), step.cached.size());
        for (size_t i = 0; i < step.cached.size(); ++i)
            EXPECT_EQ(c.GetCachedBlockPos(i), step.cached[i] * kBlock) << "cache slot " << i;
    }
    c.Close();
}

// A read at a limit on a block boundary throws (one inside a block reads
// nothing); a borrowed handle stays open; without a limit the file's end
// stops the read.
TEST(WriteCollector, ReadLimitAndTheFileEndCutTheRead) {
    CTempDir dir;
    WriteAll(dir.Native("v.bin"), Pattern(4 * 512));
    TNativeFile file(dir.Path(u"v.bin"));
    std::vector<uint8_t> back(2000);
    for (const uint64_t limit : {2 * 512 + 100, 2 * 512}) {
        CFileWriteCollectorReadCache c;
        c.SetCacheProps(9, 4);
        c.OpenForReadByHandle(file.Handle());
        c.SetReadMaxLimit(limit);
        if (limit % 512 == 0) {
            EXPECT_ANY_THROW(c.ReadRandomly(limit, back.data(), 1));
        } else {
            EXPECT_EQ(c.ReadRandomly(limit, back.data(), 1), 0u);
        }
        c.SetReadPos(limit - 50);
        EXPECT_ANY_THROW(c.ReadBuf(back.data(), 51));
        c.Close();
        int64_t size = 0;
        EXPECT_TRUE(platform::FileGetSize(file.Handle(), &size));
    }
    WriteAll(dir.Native("f.bin"), Pattern(100));
    TNativeFile shortFile(dir.Path(u"f.bin"));
    CFileWriteCollectorReadCache c;
    c.SetCacheProps(9, 2);
    c.OpenForReadByHandle(shortFile.Handle());
    EXPECT_EQ(c.ReadRandomly(0, back.data(), 2000), 100u);
    EXPECT_EQ(c.ReadRandomly(5000, back.data(), 10), 0u);
}

// A handle on /dev/full: the first block write fails, and Close still lets
// go of everything before it reports.
TEST(WriteCollector, FailedBlockWrite) {
    TNativeFile full(u"/dev/full", platform::kGenericWrite);
    if (!full.handle.IsValid()) GTEST_SKIP() << "no /dev/full";
    const auto data = Pattern(600);
    {
        CFileWriteCollectorReadCache c;
        c.SetCacheProps(9, 2);
        c.OpenForWriteByHandle(full.Handle());
        c.WriteSequentially(data.data(), 512);
        EXPECT_CEXC(c.WriteSequentially(data.data(), 1),
                    EXPECT_EQ(e.GetCode(), NormaliseCode(platform::kErrDiskFull)));
    }
    CFileWriteCollectorReadCache c;
    c.OpenForWriteByHandle(full.Handle());
    c.WriteSequentially(data.data(), 10);
    EXPECT_ANY_THROW(c.Close());
    EXPECT_FALSE(c.IsOpen());
}

}  // namespace
