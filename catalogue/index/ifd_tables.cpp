#include "catalogue/index/ifd_tables.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "base/exc.h"
#include "base/utf.h"
#include "store/file_reader.h"
#include "store/index_base_reader.h"
#include "store/records.h"
#include "store/table_format.h"

namespace catalogue {

using idxdata::CSeqTableReader;

namespace {

// Up to 8 bytes as text where printable, else in hex.
std::string Shown(const unsigned char* bytes, size_t count) {
    bool text = true;
    for (size_t i = 0; i < count; ++i) text &= (bytes[i] >= 0x20 && bytes[i] < 0x7F) || bytes[i] == '\n' || bytes[i] == '\r';
    std::string shown;
    char hex[4];
    for (size_t i = 0; i < count; ++i) {
        if (text) {
            shown += bytes[i] == '\n' ? "\\n" : bytes[i] == '\r' ? "\\r" : std::string(1, static_cast<char>(bytes[i]));
        } else {
            std::snprintf(hex, sizeof hex, "%s%02x", i ? " " : "", bytes[i]);
            shown += hex;
        }
    }
    return text ? "\"" + shown + "\"" : "bytes " + shown;
}

}  // namespace

uint64_t CheckIsIndexFile(std::u16string_view fileName) {
    const std::string name = util::Utf16ToUtf8(fileName);
    std::FILE* file = std::fopen(name.c_str(), "rb");
    if (!file) throw CExc(util::Utf8ToUtf16("cannot open " + name + ": " + std::strerror(errno)));
    unsigned char head[8] = {};
    const size_t got = std::fread(head, 1, sizeof head, file);
    const bool seek = std::fseek(file, 0, SEEK_END) == 0;
    const long size = seek ? std::ftell(file) : -1;
    const int error = errno;
    std::fclose(file);
    if (size < 0) throw CExc(util::Utf8ToUtf16("cannot read " + name + ": " + std::strerror(error)));
    if (got == 0) throw CExc(util::Utf8ToUtf16(name + " is not an index file: it is empty"));
    // A file cut inside the magic is a damaged index: the store's readers
    // say where.
    if (std::memcmp(head, idxdata::kTableMagic, std::min(got, sizeof idxdata::kTableMagic)) != 0)
        throw CExc(util::Utf8ToUtf16(name + " is not an index file: it starts with " + Shown(head, got) +
                                     ", an index file with \"TBLX\""));
    return static_cast<uint64_t>(size);
}

CIfdTables::CIfdTables(std::u16string_view fileName) : m_FileName(fileName) {
    m_FileSize = CheckIsIndexFile(fileName);
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

// Beyond the order the store's reader checks, files, directories and owners
// must all be there.
void CIfdTables::_CheckOrder() const {
    indexer::CheckIndexTableOrder(m_FileName, m_Tables);
    if (m_Tables.size() < 3) {  // the order held: the chain stops before the owners
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
