#include "inputs/volume.h"

#include "base/case.h"
#include "base/format.h"
#include "diag/log.h"
#include "inputs/path_utils.h"
#include "platform/errors.h"
#include "platform/file.h"

namespace {

// A mount point as the volume calls want it: ending in "\" (or "/").
std::u16string WithTrailingSeparator(std::u16string_view name) {
    std::u16string result(name);
    if (result.empty() || (result.back() != u'\\' && result.back() != u'/')) result += u'\\';
    return result;
}

}  // namespace

namespace diskmgmt {

namespace {

constexpr uint32_t kPathBuffer = 260;
constexpr uint32_t kMountPointsBuffer = 2048;
constexpr uint32_t kFileSystemNameBuffer = 261;
// GetVolumePathNamesForVolumeName is asked again with the size it wants; a
// volume whose list keeps growing between calls is given up on after this.
constexpr int kMaxMountPointAttempts = 16;

constexpr std::u16string_view kFileSystemNames[] = {u"FAT",  u"FAT32", u"NTFS",  u"HPFS", u"CDFS",
                                                    u"UDF",  u"NWFS",  u"exFAT", u"ReFS"};

}  // namespace

TFileSystemKind GetFileSystemKind(std::u16string_view name) {
    for (uint32_t i = 0; i < std::size(kFileSystemNames); ++i)
        if (kFileSystemNames[i] == name) return static_cast<TFileSystemKind>(i);
    return FsUnknown;
}

CVolume::CVolume(std::u16string_view name, platform::IVolumes& volumes) : m_Volumes(volumes) {
    if (indexer::IsVolumeName(name) && name.size() > 2) {
        m_VolumeName = WithTrailingSeparator(name);
        return;
    }
    try {
        const std::u16string mountPoint = WithTrailingSeparator(name);
        if (!m_Volumes.GetVolumeNameForVolumeMountPoint(mountPoint, m_VolumeName, kPathBuffer))
            throw CWin32Exc(u"Unable to retrieve volume name for mount point '%1'.", name);
        m_MountPoint = mountPoint;
    } catch (CExc& e) {
        e.AddContext(u"Unable to retrieve volume information. Mount point: '%1'.", name);
        throw;
    }
}

const std::u16string& CVolume::GetMountPoint() {
    if (!m_MountPoint) {
        const auto& all = GetMountPoints();
        m_MountPoint = all.empty() ? std::u16string() : all.front();
    }
    return *m_MountPoint;
}

const std::vector<std::u16string>& CVolume::GetMountPoints() {
    if (m_MountPoints) return *m_MountPoints;
    std::vector<std::u16string> list;
    uint32_t length = kMountPointsBuffer;
    for (int attempt = 0;; ++attempt) {
        uint32_t needed = 0;
        if (m_Volumes.GetVolumePathNamesForVolumeName(m_VolumeName, list, length, &needed)) break;
        if (platform::GetLastError() != platform::kErrMoreData || needed <= length ||
            attempt + 1 >= kMaxMountPointAttempts)
            throw CWin32Exc(u"Unable to retrieve mount points for volume '%1'.", m_VolumeName);
        length = needed;
    }
    m_MountPoints = std::move(list);
    return *m_MountPoints;
}

TFileSystemKind CVolume::GetFileSystemKind() {
    if (!m_FileSystemKind) {
        platform::TVolumeInformation info;
        if (m_Volumes.GetVolumeInformation(m_VolumeName, info, kPathBuffer + 1,
                                           kFileSystemNameBuffer)) {
            m_FileSystemKind = diskmgmt::GetFileSystemKind(info.fileSystemName);
        } else {
            GetLog().LogException(FormatMessageArgs(u"Unable to retrieve information about the file "
                                                    u"system for volume '%1'.",
                                                    {m_VolumeName}),
                                  CWin32Exc());
            m_FileSystemKind = FsUnknown;
        }
    }
    return *m_FileSystemKind;
}

uint32_t CVolume::GetDriveType() {
    if (!m_DriveType) m_DriveType = m_Volumes.GetDriveType(m_VolumeName);
    return *m_DriveType;
}

void EnumerateVolumeNames(std::vector<std::u16string>& names, platform::IVolumes& volumes) {
    std::u16string name;
    platform::CVolumeFindHandle find = volumes.FindFirstVolume(name, kPathBuffer);
    if (!find.IsValid()) throw CWin32Exc(u"Unable to begin scanning the volumes.");
    while (true) {
        bool floppy = false;
        try {
            floppy = IsFloppyVolume(name, volumes);
        } catch (const CExc& e) {
            GetLog().LogException(
                FormatMessageArgs(u"Failed to check whether volume '%1' is a floppy volume.", {name}), e);
        }
        if (floppy)
            GetLog().Detail(u"Skipped floppy volume. [%1].", name);
        else
            names.push_back(name);
        if (!volumes.FindNextVolume(find, name, kPathBuffer)) {
            if (platform::GetLastError() == platform::kErrNoMoreFiles) break;
            throw CWin32Exc(u"Unable to continue volume search.");
        }
    }
}

bool IsFloppyVolume(std::u16string_view volumeName, platform::IVolumes& volumes) {
    CVolume volume(volumeName, volumes);
    for (const auto& mountPoint : volume.GetMountPoints()) {
        std::vector<std::u16string> targets;
        if (volumes.QueryDosDevice(indexer::TrimTrailingSeparators(mountPoint), targets, kPathBuffer) &&
            !targets.empty() && targets.front().starts_with(u"\\Device\\Floppy"))
            return true;
    }
    return false;
}

void EnumerateVolumesForIndexing(std::vector<std::u16string>& mountPoints,
                                 platform::IVolumes& volumes) {
    CLogBlock block(GetLog(), u"Enumerating volumes for indexing.");
    try {
        std::vector<std::u16string> names;
        EnumerateVolumeNames(names, volumes);
        for (const auto& name : names) {
            CVolume volume(name, volumes);
            const uint32_t driveType = volume.GetDriveType();
            if (driveType != platform::kDriveFixed) {
                GetLog().Detail(u"Skipping volume '%1': not a fixed drive (type: '%2').", name,
                                util::ToStrU32(driveType));
                continue;
            }
            const TFileSystemKind kind = volume.GetFileSystemKind();
            const auto& all = volume.GetMountPoints();
            if ((kind != FsNtfs && kind != FsReFS) || all.empty()) {
                GetLog().Detail(u"Skipping volume '%1' with '%2' mount points and FS: '%3'.", name,
                                util::ToStrU64(all.size()), util::ToStrU32(kind));
                continue;
            }
            GetLog().Detail(u"Adding mount point '%1' for volume '%2'.", all.front(), name);
            mountPoints.push_back(all.front());
        }
    } catch (const CExc& e) {
        GetLog().LogException(u"Unable to enumerate the volumes for indexing.", e);
    }
    block.Complete();
}

}  // namespace diskmgmt

