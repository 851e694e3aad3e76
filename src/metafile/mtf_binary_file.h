#pragma once
// The file under a meta-file, and the few file operations the meta-file
// needs (exists, delete, copy), each failing with the meta-file's messages.
//
// Every failure throws: CWin32Exc with the system's error, except a short
// read, which is a CExc. Not thread-safe; one owner.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/file.h"

namespace metafile {

class CMtfBinaryFile {
public:
    // Opens an existing file, read-only or for reading and writing, sharing
    // reads. A sharing violation (32) is tried 10 times in all, 100 ms
    // apart. Null when the file or a folder on the way is missing (2, 3);
    // any other failure throws "Failed to create new binary file [%1].".
    static std::shared_ptr<CMtfBinaryFile> OpenExisting(std::u16string_view name, bool write);
    // Creates the file for writing, replacing one that stands (CREATE_ALWAYS);
    // the same retries and message. Never null.
    static std::shared_ptr<CMtfBinaryFile> Create(std::u16string_view name);

    const std::u16string& GetName() const { return m_Name; }
    uint64_t GetSize();
    void SeekToBegin();
    void SeekToEnd();
    // Moves to `size` and makes that the end of the file.
    void SetSize(uint64_t size);
    // Reads exactly `size` bytes at the current position.
    void Read(void* buffer, uint32_t size);
    // Writes all `size` bytes at the current position.
    void Write(const void* buffer, size_t size);

private:
    CMtfBinaryFile(std::u16string name, platform::CHandle handle)
        : m_Name(std::move(name)), m_Handle(std::move(handle)) {}
    static std::shared_ptr<CMtfBinaryFile> _Open(std::u16string_view name, uint32_t access,
                                                 uint32_t disposition, bool missingIsNull);

    std::u16string m_Name;
    platform::CHandle m_Handle;
};

// Whether the file exists, asked through the directory search: errors 2 and
// 3 mean no; any other error is logged as "Failed to check is directory
// exist" and also means no.
bool MtfFileExists(std::u16string_view name);
// Deletes the file; on access denied clears its read-only attribute and tries
// once more. Failure: "Cannot delete file." in "Cannot delete file [%1].".
void MtfDeleteFile(std::u16string_view name);
// Copies `from` over `to`. Failure: "CopyFile() failed." in
// "Cannot copy file. Source file: [%1]. Target file: [%2].".
void MtfCopyFile(std::u16string_view from, std::u16string_view to);

}  // namespace metafile
