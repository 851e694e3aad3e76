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
//
// summary.txt is the mark of a complete run, so it is either absent or
// complete: a run removes an earlier one before it writes any volume file
// (RemoveSummary), and the new one is saved under a temporary name in the
// output folder (an "ifd????.tmp" name, which the next run sweeps if this
// one is killed) and renamed last (PublishSummary).

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

// Deletes "<outputDir>\summary.txt" and its ".old" if they stand.
void RemoveSummary(const std::u16string& outputDir);

// A temporary name for the summary being written, in the output folder.
std::u16string PendingSummaryName(const std::u16string& outputDir);

// Renames the saved pending summary to "<outputDir>\summary.txt";
// CWin32Exc "Cannot rename [%1] to [%2]." when that fails.
void PublishSummary(const std::u16string& pending, const std::u16string& outputDir);

}  // namespace indexer