namespace indexer {

namespace {
constexpr std::u16string_view kVolumeNameTemplate = u"\\\\?\\Volume{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}";
}

std::u16string GetVolumeDeviceName(std::u16string_view mountPoint, platform::IVolumes& volumes) {
    std::u16string name;
    if (!volumes.GetVolumeNameForVolumeMountPoint(WithTrailingSeparator(mountPoint), name, 260))
        throw CWin32Exc(u"Failed to get volume device name. Volume mount point: [%1]", mountPoint);
    return name;
}

uint64_t GetVolumeRawSize(std::u16string_view device) {
    // The size of the opened device answers what the length query asks.
    platform::CHandle volume =
        platform::FileOpen(device, platform::kGenericRead, platform::kShareRead | platform::kShareWrite,
                           platform::kOpenExisting, platform::kFlagNoBuffering);
    if (!volume.IsValid()) throw CWin32Exc(u"Can`t open volume [%1].", device);
    int64_t size = 0;
    if (!platform::FileGetSize(volume.Get(), &size) || size < 0)
        throw CWin32Exc(u"IOCTL_DISK_GET_LENGTH_INFO fail.");
    return static_cast<uint64_t>(size);
}

bool IsVolumeName(std::u16string_view name) {
    if (name.size() == 2 && name[1] == u':') return true;
    if (name.size() == kVolumeNameTemplate.size() + 1 && name.back() == u'\\') name.remove_suffix(1);
    return name.size() == kVolumeNameTemplate.size() && name.starts_with(u"\\\\?\\Volume");
}

}  // namespace indexer
