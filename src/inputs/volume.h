#pragma once
// Volumes as the legacy run sees them, and the helpers that translate
// between mount points, device names and file system kinds.
//
// Every function takes the volume calls as a platform::IVolumes, and the
// calls on an opened volume as a platform::IVolumeControl, the machine's by
// default, so that tests hand in an in-memory volume table or answers of
// their own. Failures throw CWin32Exc with the messages given below.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/volume.h"
#include "platform/volume_control.h"

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
// The reverse: the name, or the decimal number for FsUnknown.
std::u16string GetFileSystemName(TFileSystemKind kind);

// One volume, from a volume GUID name or a mount point. Each property is
// computed at first use and kept.
class CVolume {
public:
    // From a mount point the volume name is looked up at once; a failure
    // throws CWin32Exc "Unable to retrieve volume name for mount point '%1'."
    // inside the context "Unable to retrieve volume information. Mount
    // point: '%1'.".
    explicit CVolume(std::u16string_view name,
                     platform::IVolumes& volumes = platform::SystemVolumes(),
                     platform::IVolumeControl& control = platform::SystemVolumeControl());

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
    // The physical disk of each extent of the volume, in the order the
    // system gives them (IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, asked with
    // room for one extent, then for as many as it reports). Empty, with an
    // INFO line "Unable to retrieve disk numbers for volume '%1': volume
    // cannot be associated with physical disks.", when the volume answers 1
    // or the second query fails. Throws CWin32Exc "Unable to open volume
    // '%1'." and "Unable to retrieve location of a volume '%1' on the
    // physical disks." (any other failure of the first query). A throw keeps
    // nothing: the next call asks again.
    const std::vector<uint32_t>& GetDiskNumbers();

private:
    platform::IVolumes& m_Volumes;
    platform::IVolumeControl& m_Control;
    std::u16string m_VolumeName;
    std::optional<std::u16string> m_MountPoint;
    std::optional<std::vector<std::u16string>> m_MountPoints;
    std::optional<TFileSystemKind> m_FileSystemKind;
    std::optional<uint32_t> m_DriveType;
    std::optional<std::vector<uint32_t>> m_DiskNumbers;
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

// The mount point that holds a file, with trailing "\". Throws CWin32Exc
// "Failed to get volume mount point. File name: [%1]".
std::u16string GetVolumeMountPoint(std::u16string_view fileName,
                                   platform::IVolumes& volumes = platform::SystemVolumes());

// The size in bytes of a volume or shadow device opened raw. Throws
// CWin32Exc "Can`t open volume [%1]." or "IOCTL_DISK_GET_LENGTH_INFO fail.".
uint64_t GetVolumeRawSize(std::u16string_view device);

// GetDiskFreeSpaceExW of a folder on the volume. Throws CWin32Exc
// "GetDiskFreeSpaceExW fail.".
platform::TDiskFreeSpace GetVolumeFreeSpace(
    std::u16string_view folder, platform::IVolumeControl& control = platform::SystemVolumeControl());

// The whole allocation bitmap of an opened volume (FSCTL_GET_VOLUME_BITMAP
// from cluster 0): the output buffer starts at kInitialBitmapBuffer bytes
// and is grown to the size the answer asks for on error 234, at most
// kMaxBitmapAttempts queries in all. Throws CWin32Exc "WinGetVolumeBitmap
// fail." on any other error, on a volume that keeps answering 234, and on a
// bitmap too large for one query (234).
inline constexpr uint32_t kInitialBitmapBuffer = 64 * 1024;
inline constexpr int kMaxBitmapAttempts = 16;
platform::TVolumeBitmap WinGetVolumeBitmap(
    platform::NativeHandle volume, platform::IVolumeControl& control = platform::SystemVolumeControl());

// The cluster sizes of the volume that holds an opened handle
// (NtQueryVolumeInformationFile, FileFsSizeInformation). A failed status
// throws CExc "Failed to query information about the FS clusters.
// NTSTATUS=0x%1" (eight lower-case hexadecimal digits), the status as code.
platform::TFsSizeInformation GetVolumeClusterInfo(
    platform::NativeHandle handle, platform::IVolumeControl& control = platform::SystemVolumeControl());

// "C:" (two characters, the second ":"), or a string as long as a volume
// GUID name (with or without its "\") that begins with "\\?\Volume".
bool IsVolumeName(std::u16string_view name);

}  // namespace indexer
