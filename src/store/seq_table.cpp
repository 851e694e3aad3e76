#include "store/seq_table.h"

#include <vector>

#include "base/buf.h"
#include "base/exc.h"
#include "diag/log.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "platform/find.h"
#include "store/file_reader.h"
#include "store/table_format.h"

namespace idxdata {

std::u16string JoinPath(std::u16string_view directory, std::u16string_view name) {
    std::u16string path(directory);
    if (!path.empty() && path.back() != u'\\' && path.back() != u'/') path += u'\\';
    path += name;
    return path;
}

CSeqTableWriter::CSeqTableWriter(std::u16string_view tempDirectory, uint32_t tableId,
                                 std::shared_ptr<IRecord> record)
    : m_TableId(tableId), m_Record(std::move(record)) {
    m_FileName = GenerateTempFileName(tempDirectory);
    GetLog().Detail(u"Creating table [%1] in file [%2].", util::ToStrU32(tableId), m_FileName);
    m_Writer.Create(m_FileName);
    m_Writer.WritePrefix("TBLX");
    m_Writer.WriteVersion(kTableVersionMajor, kTableVersionMinor);
    m_Writer.WriteLongLong(0);
    m_Writer.WriteDWord(0);
    m_Writer.WriteDWord(m_TableId);
    const uint32_t fields = m_Record->GetFieldCount();
    m_Writer.WriteDWord(fields);
    for (uint32_t i = 0; i < fields; ++i)
        m_Writer.WriteWord(static_cast<uint16_t>(m_Record->GetFieldType(i)));
    m_RowCountPos = m_Writer.GetCurFilePos();
    m_Writer.WriteLongLong(0);
}

CSeqTableWriter::~CSeqTableWriter() {
    try {
        Close();
    } catch (const CExc& e) {
        GetLog().LogException(FormatMessageArgs(u"Failed to close table '%1'.", {m_FileName}), e);
    } catch (const std::exception& e) {
        GetLog().LogException(FormatMessageArgs(u"Failed to close table '%1'.", {m_FileName}), CExc(e));
    }
}

std::u16string CSeqTableWriter::GenerateTempFileName(std::u16string_view directory) {
    std::u16string name;
    if (platform::MakeTempFileName(directory, u"ifd", name) == 0)
        throw CWin32Exc(u"Cannot get GetTempFileName in CSeqTableWriter::GenerateTempFileName");
    return name;
}

void CSeqTableWriter::WriteRecord(const IRecord& record) {
    record.Serialize(m_Writer);
    ++m_RowCount;
}

void CSeqTableWriter::Flush() {
    if (!m_Writer.IsOpen()) return;
    try {
        const uint64_t end = m_Writer.GetCurFilePos();
        m_Writer.SetCurFilePos(m_RowCountPos);
        m_Writer.WriteLongLong(m_RowCount);
        m_Writer.Flush();
        m_Writer.SetCurFilePos(end);
    } catch (CExc& e) {
        e.AddContext(u"Failed to flush changes in table '%1'.", m_FileName);
        throw;
    }
}

void CSeqTableWriter::Close() {
    Flush();
    m_Writer.Close();
}

void AddToCombine(std::list<std::u16string>& list, CSeqTableWriter& table) {
    table.Close();
    list.push_back(table.GetFileName());
    GetLog().Detail(u"Adding file [%1] to combine.", table.GetFileName());
}

// Copies in steps of the buffer's size; a short step is the end of the file.
void AppendAndDelete(CFileWriter& target, const std::u16string& name, CBuf<uint8_t>& buffer) {
    CFileReader reader;
    reader.Open(name);
    reader.SetDeleteOnClose();
    const auto step = static_cast<uint32_t>(buffer.Count());
    uint32_t got = 0;
    do {
        got = reader.ReadBuf(buffer.Get(), step);
        if (got == 0) break;
        target.WriteBuf(buffer.Get(), got);
    } while (got == step);
}

void CombineTables(const std::list<std::u16string>& list, std::u16string_view targetName) {
    CLogBlock block(GetLog(), u"Combining tables into one file: [%1].", targetName);
    if (list.empty()) throw CExc(u"Cannot combine. List of files is empty");
    CFileWriter target;
    target.Create(targetName);
    CBuf<uint8_t> buffer(kCopyBufferSize);
    uint64_t pendingLink = 0;
    for (const auto& name : list) {
        const uint64_t start = target.GetCurFilePos();
        AppendAndDelete(target, name, buffer);
        if (pendingLink != 0) {
            const uint64_t end = target.GetCurFilePos();
            target.SetCurFilePos(pendingLink);
            target.WriteLongLong(start);
            target.SetCurFilePos(end);
        }
        pendingLink = start + kOffNextTable;
    }
    block.Complete();
}

void RemoveLostTempFiles(std::u16string_view directory) {
    CLogBlock block(GetLog(), u"Removing lost tmp files.");
    std::vector<std::u16string> names;
    {
        platform::TFindData data;
        platform::CFindHandle find = platform::FindFirst(JoinPath(directory, u"ifd????.tmp"), data);
        if (!find.IsValid()) {
            const uint32_t error = platform::GetLastError();
            if (error != platform::kErrFileNotFound)
                throw CWin32Exc(u"Cannot find files in RemoveLostTempFiles()", error);
        } else {
            do {
                if (!(data.attributes & platform::kAttrDirectory))
                    names.push_back(JoinPath(directory, data.name));
            } while (platform::FindNext(find, data));
            const uint32_t error = platform::GetLastError();
            if (error != platform::kErrNoMoreFiles)
                throw CWin32Exc(u"Cannot find files in RemoveLostTempFiles()", error);
        }
    }
    for (const auto& name : names) {
        GetLog().Detail(u"Deleting file [%1].", name);
        platform::FileDelete(name);
    }
    block.Complete();
}

}  // namespace idxdata
