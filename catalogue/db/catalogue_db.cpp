#include "catalogue/db/catalogue_db.h"

#include <algorithm>
#include <set>

#include "base/case.h"
#include "base/exc.h"
#include "base/utf.h"
#include "catalogue/db/name_lookup.h"
#include "catalogue/db/schema.h"
#include "catalogue/model/search_pattern.h"

namespace catalogue {

struct CCatalogue::TRow {
    int64_t volume = 0, folder = 0, name = 0;
    EKind kind = EKind::kFile;
    int64_t first = 0, last = -1;  // -1: open
    uint64_t size = 0, modified = 0;
    int64_t owner = 0;
    std::u16string target, nameText;
    bool Holds(int64_t point) const { return first <= point && (last == -1 || last >= point); }
};

namespace {

std::string Utf8(std::u16string_view text) { return util::Utf16ToUtf8(text); }

bool SameFolded(std::u16string_view a, std::u16string_view b) {
    return a.size() == b.size() && util::ToUpper(a) == util::ToUpper(b);
}

[[noreturn]] void NoPoint(int64_t id) { throw CExc(util::Utf8ToUtf16("no restore point " + std::to_string(id))); }

std::u16string Joined(const std::u16string& folder, std::u16string_view name) {
    return folder + u"\\" + std::u16string(name);
}

}  // namespace

TUserPath SplitUserPath(std::u16string_view path) {
    TUserPath split;
    if (path.size() >= 2 && path[1] == u':') {
        split.volume = std::u16string(path.substr(0, 2));
        path.remove_prefix(2);
    }
    std::u16string name;
    for (char16_t c : path) {
        if (c == u'\\' || c == u'/') {
            if (!name.empty()) split.names.push_back(std::move(name));
            name.clear();
        } else {
            name.push_back(c);
        }
    }
    if (!name.empty()) split.names.push_back(std::move(name));
    return split;
}

CCatalogue::CCatalogue(IConnection& db) : m_Db(db) { _Load(); }

void CCatalogue::_Load() {
    std::map<int64_t, std::u16string> machines;
    auto m = m_Db.Prepare("SELECT id, name FROM machines");
    while (m->Step()) machines[m->Int(0)] = util::Utf8ToUtf16(m->Text(1));
    auto v = m_Db.Prepare("SELECT id, machine, name FROM volumes");
    while (v->Step()) m_Volumes[v->Int(0)] = {v->Int(1), machines[v->Int(1)], util::Utf8ToUtf16(v->Text(2)), {}};
    auto p = m_Db.Prepare("SELECT id, machine, taken, source, files FROM points");
    while (p->Step()) {
        TPointInfo& point = m_Points[p->Int(0)];
        point.id = p->Int(0);
        point.machine = machines[p->Int(1)];
        point.taken = static_cast<uint64_t>(p->Int(2));
        point.source = util::Utf8ToUtf16(p->Text(3));
        point.files = static_cast<uint64_t>(p->Int(4));
    }
    auto pv = m_Db.Prepare("SELECT volume, point FROM point_volumes ORDER BY point, volume");
    while (pv->Step()) {
        TVolumeInfo& volume = m_Volumes[pv->Int(0)];
        volume.points.push_back(pv->Int(1));
        m_Points[pv->Int(1)].volumes.push_back(volume.name);
    }
}

const TPointInfo& CCatalogue::Point(int64_t id) const {
    const auto it = m_Points.find(id);
    if (it == m_Points.end()) NoPoint(id);
    return it->second;
}

std::vector<TMachineInfo> CCatalogue::Machines() const {
    std::map<std::u16string, TMachineInfo> byName;
    auto m = m_Db.Prepare("SELECT name FROM machines");
    while (m->Step()) {
        const std::u16string name = util::Utf8ToUtf16(m->Text(0));
        byName[name].name = name;
    }
    for (const auto& [id, point] : m_Points) {
        TMachineInfo& info = byName[point.machine];
        info.firstTaken = info.points ? std::min(info.firstTaken, point.taken) : point.taken;
        info.lastTaken = std::max(info.lastTaken, point.taken);
        ++info.points;
    }
    std::vector<TMachineInfo> list;
    for (auto& [name, info] : byName) list.push_back(std::move(info));
    return list;
}

std::vector<TPointInfo> CCatalogue::Points(const std::optional<std::u16string>& machine) const {
    std::vector<TPointInfo> list;
    for (const auto& [id, point] : m_Points)
        if (!machine || SameFolded(*machine, point.machine)) list.push_back(point);
    std::stable_sort(list.begin(), list.end(), [](const TPointInfo& a, const TPointInfo& b) {
        return a.machine != b.machine ? a.machine < b.machine : a.taken < b.taken;
    });
    return list;
}

std::string CCatalogue::_RowSql(const std::string& where) const {
    return "SELECT v.volume, v.folder, v.name, v.kind, v.first, v.last, v.size, v.modified, v.owner, v.target, "
           "n.name, n.exact FROM versions v JOIN names n ON n.id = v.name WHERE " +
           where;
}

CCatalogue::TRow CCatalogue::_ReadRow(IStatement& s) const {
    TRow row;
    row.volume = s.Int(0);
    row.folder = s.Int(1);
    row.name = s.Int(2);
    row.kind = static_cast<EKind>(s.Int(3));
    row.first = s.Int(4);
    row.last = s.IsNull(5) ? -1 : s.Int(5);
    row.size = static_cast<uint64_t>(s.Int(6));
    row.modified = static_cast<uint64_t>(s.Int(7));
    row.owner = s.Int(8);
    if (!s.IsNull(9)) row.target = util::Utf8ToUtf16(s.Text(9));
    row.nameText = StoredName(s, 10);
    return row;
}

std::vector<int64_t> CCatalogue::_VolumesFor(const TSearchFilter& filter) const {
    std::vector<int64_t> ids;
    for (const auto& [id, volume] : m_Volumes)
        if ((!filter.machine || SameFolded(*filter.machine, volume.machine)) &&
            (!filter.volume || SameFolded(*filter.volume, volume.name)))
            ids.push_back(id);
    return ids;
}

std::u16string CCatalogue::_FolderPath(int64_t folder) {
    // Built from the top down: the chain is followed up to the root or a
    // folder whose path is known, then filled in on the way back.
    std::vector<std::pair<int64_t, std::u16string>> chain;
    if (!m_FolderUp)
        m_FolderUp = m_Db.Prepare("SELECT f.parent, n.name, n.exact FROM folders f LEFT JOIN names n ON n.id = f.name "
                                    "WHERE f.id = ?");
    IStatement* up = m_FolderUp.get();
    int64_t at = folder;
    std::u16string path;
    for (size_t depth = 0;; ++depth) {
        const auto known = m_FolderPaths.find(at);
        if (known != m_FolderPaths.end()) {
            path = known->second;
            break;
        }
        up->Reset();
        up->Bind(1, at);
        if (!up->Step() || up->Int(0) == 0 || depth > 10000) {  // the root (or a lost chain)
            m_FolderPaths[at] = path = u"";
            break;
        }
        chain.emplace_back(at, StoredName(*up, 1));
        at = up->Int(0);
    }
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) m_FolderPaths[it->first] = path = Joined(path, it->second);
    return path;
}

