#pragma once
// POSIX side only: the volume table that maps the Windows volume namespace
// (drive letters, folder mounts, volume GUID names, shadow names) onto
// Linux folders and devices. See docs/platform.md.

#include <optional>
#include <string>
#include <string_view>

namespace platform::posix {

// The Linux folder path for a Windows path whose volume part the table
// knows ("C:\x", "\\?\Volume{...}\x", "<shadow>\x"); nullopt when the path
// names no known volume. The rest of the path is converted name by name.
std::optional<std::string> ResolveVolumePath(std::u16string_view path);

}  // namespace platform::posix
