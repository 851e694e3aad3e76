#pragma once
// catalogue::CIfdTables: an index file (volume.<X>.ifd) opened for
// streaming. Open walks and checks the chain of tables and every header
// (magic, version, ids in the order files, directories, owners, then the
// optional reparse and index tables, field types, row counts that fit), each
// with a few small reads; rows are read later through CTableStream, so the
// file is never held in memory.
//
// Errors: CheckIsIndexFile's for a file that can't be opened or is no index
// file; then the damaged-file texts of the store readers (they name the
// file, the table and the byte offset). One thread at a time.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "store/seq_table_reader.h"
#include "store/table_stream.h"

namespace catalogue {

class CIfdTables {
public:
    explicit CIfdTables(std::u16string_view fileName);

    const std::u16string& GetFileName() const { return m_FileName; }
    uint64_t GetFileSize() const { return m_FileSize; }
    const std::vector<idxdata::TTableInfo>& GetTables() const { return m_Tables; }

    uint64_t GetFileCount() const { return m_Files.rowCount; }
    uint64_t GetDirCount() const { return m_Dirs.rowCount; }
    uint64_t GetOwnerCount() const { return m_Owners.rowCount; }
    bool HasReparses() const { return m_Reparses.has_value(); }
    uint64_t GetReparseCount() const { return m_Reparses ? m_Reparses->rowCount : 0; }
    bool HasIndex() const { return m_Index.has_value(); }

    // A fresh stream over the rows of a table. REQUIRES for Reparses:
    // HasReparses().
    idxdata::CTableStream Files() const;
    idxdata::CTableStream Dirs() const;
    idxdata::CTableStream Owners() const;
    idxdata::CTableStream Reparses() const;

private:
    // What the header check of one table found.
    struct TRows {
        idxdata::TTableInfo table;
        uint64_t firstRowPos = 0;
        uint64_t rowCount = 0;
    };
    static TRows _Rows(const idxdata::CSeqTableReader& checked) {
        return {checked.GetTable(), checked.GetFirstRowPos(), checked.GetRowCount()};
    }
    idxdata::CTableStream _Stream(const TRows& rows, const idxdata::IRecord& schema) const {
        return idxdata::CTableStream(m_FileName, rows.table, rows.firstRowPos, rows.rowCount, schema);
    }
    void _CheckOrder() const;

    std::u16string m_FileName;
    uint64_t m_FileSize = 0;
    std::vector<idxdata::TTableInfo> m_Tables;
    TRows m_Files, m_Dirs, m_Owners;
    std::optional<TRows> m_Reparses, m_Index;
};

// Opens the file and reads its first bytes: its size. Throws CExc with the
// system's message ("cannot open X: No such file or directory"), or "X is
// not an index file: it starts with ..." naming what was found.
uint64_t CheckIsIndexFile(std::u16string_view fileName);

// Field numbers of the rows, in table order.
enum EFileField : uint32_t { kFileName = 0, kFileParent = 1, kFileOwner = 2, kFileTime = 3, kFileSize = 4 };
enum EDirField : uint32_t { kDirName = 0, kDirParent = 1 };
enum EOwnerField : uint32_t { kOwnerSid = 0, kOwnerName = 1, kOwnerDomain = 2 };
enum EReparseField : uint32_t { kReparseParent = 0, kReparseName = 1, kReparseTarget = 2 };

}  // namespace catalogue
