#include "platform/volume_table.h"

#include <algorithm>
#include <cstdio>

#include "base/case.h"
#include "base/exc.h"
#include "base/format.h"
#include "base/utf.h"
#include "platform/errors.h"
#include "platform/file.h"

namespace platform {

namespace {

constexpr size_t kGuidTextLength = 36;                    // without braces
constexpr std::u16string_view kVolumePrefix = u"\\\\?\\";  // "\\?\"
constexpr std::u16string_view kVolumeWord = u"Volume";
constexpr uint32_t kMaxComponentLength = 255;

bool IsSep(char16_t c) { return c == u'\\' || c == u'/'; }

bool Fail(uint32_t error) {
    SetLastError(error);
    return false;
}

// Length of a leading "\\?\", "\\.\" or "\??\", else 0.
size_t PrefixLength(std::u16string_view path) {
    if (path.size() >= 4 && IsSep(path[0]) && IsSep(path[3]) &&
        ((IsSep(path[1]) && (path[2] == u'?' || path[2] == u'.')) ||
         (path[1] == u'?' && path[2] == u'?')))
        return 4;
    return 0;
}

std::u16string Backslashed(std::u16string_view text) {
    std::u16string result(text);
    std::replace(result.begin(), result.end(), u'/', u'\\');
    return result;
}

// `path` begins with `head` (ignoring case) followed by its end or a separator.
bool StartsWithComponents(std::u16string_view path, std::u16string_view head) {
    if (head.empty() || path.size() < head.size()) return false;
    for (size_t i = 0; i < head.size(); ++i) {
        const char16_t a = path[i], b = head[i];
        if (IsSep(a) && IsSep(b)) continue;
        if (a != b && util::ToUpperChar(a) != util::ToUpperChar(b)) return false;
    }
    return path.size() == head.size() || IsSep(path[head.size()]);
}

bool IsDriveMount(std::u16string_view mountPoint) {
    return mountPoint.size() == 2 && mountPoint[1] == u':';
}

bool IsHex(char16_t c) {
    return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}

uint32_t Fnv1a32(std::u16string_view text) {
    uint32_t hash = 2166136261u;
    for (char16_t c : text) {
        hash = (hash ^ (c & 0xFF)) * 16777619u;
        hash = (hash ^ (c >> 8)) * 16777619u;
    }
    return hash;
}

uint32_t ReadLe32(const uint8_t* p) {
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

bool Fits(size_t length, uint32_t bufferLength) { return length + 1 <= bufferLength; }

// The volume name's "Volume{...}" part.
std::u16string_view VolumeInner(const TVolumeTableEntry& volume) {
    return std::u16string_view(volume.volumeName).substr(kVolumePrefix.size(),
                                                          kVolumeWord.size() + kGuidTextLength + 2);
}

class CTableFindState : public CVolumeFindState {
public:
    std::vector<std::u16string> m_Names;
    size_t m_Next = 0;
};

// Hands out the next name of an enumeration, as FindNext* does.
bool NextName(CVolumeFindHandle& handle, std::u16string& name, uint32_t bufferLength) {
    auto* state = dynamic_cast<CTableFindState*>(handle.State());
    if (!state) return Fail(kErrInvalidHandle);
    if (state->m_Next >= state->m_Names.size()) return Fail(kErrNoMoreFiles);
    const std::u16string& next = state->m_Names[state->m_Next];
    if (!Fits(next.size(), bufferLength)) return Fail(kErrFilenameExcedRange);
    name = next;
    ++state->m_Next;
    return true;
}

CVolumeFindHandle FirstName(std::vector<std::u16string> names, std::u16string& name,
                            uint32_t bufferLength) {
    auto state = std::make_unique<CTableFindState>();
    state->m_Names = std::move(names);
    CVolumeFindHandle handle(std::move(state));
    if (!NextName(handle, name, bufferLength)) return CVolumeFindHandle();
    return handle;
}

}  // namespace

std::u16string CanonicalVolumeName(std::u16string_view text) {
    if (text.size() >= kVolumePrefix.size() && PrefixLength(text) == 4) text.remove_prefix(4);
    if (util::StartsWithNoCase(text, kVolumeWord)) text.remove_prefix(kVolumeWord.size());
    if (!text.empty() && IsSep(text.back())) text.remove_suffix(1);
    if (text.size() == kGuidTextLength + 2 && text.front() == u'{' && text.back() == u'}')
        text = text.substr(1, kGuidTextLength);
    if (text.size() != kGuidTextLength) return {};
    std::u16string guid;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? text[i] != u'-' : !IsHex(text[i])) return {};
        guid += (text[i] >= u'A' && text[i] <= u'F') ? static_cast<char16_t>(text[i] + 32) : text[i];
    }
    return std::u16string(kVolumePrefix) + std::u16string(kVolumeWord) + u"{" + guid + u"}\\";
}

