#pragma once
// idxdata::CTableStream: the rows of one table of a data file, in order,
// read through a window of the file that only moves forward. Memory stays at
// the window (1 MiB, more only for a row that does not fit) whatever the
// size of the table: the way to read a table of millions of rows, where
// CIndexBaseReader holds the whole file.
//
// The table's header is checked by the caller first (CSeqTableReader over a
// CFileReader, see the constructor taking one); the stream reads rows from
// the first row's offset to the table's end with its own handle.
//
// Next() brings the whole next row into the window and locates its fields;
// the accessors read fields of that row. A String view stays valid until the
// next call of Next().
//
// Nothing read is trusted. A field or string running past the table's end, a
// row longer than kMaxRowSize, bytes left behind the last row, or a file
// that ends before the table does throw the damaged-file CExc of
// ThrowDamagedTable, naming the file, the table and the byte offset. A
// failed system call throws CWin32Exc "%1 fail. Cannot read file [%2] at
// offset 0x%3.". One thread at a time; the object owns its handle.

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/file.h"
#include "store/records.h"
#include "store/seq_table_reader.h"
#include "store/table_format.h"

namespace idxdata {

class CTableStream {
public:
    static constexpr uint32_t kWindowSize = 1u << 20;
    // No row of a real index comes near this (a path of 32,767 units is
    // 64 KiB); a larger one is taken as a damaged string count, so that a
    // damaged file cannot make the window grow with the table.
    static constexpr uint32_t kMaxRowSize = 16u << 20;
    static constexpr uint32_t kMaxFields = 8;

    // Streams the rows of a table whose header `checked` has read and
    // checked against `schema` (REQUIRES: at most kMaxFields fields).
    CTableStream(std::u16string_view fileName, const CSeqTableReader& checked, const IRecord& schema)
        : CTableStream(fileName, checked.GetTable(), checked.GetFirstRowPos(), checked.GetRowCount(), schema) {}
    // The same from what such a check found: the table, the position of its
    // first row (table-relative) and its row count.
    CTableStream(std::u16string_view fileName, const TTableInfo& table, uint64_t firstRowPos,
                 uint64_t rowCount, const IRecord& schema);
    CTableStream(CTableStream&&) = default;
    CTableStream(const CTableStream&) = delete;
    CTableStream& operator=(const CTableStream&) = delete;

    // The next row; false once all rows were read, after checking that the
    // last one ends exactly at the table's end.
    bool Next() {
        if (m_RowsRead < m_RowCount && _NextInWindow()) {
            ++m_RowsRead;
            return true;
        }
        return _NextSlow();
    }

    uint64_t GetRowCount() const { return m_RowCount; }
    // The current row's id (its ordinal from 0) and position (offset from
    // the table's start, as CIndexBase::Add... returned it).
    uint64_t GetRowId() const { return m_RowsRead - 1; }
    uint64_t GetRowPos() const { return m_RowAt - m_Table.start; }
    const TTableInfo& GetTable() const { return m_Table; }

    // Fields of the current row by index (REQUIRES: a field of that type).
    uint64_t Qword(uint32_t field) const { return GetU64(_Field(field)); }
    uint32_t Dword(uint32_t field) const { return GetU32(_Field(field)); }
    std::u16string_view String(uint32_t field) {
        const uint8_t* p = _Field(field);
        if (reinterpret_cast<uintptr_t>(p + 4) % alignof(char16_t) != 0) return _CopyString(field);
        return std::u16string_view(reinterpret_cast<const char16_t*>(p + 4), GetU32(p));
    }

    // Throws the damaged-file text for an absolute offset of the file.
    [[noreturn]] void ThrowDamaged(uint64_t offset, std::u16string_view what) const;
    // The same at the current row's first byte.
    [[noreturn]] void ThrowDamagedRow(std::u16string_view what) const { ThrowDamaged(m_RowAt, what); }

private:
    // Next() when the row lies wholly in the window: one bound check a
    // string and one a row. False sends the row the slow way, which finds
    // the same row or reports the damage precisely.
    bool _NextInWindow() {
        const size_t at = m_Begin + static_cast<size_t>(m_NextAt - m_FileAt);
        if (at > m_End) return false;
        const uint64_t avail = std::min<uint64_t>(m_End - at, m_Table.end - m_NextAt);
        const uint8_t* row = m_Data.data() + at;
        uint64_t units = 0;
        for (uint32_t k = 0; k < m_StringCount; ++k) {
            const uint64_t lengthAt = m_FixedOff[m_StringField[k]] + 2 * units;
            if (lengthAt + 4 > avail) return false;
            units += GetU32(row + lengthAt);
            m_UnitsBefore[k + 1] = units;
        }
        const uint64_t size = m_FixedSize + 2 * units;
        if (size > avail) return false;
        m_RowAt = m_NextAt;
        m_Row = row;
        m_NextAt += size;
        return true;
    }
    // Next() past the fast path: the end of the table, or a row that needs
    // the window refilled, or damage.
    bool _NextSlow();
    void _NextChecked();
    std::u16string_view _CopyString(uint32_t field);
    // Makes the file bytes [m_RowAt, m_RowAt + size) present in the window.
    // REQUIRES: they lie inside the table.
    void _Ensure(uint64_t size);
    // Reads from the file until the window holds `want` bytes from m_RowAt.
    void _Fill(uint64_t want);
    const uint8_t* _Field(uint32_t field) const {
        return m_Row + m_FixedOff[field] + 2 * m_UnitsBefore[m_StringRank[field]];
    }

    std::u16string m_FileName;
    TTableInfo m_Table;
    uint64_t m_RowCount = 0;
    uint64_t m_RowsRead = 0;
    uint32_t m_FieldCount = 0;
    std::array<uint16_t, kMaxFields> m_Types{};
    // A field's offset in a row is its offset with every string taken as
    // empty (m_FixedOff), plus twice the units of the strings before it.
    std::array<uint32_t, kMaxFields> m_FixedOff{};
    std::array<uint32_t, kMaxFields> m_StringRank{};   // strings before the field
    std::array<uint32_t, kMaxFields> m_StringField{};  // the k-th string's field
    uint32_t m_StringCount = 0;
    uint32_t m_FixedSize = 0;                           // a row whose strings are empty
    std::array<uint64_t, kMaxFields + 1> m_UnitsBefore{};  // of the current row
    std::array<std::u16string, kMaxFields> m_Scratch;  // strings at odd offsets

    platform::CHandle m_File;
    // The window: m_Data[m_Begin, m_End) holds the file bytes from m_FileAt.
    // m_Begin has the parity of m_FileAt, so a string at an even offset of
    // the file lies at an even address.
    std::vector<uint8_t> m_Data;
    size_t m_Begin = 0, m_End = 0;
    uint64_t m_FileAt = 0;

    uint64_t m_RowAt = 0;   // absolute offset of the current row
    uint64_t m_NextAt = 0;  // absolute offset of the next row
    const uint8_t* m_Row = nullptr;
};

}  // namespace idxdata
