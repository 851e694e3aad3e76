// The read-ahead of a block cache: blocks served in plan order from requests
// in flight, holes and jumps, failed and short requests left to the cache,
// and reads through the cache equal to the file whatever the plan; the
// alignment rule of unbuffered reads. Each case runs with the asynchronous
// queue (io_uring, overlapped ReadFile) and with the synchronous one.
#include <gtest/gtest.h>

#include <cstring>

#include "store/block_read_ahead.h"
#include "store/store_test_util.h"
#include "store/write_collector.h"

using indexer::CBlockReadAhead;
using indexer::CFileWriteCollectorReadCache;
using write_collector_types::CBuffer;
using namespace store_testing;

namespace {

constexpr uint32_t kBlock = 8192;
constexpr uint64_t kFileSize = 12 * kBlock + 1000;  // 12 whole blocks and a short one

class BlockReadAhead : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        m_Bytes = Pattern(kFileSize);
        WriteAll(m_Dir.Native("f.bin"), m_Bytes);
        // Opened as a volume read ahead is: for overlapped I/O (Windows).
        m_File = platform::FileOpen(m_Dir.Path(u"f.bin"), platform::kGenericRead, platform::kShareRead,
                                    platform::kOpenExisting, platform::kFlagOverlapped);
        ASSERT_TRUE(m_File.IsValid());
    }
    CBlockReadAhead::TTuning Tuning(uint32_t depth, uint32_t blocksPerRequest) const {
        CBlockReadAhead::TTuning t;
        t.depth = depth;
        t.requestBytes = blocksPerRequest * kBlock;
        t.async = GetParam();
        return t;
    }
    static std::vector<CBlockReadAhead::TPlannedBlock> Plan(std::initializer_list<uint64_t> blocks) {
        std::vector<CBlockReadAhead::TPlannedBlock> plan;
        for (uint64_t b : blocks)
            plan.push_back({b * kBlock, static_cast<uint32_t>(std::min<uint64_t>(kBlock, kFileSize - b * kBlock))});
        return plan;
    }
    // Takes block b; true when served, and then with the file's bytes.
    bool Take(CBlockReadAhead& ra, uint64_t b, uint32_t size = kBlock) {
        auto block = std::make_unique<CBuffer>(kBlock, 0);
        if (!ra.Take(b * kBlock, size, block)) return false;
        EXPECT_EQ(block->FilePos(), b * kBlock);
        EXPECT_EQ(block->Used(), size);
        EXPECT_EQ(0, std::memcmp(block->Data(), m_Bytes.data() + b * kBlock, size)) << "block " << b;
        return true;
    }

    CTempDir m_Dir;
    std::vector<uint8_t> m_Bytes;
    platform::CHandle m_File;
};

TEST_P(BlockReadAhead, ServesThePlanInOrderAcrossHolesAndRequests) {
    // Three blocks a request, two requests in flight: 0-2 one request, 3 and
    // 5 apart (a hole), 6-8, 9, then the short last block.
    CBlockReadAhead ra(m_File.Get(), kBlock, 0, Plan({0, 1, 2, 3, 5, 6, 7, 8, 9, 12}), Tuning(2, 3));
    for (uint64_t b : {0, 1, 2, 3, 5, 6, 7, 8, 9}) EXPECT_TRUE(Take(ra, b));
    EXPECT_TRUE(Take(ra, 12, 1000));
    EXPECT_EQ(ra.GetRequestCount(), 5u);  // {0,1,2} {3} {5,6,7} {8,9} {12}
    EXPECT_EQ(ra.GetBytesRequested(), 9u * kBlock + 1000);
}

