#include "platform/posix/volume_table.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <vector>

#include "base/exc.h"
#include "base/utf.h"
#include "platform/errors.h"
#include "platform/names.h"
#include "platform/posix/native_path.h"
#include "platform/registry.h"

namespace platform::posix {

namespace {

std::mutex g_TableMutex;
std::shared_ptr<CVolumeTable> g_Table;

// A Linux path written in a registry value, converted name by name.
std::string NativeFromText(std::u16string_view text) {
    std::string result;
    size_t i = 0;
    while (i <= text.size()) {
        size_t end = text.find(u'/', i);
        if (end == std::u16string_view::npos) end = text.size();
        if (i > 0) result += '/';
        auto name = NameToNative(text.substr(i, end - i));
        result += name ? *name : util::Utf16ToUtf8(text.substr(i, end - i));
        i = end + 1;
    }
    return result;
}

std::u16string ReadString(const CRegKey& key, std::u16string_view name) {
    uint32_t type = 0;
    std::vector<uint8_t> data;
    if (!RegQueryValue(key, name, type, data)) return {};
    if (type == kRegMultiSz) {
        // Names separated by nulls become names separated by "|".
        std::u16string text;
        for (size_t i = 0; i + 1 < data.size(); i += 2) {
            const char16_t c = static_cast<char16_t>(data[i] | (data[i + 1] << 8));
            text += c == 0 ? u'|' : c;
        }
        while (!text.empty() && text.back() == u'|') text.pop_back();
        return text;
    }
    return RegDataToString(data);
}

uint32_t ReadDword(const CRegKey& key, std::u16string_view name, uint32_t fallback) {
    uint32_t type = 0;
    std::vector<uint8_t> data;
    if (!RegQueryValue(key, name, type, data) || type != kRegDword || data.size() != 4)
        return fallback;
    return data[0] | (data[1] << 8) | (data[2] << 16) | (static_cast<uint32_t>(data[3]) << 24);
}

std::vector<std::u16string> SplitBars(std::u16string_view text) {
    std::vector<std::u16string> parts;
    size_t i = 0;
    while (i <= text.size()) {
        size_t end = text.find(u'|', i);
        if (end == std::u16string_view::npos) end = text.size();
        if (end > i) parts.emplace_back(text.substr(i, end - i));
        i = end + 1;
    }
    return parts;
}

// Calls `visit` with each subkey of HKLM\<kVolumeTableKey>\<group>.
template <class Visit>
void ForEachSubkey(std::u16string_view group, Visit visit) {
    const std::u16string path = std::u16string(kVolumeTableKey) + u"\\" + std::u16string(group);
    CRegKey parent;
    if (!RegOpenKey(kHkeyLocalMachine, path, kKeyRead, parent)) return;
    std::u16string name;
    for (uint32_t index = 0; RegEnumKey(parent, index, name); ++index) {
        CRegKey key;
        if (RegOpenKey(kHkeyLocalMachine, path + u"\\" + name, kKeyRead, key)) visit(key);
    }
}

// mountinfo escapes blanks, tabs, newlines and backslashes as \ooo.
std::string Unescape(std::string_view text) {
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() &&
            text[i + 1] >= '0' && text[i + 1] <= '3' && text[i + 2] >= '0' && text[i + 2] <= '7' &&
            text[i + 3] >= '0' && text[i + 3] <= '7') {
            result += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 +
                                        (text[i + 3] - '0'));
            i += 3;
        } else {
            result += text[i];
        }
    }
    return result;
}

bool IsUnder(const std::string& path, std::string_view folder) {
    return path.size() >= folder.size() && path.compare(0, folder.size(), folder) == 0 &&
           (path.size() == folder.size() || path[folder.size()] == '/');
}

// Kernel plumbing that no Windows volume stands for.
bool IsPseudoFileSystem(const std::string& type) {
    static const std::set<std::string> pseudo = {
        "proc",     "sysfs",      "devtmpfs",  "devpts",      "cgroup",   "cgroup2",
        "mqueue",   "debugfs",    "tracefs",   "securityfs",  "pstore",   "bpf",
        "autofs",   "configfs",   "fusectl",   "hugetlbfs",   "binfmt_misc", "nsfs",
        "efivarfs", "rpc_pipefs", "selinuxfs", "fuse.gvfsd-fuse", "fuse.portal"};
    return pseudo.count(type) != 0;
}

