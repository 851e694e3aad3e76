#pragma once
// Files and handles, as thin wrappers of CreateFileW and its family.
//
// Paths are UTF-16 in the program's own (Windows) spelling: "C:\dir\file",
// "\\?\Volume{...}\dir", a shadow name followed by "\dir", or, on POSIX, a
// native absolute path such as "/tmp/out\sub" (both separators accepted).
// The POSIX side maps them to the machine through the volume table (see
// docs/platform.md) and converts each name reversibly (platform/names.h).
//
// Every call returns false / an invalid handle on failure and sets the
// thread's last error (platform/errors.h). Constants carry the Win32 values.

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

// An opaque OS handle: a file descriptor on POSIX, a HANDLE on Windows.
using NativeHandle = std::intptr_t;
inline constexpr NativeHandle kInvalidHandle = -1;

// Access.
inline constexpr uint32_t kGenericRead = 0x80000000u;
inline constexpr uint32_t kGenericWrite = 0x40000000u;
inline constexpr uint32_t kGenericAll = 0x10000000u;
// Access without reading or writing data (a handle for attributes, reparse
// data or deletion only).
inline constexpr uint32_t kAccessDelete = 0x00010000u;
inline constexpr uint32_t kFileReadAttributes = 0x80u;
// Sharing.
inline constexpr uint32_t kShareRead = 1, kShareWrite = 2, kShareDelete = 4;
// Disposition.
inline constexpr uint32_t kCreateNew = 1, kCreateAlways = 2, kOpenExisting = 3, kOpenAlways = 4,
                          kTruncateExisting = 5;
// Attributes (also those of find data).
inline constexpr uint32_t kAttrReadOnly = 0x1, kAttrHidden = 0x2, kAttrSystem = 0x4,
                          kAttrDirectory = 0x10, kAttrArchive = 0x20, kAttrDevice = 0x40,
                          kAttrNormal = 0x80, kAttrTemporary = 0x100, kAttrSparseFile = 0x200,
                          kAttrReparsePoint = 0x400, kAttrCompressed = 0x800,
                          kAttrOffline = 0x1000, kAttrNotContentIndexed = 0x2000,
                          kAttrEncrypted = 0x4000;
inline constexpr uint32_t kInvalidFileAttributes = 0xFFFFFFFFu;
// Flags.
inline constexpr uint32_t kFlagWriteThrough = 0x80000000u, kFlagNoBuffering = 0x20000000u,
                          kFlagRandomAccess = 0x10000000u, kFlagSequentialScan = 0x08000000u,
                          kFlagDeleteOnClose = 0x04000000u, kFlagBackupSemantics = 0x02000000u,
                          kFlagOpenReparsePoint = 0x00200000u;
// FILE_FLAG_OVERLAPPED: the handle's reads may be in flight together
// (platform/read_queue.h). Every read of such a handle on Windows must say
// its offset and wait for itself: FileReadAt does, FileRead does not.
// POSIX: ignored (reads at an offset need nothing).
inline constexpr uint32_t kFlagOverlapped = 0x40000000u;
// Seek origins.
inline constexpr uint32_t kFileBegin = 0, kFileCurrent = 1, kFileEnd = 2;
// FileMove flags.
inline constexpr uint32_t kMoveReplaceExisting = 1, kMoveCopyAllowed = 2, kMoveWriteThrough = 8;

// Owns one OS handle and closes it at destruction. Move-only.
class CHandle {
public:
    CHandle() = default;
    explicit CHandle(NativeHandle h) : m_Handle(h) {}
    ~CHandle();
    CHandle(CHandle&& other) noexcept;
    CHandle& operator=(CHandle&& other) noexcept;
    CHandle(const CHandle&) = delete;
    CHandle& operator=(const CHandle&) = delete;

    NativeHandle Get() const { return m_Handle; }
    bool IsValid() const { return m_Handle != kInvalidHandle; }
    NativeHandle Release();
    // Closes now; false (last error set) when the OS close failed.
    bool Close();

private:
    NativeHandle m_Handle = kInvalidHandle;
};

