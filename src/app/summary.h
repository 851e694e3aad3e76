#pragma once
// What summary.txt says of the volumes of an optimized run.
//
// WriteSummary creates "<outputDir>\summary.txt" anew (meta-file writing
// mode 2) with, in this order: "type=ifd"; for each volume
// "volume.<MountPointName>=<DataFileName>"; and the subtree "Volumes" with
// one node a volume, named by its position from 0, holding MountPointName,
// DataFileName, VolumeId (only when not zero, "{...}" in lower case) and
// IsCluster (only when true, "true"). Failures of the meta-file pass as
// they are.

#include <memory>
#include <string>
#include <vector>

#include "inputs/guid.h"

namespace indexer {

class CVolumeSummary {
public:
    std::u16string MountPointName;  // the volume's name, "C:" as "C"
    std::u16string DataFileName;    // "volume.C_.ifd", without a folder
    TGuid VolumeId;                 // zero when unknown
    bool IsCluster = false;
};

using VolumeSummaryList = std::vector<std::shared_ptr<CVolumeSummary>>;

inline constexpr char16_t kSummaryFileName[] = u"summary.txt";

void WriteSummary(const std::u16string& outputDir, const VolumeSummaryList& volumes);

}  // namespace indexer
