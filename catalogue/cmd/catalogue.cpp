#include "catalogue/cmd/commands.h"

#include <filesystem>

#include "base/exc.h"
#include "base/utf.h"
#include "catalogue/db/schema.h"
#include "catalogue/cmd/version.h"

namespace catalogue {

namespace {

struct TCommand {
    const char* name;
    int (*run)(const TArgs&, TContext&);
    size_t minArgs, maxArgs;
    std::vector<TOptionSpec> options;
    const char* usage;
};

const std::vector<TOptionSpec> kFilterOptions = {
    {"db", true},          {"json", false},         {"machine", true},  {"volume", true},  {"type", true},
    {"owner", true},       {"at", true},            {"from", true},     {"to", true},      {"taken-after", true},
    {"taken-before", true}, {"min-size", true},     {"max-size", true}, {"newer", true},   {"older", true},
};

const std::vector<TCommand>& Commands() {
    static const std::vector<TCommand> commands = {
        {"check", RunCheck, 1, 1, {},
         "Usage: ngi-catalogue check FILE\n"
         "Reads the whole index file and checks everything it holds: the chain of tables,\n"
         "every header, every row inside its table, every parent and owner id. Prints the\n"
         "row count of each table and notes on what is allowed but unusual.\n"
         "Exit 0 for a valid file, 1 for a damaged one (the message names the offset).\n"},
        {"ls", RunLs, 0, 2, {{"at", true}, {"volume", true}, {"json", false}, {"db", true}},
         "Usage: ngi-catalogue ls FILE [PATH]\n"
         "       ngi-catalogue ls [PATH] --at RP [--volume V] [--json] [--db DB]\n"
         "Lists a folder of the index (the root by default): subfolders, then files with\n"
         "size in bytes, last-write time (UTC) and owner, then links with their targets.\n"
         "PATH is compared without regard to case; \\ or / separate its names.\n"
         "Exit 1 when the folder is not in the index.\n"
         "With --at RP, lists the folder as restore point RP of the catalogue holds it\n"
         "(PATH may start with a volume, C:\\Users; the root by default).\n"},
        {"tree", RunTree, 1, 2, {{"depth", true}},
         "Usage: ngi-catalogue tree FILE [PATH] [--depth N]\n"
         "Lists a folder and everything below it, indented by level; --depth N stops\n"
         "N levels below PATH (1 lists PATH's own entries).\n"
         "Exit 1 when the folder is not in the index.\n"},
        {"find", RunFind, 2, 2,
         {{"min-size", true}, {"max-size", true}, {"newer", true}, {"older", true}, {"type", true}},
         "Usage: ngi-catalogue find FILE PATTERN [--type f|d|l] [--min-size N] [--max-size N]\n"
         "                                  [--newer TIME] [--older TIME]\n"
         "Prints the full path of every file, folder (ending in \\) and link whose name\n"
         "matches PATTERN: * any run of characters, ? one character, case ignored as\n"
         "Windows ignores it. A PATTERN holding \\ is matched against the full path.\n"
         "Sizes take K, M, G, T suffixes (1024); TIME is YYYY-MM-DD[Thh:mm[:ss]] in UTC.\n"
         "--newer keeps times at or after TIME, --older times before it; size and time\n"
         "bounds select files only. Exit 1 when nothing matches.\n"},
        {"export", RunExport, 1, 1, {{"format", true}},
         "Usage: ngi-catalogue export FILE --format csv|jsonl\n"
         "Writes one line per folder, file and link: type, full path, size, last-write\n"
         "time (UTC, 100 ns), owner SID and account, link target. csv has a header line.\n"},
        {"diff", RunDiff, 2, 2, {},
         "Usage: ngi-catalogue diff OLD NEW\n"
         "Compares two indexes of one volume: lines '+ PATH' (added), '- PATH' (removed)\n"
         "and '~ PATH' with what changed (size, time, owner, link target), sorted by path,\n"
         "then a count line. Paths are compared without regard to case.\n"
         "Exit 0 whether or not anything changed.\n"},
        {"summary", RunSummary, 1, 1, {},
         "Usage: ngi-catalogue summary DIR\n"
         "Reads DIR\\summary.txt and shows each volume it lists with the row counts of\n"
         "its index file. Exit 1 when summary.txt or an index file can't be read.\n"},
        {"ingest", RunIngest, 1, 1, {{"db", true}, {"machine", true}, {"taken", true}},
         "Usage: ngi-catalogue ingest OUTDIR --machine NAME [--taken TIME] [--db DB]\n"
         "Records the run in OUTDIR (summary.txt and its volume.<X>.ifd files) as one\n"
         "restore point of machine NAME. --taken defaults to the time summary.txt was\n"
         "written. Only what changed since the volume's previous restore point is\n"
         "written. A damaged index, a folder holding two runs, or a restore point that is\n"
         "already there is refused and the database stays as it was.\n"},
        {"search", RunSearch, 1, 1, kFilterOptions,
         "Usage: ngi-catalogue search PATTERN [filters] [--json] [--db DB]\n"
         "Finds entries on every machine and restore point. A PATTERN without * or ?\n"
         "finds the names that contain it; with them the whole name must match (* any\n"
         "run, ? one character); with \\ or / the path from the volume's root is\n"
         "matched instead. Case is ignored as Windows ignores it. Filters:\n"
         "  --machine M  --volume V  --type f|d|l  --owner ACCOUNT|SID\n"
         "  --at RP | --from RP --to RP  --taken-after TIME --taken-before TIME\n"
         "  --min-size N --max-size N  --newer TIME --older TIME (last-write, files only)\n"
         "Each version is printed once with the restore points that hold it.\n"
         "Exit 1 when nothing matches.\n"},
        {"versions", RunVersions, 1, 1, kFilterOptions,
         "Usage: ngi-catalogue versions PATH [--machine M] [--volume V] [--json] [--db DB]\n"
         "Each distinct version of the entry at PATH (C:\\Users\\a.txt, or \\Users\\a.txt on\n"
         "every volume) with the restore points that hold it. Exit 1 when there is none.\n"},
        {"changes", RunChanges, 0, 0, {{"db", true}, {"json", false}, {"from", true}, {"to", true}},
         "Usage: ngi-catalogue changes --from RP --to RP [--json] [--db DB]\n"
         "What was added (+), removed (-) and changed (~, with what) between two restore\n"
         "points of one machine, as diff prints it for two index files.\n"},
        {"machines", RunMachines, 0, 0, {{"db", true}, {"json", false}},
         "Usage: ngi-catalogue machines [--json] [--db DB]\n"
         "The machines of the catalogue with their restore points' count and times.\n"},
        {"points", RunPoints, 0, 0, {{"db", true}, {"json", false}, {"machine", true}},
         "Usage: ngi-catalogue points [--machine M] [--json] [--db DB]\n"
         "The restore points: id (what --at, --from, --to take), machine, time taken,\n"
         "volumes, file count, the folder ingested.\n"},
        {"forget", RunForget, 1, 1, {{"db", true}},
         "Usage: ngi-catalogue forget RP [--db DB]\n"
         "Removes restore point RP and the versions that no other restore point holds.\n"},
        {"serve", RunServe, 0, 0,
         {{"db", true}, {"listen", true}, {"token-file", true}, {"tls-cert", true}, {"tls-key", true}},
         "Usage: ngi-catalogue serve [--db DB] [--listen HOST:PORT] [--token-file FILE]\n"
         "                          [--tls-cert FILE --tls-key FILE]\n"
         "Serves a web page to search the catalogue, and its JSON API (/api/search,\n"
         "/api/versions, /api/ls, /api/changes, /api/machines, /api/points), reading the\n"
         "database read-only, until interrupted. --listen defaults to 127.0.0.1:8080\n"
         "(port 0: any free port; the address is printed). On an address other than\n"
         "the loopback it refuses to start without --token-file, whose first line is\n"
         "the token requests must give (Authorization: Bearer TOKEN). --tls-cert and\n"
         "--tls-key (PEM) serve HTTPS.\n"},
    };
    return commands;
}

const char kToolUsage[] =
    "Usage: ngi-catalogue COMMAND [ARGS] [--help]\n"
    "Looks files up in the index files (volume.<X>.ifd) of NorvaGuestIndexer, and in\n"
    "a catalogue of every machine's restore points (SQLite, or PostgreSQL).\n"
    "Index files:\n"
    "  check FILE                      check a whole index file\n"
    "  ls FILE [PATH]                  list a folder\n"
    "  tree FILE [PATH] [--depth N]    list a folder and what lies below it\n"
    "  find FILE PATTERN [bounds]      full paths of matching names\n"
    "  export FILE --format csv|jsonl  every entry, one line each\n"
    "  diff OLD NEW                    what changed between two indexes\n"
    "  summary DIR                     the volumes of summary.txt with their counts\n"
    "The catalogue (--db FILE or postgresql://...; default: $NGI_CATALOGUE_DB, else\n"
    "~/.local/share/ngi-catalogue/catalogue.sqlite):\n"
    "  ingest DIR --machine NAME       record a run as a restore point\n"
    "  search PATTERN [filters]        find entries on every machine and point\n"
    "  versions PATH                   the versions of one entry\n"
    "  ls [PATH] --at RP               a folder as a restore point holds it\n"
    "  changes --from RP --to RP       what changed between two restore points\n"
    "  machines, points [--machine M]  what the catalogue holds\n"
    "  forget RP                       remove a restore point\n"
    "  serve [--listen HOST:PORT]      a web page and JSON API to search it\n"
    "--json gives one JSON object a line. --version prints the version.\n"
    "Exit codes: 0 done, 1 nothing found or a file invalid, 2 bad usage.\n";

// CExc lines joined by CR LF, re-joined for a terminal.
std::u16string OneMessage(const CExc& e) {
    std::u16string text;
    for (const auto& line : e.GetMessages()) {
        if (!text.empty()) text += u"\n  ";
        text += line;
    }
    return text;
}

}  // namespace

std::u16string ArgPath(const std::string& arg) {
    std::error_code ec;
    const std::filesystem::path path = std::filesystem::absolute(std::filesystem::path(std::u8string(arg.begin(), arg.end())), ec);
    return ec ? util::Utf8ToUtf16(arg) : path.u16string();
}

int RunCatalogue(const std::vector<std::string>& words, CTextOut& out, CTextOut& err, bool progress) {
    if (!words.empty() && words[0] == "--version") {
        out << "ngi-catalogue " << kCatalogueVersion << " (catalogue schema " << std::to_string(kSchemaVersion)
            << ", SQLite " << SqliteVersion() << ", libpq " << PgLibraryVersion() << ")\n";
        return 0;
    }
    if (words.empty() || words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
        (words.empty() ? err : out) << kToolUsage;
        return words.empty() ? 2 : 0;
    }
    const TCommand* command = nullptr;
    for (const auto& c : Commands())
        if (words[0] == c.name) command = &c;
    if (!command) {
        err << "ngi-catalogue: unknown command '" << words[0] << "'\n" << kToolUsage;
        return 2;
    }
    TContext ctx{out, err, progress};
    try {
        const TArgs args = ParseArgs(std::vector<std::string>(words.begin() + 1, words.end()), command->options);
        if (args.help) {
            out << command->usage;
            return 0;
        }
        if (args.positional.size() < command->minArgs) throw CUsageError("missing arguments");
        if (args.positional.size() > command->maxArgs) throw CUsageError("too many arguments");
        return command->run(args, ctx);
    } catch (const CUsageError& e) {
        out.Flush();
        err << "ngi-catalogue " << command->name << ": " << e.what() << "\n" << command->usage;
        return 2;
    } catch (const CExc& e) {
        out.Flush();
        err << "ngi-catalogue " << command->name << ": " << OneMessage(e) << "\n";
        return 1;
    } catch (const std::exception& e) {  // out of memory and the like
        out.Flush();
        err << "ngi-catalogue " << command->name << ": " << e.what() << "\n";
        return 1;
    }
}

}  // namespace catalogue
