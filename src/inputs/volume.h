#pragma once
// Volumes as the legacy run sees them, and the helpers that translate
// between mount points, device names and file system kinds.
//
// Every function takes the volume calls as a platform::IVolumes, the
// machine's by default, so that tests hand in an in-memory volume table.
// Failures throw CWin32Exc with the messages given below.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/volume.h"

namespace diskmgmt {

enum TFileSystemKind : uint32_t {
    FsFat = 0,
    FsFat32 = 1,
    FsNtfs = 2,
    FsHpfs = 3,
    FsCdfs = 4,
    FsUdf = 5,
    FsNwfs = 6,
    FsExFat = 7,
    FsReFS = 8,
    FsUnknown = 9,  // any other name, and a failed query
};

// The kind of a file system name as GetVolumeInformationW gives it,
// compared exactly ("NTFS", "exFAT", ...).
TFileSystemKind GetFileSystemKind(std::u16string_view name);

// One volume, from a volume GUID name or a mount point. Each property is
// computed at first use and kept.
class CVolume {
public:
    // From a mount point the volume name is looked up at once; a failure
    // throws CWin32Exc "Unable to retrieve volume name for mount point '%1'."
    // inside the context "Unable to retrieve volume information. Mount
    // point: '%1'.".
    explicit CVolume(std::u16string_view name, platform::IVolumes& volumes = platform::SystemVolumes());

    // "\\?\Volume{GUID}\".
    const std::u16string& GetVolumeName() const { return m_VolumeName; }
    // The mount point given at construction, else the first of the list
    // (empty when the volume has none).
    const std::u16string& GetMountPoint();
    // Each with trailing "\". Throws CWin32Exc "Unable to retrieve mount
    // points for volume '%1'.".
    const std::vector<std::u16string>& GetMountPoints();
    // FsUnknown, with a logged line, when the query fails.
    TFileSystemKind GetFileSystemKind();
    // GetDriveTypeW of the volume name.
    uint32_t GetDriveType();

private:
    platform::IVolumes& m_Volumes;
    std::u16string m_VolumeName;
    std::optional<std::u16string> m_MountPoint;
    std::optional<std::vector<std::u16string>> m_MountPoints;
    std::optional<TFileSystemKind> m_FileSystemKind;
    std::optional<uint32_t> m_DriveType;
};

// Every volume name of the machine but floppies. Throws CWin32Exc "Unable to
// begin scanning the volumes." and "Unable to continue volume search.".
void EnumerateVolumeNames(std::vector<std::u16string>& names,
                          platform::IVolumes& volumes = platform::SystemVolumes());

// True when a mount point of the volume is a floppy drive.
bool IsFloppyVolume(std::u16string_view volumeName,
                    platform::IVolumes& volumes = platform::SystemVolumes());

// The mount points of the fixed NTFS and ReFS volumes, the first of each,
// under the log block "Enumerating volumes for indexing."; a failure on the
// way is logged and leaves a shorter list.
void EnumerateVolumesForIndexing(std::vector<std::u16string>& mountPoints,
                                 platform::IVolumes& volumes = platform::SystemVolumes());

}  // namespace diskmgmt

namespace indexer {

// "\\?\Volume{GUID}\" of a mount point ("\" appended when missing). Throws
// CWin32Exc "Failed to get volume device name. Volume mount point: [%1]".
std::u16string GetVolumeDeviceName(std::u16string_view mountPoint,
                                   platform::IVolumes& volumes = platform::SystemVolumes());

// The size in bytes of a volume or shadow device opened raw. Throws
// CWin32Exc "Can`t open volume [%1]." or "IOCTL_DISK_GET_LENGTH_INFO fail.".
uint64_t GetVolumeRawSize(std::u16string_view device);

// "C:" (two characters, the second ":"), or a string as long as a volume
// GUID name (with or without its "\") that begins with "\\?\Volume".
bool IsVolumeName(std::u16string_view name);

}  // namespace indexer
