#pragma once
// indexer::fast_ntfs_indexer::CAttributeContent: a random-access view of one
// attribute of one file, fed with every header of that attribute that a walk
// meets (across the base record and its extension records).
//
// States: None (nothing added), Resident (exactly one resident header; its
// value is copied), NonResident (the extents of one attribute; their runs
// are concatenated in VCN order and read on demand through the volume's
// cache). None -> Resident or NonResident, never back.
//
// Errors (CExc 0x80004005, %1 the operation's full name):
//   ParseAttribute: "%1 fail. Attribute have already had content. FRN=0x%2,
//     AttrName[%3]" (resident after anything), "... had resident content ..."
//     (non-resident after resident), "%1 fail. An extent of attribute [%2] in
//     file record FRN=0x%3 starts at VCN 0x%4, but the extents before it end
//     at VCN 0x%5." (extents must arrive in VCN order, the first at VCN 0,
//     each where the last ended; instance numbers are not compared: NTFS
//     numbers them per record); the object is unchanged after a refusal. A header whose value or runs
//     do not fit fails as corrupt (ntfs_format.h).
//   Read: "%1 fail. Attribute isn`t initialized." (state None), "%1 fail.
//     Invalid offset 0x%2. Resident data length=0x%3." / "... ValidDataLength=
//     0x%3." (offset at or past the size). A read that passes the last extent
//     returns fewer bytes, without error.
//
// Held by shared pointer; keeps a pointer to the volume, which must outlive
// it. Single-threaded, with the volume.

#include <cstdint>
#include <string>

#include "base/buf.h"
#include "ntfs/ntfs_format.h"
#include "ntfs/run_list.h"

namespace indexer::fast_ntfs_indexer {

class CNtfsVolume;

enum TAttributeState : uint32_t { None = 0, Resident = 1, NonResident = 2 };

class CAttributeContent {
public:
    CAttributeContent(CNtfsVolume* volume, uint64_t frn, std::u16string name);
    CAttributeContent(const CAttributeContent&) = delete;
    CAttributeContent& operator=(const CAttributeContent&) = delete;

    // Merges one header; copies what it needs, so the header may go away.
    void ParseAttribute(const CAttrHeader& attr);

    // Resident: the value's size; otherwise the valid data length (0 in
    // state None).
    uint64_t GetSize() const;

    // Copies up to `count` bytes from `offset` to `destination`; returns the
    // count delivered. Sparse runs read as zeros. A read it cannot serve (no
    // attribute, an offset past the data) fails with a CExc that names the
    // attribute and its file record.
    uint64_t Read(uint64_t offset, void* destination, uint64_t count);

    TAttributeState GetState() const { return m_State; }
    const TBlockVector& GetExtents() const { return m_Extents; }

private:
    // `failure` with a line naming this attribute and its record.
    CExc _Located(CExc failure) const;

    CNtfsVolume* m_Volume;
    uint64_t m_Frn;
    std::u16string m_Name;
    uint64_t m_NextVcn = 0;  // behind the extents so far
    TAttributeState m_State = None;
    CBuf<uint8_t> m_Resident;
    TBlockVector m_Extents;
    uint64_t m_ValidDataLength = 0;
};

}  // namespace indexer::fast_ntfs_indexer
