#pragma once
// Volumes and mount points, as thin wrappers of GetVolumePathNameW,
// GetVolumeNameForVolumeMountPointW, GetVolumePathNamesForVolumeNameW,
// FindFirstVolumeW / FindNextVolumeW, FindFirstVolumeMountPointW /
// FindNextVolumeMountPointW, GetDriveTypeW, GetVolumeInformationW and
// QueryDosDeviceW.
//
// Names are those of Windows: a mount point is a drive ("C:\") or a folder
// mount ("C:\mnt\data\"); a volume name is "\\?\Volume{GUID}\". Each call
// takes the length of the buffer its Win32 form would have been given (in
// characters, the terminating null included) and fails as that call does
// when the answer does not fit.
//
// Every call returns false (or an invalid handle, or 0) on failure and sets
// the thread's last error (platform/errors.h):
//   206 a single answer does not fit the buffer;
//   234 GetVolumePathNamesForVolumeName's list does not fit (*returnLength
//       tells the length needed);
//   122 QueryDosDevice's list does not fit;
//   18  an enumeration has nothing more (also FindFirst* with nothing at all);
//   123 a name that must end in "\" does not;
//   2   no such volume or mount point; 3 a path on no known volume;
//   4390 GetVolumeNameForVolumeMountPoint on a folder that is no mount point.
//
// POSIX: the calls answer from the volume table (platform/volume_table.h),
// read from the registry file or, where that names no volumes, made from the
// machine's mounts. See docs/platform.md, "Volumes, mount points and the
// volume table".
//
// Thread-safety: every call may run on any thread.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// GetDriveTypeW answers.
inline constexpr uint32_t kDriveUnknown = 0, kDriveNoRootDir = 1, kDriveRemovable = 2,
                          kDriveFixed = 3, kDriveRemote = 4, kDriveCdrom = 5, kDriveRamdisk = 6;

// GetVolumeInformationW's file system flags used here.
inline constexpr uint32_t kFsCaseSensitiveSearch = 0x1, kFsCasePreservedNames = 0x2,
                          kFsUnicodeOnDisk = 0x4, kFsPersistentAcls = 0x8,
                          kFsFileCompression = 0x10, kFsSupportsReparsePoints = 0x80,
                          kFsSupportsSparseFiles = 0x40, kFsReadOnlyVolume = 0x80000;

struct TVolumeInformation {
    std::u16string volumeLabel;
    uint32_t serialNumber = 0;
    uint32_t maxComponentLength = 0;
    uint32_t fileSystemFlags = 0;
    std::u16string fileSystemName;  // "NTFS", "FAT32", "exFAT", "ReFS", ...
};

// An enumeration's state; each implementation of IVolumes derives its own.
class CVolumeFindState {
public:
    virtual ~CVolumeFindState() = default;
};

// Owns one enumeration of volumes or of mount points; closes it at
// destruction (FindVolumeClose / FindVolumeMountPointClose). Move-only.
class CVolumeFindHandle {
public:
    CVolumeFindHandle() = default;
    explicit CVolumeFindHandle(std::unique_ptr<CVolumeFindState> state) : m_State(std::move(state)) {}
    bool IsValid() const { return m_State != nullptr; }
    CVolumeFindState* State() const { return m_State.get(); }

private:
    std::unique_ptr<CVolumeFindState> m_State;
};

// The volume calls as an object, so that code above the platform can be
// handed an in-memory volume table in tests. SystemVolumes() is the
// machine's; the free functions below forward to it.
class IVolumes {
public:
    virtual ~IVolumes() = default;

