#pragma once
// Rows of the index tables: idxdata::IRecord and the record classes of the
// namespace rec. A record states its field list (the types the table header
// carries) and moves its values, in field order, through an ISerializator or
// IDeserializator. A row's bytes are exactly its fields: no header, no ids.
//
// Field lists (type codes of EFieldType, table_format.h):
//   CFileRecord    table 1: name S, parent dir id Q, owner D, mtime Q, size Q
//   CDirRecord     table 2: name S, parent dir id Q
//   COwnerRecord   table 3: SID S, second text S, third text S
//   CReparseRecord table 4: parent dir id Q, name S, substitute S
// The writer (CIndexBase) writes reparse rows field by field; CReparseRecord
// exists for the reading side. The index table (5) has no fields.
//
// GetFieldType with an id outside the list throws CExc "Wrong id in
// <class>::GetFieldType"; COwnerRecord and CReparseRecord report with the
// CDirRecord text, on purpose. Serialize/Deserialize pass on what the stream
// throws.

#include <cstdint>
#include <string>

#include "store/serial.h"
#include "store/table_format.h"

namespace idxdata {

class IRecord {
public:
    virtual ~IRecord() = default;
    virtual uint32_t GetFieldCount() const = 0;
    virtual uint32_t GetFieldType(uint32_t index) const = 0;
    virtual void Serialize(ISerializator& out) const = 0;
    virtual void Deserialize(IDeserializator& in) = 0;
};

}  // namespace idxdata

namespace rec {

class CFileRecord : public idxdata::IRecord {
public:
    static constexpr uint32_t kTableId = idxdata::TableFiles;
    uint32_t GetFieldCount() const override { return 5; }
    uint32_t GetFieldType(uint32_t index) const override;
    void Serialize(idxdata::ISerializator& out) const override;
    void Deserialize(idxdata::IDeserializator& in) override;

    std::u16string m_Name;
    uint64_t m_ParentId = 0;
    uint32_t m_Owner = 0;
    uint64_t m_ModificationTime = 0;  // FILETIME ticks, as the file system gave them
    uint64_t m_Size = 0;
};

class CDirRecord : public idxdata::IRecord {
public:
    static constexpr uint32_t kTableId = idxdata::TableDirs;
    uint32_t GetFieldCount() const override { return 2; }
    uint32_t GetFieldType(uint32_t index) const override;
    void Serialize(idxdata::ISerializator& out) const override;
    void Deserialize(idxdata::IDeserializator& in) override;

    std::u16string m_Name;  // empty for the root row
    uint64_t m_ParentId = 0;
};

class COwnerRecord : public idxdata::IRecord {
public:
    static constexpr uint32_t kTableId = idxdata::TableOwners;
    uint32_t GetFieldCount() const override { return 3; }
    uint32_t GetFieldType(uint32_t index) const override;
    void Serialize(idxdata::ISerializator& out) const override;
    void Deserialize(idxdata::IDeserializator& in) override;

    std::u16string m_Sid;
    std::u16string m_Second;
    std::u16string m_Third;
};

class CReparseRecord : public idxdata::IRecord {
public:
    static constexpr uint32_t kTableId = idxdata::TableReparses;
    uint32_t GetFieldCount() const override { return 3; }
    uint32_t GetFieldType(uint32_t index) const override;
    void Serialize(idxdata::ISerializator& out) const override;
    void Deserialize(idxdata::IDeserializator& in) override;

    uint64_t m_ParentId = 0;
    std::u16string m_Name;
    std::u16string m_Substitute;
};

// The index table's schema: no fields, so no rows can be read or written.
class CIndexRecord : public idxdata::IRecord {
public:
    static constexpr uint32_t kTableId = idxdata::TableIndex;
    uint32_t GetFieldCount() const override { return 0; }
    uint32_t GetFieldType(uint32_t index) const override;
    void Serialize(idxdata::ISerializator&) const override {}
    void Deserialize(idxdata::IDeserializator&) override {}
};

}  // namespace rec
