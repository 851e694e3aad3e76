// ingest OUTDIR --machine NAME [--taken TIME] [--db DB]: one run's indexes
// as a restore point of the machine (db/ingest.h).

#include <chrono>

#include "base/exc.h"
#include "base/utf.h"
#include "catalogue/cmd/commands.h"
#include "catalogue/db/ingest.h"
#include "catalogue/index/run_folder.h"
#include "catalogue/model/values.h"

namespace catalogue {

int RunIngest(const TArgs& args, TContext& ctx) {
    const std::string* machine = args.Get("machine");
    if (!machine || machine->empty()) throw CUsageError("--machine NAME is needed");
    std::optional<uint64_t> taken;
    if (const std::string* text = args.Get("taken")) {
        taken = ParseIsoTime(*text);
        if (!taken) throw CUsageError("--taken '" + *text + "' is not a time (YYYY-MM-DD[Thh:mm[:ss]])");
    }
    const TRunFolder folder = ReadRunFolder(ArgPath(args.positional[0]));
    CheckOneRun(folder);
    TIngestRun run;
    run.machine = util::Utf8ToUtf16(*machine);
    // The summary has no time of its own: the time it was written.
    run.taken = taken ? *taken : folder.summaryTime;
    run.source = folder.dir;
    for (const auto& volume : folder.volumes)
        run.volumes.push_back({VolumeName(volume), folder.IndexFile(volume)});

    const auto db = OpenDb(args, true);
    const auto start = std::chrono::steady_clock::now();
    bool shown = false;
    auto progress = [&](uint64_t rows) {
        if (!ctx.progress) return;
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (seconds < 1) return;
        ctx.err << "\ringesting: " << rows << " entries";
        ctx.err.Flush();
        shown = true;
    };
    const TIngestResult result = Ingest(*db, run, progress);
    if (shown) {
        ctx.err << "\r\x1b[K";
        ctx.err.Flush();
    }
    ctx.out << "restore point " << std::to_string(result.point) << " of " << *machine << ", taken "
            << IsoTime(run.taken, true) << ": " << static_cast<uint64_t>(run.volumes.size()) << " volumes, "
            << result.rows << " entries; " << result.added << " added, " << result.removed << " removed, "
            << result.changed << " changed since the previous point\n";
    return 0;
}

}  // namespace catalogue