std::u16string VolumeNameFromIdentity(std::u16string_view identity) {
    std::u16string text(identity);
    uint32_t parts[5];
    for (int i = 0; i < 5; ++i) parts[i] = Fnv1a32(text + static_cast<char16_t>(u'0' + i));
    char guid[40];
    std::snprintf(guid, sizeof guid, "%08x-%04x-%04x-%04x-%04x%08x", parts[0], parts[1] & 0xFFFF,
                  (parts[2] & 0x0FFF) | 0x4000, (parts[3] & 0x3FFF) | 0x8000, parts[4] >> 16,
                  parts[1] ^ parts[4]);
    return CanonicalVolumeName(util::Utf8ToUtf16(guid));
}

std::u16string FileSystemNameFromBootSector(const uint8_t* sector, size_t size) {
    if (size < 512) return {};
    auto at = [sector](size_t offset, std::string_view text) {
        return std::equal(text.begin(), text.end(), sector + offset);
    };
    if (at(3, "NTFS    ")) return u"NTFS";
    if (at(3, "EXFAT   ")) return u"exFAT";
    if (at(3, std::string_view("ReFS\0\0\0\0", 8))) return u"ReFS";
    if (at(82, "FAT32   ")) return u"FAT32";
    if (at(54, "FAT12   ") || at(54, "FAT16   ") || at(54, "FAT     ")) return u"FAT";
    return {};
}

uint32_t SerialNumberFromBootSector(const uint8_t* sector, size_t size) {
    const std::u16string name = FileSystemNameFromBootSector(sector, size);
    if (name == u"NTFS") return ReadLe32(sector + 0x48);
    if (name == u"exFAT") return ReadLe32(sector + 0x64);
    if (name == u"FAT32") return ReadLe32(sector + 0x43);
    if (name == u"FAT") return ReadLe32(sector + 0x27);
    return 0;
}

CVolumeTable::CVolumeTable(std::vector<TVolumeTableEntry> volumes,
                           std::vector<TShadowTableEntry> shadows)
    : m_Volumes(std::move(volumes)), m_Shadows(std::move(shadows)) {
    for (size_t i = 0; i < m_Volumes.size(); ++i) {
        auto& volume = m_Volumes[i];
        for (auto& mountPoint : volume.mountPoints) {
            mountPoint = Backslashed(mountPoint);
            while (mountPoint.size() > 2 && mountPoint.back() == u'\\') mountPoint.pop_back();
        }
        if (volume.volumeName.empty()) {
            // A stable name from what identifies the volume in the table.
            std::u16string identity = util::Utf8ToUtf16(volume.device + "|" + volume.folder);
            for (const auto& mountPoint : volume.mountPoints) identity += u"|" + util::ToUpper(mountPoint);
            volume.volumeName = VolumeNameFromIdentity(identity);
        }
        const std::u16string canonical = CanonicalVolumeName(volume.volumeName);
        if (canonical.empty())
            throw CExc(u"Volume table: [%1] is no volume GUID name.", volume.volumeName);
        volume.volumeName = canonical;
        if (volume.ntDevice.empty())
            volume.ntDevice = u"\\Device\\HarddiskVolume" + util::ToStrU64(i + 1);
        for (size_t j = 0; j < i; ++j) {
            if (m_Volumes[j].volumeName == volume.volumeName)
                throw CExc(u"Volume table: the volume name [%1] appears twice.", volume.volumeName);
            for (const auto& a : m_Volumes[j].mountPoints)
                for (const auto& b : volume.mountPoints)
                    if (util::EqualNoCase(a, b))
                        throw CExc(u"Volume table: the mount point [%1] appears twice.", b);
        }
    }
}