const TOwnerInfo& CCatalogue::_Owner(int64_t id) {
    const auto it = m_Owners.find(id);
    if (it != m_Owners.end()) return it->second;
    TOwnerInfo& owner = m_Owners[id];
    auto s = m_Db.Prepare("SELECT sid, account FROM owners WHERE id = ?");
    s->Bind(1, id);
    if (s->Step()) {
        owner.sid = util::Utf8ToUtf16(s->Text(0));
        owner.account = util::Utf8ToUtf16(s->Text(1));
    }
    return owner;
}

std::optional<TVersion> CCatalogue::_Version(const TRow& row, const TSearchFilter* filter) {
    const TVolumeInfo& volume = m_Volumes[row.volume];
    TVersion v;
    for (int64_t point : volume.points)
        if (row.Holds(point)) v.points.push_back(point);
    if (filter) {
        if (filter->kind && *filter->kind != row.kind) return std::nullopt;
        const bool bounds = filter->minSize || filter->maxSize || filter->modifiedFrom || filter->modifiedTo;
        if (bounds && row.kind != EKind::kFile) return std::nullopt;
        if ((filter->minSize && row.size < *filter->minSize) || (filter->maxSize && row.size > *filter->maxSize))
            return std::nullopt;
        if ((filter->modifiedFrom && row.modified < *filter->modifiedFrom) ||
            (filter->modifiedTo && row.modified >= *filter->modifiedTo))
            return std::nullopt;
        if (filter->owner) {
            if (row.kind != EKind::kFile) return std::nullopt;
            const TOwnerInfo& owner = _Owner(row.owner);
            if (!SameFolded(*filter->owner, owner.account) && !SameFolded(*filter->owner, owner.sid))
                return std::nullopt;
        }
        if (filter->fromPoint || filter->toPoint || filter->takenFrom || filter->takenTo) {
            std::erase_if(v.points, [&](int64_t id) {
                const uint64_t taken = m_Points[id].taken;
                return (filter->fromPoint && id < *filter->fromPoint) || (filter->toPoint && id > *filter->toPoint) ||
                       (filter->takenFrom && taken < *filter->takenFrom) || (filter->takenTo && taken > *filter->takenTo);
            });
            if (v.points.empty()) return std::nullopt;
        }
    }
    v.machine = volume.machine;
    v.volume = volume.name;
    v.path = Joined(_FolderPath(row.folder), row.nameText);
    v.kind = row.kind;
    if (row.kind == EKind::kFile) {
        v.size = row.size;
        v.modified = row.modified;
        v.owner = _Owner(row.owner);
    }
    v.target = row.target;
    return v;
}

