#pragma once
// idxdata::CTableStream: the rows of one table of a data file, in order,
// read through a window of the file that only moves forward. The window is
// the current chunk of a CReadAhead (256 KiB; a long table is read ahead on
// a second thread), with the end of the previous chunk copied in front of it
// when a row is cut by the chunk boundary; a row larger than a chunk and its
// carry room is gathered in a buffer of its own. Memory stays at a few
// chunks (about 1.3 MiB, more only for such a row) whatever the size of the
// table: the way to read a table of millions of rows, where
// CIndexBaseReader holds the whole file.
//
// The table's header is checked by the caller first (CSeqTableReader over a
// CFileReader, see the constructor taking one); the stream reads rows from
// the first row's offset to the table's end with its own handle.
//
// Next() brings the whole next row into the window and locates its fields
// (ForEachRow does the same for every row, faster); the accessors read
// fields of that row. A String view stays valid until the next row.
//
// Nothing read is trusted. A field or string running past the table's end, a
// row longer than kMaxRowSize, bytes left behind the last row, or a file
// that ends before the table does throw the damaged-file CExc of
// ThrowDamagedTable, naming the file, the table and the byte offset, when
// Next() reaches the row (never earlier, even when the bytes were read
// ahead). A failed system call throws CWin32Exc "%1 fail. Cannot read file
// [%2] at offset 0x%3.". One thread at a time; the object owns its handle.

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/file.h"
#include "store/read_ahead.h"
#include "store/records.h"
#include "store/seq_table_reader.h"
#include "store/table_format.h"

namespace idxdata {

class CTableStream {
public:
    // No row of a real index comes near this (a path of 32,767 units is
    // 64 KiB); a larger one is taken as a damaged string count, so that a
    // damaged file cannot make the window grow with the table.
    static constexpr uint32_t kMaxRowSize = 16u << 20;
    static constexpr uint32_t kMaxFields = 8;
    using TTuning = CReadAhead::TTuning;

    // Streams the rows of a table whose header `checked` has read and
    // checked against `schema` (REQUIRES: at most kMaxFields fields).
    CTableStream(std::u16string_view fileName, const CSeqTableReader& checked, const IRecord& schema,
                 const TTuning& tuning = {})
        : CTableStream(fileName, checked.GetTable(), checked.GetFirstRowPos(), checked.GetRowCount(), schema,
                       tuning) {}
    // The same from what such a check found: the table, the position of its
    // first row (table-relative) and its row count. `tuning` sets the
    // chunks (tests make them small).
    CTableStream(std::u16string_view fileName, const TTableInfo& table, uint64_t firstRowPos,
                 uint64_t rowCount, const IRecord& schema, const TTuning& tuning = {});
    CTableStream(CTableStream&&) = default;
    CTableStream(const CTableStream&) = delete;
    CTableStream& operator=(const CTableStream&) = delete;

    // The next row; false once all rows were read, after checking that the
    // last one ends exactly at the table's end.
    bool Next() {
        // The row wholly inside the window: one bound check a string and
        // one a row. Anything else goes the slow way, which finds the same
        // row or reports the damage precisely.
        if (m_RowsRead < m_RowCount) {
            const uint8_t* row = m_NextRow;
            const uint64_t avail = static_cast<uint64_t>(m_Limit - row);
            uint64_t extra = 0;  // bytes of the strings so far
            for (uint32_t k = 0; k < m_StringCount; ++k) {
                const uint64_t lengthAt = m_LengthOff[k] + extra;
                if (lengthAt + 4 > avail) return _NextSlow();
                extra += 2 * uint64_t{GetU32(row + lengthAt)};
                m_ExtraBefore[k + 1] = extra;
            }
            if (m_FixedSize + extra > avail) return _NextSlow();
            m_Row = row;
            m_NextRow = row + m_FixedSize + extra;
            ++m_RowsRead;
            return true;
        }
        return _NextSlow();
    }

