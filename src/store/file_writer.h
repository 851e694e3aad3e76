#pragma once
// idxdata::CFileWriter: an unbuffered binary writer. Every primitive is one
// system call; volume-sized data goes through CFileWriteCollectorReadCache or
// in large WriteBuf blocks instead.
//
// Errors (texts are part of the interface):
//  - a write on a closed writer: CExc 0x80070057, "Cannot write word in
//    CFileWriter::WriteWord" and the like (see file_writer.cpp);
//  - a failed system call: CWin32Exc "Cannot write file in CFileWriter::<op>";
//  - Open: "%1 fail. Cannot create file [%2]" / "... Cannot set file pointer
//    for file [%2]"; Create: "%1 fail. Cannot create file [%2]." (with point).
// A short write is not detected beyond what the system reports.
// Owns its handle; closes it at destruction. One thread at a time.

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/file.h"
#include "store/serial.h"

namespace idxdata {

class CFileWriter : public ISerializator {
public:
    CFileWriter() = default;
    ~CFileWriter() = default;
    CFileWriter(CFileWriter&&) = default;
    CFileWriter& operator=(CFileWriter&&) = default;

    void WriteWord(uint16_t value) override;
    void WriteDWord(uint32_t value) override;
    void WriteLongLong(uint64_t value) override;
    void WriteString(std::u16string_view text) override;

    // Creates the file (truncating an old one) for writing, shared for reading.
    void Create(std::u16string_view name);
    // Opens an existing file for writing; with seekToEnd moves to its end and
    // stores the end position in *position when position is not null.
    void Open(std::u16string_view name, bool seekToEnd, uint64_t* position);

    void WriteBuf(const void* buffer, uint32_t size);
    // Exactly four narrow characters; anything else throws and writes nothing.
    void WritePrefix(const char* text);
    void WriteVersion(uint16_t major, uint16_t minor);

    uint64_t GetCurFilePos();
    void SetCurFilePos(uint64_t position);
    // FlushFileBuffers; its result is ignored.
    void Flush();
    // Closes the handle if open; harmless when closed.
    void Close();
    bool IsOpen() const { return m_Handle.IsValid(); }

private:
    void _Write(const void* data, uint32_t size, const char16_t* closedText,
                const char16_t* failText);

    platform::CHandle m_Handle;
};

}  // namespace idxdata
