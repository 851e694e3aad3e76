#include "ntfs/run_list.h"

#include <algorithm>

namespace indexer::fast_ntfs_indexer {

namespace {

// Cluster counts, VCNs and LCNs at or above this are nonsense on any volume
// (NTFS itself stops at 2^32 clusters); refusing them keeps every product
// with a cluster size of at most kMaxBytesPerCluster inside 64 bits.
constexpr uint64_t kMaxClusterNumber = uint64_t{1} << 40;

}  // namespace

bool DecodeNextRun(const CAttrHeader& attr, size_t& position, uint64_t& clusters, int64_t& lcn,
                   bool& sparse) {
    const uint8_t* p = attr.Data();
    const size_t end = attr.Length();
    if (position >= end || p[position] == 0) return false;
    const uint8_t header = p[position];
    const size_t lengthSize = header & 0x07;
    const size_t offsetSize = (header & 0x70) >> 4;
    if (end - position - 1 < lengthSize + offsetSize)
        ThrowCorrupt(attr.Frn(), u"run at offset %1 of the attribute at offset %2 passes the attribute's end",
                     HexOff(position), HexOff(attr.OffsetInRecord()));
    const uint8_t* field = p + position + 1;
    uint64_t count = 0;
    for (size_t i = 0; i < lengthSize; ++i) count |= uint64_t{field[i]} << (8 * i);
    if (count == 0 || count >= kMaxClusterNumber)
        ThrowCorrupt(attr.Frn(), u"run at offset %1 of the attribute at offset %2 has a cluster count of 0 or beyond 2^40",
                     HexOff(position), HexOff(attr.OffsetInRecord()));
    int64_t newLcn = lcn;
    if (offsetSize) {
        uint64_t delta = 0;
        field += lengthSize;
        for (size_t i = 0; i < offsetSize; ++i) delta |= uint64_t{field[i]} << (8 * i);
        if (field[offsetSize - 1] & 0x80) delta |= ~uint64_t{0} << (8 * offsetSize);
        newLcn = static_cast<int64_t>(static_cast<uint64_t>(lcn) + delta);
        if (newLcn < 0 || static_cast<uint64_t>(newLcn) >= kMaxClusterNumber)
            ThrowCorrupt(attr.Frn(), u"run at offset %1 of the attribute at offset %2 points outside the volume",
                         HexOff(position), HexOff(attr.OffsetInRecord()));
    }
    clusters = count;
    lcn = newLcn;
    sparse = offsetSize == 0;
    position += 1 + lengthSize + offsetSize;
    return true;
}

uint64_t DecodeRunList(const CAttrHeader& attr, uint32_t bytesPerCluster, TBlockVector& blocks) {
    size_t position = attr.MappingPairsOffset();
    if (position > attr.Length())
        ThrowCorrupt(attr.Frn(), u"mapping pairs of the attribute at offset %1 start outside it",
                     HexOff(attr.OffsetInRecord()));
    uint64_t vcn = blocks.empty() ? 0 : blocks.back().LastVcn + 1;
    int64_t lcn = 0;
    uint64_t clusters = 0;
    bool sparse = false;
    while (DecodeNextRun(attr, position, clusters, lcn, sparse)) {
        if (vcn + clusters >= kMaxClusterNumber)
            ThrowCorrupt(attr.Frn(), u"runs of the attribute at offset %1 pass VCN %2",
                         HexOff(attr.OffsetInRecord()), HexOff(kMaxClusterNumber));
        TBlockDescription block;
        block.FirstVcn = vcn;
        block.DiskOffset = static_cast<uint64_t>(lcn) * bytesPerCluster;
        block.ByteLength = clusters * bytesPerCluster;
        block.Sparse = sparse;
        vcn += clusters;
        block.LastVcn = vcn - 1;
        blocks.push_back(block);
    }
    return vcn;
}

void SortBlocks(TBlockVector& blocks) {
    std::stable_sort(blocks.begin(), blocks.end(),
                     [](const TBlockDescription& a, const TBlockDescription& b) {
                         return a.FirstVcn < b.FirstVcn;
                     });
}

bool FindBlockByVcn(const TBlockVector& blocks, uint64_t vcn, const TBlockDescription*& block) {
    size_t low = 0, high = blocks.size();
    while (low < high) {
        const size_t mid = low + (high - low) / 2;
        const TBlockDescription& b = blocks[mid];
        if (vcn < b.FirstVcn) {
            high = mid;
        } else if (vcn <= b.LastVcn) {
            block = &b;
            return true;
        } else {
            low = mid + 1;
        }
    }
    block = nullptr;
    return false;
}

}  // namespace indexer::fast_ntfs_indexer