std::u16string FileSystemNameOfMountType(const std::string& type) {
    if (type == "ntfs" || type == "ntfs3" || type == "fuseblk") return u"NTFS";
    if (type == "vfat") return u"FAT32";
    if (type == "msdos") return u"FAT";
    if (type == "exfat") return u"exFAT";
    if (type == "iso9660") return u"CDFS";
    if (type == "udf") return u"UDF";
    return util::Utf8ToUtf16(type);
}

std::string DeviceNumberSuffix(const std::string& device, std::string_view stem) {
    const std::string name = device.substr(device.rfind('/') + 1);
    if (name.compare(0, stem.size(), stem) != 0) return {};
    const std::string digits = name.substr(stem.size());
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) return {};
    return digits;
}

uint32_t DriveTypeOf(const std::string& type, const std::string& device) {
    static const std::set<std::string> remote = {"nfs", "nfs4", "cifs", "smb3", "smbfs",
                                                 "fuse.sshfs", "9p", "ceph", "glusterfs"};
    if (remote.count(type)) return kDriveRemote;
    if (type == "iso9660" || type == "udf" || !DeviceNumberSuffix(device, "sr").empty())
        return kDriveCdrom;
    if (type == "tmpfs" || type == "ramfs") return kDriveRamdisk;
    if (!DeviceNumberSuffix(device, "fd").empty()) return kDriveRemovable;
    if (!device.empty()) {
        // /sys/class/block/<name>/removable, or that of the disk of a partition.
        const std::string name = device.substr(device.rfind('/') + 1);
        for (std::string path : {"/sys/class/block/" + name + "/removable",
                                 "/sys/class/block/" + name + "/../removable"}) {
            std::ifstream file(path);
            int flag = 0;
            if (file >> flag) return flag ? kDriveRemovable : kDriveFixed;
        }
    }
    return kDriveFixed;
}

// The file system UUID of each block device, from /dev/disk/by-uuid.
std::map<std::string, std::string> UuidsByDevice() {
    std::map<std::string, std::string> uuids;
    const std::string folder = "/dev/disk/by-uuid";
    DIR* dir = ::opendir(folder.c_str());
    if (!dir) return uuids;
    while (const dirent* entry = ::readdir(dir)) {
        if (entry->d_name[0] == '.') continue;
        char target[PATH_MAX];
        if (::realpath((folder + "/" + entry->d_name).c_str(), target)) uuids[target] = entry->d_name;
    }
    ::closedir(dir);
    return uuids;
}

bool IsFolderOnDisk(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool IsBlockDeviceOnDisk(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISBLK(st.st_mode);
}

std::shared_ptr<CVolumeTable> BuildSystemTable() {
    if (auto fromRegistry = LoadVolumeTableFromRegistry())
        return std::make_shared<CVolumeTable>(std::move(*fromRegistry));
    std::ifstream file("/proc/self/mountinfo");
    std::stringstream text;
    text << file.rdbuf();
    return std::make_shared<CVolumeTable>(
        BuildMountVolumeTable(text.str(), IsFolderOnDisk, IsBlockDeviceOnDisk));
}

// The forwarder behind SystemVolumes(): each call takes the table current at
// that moment, so that SetSystemVolumeTable may replace it between calls.
class CSystemVolumes : public IVolumes {
public:
    bool GetVolumePathName(std::u16string_view path, std::u16string& mountPoint,
                           uint32_t bufferLength) override {
        return Table()->GetVolumePathName(path, mountPoint, bufferLength);
    }
    bool GetVolumeNameForVolumeMountPoint(std::u16string_view mountPoint,
                                          std::u16string& volumeName,
                                          uint32_t bufferLength) override {
        return Table()->GetVolumeNameForVolumeMountPoint(mountPoint, volumeName, bufferLength);
    }
    bool GetVolumePathNamesForVolumeName(std::u16string_view volumeName,
                                         std::vector<std::u16string>& mountPoints,
                                         uint32_t bufferLength, uint32_t* returnLength) override {
        return Table()->GetVolumePathNamesForVolumeName(volumeName, mountPoints, bufferLength,
                                                        returnLength);
    }
    CVolumeFindHandle FindFirstVolume(std::u16string& volumeName, uint32_t bufferLength) override {
        return Table()->FindFirstVolume(volumeName, bufferLength);
    }
    bool FindNextVolume(CVolumeFindHandle& handle, std::u16string& volumeName,
                        uint32_t bufferLength) override {
        return Table()->FindNextVolume(handle, volumeName, bufferLength);
    }
    CVolumeFindHandle FindFirstVolumeMountPoint(std::u16string_view rootPath,
                                                std::u16string& mountPoint,
                                                uint32_t bufferLength) override {
        return Table()->FindFirstVolumeMountPoint(rootPath, mountPoint, bufferLength);
    }
    bool FindNextVolumeMountPoint(CVolumeFindHandle& handle, std::u16string& mountPoint,
                                  uint32_t bufferLength) override {
        return Table()->FindNextVolumeMountPoint(handle, mountPoint, bufferLength);
    }
    uint32_t GetDriveType(std::u16string_view rootPath) override {
        return Table()->GetDriveType(rootPath);
    }
    bool GetVolumeInformation(std::u16string_view rootPath, TVolumeInformation& info,
                              uint32_t labelLength, uint32_t fileSystemNameLength) override {
        return Table()->GetVolumeInformation(rootPath, info, labelLength, fileSystemNameLength);
    }
    uint32_t QueryDosDevice(std::u16string_view deviceName, std::vector<std::u16string>& targets,
                            uint32_t bufferLength) override {
        return Table()->QueryDosDevice(deviceName, targets, bufferLength);
    }

private:
    static std::shared_ptr<CVolumeTable> Table() {
        return std::const_pointer_cast<CVolumeTable>(GetSystemVolumeTable());
    }
};

}  // namespace

