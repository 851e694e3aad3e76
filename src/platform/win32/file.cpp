// Files and handles: each operation is the Win32 call of the same meaning,
// with the program's UTF-16 strings passed as wide strings.

#include "platform/file.h"

#include <utility>

#include "platform/errors.h"
#include "platform/win32/waited_io.h"
#include "platform/win32/win32_util.h"

#include <winioctl.h>

namespace platform {

using win32::Fail;
using win32::ToHandle;
using win32::ToWide;

CHandle::~CHandle() { Close(); }

CHandle::CHandle(CHandle&& other) noexcept : m_Handle(other.Release()) {}

CHandle& CHandle::operator=(CHandle&& other) noexcept {
    if (this != &other) {
        Close();
        m_Handle = other.Release();
    }
    return *this;
}

NativeHandle CHandle::Release() { return std::exchange(m_Handle, kInvalidHandle); }

bool CHandle::Close() {
    if (!IsValid()) return true;
    return ::CloseHandle(ToHandle(Release())) != 0;
}

CHandle FileOpen(std::u16string_view path, uint32_t access, uint32_t share, uint32_t disposition,
                 uint32_t flagsAndAttributes) {
    auto open = [&](const std::wstring& name) {
        return ::CreateFileW(name.c_str(), access, share, nullptr, disposition, flagsAndAttributes,
                             nullptr);
    };
    HANDLE h = open(ToWide(path));
    if (h == INVALID_HANDLE_VALUE && win32::FailedOnVolumeName()) {
        const std::wstring other = win32::PathThroughMountPoint(path);
        if (!other.empty()) h = open(other);
    }
    // INVALID_HANDLE_VALUE is (HANDLE)-1, the same bits as kInvalidHandle.
    return CHandle(win32::FromHandle(h));
}

bool FileRead(NativeHandle h, void* buffer, uint32_t size, uint32_t* done) {
    DWORD n = 0;
    BOOL ok = ::ReadFile(ToHandle(h), buffer, size, &n, nullptr);
    if (done) *done = n;
    return ok != 0;
}

bool FileReadAt(NativeHandle h, uint64_t offset, void* buffer, uint32_t size, uint32_t* done) {
    DWORD n = 0;
    const bool ok = win32::ReadAtAndWait(ToHandle(h), offset, buffer, size, &n);
    if (done) *done = n;
    return ok;
}

bool FileWrite(NativeHandle h, const void* buffer, uint32_t size, uint32_t* done) {
    DWORD n = 0;
    BOOL ok = ::WriteFile(ToHandle(h), buffer, size, &n, nullptr);
    if (done) *done = n;
    if (!ok) return false;
    // WriteFile to a file succeeds short only when the disk is full.
    return n == size ? true : Fail(kErrDiskFull);
}

bool FileSeek(NativeHandle h, int64_t distance, int64_t* newPosition, uint32_t origin) {
    LARGE_INTEGER move, position;
    move.QuadPart = distance;
    if (!::SetFilePointerEx(ToHandle(h), move, &position, origin)) return false;
    if (newPosition) *newPosition = position.QuadPart;
    return true;
}

bool FileGetSize(NativeHandle h, int64_t* size) {
    LARGE_INTEGER value;
    if (::GetFileSizeEx(ToHandle(h), &value)) {
        *size = value.QuadPart;
        return true;
    }
    // A volume or disk handle has no file size; the device tells its length.
    const DWORD sizeError = ::GetLastError();
    GET_LENGTH_INFORMATION length;
    DWORD returned = 0;
    if (win32::DeviceControlAndWait(ToHandle(h), IOCTL_DISK_GET_LENGTH_INFO, nullptr, 0, &length, sizeof(length),
                                    &returned)) {
        *size = length.Length.QuadPart;
        return true;
    }
    return Fail(sizeError);
}

bool FileSetEnd(NativeHandle h) { return ::SetEndOfFile(ToHandle(h)) != 0; }

bool FileFlush(NativeHandle h) { return ::FlushFileBuffers(ToHandle(h)) != 0; }

bool FileGetTimes(NativeHandle h, uint64_t* creation, uint64_t* lastAccess, uint64_t* lastWrite) {
    FILETIME c, a, w;
    if (!::GetFileTime(ToHandle(h), &c, &a, &w)) return false;
    if (creation) *creation = win32::FromFileTime(c);
    if (lastAccess) *lastAccess = win32::FromFileTime(a);
    if (lastWrite) *lastWrite = win32::FromFileTime(w);
    return true;
}

bool FileDelete(std::u16string_view path) { return ::DeleteFileW(ToWide(path).c_str()) != 0; }

bool FileMove(std::u16string_view from, std::u16string_view to, uint32_t flags) {
    return ::MoveFileExW(ToWide(from).c_str(), ToWide(to).c_str(), flags) != 0;
}

bool DirCreate(std::u16string_view path) {
    return ::CreateDirectoryW(ToWide(path).c_str(), nullptr) != 0;
}

bool DirRemove(std::u16string_view path) { return ::RemoveDirectoryW(ToWide(path).c_str()) != 0; }

uint32_t GetAttributes(std::u16string_view path) {
    DWORD attributes = ::GetFileAttributesW(ToWide(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES && win32::FailedOnVolumeName()) {
        const std::wstring other = win32::PathThroughMountPoint(path);
        if (!other.empty()) attributes = ::GetFileAttributesW(other.c_str());
    }
    return attributes;
}

bool SetAttributes(std::u16string_view path, uint32_t attributes) {
    return ::SetFileAttributesW(ToWide(path).c_str(), attributes) != 0;
}

bool FileCopy(std::u16string_view from, std::u16string_view to, bool failIfExists) {
    return ::CopyFileW(ToWide(from).c_str(), ToWide(to).c_str(), failIfExists) != 0;
}

uint32_t MakeTempFileName(std::u16string_view dir, std::u16string_view prefix,
                          std::u16string& result) {
    wchar_t name[MAX_PATH + 1] = {};
    UINT unique = ::GetTempFileNameW(ToWide(dir).c_str(), ToWide(prefix).c_str(), 0, name);
    if (unique == 0) return 0;
    result = win32::FromWide(name);
    return unique;
}

}  // namespace platform
