// Arbitrary bytes as the mapping pairs of a non-resident attribute (the
// first byte picks the cluster size): decoded twice into one vector, as the
// extents of one attribute are, sorted, and searched. Decoding must end with
// a CExc or runs that each cover at least one cluster.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "base/exc.h"
#include "ntfs/run_list.h"

using namespace indexer::fast_ntfs_indexer;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 0x10000 - kAttrNonResidentSize - 8) return 0;
    const uint32_t bytesPerCluster = 512u << (data[0] % 15);  // 512 bytes to 8 MiB
    std::vector<uint8_t> record(kAttrNonResidentSize + size - 1 + 8, 0);
    const uint16_t length = static_cast<uint16_t>(record.size() - 8);
    record[kAttrType] = kAttrData & 0xFF;
    record[kAttrLength] = length & 0xFF;
    record[kAttrLength + 1] = length >> 8;
    record[kAttrNonResident] = 1;
    record[kAttrMappingPairs] = kAttrNonResidentSize;
    std::copy(data + 1, data + size, record.begin() + kAttrNonResidentSize);
    // The attribute's end marker behind it.
    for (size_t i = 0; i < 4; ++i) record[length + i] = 0xFF;
    try {
        const CAttrHeader attr = CAttrHeader::At(record.data(), record.size(), 0, 5);
        TBlockVector blocks;
        const uint64_t end = DecodeRunList(attr, bytesPerCluster, blocks);
        DecodeRunList(attr, bytesPerCluster, blocks);
        SortBlocks(blocks);
        const TBlockDescription* block = nullptr;
        for (const auto& b : blocks) {
            if (b.LastVcn < b.FirstVcn || b.ByteLength == 0) std::abort();
            if (!FindBlockByVcn(blocks, b.FirstVcn, block) || !FindBlockByVcn(blocks, b.LastVcn, block)) std::abort();
        }
        FindBlockByVcn(blocks, end, block);
        FindBlockByVcn(blocks, end * 2 + 1, block);
    } catch (const CExc&) {
    }
    return 0;
}
