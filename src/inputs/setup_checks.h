#pragma once
// Warnings for inputs that are valid but almost certainly not what the
// person who set the guest up meant: the run goes on as the inputs say, and
// one Warning line names what was found and what the run does instead.

#include <vector>

#include "inputs/volume_info.h"
#include "platform/volume.h"

namespace indexer {

// Once the volumes have their folders and shadows:
// - "The filters cover no volume; nothing is indexed." for an empty list;
// - "Volume [%1] has no shadow in the snapshot mapping; the live volume is
//   walked instead." for each volume without a shadow;
// - "Shadow [%1] of volume [%2] cannot be opened (%3); the volume's indexing
//   fails." for a shadow that can't be opened;
// - "Include folder [%1] does not exist; nothing under it is indexed." for
//   an include folder missing where the volume is read (its shadow, else the
//   live volume), checked only where that place can be listed as folders.
void WarnOfSetupMistakes(const std::vector<CIndexingVolumeInfo>& volumes, platform::IVolumes& system);

}  // namespace indexer
