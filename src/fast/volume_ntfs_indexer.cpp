#include "fast/volume_ntfs_indexer.h"

#include "base/format.h"
#include "diag/log.h"
#include "diag/settings.h"
#include "platform/console.h"
#include "platform/read_queue.h"
#include "platform/volume_io.h"

namespace indexer::fast_ntfs_indexer {

namespace {

constexpr char16_t kIndexVolume[] = u"indexer::fast_ntfs_indexer::CVolumeNTFSIndexer::IndexVolume";

void Console(std::u16string_view text) { platform::WriteStdOut(text); }

// Records 0 to 15 are the volume's own files and reserved records: every
// NTFS volume keeps them in use. A bitmap that marks one free is damaged,
// and read as it stands it would hide the whole volume (an index of the
// root alone), whatever the settings skip.
void CheckMetafilesInUse(const CNtfsVolume& volume) {
    for (uint64_t frn = 0; frn < kFirstUserFrn; ++frn)
        if (!volume.IsRecordInUse(frn))
            throw CExc(u"%1 fail. The $MFT $BITMAP marks file record #%2 free: records 0 to 15 are always in "
                       u"use, so the bitmap is damaged.",
                       kIndexVolume, util::ToStrU64(frn));
}

// A handle that reads past the system's cache gains from reading ahead. One
// through the cache gains only where the copies from the cache are made on
// another thread while this one parses (io_uring's workers: a quarter less
// time warm); where they would be made in this thread, blocks read early
// leave the processor's cache before they are parsed (measured slower warm).
CBlockReadAhead::TTuning DefaultReadAhead(platform::NativeHandle handle) {
    CBlockReadAhead::TTuning tuning;
    const bool ahead = platform::ReadsBypassCache(handle) || platform::CReadQueue::ReadsCachedInBackground();
    tuning.depth = ahead ? settings::GetReadAheadDepth() : 0;
    tuning.requestBytes = settings::GetReadAheadKiB() << 10;
    return tuning;
}

}  // namespace

void CVolumeNTFSIndexer::IndexVolume(platform::NativeHandle handle, const CIndexingVolumeInfo& description,
                                     const std::u16string& /*originalVolumeName*/, CIncExcNode& filterRoot,
                                     CIndexBase& base) {
    CLog& log = GetLog();
    CLogBlock outer(log, u"Execute NTFS parsing algorithm");
    m_InvalidRecords = 0;
    CNtfsVolume volume;
    volume.InitMftInfo(handle, m_SectorSize);
    CheckMetafilesInUse(volume);
    const uint64_t count = volume.GetFileRecordCount();
    auto index = std::make_shared<CNtfsIndex>(&volume);
    auto attributes = std::make_shared<CNtfsAttributes>(&volume);
    auto processor = std::make_shared<CFastNtfsProcessor>(&volume, attributes, index, &base, &filterRoot,
                                                          description.m_Name, m_Services);
    {
        CLogBlock block(log, u"Owners parse");
        processor->ParseSecureMetafile();
        processor->StoreOwners();
        block.Complete();
    }
    {
        CLogBlock block(log, u"Include/exclude folders process");
        processor->ProcessIncludeExcludeFolders();
        block.Complete();
    }
    {
        CLogBlock block(log, u"ReparsePoints preprocessing");
        processor->BuildReparsePointList();
        block.Complete();
    }
    {
        CLogBlock block(log, u"Main circle");
        Console(u"\nComplete status: ");
        log.Info(u"Complete status: ");
        int64_t lastPercent = -1;
        uint64_t current = kFirstUserFrn;
        CBuf<uint8_t> buffer(volume.GetVolumeGeometry().FileRecordSize);
        if (count <= kFirstUserFrn)
            throw CExc(u"%1 fail! Files too little. FileRecordCount=0x%2.", kIndexVolume, util::Hex16(count));
        log.Info(u"$MFT file records count: %1.", util::ToStrU64(count));
        volume.StartReadAhead(current, m_ReadAhead ? *m_ReadAhead : DefaultReadAhead(handle));
        while (current < count) {
            try {
                // current < count, so current * 100 can't pass 64 bits for
                // any table that fits a volume.
                const int64_t percent = static_cast<int64_t>(current * 100 / count);
                if (percent != lastPercent) {
                    lastPercent = percent;
                    Console(util::ToStrU64(static_cast<uint64_t>(percent)) + u"%");
                    log.Info(u"%1%", util::ToStrU64(static_cast<uint64_t>(percent)));
                }
                // The scan passes free records: a record that cannot be read
                // is reported by its own number, once, and the scan goes on
                // after it (not after the record it started from).
                uint64_t unreadable = current;
                const uint64_t found = volume.GetFileRecord(current, buffer.Get(), 0, &unreadable);
                if (found == ~uint64_t{0}) {
                    log.Warning(u"Can`t parse file record #%1.", util::ToStrU64(unreadable));
                    current = unreadable + 1;
                    ++m_InvalidRecords;
                    continue;
                }
                if (found >= count) {
                    log.Info(u"Found end of $MFT!");
                    break;
                }
                processor->ProcessFileRecord(found, buffer.Get());
                current = found + 1;
            } catch (CExc& e) {
                e.AddContext(u"parsing failed. File record #%1.", util::ToStrU64(current));
                throw;
            }
        }
        volume.StopReadAhead();
        Console(u"100%");
        log.Info(u"100%");
        if (m_InvalidRecords != 0) {
            log.Warning(u"Complete with fails, %1 invalid file records found!", util::ToStrU64(m_InvalidRecords));
        } else {
            Console(u"\nComplete\n");
            block.Complete();
        }
    }
    {
        CLogBlock block(log, u"ReparsePoints postprocessing.");
        processor->ProcessReparsePoints();
        block.Complete();
    }
    processor->LogUnknownReparseTags();
    processor->LogSuppressedWarnings();
    outer.Complete();
}

}  // namespace indexer::fast_ntfs_indexer
