#include "app/summary.h"

#include "base/format.h"
#include "diag/log.h"
#include "metafile/mtf_file_rw.h"
#include "metafile/mtf_tree.h"
#include "store/seq_table.h"

namespace indexer {

void WriteSummary(const std::u16string& outputDir, const VolumeSummaryList& volumes) {
    const std::u16string name = idxdata::JoinPath(outputDir, kSummaryFileName);
    GetLog().Detail(u"Creating metafile: [%1].", name);
    const auto file = metafile::CMtfFile::Open(name, metafile::EMtfCreateNewDetached);
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
}

}  // namespace indexer
