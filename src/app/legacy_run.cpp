#include "app/legacy_run.h"

#include <list>

#include "app/output_dir.h"
#include "app/summary.h"
#include "base/format.h"
#include "diag/log.h"
#include "inputs/filter_reader.h"
#include "inputs/volume.h"
#include "legacy/legacy_indexers.h"
#include "metafile/mtf_file_rw.h"
#include "metafile/mtf_tree.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "store/seq_table.h"

namespace indexer {

namespace {

// The longest mount point the run takes: a drive root, "C:\".
constexpr size_t kMaxMountPointLength = 3;

std::vector<std::u16string> FilterVolumes(const std::vector<std::u16string>& mountPoints,
                                          const legacy::CLegacyFilter& filter) {
    CLogBlock block(GetLog(), u"Filtering NTFS volumes.");
    std::vector<std::u16string> kept;
    for (const auto& mountPoint : mountPoints) {
        if (!filter.IsVolumeAllowedByFilter(mountPoint)) {
            GetLog().Detail(u"NTFS volume skipped by filter: [%1].", mountPoint);
        } else if (mountPoint.size() > kMaxMountPointLength) {
            GetLog().Detail(
                u"NTFS volume must be mounted to letter. Path mounts not supported in this version: [%1].",
                mountPoint);
        } else {
            kept.push_back(mountPoint);
        }
    }
    block.Complete();
    if (kept.empty()) GetLog().Warning(u"The filters cover no volume; nothing is indexed.");
    return kept;
}

// One volume into outputDir\<fileName>: the tables, the indexer of its file
// system, the join into a temporary file and its rename.
void IndexLegacyVolume(const std::u16string& outputDir, const std::u16string& mountPoint,
                       const std::u16string& fileName, const legacy::CLegacyFilter& filter,
                       platform::IVolumes& volumes) {
    legacy::CLegacyTables tables(outputDir);
    std::u16string joined;
    try {
        diskmgmt::CVolume volume(mountPoint, volumes);
        const diskmgmt::TFileSystemKind kind = volume.GetFileSystemKind();
        std::u16string path = mountPoint;
        if (!path.empty() && (path.back() == u'\\' || path.back() == u'/')) path.pop_back();
        if (kind == diskmgmt::FsNtfs)
            legacy::IndexVolumeByMft(tables, path, filter);
        else if (kind == diskmgmt::FsReFS)
            legacy::IndexVolumeByWalk(tables, path, filter);
        else
            throw CExc(u"Unexpected file system '%1' for volume '%2'.", util::ToStrU32(kind), mountPoint,
                       kHrInvalidArg);
        std::list<std::u16string> combine;
        idxdata::AddToCombine(combine, tables.Files());
        idxdata::AddToCombine(combine, tables.Dirs());
        idxdata::AddToCombine(combine, tables.Owners());
        joined = idxdata::CSeqTableWriter::GenerateTempFileName(outputDir);
        idxdata::CombineTables(combine, joined);
        const std::u16string target = idxdata::JoinPath(outputDir, fileName);
        if (!platform::FileMove(joined, target, platform::kMoveReplaceExisting))
            throw CWin32Exc(u"Cannot rename [%1] to [%2].", joined, target);
    } catch (...) {
        tables.Discard();
        if (!joined.empty()) platform::FileDelete(joined);
        throw;
    }
}

}  // namespace

std::u16string LegacyVolumeName(std::u16string_view mountPoint) {
    std::u16string name(mountPoint);
    while (!name.empty() && (name.back() == u'\\' || name.back() == u'/' || name.back() == u':')) name.pop_back();
    for (auto& c : name)
        if (c == u'/' || c == u'\\' || c == u':' || c == u'?') c = u'_';
    return name;
}

void IndexLegacyVolumes(const std::u16string& outputDir, const legacy::CLegacyFilter& filter,
                        platform::IVolumes& volumes) {
    CLogBlock block(GetLog(), u"Creating oib index binary files.");
    std::vector<std::u16string> mountPoints;
    diskmgmt::EnumerateVolumesForIndexing(mountPoints, volumes);
    mountPoints = FilterVolumes(mountPoints, filter);

    GetLog().Detail(u"Creating output directory: [%1].", outputDir);
    CreateOutputDirectory(outputDir);
    idxdata::RemoveLostTempFiles(outputDir);

    GetLog().Detail(u"Creating metafile: [%1].", idxdata::JoinPath(outputDir, kSummaryFileName));
    // The summary grows as volumes succeed, under a pending name.
    RemoveSummary(outputDir);
    const std::u16string pending = PendingSummaryName(outputDir);
    const auto summary = metafile::CMtfFile::Open(pending, metafile::EMtfCreateNewDetached);
    for (const auto& mountPoint : mountPoints) {
        const std::u16string name = LegacyVolumeName(mountPoint);
        const std::u16string fileName = u"volume." + name + u".ifd";
        try {
            IndexLegacyVolume(outputDir, mountPoint, fileName, filter, volumes);
            summary->SetAttribute(u"volume." + name, fileName);
        } catch (const CExc& e) {
            GetLog().LogException(FormatMessageArgs(u"Unable to index volume '%1'.", {mountPoint}), e);
        }
    }
    summary->Save();
    summary->Detach();
    PublishSummary(pending, outputDir);
    block.Complete();
}

void RunIndexVolumes(const std::u16string& outputDir) {
    try {
        std::vector<std::u16string> include, exclude;
        CFilterReader::FromProcess().ReadFilters(include, exclude);
        IndexLegacyVolumes(outputDir, legacy::CLegacyFilter(std::move(include), std::move(exclude)),
                           platform::SystemVolumes());
    } catch (CExc& e) {
        e.AddFailContext(u"IndexVolumes");
        throw;
    }
}

}  // namespace indexer
