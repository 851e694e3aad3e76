// The read-ahead's plan of the $MFT: only blocks that hold records in use,
// each once, in record order; sparse runs and records outside the runs left
// out; a record split over two runs adds both blocks; the volume's end cuts.
#include <gtest/gtest.h>

#include <set>

#include "ntfs/mft_read_plan.h"

using indexer::fast_ntfs_indexer::PlanMftBlocks;
using indexer::fast_ntfs_indexer::TBlockDescription;

namespace {

std::vector<std::pair<uint64_t, uint32_t>> Plan(uint64_t volumeSize) {
    // 512-byte clusters, 1024-byte records, 8 KiB blocks. VCN 0-31 (records
    // 0-15), 32-33 sparse (record 16), 34 at 0x1FE00 and 35-99 at 0x30000:
    // record 17 is split between the last two.
    const indexer::fast_ntfs_indexer::TBlockVector runs = {
        {0, 31, 0x10000, 32 * 512, false},
        {32, 33, 0, 2 * 512, true},
        {34, 34, 0x1FE00, 512, false},
        {35, 99, 0x30000, 65 * 512, false},
    };
    const std::set<uint64_t> inUse = {0, 3, 16, 17, 18, 20, 40, 60};
    std::vector<std::pair<uint64_t, uint32_t>> out;
    for (const auto& b : PlanMftBlocks(runs, 512, 1024, 16, 64, [&](uint64_t r) { return inUse.count(r) > 0; },
                                       8192, volumeSize))
        out.emplace_back(b.Pos, b.Size);
    return out;
}

TEST(MftReadPlan, BlocksOfRecordsInUseOnceEachInRecordOrder) {
    // 17: 0x1FE00 (block 0x1E000) and 0x30000; 18 and 20 in 0x30000 again;
    // 40 at 0x35A00 (block 0x34000), cut at the volume's end; 60 lies
    // outside the runs; records below 16 are not the main loop's.
    using V = std::vector<std::pair<uint64_t, uint32_t>>;
    EXPECT_EQ(Plan(0x35000), (V{{0x1E000, 8192}, {0x30000, 8192}, {0x34000, 0x1000}}));
    EXPECT_EQ(Plan(0x34000), (V{{0x1E000, 8192}, {0x30000, 8192}}));
}

}  // namespace