std::optional<CVolumeTable> LoadVolumeTableFromRegistry() {
    std::vector<TVolumeTableEntry> volumes;
    std::vector<TShadowTableEntry> shadows;
    ForEachSubkey(u"Volumes", [&](const CRegKey& key) {
        TVolumeTableEntry entry;
        entry.mountPoints = SplitBars(ReadString(key, u"MountPoints"));
        entry.volumeName = ReadString(key, u"VolumeName");
        entry.folder = NativeFromText(ReadString(key, u"Folder"));
        entry.device = NativeFromText(ReadString(key, u"Device"));
        entry.driveType = ReadDword(key, u"DriveType", kDriveFixed);
        entry.fileSystem = ReadString(key, u"FileSystem");
        entry.label = ReadString(key, u"Label");
        entry.ntDevice = ReadString(key, u"NtDevice");
        entry.serialNumber = ReadDword(key, u"SerialNumber", 0);
        volumes.push_back(std::move(entry));
    });
    ForEachSubkey(u"Shadows", [&](const CRegKey& key) {
        TShadowTableEntry entry;
        entry.name = ReadString(key, u"Name");
        entry.device = NativeFromText(ReadString(key, u"Device"));
        entry.folder = NativeFromText(ReadString(key, u"Folder"));
        if (!entry.name.empty()) shadows.push_back(std::move(entry));
    });
    if (volumes.empty()) return std::nullopt;
    return CVolumeTable(std::move(volumes), std::move(shadows));
}

