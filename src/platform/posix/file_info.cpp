#include "platform/posix/file_info.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <string>
#include <string_view>

#include "platform/file.h"
#include "platform/posix/mount_folder.h"

namespace platform::posix {

namespace {

// Seconds from 1601-01-01 to 1970-01-01.
constexpr int64_t kEpochDelta = 11644473600LL;

uint64_t FromStatx(const struct statx_timestamp& t) { return FileTimeFromUnix(t.tv_sec, t.tv_nsec); }

// On an NTFS volume mounted by ntfs-3g a link carries the Windows
// attributes and reparse data as extended attributes. They are what Windows
// reports (the directory bit of a junction whatever its target, the tag),
// where the link's target, which ntfs-3g often cannot show ("unsupported
// reparse tag"), would say a file. False elsewhere.
bool NtfsLinkAttributes(int dir, const char* name, TFindData& data) {
    if (name[0] == '\0') return false;
    const std::string path = "/proc/self/fd/" + std::to_string(dir) + "/" + name;
    uint8_t bytes[4];
    if (::lgetxattr(path.c_str(), "system.ntfs_attrib", bytes, sizeof bytes) != sizeof bytes) return false;
    data.attributes = bytes[0] | (bytes[1] << 8) | (bytes[2] << 16) | (uint32_t{bytes[3]} << 24);
    if (::lgetxattr(path.c_str(), "system.ntfs_reparse_data", bytes, sizeof bytes) == sizeof bytes)
        data.reparseTag = bytes[0] | (bytes[1] << 8) | (bytes[2] << 16) | (uint32_t{bytes[3]} << 24);
    return true;
}

}  // namespace

uint64_t FileTimeFromUnix(int64_t seconds, uint32_t nanoseconds) {
    if (seconds < -kEpochDelta) return 0;
    return static_cast<uint64_t>(seconds + kEpochDelta) * 10000000ULL + nanoseconds / 100;
}

bool StatAt(int dir, const char* name, TFindData& data) {
    struct statx st;
    int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
    if (name[0] == '\0') flags |= AT_EMPTY_PATH;
    if (::statx(dir, name, flags, STATX_BASIC_STATS | STATX_BTIME, &st) != 0) return false;

    data.reparseTag = 0;
    data.size = 0;
    if (S_ISLNK(st.stx_mode)) {
        data.reparseTag = kReparseTagSymlink;
        if (NtfsLinkAttributes(dir, name, data)) {
            data.attributes |= kAttrReparsePoint;
        } else {
            struct stat target;
            const bool toDir = ::fstatat(dir, name, &target, 0) == 0 && S_ISDIR(target.st_mode);
            data.attributes = kAttrReparsePoint | (toDir ? kAttrDirectory : kAttrArchive);
        }
    } else if (S_ISDIR(st.stx_mode)) {
        data.attributes = kAttrDirectory;
        // A folder where another volume is mounted, met as an entry, is a
        // mount-point reparse point, as Windows shows a folder mount ("."
        // and ".." name the folders around it, not a mount).
        const std::string_view entry = name;
        if (!entry.empty() && entry != "." && entry != ".." && MountedVolumeName(st)) {
            data.attributes |= kAttrReparsePoint;
            data.reparseTag = kReparseTagMountPoint;
        }
    } else {
        data.attributes = kAttrArchive;
        if (S_ISREG(st.stx_mode)) data.size = st.stx_size;
    }
    if (!S_ISLNK(st.stx_mode) && !(st.stx_mode & S_IWUSR)) data.attributes |= kAttrReadOnly;

    data.lastAccessTime = FromStatx(st.stx_atime);
    data.lastWriteTime = FromStatx(st.stx_mtime);
    data.creationTime = (st.stx_mask & STATX_BTIME) ? FromStatx(st.stx_btime) : data.lastWriteTime;
    return true;
}

}  // namespace platform::posix
