// Owners from $Secure: every security id of $SII, the owner SID of its
// descriptor in $SDS, equal SIDs folded together, then the owner rows.
//
// $SII entry: the 16-byte index entry header; key at 16 (security id); data
// at 20: hash (4), security id (4), offset of the $SDS record (8), its
// length (4).
// $SDS record: hash (4), security id (4), offset (8), length (4), then the
// self-relative security descriptor; its owner offset (4 bytes at
// descriptor offset 4) counts from the descriptor's start, record offset 20.
#include "base/format.h"
#include "diag/log.h"
#include "fast/fast_ntfs_processor.h"

namespace indexer::fast_ntfs_indexer {

namespace {

constexpr char16_t kParseSiiCb[] = u"indexer::fast_ntfs_indexer::ParseSII_cb";
constexpr char16_t kStoreOwners[] = u"indexer::fast_ntfs_indexer::CFastNtfsProcessor::StoreOwners";

constexpr size_t kSiiDataOffset = 20;  // the data, behind the 4-byte key
constexpr size_t kSiiEntrySize = kSiiDataOffset + 20;
constexpr size_t kSdsDescriptor = 20;
constexpr size_t kSdOwnerOffset = 4;
constexpr size_t kSmallRecord = 256;

}  // namespace

// One $SII entry: reads its $SDS record and adds the owner. Returns true to
// go on with the next entry.
uint8_t ParseSII_cb(const TIndexEntryView& entry, CAttributeContent& content, COwnersTable& table) {
    if (entry.Length < kSiiEntrySize)
        throw CExc(u"%1 fail. $SII entry of %2 bytes is too short.", kParseSiiCb, util::ToStrU32(entry.Length));
    const uint8_t* data = entry.Data + kSiiDataOffset;
    const uint64_t offset = Le64(data + 8);
    const uint32_t length = Le32(data + 16);
    const uint64_t size = content.GetSize();
    // A record that ends exactly at the end is refused too.
    if (offset >= size || length >= size - offset)
        throw CExc(u"%1 fail. Attribute overflow. ValidDataLength=0x%2", kParseSiiCb, util::Hex16(size));
    uint8_t small[kSmallRecord];
    CBuf<uint8_t> large;
    uint8_t* record = small;
    if (length >= kSmallRecord) {
        large.Allocate(length);
        record = large.Get();
    }
    const uint64_t read = content.Read(offset, record, length);
    if (read < length || length < kSdsDescriptor + kSdOwnerOffset + 4)
        throw CExc(u"%1 fail. $SDS record at 0x%2 of 0x%3 bytes is damaged.", kParseSiiCb, util::Hex16(offset),
                   util::Hex8(length));
    const uint32_t ownerOffset = Le32(record + kSdsDescriptor + kSdOwnerOffset);
    // A descriptor may leave its owner out (offset 0): its files get owner 0.
    if (ownerOffset == 0) {
        table.AddWithoutOwner(Le32(record + 4));
        return 1;
    }
    if (ownerOffset >= length - kSdsDescriptor)
        throw CExc(u"%1 fail. $SDS record at 0x%2 has no owner inside it (owner offset 0x%3).", kParseSiiCb,
                   util::Hex16(offset), util::Hex8(ownerOffset));
    const size_t sidAt = kSdsDescriptor + ownerOffset;
    table.Add(Le32(record + 4), record + sidAt, length - sidAt);
    return 1;
}

void CFastNtfsProcessor::ParseSecureMetafile() {
    if (m_SkipOwnersParsing) {
        GetLog().Info(u"The parsing of $Secure metafile was skipped.");
        return;
    }
    GetLog().Info(u"$Secure metafile parse.");
    CAttributeContent content(m_Volume, kSecureFrn, u"$SDS");
    CBuf<uint8_t> buffer;
    uint8_t* record = _RecordBuffer(buffer);
    m_Volume->GetFileRecord(kSecureFrn, record, 1);
    m_Attributes->ReadAttributeContent(record, kSecureFrn, kAttrData, u"$SDS", content);
    m_Index->ParseIndexFileRecord_Process(
        record, kSecureFrn, u"$SII",
        [&](const TIndexEntryView& entry, uint64_t, uint64_t) { return ParseSII_cb(entry, content, m_Owners); }, 0,
        0);
    if (const uint64_t ownerless = m_Owners.GetWithoutOwnerCount(); ownerless != 0)
        GetLog().Warning(u"%1 security descriptors of $Secure have no owner; their files get owner 0.",
                         util::ToStrU64(ownerless));
    GetLog().Info(u"$Secure metafile parsing complete.");
}

void CFastNtfsProcessor::StoreOwners() {
    uint32_t failed = 0;
    for (uint32_t index = 1;; ++index) {
        std::shared_ptr<util::CSid> sid;
        if (!m_Owners.Get(index, sid)) {
            if (failed != 0) GetLog().Warning(u"Failed to recognize %1 owners.", util::ToStrU32(failed));
            return;
        }
        std::u16string name, domain;
        const std::u16string text = sid->GetString();
        try {
            sid->LookupAccount(name, domain, *m_Services.Accounts);
        } catch (const CExc& e) {
            if (failed < kMaxLoggedOwnerFailures)
                GetLog().Warning(u"%1 fail. SID=[%2]. \nExceprion:\n%3", kStoreOwners, text, e.GetDescription());
            ++failed;
        }
        m_Base->AddOwner(text, name, domain, nullptr);
    }
}

}  // namespace indexer::fast_ntfs_indexer
