#include "catalogue/db/ingest.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <unordered_map>

#include "base/case.h"
#include "base/exc.h"
#include "base/utf.h"
#include "catalogue/db/batch_insert.h"
#include "catalogue/db/name_ids.h"
#include "catalogue/db/schema.h"
#include "catalogue/index/volume_index.h"
#include "catalogue/model/catalogue_types.h"
#include "catalogue/model/values.h"

namespace catalogue {

namespace {

std::string Utf8(std::u16string_view text) { return util::Utf16ToUtf8(text); }

// Where a version stands in its volume: folder, name, kind.
struct TKey {
    int64_t folder, name;
    EKind kind;
    auto operator<=>(const TKey&) const = default;
};
struct TKeyHash {
    size_t operator()(const TKey& k) const {
        uint64_t h = (static_cast<uint64_t>(k.folder) << 34) ^ (static_cast<uint64_t>(k.name) << 2) ^
                     static_cast<uint64_t>(k.kind);
        h ^= h >> 33;  // a multiply-shift mix: ids in runs spread over the buckets
        h *= 0xFF51AFD7ED558CCDull;
        return static_cast<size_t>(h ^ (h >> 33));
    }
};

// What the previous restore point held at a key.
struct TStanding {
    int64_t first = 0;
    int64_t last = -1;  // -1: open (NULL)
    uint64_t size = 0, modified = 0;
    int64_t owner = 0;
    std::string target;
    bool seen = false;
};

class CIngest {
public:
    CIngest(IConnection& db, const std::function<void(uint64_t)>& progress)
        : m_Db(db), m_Sql(DialectSql(db.Dialect())), m_Progress(progress) {
    }

    TIngestResult Run(const TIngestRun& run);

private:
    int64_t _NextId(const char* table);
    void _LoadHashes();
    void _LoadAllNames();
    uint64_t _StandingRows();
    void _DropIndexes(std::span<const TIndexDef> indexes);
    void _MakeIndexes(std::span<const TIndexDef> indexes);
    int64_t _Machine(const std::u16string& name);
    int64_t _Volume(int64_t machine, const std::u16string& name);
    void _IngestVolume(int64_t volume, CVolumeIndex& index);
    void _LoadPrevious(int64_t volume, int64_t prev);
    int64_t _Name(std::u16string_view name);
    void _Flush() {
        m_NewVersions.Flush();
        m_NewNames.Flush();
        m_NewFolders.Flush();
        if (m_Sql.indexNewNames && m_NextName > m_FirstNewName) {
            // FTS5 holds up to 4 MiB of new trigrams before it writes them out
            // as a segment (1 MiB by default): fewer segments to merge, less
            // time on a million new names, a smaller index (and more time
            // than 1 MiB where the names are long; above 4 MiB, more time on
            // both). It holds them for this statement only.
            m_Db.Exec("INSERT INTO name_grams(name_grams, rank) VALUES('hashsize', 4194304)");
            auto index = m_Db.Prepare(m_Sql.indexNewNames);
            index->Bind(1, m_FirstNewName);
            index->Step();
        }
    }
    int64_t _Owner(const TOwner* owner);
    int64_t _OwnerRow(const TOwner& owner);
    int64_t _Folder(int64_t volume, int64_t parent, int64_t name);
    void _Visit(int64_t volume, const TKey& key, uint64_t size, uint64_t modified, int64_t owner,
                std::u16string_view target);
    void _Insert(int64_t volume, const TKey& key, const TStanding& v);
    void _Close(int64_t volume, const TKey& key, const TStanding& v, int64_t last);
    void _Tick() {
        if (++m_Result.rows % 65536 == 0 && m_Progress) m_Progress(m_Result.rows);
    }
    std::unique_ptr<IStatement>& _Stmt(std::unique_ptr<IStatement>& s, const char* sql) {
        if (!s) s = m_Db.Prepare(sql);
        s->Reset();
        return s;
    }

