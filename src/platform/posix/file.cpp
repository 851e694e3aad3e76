// Files and handles on POSIX: file descriptors behind the CreateFileW family.

#include "platform/file.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <mutex>
#include <unordered_map>

#include "base/format.h"
#include "platform/errors.h"
#include "platform/posix/file_info.h"
#include "platform/posix/native_path.h"
#include "platform/posix/posix_errors.h"

namespace platform {

using posix::Fail;
using posix::FailErrno;
using posix::FailErrnoAt;
using posix::TNativeAt;

namespace {


// Native paths of handles opened with kFlagDeleteOnClose, by descriptor.
std::mutex g_DeleteOnCloseLock;
std::unordered_map<int, std::string> g_DeleteOnClose;

void RegisterDeleteOnClose(int fd, std::string native) {
    std::lock_guard<std::mutex> lock(g_DeleteOnCloseLock);
    g_DeleteOnClose[fd] = std::move(native);
}

// Removes the descriptor's entry; the path, or empty when it had none.
std::string TakeDeleteOnClose(int fd) {
    std::lock_guard<std::mutex> lock(g_DeleteOnCloseLock);
    auto it = g_DeleteOnClose.find(fd);
    if (it == g_DeleteOnClose.end()) return {};
    std::string native = std::move(it->second);
    g_DeleteOnClose.erase(it);
    return native;
}

bool UnlinkNative(const std::string& native) {
    TNativeAt at;
    if (!posix::OpenNativeAt(native, at)) return false;
    return ::unlinkat(at.dir, at.name.c_str(), 0) == 0;
}

int Fd(NativeHandle h) { return static_cast<int>(h); }

std::u16string HexUpper(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "%X", value);
    return util::Ascii(text);
}

bool IsDirAt(const TNativeAt& at, bool follow) {
    struct stat st;
    return ::fstatat(at.dir, at.name.c_str(), &st, follow ? 0 : AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(st.st_mode);
}

}  // namespace

// ---- CHandle ---------------------------------------------------------------

CHandle::~CHandle() { Close(); }

CHandle::CHandle(CHandle&& other) noexcept : m_Handle(other.m_Handle) {
    other.m_Handle = kInvalidHandle;
}

CHandle& CHandle::operator=(CHandle&& other) noexcept {
    if (this != &other) {
        Close();
        m_Handle = other.m_Handle;
        other.m_Handle = kInvalidHandle;
    }
    return *this;
}

NativeHandle CHandle::Release() {
    const NativeHandle h = m_Handle;
    m_Handle = kInvalidHandle;
    if (h != kInvalidHandle) TakeDeleteOnClose(Fd(h));
    return h;
}

bool CHandle::Close() {
    if (m_Handle == kInvalidHandle) return true;
    const int fd = Fd(m_Handle);
    m_Handle = kInvalidHandle;
    const std::string doomed = TakeDeleteOnClose(fd);
    bool ok = ::close(fd) == 0;
    if (!ok) FailErrno();
    if (!doomed.empty()) UnlinkNative(doomed);
    return ok;
}

// ---- Opening ----------------------------------------------------------------

CHandle FileOpen(std::u16string_view path, uint32_t access, uint32_t /*share*/,
                 uint32_t disposition, uint32_t flagsAndAttributes) {
    TNativeAt at;
    if (!posix::OpenPathAt(path, at)) return CHandle();

    const bool wantRead = access & (kGenericRead | kGenericAll | 0x1u /*FILE_READ_DATA*/);
    const bool wantWrite =
        access & (kGenericWrite | kGenericAll | 0x2u /*FILE_WRITE_DATA*/ | 0x4u /*APPEND*/);
    const bool backup = flagsAndAttributes & kFlagBackupSemantics;

    int flags = O_CLOEXEC;
    if (wantRead && wantWrite) flags |= O_RDWR;
    else if (wantWrite) flags |= O_WRONLY;
    else flags |= O_RDONLY;
    bool create = false;
    bool reportExisting = false;  // 183 when the file was there
    switch (disposition) {
        case kCreateNew: flags |= O_CREAT | O_EXCL; create = true; break;
        case kCreateAlways: flags |= O_CREAT | O_TRUNC; create = true; reportExisting = true; break;
        case kOpenExisting: break;
        case kOpenAlways: flags |= O_CREAT; create = true; reportExisting = true; break;
        case kTruncateExisting:
            if (!wantWrite) { Fail(kErrInvalidParameter); return CHandle(); }
            flags |= O_TRUNC;
            break;
        default: Fail(kErrInvalidParameter); return CHandle();
    }
    if (flagsAndAttributes & kFlagWriteThrough) flags |= O_DSYNC;
    if (flagsAndAttributes & kFlagOpenReparsePoint) flags |= O_NOFOLLOW;
    const mode_t mode = (flagsAndAttributes & kAttrReadOnly) ? 0444 : 0666;
    // Without data access a handle only describes the file: fall back on
    // O_PATH where the file can't be read (a folder without read permission).
    const bool noData = !wantRead && !wantWrite;
    // Such a handle must not wait for a writer of a FIFO either.
    if (noData) flags |= O_NONBLOCK;

    bool existed = false;
    int fd = -1;
    if (reportExisting) {
        fd = ::openat(at.dir, at.name.c_str(), (flags | O_EXCL) & ~O_TRUNC, mode);
        if (fd < 0 && errno == EEXIST) existed = true;
    }
    if (fd < 0 && (!reportExisting || existed))
        fd = ::openat(at.dir, at.name.c_str(), existed ? flags & ~O_CREAT : flags, mode);
    if (fd < 0) {
        const int err = errno;
        if (err == ELOOP && (flagsAndAttributes & kFlagOpenReparsePoint) && !create) {
            // A symbolic link: open the link itself.
            fd = ::openat(at.dir, at.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
        } else if (err == EISDIR && backup && !create && disposition != kTruncateExisting) {
            fd = ::openat(at.dir, at.name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        } else if ((err == EACCES) && noData && !create) {
            fd = ::openat(at.dir, at.name.c_str(),
                          O_PATH | O_CLOEXEC | (flags & O_NOFOLLOW));
        }
        if (fd < 0) {
            errno = err;
            if (err == EEXIST) Fail(kErrFileExists);
            else FailErrnoAt(at);
            return CHandle();
        }
    }
    CHandle handle(fd);
    struct stat st;
    if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode) && !backup) {
        Fail(kErrAccessDenied);
        return CHandle();
    }
    if (flagsAndAttributes & kFlagDeleteOnClose) {
        std::string native = at.dir == AT_FDCWD ? at.name : std::string();
        if (native.empty()) posix::ToNativePath(path, native);
        RegisterDeleteOnClose(fd, std::move(native));
    }
    SetLastError(existed ? kErrAlreadyExists : kErrSuccess);
    return handle;
}

// ---- Handle operations ------------------------------------------------------

namespace {

// Reads until `size` bytes have come or the end of the file; `readSome(p,
// n, at)` is one read of at most n bytes into p, `at` bytes from the start.
template <typename TReadSome>
bool ReadFully(TReadSome readSome, void* buffer, uint32_t size, uint32_t* done) {
    uint32_t total = 0;
    auto* p = static_cast<char*>(buffer);
    while (total < size) {
        const ssize_t n = readSome(p + total, size - total, total);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (done) *done = total;
            return FailErrno();
        }
        if (n == 0) break;
        total += static_cast<uint32_t>(n);
    }
    if (done) *done = total;
    return true;
}

}  // namespace

