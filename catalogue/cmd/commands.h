#pragma once
// The subcommands of the catalogue tool. Each takes its parsed words and
// writes to the context's streams; it returns the exit code (0 done, 1 a
// look-up that found nothing) and throws CExc for a file that can't be read
// or is damaged (exit code 1) and CUsageError for bad usage (exit code 2).
// RunCatalogue turns those into the messages and codes.

#include <memory>
#include <string>
#include <vector>

#include "catalogue/cmd/args.h"
#include "catalogue/db/connection.h"
#include "catalogue/model/text_out.h"

namespace catalogue {

struct TContext {
    CTextOut& out;
    CTextOut& err;
    // Standard error is a terminal: a long ingest shows its progress there.
    bool progress = false;
};

int RunCheck(const TArgs& args, TContext& ctx);
int RunLs(const TArgs& args, TContext& ctx);
int RunTree(const TArgs& args, TContext& ctx);
int RunFind(const TArgs& args, TContext& ctx);
int RunExport(const TArgs& args, TContext& ctx);
int RunDiff(const TArgs& args, TContext& ctx);
int RunSummary(const TArgs& args, TContext& ctx);
// The catalogue database's commands.
int RunIngest(const TArgs& args, TContext& ctx);
int RunSearch(const TArgs& args, TContext& ctx);
int RunVersions(const TArgs& args, TContext& ctx);
int RunLsAt(const TArgs& args, TContext& ctx);
int RunChanges(const TArgs& args, TContext& ctx);
int RunMachines(const TArgs& args, TContext& ctx);
int RunPoints(const TArgs& args, TContext& ctx);
int RunForget(const TArgs& args, TContext& ctx);
int RunServe(const TArgs& args, TContext& ctx);

// The database that --db names, or the default one (DefaultDatabase);
// `create` makes a SQLite file that is not there (ingest).
std::unique_ptr<IConnection> OpenDb(const TArgs& args, bool create = false);

// The whole tool: words as on the command line after the program's name.
int RunCatalogue(const std::vector<std::string>& words, CTextOut& out, CTextOut& err, bool progress = false);

// A path from the command line (UTF-8) in the program's spelling, made
// absolute against the current folder.
std::u16string ArgPath(const std::string& arg);

}  // namespace catalogue
