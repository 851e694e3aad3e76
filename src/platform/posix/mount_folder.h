#pragma once
// POSIX side only: folders where another volume is mounted, which the
// directory search and the reparse query show as mount-point reparse points
// (docs/platform.md, "Reparse points").

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>

namespace platform::posix {

// The "\\?\Volume{GUID}\" of the volume mounted at the folder that `st`
// describes (a statx of the folder, STATX_BASIC_STATS asked): the volume of
// the volume table whose folder this is, else, for the root of a Linux mount
// that the table does not list (/proc, /sys below Z:), a name made from the
// mount's device numbers. nullopt for any other folder.
std::optional<std::u16string> MountedVolumeName(const struct statx& st);

}  // namespace platform::posix
