// The attributes of one file record as the scanner reads them. Every offset
// and length comes from the volume and is checked against the bytes that
// hold it before it is read.

#include <algorithm>
#include <cstring>

#include "base/exc.h"
#include "base/format.h"
#include "legacy/scanner.h"
#include "diag/log.h"
#include "ntfs/ntfs_format.h"
#include "platform/errors.h"
#include "platform/reparse.h"

namespace mftlib {

namespace {

using namespace indexer::fast_ntfs_indexer;

// Reparse data (platform/reparse.h): the substitute name's offset and length
// in bytes, and where the path buffer begins for each kind.
constexpr uint32_t kRpSubstituteOffset = 8;
constexpr uint32_t kRpSubstituteLength = 10;
constexpr uint32_t kRpMountPointPathBuffer = 16;
constexpr uint32_t kRpSymlinkPathBuffer = 20;
// The end of the list entry's fields the scanner reads (the instance).
constexpr uint32_t kAlEntryNeeded = kAlInstance + 2;
// Values read whole (attribute lists, reparse data) and the clusters a run
// may start at: far beyond any sound volume, small enough to allocate.
constexpr uint64_t kMaxNonResidentValue = uint64_t{4} << 20;
constexpr uint64_t kMaxLcn = uint64_t{1} << 48;
constexpr uintptr_t kReadAlignment = 4096;

std::u16string Chars(const uint8_t* p, size_t count) {
    std::u16string text(count, u'\0');
    for (size_t i = 0; i < count; ++i) text[i] = static_cast<char16_t>(Le16(p + 2 * i));
    return text;
}

[[noreturn]] void ThrowDamaged(uint64_t frn, std::u16string_view what, uint32_t offset) {
    throw CExc(u"MFT record %1 is damaged: %2 (offset %3).", util::Hex16(frn), what, util::ToStrU32(offset));
}

}  // namespace

// Calls visit(offset, length) for each attribute of the record until the end
// marker or a length of 0; false from visit stops. An attribute that does
// not fit the record fails.
template <class Visit>
static void ForEachRecordAttribute(const uint8_t* record, uint32_t length, uint64_t frn, Visit visit) {
    uint32_t at = Le16(record + kRecFirstAttribute);
    while (true) {
        if (at > length || length - at < 4) ThrowDamaged(frn, u"the attributes run past the record", at);
        if (Le32(record + at) == kAttrEnd) return;
        if (length - at < 8) ThrowDamaged(frn, u"the attributes run past the record", at);
        const uint32_t attrLength = Le32(record + at + kAttrLength);
        if (attrLength == 0) return;
        if (attrLength < kAttrCommonSize || attrLength > length - at)
            ThrowDamaged(frn, u"an attribute length does not fit the record", at);
        if (!visit(at, attrLength)) return;
        at += attrLength;
    }
}

void CScanner::_ParseRecordAttributes(const uint8_t* record, uint32_t length, TScanFileInfo& info,
                                      uint64_t frn) {
    std::u16string listError, linkError;
    ForEachRecordAttribute(record, length, frn, [&](uint32_t at, uint32_t) {
        _ProcessAttribute(record, length, at, info, frn, listError, linkError);
        return true;
    });
    if (!listError.empty())
        GetLog().Warning(u"Cannot read attribute list for file %1. %2", info.Name, listError);
    if (!linkError.empty())
        GetLog().Warning(u"Cannot read symbolic link for file %1. %2", info.Name, linkError);
}

void CScanner::_ProcessAttribute(const uint8_t* record, uint32_t, uint32_t at, TScanFileInfo& info,
                                 uint64_t frn, std::u16string& listError, std::u16string& linkError) {
    const uint8_t* attr = record + at;
    const uint32_t attrLength = Le32(attr + kAttrLength);
    const uint32_t type = Le32(attr);
    const bool nonResident = attr[kAttrNonResident] != 0;
    if (nonResident && attrLength < kAttrNonResidentSize)
        ThrowDamaged(frn, u"a non-resident attribute header is cut short", at);
    // The value of a resident attribute, checked against the attribute.
    const uint8_t* value = nullptr;
    uint32_t valueLength = 0;
    if (!nonResident) {
        if (attrLength < kAttrResidentSize) ThrowDamaged(frn, u"a resident attribute header is cut short", at);
        valueLength = Le32(attr + kAttrValueLength);
        const uint32_t valueOffset = Le16(attr + kAttrValueOffset);
        if (valueOffset > attrLength || valueLength > attrLength - valueOffset)
            ThrowDamaged(frn, u"an attribute value runs past its attribute", at);
        value = attr + valueOffset;
    }
    switch (type) {
        case kAttrStandardInformation:
            if (value) {
                info.StandardInformation = value;
                info.StandardInformationLength = valueLength;
            }
            break;
        case kAttrAttributeList:
            try {
                if (value) {
                    _ParseAttributeList(value, valueLength, info, frn, linkError);
                } else {
                    CBuf<uint8_t> list;
                    const uint64_t realSize = Le64(attr + kAttrFileSize);
                    _ReadNonResident(attr, attrLength, list, realSize);
                    _ParseAttributeList(list.Get(), static_cast<uint32_t>(realSize), info, frn, linkError);
                }
            } catch (const CExc& e) {
                listError = e.GetDescription();
            }
            break;
        case kAttrFileName: {
            if (!value) break;
            if (valueLength < kFnName) ThrowDamaged(frn, u"a file name value is cut short", at);
            const uint8_t nameLength = value[kFnNameLength];
            if (kFnName + 2u * nameLength > valueLength)
                ThrowDamaged(frn, u"a file name runs past its value", at);
            const uint8_t nameSpace = value[kFnNamespace];
            if (!(nameSpace & 1) && (nameSpace & 2)) break;  // a DOS name alone
            info.Name = Chars(value + kFnName, nameLength);
            info.NameSpace = nameSpace;
            info.ParentFrn = Le64(value) & kFrnMask;
            break;
        }
        case kAttrData:
            if (attr[kAttrNameLength] != 0) break;
            if (value) info.Size = valueLength;
            else if (Le64(attr + kAttrLowestVcn) == 0) info.Size = Le64(attr + kAttrFileSize);
            break;
        case kAttrReparsePoint:
            try {
                if (value) {
                    _ReadReparseSubstitute(value, valueLength, info, frn);
                } else {
                    CBuf<uint8_t> data;
                    const uint64_t realSize = Le64(attr + kAttrFileSize);
                    _ReadNonResident(attr, attrLength, data, realSize);
                    _ReadReparseSubstitute(data.Get(), static_cast<uint32_t>(realSize), info, frn);
                }
            } catch (const CExc& e) {
                linkError = e.GetDescription();
            }
            break;
        default:
            break;
    }
}

void CScanner::_ParseAttributeList(const uint8_t* value, uint32_t length, TScanFileInfo& info, uint64_t frn,
                                   std::u16string& linkError) {
    // Only the attribute of the entry's own type is processed, so an
    // extension record never leads into another attribute list.
    uint32_t at = 0;
    while (length - at >= 1) {
        if (length - at < kAlEntryNeeded)
            throw CExc(u"The attribute list entry at offset %1 runs past the list.", util::ToStrU32(at));
        const uint32_t type = Le32(value + at);
        if (type == kAttrEnd) return;
        const uint16_t entryLength = Le16(value + at + kAlLength);
        if (entryLength == 0) return;
        if (type == kAttrData || type == kAttrReparsePoint) {
            // The first $DATA entry ends the walk; only the unnamed stream's
            // first extent is read, so a named stream listed first hides it.
            if (type == kAttrData && (value[at + kAlNameLength] != 0 || Le64(value + at + kAlLowestVcn) != 0))
                return;
            const uint64_t reference = Le64(value + at + kAlReference) & kFrnMask;
            const uint16_t instance = Le16(value + at + kAlInstance);
            const uint32_t extLength = _ReadExtensionRecord(reference, m_Extension);
            const uint8_t* ext = m_Extension.Get() + platform::kNtfsFileRecordHeaderSize;
            bool found = false;
            ForEachRecordAttribute(ext, extLength, reference, [&](uint32_t attrAt, uint32_t) {
                if (Le32(ext + attrAt) != type || Le16(ext + attrAt + kAttrInstance) != instance) return true;
                std::u16string nestedListError;
                _ProcessAttribute(ext, extLength, attrAt, info, frn, nestedListError, linkError);
                found = true;
                return false;
            });
            if (!found)
                throw CExc(u"Cannot find requested attribute. Instance: [%1]", util::ToStrU32(instance), kHrFail);
            return;
        }
        at += entryLength;
        if (at > length) return;
    }
}

uint32_t CScanner::_ReadExtensionRecord(uint64_t frn, CBuf<uint8_t>& buffer) {
    uint32_t length = 0;
    const uint64_t answered = _ReadRecord(frn, buffer, length);
    if (answered != frn)
        throw CWin32Exc(u"MFT record number is different. Asked [%1], Answered [%2]", util::ToStrU64(frn),
                        util::ToStrU64(answered), static_cast<uint32_t>(kHrFail));
    return length;
}

void CScanner::_ReadNonResident(const uint8_t* attr, uint32_t attrLength, CBuf<uint8_t>& buffer,
                                uint64_t realSize) {
    const auto bad = [] { throw CExc(u"Failed to decode VCN to LCN stream.", kHrFail); };
    const uint64_t cluster = m_BytesPerCluster;
    const uint64_t allocated = std::max(Le64(attr + kAttrAllocatedLength), realSize);
    if (realSize > kMaxNonResidentValue || allocated > kMaxNonResidentValue + cluster) bad();
    const uint16_t flags = Le16(attr + kAttrFlags);
    uint32_t at = Le16(attr + kAttrMappingPairs);
    uint64_t vcn = Le64(attr + kAttrLowestVcn);
    int64_t lcn = 0;
    buffer.Resize(static_cast<size_t>(allocated));
    std::memset(buffer.Get(), 0, buffer.Count());
    while (at < attrLength && attr[at] != 0) {
        const unsigned lengthBytes = attr[at] & 0x0F, offsetBytes = attr[at] >> 4;
        if (lengthBytes == 0 || lengthBytes > 8 || offsetBytes > 8 || (offsetBytes == 0 && !(flags & kAttrFlagSparse)) ||
            1u + lengthBytes + offsetBytes > attrLength - at)
            bad();
        uint64_t runLength = 0;
        for (unsigned i = 0; i < lengthBytes; ++i) runLength |= uint64_t{attr[at + 1 + i]} << (8 * i);
        uint64_t offset = 0;
        for (unsigned i = 0; i < offsetBytes; ++i) offset |= uint64_t{attr[at + 1 + lengthBytes + i]} << (8 * i);
        if (offsetBytes > 0 && offsetBytes < 8 && (offset >> (8 * offsetBytes - 1)) & 1)
            offset |= ~uint64_t{0} << (8 * offsetBytes);
        lcn += static_cast<int64_t>(offset);
        at += 1 + lengthBytes + offsetBytes;
        // The run must lie inside the value and on the volume.
        const uint64_t room = allocated / cluster;
        if (vcn > room || runLength > room - vcn || lcn < 0 || static_cast<uint64_t>(lcn) > kMaxLcn) bad();
        const uint64_t position = static_cast<uint64_t>(lcn) * cluster;
        const uint32_t bytes = static_cast<uint32_t>(runLength * cluster);
        if (!m_Volume->Seek(static_cast<int64_t>(position)))
            throw CWin32Exc(u"Unable to seek to position %1 within volume", util::ToStrU64(position));
        uint32_t done = 0;
        if (!_ReadAligned(buffer.Get() + vcn * cluster, bytes, done) || done != bytes)
            throw CWin32Exc(u"Cannot read data from volume");
        vcn += runLength;
    }
}

bool CScanner::_ReadAligned(uint8_t* target, uint32_t size, uint32_t& done) {
    // Unbuffered volume reads want sector-aligned memory.
    m_Aligned.Resize(size_t{size} + kReadAlignment);
    const auto address = reinterpret_cast<uintptr_t>(m_Aligned.Get());
    uint8_t* aligned = m_Aligned.Get() + ((kReadAlignment - address % kReadAlignment) % kReadAlignment);
    if (!m_Volume->Read(aligned, size, done)) return false;
    std::memcpy(target, aligned, std::min(done, size));
    return true;
}

void CScanner::_ReadReparseSubstitute(const uint8_t* value, uint32_t length, TScanFileInfo& info, uint64_t) {
    if (length < platform::kReparseHeaderSize) return;
    const uint32_t tag = Le32(value);
    uint32_t pathBuffer = 0;
    if (tag == platform::kReparseTagSymlink) pathBuffer = kRpSymlinkPathBuffer;
    else if (tag == platform::kReparseTagMountPoint) pathBuffer = kRpMountPointPathBuffer;
    else return;
    const uint32_t offset = Le16(value + kRpSubstituteOffset), bytes = Le16(value + kRpSubstituteLength);
    if (length < pathBuffer || offset + bytes > length - pathBuffer)
        throw CExc(u"The substitute name runs past the reparse data (offset %1, %2 bytes).", util::ToStrU32(offset),
                   util::ToStrU32(bytes));
    info.Substitute = Chars(value + pathBuffer + offset, bytes / 2);
    if (!info.Substitute.empty() && info.Substitute.back() != u'\\') info.Substitute += u'\\';
}

}  // namespace mftlib
