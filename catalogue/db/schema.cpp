#include "catalogue/db/schema.h"

#include "base/exc.h"
#include "base/utf.h"

namespace catalogue {

namespace {

// The tables, version 2. Comments on each column: docs/catalogue-db.md.
const char kSqliteSchema[] = R"(
CREATE TABLE meta(key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE machines(id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);
CREATE TABLE points(id INTEGER PRIMARY KEY AUTOINCREMENT, machine INTEGER NOT NULL, taken INTEGER NOT NULL,
                    source TEXT NOT NULL, files INTEGER NOT NULL, UNIQUE(machine, taken));
CREATE TABLE volumes(id INTEGER PRIMARY KEY, machine INTEGER NOT NULL, name TEXT NOT NULL, UNIQUE(machine, name));
CREATE TABLE point_volumes(volume INTEGER NOT NULL, point INTEGER NOT NULL, files INTEGER NOT NULL,
                           PRIMARY KEY(volume, point)) WITHOUT ROWID;
CREATE TABLE owners(id INTEGER PRIMARY KEY, sid TEXT NOT NULL, account TEXT NOT NULL, UNIQUE(sid, account));
CREATE TABLE names(id INTEGER PRIMARY KEY, hash INTEGER NOT NULL, name TEXT NOT NULL, exact TEXT);
CREATE VIRTUAL TABLE name_grams USING fts5(folded, content='', detail=none, columnsize=0,
                                           tokenize='trigram case_sensitive 1');
CREATE TABLE folders(id INTEGER PRIMARY KEY, volume INTEGER NOT NULL, parent INTEGER NOT NULL, name INTEGER NOT NULL,
                     UNIQUE(volume, parent, name));
CREATE TABLE versions(volume INTEGER NOT NULL, folder INTEGER NOT NULL, name INTEGER NOT NULL, kind INTEGER NOT NULL,
                      first INTEGER NOT NULL, last INTEGER, size INTEGER NOT NULL, modified INTEGER NOT NULL,
                      owner INTEGER NOT NULL, target TEXT,
                      PRIMARY KEY(volume, folder, name, kind, first)) WITHOUT ROWID;
)";

const char kPostgresSchema[] = R"(
CREATE EXTENSION IF NOT EXISTS pg_trgm;
CREATE TABLE meta(key text PRIMARY KEY, value text NOT NULL);
CREATE TABLE machines(id bigserial PRIMARY KEY, name text NOT NULL UNIQUE);
CREATE TABLE points(id bigserial PRIMARY KEY, machine bigint NOT NULL, taken bigint NOT NULL,
                    source text NOT NULL, files bigint NOT NULL, UNIQUE(machine, taken));
CREATE TABLE volumes(id bigserial PRIMARY KEY, machine bigint NOT NULL, name text NOT NULL, UNIQUE(machine, name));
CREATE TABLE point_volumes(volume bigint NOT NULL, point bigint NOT NULL, files bigint NOT NULL,
                           PRIMARY KEY(volume, point));
CREATE TABLE owners(id bigserial PRIMARY KEY, sid text NOT NULL, account text NOT NULL, UNIQUE(sid, account));
CREATE TABLE names(id bigint PRIMARY KEY, hash integer NOT NULL, name text NOT NULL, folded text NOT NULL,
                   exact text);
CREATE TABLE folders(id bigint PRIMARY KEY, volume bigint NOT NULL, parent bigint NOT NULL, name bigint NOT NULL,
                     UNIQUE(volume, parent, name));
CREATE TABLE versions(volume bigint NOT NULL, folder bigint NOT NULL, name bigint NOT NULL, kind smallint NOT NULL,
                      first bigint NOT NULL, last bigint, size bigint NOT NULL, modified bigint NOT NULL,
                      owner bigint NOT NULL, target text,
                      PRIMARY KEY(volume, folder, name, kind, first));
)";

// The secondary indexes, made after the tables (and by a bulk ingest after
// its rows: schema.h).
const TIndexDef kSqliteNameIndexes[] = {{"names_by_hash", "CREATE INDEX names_by_hash ON names(hash)"}};
const TIndexDef kPostgresNameIndexes[] = {
    {"names_by_hash", "CREATE INDEX names_by_hash ON names(hash)"},
    {"names_grams", "CREATE INDEX names_grams ON names USING gin (folded gin_trgm_ops)"}};
const TIndexDef kVersionIndexes[] = {{"versions_by_name", "CREATE INDEX versions_by_name ON versions(name)"}};

const TDialectSql kSqlite = {
    nullptr,
    "INSERT INTO names(id, hash, name, exact) VALUES",
    "INSERT INTO name_grams(rowid, folded) SELECT id, fold(name) FROM names WHERE id >= ?",
    "SELECT n.id, n.name, n.exact FROM name_grams g JOIN names n ON n.id = g.rowid WHERE name_grams MATCH ?",
};
const TDialectSql kPostgres = {
    // One ingest at a time: two would both add a name that is new to both.
    "SELECT pg_advisory_xact_lock(7190001)",
    "INSERT INTO names(id, hash, name, folded, exact) VALUES",
    nullptr,
    "SELECT id, name, exact FROM names WHERE folded LIKE ?",
};

bool HasTable(IConnection& db, const char* name) {
    auto query = db.Prepare(db.Dialect() == EDialect::kSqlite
                                ? "SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name = ?"
                                : "SELECT count(*) FROM information_schema.tables "
                                  "WHERE table_schema = current_schema() AND table_name = ?");
    query->Bind(1, std::string_view(name));
    return query->Step() && query->Int(0) > 0;
}

}  // namespace

