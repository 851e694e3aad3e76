#pragma once
// The on-disk structures of NTFS that the raw reader knows, and checked views
// of them. The layouts are described in docs/ntfs-structures.md; the offsets
// live here and nowhere else.
//
// Nothing read from a volume is trusted: every view checks each offset and
// length against the buffer that holds it before it reads, and a structure
// that does not fit fails with a CExc naming the file record number and what
// was wrong ("File record FRN=0x... is corrupted: ..."). All values are
// little-endian and may be unaligned.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "base/exc.h"

namespace indexer::fast_ntfs_indexer {

inline uint16_t Le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
inline uint32_t Le32(const uint8_t* p) {
    return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
}
inline uint64_t Le64(const uint8_t* p) { return uint64_t{Le32(p)} | (uint64_t{Le32(p + 4)} << 32); }

inline constexpr uint64_t kFrnMask = 0x0000FFFFFFFFFFFFull;  // record number of a reference

// Attribute types.
inline constexpr uint32_t kAttrStandardInformation = 0x10;
inline constexpr uint32_t kAttrAttributeList = 0x20;
inline constexpr uint32_t kAttrFileName = 0x30;
inline constexpr uint32_t kAttrData = 0x80;
inline constexpr uint32_t kAttrIndexRoot = 0x90;
inline constexpr uint32_t kAttrIndexAllocation = 0xA0;
inline constexpr uint32_t kAttrBitmap = 0xB0;
inline constexpr uint32_t kAttrReparsePoint = 0xC0;
inline constexpr uint32_t kAttrEnd = 0xFFFFFFFF;

// File record header.
inline constexpr size_t kRecSignature = 0x00;      // "FILE"
inline constexpr size_t kRecUsaOffset = 0x04;      // 16 bits
inline constexpr size_t kRecUsaCount = 0x06;       // 16 bits, check word included
inline constexpr size_t kRecFirstAttribute = 0x14; // 16 bits
inline constexpr size_t kRecFlags = 0x16;          // 16 bits; 2 = directory
inline constexpr size_t kRecBytesInUse = 0x18;     // 32 bits
inline constexpr size_t kRecHeaderSize = 0x1C;     // what the reader needs of the header
inline constexpr uint16_t kRecFlagDirectory = 0x0002;

// Attribute header.
inline constexpr size_t kAttrType = 0x00;
inline constexpr size_t kAttrLength = 0x04;        // only the low 16 bits are used
inline constexpr size_t kAttrNonResident = 0x08;
inline constexpr size_t kAttrNameLength = 0x09;    // characters
inline constexpr size_t kAttrNameOffset = 0x0A;
inline constexpr size_t kAttrFlags = 0x0C;       // 16 bits
inline constexpr uint16_t kAttrFlagSparse = 0x8000;
inline constexpr size_t kAttrInstance = 0x0E;
inline constexpr size_t kAttrCommonSize = 0x10;
inline constexpr size_t kAttrValueLength = 0x10;   // resident, 32 bits
inline constexpr size_t kAttrValueOffset = 0x14;   // resident, 16 bits
inline constexpr size_t kAttrResidentSize = 0x18;
inline constexpr size_t kAttrLowestVcn = 0x10;     // non-resident, 64 bits
inline constexpr size_t kAttrMappingPairs = 0x20;  // non-resident, 16 bits
inline constexpr size_t kAttrAllocatedLength = 0x28;
inline constexpr size_t kAttrFileSize = 0x30;
inline constexpr size_t kAttrValidDataLength = 0x38;
inline constexpr size_t kAttrNonResidentSize = 0x40;

// $ATTRIBUTE_LIST entry.
inline constexpr size_t kAlType = 0x00;
inline constexpr size_t kAlLength = 0x04;
inline constexpr size_t kAlNameLength = 0x06;     // 8 bits, characters
inline constexpr size_t kAlLowestVcn = 0x08;
inline constexpr size_t kAlReference = 0x10;
inline constexpr size_t kAlInstance = 0x18;       // 16 bits
inline constexpr size_t kAlEntryMinSize = 0x18;

// $STANDARD_INFORMATION value.
inline constexpr size_t kSiCreationTime = 0x00;
inline constexpr size_t kSiLastWriteTime = 0x08;
inline constexpr size_t kSiMftChangeTime = 0x10;
inline constexpr size_t kSiLastAccessTime = 0x18;
inline constexpr size_t kSiFileAttributes = 0x20;
inline constexpr size_t kSiSecurityId = 0x34;

// File record header, past what every reader needs: the base record
// reference of an extension record (48-bit number and 16-bit sequence).
inline constexpr size_t kRecBaseReference = 0x20;
inline constexpr size_t kRecMinHeaderSize = 0x30;

// $FILE_NAME value.
inline constexpr size_t kFnParent = 0x00;
inline constexpr size_t kFnNameLength = 0x40;
inline constexpr size_t kFnNamespace = 0x41;
inline constexpr size_t kFnName = 0x42;

// $INDEX_ROOT value, index block, index entry.
inline constexpr size_t kIrEntriesOffset = 0x10;   // node header inside the root value
inline constexpr size_t kIbEntriesOffset = 0x18;   // node header inside an index block
inline constexpr size_t kIbUsaOffset = 0x28;       // the array's fixed place in a block
inline constexpr size_t kIbUsaCount = 0x06;
inline constexpr size_t kIeReference = 0x00;
inline constexpr size_t kIeLength = 0x08;
inline constexpr size_t kIeKeyLength = 0x0A;
inline constexpr size_t kIeFlags = 0x0C;
inline constexpr size_t kIeKey = 0x10;
inline constexpr uint16_t kIeHasChild = 0x0001;
inline constexpr uint16_t kIeLast = 0x0002;
inline constexpr uint16_t kIePointerForm = 0x8000;

// The fix-up stride: one check word at the end of every 512 bytes, whatever
// the volume's sector size.
inline constexpr size_t kFixupStride = 512;

// Throws "File record FRN=0x<frn> is corrupted: <what>".
[[noreturn]] void ThrowCorrupt(uint64_t frn, std::u16string_view what);
// The same with one or two %-arguments formatted into `what`.
[[noreturn]] void ThrowCorrupt(uint64_t frn, std::u16string_view what, std::u16string_view a1);
[[noreturn]] void ThrowCorrupt(uint64_t frn, std::u16string_view what, std::u16string_view a1,
                               std::u16string_view a2);

// "0x" and the value in plain lower-case hexadecimal, for offsets and sizes
// in corruption messages.
std::u16string HexOff(uint64_t value);
// The value in lower-case hexadecimal, at least `digits` digits ("%x",
// "%4.4x"), without a prefix.
std::u16string HexDigits(uint64_t value, int digits = 1);

// The outcome of applying an update sequence array.
struct TFixupResult {
    enum EStatus { Ok, OutOfBounds, Mismatch } Status = Ok;
    uint32_t Sector = 0;    // Mismatch: the index of the sector (i - 1)
    uint16_t Found = 0;     // Mismatch: the word at the sector's end
    uint16_t Expected = 0;  // Mismatch: element 0 of the array
};

// Applies the update sequence array of `count` elements at `usaOffset` to a
// multi-sector structure of `size` bytes: for i from 1 below count, the word
// at i * 512 - 2 must equal element 0 and is replaced by element i. Stops at
// the first mismatch (the sectors before it stay fixed). OutOfBounds, with
// nothing changed, when the array or a fix-up place lies outside the buffer.
TFixupResult ApplyFixups(uint8_t* buffer, size_t size, size_t usaOffset, uint32_t count);

// A checked view of one attribute header inside a file record. Creating it
// checks the common part (16 bytes) and the length; the form-specific
// accessors check their own fields on first use. The view does not own the
// bytes, which must outlive it.
class CAttrHeader {
public:
    // The attribute at `offset` of a record of `recordSize` bytes. Fails when
    // its 16-byte common part or its length leaves the record, or the length
    // is below 16 (a length of 0 would never advance a walk).
    static CAttrHeader At(const uint8_t* record, size_t recordSize, size_t offset, uint64_t frn);

