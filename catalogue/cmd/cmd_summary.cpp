// summary DIR: the volumes that DIR/summary.txt lists, each with the row
// counts of its index file (read from the table headers only).

#include "base/exc.h"
#include "catalogue/cmd/commands.h"
#include "catalogue/index/ifd_tables.h"
#include "catalogue/index/run_folder.h"

namespace catalogue {

int RunSummary(const TArgs& args, TContext& ctx) {
    const TRunFolder run = ReadRunFolder(ArgPath(args.positional[0]));
    CTextOut& out = ctx.out;
    out << run.summaryFile << ": " << static_cast<uint64_t>(run.volumes.size()) << " volumes";
    if (!run.type.empty()) out << ", type " << run.type;
    out << "\n";
    int code = 0;
    for (const auto& volume : run.volumes) {
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
            const CIfdTables tables(run.IndexFile(volume));
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
