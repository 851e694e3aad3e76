#pragma once
// Data runs of non-resident attributes: the mapping pairs decoder and the
// sorted run vector that maps a VCN to a place on the volume.
//
// A mapping pairs area is a sequence of runs, each a header byte (low three
// bits: size of the cluster count, bits 4-6: size of the LCN delta), the
// count (unsigned) and the delta (signed, relative to the previous run's
// LCN); a header byte of 0 ends it. A delta of size 0 marks a sparse run.
//
// Decoding checks every run against the attribute that holds it: a run that
// passes the attribute's end, a run of zero clusters, a negative LCN, or a
// VCN / byte offset that does not fit in 64 bits fails with a CExc naming the
// file record. Zero-length runs are never stored, so every stored block
// covers at least one cluster.

#include <cstdint>
#include <vector>

#include "ntfs/ntfs_format.h"

namespace indexer::fast_ntfs_indexer {

// One decoded run.
struct TBlockDescription {
    uint64_t FirstVcn = 0;
    uint64_t LastVcn = 0;     // inclusive
    uint64_t DiskOffset = 0;  // LCN times bytes per cluster: a byte offset on the volume
    uint64_t ByteLength = 0;  // cluster count times bytes per cluster
    bool Sparse = false;
};

using TBlockVector = std::vector<TBlockDescription>;

// The largest cluster the reader accepts (NTFS goes up to 2 MiB).
inline constexpr uint32_t kMaxBytesPerCluster = uint32_t{1} << 23;

// One step: decodes the run whose header byte is at `position` of the
// attribute. Returns false, changing nothing, when that byte is 0 or the
// position is at the attribute's end; otherwise sets the cluster count, the
// new LCN (lcn plus the delta; unchanged for a sparse run) and sparse, moves
// the position behind the run, and returns true.
bool DecodeNextRun(const CAttrHeader& attr, size_t& position, uint64_t& clusters, int64_t& lcn,
                   bool& sparse);

// Appends the runs of a non-resident attribute to `blocks` and returns the
// VCN behind the last one. The VCNs continue those already in the vector
// (0 when it is empty), whatever the attribute's lowest VCN says, so that
// extents are placed in the order in which they arrive; the LCN starts at 0
// for each attribute. REQUIRES: 0 < bytesPerCluster <= kMaxBytesPerCluster.
uint64_t DecodeRunList(const CAttrHeader& attr, uint32_t bytesPerCluster, TBlockVector& blocks);

// Sorts ascending by FirstVcn.
void SortBlocks(TBlockVector& blocks);

// Binary search of a vector sorted by FirstVcn: true and the block that holds
// `vcn`, or false and null (also past the last block and in a hole between
// blocks).
bool FindBlockByVcn(const TBlockVector& blocks, uint64_t vcn, const TBlockDescription*& block);

}  // namespace indexer::fast_ntfs_indexer
