#include "ntfs/ntfs_format.h"

#include "base/format.h"

namespace indexer::fast_ntfs_indexer {

void ThrowCorrupt(uint64_t frn, std::u16string_view what) {
    throw CExc(u"File record FRN=0x%1 is corrupted: %2", util::Hex16(frn), what);
}

void ThrowCorrupt(uint64_t frn, std::u16string_view what, std::u16string_view a1) {
    ThrowCorrupt(frn, FormatMessageArgs(what, {a1}));
}

void ThrowCorrupt(uint64_t frn, std::u16string_view what, std::u16string_view a1,
                  std::u16string_view a2) {
    ThrowCorrupt(frn, FormatMessageArgs(what, {a1, a2}));
}

std::u16string HexDigits(uint64_t value, int digits) {
    static const char16_t kDigits[] = u"0123456789abcdef";
    char16_t text[16];
    int n = 0;
    do {
        text[n++] = kDigits[value & 0xF];
        value >>= 4;
    } while (value || n < digits);
    std::u16string result;
    while (n) result.push_back(text[--n]);
    return result;
}

std::u16string HexOff(uint64_t value) { return u"0x" + HexDigits(value); }

TFixupResult ApplyFixups(uint8_t* buffer, size_t size, size_t usaOffset, uint32_t count) {
    TFixupResult result;
    if (count <= 1) return result;
    // The array and the last fix-up place must both lie in the buffer.
    if (usaOffset > size || (size - usaOffset) / 2 < count || (count - 1) > size / kFixupStride) {
        result.Status = TFixupResult::OutOfBounds;
        return result;
    }
    const uint8_t* usa = buffer + usaOffset;
    const uint16_t check = Le16(usa);
    for (uint32_t i = 1; i < count; ++i) {
        uint8_t* place = buffer + i * kFixupStride - 2;
        const uint16_t found = Le16(place);
        if (found != check) {
            result.Status = TFixupResult::Mismatch;
            result.Sector = i - 1;
            result.Found = found;
            result.Expected = check;
            return result;
        }
        place[0] = usa[2 * i];
        place[1] = usa[2 * i + 1];
    }
    return result;
}

void CheckRecordHeader(const uint8_t* record, size_t size, uint64_t frn) {
    if (size < kRecHeaderSize) ThrowCorrupt(frn, u"the record buffer of %1 bytes is too small", HexOff(size));
    const size_t first = Le16(record + kRecFirstAttribute);
    if (first < kRecHeaderSize || first >= size)
        ThrowCorrupt(frn, u"first attribute offset %1 lies outside the record", HexOff(first));
}

CAttrHeader CAttrHeader::At(const uint8_t* record, size_t recordSize, size_t offset, uint64_t frn) {
    if (offset > recordSize || recordSize - offset < kAttrCommonSize)
        ThrowCorrupt(frn, u"attribute header at offset %1 passes the record's end", HexOff(offset));
    const uint8_t* p = record + offset;
    const uint16_t length = Le16(p + kAttrLength);
    if (length == 0)
        ThrowCorrupt(frn, u"attribute at offset %1 has length 0", HexOff(offset));
    if (length < kAttrCommonSize)
        ThrowCorrupt(frn, u"attribute at offset %1 has length %2, shorter than its header",
                     HexOff(offset), HexOff(length));
    if (length > recordSize - offset)
        ThrowCorrupt(frn, u"attribute at offset %1 of length %2 passes the record's end",
                     HexOff(offset), HexOff(length));
    return CAttrHeader(p, length, frn, static_cast<uint32_t>(offset));
}

const uint8_t* CAttrHeader::NameBytes() const {
    const size_t offset = Le16(m_P + kAttrNameOffset);
    const size_t bytes = size_t{NameLength()} * 2;
    if (offset > m_Length || m_Length - offset < bytes)
        ThrowCorrupt(m_Frn, u"name of the attribute at offset %1 lies outside the attribute",
                     HexOff(m_Offset));
    return m_P + offset;
}

std::u16string CAttrHeader::Name() const {
    const uint8_t* bytes = NameBytes();
    std::u16string name(NameLength(), u'\0');
    for (size_t i = 0; i < name.size(); ++i) name[i] = static_cast<char16_t>(Le16(bytes + 2 * i));
    return name;
}

void CAttrHeader::_NeedResident() const {
    if (m_Length < kAttrResidentSize)
        ThrowCorrupt(m_Frn, u"resident attribute at offset %1 is shorter than its header",
                     HexOff(m_Offset));
}

void CAttrHeader::_NeedNonResident() const {
    if (m_Length < kAttrNonResidentSize)
        ThrowCorrupt(m_Frn, u"non-resident attribute at offset %1 is shorter than its header",
                     HexOff(m_Offset));
}

uint32_t CAttrHeader::ValueLength() const {
    _NeedResident();
    return Le32(m_P + kAttrValueLength);
}

uint16_t CAttrHeader::ValueOffset() const {
    _NeedResident();
    return Le16(m_P + kAttrValueOffset);
}

const uint8_t* CAttrHeader::Value() const {
    const size_t offset = ValueOffset();
    const size_t length = ValueLength();
    if (offset > m_Length || m_Length - offset < length)
        ThrowCorrupt(m_Frn, u"value of the attribute at offset %1 lies outside the attribute",
                     HexOff(m_Offset));
    return m_P + offset;
}

size_t CAttrHeader::BytesFromValue() const {
    Value();
    return m_Length - ValueOffset();
}

uint64_t CAttrHeader::LowestVcn() const {
    _NeedNonResident();
    return Le64(m_P + kAttrLowestVcn);
}

uint16_t CAttrHeader::MappingPairsOffset() const {
    _NeedNonResident();
    return Le16(m_P + kAttrMappingPairs);
}

uint64_t CAttrHeader::AllocatedLength() const {
    _NeedNonResident();
    return Le64(m_P + kAttrAllocatedLength);
}

uint64_t CAttrHeader::FileSize() const {
    _NeedNonResident();
    return Le64(m_P + kAttrFileSize);
}

uint64_t CAttrHeader::ValidDataLength() const {
    _NeedNonResident();
    return Le64(m_P + kAttrValidDataLength);
}

}  // namespace indexer::fast_ntfs_indexer
