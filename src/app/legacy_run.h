#pragma once
// The legacy run (no `-opt yes`): the machine's fixed NTFS and ReFS volumes,
// each scanned live into "volume.<X>.ifd" ("C:\" gives volume.C.ifd, with no
// underscore), and a summary.txt with one flat attribute per volume and no
// `type`.
//
// Volumes come from the system's enumeration; a volume passes the filter
// when an include line begins with its mount point and no exclude line is
// the mount point itself; folder mounts (longer than "C:\") are left out.
// NTFS goes to the MFT scanner, ReFS to the walk; any other kind fails the
// volume with "Unexpected file system '%1' for volume '%2'.".
//
// A volume that fails is logged ("Unable to index volume '%1'.") and left
// out; its temporary tables are deleted; the others go on and the run ends
// normally. Each volume's three tables are joined into a temporary file that
// is renamed to the final name last, and summary.txt is written the same
// way, so a killed run never leaves a partial file under a final name; its
// "ifd????.tmp" files are swept by the next run. Errors that end the run (a filter file missing or too big, the output
// folder, summary.txt) throw CExc under the context "IndexVolumes fail.".

#include <string>

#include "platform/volume.h"

namespace indexer {

namespace legacy {
class CLegacyFilter;
}

// Reads the filter files beside the executable, then IndexLegacyVolumes on
// the machine's volumes.
void RunIndexVolumes(const std::u16string& outputDir);

// The run after the filters are read, over the volume calls given.
void IndexLegacyVolumes(const std::u16string& outputDir, const legacy::CLegacyFilter& filter,
                        platform::IVolumes& volumes);

// "volume." + the mount point stripped of trailing "\", "/" and ":" with
// "/", "\", ":" and "?" replaced by "_" + ".ifd"; the attribute name of the
// summary is "volume." + the same stripped name.
std::u16string LegacyVolumeName(std::u16string_view mountPoint);

}  // namespace indexer