    // Calls visit() once for each row left, in order, with that row current
    // (the accessors read it): what `while (Next()) visit();` does, but with
    // the position of the next row kept in registers rather than in the
    // object, which takes the store and reload out of the path from one row
    // to the next. REQUIRES: visit() does not call Next().
    template <class F>
    void ForEachRow(F&& visit) {
        // What the loop reads of the object on every row is copied to
        // locals first: visit() may call out of line, after which the
        // compiler would read the object again.
        const uint8_t* row = m_NextRow;
        const uint8_t* limit = m_Limit;
        uint64_t left = m_RowCount - m_RowsRead;
        const uint32_t strings = m_StringCount, fixedSize = m_FixedSize, firstLength = m_LengthOff[0];
        for (;;) {
            const uint64_t avail = static_cast<uint64_t>(limit - row);
            uint64_t size = fixedSize;
            bool whole = left != 0;
            if (strings == 1) {  // names of files and directories
                whole = whole && firstLength + 4 <= avail;
                if (whole) size += 2 * uint64_t{GetU32(row + firstLength)};
                m_ExtraBefore[1] = size - fixedSize;
            } else {
                for (uint32_t k = 0; k < strings && whole; ++k) {
                    const uint64_t lengthAt = m_LengthOff[k] + size - fixedSize;
                    whole = lengthAt + 4 <= avail;
                    if (whole) size += 2 * uint64_t{GetU32(row + lengthAt)};
                    m_ExtraBefore[k + 1] = size - fixedSize;
                }
            }
            if (whole && size <= avail) {
                m_Row = row;
                row += size;
                --left;
                ++m_RowsRead;
            } else {
                m_NextRow = row;
                if (!_NextSlow()) return;
                row = m_NextRow;
                limit = m_Limit;
                left = m_RowCount - m_RowsRead;
            }
            visit();
        }
    }

    uint64_t GetRowCount() const { return m_RowCount; }
    // The current row's id (its ordinal from 0) and position (offset from
    // the table's start, as CIndexBase::Add... returned it).
    uint64_t GetRowId() const { return m_RowsRead - 1; }
    uint64_t GetRowPos() const { return _RowAt() - m_Table.start; }
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
    [[noreturn]] void ThrowDamagedRow(std::u16string_view what) const { ThrowDamaged(_RowAt(), what); }

private:
    // Next() past the fast path: the end of the table, or a row that needs
    // the window moved, or damage.
    bool _NextSlow();
    void _NextChecked();
    std::u16string_view _CopyString(uint32_t field);
    // Makes the file bytes [m_RowAt, m_RowAt + size) present in the window.
    // REQUIRES: they lie inside the table.
    void _Ensure(uint64_t size);
    // Moves the window to start at m_RowAt and hold at least `want` bytes.
    void _Fill(uint64_t want);
    // Gathers the rest of the window and the chunks after it in m_Big.
    void _FillBig(uint64_t want);
    void _GiveChunk();
    uint64_t _RowAt() const { return m_FileAt + static_cast<uint64_t>(m_Row - m_Win); }
    uint64_t _NextAt() const { return m_FileAt + static_cast<uint64_t>(m_NextRow - m_Win); }
    const uint8_t* _Field(uint32_t field) const {
        return m_Row + m_FixedOff[field] + m_ExtraBefore[m_StringRank[field]];
    }

    std::u16string m_FileName;
    TTableInfo m_Table;
    uint64_t m_RowCount = 0;
    uint64_t m_RowsRead = 0;
    uint32_t m_FieldCount = 0;
    std::array<uint16_t, kMaxFields> m_Types{};
    // A field's offset in a row is its offset with every string taken as
    // empty (m_FixedOff), plus the bytes of the strings before it.
    std::array<uint32_t, kMaxFields> m_FixedOff{};
    std::array<uint32_t, kMaxFields> m_StringRank{};  // strings before the field
    std::array<uint32_t, kMaxFields> m_LengthOff{};   // the k-th string's m_FixedOff
    uint32_t m_StringCount = 0;
    uint32_t m_FixedSize = 0;                               // a row whose strings are empty
    std::array<uint64_t, kMaxFields + 1> m_ExtraBefore{};  // of the current row
    std::array<std::u16string, kMaxFields> m_Scratch;      // strings at odd offsets

    std::unique_ptr<CReadAhead> m_Ahead;
    CReadAhead::TChunk m_Chunk;  // the chunk the window lies in, unless m_InBig
    bool m_HaveChunk = false;
    bool m_InBig = false;
    uint32_t m_CarryRoom = 0;
    std::vector<uint8_t> m_Big;  // a window too large for a chunk
    // The window: m_Win[0, m_Len) holds the file bytes from m_FileAt; it
    // always ends where the chunks taken end. A byte lies at an address of
    // the parity of its offset, so a string at an even offset of the file
    // lies at an even address.
    const uint8_t* m_Win = nullptr;
    const uint8_t* m_Limit = nullptr;  // m_Win + m_Len
    uint64_t m_Len = 0;
    uint64_t m_FileAt = 0;

    uint64_t m_RowAt = 0;  // the row being read the slow way
    const uint8_t* m_Row = nullptr;
    const uint8_t* m_NextRow = nullptr;
};

}  // namespace idxdata