bool FileRead(NativeHandle h, void* buffer, uint32_t size, uint32_t* done) {
    return ReadFully([&](char* p, uint32_t n, uint32_t) { return ::read(Fd(h), p, n); }, buffer, size, done);
}

bool FileReadAt(NativeHandle h, uint64_t offset, void* buffer, uint32_t size, uint32_t* done) {
    return ReadFully([&](char* p, uint32_t n, uint32_t at) { return ::pread(Fd(h), p, n, static_cast<off_t>(offset + at)); },
                     buffer, size, done);
}

bool FileWrite(NativeHandle h, const void* buffer, uint32_t size, uint32_t* done) {
    uint32_t total = 0;
    const auto* p = static_cast<const char*>(buffer);
    while (total < size) {
        const ssize_t n = ::write(Fd(h), p + total, size - total);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (done) *done = total;
            return FailErrno();
        }
        if (n == 0) {
            if (done) *done = total;
            return Fail(kErrDiskFull);
        }
        total += static_cast<uint32_t>(n);
    }
    if (done) *done = total;
    return true;
}

bool FileSeek(NativeHandle h, int64_t distance, int64_t* newPosition, uint32_t origin) {
    int whence;
    switch (origin) {
        case kFileBegin: whence = SEEK_SET; break;
        case kFileCurrent: whence = SEEK_CUR; break;
        case kFileEnd: whence = SEEK_END; break;
        default: return Fail(kErrInvalidParameter);
    }
    const off_t pos = ::lseek(Fd(h), distance, whence);
    if (pos < 0) return FailErrno();
    if (newPosition) *newPosition = pos;
    return true;
}

