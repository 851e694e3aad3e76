// Raw volume handles on Linux: devices and image files are files; a volume
// that is only a folder reads as zeros.

#include "platform/volume_io.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/errors.h"
#include "platform/posix/posix_errors.h"

namespace platform {

CHandle OpenVolumeDevice(std::u16string_view name, uint32_t access, uint32_t share,
                         uint32_t disposition, uint32_t flagsAndAttributes) {
    // With backup semantics a folder opens too, and can be told apart.
    CHandle h = FileOpen(name, access, share, disposition, flagsAndAttributes | kFlagBackupSemantics);
    if (!h.IsValid()) return h;
    struct stat st {};
    if (::fstat(static_cast<int>(h.Get()), &st) != 0) {
        posix::FailErrno();
        return CHandle();
    }
    if (!S_ISDIR(st.st_mode)) return h;
    // No file system bytes behind a folder: a device of zeros, which no
    // boot-sector probe recognises.
    const int zero = ::open("/dev/zero", O_RDONLY | O_CLOEXEC);
    if (zero < 0) {
        posix::FailErrno();
        return CHandle();
    }
    return CHandle(zero);
}

bool AllowExtendedDasdIo(NativeHandle h) {
    if (h == kInvalidHandle || h < 0) return posix::Fail(kErrInvalidHandle);
    return true;
}

bool UseDirectIo(NativeHandle h, bool imageFilesToo) {
    const int fd = static_cast<int>(h);
    struct stat st {};
    if (::fstat(fd, &st) != 0) return posix::FailErrno();
    if (!S_ISBLK(st.st_mode) && !(imageFilesToo && S_ISREG(st.st_mode))) return false;
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0) return posix::FailErrno();
    if (flags & O_DIRECT) return true;
    return ::fcntl(fd, F_SETFL, flags | O_DIRECT) == 0 || posix::FailErrno();
}

uint32_t GetReadAlignment(NativeHandle h) {
    const int fd = static_cast<int>(h);
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || !(flags & O_DIRECT)) return 0;
    struct stat st {};
    if (::fstat(fd, &st) != 0) return 0;
    int sector = 0;
    if (S_ISBLK(st.st_mode) && ::ioctl(fd, BLKSSZGET, &sector) == 0 && sector > 0)
        return static_cast<uint32_t>(sector);
    // A file: its file system's block, at most a page on every Linux one.
    return 4096;
}

bool ReadsBypassCache(NativeHandle h) {
    const int flags = ::fcntl(static_cast<int>(h), F_GETFL);
    return flags >= 0 && (flags & O_DIRECT) != 0;
}

bool EnableProcessPrivilege(std::u16string_view) { return true; }

}  // namespace platform
