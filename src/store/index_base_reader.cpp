#include "store/index_base_reader.h"

#include <algorithm>
#include <iterator>

#include "base/exc.h"
#include "base/format.h"
#include "diag/log.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "store/table_format.h"

namespace indexer {

void CheckIndexTableOrder(std::u16string_view fileName, const std::vector<idxdata::TTableInfo>& tables) {
    static constexpr uint32_t kOrder[] = {idxdata::TableFiles, idxdata::TableDirs, idxdata::TableOwners,
                                          idxdata::TableReparses, idxdata::TableIndex};
    size_t next = 0;
    for (const auto& table : tables) {
        while (next < std::size(kOrder) && kOrder[next] != table.tableId && kOrder[next] > idxdata::TableOwners)
            ++next;
        if (next >= std::size(kOrder) || kOrder[next] != table.tableId)
            idxdata::ThrowDamagedTable(fileName, table.tableId, table.start, table.start + idxdata::kOffTableId,
                                       u"a table of this id does not belong at this place of an index file");
        ++next;
    }
}

using idxdata::CSeqTableReader;

namespace {
constexpr char16_t kOpenFile[] = u"indexer::CIndexBaseReader::_OpenIndexBaseFile";
constexpr char16_t kPrepare[] = u"indexer::CIndexBaseReader::PrepareIdIndexes";
constexpr char16_t kGetDir[] = u"indexer::CIndexBaseReader::GetDirIndexById";
constexpr char16_t kGetOwner[] = u"indexer::CIndexBaseReader::GetOwnerIndexById";
}  // namespace

// Opens the file once to learn its size, so that a file too big to hold is
// refused before anything is allocated, then loads it.
void CIndexBaseReader::_OpenIndexBaseFile(std::u16string_view fileName) {
    platform::CHandle file = platform::FileOpen(fileName, platform::kGenericRead, platform::kShareRead,
                                                platform::kOpenExisting, platform::kAttrNormal);
    if (!file.IsValid()) throw CWin32Exc(u"%1 fail. Cannot open file [%2] for read.", kOpenFile, fileName);
    int64_t size = 0;
    if (!platform::FileGetSize(file.Get(), &size))
        throw CWin32Exc(u"CIndexBaseReader::Open! GetFileSizeEx fail!");
    file.Close();
    if (size < 0 || static_cast<uint64_t>(size) >= idxdata::CBuffFileReader::kClosedPos)
        throw CExc(u"%1 fail. The file [%2] is too big to be read (%3 bytes).", kOpenFile, fileName,
                   util::ToStrU64(static_cast<uint64_t>(size)));
    try {
        m_Reader.Open(fileName);
    } catch (CExc& e) {
        e.AddContext(u"%1 fail. Cannot open file [%2] for read.", kOpenFile, fileName);
        throw;
    }
    m_FileName = fileName;
    GetLog().Detail(u"Index base file [%1] was opened.", m_FileName);
}

void CIndexBaseReader::Open(std::u16string_view fileName) {
    Close();
    try {
        _OpenIndexBaseFile(fileName);
        m_Data = std::make_unique<idxdata::CDataFileReader>(m_Reader, m_FileName, m_Reader.GetSize());
        CheckIndexTableOrder(m_FileName, m_Data->GetTables());
        m_Files.emplace(m_Data->OpenSeqTable(idxdata::TableFiles, rec::CFileRecord()));
        m_Dirs.emplace(m_Data->OpenSeqTable(idxdata::TableDirs, rec::CDirRecord()));
        m_Owners.emplace(m_Data->OpenSeqTable(idxdata::TableOwners, rec::COwnerRecord()));
        if (m_Data->FindTable(idxdata::TableReparses)) {
            m_Reparses.emplace(m_Data->OpenSeqTable(idxdata::TableReparses, rec::CReparseRecord()));
            GetLog().Detail(u"Reparse point indexes found in index base [%1].", m_FileName);
        }
        if (m_Data->FindTable(idxdata::TableIndex))
            m_Index.emplace(m_Data->OpenSeqTable(idxdata::TableIndex, rec::CIndexRecord()));
    } catch (CExc&) {
        Close();
        throw;
    }
    GetLog().Detail(u"CIndexBaseReader::Open! complete");
}

void CIndexBaseReader::Close() {
    m_PosDirsIndex.clear();
    m_PosOwnersIndex.clear();
    m_Files.reset();
    m_Dirs.reset();
    m_Owners.reset();
    m_Reparses.reset();
    m_Index.reset();
    m_Data.reset();
    m_Reader.Close();
    m_FileName.clear();
}

const CSeqTableReader& CIndexBaseReader::_Table(const std::optional<CSeqTableReader>& table) const {
    if (!table) throw CExc(u"%1 fail. No index base file is open.", u"indexer::CIndexBaseReader");
    return *table;
}

CSeqTableReader& CIndexBaseReader::_Table(std::optional<CSeqTableReader>& table) {
    if (!table) throw CExc(u"%1 fail. No index base file is open.", u"indexer::CIndexBaseReader");
    return *table;
}

uint64_t CIndexBaseReader::GetReparseCount() const {
    _Table(m_Files);
    return m_Reparses ? m_Reparses->GetRowCount() : 0;
}

const std::vector<idxdata::TTableInfo>& CIndexBaseReader::GetTables() const {
    _Table(m_Files);
    return m_Data->GetTables();
}

uint64_t CIndexBaseReader::GetIndexRowCount() const {
    _Table(m_Files);
    if (!m_Index) throw CExc(u"Index file is not used!");
    return m_Index->GetRowCount();
}

void CIndexBaseReader::_CheckDirId(CSeqTableReader& table, uint64_t rowId, uint64_t dirId) const {
    if (dirId >= m_PosDirsIndex.size())
        table.ThrowDamaged(FormatMessageArgs(u"row 0x%1 names the parent directory 0x%2 of 0x%3",
                                             {util::Hex16(rowId), util::Hex16(dirId),
                                              util::Hex16(m_PosDirsIndex.size())}));
}

// The ids are checked after the arrays are complete, as a parent may come
// after its child in the table.
void CIndexBaseReader::PrepareIdIndexes() {
    const uint64_t dirCount = GetDirCount();
    if (dirCount > std::min(m_Limits.maxDirs, kMaxDirs))
        throw CExc(u"%1 fail. Too many directories! [0x%2].", kPrepare, util::Hex16(dirCount));
    const uint64_t ownerCount = GetOwnerCount();
    if (ownerCount > std::min(m_Limits.maxOwners, kMaxOwners))
        throw CExc(u"%1 fail. Too many owners! [0x%2].", kPrepare, util::Hex16(ownerCount));

    CSeqTableReader dirs = *m_Dirs;
    std::vector<uint64_t> dirPositions;
    dirPositions.reserve(static_cast<size_t>(dirCount));
    std::vector<uint64_t> parents;
    parents.reserve(static_cast<size_t>(dirCount));
    rec::CDirRecord dir;
    while (true) {
        const uint64_t position = dirs.GetPos();
        if (!dirs.ReadRecord(dir)) break;
        const uint64_t id = dirPositions.size();
        if (id != 0 && dir.m_Name.empty()) throw CExc(u"Empty DirName. ID=0x%1", util::Hex16(id));
        dirPositions.push_back(position);
        parents.push_back(dir.m_ParentId);
    }
    CSeqTableReader owners = *m_Owners;
    std::vector<uint64_t> ownerPositions;
    ownerPositions.reserve(static_cast<size_t>(ownerCount));
    rec::COwnerRecord owner;
    while (true) {
        const uint64_t position = owners.GetPos();
        if (!owners.ReadRecord(owner)) break;
        ownerPositions.push_back(position);
    }
    m_PosDirsIndex = std::move(dirPositions);
    m_PosOwnersIndex = std::move(ownerPositions);
    for (uint64_t id = 0; id < parents.size(); ++id) {
        try {
            _CheckDirId(*m_Dirs, id, parents[id]);
        } catch (CExc&) {
            m_PosDirsIndex.clear();
            m_PosOwnersIndex.clear();
            throw;
        }
    }
}

uint64_t CIndexBaseReader::GetDirIndexById(uint64_t id) const {
    if (m_PosDirsIndex.empty()) throw CExc(u"%1 fail. m_PosDirsIndex is empty.", kGetDir);
    if (id >= m_PosDirsIndex.size())
        throw CExc(u"%1 fail. Directory ID too big. [0x%2]", kGetDir, util::Hex16(id));
    return m_PosDirsIndex[static_cast<size_t>(id)];
}

uint64_t CIndexBaseReader::GetOwnerIndexById(uint64_t id) const {
    if (m_PosOwnersIndex.empty()) throw CExc(u"%1 fail. m_PosOwnersIndex is empty.", kGetOwner);
    if (id >= m_PosOwnersIndex.size())
        throw CExc(u"%1 fail. Owner ID too big. [0x%2]", kGetOwner, util::Hex16(id));
    return m_PosOwnersIndex[static_cast<size_t>(id)];
}

void CIndexBaseReader::GetDir(uint64_t id, rec::CDirRecord& record) {
    m_Dirs->ReadRecordAt(GetDirIndexById(id), record);
}

void CIndexBaseReader::GetOwner(uint64_t id, rec::COwnerRecord& record) {
    m_Owners->ReadRecordAt(GetOwnerIndexById(id), record);
}

std::u16string CIndexBaseReader::GetDirPath(uint64_t id) {
    std::vector<std::u16string> names;  // leaf first
    rec::CDirRecord dir;
    const uint64_t asked = id;
    for (uint64_t steps = 0; id != 0; ++steps) {
        if (steps >= m_PosDirsIndex.size())
            _Table(m_Dirs).ThrowDamaged(FormatMessageArgs(u"the parents of directory 0x%1 form a loop",
                                                          {util::Hex16(asked)}));
        GetDir(id, dir);
        names.push_back(std::move(dir.m_Name));
        id = dir.m_ParentId;
    }
    std::u16string path;
    for (auto it = names.rbegin(); it != names.rend(); ++it) {
        if (!path.empty()) path += u'\\';
        path += *it;
    }
    return path;
}

void CIndexBaseReader::ForEachFile(const FileVisitor& visit) {
    if (m_PosDirsIndex.empty() && GetFileCount() != 0) PrepareIdIndexes();
    CSeqTableReader files = _Table(m_Files);
    rec::CFileRecord file;
    for (uint64_t id = 0;; ++id) {
        const uint64_t position = files.GetPos();
        if (!files.ReadRecord(file)) break;
        _CheckDirId(files, id, file.m_ParentId);
        if (file.m_Owner >= m_PosOwnersIndex.size() && file.m_Owner != 0)
            files.ThrowDamaged(FormatMessageArgs(u"row 0x%1 names the owner 0x%2 of 0x%3",
                                                 {util::Hex16(id), util::Hex16(file.m_Owner),
                                                  util::Hex16(m_PosOwnersIndex.size())}));
        visit(id, position, file);
    }
}

void CIndexBaseReader::ForEachReparse(const ReparseVisitor& visit) {
    _Table(m_Files);
    if (!m_Reparses) return;
    if (m_PosDirsIndex.empty() && m_Reparses->GetRowCount() != 0) PrepareIdIndexes();
    CSeqTableReader reparses = *m_Reparses;
    rec::CReparseRecord reparse;
    for (uint64_t id = 0; reparses.ReadRecord(reparse); ++id) {
        _CheckDirId(reparses, id, reparse.m_ParentId);
        visit(id, reparse);
    }
}

void CIndexBaseReader::ReadFileAt(uint64_t position, rec::CFileRecord& record) {
    _Table(m_Files).ReadRecordAt(position, record);
}

}  // namespace indexer
