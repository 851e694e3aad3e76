#pragma once
// indexer::CIndexBaseReader: a reader of the index files that CIndexBase
// writes (volume.<X>.ifd), for consumers of those files and for tests. No
// step of an indexing run uses it.
//
// Open loads the whole file into memory (CBuffFileReader: at most
// 0xFFFFFFFF bytes), walks and checks the chain of tables, and opens the
// files, directories and owners tables (required) and the reparse and index
// tables (optional). PrepareIdIndexes reads the directory and owner tables
// once and builds the arrays from id to position (rows have no fixed length),
// checking each directory row: a name for every row but the root, a parent
// id that names a row. Lookups by id and the walks over file and reparse
// rows check every id a row holds against the tables it points into.
//
// Limits: kMaxDirs directory rows ("%1 fail. Too many directories! [0x%2].")
// and kMaxOwners owner rows ("%1 fail. Too many owners! [0x%2]."), so the
// arrays stay under 1 GiB and 128 MiB; a consumer may set lower ones
// (TLimits). A file row's owner must name an owner row, except 0 ("no known
// owner"), accepted in a base without owner rows.
//
// Errors: besides the texts of the table readers (seq_table_reader.h), the
// fixed texts of the .cpp, %1 being the full function name. A damaged file
// always ends in a CExc; nothing is read outside the file's bytes.
// One thread at a time.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "store/buff_file_reader.h"
#include "store/records.h"
#include "store/seq_table_reader.h"

namespace indexer {

// Throws the damaged-table CExc unless `tables` (a file's chain, in order)
// are files, directories and owners, then reparse points and the index table
// where they were written, in this order and no other table: anything else
// is a damaged id, not a table to skip. A chain may end early: a missing
// required table is the caller's to report.
void CheckIndexTableOrder(std::u16string_view fileName, const std::vector<idxdata::TTableInfo>& tables);

class CIndexBaseReader {
public:
    static constexpr uint64_t kMaxDirs = 0x08000000;
    static constexpr uint64_t kMaxOwners = 0x01000000;

    // The most directory and owner rows PrepareIdIndexes accepts; values
    // above kMaxDirs and kMaxOwners count as those.
    struct TLimits {
        uint64_t maxDirs = kMaxDirs;
        uint64_t maxOwners = kMaxOwners;
    };

    CIndexBaseReader() = default;
    explicit CIndexBaseReader(const TLimits& limits) : m_Limits(limits) {}
    CIndexBaseReader(const CIndexBaseReader&) = delete;
    CIndexBaseReader& operator=(const CIndexBaseReader&) = delete;

    // Opens and checks the file (an open reader is closed first).
    void Open(std::u16string_view fileName);
    void Close();

    // Every operation below throws "%1 fail. No index base file is open."
    // on a reader that is not open.
    bool IsOpen() const { return m_Data != nullptr; }
    uint64_t GetFileCount() const { return _Table(m_Files).GetRowCount(); }
    uint64_t GetDirCount() const { return _Table(m_Dirs).GetRowCount(); }
    uint64_t GetOwnerCount() const { return _Table(m_Owners).GetRowCount(); }
    // 0 when the base has no reparse table.
    uint64_t GetReparseCount() const;
    bool HasIndexes() const { return m_Index.has_value(); }
    // The index table's row count; "Index file is not used!" without one.
    uint64_t GetIndexRowCount() const;
    const std::vector<idxdata::TTableInfo>& GetTables() const;

    void PrepareIdIndexes();
    // Position (table-relative offset) of a row by id. REQUIRES PrepareIdIndexes.
    uint64_t GetDirIndexById(uint64_t id) const;
    uint64_t GetOwnerIndexById(uint64_t id) const;
    void GetDir(uint64_t id, rec::CDirRecord& record);
    void GetOwner(uint64_t id, rec::COwnerRecord& record);
    // The directory's path from the root, names joined by "\" ("" for the
    // root). Follows at most GetDirCount() parents, so a loop of parents is
    // reported, not followed forever.
    std::u16string GetDirPath(uint64_t id);

    // Every file row in order: id, position, record; parent and owner ids are
    // checked (REQUIRES PrepareIdIndexes). The same for reparse rows.
    using FileVisitor = std::function<void(uint64_t id, uint64_t position, const rec::CFileRecord&)>;
    using ReparseVisitor = std::function<void(uint64_t id, const rec::CReparseRecord&)>;
    void ForEachFile(const FileVisitor& visit);
    void ForEachReparse(const ReparseVisitor& visit);
    // The file row at a position CIndexBase::AddFile returned.
    void ReadFileAt(uint64_t position, rec::CFileRecord& record);

private:
    void _OpenIndexBaseFile(std::u16string_view fileName);
    // The table, or the not-open failure.
    const idxdata::CSeqTableReader& _Table(const std::optional<idxdata::CSeqTableReader>& table) const;
    idxdata::CSeqTableReader& _Table(std::optional<idxdata::CSeqTableReader>& table);
    void _CheckDirId(idxdata::CSeqTableReader& table, uint64_t rowId, uint64_t dirId) const;

    TLimits m_Limits;
    std::u16string m_FileName;
    idxdata::CBuffFileReader m_Reader;
    std::unique_ptr<idxdata::CDataFileReader> m_Data;
    std::optional<idxdata::CSeqTableReader> m_Files, m_Dirs, m_Owners, m_Reparses, m_Index;
    std::vector<uint64_t> m_PosDirsIndex;
    std::vector<uint64_t> m_PosOwnersIndex;
};

}  // namespace indexer
