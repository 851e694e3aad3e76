#include "app/run_drivers.h"

#include "app/optimized_run.h"

#include "base/exc.h"

namespace indexer {

// The legacy run does not exist yet: say so rather than pretend to index.
void IndexVolumes(const std::u16string&) {
    throw CExc(u"The legacy run (IndexVolumes) is not built yet");
}

void IndexVolumesOptimized(const std::u16string& outputDir, const std::u16string& parseFs) {
    RunIndexVolumesOptimized(outputDir, parseFs);
}

}  // namespace indexer
