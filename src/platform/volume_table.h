#pragma once
// The volume table: the Windows volume namespace (drives, folder mounts,
// volume GUID names, shadow names) described as data, and the volume calls
// of platform/volume.h answered from it.
//
// On POSIX it is the machine's volume namespace (posix/volume_table.cpp loads
// it from the registry file or makes it from the mounts); on both platforms
// it serves tests as an in-memory volume table.
//
// Each volume has its mount points (without trailing "\": "C:",
// "C:\mnt\data"), the Linux folder that holds its live tree, optionally the
// device or image file that holds its file system, its volume name, drive
// type and file system name. A shadow entry gives a name (a Linux path, as
// the snapshot mapping names it) its device or image and the folder where it
// is mounted; either may be missing.
//
// Names compare without regard to case (base/case.h), shadow names exactly.
// A table is immutable once built; calls may run on any thread.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/volume.h"

namespace platform {

struct TVolumeTableEntry {
    // Without trailing "\"; several are allowed, none leaves the volume
    // reachable only by its volume name.
    std::vector<std::u16string> mountPoints;
    // "\\?\Volume{GUID}\" (a bare "{GUID}" or "Volume{GUID}" is completed).
    std::u16string volumeName;
    std::string folder;  // Linux folder of the live tree; empty when none
    std::string device;  // device or image file; empty when none
    uint32_t driveType = kDriveFixed;
    // The file system name when the table sets it; else from the boot sector
    // of the device, else mountType.
    std::u16string fileSystem;
    std::u16string mountType;  // the file system name from the Linux mount
    std::u16string label;
    // QueryDosDevice's answer; empty: "\Device\HarddiskVolume<n>", n the
    // position in the table from 1.
    std::u16string ntDevice;
    uint32_t serialNumber = 0;  // 0: from the boot sector or the volume name
};

struct TShadowTableEntry {
    std::u16string name;  // as the snapshot mapping names the shadow
    std::string device;
    std::string folder;
};

// Where a path in the program's spelling lands.
struct TResolvedPath {
    std::string base;     // the volume's or shadow's folder or device
    std::u16string rest;  // what follows the volume part, "\" separated, may be empty
    bool isDevice = false;
};

class CVolumeTable : public IVolumes {
public:
    CVolumeTable() = default;
    // Completes the volume names and NT device names. Throws CExc on a
    // volume name that is not a GUID or appears twice, or a mount point that
    // appears twice.
    CVolumeTable(std::vector<TVolumeTableEntry> volumes, std::vector<TShadowTableEntry> shadows);

    const std::vector<TVolumeTableEntry>& Volumes() const { return m_Volumes; }
    const std::vector<TShadowTableEntry>& Shadows() const { return m_Shadows; }

    // The volume part of a path ("C:\x", "\\?\c:\x", "\\?\Volume{...}\x",
    // "\\.\C:", "<shadow>\x") and what follows. A path that names a volume or
    // shadow itself as a device ("\\.\C:", "\\?\Volume{...}" without "\",
    // a shadow name alone) resolves to its device when it has one, else to
    // its folder; everything else to the folder. nullopt when no volume or
    // shadow matches, or the one that matches lacks what the path needs.
    std::optional<TResolvedPath> Resolve(std::u16string_view path) const;

    // IVolumes.
    bool GetVolumePathName(std::u16string_view path, std::u16string& mountPoint,
                           uint32_t bufferLength) override;
    bool GetVolumeNameForVolumeMountPoint(std::u16string_view mountPoint,
                                          std::u16string& volumeName,
                                          uint32_t bufferLength) override;
    bool GetVolumePathNamesForVolumeName(std::u16string_view volumeName,
                                         std::vector<std::u16string>& mountPoints,
                                         uint32_t bufferLength, uint32_t* returnLength) override;
    CVolumeFindHandle FindFirstVolume(std::u16string& volumeName, uint32_t bufferLength) override;
    bool FindNextVolume(CVolumeFindHandle& handle, std::u16string& volumeName,
                        uint32_t bufferLength) override;
    CVolumeFindHandle FindFirstVolumeMountPoint(std::u16string_view rootPath,
                                                std::u16string& mountPoint,
                                                uint32_t bufferLength) override;
    bool FindNextVolumeMountPoint(CVolumeFindHandle& handle, std::u16string& mountPoint,
                                  uint32_t bufferLength) override;
    uint32_t GetDriveType(std::u16string_view rootPath) override;
    bool GetVolumeInformation(std::u16string_view rootPath, TVolumeInformation& info,
                              uint32_t labelLength, uint32_t fileSystemNameLength) override;
    uint32_t QueryDosDevice(std::u16string_view deviceName, std::vector<std::u16string>& targets,
                            uint32_t bufferLength) override;

private:
    struct TMatch {
        const TVolumeTableEntry* volume = nullptr;
        size_t prefixLength = 0;  // "\\?\" and the like, kept in answers
        size_t matchLength = 0;   // prefix and the volume part of the path
        bool byVolumeName = false;
    };
    // The volume whose mount point or volume name is the longest leading
    // part of the path (by whole components).
    std::optional<TMatch> _Match(std::u16string_view path) const;
    // The volume whose root (mount point or volume name, ending in "\") is
    // exactly this.
    const TVolumeTableEntry* _FindRoot(std::u16string_view rootPath) const;
    std::vector<std::u16string> _MountPointsOn(const TVolumeTableEntry& volume) const;

    std::vector<TVolumeTableEntry> m_Volumes;
    std::vector<TShadowTableEntry> m_Shadows;
};

// The file system name that a boot sector announces ("NTFS", "exFAT",
// "ReFS", "FAT32", "FAT"), empty when it is none of these; and its serial
// number (0 when unknown). `sector` holds `size` bytes.
std::u16string FileSystemNameFromBootSector(const uint8_t* sector, size_t size);
uint32_t SerialNumberFromBootSector(const uint8_t* sector, size_t size);

// A stable "\\?\Volume{GUID}\" made from a text that identifies a volume.
std::u16string VolumeNameFromIdentity(std::u16string_view identity);

// "\\?\Volume{GUID}\" for a GUID text with or without braces or the
// "\\?\Volume" part, GUID digits in lower case; empty when it is no GUID.
std::u16string CanonicalVolumeName(std::u16string_view text);

}  // namespace platform