bool FileGetSize(NativeHandle h, int64_t* size) {
    struct stat st;
    if (::fstat(Fd(h), &st) != 0) return FailErrno();
    if (S_ISBLK(st.st_mode)) {
        uint64_t bytes = 0;
        if (::ioctl(Fd(h), BLKGETSIZE64, &bytes) != 0) return FailErrno();
        *size = static_cast<int64_t>(bytes);
    } else {
        *size = S_ISREG(st.st_mode) ? st.st_size : 0;
    }
    return true;
}

bool FileSetEnd(NativeHandle h) {
    const off_t pos = ::lseek(Fd(h), 0, SEEK_CUR);
    if (pos < 0) return FailErrno();
    if (::ftruncate(Fd(h), pos) != 0) return FailErrno();
    return true;
}

bool FileFlush(NativeHandle h) {
    if (::fsync(Fd(h)) != 0) return FailErrno();
    return true;
}

bool FileGetTimes(NativeHandle h, uint64_t* creation, uint64_t* lastAccess, uint64_t* lastWrite) {
    TFindData data;
    if (!posix::StatAt(Fd(h), "", data)) return FailErrno();
    if (creation) *creation = data.creationTime;
    if (lastAccess) *lastAccess = data.lastAccessTime;
    if (lastWrite) *lastWrite = data.lastWriteTime;
    return true;
}

// ---- Names ------------------------------------------------------------------

bool FileDelete(std::u16string_view path) {
    TNativeAt at;
    if (!posix::OpenPathAt(path, at)) return false;
    if (::unlinkat(at.dir, at.name.c_str(), 0) != 0) return FailErrnoAt(at);
    return true;
}

