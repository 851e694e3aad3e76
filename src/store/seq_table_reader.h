#pragma once
// The reading side of table files (namespace idxdata).
//
// CDataFileReader walks the chain of tables of a data file from offset 0 and
// checks every header on the way; OpenSeqTable gives a CSeqTableReader on the
// table of a given id, checked against the schema of the caller's record.
// CSeqTableReader reads rows in order or at a remembered position, and checks
// every byte it reads against the table's end.
//
// Nothing read from the file is trusted. A header that is cut short, a next
// table offset that points backwards, inside the header or past the file, a
// row count that cannot fit (any count but 0 where rows have no fields), a
// row or string that runs past its table, bytes left behind the last row:
// each throws a CExc naming the file, the table and
// the byte offset ("Damaged data file [..]: table .. at 0x.., offset 0x..:
// ..."). Mismatches of the header with what was asked for throw the fixed
// texts below, with a context line naming the file and the table's offset.
//   magic is not "TBLX"           "Prefix not match in CSeqTableReader::CSeqTableReader"
//   version is not 1.1            "Invalid datafile version in CSeqTableReader::CSeqTableReader"
//   id or reserved dword differ   "Wrong table format in CSeqTableReader::CSeqTableReader"
//   field count differs           "Number of fields not match in CSeqTableReader::CSeqTableReader"
//   a field type differs          "Types not match in CSeqTableReader::CSeqTableReader"
//   no table of the id            "Table not found in CDataFileReader::OpenSeqTable"
//   a mode other than read        "CDataFileReader::OpenSeqTable not implemented"
//
// The readers borrow an IReader (normally a CBuffFileReader, which itself
// refuses to read past the file) and the caller keeps it open while they
// live. Several table readers may share one IReader: each row read starts by
// seeking to the row. One thread at a time.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "store/records.h"
#include "store/serial.h"

namespace idxdata {

// One table of a data file, as the chain walk found it.
struct TTableInfo {
    uint32_t tableId = 0;
    uint64_t start = 0;       // absolute offset of the table's first byte
    uint64_t end = 0;         // absolute offset behind its last byte
    uint32_t fieldCount = 0;
};

class CSeqTableReader final : public IDeserializator {
public:
    // Reads and checks the header of `table` (see above) against tableId and
    // the field list of `schema`.
    CSeqTableReader(IReader& reader, std::u16string_view fileName, const TTableInfo& table,
                    uint32_t tableId, const IRecord& schema);

    uint64_t GetRowCount() const { return m_RowCount; }
    uint64_t GetRowsRead() const { return m_RowsRead; }
    // Table-relative offset of the first row, and of the next row to read.
    uint64_t GetFirstRowPos() const { return m_RowsStart - m_Table.start; }
    uint64_t GetPos() const { return m_Pos - m_Table.start; }
    const TTableInfo& GetTable() const { return m_Table; }

    // Reads the next row; false once all rows are read, after checking that
    // the last row ends exactly at the table's end.
    bool ReadRecord(IRecord& record);
    // Reads the row at a table-relative position (as CIndexBase returned it);
    // does not change the sequential position.
    void ReadRecordAt(uint64_t position, IRecord& record);

    // Bounded reads within the table (IDeserializator).
    uint16_t ReadWord() override;
    uint32_t ReadDWord() override;
    uint64_t ReadLongLong() override;
    std::u16string ReadString() override;

    // Throws the damaged-file text for the current offset.
    [[noreturn]] void ThrowDamaged(std::u16string_view what) const;

private:
    void _Need(uint64_t size, const char16_t* what) const;

    IReader& m_Reader;
    std::u16string m_FileName;
    TTableInfo m_Table;
    uint64_t m_RowCount = 0;
    uint64_t m_RowsRead = 0;
    uint64_t m_RowsStart = 0;  // absolute
    uint64_t m_Pos = 0;        // absolute, in step with the IReader while a row is read
};

class CDataFileReader {
public:
    enum EOpenMode : uint32_t {
        OpenForRead = 0,
        OpenForWrite = 1,  // not provided: tables are written by CSeqTableWriter
    };
    // At most this many tables are followed in one file.
    static constexpr size_t kMaxTables = 1024;

    // Walks and checks the chain of the file of `fileSize` bytes.
    CDataFileReader(IReader& reader, std::u16string_view fileName, uint64_t fileSize);

    const std::vector<TTableInfo>& GetTables() const { return m_Tables; }
    // The first table of the id in the chain, or null.
    const TTableInfo* FindTable(uint32_t tableId) const;
    CSeqTableReader OpenSeqTable(uint32_t tableId, const IRecord& schema,
                                 EOpenMode mode = OpenForRead);

private:
    IReader& m_Reader;
    std::u16string m_FileName;
    std::vector<TTableInfo> m_Tables;
};

// "Damaged data file [%1]: table %2 at 0x%3, offset 0x%4: %5."
[[noreturn]] void ThrowDamagedTable(std::u16string_view fileName, uint32_t tableId,
                                    uint64_t tableStart, uint64_t offset, std::u16string_view what);

}  // namespace idxdata
