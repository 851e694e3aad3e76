#pragma once
// The volumes of an optimized run: one record for each volume that the
// include filter names, with its folders relative to the volume, its shadow
// and identity from the snapshot mapping.

#include <string>
#include <vector>

#include "inputs/guid.h"
#include "platform/volume.h"

namespace indexer {

class CIndexingVolumeInfo {
public:
    // The mount name as GetVolumePathNameW gives it, without trailing "\":
    // "c:", "c:\mnt\data". Messages and file names use it.
    std::u16string m_Name;
    std::u16string m_Shadow;                // shadow device name; empty when none
    std::vector<std::u16string> m_Include;  // relative; empty means the whole volume
    std::vector<std::u16string> m_Exclude;  // relative
    TGuid m_VolumeId;                       // zero when unknown
    bool m_IsCluster = false;
};

// Builds the list from normalised filter lines without trailing "\", under
// the log line "Indexing volume information create.". Include lines make
// volumes (in order of first mention) and their include folders; exclude
// lines add exclude folders or, for a volume's root, drop the volume; then
// the folder mounts found inside each volume are added as volumes of their
// own. Throws CWin32Exc "GetVolumePathName fail! path is '%1'" for an include
// line on no volume; such an exclude line is dropped.
void CreateIndexingVolumeInfo(const std::vector<std::u16string>& include,
                              const std::vector<std::u16string>& exclude,
                              std::vector<CIndexingVolumeInfo>& volumes,
                              platform::IVolumes& system = platform::SystemVolumes());

// True when `prefix` is `path` or a folder above it, by whole components,
// ignoring case.
bool IsPathPrefix(std::u16string_view prefix, std::u16string_view path);

}  // namespace indexer