CVolumeTable BuildMountVolumeTable(std::string_view mountInfo,
                                   bool (*isFolder)(const std::string&),
                                   bool (*isBlockDevice)(const std::string&)) {
    struct TMount {
        std::string identity, mountPoint, type, source;
    };
    std::vector<TMount> mounts;
    std::istringstream lines{std::string(mountInfo)};
    std::string line;
    while (std::getline(lines, line)) {
        // id parent major:minor root mount-point options [optional...] - type source super-options
        std::istringstream fields(line);
        std::vector<std::string> words;
        for (std::string word; fields >> word;) words.push_back(word);
        size_t dash = 6;
        while (dash < words.size() && words[dash] != "-") ++dash;
        if (words.size() < 5 || dash + 2 >= words.size()) continue;
        TMount mount{words[2] + " " + Unescape(words[3]), Unescape(words[4]), words[dash + 1],
                     Unescape(words[dash + 2])};
        if (IsPseudoFileSystem(mount.type) || mount.mountPoint.empty() || mount.mountPoint[0] != '/')
            continue;
        if (IsUnder(mount.mountPoint, "/proc") || IsUnder(mount.mountPoint, "/sys") ||
            IsUnder(mount.mountPoint, "/dev"))
            continue;
        if (!isFolder(mount.mountPoint)) continue;  // a file bind-mounted over a file
        // A later mount on the same folder hides the earlier one.
        std::erase_if(mounts, [&](const TMount& m) { return m.mountPoint == mount.mountPoint; });
        mounts.push_back(std::move(mount));
    }
    const auto uuids = UuidsByDevice();
    std::vector<TVolumeTableEntry> volumes;
    std::vector<std::string> identities;
    for (const auto& mount : mounts) {
        std::u16string mountPoint = u"Z:";
        if (mount.mountPoint != "/") {
            size_t i = 1;
            while (i <= mount.mountPoint.size()) {
                size_t end = mount.mountPoint.find('/', i);
                if (end == std::string::npos) end = mount.mountPoint.size();
                if (end > i) mountPoint += u"\\" + NameFromNative(mount.mountPoint.substr(i, end - i));
                i = end + 1;
            }
        }
        // One file system mounted at several folders is one volume.
        size_t index = 0;
        while (index < identities.size() && identities[index] != mount.identity) ++index;
        if (index < identities.size()) {
            volumes[index].mountPoints.push_back(mountPoint);
            continue;
        }
        TVolumeTableEntry entry;
        entry.mountPoints = {mountPoint};
        entry.folder = mount.mountPoint;
        if (mount.source.compare(0, 5, "/dev/") == 0 && isBlockDevice(mount.source))
            entry.device = mount.source;
        entry.mountType = FileSystemNameOfMountType(mount.type);
        entry.driveType = DriveTypeOf(mount.type, entry.device);
        if (auto n = DeviceNumberSuffix(entry.device, "fd"); !n.empty())
            entry.ntDevice = u"\\Device\\Floppy" + util::Utf8ToUtf16(n);
        if (auto n = DeviceNumberSuffix(entry.device, "sr"); !n.empty())
            entry.ntDevice = u"\\Device\\CdRom" + util::Utf8ToUtf16(n);
        // The file system's UUID and the folder inside it identify the
        // volume across restarts; without a UUID the device numbers do, and
        // a file system without a device adds its source and type.
        std::string identity = mount.identity;
        char real[PATH_MAX];
        if (!entry.device.empty() && ::realpath(entry.device.c_str(), real) && uuids.count(real))
            identity = "uuid " + uuids.at(real) + identity.substr(identity.find(' '));
        if (entry.device.empty()) identity += " " + mount.type + " " + mount.source;
        entry.volumeName = VolumeNameFromIdentity(util::Utf8ToUtf16(identity));
        identities.push_back(mount.identity);
        volumes.push_back(std::move(entry));
    }
    return CVolumeTable(std::move(volumes), {});
}

std::shared_ptr<const CVolumeTable> GetSystemVolumeTable() {
    std::lock_guard<std::mutex> lock(g_TableMutex);
    if (!g_Table) {
        try {
            g_Table = BuildSystemTable();
        } catch (const CExc&) {
            // A damaged table in the registry file leaves no volumes rather
            // than a half-read namespace; every call then fails with 2 or 3.
            g_Table = std::make_shared<CVolumeTable>();
        }
    }
    return g_Table;
}

void SetSystemVolumeTable(std::shared_ptr<CVolumeTable> table) {
    std::lock_guard<std::mutex> lock(g_TableMutex);
    g_Table = std::move(table);
}

std::optional<std::string> ResolveVolumePath(std::u16string_view path) {
    const auto table = GetSystemVolumeTable();
    const auto resolved = table->Resolve(path);
    if (!resolved) return std::nullopt;
    if (resolved->rest.empty()) return resolved->base;
    std::string rest;
    if (!ConvertNamesToNative(resolved->rest, rest)) return std::nullopt;
    // A relative walk that climbs above the volume's root stays at the root.
    while (rest == ".." || rest.compare(0, 3, "../") == 0) rest.erase(0, rest.size() > 2 ? 3 : 2);
    if (rest.empty() || rest == ".") return resolved->base;
    std::string native = resolved->base;
    if (native.empty() || native.back() != '/') native += '/';
    return native + rest;
}

}  // namespace platform::posix

namespace platform {

IVolumes& SystemVolumes() {
    static posix::CSystemVolumes volumes;
    return volumes;
}

}  // namespace platform