void EnsureSchema(IConnection& db, bool readOnly) {
    if (HasTable(db, "meta")) {
        auto query = db.Prepare("SELECT value FROM meta WHERE key = 'schema_version'");
        const int64_t version = query->Step() ? std::stoll(query->Text(0)) : 0;
        if (version > kSchemaVersion)
            throw CExc(util::Utf8ToUtf16(db.Name() + " holds catalogue schema " + std::to_string(version) +
                                         "; this ngi-catalogue knows up to " + std::to_string(kSchemaVersion)));
        if (version < kSchemaVersion && readOnly)
            throw CExc(util::Utf8ToUtf16(db.Name() + " holds catalogue schema " + std::to_string(version) +
                                         ", older than this ngi-catalogue's " + std::to_string(kSchemaVersion) +
                                         ": any command but serve upgrades it (ngi-catalogue machines --db " +
                                         db.Name() + ")"));
        // One step a version, each in its own transaction.
        if (version < 2) {
            // Version 2 keeps a name with a lone surrogate exactly (exact).
            CTransaction transaction(db);
            db.Exec(db.Dialect() == EDialect::kSqlite ? "ALTER TABLE names ADD COLUMN exact TEXT"
                                                      : "ALTER TABLE names ADD COLUMN exact text");
            db.Exec("UPDATE meta SET value = '2' WHERE key = 'schema_version'");
            transaction.Commit();
        }
        return;
    }
    if (HasTable(db, "versions"))
        throw CExc(util::Utf8ToUtf16(db.Name() + " is not a catalogue: it has a table versions but no table meta"));
    CTransaction transaction(db);
    db.Exec(db.Dialect() == EDialect::kSqlite ? kSqliteSchema : kPostgresSchema);
    for (const auto& index : NameIndexes(db.Dialect())) db.Exec(index.create);
    for (const auto& index : VersionIndexes(db.Dialect())) db.Exec(index.create);
    auto insert = db.Prepare("INSERT INTO meta(key, value) VALUES('schema_version', ?)");
    const std::string version = std::to_string(kSchemaVersion);
    insert->Bind(1, std::string_view(version));
    insert->Step();
    transaction.Commit();
}

std::string ExactName(std::u16string_view name) {
    std::string hex;
    if (!util::HasLoneSurrogate(name)) return hex;
    static const char kDigits[] = "0123456789ABCDEF";
    for (char16_t unit : name)
        for (int shift = 12; shift >= 0; shift -= 4) hex += kDigits[(unit >> shift) & 0xF];
    return hex;
}

std::u16string StoredName(const IStatement& row, int column) {
    if (row.IsNull(column + 1)) return util::Utf8ToUtf16(row.Text(column));
    const std::string hex = row.Text(column + 1);
    std::u16string name;
    for (size_t i = 0; i + 4 <= hex.size(); i += 4) {
        char16_t unit = 0;
        for (size_t k = i; k < i + 4; ++k) {
            const char c = hex[k];
            unit = static_cast<char16_t>(unit << 4 | (c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10));
        }
        name += unit;
    }
    return name;
}

int32_t NameHash(std::string_view utf8) {
    uint32_t hash = 2166136261u;
    for (unsigned char c : utf8) hash = (hash ^ c) * 16777619u;
    return static_cast<int32_t>(hash);
}

std::span<const TIndexDef> NameIndexes(EDialect dialect) {
    if (dialect == EDialect::kSqlite) return kSqliteNameIndexes;
    return kPostgresNameIndexes;
}
std::span<const TIndexDef> VersionIndexes(EDialect) { return kVersionIndexes; }

const TDialectSql& DialectSql(EDialect dialect) { return dialect == EDialect::kSqlite ? kSqlite : kPostgres; }

std::string NameQuery(EDialect dialect, std::u16string_view foldedPiece) {
    const std::string piece = util::Utf16ToUtf8(foldedPiece);
    std::string query;
    if (dialect == EDialect::kPostgres) {
        // LIKE '%piece%' with its own wildcards and escape taken literally.
        query = "%";
        for (char c : piece) {
            if (c == '%' || c == '_' || c == '\\') query += '\\';
            query += c;
        }
        return query + "%";
    }
    // Every trigram of the piece, each a quoted FTS5 string: the table keeps
    // no positions (detail=none), so this finds names holding all of them,
    // a superset of those holding the piece.
    const std::u16string_view units = foldedPiece;
    for (size_t i = 0; i + 3 <= units.size(); ++i) {
        std::string gram = util::Utf16ToUtf8(units.substr(i, 3));
        if (!query.empty()) query += ' ';
        query += '"';
        for (char c : gram) {
            if (c == '"') query += '"';
            query += c;
        }
        query += '"';
    }
    return query;
}

}  // namespace catalogue
