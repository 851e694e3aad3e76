// diff OLD NEW: what was added, removed or changed between two indexes of
// one volume. The old index's entries are held in a hash table by folded
// path (memory grows with the old index's entries); the new index is
// streamed against it.

#include <algorithm>
#include <functional>
#include <unordered_map>

#include "base/case.h"
#include "catalogue/cmd/commands.h"
#include "catalogue/model/values.h"
#include "catalogue/index/volume_index.h"

namespace catalogue {

namespace {

struct TItem {
    char kind;  // 'd', 'f', 'l'
    std::u16string path;
    uint64_t size = 0, time = 0;
    std::u16string owner;   // the SID: owner ids are renumbered from run to run
    std::u16string target;  // of a link
};

// Every entry of an index, folders first, then files, then links.
void ForEachItem(CVolumeIndex& index, const std::function<void(TItem&&)>& visit) {
    for (uint64_t id = 1; id < index.GetDirCount(); ++id) visit({'d', index.DirPath(id), 0, 0, {}, {}});
    idxdata::CTableStream files = index.Tables().Files();
    while (files.Next()) {
        const uint64_t dir = files.Qword(kFileParent);
        index.CheckParent(files, dir);
        const TOwner* owner = index.Owner(files.Dword(kFileOwner));
        visit({'f', index.EntryPath(dir, files.String(kFileName)), files.Qword(kFileSize), files.Qword(kFileTime),
               owner ? owner->sid : std::u16string(), {}});
    }
    if (!index.Tables().HasReparses()) return;
    idxdata::CTableStream links = index.Tables().Reparses();
    while (links.Next()) {
        const uint64_t dir = links.Qword(kReparseParent);
        index.CheckParent(links, dir);
        visit({'l', index.EntryPath(dir, links.String(kReparseName)), 0, 0, {},
               std::u16string(links.String(kReparseTarget))});
    }
}

std::u16string Key(const TItem& item) { return static_cast<char16_t>(item.kind) + util::ToUpper(item.path); }

struct TLine {
    std::u16string key;
    std::string text;
};

std::string Change(const TItem& a, const TItem& b) {
    std::string what;
    auto add = [&](const std::string& part) { what += (what.empty() ? "" : ", ") + part; };
    if (a.size != b.size) add("size " + std::to_string(a.size) + " -> " + std::to_string(b.size));
    if (a.time != b.time) add("time " + IsoTime(a.time, true) + " -> " + IsoTime(b.time, true));
    if (a.owner != b.owner) {
        std::string from, to;
        AppendUtf8(from, a.owner);
        AppendUtf8(to, b.owner);
        add("owner " + from + " -> " + to);
    }
    if (a.target != b.target) {
        std::string from, to;
        AppendUtf8(from, a.target);
        AppendUtf8(to, b.target);
        add("target " + from + " -> " + to);
    }
    return what;
}

std::string Shown(const TItem& item) {
    std::string text;
    AppendUtf8(text, item.path);
    if (item.kind == 'd') text += '\\';
    return text;
}

}  // namespace

int RunDiff(const TArgs& args, TContext& ctx) {
    CVolumeIndex older(ArgPath(args.positional[0]));
    CVolumeIndex newer(ArgPath(args.positional[1]));
    struct TOld {
        TItem item;
        bool seen = false;
    };
    std::unordered_map<std::u16string, TOld> old;
    ForEachItem(older, [&](TItem&& item) {
        std::u16string key = Key(item);
        old.insert_or_assign(std::move(key), TOld{std::move(item)});
    });
    std::vector<TLine> lines;
    uint64_t added = 0, removed = 0, changed = 0;
    ForEachItem(newer, [&](TItem&& item) {
        std::u16string key = Key(item);
        const auto it = old.find(key);
        if (it == old.end()) {
            lines.push_back({std::move(key), "+ " + Shown(item)});
            ++added;
            return;
        }
        it->second.seen = true;
        const std::string what = Change(it->second.item, item);
        if (!what.empty()) {
            lines.push_back({std::move(key), "~ " + Shown(item) + "  " + what});
            ++changed;
        }
    });
    for (auto& [key, entry] : old)
        if (!entry.seen) {
            lines.push_back({key, "- " + Shown(entry.item)});
            ++removed;
        }
    // By path; the kind, the key's first unit, decides last.
    std::sort(lines.begin(), lines.end(), [](const TLine& a, const TLine& b) {
        const std::u16string_view pa = std::u16string_view(a.key).substr(1), pb = std::u16string_view(b.key).substr(1);
        return pa != pb ? pa < pb : a.key < b.key;
    });
    for (const auto& line : lines) ctx.out << line.text << "\n";
    ctx.out << "# " << added << " added, " << removed << " removed, " << changed << " changed\n";
    return 0;
}

}  // namespace catalogue
