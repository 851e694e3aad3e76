#include "store/records.h"

#include "base/exc.h"

namespace rec {

using idxdata::FieldDword;
using idxdata::FieldQword;
using idxdata::FieldString;

namespace {

// The type of field `index` in `types`, or the class's failure text.
template <size_t N>
uint32_t TypeAt(const uint16_t (&types)[N], uint32_t index, const char16_t* wrongId) {
    if (index >= N) throw CExc(wrongId);
    return types[index];
}

constexpr char16_t kDirWrongId[] = u"Wrong id in CDirRecord::GetFieldType";

}  // namespace

uint32_t CFileRecord::GetFieldType(uint32_t index) const {
    static constexpr uint16_t kTypes[] = {FieldString, FieldQword, FieldDword, FieldQword, FieldQword};
    return TypeAt(kTypes, index, u"Wrong id in CFileRecord::GetFieldType");
}

void CFileRecord::Serialize(idxdata::ISerializator& out) const {
    out.WriteString(m_Name);
    out.WriteLongLong(m_ParentId);
    out.WriteDWord(m_Owner);
    out.WriteLongLong(m_ModificationTime);
    out.WriteLongLong(m_Size);
}

void CFileRecord::Deserialize(idxdata::IDeserializator& in) {
    m_Name = in.ReadString();
    m_ParentId = in.ReadLongLong();
    m_Owner = in.ReadDWord();
    m_ModificationTime = in.ReadLongLong();
    m_Size = in.ReadLongLong();
}

uint32_t CDirRecord::GetFieldType(uint32_t index) const {
    static constexpr uint16_t kTypes[] = {FieldString, FieldQword};
    return TypeAt(kTypes, index, kDirWrongId);
}

void CDirRecord::Serialize(idxdata::ISerializator& out) const {
    out.WriteString(m_Name);
    out.WriteLongLong(m_ParentId);
}

void CDirRecord::Deserialize(idxdata::IDeserializator& in) {
    m_Name = in.ReadString();
    m_ParentId = in.ReadLongLong();
}

uint32_t COwnerRecord::GetFieldType(uint32_t index) const {
    static constexpr uint16_t kTypes[] = {FieldString, FieldString, FieldString};
    return TypeAt(kTypes, index, kDirWrongId);
}

void COwnerRecord::Serialize(idxdata::ISerializator& out) const {
    out.WriteString(m_Sid);
    out.WriteString(m_Second);
    out.WriteString(m_Third);
}

void COwnerRecord::Deserialize(idxdata::IDeserializator& in) {
    m_Sid = in.ReadString();
    m_Second = in.ReadString();
    m_Third = in.ReadString();
}

uint32_t CReparseRecord::GetFieldType(uint32_t index) const {
    static constexpr uint16_t kTypes[] = {FieldQword, FieldString, FieldString};
    return TypeAt(kTypes, index, kDirWrongId);
}

void CReparseRecord::Serialize(idxdata::ISerializator& out) const {
    out.WriteLongLong(m_ParentId);
    out.WriteString(m_Name);
    out.WriteString(m_Substitute);
}

void CReparseRecord::Deserialize(idxdata::IDeserializator& in) {
    m_ParentId = in.ReadLongLong();
    m_Name = in.ReadString();
    m_Substitute = in.ReadString();
}

uint32_t CIndexRecord::GetFieldType(uint32_t) const { throw CExc(kDirWrongId); }

}  // namespace rec
