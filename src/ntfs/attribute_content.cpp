#include "ntfs/attribute_content.h"

#include <algorithm>
#include <cstring>

#include "base/format.h"
#include "ntfs/ntfs_volume.h"

namespace indexer::fast_ntfs_indexer {

namespace {

constexpr std::u16string_view kFnParse = u"indexer::fast_ntfs_indexer::CAttributeContent::ParseAttribute";
constexpr std::u16string_view kFnRead = u"indexer::fast_ntfs_indexer::CAttributeContent::Read";

// The largest piece handed to the cache in one call (its counts are 32-bit).
constexpr uint64_t kMaxReadPiece = uint64_t{1} << 30;

}  // namespace

CAttributeContent::CAttributeContent(CNtfsVolume* volume, uint64_t frn, std::u16string name)
    : m_Volume(volume), m_Frn(frn), m_Name(std::move(name)) {}

void CAttributeContent::ParseAttribute(const CAttrHeader& attr) {
    if (attr.IsNonResident()) {
        if (m_State == Resident)
            throw CExc(u"%1 fail. Attribute have already had resident content. FRN=0x%2, AttrName[%3]", kFnParse,
                       util::Hex16(m_Frn), m_Name);
        // Extents come in the order of their VCNs (the attribute list's
        // order); each must start where the ones before it end. Instance
        // numbers are per record and say nothing across records.
        const uint64_t lowestVcn = attr.LowestVcn();
        if (lowestVcn != m_NextVcn)
            throw CExc(FormatMessageArgs(u"%1 fail. An extent of attribute [%2] in file record FRN=0x%3 starts at "
                                         u"VCN 0x%4, but the extents before it end at VCN 0x%5.",
                                         {kFnParse, m_Name, util::Hex16(attr.Frn()), util::Hex16(lowestVcn),
                                          util::Hex16(m_NextVcn)}));
        // Decode into a copy first, so a refused header leaves the object as it was.
        TBlockVector extents = m_Extents;
        const uint64_t nextVcn = DecodeRunList(attr, m_Volume->GetVolumeGeometry().BytesPerCluster, extents);
        const uint64_t validLength = attr.ValidDataLength();
        m_State = NonResident;
        if (m_ValidDataLength == 0) m_ValidDataLength = validLength;
        m_Extents.swap(extents);
        m_NextVcn = nextVcn;
        return;
    }
    if (m_State != None)
        throw CExc(u"%1 fail. Attribute have already had content. FRN=0x%2, AttrName[%3]", kFnParse,
                   util::Hex16(m_Frn), m_Name);
    const uint8_t* value = attr.Value();
    const uint32_t length = attr.ValueLength();
    m_Resident.Allocate(length);
    if (length) std::memcpy(m_Resident.Get(), value, length);
    m_State = Resident;
}

uint64_t CAttributeContent::GetSize() const {
    return m_State == Resident ? m_Resident.Count() : m_ValidDataLength;
}

CExc CAttributeContent::_Located(CExc failure) const {
    failure.AddContext(u"Attribute [%1] of file record FRN=0x%2.", m_Name, util::Hex16(m_Frn));
    return failure;
}

uint64_t CAttributeContent::Read(uint64_t offset, void* destination, uint64_t count) {
    uint8_t* out = static_cast<uint8_t*>(destination);
    switch (m_State) {
        case None:
            throw _Located(CExc(u"%1 fail. Attribute isn`t initialized.", kFnRead));
        case Resident: {
            if (offset >= m_Resident.Count())
                throw _Located(CExc(u"%1 fail. Invalid offset 0x%2. Resident data length=0x%3.", kFnRead,
                                    util::Hex16(offset), util::Hex16(m_Resident.Count())));
            const uint64_t n = std::min<uint64_t>(count, m_Resident.Count() - offset);
            std::memcpy(out, m_Resident.Get() + offset, static_cast<size_t>(n));
            return n;
        }
        case NonResident:
            break;
        default:
            return 0;
    }
    if (offset >= m_ValidDataLength)
        throw _Located(CExc(u"%1 fail. Invalid offset 0x%2. ValidDataLength=0x%3.", kFnRead, util::Hex16(offset),
                            util::Hex16(m_ValidDataLength)));
    uint64_t start = 0;
    uint64_t delivered = 0;
    for (const TBlockDescription& extent : m_Extents) {
        if (delivered == count) break;
        if (offset >= start && offset - start < extent.ByteLength) {
            const uint64_t inExtent = offset - start;
            uint64_t n = std::min(extent.ByteLength - inExtent, count - delivered);
            if (extent.Sparse) {
                std::memset(out + delivered, 0, static_cast<size_t>(n));
            } else {
                uint64_t done = 0;
                while (done < n) {
                    const uint32_t piece = static_cast<uint32_t>(std::min(n - done, kMaxReadPiece));
                    const uint32_t got = m_Volume->GetCache().ReadRandomly(extent.DiskOffset + inExtent + done,
                                                                           out + delivered + done, piece);
                    done += got;
                    if (got != piece) break;
                }
                // The volume ended inside the extent: what was read is all there is.
                if (done < n) return delivered + done;
            }
            offset += n;
            delivered += n;
        }
        start += extent.ByteLength;
    }
    return delivered;
}

}  // namespace indexer::fast_ntfs_indexer