std::optional<CVolumeTable::TMatch> CVolumeTable::_Match(std::u16string_view path) const {
    const size_t prefix = PrefixLength(path);
    const std::u16string_view rest = path.substr(prefix);
    std::optional<TMatch> best;
    for (const auto& volume : m_Volumes) {
        if (prefix && StartsWithComponents(rest, VolumeInner(volume)))
            return TMatch{&volume, prefix, prefix + VolumeInner(volume).size(), true};
        for (const auto& mountPoint : volume.mountPoints)
            if (StartsWithComponents(rest, mountPoint) &&
                (!best || prefix + mountPoint.size() > best->matchLength))
                best = TMatch{&volume, prefix, prefix + mountPoint.size(), false};
    }
    return best;
}

const TVolumeTableEntry* CVolumeTable::_FindRoot(std::u16string_view rootPath) const {
    const size_t prefix = PrefixLength(rootPath);
    std::u16string root = Backslashed(rootPath.substr(prefix));
    if (!root.empty() && root.back() == u'\\') root.pop_back();
    const std::u16string byName = prefix ? CanonicalVolumeName(root) : std::u16string();
    for (const auto& volume : m_Volumes) {
        if (!byName.empty() && volume.volumeName == byName) return &volume;
        for (const auto& mountPoint : volume.mountPoints)
            if (util::EqualNoCase(mountPoint, root)) return &volume;
    }
    return nullptr;
}

std::vector<std::u16string> CVolumeTable::_MountPointsOn(const TVolumeTableEntry& volume) const {
    std::vector<std::u16string> result;
    for (const auto& other : m_Volumes) {
        for (const auto& mountPoint : other.mountPoints) {
            const size_t last = mountPoint.rfind(u'\\');
            if (last == std::u16string::npos) continue;  // a drive lies on no volume
            const auto holder = _Match(std::u16string_view(mountPoint).substr(0, last));
            if (!holder || holder->volume != &volume) continue;
            std::u16string relative = mountPoint.substr(holder->matchLength + 1) + u"\\";
            if (std::find(result.begin(), result.end(), relative) == result.end())
                result.push_back(std::move(relative));
        }
    }
    return result;
}

std::optional<TResolvedPath> CVolumeTable::Resolve(std::u16string_view path) const {
    auto restAfter = [path](size_t at) {
        std::u16string_view rest = path.substr(at);
        while (!rest.empty() && IsSep(rest.front())) rest.remove_prefix(1);
        return Backslashed(rest);
    };
    const TShadowTableEntry* shadow = nullptr;
    for (const auto& entry : m_Shadows)
        if (!entry.name.empty() && path.substr(0, entry.name.size()) == entry.name &&
            (path.size() == entry.name.size() || IsSep(path[entry.name.size()])) &&
            (!shadow || entry.name.size() > shadow->name.size()))
            shadow = &entry;
    if (shadow) {
        if (path.size() == shadow->name.size() && !shadow->device.empty())
            return TResolvedPath{shadow->device, {}, true};
        if (shadow->folder.empty()) return std::nullopt;
        return TResolvedPath{shadow->folder, restAfter(shadow->name.size()), false};
    }
    const auto match = _Match(path);
    if (!match) return std::nullopt;
    const TVolumeTableEntry& volume = *match->volume;
    // "\\.\C:" and "\\?\Volume{...}" without "\" name the volume itself.
    const bool wholeVolume = match->prefixLength > 0 && match->matchLength == path.size() &&
                             (match->byVolumeName || IsDriveMount(path.substr(match->prefixLength)));
    if (wholeVolume && !volume.device.empty()) return TResolvedPath{volume.device, {}, true};
    if (volume.folder.empty()) return std::nullopt;
    return TResolvedPath{volume.folder, restAfter(match->matchLength), false};
}