    uint32_t Type() const { return Le32(m_P + kAttrType); }
    // The low 16 bits of the length field: the step to the next attribute.
    uint16_t Length() const { return m_Length; }
    uint8_t NonResidentFlag() const { return m_P[kAttrNonResident]; }
    bool IsNonResident() const { return NonResidentFlag() != 0; }
    uint8_t NameLength() const { return m_P[kAttrNameLength]; }
    uint16_t Instance() const { return Le16(m_P + kAttrInstance); }
    // The name's bytes (2 per character), checked to lie in the attribute.
    const uint8_t* NameBytes() const;
    std::u16string Name() const;

    // Resident form. REQUIRES: resident (else the reads are of other fields).
    uint32_t ValueLength() const;
    uint16_t ValueOffset() const;
    // The value, checked: offset plus length inside the attribute.
    const uint8_t* Value() const;
    // Bytes of the attribute from the value's start to the attribute's end
    // (what a reader may touch past a short value).
    size_t BytesFromValue() const;

    // Non-resident form: each accessor checks the 64-byte header.
    uint64_t LowestVcn() const;
    uint16_t MappingPairsOffset() const;
    uint64_t AllocatedLength() const;
    uint64_t FileSize() const;
    uint64_t ValidDataLength() const;

    const uint8_t* Data() const { return m_P; }
    uint64_t Frn() const { return m_Frn; }
    uint32_t OffsetInRecord() const { return m_Offset; }

private:
    CAttrHeader(const uint8_t* p, uint16_t length, uint64_t frn, uint32_t offset)
        : m_P(p), m_Length(length), m_Frn(frn), m_Offset(offset) {}
    void _NeedNonResident() const;
    void _NeedResident() const;

    const uint8_t* m_P;
    uint16_t m_Length;
    uint64_t m_Frn;
    uint32_t m_Offset;
};

// The `limit` of a walk that only the end marker ends.
inline constexpr size_t kNoLimit = static_cast<size_t>(-1);

// Walks the attributes of a file record of `size` bytes from the first
// attribute offset, calling fn(const CAttrHeader&) for each until the end
// marker 0xFFFFFFFF. With a `limit` the walk also ends, quietly, when the
// offset reaches it (record 0 is bounded by its bytes in use); with kNoLimit
// a record without an end marker fails. fn returns false to stop.
template <class F>
void ForEachAttribute(const uint8_t* record, size_t size, uint64_t frn, size_t limit, F&& fn);

// Checks what every walk needs of a file record header: size and first
// attribute offset inside the record.
void CheckRecordHeader(const uint8_t* record, size_t size, uint64_t frn);

template <class F>
void ForEachAttribute(const uint8_t* record, size_t size, uint64_t frn, size_t limit, F&& fn) {
    CheckRecordHeader(record, size, frn);
    size_t offset = Le16(record + kRecFirstAttribute);
    const size_t bound = limit < size ? limit : size;
    while (offset < bound) {
        if (size - offset < 4) break;
        if (Le32(record + offset) == kAttrEnd) return;
        CAttrHeader attr = CAttrHeader::At(record, size, offset, frn);
        if (!fn(attr)) return;
        offset += attr.Length();
    }
    if (limit == kNoLimit) ThrowCorrupt(frn, u"the attribute list of the record has no end marker");
}

}  // namespace indexer::fast_ntfs_indexer
