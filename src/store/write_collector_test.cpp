// The write collector and read cache: unflushed reads, block boundaries,
// eviction order, the read limit, the stop on a short block, failure texts, and a
// random differential run against a plain byte array.
#include <gtest/gtest.h>

#include <numeric>
#include <random>

#include "platform/errors.h"
#include "store/store_test_util.h"
#include "store/write_collector.h"

using indexer::CFileWriteCollectorReadCache;
using namespace store_testing;

namespace {

std::vector<uint8_t> Pattern(size_t size, uint8_t seed = 1) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + seed + i / 251);
    return bytes;
}

// A handle the test owns and lends to the collector.
struct TNativeFile {
    explicit TNativeFile(std::u16string_view path, uint32_t access = platform::kGenericRead,
                         uint32_t disposition = platform::kOpenExisting)
        : handle(platform::FileOpen(path, access, platform::kShareRead | platform::kShareWrite,
                                    disposition, platform::kAttrNormal)) {}
    platform::NativeHandle Handle() const { return handle.Get(); }
    platform::CHandle handle;
};

TEST(WriteCollector, UnflushedBytesAreReadFromMemory) {
    CTempDir dir;
    CFileWriteCollectorReadCache c;
    c.Open(dir.Path(u"e.bin"));
    c.Close();  // no writes: an empty file
    EXPECT_TRUE(std::filesystem::exists(dir.Native("e.bin")));
    EXPECT_FALSE(c.IsOpen());
    c.Open(dir.Path(u"w.bin"));
    const auto data = Pattern(10);
    c.WriteSequentially(data.data(), 10);
    std::vector<uint8_t> back(10);
    EXPECT_EQ(c.ReadRandomly(0, back.data(), 10), 10u);
    EXPECT_EQ(back, data);
    EXPECT_TRUE(ReadAll(dir.Native("w.bin")).empty());
    // Asking past the written bytes stops at them.
    std::vector<uint8_t> more(20);
    EXPECT_EQ(c.ReadRandomly(4, more.data(), 20), 6u);
    EXPECT_EQ(c.ReadRandomly(10, more.data(), 20), 0u);
    c.Close();
    EXPECT_EQ(ReadAll(dir.Native("w.bin")), data);
}

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

TEST(WriteCollector, TypedWritesAndReadsAreLittleEndian) {
    CTempDir dir;
    CFileWriteCollectorReadCache c;
    c.Open(dir.Path(u"t.bin"));
    c.WriteWord(0x0102);
    c.WriteDWord(0x03040506);
    c.WriteLongLong(0x0708090A0B0C0D0Eull);
    c.WriteDWord(2);
    c.WriteBuf(u"hi", 4);
    c.SetReadPos(2);
    EXPECT_EQ(c.ReadDWord(), 0x03040506u);
    EXPECT_EQ(c.ReadLongLong(), 0x0708090A0B0C0D0Eull);
    EXPECT_EQ(c.ReadString(), u"hi");
    EXPECT_EQ(c.GetReadPos(), 22u);
    EXPECT_ANY_THROW(c.ReadDWord());
    EXPECT_EQ(c.GetReadPos(), 22u);
    // A damaged string count fails without a huge allocation.
    c.WriteDWord(0xFFFFFFFFu);
    c.WriteBuf(u"abc", 6);
    c.SetReadPos(22);
    EXPECT_ANY_THROW(c.ReadString());
    c.Close();
    EXPECT_EQ(ReadAll(dir.Native("t.bin")),
              (std::vector<uint8_t>{2, 1, 6, 5, 4, 3, 0xE, 0xD, 0xC, 0xB, 0xA, 9, 8, 7, 2, 0, 0, 0, 'h', 0, 'i', 0,
                                    0xFF, 0xFF, 0xFF, 0xFF, 'a', 0, 'b', 0, 'c', 0}));
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

// Without a read handle the one block is written over again after each
// flush; the file still gets every byte in order.
TEST(WriteCollector, WriteOnlyReusesItsBlock) {
    CTempDir dir;
    TNativeFile out(dir.Path(u"o.bin"), platform::kGenericWrite, platform::kCreateAlways);
    const auto data = Pattern(5 * 512 + 77);
    CFileWriteCollectorReadCache c;
    c.SetCacheProps(9, 2);
    c.OpenForWriteByHandle(out.Handle());
    for (size_t at = 0; at < data.size(); at += 300)
        c.WriteSequentially(data.data() + at, static_cast<uint32_t>(std::min<size_t>(300, data.size() - at)));
    EXPECT_EQ(c.GetCachedBlockCount(), 0u);
    uint8_t b = 0;
    EXPECT_ANY_THROW(c.ReadRandomly(0, &b, 1));  // nothing to read from
    c.Close();
    EXPECT_EQ(ReadAll(dir.Native("o.bin")), data);
}

// The read limit and the file's end both end a read; the block cut by the
// limit stays cached, a read at the limit throws, a borrowed handle stays open.
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
        EXPECT_EQ(c.ReadRandomly(2 * 512 - 2, back.data(), 512), limit - (2 * 512 - 2));
        EXPECT_EQ(c.ReadRandomly(limit - 10, back.data(), 50), 10u);
        if (limit % 512 == 0) {
            EXPECT_ANY_THROW(c.ReadRandomly(limit, back.data(), 1));
        } else {
            EXPECT_EQ(c.ReadRandomly(limit, back.data(), 1), 0u);
        }
        c.SetReadPos(limit - 50);
        EXPECT_ANY_THROW(c.ReadBuf(back.data(), 51));
        EXPECT_CEXC(c.SetReadMaxLimit(0), EXPECT_EQ(e.GetCode(), kHrInvalidArg));
        EXPECT_ANY_THROW(c.WriteSequentially(back.data(), 1));  // nothing to write to
        c.Close();
        int64_t size = 0;
        EXPECT_TRUE(platform::FileGetSize(file.Handle(), &size));
    }
    // Without a limit the file's end stops the read.
    WriteAll(dir.Native("f.bin"), Pattern(100));
    TNativeFile shortFile(dir.Path(u"f.bin"));
    CFileWriteCollectorReadCache c;
    c.SetCacheProps(9, 2);
    c.OpenForReadByHandle(shortFile.Handle());
    EXPECT_EQ(c.ReadRandomly(0, back.data(), 2000), 100u);
    EXPECT_EQ(c.ReadRandomly(100, back.data(), 10), 0u);
    EXPECT_EQ(c.ReadRandomly(5000, back.data(), 10), 0u);
}