    // GetVolumePathNameW: the mount point that holds `path`, with trailing
    // "\", in the spelling of the path given ("\\?\c:\data" gives "\\?\c:\").
    // The path need not exist. Fails with last error 0 for an empty path.
    virtual bool GetVolumePathName(std::u16string_view path, std::u16string& mountPoint,
                                   uint32_t bufferLength) = 0;
    // GetVolumeNameForVolumeMountPointW: "\\?\Volume{GUID}\" of a mount point
    // (or volume name) that ends in "\".
    virtual bool GetVolumeNameForVolumeMountPoint(std::u16string_view mountPoint,
                                                  std::u16string& volumeName,
                                                  uint32_t bufferLength) = 0;
    // GetVolumePathNamesForVolumeNameW: every mount point of the volume, each
    // with trailing "\", drives first. *returnLength (may be null) receives
    // the multi-string length: each name and its null, and one null more.
    virtual bool GetVolumePathNamesForVolumeName(std::u16string_view volumeName,
                                                 std::vector<std::u16string>& mountPoints,
                                                 uint32_t bufferLength,
                                                 uint32_t* returnLength) = 0;
    // FindFirstVolumeW / FindNextVolumeW: volume names with trailing "\".
    virtual CVolumeFindHandle FindFirstVolume(std::u16string& volumeName,
                                              uint32_t bufferLength) = 0;
    virtual bool FindNextVolume(CVolumeFindHandle& handle, std::u16string& volumeName,
                                uint32_t bufferLength) = 0;
    // FindFirstVolumeMountPointW / FindNextVolumeMountPointW: the folder
    // mounts that lie on the volume whose root (ending in "\") is given,
    // relative to that root and with trailing "\" ("mnt\data\").
    virtual CVolumeFindHandle FindFirstVolumeMountPoint(std::u16string_view rootPath,
                                                        std::u16string& mountPoint,
                                                        uint32_t bufferLength) = 0;
    virtual bool FindNextVolumeMountPoint(CVolumeFindHandle& handle, std::u16string& mountPoint,
                                          uint32_t bufferLength) = 0;
    // GetDriveTypeW of a root ending in "\"; kDriveNoRootDir for anything else.
    virtual uint32_t GetDriveType(std::u16string_view rootPath) = 0;
    // GetVolumeInformationW of a root ending in "\"; the two lengths are those
    // of the label and file system name buffers.
    virtual bool GetVolumeInformation(std::u16string_view rootPath, TVolumeInformation& info,
                                      uint32_t labelLength, uint32_t fileSystemNameLength) = 0;
    // QueryDosDeviceW of a drive ("C:", no "\") or "Volume{GUID}": the NT
    // device names it stands for. Returns the multi-string length stored
    // (each name and its null, one null more), 0 on failure.
    virtual uint32_t QueryDosDevice(std::u16string_view deviceName,
                                    std::vector<std::u16string>& targets,
                                    uint32_t bufferLength) = 0;
};

// The machine's volumes.
IVolumes& SystemVolumes();

inline bool GetVolumePathName(std::u16string_view path, std::u16string& mountPoint,
                              uint32_t bufferLength) {
    return SystemVolumes().GetVolumePathName(path, mountPoint, bufferLength);
}
inline bool GetVolumeNameForVolumeMountPoint(std::u16string_view mountPoint,
                                             std::u16string& volumeName, uint32_t bufferLength) {
    return SystemVolumes().GetVolumeNameForVolumeMountPoint(mountPoint, volumeName, bufferLength);
}
inline bool GetVolumePathNamesForVolumeName(std::u16string_view volumeName,
                                            std::vector<std::u16string>& mountPoints,
                                            uint32_t bufferLength, uint32_t* returnLength) {
    return SystemVolumes().GetVolumePathNamesForVolumeName(volumeName, mountPoints, bufferLength,
                                                           returnLength);
}
inline uint32_t GetDriveType(std::u16string_view rootPath) {
    return SystemVolumes().GetDriveType(rootPath);
}
inline bool GetVolumeInformation(std::u16string_view rootPath, TVolumeInformation& info,
                                 uint32_t labelLength, uint32_t fileSystemNameLength) {
    return SystemVolumes().GetVolumeInformation(rootPath, info, labelLength, fileSystemNameLength);
}
inline uint32_t QueryDosDevice(std::u16string_view deviceName, std::vector<std::u16string>& targets,
                               uint32_t bufferLength) {
    return SystemVolumes().QueryDosDevice(deviceName, targets, bufferLength);
}

}  // namespace platform