namespace {

void SortVersions(std::vector<TVersion>& list) {
    // Each path folded once, not at each comparison.
    std::vector<std::u16string> folded;
    folded.reserve(list.size());
    for (const auto& v : list) folded.push_back(util::ToUpper(v.path));
    std::vector<size_t> order(list.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [&](size_t x, size_t y) {
        const TVersion &a = list[x], &b = list[y];
        if (a.machine != b.machine) return a.machine < b.machine;
        if (a.volume != b.volume) return a.volume < b.volume;
        if (a.path != b.path) return folded[x] != folded[y] ? folded[x] < folded[y] : a.path < b.path;
        if (a.kind != b.kind) return a.kind < b.kind;
        return (a.points.empty() ? 0 : a.points[0]) < (b.points.empty() ? 0 : b.points[0]);
    });
    std::vector<TVersion> sorted;
    sorted.reserve(list.size());
    for (size_t i : order) sorted.push_back(std::move(list[i]));
    list = std::move(sorted);
}

}  // namespace

std::vector<TVersion> CCatalogue::Search(std::u16string_view pattern, const TSearchFilter& filter, size_t atMost) {
    const CSearchPattern plan(pattern);
    const std::vector<int64_t> volumeIds = _VolumesFor(filter);
    const std::set<int64_t> volumes(volumeIds.begin(), volumeIds.end());
    std::vector<TVersion> found;
    auto take = [&](const TRow& row) {
        if (!volumes.count(row.volume)) return;
        std::optional<TVersion> v = _Version(row, &filter);
        if (!v || (plan.MatchesPath() && !plan.Match(v->path))) return;
        if (found.size() == atMost)
            throw CTooManyResults("more than " + std::to_string(atMost) + " versions match");
        found.push_back(std::move(*v));
    };
    if (plan.MatchesPath() && plan.Piece().empty()) {
        // Nothing narrows a contained path: every version of the volumes.
        auto all = m_Db.Prepare(_RowSql("v.volume = ?"));
        for (int64_t volume : volumeIds) {
            all->Reset();
            all->Bind(1, volume);
            while (all->Step()) take(_ReadRow(*all));
        }
    } else {
        // The names first (through the name index when there is a piece),
        // then the versions of each name through versions_by_name.
        std::vector<int64_t> names;
        std::unique_ptr<IStatement> candidates;
        if (!plan.Piece().empty()) {
            candidates = m_Db.Prepare(DialectSql(m_Db.Dialect()).namesHolding);
            candidates->Bind(1, NamesHoldingQuery(m_Db, plan.Piece()));
        } else {
            candidates = m_Db.Prepare("SELECT id, name, exact FROM names");
        }
        while (candidates->Step()) {
            const std::u16string name = StoredName(*candidates, 1);
            if (plan.MatchesPath() ? util::ToUpper(name).find(plan.Piece()) != std::u16string::npos : plan.Match(name))
                names.push_back(candidates->Int(0));
        }
        auto byName = m_Db.Prepare(_RowSql("v.name = ?"));
        for (int64_t name : names) {
            byName->Reset();
            byName->Bind(1, name);
            while (byName->Step()) take(_ReadRow(*byName));
        }
    }
    SortVersions(found);
    return found;
}

std::vector<int64_t> CCatalogue::_Folders(int64_t volume, const std::vector<std::u16string>& names) {
    std::vector<int64_t> at;
    {
        auto root = m_Db.Prepare("SELECT id FROM folders WHERE volume = ? AND parent = 0 AND name = 0");
        root->Bind(1, volume);
        if (root->Step()) at.push_back(root->Int(0));
    }
    auto children =
        m_Db.Prepare("SELECT f.id, n.name, n.exact FROM folders f JOIN names n ON n.id = f.name "
                     "WHERE f.volume = ? AND f.parent = ?");
    for (const auto& name : names) {
        std::vector<int64_t> next;
        for (int64_t folder : at) {
            children->Reset();
            children->Bind(1, volume);
            children->Bind(2, folder);
            while (children->Step())
                if (SameFolded(StoredName(*children, 1), name)) next.push_back(children->Int(0));
        }
        at = std::move(next);
    }
    return at;
}