bool FileMove(std::u16string_view from, std::u16string_view to, uint32_t flags) {
    TNativeAt src, dst;
    if (!posix::OpenPathAt(from, src) || !posix::OpenPathAt(to, dst)) return false;
    const bool replace = flags & kMoveReplaceExisting;
    int rc;
    if (replace) {
        if (IsDirAt(dst, false)) return Fail(kErrAccessDenied);
        rc = ::renameat(src.dir, src.name.c_str(), dst.dir, dst.name.c_str());
    } else {
        rc = ::renameat2(src.dir, src.name.c_str(), dst.dir, dst.name.c_str(), RENAME_NOREPLACE);
        if (rc != 0 && (errno == EINVAL || errno == ENOSYS)) {
            // A file system without RENAME_NOREPLACE.
            struct stat st;
            if (::fstatat(dst.dir, dst.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0)
                return Fail(kErrAlreadyExists);
            rc = ::renameat(src.dir, src.name.c_str(), dst.dir, dst.name.c_str());
        }
    }
    if (rc != 0) {
        const int err = errno;
        if (err == EEXIST || err == ENOTEMPTY) return Fail(replace ? kErrAccessDenied : kErrAlreadyExists);
        if (err == EXDEV) return Fail(kErrNotSameDevice);
        if (err == ENOENT) {
            struct stat st;
            if (::fstatat(src.dir, src.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
                errno = ENOENT;
                return FailErrnoAt(src);
            }
            return Fail(kErrPathNotFound);  // the target's folder is missing
        }
        errno = err;
        return FailErrnoAt(dst);
    }
    if (flags & kMoveWriteThrough) {
        std::string native;
        if (posix::ToNativePath(to, native)) {
            TNativeAt parent;
            if (posix::OpenNativeAt(posix::NativeParent(native), parent)) {
                posix::CFd dir(::openat(parent.dir, parent.name.c_str(),
                                        O_RDONLY | O_DIRECTORY | O_CLOEXEC));
                if (dir.Get() >= 0) ::fsync(dir.Get());
            }
        }
    }
    return true;
}

bool DirCreate(std::u16string_view path) {
    TNativeAt at;
    if (!posix::OpenPathAt(path, at)) return false;
    if (::mkdirat(at.dir, at.name.c_str(), 0777) != 0) {
        if (errno == EEXIST) return Fail(kErrAlreadyExists);
        if (errno == ENOENT) return Fail(kErrPathNotFound);
        return FailErrnoAt(at);
    }
    return true;
}

bool DirRemove(std::u16string_view path) {
    TNativeAt at;
    if (!posix::OpenPathAt(path, at)) return false;
    if (::unlinkat(at.dir, at.name.c_str(), AT_REMOVEDIR) == 0) return true;
    const int err = errno;
    if (err == ENOTEMPTY || err == EEXIST) return Fail(kErrDirNotEmpty);
    if (err == ENOTDIR) {
        struct stat st;
        const bool link = ::fstatat(at.dir, at.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 &&
                          S_ISLNK(st.st_mode);
        if (link && IsDirAt(at, true)) {
            if (::unlinkat(at.dir, at.name.c_str(), 0) != 0) return FailErrnoAt(at);
            return true;
        }
        if (::fstatat(at.dir, at.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0)
            return Fail(kErrDirectory);
    }
    errno = err;
    return FailErrnoAt(at);
}

uint32_t GetAttributes(std::u16string_view path) {
    TNativeAt at;
    if (!posix::OpenPathAt(path, at)) return kInvalidFileAttributes;
    TFindData data;
    if (!posix::StatAt(at.dir, at.name.c_str(), data)) {
        FailErrnoAt(at);
        return kInvalidFileAttributes;
    }
    return data.attributes;
}

bool SetAttributes(std::u16string_view path, uint32_t attributes) {
    TNativeAt at;
    if (!posix::OpenPathAt(path, at)) return false;
    struct stat st;
    if (::fstatat(at.dir, at.name.c_str(), &st, 0) != 0) return FailErrnoAt(at);
    mode_t mode = st.st_mode & 07777;
    if (attributes & kAttrReadOnly) mode &= ~static_cast<mode_t>(S_IWUSR | S_IWGRP | S_IWOTH);
    else mode |= S_IWUSR;
    if (::fchmodat(at.dir, at.name.c_str(), mode, 0) != 0) return FailErrnoAt(at);
    return true;
}

bool FileCopy(std::u16string_view from, std::u16string_view to, bool failIfExists) {
    TNativeAt src, dst;
    if (!posix::OpenPathAt(from, src) || !posix::OpenPathAt(to, dst)) return false;
    posix::CFd in(::openat(src.dir, src.name.c_str(), O_RDONLY | O_CLOEXEC));
    if (in.Get() < 0) return FailErrnoAt(src);
    struct stat st;
    if (::fstat(in.Get(), &st) != 0) return FailErrno();
    if (S_ISDIR(st.st_mode)) return Fail(kErrAccessDenied);
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (failIfExists ? O_EXCL : O_TRUNC);
    posix::CFd out(::openat(dst.dir, dst.name.c_str(), flags, st.st_mode & 0777));
    if (out.Get() < 0) {
        if (errno == EEXIST) return Fail(kErrFileExists);
        if (errno == ENOENT) return Fail(kErrPathNotFound);  // the source opened: the target's folder is missing
        return FailErrnoAt(dst);
    }
    char buffer[1 << 16];
    for (;;) {
        const ssize_t n = ::read(in.Get(), buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR) continue;
            return FailErrno();
        }
        if (n == 0) break;
        uint32_t done = 0;
        if (!FileWrite(out.Get(), buffer, static_cast<uint32_t>(n), &done)) return false;
    }
    ::fchmod(out.Get(), st.st_mode & 07777);
    return true;
}

uint32_t MakeTempFileName(std::u16string_view dir, std::u16string_view prefix,
                          std::u16string& result) {
    std::u16string base(dir);
    if (!base.empty() && base.back() != u'\\' && base.back() != u'/') base += u'\\';
    base += prefix.substr(0, 3);

    struct timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    uint32_t number = static_cast<uint32_t>(now.tv_sec * 1000 + now.tv_nsec / 1000000) & 0xFFFF;
    for (uint32_t tries = 0; tries < 0xFFFF; ++tries) {
        if (number == 0) number = 1;
        std::u16string candidate = base + HexUpper(number) + u".tmp";
        CHandle h = FileOpen(candidate, kGenericWrite, 0, kCreateNew, kAttrNormal);
        if (h.IsValid()) {
            result = std::move(candidate);
            SetLastError(kErrSuccess);
            return number;
        }
        const uint32_t err = GetLastError();
        if (err != kErrFileExists && err != kErrAccessDenied) return 0;
        // 5: a folder or an unreadable file of that name; try the next.
        if (err == kErrAccessDenied && GetAttributes(candidate) == kInvalidFileAttributes) {
            SetLastError(kErrAccessDenied);
            return 0;
        }
        number = (number + 1) & 0xFFFF;
    }
    SetLastError(kErrFileExists);
    return 0;
}

}  // namespace platform
