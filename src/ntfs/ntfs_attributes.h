#pragma once
// indexer::fast_ntfs_indexer::CNtfsAttributes: decodes the attributes of a
// file record for the file record processing: names from $FILE_NAME, the
// security id and last-write time from $STANDARD_INFORMATION, the size of
// the unnamed $DATA, and any named attribute gathered over the base record
// and its extension records into a CAttributeContent.
//
// The hot operations (GetFileNameProps, GetSecurityId, GetLastWriteTime,
// GetUnnamedDataSize) touch only the header handed in, which the attribute
// walk has already checked against its record; they allocate one
// TFileNameProps per kept name and nothing else.
//
// Errors: CExc. A $STANDARD_INFORMATION that is not resident: "Attribute
// $STANDART_INFORMATION is not resident!". A $FILE_NAME value too short for
// its name, and attribute headers that leave their record, fail as corrupt
// (ntfs_format.h). Extension records are fetched with GetFileRecord
// (mustExist set), whose exceptions pass through.
//
// Holds a pointer to its volume, which must outlive it. Single-threaded.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ntfs/attribute_content.h"
#include "ntfs/ntfs_format.h"

namespace indexer::fast_ntfs_indexer {

class CNtfsVolume;

// One name of a file and the record number of the folder that holds it.
struct TFileNameProps {
    std::u16string FileName;
    uint64_t ParentFileRef = 0;
};

using TFileNamePropsList = std::vector<std::shared_ptr<TFileNameProps>>;

class CNtfsAttributes {
public:
    explicit CNtfsAttributes(CNtfsVolume* volume) : m_Volume(volume) {}

    // Appends the name of one $FILE_NAME unless it is a DOS-only short name
    // (namespace flags with bit 0 clear and bit 1 set). POSIX, Win32 and
    // Win32+DOS names are all kept.
    void GetFileNameProps(const CAttrHeader& attr, TFileNamePropsList& list);
    // 1 when `props` holds a name to keep, 0 when the name was refused. An
    // empty name is logged at Error with a dump of the value, and kept.
    int _GetFileNamePropsFromAttributeFileName(const CAttrHeader& attr, TFileNameProps& props);

    // 1 and the id at value offset 0x34 when the value is at least 53 bytes
    // long (and the id lies inside the attribute); else 0 and 0xFFFFFFFF.
    int GetSecurityId(const CAttrHeader& attr, uint32_t& id);
    // 1 and the time at value offset 8 when the value is at least 9 bytes
    // long (and the time lies inside the attribute); else 0 and all ones.
    int GetLastWriteTime(const CAttrHeader& attr, uint64_t& time);
    // Stores the size of an unnamed $DATA (resident: the value length; the
    // first non-resident extent: the file size) when `size` is still 0 and
    // returns 1; else 0 and `size` unchanged.
    int GetUnnamedDataSize(const CAttrHeader& attr, uint64_t& size);

    // Gathers every attribute of `type` with exactly `name` (case-sensitive)
    // from the base record and the extension records its $ATTRIBUTE_LIST
    // names into `content`. `record` holds FileRecordSize bytes.
    void ReadAttributeContent(const uint8_t* record, uint64_t frn, uint32_t type, std::u16string_view name,
                              CAttributeContent& content);

    // Calls fn for every attribute header of the file. Without an
    // $ATTRIBUTE_LIST: those of the base record. With one: each attribute its
    // entries name, found by (record, instance) in the base record or in an
    // extension record fetched with GetFileRecord (mustExist set), in the
    // list's order (type, name, lowest VCN); the list itself is not passed.
    // An entry whose record holds no attribute of its type and instance
    // fails as corrupt. A list in an extension record is not followed.
    void ForEachAttributeOfFile(const uint8_t* record, uint64_t frn,
                                const std::function<void(const CAttrHeader&)>& fn);

    // Writes the bytes at level Detail: "Address: 0x<pointer>", then one line
    // per 16 bytes, "0x%8.8x : " and "%2.2x " per byte.
    static void DumpMemory(const void* address, size_t length);

    // True when the header's name is exactly `name` (both empty: true).
    static bool _IsAttributeName(const CAttrHeader& attr, std::u16string_view name);

private:
    CNtfsVolume* m_Volume;
};

}  // namespace indexer::fast_ntfs_indexer
