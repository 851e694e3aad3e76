#pragma once
// The two run drivers that main chooses between. Both report failure by
// throwing CExc; main turns it into the "Error: %1" exit.

#include <string>

namespace indexer {

// The legacy run: every mounted volume scanned live.
void IndexVolumes(const std::u16string& outputDir);

// The optimized run: the volumes of the include filter, each parsed from its
// shadow copy, or walked when parseFs is "no" or the parse can't work.
void IndexVolumesOptimized(const std::u16string& outputDir, const std::u16string& parseFs);

}  // namespace indexer
