// The questions to a catalogue database: search, versions, ls --at,
// changes, machines, points, and forget (db/catalogue_db.h). Each prints
// text for people, or with --json one JSON object a line (answer_out.h).

#include "base/exc.h"
#include "base/utf.h"
#include "catalogue/cmd/commands.h"
#include "catalogue/db/catalogue_db.h"
#include "catalogue/model/answer_out.h"
#include "catalogue/model/query_params.h"
#include "catalogue/model/values.h"

namespace catalogue {

namespace {

// The command line's options as the parameters of a question.
CQueryParams Params(const TArgs& args) {
    return CQueryParams([&args](const std::string& name) { return args.Get(name); },
                        [](const std::string& name) { return "--" + name; });
}

template <class Read>
auto Usage(Read read) {
    try {
        return read();
    } catch (const CBadParameter& e) {
        throw CUsageError(e.what());
    }
}

int64_t PointArg(const TArgs& args, const char* name) {
    return Usage([&] { return Params(args).Point(name); });
}

TSearchFilter FilterArgs(const TArgs& args) {
    return Usage([&] { return Params(args).Filter(); });
}

std::optional<std::u16string> TextArg(const TArgs& args, const char* name) { return Params(args).Text(name); }

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
    return WriteVersions(catalogue.Search(util::Wtf8ToUtf16(args.positional[0]), FilterArgs(args)), args, ctx);
}

int RunVersions(const TArgs& args, TContext& ctx) {
    const auto db = OpenDb(args);
    CCatalogue catalogue(*db);
    const auto list = catalogue.Versions(util::Wtf8ToUtf16(args.positional[0]), FilterArgs(args));
    if (list.empty()) ctx.err << "ngi-catalogue versions: no entry " << args.positional[0] << " in the catalogue\n";
    return WriteVersions(list, args, ctx);
}

int RunLsAt(const TArgs& args, TContext& ctx) {
    if (args.positional.size() > 1) throw CUsageError("ls --at takes one PATH");
    const auto db = OpenDb(args);
    CCatalogue catalogue(*db);
    const std::u16string path = args.positional.empty() ? u"\\" : util::Wtf8ToUtf16(args.positional[0]);
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
