#include "store/seq_table_reader.h"

#include <cstring>

#include "base/exc.h"
#include "base/format.h"
#include "store/table_format.h"

namespace idxdata {

namespace {

constexpr char16_t kPrefixNotMatch[] = u"Prefix not match in CSeqTableReader::CSeqTableReader";
constexpr char16_t kBadVersion[] = u"Invalid datafile version in CSeqTableReader::CSeqTableReader";

// The fixed part of a header, offsets 0 to 27.
struct THeadFields {
    uint64_t next = 0;
    uint32_t reserved = 0;
    uint32_t tableId = 0;
    uint32_t fieldCount = 0;
};

// Adds the line that says which table of which file a fixed text is about.
[[noreturn]] void ThrowAtTable(std::u16string_view text, std::u16string_view fileName,
                               uint64_t tableStart) {
    CExc e(text);
    e.AddContext(u"Table at offset 0x%1 of data file [%2].", util::Hex16(tableStart), fileName);
    throw e;
}

// Reads offsets 0..27 of the table at `start` (REQUIRES: 28 bytes there)
// and checks the magic and the version.
THeadFields ReadHead(IReader& reader, std::u16string_view fileName, uint64_t start) {
    reader.SetCurFilePos(start);
    char magic[4];
    reader.ReadPrefix(magic);
    if (std::memcmp(magic, kTableMagic, 4) != 0) ThrowAtTable(kPrefixNotMatch, fileName, start);
    const uint16_t major = reader.ReadWord();
    const uint16_t minor = reader.ReadWord();
    if (major != kTableVersionMajor || minor != kTableVersionMinor)
        ThrowAtTable(kBadVersion, fileName, start);
    THeadFields head;
    head.next = reader.ReadLongLong();
    head.reserved = reader.ReadDWord();
    head.tableId = reader.ReadDWord();
    head.fieldCount = reader.ReadDWord();
    return head;
}

// The fewest bytes a row of the schema can take.
uint64_t MinRowSize(const IRecord& schema) {
    uint64_t size = 0;
    for (uint32_t i = 0; i < schema.GetFieldCount(); ++i)
        size += schema.GetFieldType(i) == FieldQword ? 8 : 4;
    return size;
}

}  // namespace

void ThrowDamagedTable(std::u16string_view fileName, uint32_t tableId, uint64_t tableStart,
                       uint64_t offset, std::u16string_view what) {
    throw CExc(FormatMessageArgs(u"Damaged data file [%1]: table %2 at 0x%3, offset 0x%4: %5.",
                                 {fileName, util::ToStrU32(tableId), util::Hex16(tableStart),
                                  util::Hex16(offset), what}));
}

// ---- CDataFileReader

CDataFileReader::CDataFileReader(IReader& reader, std::u16string_view fileName, uint64_t fileSize)
    : m_Reader(reader), m_FileName(fileName) {
    uint64_t start = 0;
    while (true) {
        if (m_Tables.size() >= kMaxTables)
            ThrowDamagedTable(m_FileName, 0, start, start, u"more tables than a data file holds");
        if (fileSize < start || fileSize - start < kOffFieldTypes)
            ThrowDamagedTable(m_FileName, 0, start, start, u"the table header is cut short by the end of the file");
        const THeadFields head = ReadHead(m_Reader, m_FileName, start);
        const uint64_t headerEnd = start + TableHeaderSize(head.fieldCount);
        uint64_t end = fileSize;
        if (head.next == kNextTableUncombined)
            ThrowDamagedTable(m_FileName, head.tableId, start, start + kOffNextTable,
                              u"the table was never combined (next table offset -1)");
        if (head.next != 0) {
            if (head.next < headerEnd || head.next > fileSize)
                ThrowDamagedTable(m_FileName, head.tableId, start, start + kOffNextTable,
                                  FormatMessageArgs(u"the next table offset 0x%1 lies outside 0x%2..0x%3",
                                                    {util::Hex16(head.next), util::Hex16(headerEnd),
                                                     util::Hex16(fileSize)}));
            end = head.next;
        }
        if (headerEnd > end)
            ThrowDamagedTable(m_FileName, head.tableId, start, start + kOffFieldCount,
                              FormatMessageArgs(u"a header of %1 fields runs past the table's end 0x%2",
                                                {util::ToStrU32(head.fieldCount), util::Hex16(end)}));
        m_Tables.push_back(TTableInfo{head.tableId, start, end, head.fieldCount});
        if (head.next == 0) break;
        start = head.next;  // strictly forward: the walk ends
    }
}

const TTableInfo* CDataFileReader::FindTable(uint32_t tableId) const {
    for (const auto& table : m_Tables)
        if (table.tableId == tableId) return &table;
    return nullptr;
}

CSeqTableReader CDataFileReader::OpenSeqTable(uint32_t tableId, const IRecord& schema, EOpenMode mode) {
    if (mode != OpenForRead) throw CExc(u"CDataFileReader::OpenSeqTable not implemented");
    const TTableInfo* table = FindTable(tableId);
    if (!table) throw CExc(u"Table not found in CDataFileReader::OpenSeqTable");
    return CSeqTableReader(m_Reader, m_FileName, *table, tableId, schema);
}

// ---- CSeqTableReader

CSeqTableReader::CSeqTableReader(IReader& reader, std::u16string_view fileName,
                                 const TTableInfo& table, uint32_t tableId, const IRecord& schema)
    : m_Reader(reader), m_FileName(fileName), m_Table(table), m_Pos(table.start) {
    if (m_Table.end < m_Table.start || m_Table.end - m_Table.start < kOffFieldTypes)
        ThrowDamaged(u"the table header is cut short");
    const THeadFields head = ReadHead(m_Reader, m_FileName, m_Table.start);
    if (head.tableId != tableId || head.reserved != 0)
        ThrowAtTable(u"Wrong table format in CSeqTableReader::CSeqTableReader", m_FileName, m_Table.start);
    if (head.fieldCount != schema.GetFieldCount())
        ThrowAtTable(u"Number of fields not match in CSeqTableReader::CSeqTableReader", m_FileName,
                     m_Table.start);
    m_Pos = m_Table.start + kOffFieldTypes;
    _Need(TableHeaderSize(head.fieldCount) - kOffFieldTypes, u"the field types and row count");
    for (uint32_t i = 0; i < head.fieldCount; ++i) {
        if (m_Reader.ReadWord() != schema.GetFieldType(i))
            ThrowAtTable(u"Types not match in CSeqTableReader::CSeqTableReader", m_FileName, m_Table.start);
        m_Pos += 2;
    }
    m_RowCount = m_Reader.ReadLongLong();
    m_Pos += 8;
    m_RowsStart = m_Pos;
    // Rows of no fields take no bytes, so nothing could vouch for a count.
    const uint64_t minRow = MinRowSize(schema);
    if (minRow == 0 ? m_RowCount != 0 : m_RowCount > (m_Table.end - m_RowsStart) / minRow) {
        m_Pos = m_RowsStart - 8;
        ThrowDamaged(FormatMessageArgs(u"%1 rows cannot fit in 0x%2 bytes",
                                       {util::ToStrU64(m_RowCount), util::Hex16(m_Table.end - m_RowsStart)}));
    }
}

void CSeqTableReader::ThrowDamaged(std::u16string_view what) const {
    ThrowDamagedTable(m_FileName, m_Table.tableId, m_Table.start, m_Pos, what);
}

void CSeqTableReader::_Need(uint64_t size, const char16_t* what) const {
    if (m_Pos > m_Table.end || m_Table.end - m_Pos < size)
        ThrowDamaged(FormatMessageArgs(u"%1 runs past the table's end 0x%2", {what, util::Hex16(m_Table.end)}));
}

bool CSeqTableReader::ReadRecord(IRecord& record) {
    if (m_RowsRead >= m_RowCount) {
        if (m_Pos != m_Table.end)
            ThrowDamaged(FormatMessageArgs(u"0x%1 bytes follow the last of %2 rows",
                                           {util::Hex16(m_Table.end - m_Pos), util::ToStrU64(m_RowCount)}));
        return false;
    }
    m_Reader.SetCurFilePos(m_Pos);
    record.Deserialize(*this);
    ++m_RowsRead;
    return true;
}

void CSeqTableReader::ReadRecordAt(uint64_t position, IRecord& record) {
    const uint64_t saved = m_Pos;
    if (position < GetFirstRowPos() || position >= m_Table.end - m_Table.start)
        ThrowDamaged(FormatMessageArgs(u"no row can start at the table offset 0x%1", {util::Hex16(position)}));
    m_Pos = m_Table.start + position;
    m_Reader.SetCurFilePos(m_Pos);
    record.Deserialize(*this);
    m_Pos = saved;
}

uint16_t CSeqTableReader::ReadWord() {
    _Need(2, u"a word");
    m_Pos += 2;
    return m_Reader.ReadWord();
}

uint32_t CSeqTableReader::ReadDWord() {
    _Need(4, u"a dword");
    m_Pos += 4;
    return m_Reader.ReadDWord();
}

uint64_t CSeqTableReader::ReadLongLong() {
    _Need(8, u"a long long");
    m_Pos += 8;
    return m_Reader.ReadLongLong();
}

// The count is read and checked first; then the whole string is read again
// through the IReader, whose own ReadString sizes it.
std::u16string CSeqTableReader::ReadString() {
    const uint64_t at = m_Pos;
    _Need(4, u"a string length");
    const uint32_t n = m_Reader.ReadDWord();
    m_Pos += 4;
    if (m_Table.end - m_Pos < uint64_t{n} * 2) {
        m_Pos = at;
        ThrowDamaged(FormatMessageArgs(u"a string of %1 units runs past the table's end 0x%2",
                                       {util::ToStrU32(n), util::Hex16(m_Table.end)}));
    }
    m_Reader.SetCurFilePos(at);
    std::u16string text = m_Reader.ReadString();
    if (text.size() != n) {
        m_Pos = at;
        ThrowDamaged(u"a string is cut short by the end of the file");
    }
    m_Pos += uint64_t{n} * 2;
    return text;
}

}  // namespace idxdata
