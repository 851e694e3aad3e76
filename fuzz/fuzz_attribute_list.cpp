// Arbitrary bytes as the value of a resident $ATTRIBUTE_LIST in an otherwise
// sound file record: the entries (their lengths, names, types and file
// references) must be walked to the end or fail with a CExc, never read
// outside the value or loop.
#include <cstdint>
#include <cstring>
#include <vector>

#include "ntfs/ntfs_format.h"
#include "ntfs/ntfs_volume.h"

using namespace indexer::fast_ntfs_indexer;

namespace {

constexpr size_t kRecordSize = 4096;
constexpr size_t kFirstAttribute = 0x38;

void Put16(uint8_t* p, uint16_t v) { std::memcpy(p, &v, 2); }
void Put32(uint8_t* p, uint32_t v) { std::memcpy(p, &v, 4); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Room for the record header, the attribute header and the end marker.
    const size_t room = kRecordSize - kFirstAttribute - kAttrResidentSize - 8;
    const size_t valueSize = std::min(size, room);
    const uint32_t length = static_cast<uint32_t>((kAttrResidentSize + valueSize + 7) & ~size_t{7});

    std::vector<uint8_t> record(kRecordSize, 0);
    uint8_t* r = record.data();
    std::memcpy(r, "FILE", 4);
    Put16(r + kRecUsaOffset, 0x30);
    Put16(r + kRecUsaCount, 0);  // no fix-ups: the bytes are taken as they are
    Put16(r + kRecFirstAttribute, kFirstAttribute);
    Put16(r + kRecFlags, 1);
    Put32(r + kRecBytesInUse, static_cast<uint32_t>(kFirstAttribute + length + 8));
    uint8_t* a = r + kFirstAttribute;
    Put32(a + kAttrType, kAttrAttributeList);
    Put32(a + kAttrLength, length);
    Put16(a + kAttrNameOffset, kAttrResidentSize);
    Put32(a + kAttrValueLength, static_cast<uint32_t>(valueSize));
    Put16(a + kAttrValueOffset, kAttrResidentSize);
    std::memcpy(a + kAttrResidentSize, data, valueSize);
    Put32(a + length, 0xFFFFFFFF);

    CNtfsVolume volume;  // never opened: a resident list is read from the record alone
    try {
        std::vector<uint64_t> extensions;
        ForEachAttribute(record.data(), record.size(), 1, kNoLimit, [&](const CAttrHeader& attr) {
            if (attr.Type() == kAttrAttributeList) volume._ProcessAttributeList(1, attr, extensions);
            return true;
        });
    } catch (const CExc&) {
    }
    return 0;
}
