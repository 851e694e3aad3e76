#include "ntfs/ntfs_attributes.h"

#include <cstring>
#include <optional>

#include "base/format.h"
#include "diag/log.h"
#include "ntfs/ntfs_volume.h"

namespace indexer::fast_ntfs_indexer {

namespace {

constexpr std::u16string_view kFnFileName =
    u"indexer::fast_ntfs_indexer::CNtfsAttributes::_GetFileNamePropsFromAttributeFileName";

void NeedResidentStandardInformation(const CAttrHeader& attr) {
    if (attr.IsNonResident()) throw CExc(u"Attribute $STANDART_INFORMATION is not resident!");
}

}  // namespace

void CNtfsAttributes::GetFileNameProps(const CAttrHeader& attr, TFileNamePropsList& list) {
    auto props = std::make_shared<TFileNameProps>();
    if (_GetFileNamePropsFromAttributeFileName(attr, *props)) list.push_back(std::move(props));
}

int CNtfsAttributes::_GetFileNamePropsFromAttributeFileName(const CAttrHeader& attr, TFileNameProps& props) {
    CBuf<uint8_t> local;
    const uint8_t* value;
    uint64_t length;
    if (attr.IsNonResident()) {
        length = m_Volume->ReadNonResidentAttribute(attr, local);
        value = local.Get();
    } else {
        value = attr.Value();
        length = attr.ValueLength();
    }
    if (length < kFnName) ThrowCorrupt(attr.Frn(), u"$FILE_NAME value of %1 bytes is too short", HexOff(length));
    const uint8_t flags = value[kFnNamespace];
    if ((flags & 1) == 0 && (flags & 2) != 0) return 0;
    const size_t nameLength = value[kFnNameLength];
    if ((length - kFnName) / 2 < nameLength)
        ThrowCorrupt(attr.Frn(), u"$FILE_NAME name of %1 characters passes its value of %2 bytes",
                     util::ToStrU64(nameLength), HexOff(length));
    props.FileName.resize(nameLength);
    for (size_t i = 0; i < nameLength; ++i)
        props.FileName[i] = static_cast<char16_t>(Le16(value + kFnName + 2 * i));
    props.ParentFileRef = Le64(value + kFnParent) & kFrnMask;
    if (props.FileName.empty()) {
        CLog& log = GetLog();
        log.Error(u"%1. Empty file name! ", kFnFileName);
        if (attr.IsNonResident()) {
            log.Error(u"%1. Attribute is not resident! ", kFnFileName);
            DumpMemory(local.Get(), local.Count());
        } else {
            log.Error(u"%1. Attribute is resident! ", kFnFileName);
            // Name length plus the 72 bytes of the value's fixed part, cut to
            // what the attribute holds.
            DumpMemory(value, std::min<size_t>(nameLength + 72, attr.BytesFromValue()));
        }
    }
    return 1;
}

int CNtfsAttributes::GetSecurityId(const CAttrHeader& attr, uint32_t& id) {
    NeedResidentStandardInformation(attr);
    // The length test is 53, short of the field's end (56); the read itself
    // must still stay inside the attribute.
    if (attr.ValueLength() < 53 || attr.BytesFromValue() < kSiSecurityId + 4) {
        id = 0xFFFFFFFF;
        return 0;
    }
    id = Le32(attr.Value() + kSiSecurityId);
    return 1;
}

int CNtfsAttributes::GetLastWriteTime(const CAttrHeader& attr, uint64_t& time) {
    NeedResidentStandardInformation(attr);
    if (attr.ValueLength() < 9 || attr.BytesFromValue() < kSiLastWriteTime + 8) {
        time = ~uint64_t{0};
        return 0;
    }
    time = Le64(attr.Value() + kSiLastWriteTime);
    return 1;
}

int CNtfsAttributes::GetUnnamedDataSize(const CAttrHeader& attr, uint64_t& size) {
    if (size != 0 || attr.NameLength() != 0) return 0;
    if (!attr.IsNonResident()) {
        size = attr.ValueLength();
        return 1;
    }
    if (attr.LowestVcn() != 0) return 0;
    size = attr.FileSize();
    return 1;
}

bool CNtfsAttributes::_IsAttributeName(const CAttrHeader& attr, std::u16string_view name) {
    if (attr.NameLength() != static_cast<uint8_t>(name.size())) return false;
    if (attr.NameLength() == 0) return true;
    const uint8_t* bytes = attr.NameBytes();
    for (size_t i = 0; i < attr.NameLength(); ++i)
        if (Le16(bytes + 2 * i) != static_cast<uint16_t>(name[i])) return false;
    return true;
}

void CNtfsAttributes::ForEachAttributeOfFile(const uint8_t* record, uint64_t frn,
                                             const std::function<void(const CAttrHeader&)>& fn) {
    const uint32_t size = m_Volume->GetVolumeGeometry().FileRecordSize;
    std::optional<CAttrHeader> list;
    ForEachAttribute(record, size, frn, kNoLimit, [&](const CAttrHeader& attr) {
        if (attr.Type() == kAttrAttributeList) list = attr;
        return !list;
    });
    if (!list) {
        ForEachAttribute(record, size, frn, kNoLimit, [&](const CAttrHeader& attr) {
            fn(attr);
            return true;
        });
        return;
    }
    // The list names every attribute of the file by record and instance
    // (numbered per record: extents of one attribute in several records
    // carry unrelated numbers), ordered by type, name and first VCN, so
    // that the extents of an attribute come in the order of their VCNs.
    CBuf<uint8_t> extension(size);
    uint64_t loaded = frn;
    m_Volume->ForEachAttributeListEntry(frn, *list, [&](const CNtfsVolume::TAttributeListEntry& entry) {
        if (entry.Type == kAttrAttributeList) return;
        if (entry.Record != frn && entry.Record != loaded) {
            m_Volume->GetFileRecord(entry.Record, extension.Get(), 1);
            loaded = entry.Record;
        }
        const uint8_t* holder = entry.Record == frn ? record : extension.Get();
        bool found = false;
        ForEachAttribute(holder, size, entry.Record, kNoLimit, [&](const CAttrHeader& attr) {
            if (attr.Type() != entry.Type || attr.Instance() != entry.Instance) return true;
            found = true;
            fn(attr);
            return false;
        });
        if (!found)
            ThrowCorrupt(frn,
                         FormatMessageArgs(u"attribute list entry at offset %1 names attribute type %2 instance %3 "
                                           u"of file record FRN=0x%4, which holds no such attribute",
                                           {HexOff(entry.Offset), HexOff(entry.Type), util::ToStrU32(entry.Instance),
                                            util::Hex16(entry.Record)}));
    });
}

void CNtfsAttributes::ReadAttributeContent(const uint8_t* record, uint64_t frn, uint32_t type,
                                           std::u16string_view name, CAttributeContent& content) {
    ForEachAttributeOfFile(record, frn, [&](const CAttrHeader& attr) {
        if (attr.Type() == type && _IsAttributeName(attr, name)) content.ParseAttribute(attr);
    });
}

void CNtfsAttributes::DumpMemory(const void* address, size_t length) {
    CLog& log = GetLog();
    if (!log.IsEnabled(LogDetail)) return;
    const auto pointer = reinterpret_cast<uintptr_t>(address);
    // "0x%p": the pointer's sixteen upper-case digits.
    std::u16string digits = HexDigits(pointer, 16);
    for (char16_t& c : digits)
        if (c >= u'a' && c <= u'f') c = static_cast<char16_t>(c - u'a' + u'A');
    log.Detail(u"Address: 0x%1", digits);
    const uint8_t* bytes = static_cast<const uint8_t*>(address);
    for (size_t line = 0; line < length; line += 16) {
        std::u16string row = u"0x" + HexDigits(line, 8) + u" : ";
        for (size_t i = line; i < length && i < line + 16; ++i) row += HexDigits(bytes[i], 2) + u" ";
        log.Detail(u"%1", row);
    }
}

}  // namespace indexer::fast_ntfs_indexer
