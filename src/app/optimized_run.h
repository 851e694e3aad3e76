#pragma once
// The optimized run: every volume that the include filter names, each
// indexed into its own volume.<X>.ifd, then summary.txt.
//
// For each volume, in order, IndexOneVolume makes one attempt: the filter
// tree, a CIndexBase in the output folder, the volume or its shadow opened,
// and the indexer chosen:
//   - `-parse_fs no`, or no shadow in the mapping: the directory walk
//     (a volume without a shadow is walked live);
//   - a boot sector other than NTFS (ReFS, unknown, a folder-only volume
//     that reads as zeros): the directory walk of the shadow;
//   - NTFS with a shadow: the fast NTFS pipeline (CVolumeNTFSIndexer).
// A failed attempt is retried once with the directory walk; an attempt that
// was a walk already counts as the volume's failure. Failed volumes do not
// stop the others; at the end any failure throws "Indexing failed for %1
// volume(s): %2." (summary.txt is not written, exit code 1) while the index
// files of the volumes that succeeded stay.
//
// Ownership: each attempt owns its filter tree, CIndexBase and volume
// handle, released when it ends, also by an exception. One thread.

#include <string>
#include <vector>

#include "app/summary.h"
#include "inputs/volume_info.h"

namespace indexer {

class CIndexRun {
public:
    std::vector<CIndexingVolumeInfo> m_Volumes;
    bool m_ParseFs = true;  // false for `-parse_fs no`
    std::u16string m_OutputDir;
};

// The whole run: output folder, sweep of lost temporary files, inputs,
// volume loop, summary. Throws CExc with the context "IndexVolumesOptimized
// fail.".
void RunIndexVolumesOptimized(const std::u16string& outputDir, const std::u16string& parseFs);

// The loop over the run's volumes; one CVolumeSummary for each, failed or
// not. Throws when any volume failed both attempts.
VolumeSummaryList IndexVolumeList(const CIndexRun& run);

// One attempt at one volume. Sets forceFindFirst when the attempt chose
// the directory walk itself. Throws on failure.
void IndexOneVolume(const CIndexRun& run, const CIndexingVolumeInfo& volume,
                    const std::u16string& dataFileName, bool& forceFindFirst);

// "volume." + the name with "/", "\", ":" and "?" replaced by "_" + ".ifd".
std::u16string DataFileNameOf(std::u16string_view volumeName);
// The name less its ":" when it is a bare drive ("C:" gives "C").
std::u16string MountPointNameOf(std::u16string_view volumeName);

}  // namespace indexer