// Blocks never planned, skipped by a jump, taken already, of another size,
// or in a request that read short or failed are left to the cache.
TEST_P(BlockReadAhead, OnlyPlannedWholeBlocksAreServedOnce) {
    CBlockReadAhead ra(m_File.Get(), kBlock, 0, Plan({0, 1, 2, 3, 4, 5}), Tuning(4, 1));
    EXPECT_FALSE(Take(ra, 10));  // never planned
    EXPECT_TRUE(Take(ra, 2));    // a jump drops 0 and 1
    EXPECT_FALSE(Take(ra, 0));
    EXPECT_FALSE(Take(ra, 1));
    EXPECT_FALSE(Take(ra, 2));       // taken once only
    EXPECT_FALSE(Take(ra, 3, 100));  // another size than planned
    EXPECT_TRUE(Take(ra, 4));
    // Blocks 13 and 14 lie past the file's end: their request reads short.
    CBlockReadAhead past(m_File.Get(), kBlock, 0, Plan({11, 13, 14}), Tuning(2, 2));
    EXPECT_TRUE(Take(past, 11));
    EXPECT_FALSE(Take(past, 13, kBlock));
    EXPECT_FALSE(Take(past, 14, kBlock));
    // A handle that cannot be read fails every request.
    CBlockReadAhead bad(platform::NativeHandle{-1}, kBlock, 0, Plan({0, 1}), Tuning(2, 1));
    EXPECT_FALSE(Take(bad, 0));
}

TEST_P(BlockReadAhead, ReadsThroughTheCacheEqualTheFile) {
    // Block shift 13 = kBlock; the plan misses some blocks and holds one
    // twice, the cache keeps only two blocks: every byte must still come.
    CFileWriteCollectorReadCache cache;
    cache.SetCacheProps(13, 2);
    cache.OpenForReadByHandle(m_File.Get());
    cache.SetReadMaxLimit(kFileSize);
    cache.SetReadAhead(std::make_unique<CBlockReadAhead>(m_File.Get(), kBlock, 0,
                                                         Plan({1, 2, 4, 5, 6, 9, 10, 12}), Tuning(3, 2)));
    std::vector<uint8_t> back(kFileSize);
    for (uint64_t at = 0; at < kFileSize; at += 3000) {
        const uint32_t n = static_cast<uint32_t>(std::min<uint64_t>(3000, kFileSize - at));
        ASSERT_EQ(cache.ReadRandomly(at, back.data() + at, n), n);
    }
    EXPECT_EQ(back, m_Bytes);
    // The cache read itself only the blocks not planned: 0, 3, 7, 8, 11.
    EXPECT_EQ(cache.GetBytesRead(), 5u * kBlock);
    cache.Close();
}

INSTANTIATE_TEST_SUITE_P(Queues, BlockReadAhead, ::testing::Values(true, false),
                         [](const auto& info) { return info.param ? "asynchronous" : "synchronous"; });

TEST(CacheAlignment, UnalignedReadsFailBeforeTheSystemSeesThem) {
    CTempDir dir;
    const auto bytes = Pattern(3 * 4096 + 100);
    WriteAll(dir.Native("f.bin"), bytes);
    platform::CHandle file = platform::FileOpen(dir.Path(u"f.bin"), platform::kGenericRead, platform::kShareRead,
                                                platform::kOpenExisting, 0);
    // Blocks of 4096 on a 4096-byte sector: the short last block is read
    // rounded up and counted to the limit.
    CFileWriteCollectorReadCache ok;
    ok.SetCacheProps(12, 4);
    ok.SetReadAlignment(4096);
    ok.OpenForReadByHandle(file.Get());
    ok.SetReadMaxLimit(bytes.size());
    std::vector<uint8_t> back(bytes.size());
    ASSERT_EQ(ok.ReadRandomly(0, back.data(), static_cast<uint32_t>(back.size())), back.size());
    EXPECT_EQ(back, bytes);
    // Blocks of 2048 cannot be read from 4096-byte sectors: the second fails.
    CFileWriteCollectorReadCache bad;
    bad.SetCacheProps(11, 4);
    bad.SetReadAlignment(4096);
    bad.OpenForReadByHandle(file.Get());
    EXPECT_CEXC(bad.ReadRandomly(2048, back.data(), 16),
                EXPECT_NE(e.GetDescription().find(u"is not aligned to the sector size"), std::u16string::npos));
}

}  // namespace
