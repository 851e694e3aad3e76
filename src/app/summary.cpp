#include "app/summary.h"

#include "platform/errors.h"
#include "base/format.h"
#include "diag/log.h"
#include "metafile/mtf_file_rw.h"
#include "metafile/mtf_tree.h"
#include "platform/file.h"
#include "store/seq_table.h"

namespace indexer {

void WriteSummary(const std::u16string& outputDir, const VolumeSummaryList& volumes) {
    GetLog().Detail(u"Creating metafile: [%1].", idxdata::JoinPath(outputDir, kSummaryFileName));
    const std::u16string pending = PendingSummaryName(outputDir);
    const auto file = metafile::CMtfFile::Open(pending, metafile::EMtfCreateNewDetached);
    file->SetAttribute(u"type", u"ifd");
    // The flat form, as the legacy run writes it too.
    for (const auto& volume : volumes)
        file->SetAttribute(u"volume." + volume->MountPointName, volume->DataFileName);
    metafile::CMtfTree list = file->CreateSubtree(u"Volumes");
    uint32_t index = 0;
    for (const auto& volume : volumes) {
        metafile::CMtfTree node = list.CreateSubtree(util::ToStrU32(index++));
        node.SetAttribute(u"MountPointName", volume->MountPointName);
        node.SetAttribute(u"DataFileName", volume->DataFileName);
        if (!volume->VolumeId.IsZero())
            node.SetAttribute(u"VolumeId", u"{" + GuidToString(volume->VolumeId) + u"}");
        if (volume->IsCluster) node.SetAttribute(u"IsCluster", u"true");
    }
    file->Save();
    file->Detach();
    PublishSummary(pending, outputDir);
}

void RemoveSummary(const std::u16string& outputDir) {
    // Opening anew deletes the file and an interrupted save's ".old".
    metafile::CMtfFile::Open(idxdata::JoinPath(outputDir, kSummaryFileName), metafile::EMtfCreateNewDetached);
}

std::u16string PendingSummaryName(const std::u16string& outputDir) {
    return idxdata::CSeqTableWriter::GenerateTempFileName(outputDir);
}

void PublishSummary(const std::u16string& pending, const std::u16string& outputDir) {
    const std::u16string name = idxdata::JoinPath(outputDir, kSummaryFileName);
    if (!platform::FileMove(pending, name, platform::kMoveReplaceExisting))
        throw CWin32Exc(u"Cannot rename [%1] to [%2].", pending, name);
}

}  // namespace indexer