std::vector<TVersion> CCatalogue::Versions(std::u16string_view path, const TSearchFilter& filter) {
    const TUserPath split = SplitUserPath(path);
    if (split.names.empty()) throw CExc(u"the root of a volume has no versions of its own; give a path below it");
    TSearchFilter kept = filter;
    if (split.volume) kept.volume = split.volume;
    const std::vector<std::u16string> parents(split.names.begin(), split.names.end() - 1);
    auto inFolder = m_Db.Prepare(_RowSql("v.volume = ? AND v.folder = ?"));
    std::vector<TVersion> found;
    for (int64_t volume : _VolumesFor(kept)) {
        for (int64_t folder : _Folders(volume, parents)) {
            inFolder->Reset();
            inFolder->Bind(1, volume);
            inFolder->Bind(2, folder);
            while (inFolder->Step()) {
                const TRow row = _ReadRow(*inFolder);
                if (!SameFolded(row.nameText, split.names.back())) continue;
                if (auto v = _Version(row, &kept)) found.push_back(std::move(*v));
            }
        }
    }
    SortVersions(found);
    return found;
}

std::vector<TVersion> CCatalogue::Ls(std::u16string_view path, int64_t point,
                                     const std::optional<std::u16string>& volume) {
    Point(point);
    const TUserPath split = SplitUserPath(path);
    const std::optional<std::u16string> onVolume = split.volume ? split.volume : volume;
    auto inFolder = m_Db.Prepare(_RowSql("v.volume = ? AND v.folder = ? AND v.first <= ? AND (v.last IS NULL OR v.last >= ?)"));
    std::vector<TVersion> found;
    bool anyFolder = false;
    for (const auto& [id, info] : m_Volumes) {
        if (!std::binary_search(info.points.begin(), info.points.end(), point)) continue;
        if (onVolume && !SameFolded(*onVolume, info.name)) continue;
        std::vector<int64_t> folders = _Folders(id, split.names);
        for (int64_t folder : folders) {
            std::vector<TVersion> entries;
            inFolder->Reset();
            inFolder->Bind(1, id);
            inFolder->Bind(2, folder);
            inFolder->Bind(3, point);
            inFolder->Bind(4, point);
            while (inFolder->Step())
                if (auto v = _Version(_ReadRow(*inFolder), nullptr)) entries.push_back(std::move(*v));
            // A folder is in the point when it has entries there or is an
            // entry of its parent there (the root always is).
            bool there = !entries.empty() || split.names.empty();
            if (!there) {
                std::u16string selfPath = info.name;
                for (const auto& name : split.names) selfPath += u"\\" + name;
                std::vector<TVersion> self = Versions(selfPath, TSearchFilter{});
                for (const auto& v : self)
                    there |= v.kind == EKind::kDir && std::count(v.points.begin(), v.points.end(), point) > 0;
            }
            anyFolder |= there;
            std::sort(entries.begin(), entries.end(), [](const TVersion& a, const TVersion& b) {
                if (a.kind != b.kind) return a.kind < b.kind;
                const std::u16string fa = util::ToUpper(a.path), fb = util::ToUpper(b.path);
                return fa != fb ? fa < fb : a.path < b.path;
            });
            for (auto& v : entries) found.push_back(std::move(v));
        }
    }
    if (!anyFolder)
        throw CExc(util::Utf8ToUtf16("restore point " + std::to_string(point) + " has no folder " +
                                     Utf8(path.empty() ? u"\\" : path)));
    return found;
}

std::vector<CCatalogue::TRow> CCatalogue::_RowsAt(int64_t volume, int64_t point) {
    std::vector<TRow> rows;
    if (!std::binary_search(m_Volumes[volume].points.begin(), m_Volumes[volume].points.end(), point)) return rows;
    auto at = m_Db.Prepare(_RowSql("v.volume = ? AND v.first <= ? AND (v.last IS NULL OR v.last >= ?)"));
    at->Bind(1, volume);
    at->Bind(2, point);
    at->Bind(3, point);
    while (at->Step()) rows.push_back(_ReadRow(*at));
    return rows;
}

