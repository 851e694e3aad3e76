// FSCTL_GET_REPARSE_POINT on Linux: the Windows reparse data that an NTFS
// driver keeps in an extended attribute, else reparse data made from what
// Linux has in its place (symbolic links, mount points).

#include "platform/reparse.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "base/utf.h"
#include "platform/errors.h"
#include "platform/names.h"
#include "platform/posix/mount_folder.h"
#include "platform/posix/posix_errors.h"
#include "platform/posix/volume_table.h"

namespace platform {

namespace posix {

namespace {

constexpr char kNtfsReparseAttribute[] = "system.ntfs_reparse_data";

struct TFolderIdentity {
    uint32_t devMajor = 0, devMinor = 0;
    uint64_t inode = 0;
    std::u16string volumeName;
};

// The identity of each folder of the volume table, computed once for each
// table (tests replace the table; the machine's is built once).
std::mutex g_FoldersMutex;
std::shared_ptr<const CVolumeTable> g_FoldersTable;
std::vector<TFolderIdentity> g_Folders;

std::vector<TFolderIdentity> IdentifyFolders(const CVolumeTable& table) {
    std::vector<TFolderIdentity> folders;
    for (const auto& volume : table.Volumes()) {
        if (volume.folder.empty()) continue;
        struct statx st;
        if (::statx(AT_FDCWD, volume.folder.c_str(), AT_NO_AUTOMOUNT, STATX_INO, &st) != 0) continue;
        folders.push_back({st.stx_dev_major, st.stx_dev_minor, st.stx_ino, volume.volumeName});
    }
    return folders;
}

std::optional<std::u16string> TableVolumeOfFolder(const struct statx& st) {
    const auto table = GetSystemVolumeTable();
    std::lock_guard<std::mutex> lock(g_FoldersMutex);
    if (g_FoldersTable != table) {
        g_Folders = IdentifyFolders(*table);
        g_FoldersTable = table;
    }
    for (const auto& folder : g_Folders)
        if (folder.inode == st.stx_ino && folder.devMajor == st.stx_dev_major &&
            folder.devMinor == st.stx_dev_minor)
            return folder.volumeName;
    return std::nullopt;
}

// "/a/./b//c/../d" as "/a/b/d"; ".." never climbs above "/".
std::string NormaliseAbsolute(const std::string& path) {
    std::vector<std::string> names;
    size_t i = 0;
    while (i < path.size()) {
        size_t end = path.find('/', i);
        if (end == std::string::npos) end = path.size();
        const std::string name = path.substr(i, end - i);
        if (name == "..") {
            if (!names.empty()) names.pop_back();
        } else if (!name.empty() && name != ".") {
            names.push_back(name);
        }
        i = end + 1;
    }
    std::string result;
    for (const auto& name : names) result += "/" + name;
    return result.empty() ? "/" : result;
}

// Native names joined by "\" in the program's spelling.
std::u16string ProgramNames(std::string_view native) {
    std::u16string result;
    size_t i = 0;
    while (i <= native.size()) {
        size_t end = native.find('/', i);
        if (end == std::string_view::npos) end = native.size();
        if (i > 0) result += u'\\';
        result += NameFromNative(native.substr(i, end - i));
        i = end + 1;
    }
    return result;
}

bool IsUnderFolder(const std::string& path, const std::string& folder) {
    if (folder == "/") return true;
    return path.compare(0, folder.size(), folder) == 0 &&
           (path.size() == folder.size() || path[folder.size()] == '/');
}

// An absolute Linux path in the volume namespace: the volume whose folder
// holds it most closely, by its first drive (else its first mount point,
// else its volume name), and the rest. Empty when no volume holds it.
std::u16string VolumePathOfNative(const std::string& target) {
    const auto table = GetSystemVolumeTable();
    const TVolumeTableEntry* best = nullptr;
    std::string bestFolder;
    for (const auto& volume : table->Volumes()) {
        if (volume.folder.empty()) continue;
        std::string folder = volume.folder;
        while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
        if (IsUnderFolder(target, folder) && (!best || folder.size() > bestFolder.size())) {
            best = &volume;
            bestFolder = folder;
        }
    }
    if (!best) return {};
    std::u16string root;
    for (const auto& mountPoint : best->mountPoints)
        if (mountPoint.size() == 2 && mountPoint[1] == u':') {
            root = mountPoint;
            break;
        }
    if (root.empty() && !best->mountPoints.empty()) root = best->mountPoints.front();
    if (root.empty()) {
        root = best->volumeName;
        while (!root.empty() && root.back() == u'\\') root.pop_back();
    }
    std::string rest = target.substr(bestFolder == "/" ? 0 : bestFolder.size());
    while (!rest.empty() && rest.front() == '/') rest.erase(0, 1);
    return rest.empty() ? root + u"\\" : root + u"\\" + ProgramNames(rest);
}

void PutU16(std::vector<uint8_t>& out, size_t at, uint32_t value) {
    out[at] = static_cast<uint8_t>(value);
    out[at + 1] = static_cast<uint8_t>(value >> 8);
}

void PutU32(std::vector<uint8_t>& out, size_t at, uint32_t value) {
    PutU16(out, at, value & 0xFFFF);
    PutU16(out, at + 2, value >> 16);
}

void PutText(std::vector<uint8_t>& out, std::u16string_view text) {
    for (char16_t c : text) {
        out.push_back(static_cast<uint8_t>(c));
        out.push_back(static_cast<uint8_t>(c >> 8));
    }
}

// Reparse data of one kind: the header, the four name fields, the symbolic
// link's flags, then the names. A mount point ends each name with a null.
std::vector<uint8_t> BuildReparseData(uint32_t tag, std::u16string_view substitute,
                                      std::u16string_view print, uint32_t flags) {
    const bool link = tag == kReparseTagSymlink;
    const size_t pathBufferAt = link ? 20 : 16;
    const size_t terminator = link ? 0 : 2;
    std::vector<uint8_t> out(pathBufferAt, 0);
    PutText(out, substitute);
    out.resize(out.size() + terminator, 0);
    PutText(out, print);
    out.resize(out.size() + terminator, 0);
    PutU32(out, 0, tag);
    PutU16(out, 4, static_cast<uint32_t>(out.size() - kReparseHeaderSize));
    PutU16(out, 8, 0);
    PutU16(out, 10, static_cast<uint32_t>(substitute.size() * 2));
    PutU16(out, 12, static_cast<uint32_t>(substitute.size() * 2 + terminator));
    PutU16(out, 14, static_cast<uint32_t>(print.size() * 2));
    if (link) PutU32(out, 16, flags);
    return out;
}

// Symbolic-link data for a link's target text.
std::vector<uint8_t> SymlinkData(const std::string& target) {
    if (!target.empty() && target[0] == '/') {
        const std::string normal = NormaliseAbsolute(target);
        std::u16string path = VolumePathOfNative(normal);
        // A target on no volume keeps its Linux spelling: no volume name
        // can be found for it, so the walk skips the link with a log line.
        if (path.empty()) path = ProgramNames(normal);
        return BuildReparseData(kReparseTagSymlink, u"\\??\\" + path, path, 0);
    }
    const std::u16string relative = ProgramNames(target);
    return BuildReparseData(kReparseTagSymlink, relative, relative, kSymlinkFlagRelative);
}

// The bytes of the NTFS driver's attribute; false when there are none.
bool ReadNtfsAttribute(int fd, bool isLink, std::vector<uint8_t>& data) {
    std::string path = "/proc/self/fd/" + std::to_string(fd);
    if (isLink) {
        // The descriptor of a link itself: name the link by its path, not
        // through the descriptor's entry, which getxattr would follow.
        char target[4096];
        const ssize_t n = ::readlink(path.c_str(), target, sizeof target);
        if (n <= 0 || n >= static_cast<ssize_t>(sizeof target)) return false;
        path.assign(target, static_cast<size_t>(n));
    }
    auto get = isLink ? ::lgetxattr : ::getxattr;
    data.resize(kMaxReparseDataSize);
    const ssize_t n = get(path.c_str(), kNtfsReparseAttribute, data.data(), data.size());
    if (n < 0) return false;
    data.resize(static_cast<size_t>(n));
    return true;
}

}  // namespace

std::optional<std::u16string> MountedVolumeName(const struct statx& st) {
    if (!S_ISDIR(st.stx_mode)) return std::nullopt;
    if (auto name = TableVolumeOfFolder(st)) return name;
    if ((st.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) && (st.stx_attributes & STATX_ATTR_MOUNT_ROOT))
        return VolumeNameFromIdentity(u"mount " + util::Utf8ToUtf16(std::to_string(st.stx_dev_major)) +
                                      u":" + util::Utf8ToUtf16(std::to_string(st.stx_dev_minor)));
    return std::nullopt;
}

}  // namespace posix

bool GetReparsePoint(NativeHandle h, void* buffer, uint32_t size, uint32_t* returned) {
    if (returned) *returned = 0;
    if (h == kInvalidHandle || h < 0) return posix::Fail(kErrInvalidHandle);
    const int fd = static_cast<int>(h);
    struct statx st;
    if (::statx(fd, "", AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_BASIC_STATS,
                &st) != 0)
        return posix::FailErrno();
    const bool isLink = S_ISLNK(st.stx_mode);

    std::vector<uint8_t> data;
    if (posix::ReadNtfsAttribute(fd, isLink, data)) {
        // The attribute is the data as the file system stores it: a header
        // whose length field covers the rest exactly.
        if (data.size() < kReparseHeaderSize ||
            (data[4] | (data[5] << 8)) + kReparseHeaderSize != data.size())
            return posix::Fail(kErrInvalidReparseData);
    } else if (isLink) {
        std::vector<char> target(4096);
        for (;;) {
            const ssize_t n = ::readlinkat(fd, "", target.data(), target.size());
            if (n < 0) return posix::FailErrno();
            if (static_cast<size_t>(n) < target.size()) {
                target.resize(static_cast<size_t>(n));
                break;
            }
            if (target.size() >= 64 * 1024) return posix::Fail(kErrInvalidReparseData);
            target.resize(target.size() * 2);
        }
        data = posix::SymlinkData(std::string(target.begin(), target.end()));
        if (data.size() > kMaxReparseDataSize) return posix::Fail(kErrInvalidReparseData);
    } else if (auto volume = posix::MountedVolumeName(st)) {
        std::u16string substitute = *volume;
        if (substitute.compare(0, 4, u"\\\\?\\") == 0) substitute[1] = u'?';  // "\??\Volume{...}\"
        data = posix::BuildReparseData(kReparseTagMountPoint, substitute, u"", 0);
    } else {
        return posix::Fail(kErrNotAReparsePoint);
    }

    if (size < kReparseHeaderSize) return posix::Fail(kErrInsufficientBuffer);
    const uint32_t copied = static_cast<uint32_t>(std::min<size_t>(size, data.size()));
    std::memcpy(buffer, data.data(), copied);
    if (returned) *returned = copied;
    if (copied < data.size()) return posix::Fail(kErrMoreData);
    return true;
}

}  // namespace platform
