// find FILE PATTERN [bounds]: one pass over the directory rows held in
// memory, then the file and reparse rows streamed from the file; a row's
// path is built only when its name matches.

#include <optional>

#include "base/utf.h"
#include "catalogue/cmd/commands.h"
#include "catalogue/model/glob.h"
#include "catalogue/model/values.h"
#include "catalogue/index/volume_index.h"

namespace catalogue {

namespace {

struct TBounds {
    uint64_t minSize = 0, maxSize = ~uint64_t{0};
    uint64_t newer = 0, older = ~uint64_t{0};  // newer <= time < older
    bool bounded = false;                      // size or time asked: files only
    bool files = true, dirs = true, links = true;
};

TBounds ParseBounds(const TArgs& args) {
    TBounds b;
    auto size = [&](const char* name, uint64_t& into) {
        if (const std::string* text = args.Get(name)) {
            const auto value = ParseSize(*text);
            if (!value) throw CUsageError(std::string("--") + name + " needs a size such as 4096 or 10M");
            into = *value;
            b.bounded = true;
        }
    };
    auto time = [&](const char* name, uint64_t& into) {
        if (const std::string* text = args.Get(name)) {
            const auto value = ParseIsoTime(*text);
            if (!value) throw CUsageError(std::string("--") + name + " needs a time such as 2026-11-21 or 2026-11-21T13:45:00");
            into = *value;
            b.bounded = true;
        }
    };
    size("min-size", b.minSize);
    size("max-size", b.maxSize);
    time("newer", b.newer);
    time("older", b.older);
    if (const std::string* type = args.Get("type")) {
        if (*type != "f" && *type != "d" && *type != "l") throw CUsageError("--type takes f, d or l");
        b.files = *type == "f";
        b.dirs = *type == "d";
        b.links = *type == "l";
    }
    if (b.bounded) b.dirs = b.links = false;
    return b;
}

}  // namespace

int RunFind(const TArgs& args, TContext& ctx) {
    const TBounds bounds = ParseBounds(args);
    const std::u16string pattern = util::Wtf8ToUtf16(args.positional[1]);
    const bool onPath = pattern.find(u'\\') != std::u16string::npos;
    const CGlob glob(pattern);
    // The file rows' stream opens before the folders load (see CVolumeIndex).
    std::optional<idxdata::CTableStream> fileRows;
    CVolumeIndex index(ArgPath(args.positional[0]), [&](const CIfdTables& tables) {
        if (bounds.files) fileRows.emplace(tables.Files());
    });
    CTextOut& out = ctx.out;
    uint64_t found = 0;

    // The name, or with a pattern holding "\", the full path.
    auto matches = [&](uint64_t dir, std::u16string_view name) {
        return onPath ? glob.Match(index.EntryPath(dir, name)) : glob.Match(name);
    };
    if (bounds.dirs) {
        for (uint64_t id = 1; id < index.GetDirCount(); ++id)
            if (matches(index.DirParent(id), index.DirName(id))) {
                out << index.DirPath(id) << "\\\n";
                ++found;
            }
    }
    if (bounds.files) {
        idxdata::CTableStream& files = *fileRows;
        // Most names are refused: that part stays small enough to be
        // inlined into the row loop, the rest is out of it.
        auto report = [&](uint64_t dir, std::u16string_view name) {
            if (bounds.bounded) {
                const uint64_t size = files.Qword(kFileSize), time = files.Qword(kFileTime);
                if (size < bounds.minSize || size > bounds.maxSize || time < bounds.newer || time >= bounds.older)
                    return;
            }
            out << index.EntryPath(dir, name) << "\n";
            ++found;
        };
        files.ForEachRow([&] {
            const uint64_t dir = files.Qword(kFileParent);
            index.CheckParent(files, dir);
            const std::u16string_view name = files.String(kFileName);
            if (matches(dir, name)) report(dir, name);
        });
    }
    if (bounds.links && index.Tables().HasReparses()) {
        idxdata::CTableStream links = index.Tables().Reparses();
        while (links.Next()) {
            const uint64_t dir = links.Qword(kReparseParent);
            index.CheckParent(links, dir);
            const std::u16string_view name = links.String(kReparseName);
            if (!matches(dir, name)) continue;
            out << index.EntryPath(dir, name) << " -> " << links.String(kReparseTarget) << "\n";
            ++found;
        }
    }
    return found ? 0 : 1;
}

}  // namespace catalogue