// Calls in the wrong state throw; a failed Open leaves the collector closed.
TEST(WriteCollector, StateFailures) {
    CTempDir dir;
    const std::u16string name = dir.Path(u"s.bin");
    CFileWriteCollectorReadCache c;
    uint8_t b = 0;
    EXPECT_ANY_THROW(c.Close());
    EXPECT_ANY_THROW(c.WriteSequentially(&b, 1));
    EXPECT_ANY_THROW(c.ReadRandomly(0, &b, 1));
    EXPECT_CEXC(c.SetCacheProps(8, 4), EXPECT_EQ(e.GetCode(), kHrInvalidArg));
    EXPECT_CEXC(c.SetCacheProps(13, 0), EXPECT_EQ(e.GetCode(), kHrInvalidArg));
    c.Open(name);
    EXPECT_ANY_THROW(c.SetCacheProps(13, 4));
    EXPECT_ANY_THROW(c.Open(name));
    EXPECT_ANY_THROW(c.OpenForWriteByHandle(1));
    EXPECT_ANY_THROW(c.OpenForReadByHandle(1));
    c.Close();
    EXPECT_ANY_THROW(c.Open(dir.Path(u"no/such.bin")));
    EXPECT_FALSE(c.IsOpen());
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

// Random writes, each followed by random reads anywhere in what was written
// so far, against a byte array: small blocks and a two-block cache make
// every road (write block, cache hit, eviction, reload from disk) common.
TEST(WriteCollector, RandomReadsWhileWritingMatchAnArray) {
    CTempDir dir;
    std::mt19937 rng(12345);
    for (uint32_t blocks : {1u, 2u, 5u}) {
        CFileWriteCollectorReadCache c;
        c.SetCacheProps(9, blocks);
        c.Open(dir.Path(u"rand.bin"));
        std::vector<uint8_t> oracle;
        for (int step = 0; step < 400; ++step) {
            const auto chunk = Pattern(rng() % 1300, static_cast<uint8_t>(step));
            c.WriteSequentially(chunk.data(), static_cast<uint32_t>(chunk.size()));
            oracle.insert(oracle.end(), chunk.begin(), chunk.end());
            for (int r = 0; r < 3 && !oracle.empty(); ++r) {
                const uint64_t pos = rng() % oracle.size();
                const uint32_t want = rng() % 1500;
                std::vector<uint8_t> back(want);
                const uint32_t got = c.ReadRandomly(pos, back.data(), want);
                ASSERT_EQ(got, std::min<uint64_t>(want, oracle.size() - pos)) << "pos " << pos;
                ASSERT_TRUE(std::equal(back.begin(), back.begin() + got, oracle.begin() + pos));
            }
            ASSERT_LE(c.GetCachedBlockCount(), blocks);
        }
        c.Close();
        ASSERT_EQ(ReadAll(dir.Native("rand.bin")), oracle);
    }
}

}  // namespace
