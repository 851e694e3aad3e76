#pragma once
// indexer::CIndexBase: the writer of one volume's index file, volume.<X>.ifd.
//
// Between Open and Close it writes four tables side by side (five with
// indexes on), each into a temporary file "Index<seconds>_<Table>.tmp" of
// the output directory through its own CFileWriteCollectorReadCache, so a
// row costs memory copies and a system call happens only when a block fills.
// Close flushes them, appends the other tables to the files table in place
// (the files table, the big one, is never copied), patches row counts and the
// next table chain, and moves the result onto the final name, replacing an
// older file. Layout: docs/index-format.md.
//
// A row has an id (its ordinal in its table, from 0: what rows store to point
// at each other) and a position (its byte offset in its table: what the fast
// path keeps for random access). Each Add... returns the position and, when
// `id` is not null, stores the id there.
//
// Errors: Open on an open base, CWin32Exc 1359 "CIndexBase::Open fail! Files
// alresdy opened!"; Close on a closed one, CWin32Exc 1359 "CIndexBase::Close
// fail! Files is not opened!"; a failed move "CIndexBase::Combine fail!
// MoveFile can`t move file '%1' to '%2'.". Failures of the collectors and of
// the file classes pass unchanged. If Close fails the base stays open but
// spent: the temporary files stay, a second Close throws, and the destructor
// does nothing more. The destructor closes a base still open and logs,
// never throws, a failure. One thread at a time.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "store/records.h"
#include "store/write_collector.h"

namespace indexer {

class CIndexBase {
public:
    static constexpr uint32_t kErrInternalError = 1359;

    CIndexBase() = default;
    ~CIndexBase();
    CIndexBase(const CIndexBase&) = delete;
    CIndexBase& operator=(const CIndexBase&) = delete;

    // Creates the temporary tables in `directory` and writes their headers;
    // the final file will be `directory`\`fileName`. On a failure the tables
    // made so far are closed and deleted and the base stays closed.
    void Open(std::u16string_view directory, bool useIndexes, std::u16string_view fileName);

    // Row: name, parentId, owner, time, size (note the order of the fields).
    uint64_t AddFile(std::u16string_view name, uint32_t owner, uint64_t parentId, uint64_t size,
                     uint64_t time, uint64_t* id);
    uint64_t AddFile(const char16_t* name, uint32_t length, uint32_t owner, uint64_t parentId,
                     uint64_t size, uint64_t time, uint64_t* id) {
        return AddFile(std::u16string_view(name, length), owner, parentId, size, time, id);
    }
    uint64_t AddDir(std::u16string_view name, uint64_t parentId, uint64_t* id);
    uint64_t AddDir(const char16_t* name, uint32_t length, uint64_t parentId, uint64_t* id) {
        return AddDir(std::u16string_view(name, length), parentId, id);
    }
    uint64_t AddOwner(std::u16string_view sid, std::u16string_view second, std::u16string_view third,
                      uint64_t* id);
    uint64_t AddReparse(uint64_t parentId, std::u16string_view name, std::u16string_view substitute,
                        uint64_t* id);

    // Reads back the file row at `position` (as returned by AddFile), also
    // while it still lies in the block being written.
    void ReadFileRecord(uint64_t position, rec::CFileRecord& record);

    void Close();
    bool IsOpen() const { return m_Opened; }

    // Drops the base without combining it: its tables are closed (failures
    // ignored) and their temporary files deleted, also after a Close that
    // failed half-way; nothing is written under the final name. For an
    // indexing attempt that failed, whose tables are of no use and would
    // otherwise keep their space. Does nothing on a closed base.
    void Discard();

    uint64_t GetFileCount() const { return m_Tables[kFiles].rowCount; }
    uint64_t GetDirCount() const { return m_Tables[kDirs].rowCount; }
    uint64_t GetOwnerCount() const { return m_Tables[kOwners].rowCount; }
    uint64_t GetReparseCount() const { return m_Tables[kReparses].rowCount; }
    const std::u16string& GetFinalName() const { return m_FinalName; }

private:
    // Slots in the order of the final file.
    enum ESlot { kFiles, kDirs, kOwners, kReparses, kIndex, kSlotCount };
    struct TTable {
        uint64_t rowCount = 0;
        uint64_t rowCountPos = 0;  // relative to the table's start
        std::u16string tempName;
        CFileWriteCollectorReadCache collector;
    };

    void _OpenTable(ESlot slot, const std::u16string& stem);
    // Starts a row: its position, the id stored, the counter moved on.
    uint64_t _BeginRow(TTable& table, uint64_t* id);
    // Throws for a string longer than a string field can hold.
    static void _CheckString(std::u16string_view text);
    void _WriteString(CFileWriteCollectorReadCache& out, std::u16string_view text);
    void _Combine();
    void _DiscardTables();
    size_t _TableCount() const { return m_UseIndexes ? kSlotCount : kIndex; }

    std::array<TTable, kSlotCount> m_Tables;
    bool m_UseIndexes = false;
    std::u16string m_FinalName;
    bool m_Opened = false;
    bool m_CloseFailed = false;
};

}  // namespace indexer
