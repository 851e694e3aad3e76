// ls FILE [PATH] and tree FILE [PATH] [--depth N]: the entries of a folder
// (and of the folders below it), from one pass over the file and reparse
// tables that keeps only the rows of the folders listed.

#include <algorithm>
#include <charconv>
#include <map>

#include "base/case.h"
#include "base/utf.h"
#include "catalogue/cmd/commands.h"
#include "catalogue/model/values.h"
#include "catalogue/index/volume_index.h"

namespace catalogue {

namespace {

enum EKind { kDir, kFile, kLink };

struct TEntry {
    EKind kind;
    std::u16string name;
    uint64_t size = 0, time = 0, owner = 0, dirId = 0;
    std::u16string target;
};

// Subfolders, then files, then links; by name without case inside each.
bool EntryLess(const TEntry& a, const TEntry& b) {
    if (a.kind != b.kind) return a.kind < b.kind;
    const int c = util::CompareNoCase(a.name, b.name);
    return c != 0 ? c < 0 : a.name < b.name;
}

// A link to a folder has a folder row and a reparse row of the same name
// (the walk writes both): one entry, the folder's, with the link's target.
void MergeFolderLinks(std::vector<TEntry>& entries) {
    std::map<std::u16string, size_t> folders;
    for (size_t i = 0; i < entries.size(); ++i)
        if (entries[i].kind == kDir) folders[entries[i].name] = i;
    if (folders.empty()) return;
    bool merged = false;
    for (auto& e : entries) {
        if (e.kind != kLink) continue;
        const auto it = folders.find(e.name);
        if (it == folders.end()) continue;
        entries[it->second].target = e.target;
        e.kind = kDir;  // marks the reparse row as merged: removed below
        e.dirId = ~uint64_t{0};
        merged = true;
    }
    if (merged) std::erase_if(entries, [](const TEntry& e) { return e.kind == kDir && e.dirId == ~uint64_t{0}; });
}

// Levels below the listed folder: 0 for the folder itself, -1 outside.
// Parents come before children, so one forward pass suffices.
std::vector<int32_t> Levels(const CVolumeIndex& index, uint64_t top, int32_t maxLevel) {
    std::vector<int32_t> levels(index.GetDirCount(), -1);
    levels[top] = 0;
    for (uint64_t id = top + 1; id < levels.size(); ++id) {
        const int32_t up = levels[index.DirParent(id)];
        if (up >= 0 && up < maxLevel) levels[id] = up + 1;
    }
    return levels;
}

// The entries of every folder whose level is below maxLevel, by folder.
std::map<uint64_t, std::vector<TEntry>> Collect(const CVolumeIndex& index, const std::vector<int32_t>& levels,
                                                int32_t maxLevel) {
    std::map<uint64_t, std::vector<TEntry>> content;
    auto wanted = [&](uint64_t parent) {
        return parent < levels.size() && levels[parent] >= 0 && levels[parent] < maxLevel;
    };
    for (uint64_t id = 1; id < levels.size(); ++id)
        if (wanted(index.DirParent(id)))
            content[index.DirParent(id)].push_back({kDir, std::u16string(index.DirName(id)), 0, 0, 0, id, {}});
    idxdata::CTableStream files = index.Tables().Files();
    while (files.Next()) {
        const uint64_t parent = files.Qword(kFileParent);
        index.CheckParent(files, parent);
        if (!wanted(parent)) continue;
        content[parent].push_back({kFile, std::u16string(files.String(kFileName)), files.Qword(kFileSize),
                                   files.Qword(kFileTime), files.Dword(kFileOwner), 0, {}});
    }
    if (index.Tables().HasReparses()) {
        idxdata::CTableStream links = index.Tables().Reparses();
        while (links.Next()) {
            const uint64_t parent = links.Qword(kReparseParent);
            index.CheckParent(links, parent);
            if (!wanted(parent)) continue;
            content[parent].push_back({kLink, std::u16string(links.String(kReparseName)), 0, 0, 0, 0,
                                       std::u16string(links.String(kReparseTarget))});
        }
    }
    for (auto& [dir, entries] : content) {
        MergeFolderLinks(entries);
        std::sort(entries.begin(), entries.end(), EntryLess);
    }
    return content;
}

void PrintEntry(CTextOut& out, const CVolumeIndex& index, const TEntry& e, size_t indent) {
    char line[96];
    if (e.kind == kFile) {
        const std::string owner = util::Utf16ToUtf8(index.OwnerText(e.owner));
        std::snprintf(line, sizeof line, "file %15llu  %s  %-24s  ", static_cast<unsigned long long>(e.size),
                      IsoTime(e.time).c_str(), owner.c_str());
        out << std::string_view(line);
    } else {
        out << (e.kind == kDir && e.target.empty() ? "dir " : "link") << std::string(16 + 2 + 20 + 2 + 24 + 2, ' ');
    }
    out << std::string(indent, ' ') << e.name;
    if (e.kind == kDir) out << "\\";
    if (!e.target.empty()) out << " -> " << e.target;
    out << "\n";
}

void PrintTree(CTextOut& out, const CVolumeIndex& index, const std::map<uint64_t, std::vector<TEntry>>& content,
               uint64_t top) {
    // An explicit stack: the depth of a tree read from a file is not trusted.
    struct TFrame {
        const std::vector<TEntry>* entries;
        size_t next;
    };
    std::vector<TFrame> stack;
    static const std::vector<TEntry> kNone;
    auto entriesOf = [&](uint64_t dir) {
        const auto it = content.find(dir);
        return it == content.end() ? &kNone : &it->second;
    };
    stack.push_back({entriesOf(top), 0});
    while (!stack.empty()) {
        TFrame& frame = stack.back();
        if (frame.next == frame.entries->size()) {
            stack.pop_back();
            continue;
        }
        const TEntry& e = (*frame.entries)[frame.next++];
        PrintEntry(out, index, e, 2 * (stack.size() - 1));
        if (e.kind == kDir && content.count(e.dirId)) stack.push_back({entriesOf(e.dirId), 0});
    }
}

// The folder asked for, or the failed look-up's message (exit 1).
bool FindTop(const CVolumeIndex& index, const TArgs& args, TContext& ctx, uint64_t& top) {
    const std::u16string path = args.positional.size() > 1 ? util::Wtf8ToUtf16(args.positional[1]) : u"\\";
    const auto found = index.FindDir(path);
    if (!found) {
        ctx.err << "ngi-catalogue: no folder '" << path << "' in " << args.positional[0] << "\n";
        return false;
    }
    top = *found;
    return true;
}

}  // namespace

int RunLs(const TArgs& args, TContext& ctx) {
    if (args.Has("at")) return RunLsAt(args, ctx);
    if (args.Has("json") || args.Has("db") || args.Has("volume")) throw CUsageError("--json, --db and --volume go with --at RP");
    if (args.positional.empty()) throw CUsageError("missing arguments");
    CVolumeIndex index(ArgPath(args.positional[0]));
    uint64_t top = 0;
    if (!FindTop(index, args, ctx, top)) return 1;
    const auto content = Collect(index, Levels(index, top, 1), 1);
    const auto it = content.find(top);
    if (it != content.end())
        for (const auto& e : it->second) PrintEntry(ctx.out, index, e, 0);
    return 0;
}

int RunTree(const TArgs& args, TContext& ctx) {
    int32_t depth = INT32_MAX;
    if (const std::string* text = args.Get("depth")) {
        const auto [end, ec] = std::from_chars(text->data(), text->data() + text->size(), depth);
        if (ec != std::errc() || end != text->data() + text->size() || depth < 1)
            throw CUsageError("--depth needs a whole number of 1 or more");
    }
    CVolumeIndex index(ArgPath(args.positional[0]));
    uint64_t top = 0;
    if (!FindTop(index, args, ctx, top)) return 1;
    const auto content = Collect(index, Levels(index, top, depth), depth);
    ctx.out << index.DirPath(top) << "\n";
    PrintTree(ctx.out, index, content, top);
    return 0;
}

}  // namespace catalogue
