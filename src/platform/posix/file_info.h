#pragma once
// POSIX side only: what stat says of a file, in Win32 terms.

#include <cstdint>

#include "platform/find.h"

namespace platform::posix {

inline constexpr uint32_t kReparseTagSymlink = 0xA000000Cu;
inline constexpr uint32_t kReparseTagMountPoint = 0xA0000003u;

// FILETIME ticks (100 ns since 1601-01-01 UTC) of a Unix time; 0 before 1601.
uint64_t FileTimeFromUnix(int64_t seconds, uint32_t nanoseconds);

// Fills attributes, size, times and reparse tag of `name` relative to `dir`
// (AT_FDCWD or a folder), without following a final symbolic link. An empty
// name describes `dir` itself. Leaves data.name alone. False with errno set
// on failure.
//   - a symbolic link: kAttrReparsePoint, tag 0xA000000C, kAttrDirectory when
//     its target is a folder (else kAttrArchive), size 0;
//   - a folder: kAttrDirectory, size 0; anything else: kAttrArchive;
//   - a folder named by `name` where another volume is mounted
//     (posix/mount_folder.h): also kAttrReparsePoint, tag 0xA0000003;
//   - kAttrReadOnly when the owner has no write permission (not for links);
//   - times: creation is the birth time where the file system keeps one,
//     else the last write time.
bool StatAt(int dir, const char* name, TFindData& data);

}  // namespace platform::posix
