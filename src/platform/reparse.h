#pragma once
// Reparse data of a file or folder, as DeviceIoControl with
// FSCTL_GET_REPARSE_POINT returns it: a REPARSE_DATA_BUFFER, little-endian.
//
//   offset size  field
//   0      4     reparse tag
//   4      2     length of the data that follows the 8-byte header
//   6      2     reserved (0)
//   8      2     substitute name offset, bytes, from the path buffer
//   10     2     substitute name length, bytes
//   12     2     print name offset, bytes, from the path buffer
//   14     2     print name length, bytes
//   16           mount point (0xA0000003): the path buffer
//   16     4     symbolic link (0xA000000C): flags (1 = relative target)
//   20           symbolic link: the path buffer
//
// The names are UTF-16 without terminator; a mount point's names each carry
// one null after them, as Windows writes them.
//
// POSIX stand-in (docs/platform.md, "Reparse points"): the bytes of the
// extended attribute "system.ntfs_reparse_data" where the file system keeps
// Windows reparse data (an NTFS volume mounted with ntfs-3g); else, for a
// symbolic link, symbolic-link data built from its target (an absolute
// target translated into the volume namespace, "\??\C:\dir", a relative one
// kept relative with "\" separators); else, for a folder where a volume is
// mounted (a Linux mount, or the folder of a volume of the volume table),
// mount-point data whose substitute is that volume's "\??\Volume{GUID}\".

#include <cstdint>

#include "platform/file.h"

namespace platform {

inline constexpr uint32_t kReparseTagMountPoint = 0xA0000003u;
inline constexpr uint32_t kReparseTagSymlink = 0xA000000Cu;
inline constexpr uint32_t kSymlinkFlagRelative = 1;
// The tag, length and reserved fields that even a short answer carries.
inline constexpr uint32_t kReparseHeaderSize = 8;
// The largest reparse data a file system keeps (MAXIMUM_REPARSE_DATA_BUFFER_SIZE).
inline constexpr uint32_t kMaxReparseDataSize = 16 * 1024;

// FSCTL_GET_REPARSE_POINT on `h`, a handle opened with kFlagOpenReparsePoint
// and kFlagBackupSemantics. Writes at most `size` bytes to `buffer` and their
// count to *returned (may be null).
// Errors: 4390 the file is no reparse point; 122 `size` below the 8-byte
// header (nothing written); 234 the data is longer than `size` (the first
// `size` bytes are written, so the header tells the length needed);
// 6 an invalid handle; 4392 the stored data is damaged.
bool GetReparsePoint(NativeHandle h, void* buffer, uint32_t size, uint32_t* returned);

}  // namespace platform