    IConnection& m_Db;
    const TDialectSql& m_Sql;
    std::function<void(uint64_t)> m_Progress;
    TIngestResult m_Result;
    int64_t m_Point = 0, m_Prev = 0;  // m_Prev 0: the volume's first point
    int64_t m_NextName = 0, m_NextFolder = 0, m_FirstNewName = 0;

    CNameIds m_Names;
    static constexpr int64_t kMaxHashes = 16 << 20;  // 64 MiB of hashes
    std::vector<int32_t> m_Hashes;  // sorted; names added by this ingest are in m_Names
    bool m_HashesLoaded = false;
    bool m_AllNames = false;  // every name of the catalogue is in m_Names
    bool m_Bulk = false;  // versions' indexes made after the rows
    std::unordered_map<std::string, int64_t> m_Owners;  // sid NUL account
    std::unordered_map<const TOwner*, int64_t> m_OwnerOf;  // an index's owner rows
    std::unordered_map<TKey, int64_t, TKeyHash> m_Folders;  // (parent, name) -> id of the volume
    // What the previous point held, sorted by key: one flat array, read in
    // the order of the versions' own key, found by a binary search.
    std::vector<std::pair<TKey, TStanding>> m_State;

    // New rows, written many to a statement; flushed before the commit.
    CBatchInsert m_NewVersions{m_Db,
                               "INSERT INTO versions(volume, folder, name, kind, first, last, size, modified, owner, "
                               "target) VALUES",
                               10, 256, " ON CONFLICT DO NOTHING"};
    CBatchInsert m_NewNames{m_Db, m_Sql.insertName, m_Db.Dialect() == EDialect::kPostgres ? 5 : 4};
    CBatchInsert m_NewFolders{m_Db, "INSERT INTO folders(id, volume, parent, name) VALUES", 4};
    std::unique_ptr<IStatement> m_FindName, m_CloseVersion,
        m_ReopenVersion, m_AddOwner;
};

TIngestResult CIngest::Run(const TIngestRun& run) {
    // The indexes first: a file that can't be opened or whose headers or
    // folders are damaged is refused before anything is written.
    std::vector<std::unique_ptr<CVolumeIndex>> indexes;
    for (const auto& volume : run.volumes) indexes.push_back(std::make_unique<CVolumeIndex>(volume.indexFile));

    CTransaction transaction(m_Db);
    if (m_Sql.lockIngest) m_Db.Exec(m_Sql.lockIngest);
    uint64_t entries = 0;
    for (const auto& index : indexes) entries += index->Tables().GetFileCount() + index->GetDirCount();
    m_Names.Reserve(entries);
    m_FirstNewName = m_NextName = _NextId("names");
    // A run that brings more than twice the entries the catalogue's volumes
    // hold (the first of a catalogue, or of a large machine in a small one):
    // the secondary indexes are made again after its rows, and every name is
    // looked up in memory when there are not more names than entries. The
    // next point of a volume brings about as many as it holds: row by row.
    m_Bulk = 2 * _StandingRows() < entries;
    if (m_Bulk && static_cast<uint64_t>(m_NextName - 1) <= entries) {
        _LoadAllNames();
        _DropIndexes(NameIndexes(m_Db.Dialect()));
    } else {
        _LoadHashes();
    }
    if (m_Bulk) _DropIndexes(VersionIndexes(m_Db.Dialect()));
    m_NextFolder = _NextId("folders");
    const int64_t machine = _Machine(run.machine);
    {
        auto latest = m_Db.Prepare("SELECT id, taken FROM points WHERE machine = ? ORDER BY taken DESC LIMIT 1");
        latest->Bind(1, machine);
        if (latest->Step()) {
            const auto taken = static_cast<uint64_t>(latest->Int(1));
            const std::string text = Utf8(run.machine);
            if (taken == run.taken)
                throw CExc(util::Utf8ToUtf16("machine " + text + " already has a restore point taken at " +
                                             IsoTime(taken, true) + " (id " + std::to_string(latest->Int(0)) + ")"));
            if (taken > run.taken)
                throw CExc(util::Utf8ToUtf16(
                    "machine " + text + " has a later restore point (id " + std::to_string(latest->Int(0)) +
                    ", taken " + IsoTime(taken, true) + ") than " + IsoTime(run.taken, true) +
                    ": restore points of a machine are ingested in the order they were taken"));
        }
    }
    auto addPoint = m_Db.Prepare("INSERT INTO points(machine, taken, source, files) VALUES(?, ?, ?, 0) RETURNING id");
    addPoint->Bind(1, machine);
    addPoint->Bind(2, static_cast<int64_t>(run.taken));
    addPoint->Bind(3, Utf8(run.source));
    addPoint->Step();
    m_Point = addPoint->Int(0);
    m_Result.point = m_Point;
    addPoint.reset();

    {  // every owner: few rows, asked for by every file
        auto owners = m_Db.Prepare("SELECT id, sid, account FROM owners");
        while (owners->Step()) m_Owners[owners->Text(1) + '\0' + owners->Text(2)] = owners->Int(0);
    }
    uint64_t files = 0;
    auto addPointVolume = m_Db.Prepare("INSERT INTO point_volumes(volume, point, files) VALUES(?, ?, ?)");
    for (size_t i = 0; i < run.volumes.size(); ++i) {
        const int64_t volume = _Volume(machine, run.volumes[i].name);
        _IngestVolume(volume, *indexes[i]);
        addPointVolume->Reset();
        addPointVolume->Bind(1, volume);
        addPointVolume->Bind(2, m_Point);
        addPointVolume->Bind(3, static_cast<int64_t>(indexes[i]->Tables().GetFileCount()));
        addPointVolume->Step();
        files += indexes[i]->Tables().GetFileCount();
    }
    auto setFiles = m_Db.Prepare("UPDATE points SET files = ? WHERE id = ?");
    setFiles->Bind(1, static_cast<int64_t>(files));
    setFiles->Bind(2, m_Point);
    setFiles->Step();
    _Flush();
    if (m_AllNames) _MakeIndexes(NameIndexes(m_Db.Dialect()));
    if (m_Bulk) _MakeIndexes(VersionIndexes(m_Db.Dialect()));
    transaction.Commit();
    return m_Result;
}

// The hashes of every name, when there are not too many: a name whose hash
// is not among them is new without a look-up (a first ingest asks for
// hardly any name twice).
void CIngest::_LoadHashes() {
    if (m_NextName - 1 > kMaxHashes) return;
    auto hashes = m_Db.Prepare("SELECT hash FROM names ORDER BY hash");
    while (hashes->Step()) m_Hashes.push_back(static_cast<int32_t>(hashes->Int(0)));
    m_HashesLoaded = true;
}

void CIngest::_LoadAllNames() {
    auto names = m_Db.Prepare("SELECT id, name, exact FROM names");
    while (names->Step()) {
        const std::u16string name = StoredName(*names, 1);
        m_Names.Add(name, CNameIds::Hash(name), names->Int(0));
    }
    m_AllNames = true;
}

// About how many versions the catalogue holds: the files of each volume's
// newest point (older versions and folders come on top).
uint64_t CIngest::_StandingRows() {
    auto rows = m_Db.Prepare(
        "SELECT coalesce(sum(files), 0) FROM point_volumes p "
        "WHERE point = (SELECT max(point) FROM point_volumes q WHERE q.volume = p.volume)");
    return rows->Step() ? static_cast<uint64_t>(rows->Int(0)) : 0;
}

void CIngest::_DropIndexes(std::span<const TIndexDef> indexes) {
    for (const auto& index : indexes) m_Db.Exec(std::string("DROP INDEX ") + index.name);
}

void CIngest::_MakeIndexes(std::span<const TIndexDef> indexes) {
    for (const auto& index : indexes) m_Db.Exec(index.create);
}

int64_t CIngest::_NextId(const char* table) {
    auto next = m_Db.Prepare(std::string("SELECT coalesce(max(id), 0) + 1 FROM ") + table);
    next->Step();
    return next->Int(0);
}

int64_t CIngest::_Machine(const std::u16string& name) {
    auto find = m_Db.Prepare("SELECT id FROM machines WHERE name = ?");
    find->Bind(1, Utf8(name));
    if (find->Step()) return find->Int(0);
    auto add = m_Db.Prepare("INSERT INTO machines(name) VALUES(?) RETURNING id");
    add->Bind(1, Utf8(name));
    add->Step();
    return add->Int(0);
}

int64_t CIngest::_Volume(int64_t machine, const std::u16string& name) {
    auto find = m_Db.Prepare("SELECT id FROM volumes WHERE machine = ? AND name = ?");
    find->Bind(1, machine);
    find->Bind(2, Utf8(name));
    if (find->Step()) return find->Int(0);
    auto add = m_Db.Prepare("INSERT INTO volumes(machine, name) VALUES(?, ?) RETURNING id");
    add->Bind(1, machine);
    add->Bind(2, Utf8(name));
    add->Step();
    return add->Int(0);
}

// The versions the volume's previous point held, with their names (so that
// the names of unchanged entries need no look-up), and the volume's folders.
void CIngest::_LoadPrevious(int64_t volume, int64_t prev) {
    m_State.clear();
    m_Folders.clear();
    auto folders = m_Db.Prepare("SELECT id, parent, name FROM folders WHERE volume = ?");
    folders->Bind(1, volume);
    while (folders->Step()) m_Folders[TKey{folders->Int(1), folders->Int(2), EKind::kDir}] = folders->Int(0);
    if (!prev) return;
    {
        auto count = m_Db.Prepare("SELECT files FROM point_volumes WHERE volume = ? AND point = ?");
        count->Bind(1, volume);
        count->Bind(2, prev);
        const auto files = count->Step() ? static_cast<size_t>(count->Int(0)) : 0;
        m_State.reserve(files + m_Folders.size());
    }
    auto state = m_Db.Prepare(
        "SELECT v.folder, v.name, v.kind, v.first, v.last, v.size, v.modified, v.owner, v.target, n.name "
        "FROM versions v JOIN names n ON n.id = v.name "
        "WHERE v.volume = ? AND v.first <= ? AND (v.last IS NULL OR v.last >= ?)");
    state->Bind(1, volume);
    state->Bind(2, prev);
    state->Bind(3, prev);
    while (state->Step()) {
        TStanding v;
        v.first = state->Int(3);
        v.last = state->IsNull(4) ? -1 : state->Int(4);
        v.size = static_cast<uint64_t>(state->Int(5));
        v.modified = static_cast<uint64_t>(state->Int(6));
        v.owner = state->Int(7);
        if (!state->IsNull(8)) v.target = state->Text(8);
        const TKey key{state->Int(0), state->Int(1), static_cast<EKind>(state->Int(2))};
        m_State.emplace_back(key, std::move(v));
        const std::u16string name = util::Utf8ToUtf16(state->Text(9));
        m_Names.Add(name, CNameIds::Hash(name), key.name);
    }
    // In key order already where the database reads its own key in order;
    // one version of a key stands at a point, the first kept if not.
    const auto byKey = [](const auto& a, const auto& b) { return a.first < b.first; };
    if (!std::is_sorted(m_State.begin(), m_State.end(), byKey)) std::stable_sort(m_State.begin(), m_State.end(), byKey);
    m_State.erase(std::unique(m_State.begin(), m_State.end(),
                              [](const auto& a, const auto& b) { return a.first == b.first; }),
                  m_State.end());
}

void CIngest::_IngestVolume(int64_t volume, CVolumeIndex& index) {
    {
        auto prev = m_Db.Prepare("SELECT max(point) FROM point_volumes WHERE volume = ?");
        prev->Bind(1, volume);
        m_Prev = prev->Step() && !prev->IsNull(0) ? prev->Int(0) : 0;
    }
    _LoadPrevious(volume, m_Prev);

    // Folders: the root is the folder (parent 0, name 0); every other row's
    // parent comes before it (CVolumeIndex checked that).
    std::vector<int64_t> folderOf(index.GetDirCount());
    if (!folderOf.empty()) folderOf[0] = _Folder(volume, 0, 0);
    for (uint64_t id = 1; id < index.GetDirCount(); ++id) {
        const int64_t parent = folderOf[index.DirParent(id)];
        const int64_t name = _Name(index.DirName(id));
        folderOf[id] = _Folder(volume, parent, name);
        _Visit(volume, {parent, name, EKind::kDir}, 0, 0, 0, {});
    }
    const CIfdTables& tables = index.Tables();
    idxdata::CTableStream files = tables.Files();
    while (files.Next()) {
        const uint64_t dir = files.Qword(kFileParent);
        index.CheckParent(files, dir);
        const int64_t name = _Name(files.String(kFileName));
        _Visit(volume, {folderOf[dir], name, EKind::kFile}, files.Qword(kFileSize), files.Qword(kFileTime),
               _Owner(index.Owner(files.Dword(kFileOwner))), {});
    }
    if (tables.HasReparses()) {
        idxdata::CTableStream links = tables.Reparses();
        while (links.Next()) {
            const uint64_t dir = links.Qword(kReparseParent);
            index.CheckParent(links, dir);
            const int64_t name = _Name(links.String(kReparseName));
            _Visit(volume, {folderOf[dir], name, EKind::kLink}, 0, 0, 0, links.String(kReparseTarget));
        }
    }
    // What the previous point held and this one does not: closed there.
    for (const auto& [key, v] : m_State)
        if (!v.seen && v.last != m_Prev) {
            _Close(volume, key, v, m_Prev);
            ++m_Result.removed;
        }
}

void CIngest::_Visit(int64_t volume, const TKey& key, uint64_t size, uint64_t modified, int64_t owner,
                     std::u16string_view target) {
    _Tick();
    TStanding now;
    now.first = m_Point;
    now.size = size;
    now.modified = modified;
    now.owner = owner;
    if (key.kind == EKind::kLink) now.target = Utf8(target);
    now.seen = true;
    const auto it = std::lower_bound(m_State.begin(), m_State.end(), key,
                                     [](const auto& standing, const TKey& k) { return standing.first < k; });
    if (it == m_State.end() || it->first != key) {
        // New. Not kept: the same entry twice in one index (two rows of
        // one name in a folder) is the insert's conflict, and the first
        // row stays.
        _Insert(volume, key, now);
        ++m_Result.added;
        return;
    }
    TStanding& was = it->second;
    if (was.seen) return;  // the same entry twice in one index: the first row counts
    was.seen = true;
    if (was.size == now.size && was.modified == now.modified && was.owner == now.owner && was.target == now.target) {
        // Unchanged: it stays open, or opens again where it was closed at
        // a point since forgotten.
        if (was.last != -1) {
            auto& reopen = _Stmt(m_ReopenVersion,
                                 "UPDATE versions SET last = NULL "
                                 "WHERE volume = ? AND folder = ? AND name = ? AND kind = ? AND first = ?");
            reopen->Bind(1, volume);
            reopen->Bind(2, key.folder);
            reopen->Bind(3, key.name);
            reopen->Bind(4, static_cast<int64_t>(key.kind));
            reopen->Bind(5, was.first);
            reopen->Step();
        }
        return;
    }
    _Close(volume, key, was, m_Prev);
    _Insert(volume, key, now);
    ++m_Result.changed;
}

void CIngest::_Insert(int64_t volume, const TKey& key, const TStanding& v) {
    m_NewVersions.Add(volume, key.folder, key.name, static_cast<int64_t>(key.kind), v.first, std::monostate(),
                      static_cast<int64_t>(v.size), static_cast<int64_t>(v.modified), v.owner,
                      key.kind == EKind::kLink ? CBatchInsert::TValue(v.target) : std::monostate());
}

void CIngest::_Close(int64_t volume, const TKey& key, const TStanding& v, int64_t last) {
    auto& close = _Stmt(m_CloseVersion,
                        "UPDATE versions SET last = ? "
                        "WHERE volume = ? AND folder = ? AND name = ? AND kind = ? AND first = ?");
    close->Bind(1, last);
    close->Bind(2, volume);
    close->Bind(3, key.folder);
    close->Bind(4, key.name);
    close->Bind(5, static_cast<int64_t>(key.kind));
    close->Bind(6, v.first);
    close->Step();
}

int64_t CIngest::_Name(std::u16string_view name) {
    const uint64_t known = CNameIds::Hash(name);
    if (const int64_t id = m_Names.Find(name, known)) return id;
    // The hash is of the UTF-8 column, where damaged names that differ only
    // in their lone surrogates are alike: the exact column tells them apart.
    std::string utf8 = Utf8(name);
    std::string exact = ExactName(name);
    const int32_t hash = NameHash(utf8);
    int64_t id = 0;
    if (!m_AllNames && (!m_HashesLoaded || std::binary_search(m_Hashes.begin(), m_Hashes.end(), hash))) {
        auto& find = _Stmt(m_FindName, "SELECT id, name, exact FROM names WHERE hash = ?");
        find->Bind(1, int64_t{hash});
        while (id == 0 && find->Step())
            if (find->Text(1) == utf8 && (find->IsNull(2) ? exact.empty() : find->Text(2) == exact)) id = find->Int(0);
        find->Reset();  // a statement left reading would keep the tables from being changed at the end
    }
    if (id == 0) {
        id = m_NextName++;
        const CBatchInsert::TValue exactValue =
            exact.empty() ? CBatchInsert::TValue(std::monostate()) : CBatchInsert::TValue(std::move(exact));
        if (m_Db.Dialect() == EDialect::kPostgres)
            m_NewNames.Add(id, int64_t{hash}, std::move(utf8), Utf8(util::ToUpper(name)), exactValue);
        else
            m_NewNames.Add(id, int64_t{hash}, std::move(utf8), exactValue);
    }
    m_Names.Add(name, known, id);
    return id;
}

int64_t CIngest::_Owner(const TOwner* owner) {
    if (!owner) return 0;
    // Asked once a file: by the index's own owner row first, without a string.
    const auto known = m_OwnerOf.find(owner);
    if (known != m_OwnerOf.end()) return known->second;
    return m_OwnerOf[owner] = _OwnerRow(*owner);
}

int64_t CIngest::_OwnerRow(const TOwner& owner) {
    const std::string sid = Utf8(owner.sid), account = Utf8(owner.account);
    const std::string key = sid + '\0' + account;
    const auto it = m_Owners.find(key);
    if (it != m_Owners.end()) return it->second;
    auto& add = _Stmt(m_AddOwner, "INSERT INTO owners(sid, account) VALUES(?, ?) RETURNING id");
    add->Bind(1, sid);
    add->Bind(2, account);
    add->Step();
    const int64_t id = m_Owners[key] = add->Int(0);
    // Finished now: a write statement left open keeps its statement journal
    // open, and every later statement's journal nests in it and grows with
    // the whole ingest (SQLite walks it at each statement's end).
    add->Reset();
    return id;
}

int64_t CIngest::_Folder(int64_t volume, int64_t parent, int64_t name) {
    const TKey key{parent, name, EKind::kDir};
    const auto it = m_Folders.find(key);
    if (it != m_Folders.end()) return it->second;
    const int64_t id = m_NextFolder++;
    m_NewFolders.Add(id, volume, parent, name);
    return m_Folders[key] = id;
}

}  // namespace

TIngestResult Ingest(IConnection& db, const TIngestRun& run, const std::function<void(uint64_t)>& progress) {
    return CIngest(db, progress).Run(run);
}

}  // namespace catalogue
