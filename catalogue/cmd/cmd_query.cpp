// The questions to a catalogue database: search, versions, ls --at,
// changes, machines, points, and forget (db/catalogue_db.h). Each prints
// text for people, or with --json one JSON object a line (answer_out.h).

#include <charconv>

#include "base/exc.h"
#include "base/utf.h"
#include "catalogue/cmd/answer_out.h"
#include "catalogue/cmd/commands.h"
#include "catalogue/db/catalogue_db.h"
#include "catalogue/model/values.h"

namespace catalogue {

namespace {

int64_t PointArg(const TArgs& args, const char* name) {
    const std::string* text = args.Get(name);
    if (!text) throw CUsageError(std::string("--") + name + " RP is needed");
    int64_t id = 0;
    const auto end = text->data() + text->size();
    const auto [ptr, ec] = std::from_chars(text->data(), end, id);
    if (ec != std::errc() || ptr != end || id <= 0)
        throw CUsageError(std::string("--") + name + " '" + *text + "' is not a restore point id (see 'points')");
    return id;
}

// An optional value parsed by `parse`; a text it refuses is bad usage.
std::optional<uint64_t> ParsedArg(const TArgs& args, const char* name,
                                  std::optional<uint64_t> (*parse)(std::string_view), const char* what) {
    const std::string* text = args.Get(name);
    if (!text) return std::nullopt;
    const auto value = parse(*text);
    if (!value) throw CUsageError(std::string("--") + name + " '" + *text + "' is not " + what);
    return value;
}

std::optional<uint64_t> TimeArg(const TArgs& args, const char* name) {
    return ParsedArg(args, name, ParseIsoTime, "a time (YYYY-MM-DD[Thh:mm[:ss]])");
}

std::optional<uint64_t> SizeArg(const TArgs& args, const char* name) { return ParsedArg(args, name, ParseSize, "a size"); }

std::optional<std::u16string> TextArg(const TArgs& args, const char* name) {
    const std::string* text = args.Get(name);
    return text ? std::optional<std::u16string>(util::Utf8ToUtf16(*text)) : std::nullopt;
}

TSearchFilter FilterArgs(const TArgs& args) {
    TSearchFilter filter;
    filter.machine = TextArg(args, "machine");
    filter.volume = TextArg(args, "volume");
    filter.owner = TextArg(args, "owner");
    if (const std::string* type = args.Get("type")) {
        if (*type == "f") filter.kind = EKind::kFile;
        else if (*type == "d") filter.kind = EKind::kDir;
        else if (*type == "l") filter.kind = EKind::kLink;
        else throw CUsageError("--type '" + *type + "' is not f, d or l");
    }
    if (args.Has("at")) filter.fromPoint = filter.toPoint = PointArg(args, "at");
    if (args.Has("from")) filter.fromPoint = PointArg(args, "from");
    if (args.Has("to")) filter.toPoint = PointArg(args, "to");
    filter.takenFrom = TimeArg(args, "taken-after");
    filter.takenTo = TimeArg(args, "taken-before");
    filter.minSize = SizeArg(args, "min-size");
    filter.maxSize = SizeArg(args, "max-size");
    filter.modifiedFrom = TimeArg(args, "newer");
    filter.modifiedTo = TimeArg(args, "older");
    return filter;
}

int WriteVersions(const std::vector<TVersion>& list, const TArgs& args, TContext& ctx) {
    const bool json = args.Has("json");
    for (const auto& v : list) json ? WriteVersionJson(ctx.out, v) : WriteVersionText(ctx.out, v);
    return list.empty() ? 1 : 0;
}

}  // namespace

std::unique_ptr<IConnection> OpenDb(const TArgs& args, bool create) {
    const std::string* given = args.Get("db");
    return OpenDatabase(given ? *given : DefaultDatabase(), create);
}

int RunSearch(const TArgs& args, TContext& ctx) {
    const auto db = OpenDb(args);
    CCatalogue catalogue(*db);
    return WriteVersions(catalogue.Search(util::Utf8ToUtf16(args.positional[0]), FilterArgs(args)), args, ctx);
}

int RunVersions(const TArgs& args, TContext& ctx) {
    const auto db = OpenDb(args);
    CCatalogue catalogue(*db);
    const auto list = catalogue.Versions(util::Utf8ToUtf16(args.positional[0]), FilterArgs(args));
    if (list.empty()) ctx.err << "ngi-catalogue versions: no entry " << args.positional[0] << " in the catalogue\n";
    return WriteVersions(list, args, ctx);
}

int RunLsAt(const TArgs& args, TContext& ctx) {
    if (args.positional.size() > 1) throw CUsageError("ls --at takes one PATH");
    const auto db = OpenDb(args);
    CCatalogue catalogue(*db);
    const std::u16string path = args.positional.empty() ? u"\\" : util::Utf8ToUtf16(args.positional[0]);
    const auto list = catalogue.Ls(path, PointArg(args, "at"), TextArg(args, "volume"));
    if (args.Has("json")) {
        for (const auto& v : list) WriteVersionJson(ctx.out, v);
        return 0;
    }
    for (const auto& v : list) {
        const char* kind = KindName(v.kind);
        ctx.out << kind << std::string(6 - std::string_view(kind).size(), ' ');
        if (v.kind == EKind::kFile) {
            const std::string size = std::to_string(v.size);
            ctx.out << std::string(size.size() < 14 ? 14 - size.size() : 0, ' ') << size << "  "
                    << IsoTime(v.modified) << "  " << v.owner.Shown();
        }
        ctx.out << "  " << v.volume << v.path << (v.kind == EKind::kDir ? "\\" : "");
        if (v.kind == EKind::kLink) ctx.out << " -> " << v.target;
        ctx.out << "\n";
    }
    return 0;
}

int RunChanges(const TArgs& args, TContext& ctx) {
    const auto db = OpenDb(args);
    CCatalogue catalogue(*db);
    const auto changes = catalogue.Changes(PointArg(args, "from"), PointArg(args, "to"));
    const bool json = args.Has("json");
    uint64_t count[3] = {0, 0, 0};
    for (const auto& c : changes) {
        json ? WriteChangeJson(ctx.out, c) : WriteChangeText(ctx.out, c);
        ++count[c.what];
    }
    if (!json)
        ctx.out << "# " << count[TChange::kAdded] << " added, " << count[TChange::kRemoved] << " removed, "
                << count[TChange::kChanged] << " changed\n";
    return 0;
}

int RunMachines(const TArgs& args, TContext& ctx) {
    const auto db = OpenDb(args);
    for (const auto& m : CCatalogue(*db).Machines()) {
        if (args.Has("json")) {
            WriteMachineJson(ctx.out, m);
            continue;
        }
        ctx.out << m.name << "  " << m.points << " restore points";
        if (m.points) ctx.out << ", " << IsoTime(m.firstTaken) << " to " << IsoTime(m.lastTaken);
        ctx.out << "\n";
    }
    return 0;
}

int RunPoints(const TArgs& args, TContext& ctx) {
    const auto db = OpenDb(args);
    for (const auto& p : CCatalogue(*db).Points(TextArg(args, "machine"))) {
        if (args.Has("json")) {
            WritePointJson(ctx.out, p);
            continue;
        }
        ctx.out << std::to_string(p.id) << "  " << p.machine << "  " << IsoTime(p.taken, true) << "  ";
        for (size_t i = 0; i < p.volumes.size(); ++i) ctx.out << (i ? "," : "") << p.volumes[i];
        ctx.out << "  " << p.files << " files  " << p.source << "\n";
    }
    return 0;
}

int RunForget(const TArgs& args, TContext& ctx) {
    const auto db = OpenDb(args);
    CCatalogue catalogue(*db);
    TArgs point;
    point.options["at"] = args.positional[0];
    const int64_t id = PointArg(point, "at");
    const TPointInfo info = catalogue.Point(id);
    const uint64_t removed = catalogue.Forget(id);
    ctx.out << "forgot restore point " << std::to_string(id) << " of " << info.machine << ", taken "
            << IsoTime(info.taken, true) << "; " << removed << " versions only it held were removed\n";
    return 0;
}

}  // namespace catalogue
