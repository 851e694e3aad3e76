#include "store/table_stream.h"

#include <algorithm>
#include <cstring>

#include "base/exc.h"
#include "base/format.h"
#include "platform/errors.h"
#include "store/table_format.h"

namespace idxdata {

CTableStream::CTableStream(std::u16string_view fileName, const TTableInfo& table, uint64_t firstRowPos,
                           uint64_t rowCount, const IRecord& schema, const TTuning& tuning)
    : m_FileName(fileName), m_Table(table), m_RowCount(rowCount), m_FieldCount(schema.GetFieldCount()),
      m_CarryRoom(tuning.carryRoom) {
    if (m_FieldCount > kMaxFields)
        throw CExc(u"idxdata::CTableStream: a schema of %1 fields is not supported.",
                   util::ToStrU32(m_FieldCount), kHrInvalidArg);
    for (uint32_t i = 0; i < m_FieldCount; ++i) {
        m_Types[i] = static_cast<uint16_t>(schema.GetFieldType(i));
        m_FixedOff[i] = m_FixedSize;
        m_StringRank[i] = m_StringCount;
        if (m_Types[i] == FieldString) m_LengthOff[m_StringCount++] = m_FixedSize;
        m_FixedSize += m_Types[i] == FieldQword ? 8 : 4;
    }
    m_RowAt = m_FileAt = m_Table.start + firstRowPos;
    platform::CHandle file = platform::FileOpen(m_FileName, platform::kGenericRead, platform::kShareRead,
                                                platform::kOpenExisting, platform::kFlagSequentialScan);
    if (!file.IsValid())
        throw CWin32Exc(u"idxdata::CTableStream fail. Cannot open file [%1] for read.", m_FileName);
    m_Ahead = std::make_unique<CReadAhead>(std::move(file), m_FileName, u"idxdata::CTableStream::_Fill",
                                           m_FileAt, std::max(m_FileAt, m_Table.end), tuning);
}

void CTableStream::ThrowDamaged(uint64_t offset, std::u16string_view what) const {
    ThrowDamagedTable(m_FileName, m_Table.tableId, m_Table.start, offset, what);
}

void CTableStream::_GiveChunk() {
    if (m_HaveChunk) m_Ahead->Give(m_Chunk);
    m_HaveChunk = false;
}

void CTableStream::_Fill(uint64_t want) {
    const uint64_t keepFrom = m_RowAt - m_FileAt;
    const uint64_t kept = m_Len - keepFrom;
    if (kept > m_CarryRoom) return _FillBig(want);
    // The next chunk starts where the window ends; what the window holds
    // of the current row goes into the room in front of it.
    const CReadAhead::TChunk next = m_Ahead->Take();
    if (kept != 0) std::memcpy(next.data - kept, m_Win + keepFrom, static_cast<size_t>(kept));
    _GiveChunk();
    m_InBig = false;
    m_Chunk = next;
    m_HaveChunk = true;
    m_Win = next.data - kept;
    m_Len = kept + next.size;
    m_Limit = m_Win + m_Len;
    m_FileAt = m_RowAt;
    if (next.size == 0) ThrowDamaged(next.at, u"the file ends before the table does");
    if (m_Len < want) _FillBig(want);
}

void CTableStream::_FillBig(uint64_t want) {
    const uint64_t keepFrom = m_RowAt - m_FileAt;
    const uint64_t kept = m_Len - keepFrom;
    const size_t parity = m_RowAt & 1;
    const size_t size = parity + static_cast<size_t>(kept);
    if (m_InBig) {
        std::memmove(m_Big.data() + parity, m_Win + keepFrom, static_cast<size_t>(kept));
    } else {
        if (m_Big.size() < size) m_Big.resize(size);
        if (kept != 0) std::memcpy(m_Big.data() + parity, m_Win + keepFrom, static_cast<size_t>(kept));
        _GiveChunk();
        m_InBig = true;
    }
    m_FileAt = m_RowAt;
    m_Len = kept;
    m_Win = m_Big.data() + parity;
    m_Limit = m_Win + m_Len;
    while (m_Len < want) {
        const CReadAhead::TChunk next = m_Ahead->Take();
        if (next.size == 0) {
            m_Ahead->Give(next);
            ThrowDamaged(next.at, u"the file ends before the table does");
        }
        const size_t end = parity + static_cast<size_t>(m_Len);
        if (m_Big.size() < end + next.size) m_Big.resize(std::max(end + next.size, m_Big.size() * 2));
        std::memcpy(m_Big.data() + end, next.data, next.size);
        m_Ahead->Give(next);
        m_Len += next.size;
        m_Win = m_Big.data() + parity;
        m_Limit = m_Win + m_Len;
    }
}

void CTableStream::_Ensure(uint64_t size) {
    const uint64_t have = m_Len - (m_RowAt - m_FileAt);
    if (have < size) _Fill(size);
}

bool CTableStream::_NextSlow() {
    if (m_RowsRead >= m_RowCount) {
        const uint64_t nextAt = _NextAt();
        if (nextAt != m_Table.end)
            ThrowDamaged(nextAt, FormatMessageArgs(u"0x%1 bytes follow the last of %2 rows",
                                                   {util::Hex16(m_Table.end - nextAt), util::ToStrU64(m_RowCount)}));
        return false;
    }
    _NextChecked();
    ++m_RowsRead;
    return true;
}

void CTableStream::_NextChecked() {
    m_RowAt = _NextAt();
    const uint64_t left = m_Table.end - m_RowAt;
    uint64_t off = 0;
    auto need = [&](uint64_t size, const char16_t* what) {
        if (left < off || left - off < size)
            ThrowDamaged(m_RowAt + off, FormatMessageArgs(u"%1 runs past the table's end 0x%2",
                                                          {what, util::Hex16(m_Table.end)}));
        _Ensure(off + size);
    };
    uint64_t units = 0;
    for (uint32_t i = 0; i < m_FieldCount; ++i) {
        switch (m_Types[i]) {
            case FieldQword: need(8, u"a long long"); off += 8; break;
            case FieldDword: need(4, u"a dword"); off += 4; break;
            default: {  // FieldString: the schema has no other type
                need(4, u"a string length");
                const uint32_t n = GetU32(m_Win + (m_RowAt - m_FileAt) + off);
                if ((left - off - 4) / 2 < n)
                    ThrowDamaged(m_RowAt + off,
                                 FormatMessageArgs(u"a string of %1 units runs past the table's end 0x%2",
                                                   {util::ToStrU32(n), util::Hex16(m_Table.end)}));
                off += 4 + uint64_t{n} * 2;
                units += n;
                m_ExtraBefore[m_StringRank[i] + 1] = 2 * units;
                if (off > kMaxRowSize)
                    ThrowDamaged(m_RowAt, FormatMessageArgs(u"a row of more than 0x%1 bytes (a string of %2 units)",
                                                            {util::Hex16(kMaxRowSize), util::ToStrU32(n)}));
            }
        }
    }
    _Ensure(off);
    m_Row = m_Win + (m_RowAt - m_FileAt);
    m_NextRow = m_Row + off;
}

std::u16string_view CTableStream::_CopyString(uint32_t field) {
    const uint8_t* p = _Field(field);
    const uint32_t n = GetU32(p);
    std::u16string& copy = m_Scratch[field];
    copy.resize(n);
    std::memcpy(copy.data(), p + 4, size_t{n} * 2);
    return copy;
}

}  // namespace idxdata
