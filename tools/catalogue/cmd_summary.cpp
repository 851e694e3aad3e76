// summary DIR: the volumes that DIR\summary.txt lists, each with the row
// counts of its index file (read from the table headers only). The
// "Volumes" subtree of an optimized run is preferred; a legacy run's
// summary has only the flat "volume.<name>=<file>" attributes.

#include "base/exc.h"
#include "catalogue/commands.h"
#include "catalogue/ifd_tables.h"
#include "metafile/mtf_file_rw.h"
#include "metafile/mtf_tree.h"
#include "store/seq_table.h"

namespace catalogue {

namespace {

struct TVolume {
    std::u16string mountPoint, dataFile, volumeId;
    bool cluster = false;
};

std::u16string Attribute(const metafile::CMtfTreeNode& node, const std::u16string& name) {
    const auto it = node.m_Attributes.find(name);
    return it == node.m_Attributes.end() ? std::u16string() : it->second.first;
}

std::vector<TVolume> ReadVolumes(metafile::CMtfNodesTab& nodes, std::u16string& type) {
    std::vector<TVolume> volumes;
    type = Attribute(nodes.GetNode(0), u"type");
    const int64_t list = nodes.FindChild(0, u"Volumes");
    if (list >= 0) {
        for (int64_t child : nodes.GetNode(list).m_Children) {
            const metafile::CMtfTreeNode& node = nodes.GetNode(child);
            volumes.push_back({Attribute(node, u"MountPointName"), Attribute(node, u"DataFileName"),
                               Attribute(node, u"VolumeId"), Attribute(node, u"IsCluster") == u"true"});
        }
        return volumes;
    }
    const int64_t flat = nodes.FindChild(0, u"volume");
    if (flat >= 0)
        for (const auto& [name, value] : nodes.GetNode(flat).m_Attributes) volumes.push_back({name, value.first, {}, false});
    return volumes;
}

}  // namespace

int RunSummary(const TArgs& args, TContext& ctx) {
    const std::u16string dir = ArgPath(args.positional[0]);
    const std::u16string summaryName = idxdata::JoinPath(dir, u"summary.txt");
    const auto file = metafile::CMtfFile::Open(summaryName, metafile::EMtfLoad);
    std::u16string type;
    const std::vector<TVolume> volumes = ReadVolumes(*file->GetNodes(), type);
    CTextOut& out = ctx.out;
    out << summaryName << ": " << static_cast<uint64_t>(volumes.size()) << " volumes";
    if (!type.empty()) out << ", type " << type;
    out << "\n";
    int code = 0;
    for (const auto& volume : volumes) {
        out << "volume " << volume.mountPoint << ": " << volume.dataFile;
        if (!volume.volumeId.empty()) out << "  " << volume.volumeId;
        if (volume.cluster) out << "  cluster";
        out << "\n";
        if (volume.dataFile.empty()) {
            out << "  no data file named\n";
            code = 1;
            continue;
        }
        try {
            const CIfdTables tables(idxdata::JoinPath(dir, volume.dataFile));
            out << "  files " << tables.GetFileCount() << ", directories " << tables.GetDirCount() << ", owners "
                << tables.GetOwnerCount() << ", reparse points " << tables.GetReparseCount() << "\n";
        } catch (const CExc& e) {
            out.Flush();
            ctx.err << "ngi-catalogue summary: " << e.GetMessages().back() << "\n";
            for (auto it = e.GetMessages().begin(); it + 1 != e.GetMessages().end(); ++it)
                ctx.err << "  " << *it << "\n";
            out << "  unreadable\n";
            code = 1;
        }
    }
    return code;
}

}  // namespace catalogue
