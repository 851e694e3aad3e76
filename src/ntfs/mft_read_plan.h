#pragma once
// The blocks of the volume that the main loop's records lie in, in the
// order the loop reads them: the plan of the $MFT's read-ahead.

#include <cstdint>
#include <functional>
#include <vector>

#include "ntfs/run_list.h"
#include "store/block_read_ahead.h"

namespace indexer::fast_ntfs_indexer {

// The blocks of `blockSize` bytes (at multiples of it on the volume) that
// hold the records from `fromRecord` to `recordCount` that `inUse` marks,
// each block once, in record order; a block that holds no record in use is
// left out, and so are sparse runs and records outside the runs. A block is
// cut at `volumeSize`, and one at or past it is left out.
std::vector<CBlockReadAhead::TPlannedBlock> PlanMftBlocks(const TBlockVector& runs, uint32_t bytesPerCluster,
                                                          uint32_t recordSize, uint64_t fromRecord,
                                                          uint64_t recordCount,
                                                          const std::function<bool(uint64_t)>& inUse,
                                                          uint32_t blockSize, uint64_t volumeSize);

}  // namespace indexer::fast_ntfs_indexer