bool CVolumeTable::GetVolumePathName(std::u16string_view path, std::u16string& mountPoint,
                                     uint32_t bufferLength) {
    if (path.empty()) return Fail(kErrSuccess);
    std::u16string answer;
    if (const auto match = _Match(path)) {
        answer = Backslashed(path.substr(0, match->matchLength)) + u"\\";
    } else {
        const bool relative = !IsSep(path[0]) && !(path.size() >= 2 && path[1] == u':');
        const TVolumeTableEntry* boot = nullptr;
        std::u16string bootMount;
        for (const auto& volume : m_Volumes)
            for (const auto& candidate : volume.mountPoints)
                if (IsDriveMount(candidate) && (!boot || util::EqualNoCase(candidate, u"C:"))) {
                    boot = &volume;
                    bootMount = candidate;
                }
        // A relative path lies on the boot volume, as Windows answers.
        if (!relative || !boot) return Fail(kErrPathNotFound);
        answer = bootMount + u"\\";
    }
    if (!Fits(answer.size(), bufferLength)) return Fail(kErrFilenameExcedRange);
    mountPoint = std::move(answer);
    return true;
}

bool CVolumeTable::GetVolumeNameForVolumeMountPoint(std::u16string_view mountPoint,
                                                    std::u16string& volumeName,
                                                    uint32_t bufferLength) {
    if (mountPoint.empty() || mountPoint.back() != u'\\') return Fail(kErrInvalidName);
    const TVolumeTableEntry* volume = _FindRoot(mountPoint);
    if (!volume) return Fail(_Match(mountPoint) ? kErrNotAReparsePoint : kErrFileNotFound);
    if (!Fits(volume->volumeName.size(), bufferLength)) return Fail(kErrFilenameExcedRange);
    volumeName = volume->volumeName;
    return true;
}

bool CVolumeTable::GetVolumePathNamesForVolumeName(std::u16string_view volumeName,
                                                   std::vector<std::u16string>& mountPoints,
                                                   uint32_t bufferLength,
                                                   uint32_t* returnLength) {
    if (volumeName.empty() || volumeName.back() != u'\\' || PrefixLength(volumeName) == 0)
        return Fail(kErrInvalidName);
    const std::u16string canonical = CanonicalVolumeName(volumeName);
    if (canonical.empty()) return Fail(kErrInvalidName);
    auto it = std::find_if(m_Volumes.begin(), m_Volumes.end(),
                           [&](const TVolumeTableEntry& v) { return v.volumeName == canonical; });
    if (it == m_Volumes.end()) return Fail(kErrFileNotFound);
    std::vector<std::u16string> names;
    for (int drives = 1; drives >= 0; --drives)
        for (const auto& mountPoint : it->mountPoints)
            if (IsDriveMount(mountPoint) == (drives == 1)) names.push_back(mountPoint + u"\\");
    uint32_t needed = 1;
    for (const auto& name : names) needed += static_cast<uint32_t>(name.size() + 1);
    if (returnLength) *returnLength = needed;
    if (needed > bufferLength) return Fail(kErrMoreData);
    mountPoints = std::move(names);
    return true;
}

CVolumeFindHandle CVolumeTable::FindFirstVolume(std::u16string& volumeName, uint32_t bufferLength) {
    std::vector<std::u16string> names;
    for (const auto& volume : m_Volumes) names.push_back(volume.volumeName);
    return FirstName(std::move(names), volumeName, bufferLength);
}

bool CVolumeTable::FindNextVolume(CVolumeFindHandle& handle, std::u16string& volumeName,
                                  uint32_t bufferLength) {
    return NextName(handle, volumeName, bufferLength);
}

CVolumeFindHandle CVolumeTable::FindFirstVolumeMountPoint(std::u16string_view rootPath,
                                                          std::u16string& mountPoint,
                                                          uint32_t bufferLength) {
    if (rootPath.empty() || rootPath.back() != u'\\') {
        SetLastError(kErrInvalidName);
        return CVolumeFindHandle();
    }
    const TVolumeTableEntry* volume = _FindRoot(rootPath);
    if (!volume) {
        SetLastError(kErrFileNotFound);
        return CVolumeFindHandle();
    }
    return FirstName(_MountPointsOn(*volume), mountPoint, bufferLength);
}

