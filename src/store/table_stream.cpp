#include "store/table_stream.h"

#include <algorithm>
#include <cstring>

#include "base/exc.h"
#include "base/format.h"
#include "platform/errors.h"
#include "store/table_format.h"

namespace idxdata {

namespace {
constexpr char16_t kReadFile[] = u"idxdata::CTableStream::_Fill";
}

CTableStream::CTableStream(std::u16string_view fileName, const TTableInfo& table, uint64_t firstRowPos,
                           uint64_t rowCount, const IRecord& schema)
    : m_FileName(fileName), m_Table(table), m_RowCount(rowCount), m_FieldCount(schema.GetFieldCount()) {
    if (m_FieldCount > kMaxFields)
        throw CExc(u"idxdata::CTableStream: a schema of %1 fields is not supported.",
                   util::ToStrU32(m_FieldCount), kHrInvalidArg);
    for (uint32_t i = 0; i < m_FieldCount; ++i) {
        m_Types[i] = static_cast<uint16_t>(schema.GetFieldType(i));
        m_FixedOff[i] = m_FixedSize;
        m_StringRank[i] = m_StringCount;
        if (m_Types[i] == FieldString) m_StringField[m_StringCount++] = i;
        m_FixedSize += m_Types[i] == FieldQword ? 8 : 4;
    }
    m_NextAt = m_RowAt = m_Table.start + firstRowPos;
    m_FileAt = m_NextAt;
    m_Begin = m_End = m_FileAt & 1;
    m_File = platform::FileOpen(m_FileName, platform::kGenericRead, platform::kShareRead,
                                platform::kOpenExisting, platform::kFlagSequentialScan);
    if (!m_File.IsValid())
        throw CWin32Exc(u"idxdata::CTableStream fail. Cannot open file [%1] for read.", m_FileName);
}

void CTableStream::ThrowDamaged(uint64_t offset, std::u16string_view what) const {
    ThrowDamagedTable(m_FileName, m_Table.tableId, m_Table.start, offset, what);
}

void CTableStream::_Fill(uint64_t want) {
    // Keep the current row, drop what lies before it, keep the parity.
    const size_t keepFrom = m_Begin + static_cast<size_t>(m_RowAt - m_FileAt);
    const size_t kept = m_End - keepFrom;
    const size_t newBegin = m_RowAt & 1;
    const size_t need = newBegin + static_cast<size_t>(want);
    if (m_Data.size() < need || m_Data.empty())
        m_Data.resize(std::max<size_t>(need, std::max<size_t>(m_Data.size(), kWindowSize + 1)));
    if (kept != 0 && keepFrom != newBegin) std::memmove(m_Data.data() + newBegin, m_Data.data() + keepFrom, kept);
    m_Begin = newBegin;
    m_End = newBegin + kept;
    m_FileAt = m_RowAt;

    uint64_t readAt = m_FileAt + kept;
    if (!platform::FileSeek(m_File.Get(), static_cast<int64_t>(readAt), nullptr, platform::kFileBegin))
        throw CWin32Exc(u"%1 fail. Cannot read file [%2] at offset 0x%3.", kReadFile, m_FileName,
                        util::Hex16(readAt));
    while (m_End - m_Begin < want) {
        // Fill the window, but never read past the table.
        const uint64_t room = std::min<uint64_t>(m_Data.size() - m_End, m_Table.end - readAt);
        const uint32_t ask = static_cast<uint32_t>(std::min<uint64_t>(room, 0x40000000));
        uint32_t done = 0;
        if (!platform::FileRead(m_File.Get(), m_Data.data() + m_End, ask, &done))
            throw CWin32Exc(u"%1 fail. Cannot read file [%2] at offset 0x%3.", kReadFile, m_FileName,
                            util::Hex16(readAt));
        if (done == 0) ThrowDamaged(readAt, u"the file ends before the table does");
        m_End += done;
        readAt += done;
    }
}

void CTableStream::_Ensure(uint64_t size) {
    const uint64_t have = m_End - m_Begin - (m_RowAt - m_FileAt);
    if (have < size) _Fill(size);
}

bool CTableStream::_NextSlow() {
    if (m_RowsRead >= m_RowCount) {
        if (m_NextAt != m_Table.end)
            ThrowDamaged(m_NextAt, FormatMessageArgs(u"0x%1 bytes follow the last of %2 rows",
                                                     {util::Hex16(m_Table.end - m_NextAt),
                                                      util::ToStrU64(m_RowCount)}));
        return false;
    }
    _NextChecked();
    ++m_RowsRead;
    return true;
}

void CTableStream::_NextChecked() {
    m_RowAt = m_NextAt;
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
                const uint32_t n = GetU32(m_Data.data() + m_Begin + (m_RowAt - m_FileAt) + off);
                if ((left - off - 4) / 2 < n)
                    ThrowDamaged(m_RowAt + off,
                                 FormatMessageArgs(u"a string of %1 units runs past the table's end 0x%2",
                                                   {util::ToStrU32(n), util::Hex16(m_Table.end)}));
                off += 4 + uint64_t{n} * 2;
                units += n;
                m_UnitsBefore[m_StringRank[i] + 1] = units;
                if (off > kMaxRowSize)
                    ThrowDamaged(m_RowAt, FormatMessageArgs(u"a row of more than 0x%1 bytes (a string of %2 units)",
                                                            {util::Hex16(kMaxRowSize), util::ToStrU32(n)}));
            }
        }
    }
    _Ensure(off);
    m_Row = m_Data.data() + m_Begin + (m_RowAt - m_FileAt);
    m_NextAt = m_RowAt + off;
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
