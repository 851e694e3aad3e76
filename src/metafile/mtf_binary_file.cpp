#include "metafile/mtf_binary_file.h"

#include <chrono>
#include <thread>

#include "base/format.h"
#include "diag/log.h"
#include "platform/errors.h"
#include "platform/find.h"

namespace metafile {

using namespace platform;

std::shared_ptr<CMtfBinaryFile> CMtfBinaryFile::_Open(std::u16string_view name, uint32_t access,
                                                      uint32_t disposition, bool missingIsNull) {
    constexpr int kAttempts = 10;
    for (int attempt = 1;; ++attempt) {
        CHandle handle = FileOpen(name, access, kShareRead, disposition, kAttrNormal);
        if (handle.IsValid())
            return std::shared_ptr<CMtfBinaryFile>(
                new CMtfBinaryFile(std::u16string(name), std::move(handle)));
        const uint32_t error = GetLastError();
        if (missingIsNull && (error == kErrFileNotFound || error == kErrPathNotFound)) return nullptr;
        if (error != kErrSharingViolation || attempt == kAttempts)
            throw CWin32Exc(u"Failed to create new binary file [%1].", name, error);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

std::shared_ptr<CMtfBinaryFile> CMtfBinaryFile::OpenExisting(std::u16string_view name, bool write) {
    return _Open(name, write ? kGenericRead | kGenericWrite : kGenericRead, kOpenExisting, true);
}

std::shared_ptr<CMtfBinaryFile> CMtfBinaryFile::Create(std::u16string_view name) {
    return _Open(name, kGenericWrite, kCreateAlways, false);
}

uint64_t CMtfBinaryFile::GetSize() {
    int64_t size = 0;
    if (!FileGetSize(m_Handle.Get(), &size)) throw CWin32Exc(u"The size of the file [%1] is unknown.", m_Name);
    return static_cast<uint64_t>(size);
}

void CMtfBinaryFile::SeekToBegin() {
    if (!FileSeek(m_Handle.Get(), 0, nullptr, kFileBegin))
        throw CWin32Exc(u"Unable to seek to the beginning of the file [%1]", m_Name);
}

void CMtfBinaryFile::SeekToEnd() {
    if (!FileSeek(m_Handle.Get(), 0, nullptr, kFileEnd))
        throw CWin32Exc(u"Unable to seek to the end of the file [%1]", m_Name);
}

void CMtfBinaryFile::SetSize(uint64_t size) {
    if (!FileSeek(m_Handle.Get(), static_cast<int64_t>(size), nullptr, kFileBegin) ||
        !FileSetEnd(m_Handle.Get()))
        throw CWin32Exc(u"Cannot set the new physical size %1 of the file [%2].", util::ToStrU64(size),
                        m_Name);
}

void CMtfBinaryFile::Read(void* buffer, uint32_t size) {
    uint32_t done = 0;
    if (!FileRead(m_Handle.Get(), buffer, size, &done))
        throw CWin32Exc(u"Failed to read %1 bytes from the file [%2].", util::ToStrU32(size), m_Name);
    if (done != size)
        throw CExc(u"Only %1 bytes were read from the file [%2] (requested %3 bytes).",
                   util::ToStrU32(done), m_Name, util::ToStrU32(size));
}

void CMtfBinaryFile::Write(const void* buffer, size_t size) {
    // One write call for anything up to 4 GiB - 1, the ReadFile/WriteFile limit.
    const auto* p = static_cast<const uint8_t*>(buffer);
    do {
        const uint32_t chunk = static_cast<uint32_t>(std::min<size_t>(size, 0xFFFFFFFFu));
        uint32_t done = 0;
        if (!FileWrite(m_Handle.Get(), p, chunk, &done))
            throw CWin32Exc(u"Failed to write [%1] bytes to the file [%2].", util::ToStrU32(chunk), m_Name);
        if (done != chunk)
            throw CWin32Exc(u"Unable to write all the supplied data (%1 bytes) to the file [%2].",
                            util::ToStrU32(chunk), m_Name);
        p += chunk;
        size -= chunk;
    } while (size > 0);
}

bool MtfFileExists(std::u16string_view name) {
    TFindData data;
    CFindHandle find = FindFirst(name, data);
    if (find.IsValid()) return true;
    const uint32_t error = GetLastError();
    if (error != kErrFileNotFound && error != kErrPathNotFound)
        GetLog().LogException(u"Failed to check is directory exist", CWin32Exc(name, error));
    return false;
}

void MtfDeleteFile(std::u16string_view name) {
    try {
        if (FileDelete(name)) return;
        if (GetLastError() == kErrAccessDenied) {
            const uint32_t attributes = GetAttributes(name);
            if (attributes != kInvalidFileAttributes)
                SetAttributes(name, attributes & ~kAttrReadOnly);
            if (FileDelete(name)) return;
        }
        throw CWin32Exc(u"Cannot delete file.");
    } catch (CExc& e) {
        e.AddContext(u"Cannot delete file [%1].", name);
        throw;
    }
}

void MtfCopyFile(std::u16string_view from, std::u16string_view to) {
    try {
        if (!FileCopy(from, to, false)) throw CWin32Exc(u"CopyFile() failed.");
    } catch (CExc& e) {
        e.AddContext(u"Cannot copy file. Source file: [%1]. Target file: [%2].", from, to);
        throw;
    }
}

}  // namespace metafile
