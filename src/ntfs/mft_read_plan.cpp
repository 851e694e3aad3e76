#include "ntfs/mft_read_plan.h"

#include <algorithm>
#include <unordered_set>

namespace indexer::fast_ntfs_indexer {

std::vector<CBlockReadAhead::TPlannedBlock> PlanMftBlocks(const TBlockVector& runs, uint32_t bytesPerCluster,
                                                          uint32_t recordSize, uint64_t fromRecord,
                                                          uint64_t recordCount,
                                                          const std::function<bool(uint64_t)>& inUse,
                                                          uint32_t blockSize, uint64_t volumeSize) {
    std::vector<CBlockReadAhead::TPlannedBlock> plan;
    std::unordered_set<uint64_t> planned;
    const uint64_t mask = ~(uint64_t{blockSize} - 1);
    auto add = [&](uint64_t diskOffset) {
        const uint64_t block = diskOffset & mask;
        if (block >= volumeSize) return;
        if (!plan.empty() && plan.back().Pos == block) return;
        if (!planned.insert(block).second) return;
        plan.push_back({block, static_cast<uint32_t>(std::min<uint64_t>(blockSize, volumeSize - block))});
    };
    for (uint64_t record = fromRecord; record < recordCount; ++record) {
        if (!inUse(record)) continue;
        // A record may span clusters of two runs (clusters smaller than
        // records): every run it touches adds its blocks.
        uint64_t offset = record * recordSize;
        const uint64_t end = offset + recordSize;
        while (offset < end) {
            const TBlockDescription* run = nullptr;
            if (!FindBlockByVcn(runs, offset / bytesPerCluster, run)) break;
            const uint64_t inRun = offset - run->FirstVcn * bytesPerCluster;
            const uint64_t n = std::min<uint64_t>(run->ByteLength - inRun, end - offset);
            if (n == 0) break;  // runs that disagree with their VCNs: planned no further, never looped on
            if (!run->Sparse) {
                add(run->DiskOffset + inRun);
                add(run->DiskOffset + inRun + n - 1);
            }
            offset += n;
        }
    }
    return plan;
}

}  // namespace indexer::fast_ntfs_indexer
