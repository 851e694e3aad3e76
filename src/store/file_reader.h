#pragma once
// idxdata::CFileReader: an unbuffered binary reader, one system call a read.
//
// A short read is not a failure: bytes past the end of the file read as
// zeros, so a number at the end reads 0 and a string count at the end reads
// as the empty string. (CBuffFileReader throws in the same place.) A string
// whose text is cut by the end of the file holds the units that were there.
//
// Errors: "Cannot open file CFileReader::Open", "Cannot read file in
// CFileReader::<op>" (CWin32Exc); ReadBuf reports with the ReadWord text and
// GetCurFilePos with "Error in CFileWriter::GetCurFilePos": both deliberate.
// Owns its handle. With SetDeleteOnClose the file is deleted at Close (and so
// at destruction). One thread at a time.

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/file.h"
#include "store/serial.h"

namespace idxdata {

class CFileReader : public IReader {
public:
    CFileReader() = default;
    ~CFileReader() override;
    CFileReader(const CFileReader&) = delete;
    CFileReader& operator=(const CFileReader&) = delete;

    uint16_t ReadWord() override;
    uint32_t ReadDWord() override;
    uint64_t ReadLongLong() override;
    std::u16string ReadString() override;

    // Opens for reading; does not test for a file already open (the old
    // handle is closed).
    void Open(std::u16string_view name) override;
    // Closes; deletes the file when the delete flag is set; forgets the name.
    void Close() override;
    uint64_t GetCurFilePos() override;
    void SetCurFilePos(uint64_t position) override;
    void ReadPrefix(char* buffer) override;

    // Reads up to size bytes; returns the count read (less at the end of the
    // file, 0 for size 0 without any system call).
    uint32_t ReadBuf(void* buffer, uint32_t size);
    void SetDeleteOnClose() { m_DeleteOnClose = true; }

private:
    uint32_t _Read(void* buffer, uint32_t size, const char16_t* failText);

    platform::CHandle m_Handle;
    std::u16string m_FileName;
    bool m_DeleteOnClose = false;
};

}  // namespace idxdata
