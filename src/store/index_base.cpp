#include "store/index_base.h"

#include <cstring>
#include <ctime>
#include <vector>

#include "base/buf.h"
#include "base/exc.h"
#include "diag/log.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "store/file_writer.h"
#include "store/seq_table.h"
#include "store/table_format.h"

namespace indexer {

using namespace idxdata;

namespace {

struct TTableKind {
    const char16_t* suffix;
    uint32_t tableId;
    std::vector<uint16_t> fieldTypes;
    uint32_t blockShift;
    uint32_t maxBlocks;
};

// The tables in the order of the final file, with their cache settings: the
// directory table keeps 32 blocks because the walk reads parents back.
const TTableKind kKinds[] = {
    {u"_Files.tmp", TableFiles, {FieldString, FieldQword, FieldDword, FieldQword, FieldQword}, 18, 4},
    {u"_Dirs.tmp", TableDirs, {FieldString, FieldQword}, 18, 32},
    {u"_Owners.tmp", TableOwners, {FieldString, FieldString, FieldString}, 16, 4},
    {u"_Reparses.tmp", TableReparses, {FieldQword, FieldString, FieldString}, 13, 4},
    {u"_Indexes.tmp", TableIndex, {}, 16, 4},
};

// A free stem "<directory>\Index<seconds>": a second base opened in the
// same second in the same folder takes the next number instead of sharing
// the first one's files.
std::u16string MakeStem(std::u16string_view directory) {
    uint64_t seconds = static_cast<uint64_t>(std::time(nullptr));
    for (int attempt = 0; attempt < 1000; ++attempt, ++seconds) {
        std::u16string stem = JoinPath(directory, u"Index" + util::ToStrU64(seconds));
        if (platform::GetAttributes(stem + kKinds[0].suffix) == platform::kInvalidFileAttributes)
            return stem;
    }
    return JoinPath(directory, u"Index" + util::ToStrU64(seconds));
}

// A string field at `at`: the dword count, then the units. Returns the byte
// after it. REQUIRES: the length was checked (_CheckString).
uint8_t* PutString(uint8_t* at, std::u16string_view text) {
    const auto n = static_cast<uint32_t>(text.size());
    PutU32(at, n);
    if (n != 0) std::memcpy(at + 4, text.data(), size_t{n} * 2);
    return at + 4 + size_t{n} * 2;
}

// The bytes of a string field.
uint64_t StringFieldSize(std::u16string_view text) { return 4 + uint64_t{text.size()} * 2; }

// The fixed tail of a file row: parent, owner, time, size.
constexpr uint32_t kFileTailSize = 28;
void PutFileTail(uint8_t* at, uint64_t parentId, uint32_t owner, uint64_t time, uint64_t size) {
    PutU64(at, parentId);
    PutU32(at + 8, owner);
    PutU64(at + 12, time);
    PutU64(at + 20, size);
}

}  // namespace

CIndexBase::~CIndexBase() {
    if (!m_Opened || m_CloseFailed) return;
    try {
        Close();
    } catch (const CExc& e) {
        GetLog().LogException(FormatMessageArgs(u"Failed to close index base [%1].", {m_FinalName}), e);
    } catch (const std::exception& e) {
        GetLog().LogException(FormatMessageArgs(u"Failed to close index base [%1].", {m_FinalName}),
                              CExc(e));
    }
}

void CIndexBase::Open(std::u16string_view directory, bool useIndexes, std::u16string_view fileName) {
    if (m_Opened) throw CWin32Exc(u"CIndexBase::Open fail! Files alresdy opened!", kErrInternalError);
    m_FinalName = JoinPath(directory, fileName);
    m_UseIndexes = useIndexes;
    const std::u16string stem = MakeStem(directory);
    try {
        for (size_t slot = 0; slot < kSlotCount; ++slot) {
            m_Tables[slot].rowCount = 0;
            m_Tables[slot].rowCountPos = 0;
            m_Tables[slot].tempName.clear();
            if (slot < _TableCount()) _OpenTable(static_cast<ESlot>(slot), stem);
        }
    } catch (CExc&) {
        _DiscardTables();
        throw;
    }
    m_CloseFailed = false;
    m_Opened = true;
}

// Header: "TBLX", 1, 1, next table offset -1 (not combined yet), 0, id,
// field count, field types, then the row count 0 at a remembered position.
void CIndexBase::_OpenTable(ESlot slot, const std::u16string& stem) {
    const TTableKind& kind = kKinds[slot];
    TTable& table = m_Tables[slot];
    table.tempName = stem + kind.suffix;
    table.collector.SetCacheProps(kind.blockShift, kind.maxBlocks);
    table.collector.Open(table.tempName);
    CFileWriteCollectorReadCache& out = table.collector;
    out.WriteBuf(kTableMagic, 4);
    out.WriteWord(kTableVersionMajor);
    out.WriteWord(kTableVersionMinor);
    out.WriteLongLong(kNextTableUncombined);
    out.WriteDWord(0);
    out.WriteDWord(kind.tableId);
    out.WriteDWord(static_cast<uint32_t>(kind.fieldTypes.size()));
    for (uint16_t type : kind.fieldTypes) out.WriteWord(type);
    table.rowCountPos = out.GetWritePos();
    out.WriteLongLong(0);
}

// Closes what is open (errors dropped: the tables are thrown away) and
// deletes the temporary files.
void CIndexBase::Discard() {
    if (!m_Opened) return;
    _DiscardTables();
    m_Opened = false;
    m_CloseFailed = false;
}

void CIndexBase::_DiscardTables() {
    for (TTable& table : m_Tables) {
        if (table.collector.IsOpen()) {
            try {
                table.collector.Close();
            } catch (const CExc&) {
            }
        }
        if (!table.tempName.empty()) platform::FileDelete(table.tempName);
        table.tempName.clear();
    }
}

uint64_t CIndexBase::_BeginRow(TTable& table, uint64_t* id) {
    const uint64_t position = table.collector.GetWritePos();
    if (id) *id = table.rowCount;
    ++table.rowCount;
    return position;
}

void CIndexBase::_CheckString(std::u16string_view text) {
    if (text.size() > 0x7FFFFFFFu) throw CExc(u"CIndexBase: a string of %1 units is too long.",
                                              util::ToStrU64(text.size()), kHrInvalidArg);
}

void CIndexBase::_WriteString(CFileWriteCollectorReadCache& out, std::u16string_view text) {
    _CheckString(text);
    const auto n = static_cast<uint32_t>(text.size());
    out.WriteDWord(n);
    out.WriteSequentially(text.data(), n * 2);
}

uint64_t CIndexBase::AddFile(std::u16string_view name, uint32_t owner, uint64_t parentId,
                             uint64_t size, uint64_t time, uint64_t* id) {
    TTable& table = m_Tables[kFiles];
    const uint64_t position = _BeginRow(table, id);
    _CheckString(name);
    // Nearly every row fits in the block being written: stored in place.
    if (uint8_t* at = table.collector.TryWriteInPlace(StringFieldSize(name) + kFileTailSize)) {
        PutFileTail(PutString(at, name), parentId, owner, time, size);
        return position;
    }
    _WriteString(table.collector, name);
    uint8_t tail[kFileTailSize];
    PutFileTail(tail, parentId, owner, time, size);
    table.collector.WriteSequentially(tail, sizeof tail);
    return position;
}

uint64_t CIndexBase::AddDir(std::u16string_view name, uint64_t parentId, uint64_t* id) {
    TTable& table = m_Tables[kDirs];
    const uint64_t position = _BeginRow(table, id);
    _CheckString(name);
    if (uint8_t* at = table.collector.TryWriteInPlace(StringFieldSize(name) + 8)) {
        PutU64(PutString(at, name), parentId);
        return position;
    }
    _WriteString(table.collector, name);
    table.collector.WriteLongLong(parentId);
    return position;
}

uint64_t CIndexBase::AddOwner(std::u16string_view sid, std::u16string_view second,
                              std::u16string_view third, uint64_t* id) {
    TTable& table = m_Tables[kOwners];
    const uint64_t position = _BeginRow(table, id);
    _WriteString(table.collector, sid);
    _WriteString(table.collector, second);
    _WriteString(table.collector, third);
    return position;
}

uint64_t CIndexBase::AddReparse(uint64_t parentId, std::u16string_view name,
                                std::u16string_view substitute, uint64_t* id) {
    TTable& table = m_Tables[kReparses];
    const uint64_t position = _BeginRow(table, id);
    table.collector.WriteLongLong(parentId);
    _WriteString(table.collector, name);
    _WriteString(table.collector, substitute);
    return position;
}

void CIndexBase::ReadFileRecord(uint64_t position, rec::CFileRecord& record) {
    CFileWriteCollectorReadCache& in = m_Tables[kFiles].collector;
    in.SetReadPos(position);
    record.m_Name = in.ReadString();
    record.m_ParentId = in.ReadLongLong();
    record.m_Owner = in.ReadDWord();
    record.m_ModificationTime = in.ReadLongLong();
    record.m_Size = in.ReadLongLong();
}

void CIndexBase::Close() {
    if (!m_Opened) throw CWin32Exc(u"CIndexBase::Close fail! Files is not opened!", kErrInternalError);
    if (m_CloseFailed)
        throw CExc(u"CIndexBase::Close fail! An earlier Close of [%1] failed; its temporary files stay.",
                   m_FinalName);
    try {
        for (size_t slot = 0; slot < _TableCount(); ++slot) m_Tables[slot].collector.Close();
        _Combine();
    } catch (CExc&) {
        m_CloseFailed = true;
        throw;
    }
    CLog& log = GetLog();
    log.Detail(u"IndexBase statistic:");
    log.Detail(u"    files %1", util::ToStrU64(m_Tables[kFiles].rowCount));
    log.Detail(u"    directories %1", util::ToStrU64(m_Tables[kDirs].rowCount));
    log.Detail(u"    owners %1", util::ToStrU64(m_Tables[kOwners].rowCount));
    log.Detail(u"    reparse points %1", util::ToStrU64(m_Tables[kReparses].rowCount));
    if (m_UseIndexes) log.Detail(u"    index %1\n", util::ToStrU64(m_Tables[kIndex].rowCount));
    for (TTable& table : m_Tables) table.tempName.clear();
    m_Opened = false;
}

// Appends the tables behind the files table to its own temporary file. For
// each table appended, the one before it gets its next table offset (the
// new table's start) and its row count; the last gets 0 and its count.
void CIndexBase::_Combine() {
    GetLog().Detail(u"Combining tables into one file: [%1].", m_FinalName);
    CFileWriter target;
    uint64_t end = 0;
    target.Open(m_Tables[kFiles].tempName, true, &end);
    CBuf<uint8_t> buffer(kCopyBufferSize);
    uint64_t start = 0;
    uint64_t count = m_Tables[kFiles].rowCount;
    uint64_t countPos = m_Tables[kFiles].rowCountPos;
    for (size_t slot = kDirs; slot < _TableCount(); ++slot) {
        const TTable& table = m_Tables[slot];
        target.SetCurFilePos(start + kOffNextTable);
        target.WriteLongLong(end);
        target.SetCurFilePos(start + countPos);
        target.WriteLongLong(count);
        target.SetCurFilePos(end);
        AppendAndDelete(target, table.tempName, buffer);
        start = end;
        end = target.GetCurFilePos();
        count = table.rowCount;
        countPos = table.rowCountPos;
    }
    buffer.Allocate(0);
    target.SetCurFilePos(start + kOffNextTable);
    target.WriteLongLong(0);
    target.SetCurFilePos(start + countPos);
    target.WriteLongLong(count);
    target.SetCurFilePos(end);
    target.Close();
    if (!platform::FileMove(m_Tables[kFiles].tempName, m_FinalName, platform::kMoveReplaceExisting))
        throw CWin32Exc(u"CIndexBase::Combine fail! MoveFile can`t move file '%1' to '%2'.",
                        m_Tables[kFiles].tempName, m_FinalName);
    GetLog().Detail(u"Combining tables complete!");
}

}  // namespace indexer
