#pragma once
// Table files (namespace idxdata): CSeqTableWriter writes one table into a
// temporary file of its own; AddToCombine and CombineTables join tables into
// one data file by concatenation, chaining them through the next table
// offset in each header; RemoveLostTempFiles sweeps what a killed run left.
// Byte layout: table_format.h and docs/index-format.md.
//
// Rows go through CFileWriter, one system call a field: this is the road of
// the legacy run. The index base (index_base.h) writes through the write
// collector instead and has a combiner of its own.

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>

#include "base/buf.h"
#include "store/file_writer.h"
#include "store/records.h"

namespace idxdata {

class CSeqTableWriter {
public:
    // Creates a new temporary file "ifdXXXX.tmp" in tempDirectory and writes
    // the header of table `tableId` with the field list of `record` (the only
    // time the schema is asked). Logs "Creating table [%1] in file [%2].".
    CSeqTableWriter(std::u16string_view tempDirectory, uint32_t tableId,
                    std::shared_ptr<IRecord> record);
    // Closes; a failure is logged ("Failed to close table '%1'.") and goes
    // no further.
    ~CSeqTableWriter();
    CSeqTableWriter(const CSeqTableWriter&) = delete;
    CSeqTableWriter& operator=(const CSeqTableWriter&) = delete;

    // GetTempFileNameW(directory, "ifd", 0): a new empty file, unique in the
    // directory; returns its full name. CWin32Exc "Cannot get GetTempFileName
    // in CSeqTableWriter::GenerateTempFileName" on failure.
    static std::u16string GenerateTempFileName(std::u16string_view directory);

    // Appends one row. The record's class must agree with the schema: a row
    // that disagrees makes an unreadable table and no error.
    void WriteRecord(const IRecord& record);
    // Writes the row count into the header and comes back to the end, so the
    // file is a complete table after every flush. Nothing when closed.
    // Failures get the context "Failed to flush changes in table '%1'.".
    void Flush();
    void Close();
    std::u16string GetFileName() const { return m_FileName; }
    uint64_t GetRowCount() const { return m_RowCount; }

private:
    std::u16string m_FileName;
    uint32_t m_TableId;
    CFileWriter m_Writer;
    uint64_t m_RowCount = 0;
    uint64_t m_RowCountPos = 0;
    std::shared_ptr<IRecord> m_Record;
};

// Closes the table and hands its file to the list (CombineTables deletes it).
// Logs "Adding file [%1] to combine.".
void AddToCombine(std::list<std::u16string>& list, CSeqTableWriter& table);

// Writes the tables of the list, in list order, into targetName (created
// anew), links each table's next table offset to the one behind it, and
// deletes each listed file once it is copied. An empty list throws "Cannot
// combine. List of files is empty". A failure halfway leaves the target
// incomplete and the files not yet copied in place.
void CombineTables(const std::list<std::u16string>& list, std::u16string_view targetName);

// Appends the whole file `name` to target at its position, through buffer
// (REQUIRES: not empty), then deletes the file.
void AppendAndDelete(CFileWriter& target, const std::u16string& name, CBuf<uint8_t>& buffer);

// Deletes every "ifd????.tmp" in directory (results of the deletes ignored).
// No match is no failure; a failed search throws CWin32Exc "Cannot find files
// in RemoveLostTempFiles()".
void RemoveLostTempFiles(std::u16string_view directory);

// directory + "\" + name, without doubling a separator at the end of directory.
std::u16string JoinPath(std::u16string_view directory, std::u16string_view name);

}  // namespace idxdata