std::vector<TChange> CCatalogue::Changes(int64_t from, int64_t to) {
    const TPointInfo& a = Point(from);
    const TPointInfo& b = Point(to);
    if (a.machine != b.machine)
        throw CExc(util::Utf8ToUtf16("restore points " + std::to_string(from) + " and " + std::to_string(to) +
                                     " are of different machines (" + Utf8(a.machine) + ", " + Utf8(b.machine) + ")"));
    struct TKeyed {
        const TRow* before = nullptr;
        const TRow* after = nullptr;
    };
    std::vector<TChange> changes;
    for (const auto& [id, volume] : m_Volumes) {
        if (volume.machine != a.machine) continue;
        const std::vector<TRow> before = _RowsAt(id, from), after = _RowsAt(id, to);
        std::map<std::tuple<int64_t, int64_t, int>, TKeyed> keyed;
        for (const auto& row : before) keyed[{row.folder, row.name, static_cast<int>(row.kind)}].before = &row;
        for (const auto& row : after) keyed[{row.folder, row.name, static_cast<int>(row.kind)}].after = &row;
        auto side = [&](const TRow& row) {
            TSide s;
            s.size = row.size;
            s.modified = row.modified;
            if (row.kind == EKind::kFile) s.owner = _Owner(row.owner);
            s.target = row.target;
            return s;
        };
        for (const auto& [key, pair] : keyed) {
            TChange change;
            const TRow& any = pair.after ? *pair.after : *pair.before;
            if (pair.before && pair.after) {
                const TRow &x = *pair.before, &y = *pair.after;
                if (x.first == y.first) continue;  // the same version
                if (x.size == y.size && x.modified == y.modified && x.target == y.target &&
                    (x.owner == y.owner || _Owner(x.owner).sid == _Owner(y.owner).sid))
                    continue;  // the owner's account alone changed: not a change
                change.what = TChange::kChanged;
                change.before = side(x);
                change.after = side(y);
            } else if (pair.after) {
                change.what = TChange::kAdded;
                change.after = side(*pair.after);
            } else {
                change.what = TChange::kRemoved;
                change.before = side(*pair.before);
            }
            change.volume = volume.name;
            change.path = Joined(_FolderPath(any.folder), any.nameText);
            change.kind = any.kind;
            changes.push_back(std::move(change));
        }
    }
    std::sort(changes.begin(), changes.end(), [](const TChange& x, const TChange& y) {
        if (x.volume != y.volume) return x.volume < y.volume;
        const std::u16string fx = util::ToUpper(x.path), fy = util::ToUpper(y.path);
        if (fx != fy) return fx < fy;
        return x.kind < y.kind;
    });
    return changes;
}

uint64_t CCatalogue::Forget(int64_t point) {
    Point(point);
    uint64_t removed = 0;
    CTransaction transaction(m_Db);
    auto held = m_Db.Prepare(
        "SELECT folder, name, kind, first, last FROM versions "
        "WHERE volume = ? AND first <= ? AND (last IS NULL OR last >= ?)");
    auto drop = m_Db.Prepare("DELETE FROM versions WHERE volume = ? AND folder = ? AND name = ? AND kind = ? AND first = ?");
    for (auto& [id, volume] : m_Volumes) {
        if (!std::binary_search(volume.points.begin(), volume.points.end(), point)) continue;
        std::vector<int64_t> rest = volume.points;
        std::erase(rest, point);
        held->Reset();
        held->Bind(1, id);
        held->Bind(2, point);
        held->Bind(3, point);
        std::vector<std::tuple<int64_t, int64_t, int64_t, int64_t>> gone;
        while (held->Step()) {
            const int64_t first = held->Int(3), last = held->IsNull(4) ? INT64_MAX : held->Int(4);
            const auto next = std::lower_bound(rest.begin(), rest.end(), first);
            if (next == rest.end() || *next > last)
                gone.emplace_back(held->Int(0), held->Int(1), held->Int(2), first);
        }
        for (const auto& [folder, name, kind, first] : gone) {
            drop->Reset();
            drop->Bind(1, id);
            drop->Bind(2, folder);
            drop->Bind(3, name);
            drop->Bind(4, kind);
            drop->Bind(5, first);
            drop->Step();
        }
        removed += gone.size();
        volume.points = std::move(rest);
    }
    auto dropVolumes = m_Db.Prepare("DELETE FROM point_volumes WHERE point = ?");
    dropVolumes->Bind(1, point);
    dropVolumes->Step();
    auto dropPoint = m_Db.Prepare("DELETE FROM points WHERE id = ?");
    dropPoint->Bind(1, point);
    dropPoint->Step();
    transaction.Commit();
    m_Points.erase(point);
    return removed;
}

}  // namespace catalogue