bool CVolumeTable::FindNextVolumeMountPoint(CVolumeFindHandle& handle, std::u16string& mountPoint,
                                            uint32_t bufferLength) {
    return NextName(handle, mountPoint, bufferLength);
}

uint32_t CVolumeTable::GetDriveType(std::u16string_view rootPath) {
    if (rootPath.empty() || rootPath.back() != u'\\') return kDriveNoRootDir;
    const TVolumeTableEntry* volume = _FindRoot(rootPath);
    return volume ? volume->driveType : kDriveNoRootDir;
}

bool CVolumeTable::GetVolumeInformation(std::u16string_view rootPath, TVolumeInformation& info,
                                        uint32_t labelLength, uint32_t fileSystemNameLength) {
    if (rootPath.empty() || rootPath.back() != u'\\') return Fail(kErrInvalidName);
    const TVolumeTableEntry* volume = _FindRoot(rootPath);
    if (!volume) return Fail(_Match(rootPath) ? kErrInvalidName : kErrPathNotFound);
    TVolumeInformation answer;
    answer.volumeLabel = volume->label;
    answer.fileSystemName = volume->fileSystem;
    answer.serialNumber = volume->serialNumber;
    if ((answer.fileSystemName.empty() || answer.serialNumber == 0) && !volume->device.empty()) {
        // The boot sector says what the device holds; a device that can't be
        // read leaves the names of the table and the mount.
        CHandle device = FileOpen(util::Utf8ToUtf16(volume->device), kGenericRead,
                                  kShareRead | kShareWrite, kOpenExisting, 0);
        uint8_t sector[512];
        uint32_t done = 0;
        if (device.IsValid() && FileRead(device.Get(), sector, sizeof sector, &done)) {
            if (answer.fileSystemName.empty())
                answer.fileSystemName = FileSystemNameFromBootSector(sector, done);
            if (answer.serialNumber == 0)
                answer.serialNumber = SerialNumberFromBootSector(sector, done);
        }
    }
    if (answer.fileSystemName.empty()) answer.fileSystemName = volume->mountType;
    if (answer.serialNumber == 0) answer.serialNumber = Fnv1a32(volume->volumeName);
    answer.maxComponentLength = kMaxComponentLength;
    answer.fileSystemFlags = kFsCasePreservedNames | kFsUnicodeOnDisk;
    if (answer.fileSystemName == u"NTFS" || answer.fileSystemName == u"ReFS")
        answer.fileSystemFlags |= kFsCaseSensitiveSearch | kFsPersistentAcls |
                                  kFsSupportsSparseFiles | kFsSupportsReparsePoints;
    if (!Fits(answer.volumeLabel.size(), labelLength) ||
        !Fits(answer.fileSystemName.size(), fileSystemNameLength))
        return Fail(kErrMoreData);
    info = std::move(answer);
    return true;
}

uint32_t CVolumeTable::QueryDosDevice(std::u16string_view deviceName,
                                      std::vector<std::u16string>& targets,
                                      uint32_t bufferLength) {
    const std::u16string byName =
        util::StartsWithNoCase(deviceName, kVolumeWord) ? CanonicalVolumeName(deviceName) : u"";
    for (const auto& volume : m_Volumes) {
        bool hit = !byName.empty() && volume.volumeName == byName;
        for (const auto& mountPoint : volume.mountPoints)
            hit = hit || (IsDriveMount(mountPoint) && util::EqualNoCase(mountPoint, deviceName));
        if (!hit) continue;
        const uint32_t needed = static_cast<uint32_t>(volume.ntDevice.size() + 2);
        if (needed > bufferLength) {
            SetLastError(kErrInsufficientBuffer);
            return 0;
        }
        targets = {volume.ntDevice};
        return needed;
    }
    SetLastError(kErrFileNotFound);
    return 0;
}

}  // namespace platform
