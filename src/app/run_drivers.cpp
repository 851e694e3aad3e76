#include "app/run_drivers.h"

#include "app/legacy_run.h"
#include "app/optimized_run.h"

namespace indexer {

void IndexVolumes(const std::u16string& outputDir) { RunIndexVolumes(outputDir); }

void IndexVolumesOptimized(const std::u16string& outputDir, const std::u16string& parseFs) {
    RunIndexVolumesOptimized(outputDir, parseFs);
}

}  // namespace indexer
