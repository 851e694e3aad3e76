#include "app/optimized_run.h"

#include "app/output_dir.h"
#include "app/volume_access.h"
#include "base/exc.h"
#include "base/format.h"
#include "diag/log.h"
#include "fast/volume_ntfs_indexer.h"
#include "inputs/filter_reader.h"
#include "inputs/inc_exc_node.h"
#include "inputs/snapshot_mapping.h"
#include "inputs/volume.h"
#include "platform/errors.h"
#include "platform/volume_io.h"
#include "store/index_base.h"
#include "store/seq_table.h"
#include "walk/ff_indexer.h"

namespace indexer {

namespace {

// One level of log indentation for a scope.
class CLogIndent {
public:
    CLogIndent() { GetLog().IncDepth(); }
    ~CLogIndent() { GetLog().DecDepth(); }
    CLogIndent(const CLogIndent&) = delete;
    CLogIndent& operator=(const CLogIndent&) = delete;
};

std::u16string StripTrailingSeparators(std::u16string name) {
    while (!name.empty() && (name.back() == u'\\' || name.back() == u'/')) name.pop_back();
    return name;
}

void LogFolders(std::u16string_view title, const std::vector<std::u16string>& folders) {
    if (folders.empty()) return;
    GetLog().Detail(title);
    CLogIndent indent;
    for (const auto& folder : folders) GetLog().Detail(u"%1", folder);
}

void LogFilterTree(const std::vector<CIndexingVolumeInfo>& volumes) {
    GetLog().Detail(u"Index filter tree:");
    CLogIndent indent;
    for (const auto& volume : volumes) {
        GetLog().Detail(u"volume %1", volume.m_Name);
        LogFolders(u"Include folders:", volume.m_Include);
        LogFolders(u"Exclude folders:", volume.m_Exclude);
    }
}

}  // namespace

std::u16string DataFileNameOf(std::u16string_view volumeName) {
    std::u16string name(volumeName);
    for (auto& c : name)
        if (c == u'/' || c == u'\\' || c == u':' || c == u'?') c = u'_';
    return u"volume." + name + u".ifd";
}

std::u16string MountPointNameOf(std::u16string_view volumeName) {
    if (volumeName.size() == 2 && volumeName[1] == u':') return std::u16string(volumeName.substr(0, 1));
    return std::u16string(volumeName);
}

void IndexOneVolume(const CIndexRun& run, const CIndexingVolumeInfo& volume,
                    const std::u16string& dataFileName, bool& forceFindFirst) {
    GetLog().Detail(u"Indexing volume [%1]", volume.m_Name);
    CLogIndent indent;
    CIndexBase base;
    try {
        CIncExcNode tree(volume.m_Include, volume.m_Exclude);
        GetLog().Detail(u"IncExcTree:");
        DumpTree(tree, 0);

        base.Open(run.m_OutputDir, false, dataFileName);

        std::u16string readName = volume.m_Shadow;
        if (readName.empty()) {
            GetLog().Detail(u"There is no shadow volume for volume '%1' : FF indexing will be used.",
                            volume.m_Name);
            readName = GetVolumeDeviceName(volume.m_Name);
            forceFindFirst = true;
        }
        readName = StripTrailingSeparators(std::move(readName));
        GetLog().Detail(u"VolumeMountPointName [%1]", volume.m_Name);
        GetLog().Detail(u"OriginalVolumeName [%1]", readName);

        const platform::CHandle handle = OpenVolume(readName);
        if (!platform::AllowExtendedDasdIo(handle.Get()))
            throw CWin32Exc(u"FSCTL_ALLOW_EXTENDED_DASD_IO fail.");

        uint64_t ownerId = 0;
        base.AddOwner(u"S-1-0-0", u"", u"", &ownerId);

        if (!run.m_ParseFs || forceFindFirst) {
            forceFindFirst = true;
        } else if (uint32_t sectorSize = 0; GetVolumeFileSystemType(handle.Get(), &sectorSize) != kFsTypeNtfs) {
            forceFindFirst = true;
        } else {
            // NTFS with a shadow: the fast pipeline; a failure is retried
            // by the caller with the walk. Its reads keep to the sector size
            // at which the boot sector could be read, where the system does
            // not name one.
            fast_ntfs_indexer::CVolumeNTFSIndexer ntfsIndexer;
            ntfsIndexer.SetSectorSize(sectorSize);
            ntfsIndexer.IndexVolume(handle.Get(), volume, readName, tree, base);
            base.Close();
            return;
        }
        CFfIndexer indexer;
        indexer.IndexVolumeFF(volume.m_Name, readName, &tree, &base);
        base.Close();
    } catch (...) {
        // An index of a failed attempt must not look finished, and its
        // tables (on a full disk, the space they hold) are of no use: they
        // are dropped, never combined into the final name.
        if (base.IsOpen()) {
            base.Discard();
            GetLog().Detail(u"Temporary tables of the failed attempt removed.");
        }
        throw;
    }
}

namespace {

// One attempt, its failure logged; true when it succeeded.
bool TryIndexVolume(const CIndexRun& run, const CIndexingVolumeInfo& volume,
                    const std::u16string& dataFileName, bool& forceFindFirst) {
    try {
        IndexOneVolume(run, volume, dataFileName, forceFindFirst);
        return true;
    } catch (const CExc& e) {
        GetLog().Error(u"Indexing failed for volume [%1]. %2.", volume.m_Name, e.GetDescription());
    } catch (...) {
        GetLog().Error(u"Indexing failed for volume [%1]. Unexpected exception.", volume.m_Name);
    }
    return false;
}

}  // namespace

VolumeSummaryList IndexVolumeList(const CIndexRun& run) {
    LogFilterTree(run.m_Volumes);
    VolumeSummaryList summaries;
    std::u16string failures;
    uint32_t failureCount = 0;
    for (const auto& volume : run.m_Volumes) {
        auto summary = std::make_shared<CVolumeSummary>();
        summary->MountPointName = MountPointNameOf(volume.m_Name);
        summary->DataFileName = DataFileNameOf(volume.m_Name);
        summary->VolumeId = volume.m_VolumeId;
        summary->IsCluster = volume.m_IsCluster;

        // At most two attempts; the second, if any, is the directory walk.
        bool forceFindFirst = false;
        bool indexed = TryIndexVolume(run, volume, summary->DataFileName, forceFindFirst);
        if (!indexed && !forceFindFirst) {
            forceFindFirst = true;
            indexed = TryIndexVolume(run, volume, summary->DataFileName, forceFindFirst);
        }
        if (!indexed) {
            if (!failures.empty()) failures += u",";
            failures += u" [" + volume.m_Name + u"]";
            ++failureCount;
        }
        summaries.push_back(std::move(summary));
    }
    if (failureCount != 0) {
        const std::u16string message =
            FormatMessageArgs(u"Indexing failed for %1 volume(s): %2.", {util::ToStrU32(failureCount), failures});
        GetLog().Detail(u"%1", message);
        throw CExc(message);
    }
    return summaries;
}

void RunIndexVolumesOptimized(const std::u16string& outputDir, const std::u16string& parseFs) {
    try {
        GetLog().Detail(u"Using new index algorithm!");
        CIndexRun run;
        run.m_OutputDir = outputDir;
        if (parseFs == u"no") {
            GetLog().Detail(u"Using FindFirst/FindNext algorithm!");
            run.m_ParseFs = false;
        }
        GetLog().Detail(u"Creating output directory: [%1].", outputDir);
        CreateOutputDirectory(outputDir);
        idxdata::RemoveLostTempFiles(outputDir);
        // An earlier run's summary must not present this run's files as
        // complete if it fails or is killed.
        RemoveSummary(outputDir);

        BuildVolumeDescriptions(CFilterReader::FromProcess(), run.m_Volumes);
        const VolumeSummaryList summaries = IndexVolumeList(run);
        WriteSummary(outputDir, summaries);
    } catch (CExc& e) {
        e.AddFailContext(u"IndexVolumesOptimized");
        throw;
    }
}

}  // namespace indexer
