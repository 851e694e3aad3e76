#pragma once
// POSIX side only: the volume table that maps the Windows volume namespace
// (drive letters, folder mounts, volume GUID names, shadow names) onto
// Linux folders and devices. See docs/platform.md.
//
// The machine's table is built at first use: from the registry file
// (platform/registry.h) when it names volumes under kVolumeTableKey, else
// from the machine's mounts (the root file system as "Z:", every other
// mount as a folder mount below it).

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/volume_table.h"

namespace platform::posix {

// Under HKEY_LOCAL_MACHINE: subkeys "Volumes\<any>" and "Shadows\<any>".
inline constexpr std::u16string_view kVolumeTableKey = u"SYSTEM\\VolumeTable";

// The Linux path for a Windows path whose volume part the table knows
// ("C:\x", "\\?\Volume{...}\x", "<shadow>\x"): the volume's folder and the
// rest converted name by name, or the device or image for a path that names
// the volume itself ("\\.\C:", "\\?\Volume{...}", a shadow name alone).
// nullopt when the path names no known volume or shadow, or the rest holds a
// name no Linux name can spell. ".." never climbs above the volume's folder.
std::optional<std::string> ResolveVolumePath(std::u16string_view path);

// The machine's table now (built at first use).
std::shared_ptr<const CVolumeTable> GetSystemVolumeTable();
// Replaces the machine's table (tests); nullptr makes the next use build it
// afresh from the registry file or the mounts.
void SetSystemVolumeTable(std::shared_ptr<CVolumeTable> table);

// The table the registry file describes; nullopt when it names no volumes.
// Throws CExc on a damaged entry (a volume name that is no GUID, a mount
// point twice).
std::optional<CVolumeTable> LoadVolumeTableFromRegistry();
// The table of the machine's mounts, from the text of /proc/self/mountinfo.
// `isFolder(path)` and `isBlockDevice(path)` test native paths (injected so
// that tests can describe another machine).
CVolumeTable BuildMountVolumeTable(std::string_view mountInfo,
                                   bool (*isFolder)(const std::string&),
                                   bool (*isBlockDevice)(const std::string&));

}  // namespace platform::posix
