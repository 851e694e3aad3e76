#pragma once
// Raw access to a volume or a shadow copy, and the process privilege the
// directory walk asks for.
//
// OpenVolumeDevice is CreateFileW on a volume or shadow name ("\\.\C:",
// "\\?\Volume{GUID}", a shadow device name): the handle reads the bytes of
// the file system from offset 0.
// POSIX: the volume table's device or image file, or a device or image file
// named directly, opens as a file. A volume or shadow that has only a folder
// (a tmpfs or ext4 mount, a snapshot copied as a tree) opens as a handle
// whose reads give zeros: a volume with no file system that a boot-sector
// probe knows, so that the caller walks its folder instead.
//
// Every call returns false / an invalid handle on failure and sets the
// thread's last error (platform/errors.h).

#include <cstdint>
#include <string_view>

#include "platform/file.h"

namespace platform {

// Arguments as FileOpen's. Errors: those of FileOpen (2, 3, 5, ...).
CHandle OpenVolumeDevice(std::u16string_view name, uint32_t access, uint32_t share,
                         uint32_t disposition, uint32_t flagsAndAttributes);

// FSCTL_ALLOW_EXTENDED_DASD_IO: reads past the end that the file system
// announces. POSIX: nothing to allow; true for a valid handle, 6 otherwise.
bool AllowExtendedDasdIo(NativeHandle h);

// From now on the handle's reads bypass the system's cache, as a Windows
// volume handle's do. POSIX: O_DIRECT for a block device, and for an image
// file when `imageFilesToo`; false, with nothing changed, for anything else
// or where the file system refuses it (tmpfs). Windows: a volume handle is
// read so already; false.
bool UseDirectIo(NativeHandle h, bool imageFilesToo);

// The alignment every read of the handle needs: offset, length and buffer
// address multiples of it; 0 where no rule is known. POSIX: for an O_DIRECT
// handle the device's logical sector size (BLKSSZGET), 4096 for a file; 0
// otherwise. Windows: the volume's logical sector size from
// IOCTL_STORAGE_QUERY_PROPERTY; 0 where that is not answered (Wine, files).
uint32_t GetReadAlignment(NativeHandle h);

// Whether reads of the handle bypass the system's cache: POSIX, an O_DIRECT
// handle; Windows, a volume or device handle (not a file: no file size, or
// the size 0 that Wine gives a block device).
bool ReadsBypassCache(NativeHandle h);

// Enables a privilege ("SeBackupPrivilege") on the process token.
// Errors: 1313 an unknown privilege name; 1300 the token does not hold it.
// POSIX: reading is governed by file permissions, not privileges; true.
bool EnableProcessPrivilege(std::u16string_view name);

}  // namespace platform
