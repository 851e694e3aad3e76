#include "catalogue/index/ifd_tables.h"

#include <iterator>

#include "base/exc.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "store/file_reader.h"
#include "store/records.h"
#include "store/table_format.h"

namespace catalogue {

using idxdata::CSeqTableReader;

CIfdTables::CIfdTables(std::u16string_view fileName) : m_FileName(fileName) {
    {
        platform::CHandle file = platform::FileOpen(fileName, platform::kGenericRead, platform::kShareRead,
                                                    platform::kOpenExisting, platform::kAttrNormal);
        int64_t size = 0;
        if (!file.IsValid() || !platform::FileGetSize(file.Get(), &size) || size < 0)
            throw CWin32Exc(u"Cannot open file [%1] for read.", fileName);
        m_FileSize = static_cast<uint64_t>(size);
    }
    // The headers are a few dozen bytes each: read them one call at a time.
    idxdata::CFileReader reader;
    reader.Open(fileName);
    idxdata::CDataFileReader data(reader, m_FileName, m_FileSize);
    m_Tables = data.GetTables();
    _CheckOrder();
    m_Files = _Rows(data.OpenSeqTable(idxdata::TableFiles, rec::CFileRecord()));
    m_Dirs = _Rows(data.OpenSeqTable(idxdata::TableDirs, rec::CDirRecord()));
    m_Owners = _Rows(data.OpenSeqTable(idxdata::TableOwners, rec::COwnerRecord()));
    if (data.FindTable(idxdata::TableReparses))
        m_Reparses = _Rows(data.OpenSeqTable(idxdata::TableReparses, rec::CReparseRecord()));
    if (data.FindTable(idxdata::TableIndex))
        m_Index = _Rows(data.OpenSeqTable(idxdata::TableIndex, rec::CIndexRecord()));
}

// Files, directories and owners must be there, in this order; reparse
// points and the index table may follow, in this order; nothing else.
void CIfdTables::_CheckOrder() const {
    static constexpr uint32_t kOrder[] = {idxdata::TableFiles, idxdata::TableDirs, idxdata::TableOwners,
                                          idxdata::TableReparses, idxdata::TableIndex};
    size_t next = 0;
    for (const auto& table : m_Tables) {
        while (next < std::size(kOrder) && kOrder[next] != table.tableId && kOrder[next] > idxdata::TableOwners)
            ++next;
        if (next >= std::size(kOrder) || kOrder[next] != table.tableId)
            idxdata::ThrowDamagedTable(m_FileName, table.tableId, table.start, table.start + idxdata::kOffTableId,
                                       u"a table of this id does not belong at this place of an index file");
        ++next;
    }
    if (next < 3) {
        const auto& last = m_Tables.back();
        idxdata::ThrowDamagedTable(m_FileName, last.tableId, last.start, last.start + idxdata::kOffNextTable,
                                   u"the chain ends before the owners table");
    }
}

idxdata::CTableStream CIfdTables::Files() const { return _Stream(m_Files, rec::CFileRecord()); }
idxdata::CTableStream CIfdTables::Dirs() const { return _Stream(m_Dirs, rec::CDirRecord()); }
idxdata::CTableStream CIfdTables::Owners() const { return _Stream(m_Owners, rec::COwnerRecord()); }
idxdata::CTableStream CIfdTables::Reparses() const { return _Stream(*m_Reparses, rec::CReparseRecord()); }

}  // namespace catalogue