// CreateFileW. A folder opens with kFlagBackupSemantics (for reading its
// attributes and reparse data); without it a folder gives 5. Devices and
// image files open alike. kCreateAlways and kOpenAlways leave last error 183
// when the file existed, 0 when they created it.
// Errors: 2 file not found, 3 a folder on the way missing, 5 access denied,
// 32 sharing violation, 80 exists (kCreateNew), 87 bad disposition,
// 123 bad name, 206 path longer than 32,767 units.
// POSIX: share modes are not enforced (no error 32); kFlagNoBuffering reads
// through the page cache; kFlagWriteThrough is O_DSYNC; kFlagOpenReparsePoint
// on a symbolic link opens the link itself (O_PATH: good for attributes,
// times and the link's target, not for reading data); kFlagDeleteOnClose
// deletes the name when the last CHandle owning it closes (not when the
// process is killed).
CHandle FileOpen(std::u16string_view path, uint32_t access, uint32_t share, uint32_t disposition,
                 uint32_t flagsAndAttributes);
// ReadFile: at end of file succeeds with *done < size (0 at the end).
bool FileRead(NativeHandle h, void* buffer, uint32_t size, uint32_t* done);
// ReadFile at `offset` (an OVERLAPPED with an event, waited for), for a
// handle opened with kFlagOverlapped or not; at end of file succeeds with
// *done < size (0 at or past the end). Where the file pointer is left is
// not said (Windows moves it past the bytes read, POSIX's pread does not).
bool FileReadAt(NativeHandle h, uint64_t offset, void* buffer, uint32_t size, uint32_t* done);
// WriteFile: a short write is a failure (112 disk full).
bool FileWrite(NativeHandle h, const void* buffer, uint32_t size, uint32_t* done);
// SetFilePointerEx; newPosition may be null.
bool FileSeek(NativeHandle h, int64_t distance, int64_t* newPosition, uint32_t origin);
// GetFileSizeEx; for a block device, the device's size.
bool FileGetSize(NativeHandle h, int64_t* size);
// SetEndOfFile at the current position.
bool FileSetEnd(NativeHandle h);
bool FileFlush(NativeHandle h);
// GetFileTime: FILETIME values (100 ns ticks since 1601-01-01 UTC); any may be null.
bool FileGetTimes(NativeHandle h, uint64_t* creation, uint64_t* lastAccess, uint64_t* lastWrite);

// DeleteFileW (5 for a folder), MoveFileExW (183 when the target exists and
// kMoveReplaceExisting is not given, 5 when the target is a folder; 17 across
// file systems: POSIX does not copy), CreateDirectoryW (one level; 183 when it
// exists, 3 when the parent is missing), RemoveDirectoryW (145 not empty,
// 267 not a folder; removes a symbolic link to a folder).
bool FileDelete(std::u16string_view path);
bool FileMove(std::u16string_view from, std::u16string_view to, uint32_t flags);
bool DirCreate(std::u16string_view path);
bool DirRemove(std::u16string_view path);
// GetFileAttributesW; kInvalidFileAttributes with last error on failure.
uint32_t GetAttributes(std::u16string_view path);
// SetFileAttributesW. POSIX keeps only kAttrReadOnly: set, every write
// permission goes; cleared, the owner may write again. Other bits are ignored.
bool SetAttributes(std::u16string_view path, uint32_t attributes);
// CopyFileW: copies the content (and on POSIX the permission bits) of `from`
// to `to`, replacing it unless failIfExists (then 80 when it exists).
bool FileCopy(std::u16string_view from, std::u16string_view to, bool failIfExists);
// GetTempFileNameW with unique 0: makes "<dir>\<prefix up to 3 chars>XXXX.tmp"
// (XXXX: one to four upper-case hexadecimal digits, no leading zeros),
// created empty and unique. The numbers tried start from the low 16 bits of
// a millisecond clock and count up, skipping 0. Returns the number used
// (non-zero), or 0 with last error (80 when all 65,535 are taken; the
// error of the create otherwise, 3 for a missing folder).
uint32_t MakeTempFileName(std::u16string_view dir, std::u16string_view prefix,
                          std::u16string& result);

}  // namespace platform
