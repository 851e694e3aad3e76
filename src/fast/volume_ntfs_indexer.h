#pragma once
// indexer::fast_ntfs_indexer::CVolumeNTFSIndexer: the fast processing of one
// NTFS volume, from the volume handle to the rows of an open index base.
//
// IndexVolume runs, inside the log block "Execute NTFS parsing algorithm",
// the phases in their fixed order, each in its own block: the $MFT set-up
// (failing when the $MFT bitmap marks any of records 0 to 15 free),
// "Owners parse", "Include/exclude folders process", "ReparsePoints
// preprocessing", "Main circle" (every record in use from 16 on, in
// ascending order, with the running percentage on standard output), and
// "ReparsePoints postprocessing.". A record that the bitmap calls in use but
// that can't be read (bad signature, outside the $MFT runs) is counted and
// logged once, by its own number, and the volume goes on after it ("Complete with fails, %1 invalid file
// records found!", the block "Main circle" closing as failed); anything else
// that fails stops the volume with the context "parsing failed. File record
// #%1." and the processor's chain of contexts.
//
// The caller owns the handle, the filter tree (whose node references this
// call fills in) and the base, which it has opened with owner row 0 and
// closes afterwards. One thread.

#include <optional>
#include <string>

#include "fast/fast_ntfs_processor.h"
#include "inputs/inc_exc_node.h"
#include "inputs/volume_info.h"
#include "platform/file.h"
#include "store/block_read_ahead.h"
#include "store/index_base.h"

namespace indexer::fast_ntfs_indexer {

class CVolumeNTFSIndexer {
public:
    explicit CVolumeNTFSIndexer(TProcessorServices services = {}) : m_Services(services) {}

    // `originalVolumeName` (the device the handle was opened on) is not used.
    void IndexVolume(platform::NativeHandle volume, const CIndexingVolumeInfo& description,
                     const std::u16string& originalVolumeName, CIncExcNode& filterRoot, CIndexBase& base);

    // How the main loop reads the $MFT ahead. By default from the settings
    // (settings::GetReadAheadDepth, GetReadAheadKiB) on a handle that reads
    // past the system's cache (platform::ReadsBypassCache), and not at all
    // through the cache.
    void SetReadAhead(const CBlockReadAhead::TTuning& tuning) { m_ReadAhead = tuning; }

    // The volume's sector size as the caller learnt it (the boot sector's
    // probe), for volumes whose handle does not name one (see
    // CNtfsVolume::InitMftInfo); 0 for none.
    void SetSectorSize(uint32_t bytes) { m_SectorSize = bytes; }

    // The records the last IndexVolume could not read.
    uint64_t GetInvalidRecordCount() const { return m_InvalidRecords; }

private:
    TProcessorServices m_Services;
    std::optional<CBlockReadAhead::TTuning> m_ReadAhead;
    uint32_t m_SectorSize = 0;
    uint64_t m_InvalidRecords = 0;
};

}  // namespace indexer::fast_ntfs_indexer
