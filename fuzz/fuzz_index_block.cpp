// Arbitrary bytes as an index block of $INDEX_ALLOCATION (and as the value
// of an $INDEX_ROOT): signature and fix-ups, then the entry loop with a
// callback that reads keys as $I30 names, as the directory lookup does.
#include <cstdint>
#include <vector>

#include "ntfs/ntfs_index.h"

using namespace indexer::fast_ntfs_indexer;

namespace {

uint8_t ReadName(const TIndexEntryView& entry, uint64_t, uint64_t) {
    const uint8_t* key = entry.Key();
    if (entry.KeyLength() < kFnName) return 1;
    const size_t length = key[kFnNameLength];
    if ((entry.KeyLength() - kFnName) / 2 < length) return 1;
    volatile uint16_t sum = 0;
    for (size_t i = 0; i < length; ++i) sum = static_cast<uint16_t>(sum + Le16(key + kFnName + 2 * i));
    return entry.FileReference() == 0x4242 ? 0 : 1;
}

void Entries(const std::vector<uint8_t>& node, uint64_t header) {
    if (node.size() < header + 4) return;
    const uint64_t begin = header + uint64_t{Le32(node.data() + header)};
    size_t children = 0;
    CNtfsIndex::ParseEntries(node.data(), begin > node.size() ? node.size() + 1 : static_cast<size_t>(begin),
                             node.size(), 1, [&](uint64_t) { ++children; }, ReadName, 0, 0, u"fuzz");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<uint8_t> block(4096, 0);
    std::copy(data, data + std::min<size_t>(size, block.size()), block.begin());
    try {
        CNtfsIndex::_IndexAllocationUpdateSequence(block.data(), block.size(), 1);
        Entries(block, kIbEntriesOffset);
    } catch (const CExc&) {
    }
    try {
        Entries(std::vector<uint8_t>(data, data + size), kIrEntriesOffset);
    } catch (const CExc&) {
    }
    return 0;
}
