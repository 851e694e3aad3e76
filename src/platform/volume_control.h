#pragma once
// The space and the placement of a volume, as thin wrappers of
// GetDiskFreeSpaceExW, NtQueryVolumeInformationFile(FileFsSizeInformation),
// DeviceIoControl with FSCTL_GET_VOLUME_BITMAP (0x9006F) and with
// IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS (0x560000), and CreateFileW on a
// volume name to get the handle they take.
//
// IVolumeControl is the set as an object, so that code above the platform
// can be handed answers of its own in tests; SystemVolumeControl() is the
// machine's, and the free functions below forward to it.
//
// Every call but QueryFsSizeInformation returns false (or an invalid handle)
// on failure and sets the thread's last error (platform/errors.h).
// QueryFsSizeInformation returns the NTSTATUS of the call instead and leaves
// the last error alone.
//
// POSIX (see docs/platform.md, "Space and placement of a volume"):
//   - free space and cluster sizes are those of the Linux file system that
//     holds the folder or file (statvfs / fstatvfs);
//   - no file system driver answers the volume bitmap: it fails with 1
//     (ERROR_INVALID_FUNCTION), as the other device controls do on Linux;
//   - disk extents: a partition or a whole physical disk opened as a block
//     device answers one extent, the disk numbered by its place among the
//     machine's physical disks; anything else (an image file, a folder-only
//     volume, a loop or device-mapper device) fails with 1.
//
// Thread-safety: every call may run on any thread.

#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/file.h"

namespace platform {

// GetDiskFreeSpaceExW's three answers, in bytes.
struct TDiskFreeSpace {
    uint64_t freeBytesAvailable = 0;  // free to the caller (quotas applied)
    uint64_t totalBytes = 0;          // size as the caller sees it
    uint64_t totalFreeBytes = 0;      // free on the whole volume
};

// FILE_FS_SIZE_INFORMATION. A cluster is SectorsPerAllocationUnit *
// BytesPerSector bytes.
struct TFsSizeInformation {
    int64_t TotalAllocationUnits = 0;
    int64_t AvailableAllocationUnits = 0;
    uint32_t SectorsPerAllocationUnit = 0;
    uint32_t BytesPerSector = 0;
};

// VOLUME_BITMAP_BUFFER: the allocation bitmap from StartingLcn on, one bit a
// cluster (bit i of byte j is cluster StartingLcn + 8 * j + i; set: in use).
inline constexpr uint32_t kVolumeBitmapHeaderSize = 16;  // StartingLcn, BitmapSize
struct TVolumeBitmap {
    int64_t StartingLcn = 0;
    int64_t BitmapSize = 0;       // clusters from StartingLcn to the volume's end
    std::vector<uint8_t> Buffer;  // the bitmap bytes the answer held
};

// DISK_EXTENT and VOLUME_DISK_EXTENTS.
struct TDiskExtent {
    uint32_t DiskNumber = 0;
    int64_t StartingOffset = 0;  // bytes from the start of the disk
    int64_t ExtentLength = 0;    // bytes
};
struct TVolumeDiskExtents {
    uint32_t NumberOfDiskExtents = 0;  // the volume's count, also when they did not fit
    std::vector<TDiskExtent> Extents;  // the extents answered, in the disks' order
};

// NTSTATUS values the core and the POSIX side use.
inline constexpr uint32_t kStatusSuccess = 0;
inline constexpr uint32_t kStatusInvalidHandle = 0xC0000008;
inline constexpr uint32_t kStatusInvalidDeviceRequest = 0xC0000010;
inline constexpr uint32_t kStatusProcedureNotFound = 0xC000007A;

// True for a success or informational NTSTATUS (NT_SUCCESS).
inline bool NtSuccess(uint32_t status) { return static_cast<int32_t>(status) >= 0; }

class IVolumeControl {
public:
    virtual ~IVolumeControl() = default;

    // CreateFileW on a volume or shadow device name ("\\.\C:",
    // "\\?\Volume{GUID}" without "\"), existing only; as OpenVolumeDevice
    // (platform/volume_io.h). Errors: those of FileOpen (2, 3, 5, ...).
    virtual CHandle OpenVolume(std::u16string_view name, uint32_t access, uint32_t share) = 0;

    // GetDiskFreeSpaceExW of a folder on the volume (need not be its root;
    // empty: the current folder). Errors: 2 / 3 missing, 267 not a folder,
    // 5 access denied.
    virtual bool GetDiskFreeSpaceEx(std::u16string_view folder, TDiskFreeSpace& space) = 0;

    // FSCTL_GET_VOLUME_BITMAP from `startingLcn`, into an output buffer of
    // `outputSize` bytes (header included). When the rest of the bitmap does
    // not fit, fails with 234 and still fills `bitmap`: StartingLcn,
    // BitmapSize (so the size needed is kVolumeBitmapHeaderSize +
    // (BitmapSize + 7) / 8) and the bytes that fitted.
    // Errors: 234 as told; 122 a buffer shorter than the header; 87 a start
    // beyond the volume; 1 no file system answers it (POSIX: always);
    // 6 invalid handle.
    virtual bool GetVolumeBitmap(NativeHandle volume, int64_t startingLcn, uint32_t outputSize,
                                 TVolumeBitmap& bitmap) = 0;

    // NtQueryVolumeInformationFile(FileFsSizeInformation) on any handle on
    // the volume (the volume, a file or folder on it). Returns the NTSTATUS:
    // kStatusSuccess, or a failure such as kStatusInvalidHandle,
    // kStatusInvalidDeviceRequest (POSIX: a device handle, whose file system
    // Linux does not measure).
    virtual uint32_t QueryFsSizeInformation(NativeHandle handle, TFsSizeInformation& info) = 0;

    // IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS with room for `maxExtents`
    // extents. More extents than room fails with 234, with
    // NumberOfDiskExtents set and no extents.
    // REQUIRES: maxExtents >= 1.
    // Errors: 234 as told; 1 the volume cannot be placed on physical disks
    // (no such control for the device); 6 invalid handle.
    virtual bool GetVolumeDiskExtents(NativeHandle volume, uint32_t maxExtents,
                                      TVolumeDiskExtents& extents) = 0;
};

// The machine's.
IVolumeControl& SystemVolumeControl();

inline bool GetDiskFreeSpaceEx(std::u16string_view folder, TDiskFreeSpace& space) {
    return SystemVolumeControl().GetDiskFreeSpaceEx(folder, space);
}
inline bool GetVolumeBitmap(NativeHandle volume, int64_t startingLcn, uint32_t outputSize,
                            TVolumeBitmap& bitmap) {
    return SystemVolumeControl().GetVolumeBitmap(volume, startingLcn, outputSize, bitmap);
}
inline uint32_t QueryFsSizeInformation(NativeHandle handle, TFsSizeInformation& info) {
    return SystemVolumeControl().QueryFsSizeInformation(handle, info);
}
inline bool GetVolumeDiskExtents(NativeHandle volume, uint32_t maxExtents,
                                 TVolumeDiskExtents& extents) {
    return SystemVolumeControl().GetVolumeDiskExtents(volume, maxExtents, extents);
}

}  // namespace platform
