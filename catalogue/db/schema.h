#pragma once
// The catalogue's schema (docs/catalogue-db.md), one for both databases,
// with a version number in the table meta. EnsureSchema creates it in an
// empty database and migrates an older one; a newer one is refused.
// The few statements whose words differ between SQLite and PostgreSQL are
// here too, so that the rest of db/ is written once.

#include <cstdint>
#include <span>
#include <string>

#include "catalogue/db/connection.h"

namespace catalogue {

inline constexpr int64_t kSchemaVersion = 2;

// Throws CExc: "<db> holds catalogue schema N; this ngi-catalogue knows up
// to M" for a newer schema, "<db> is not a catalogue (table X without meta)"
// for a database that holds other tables and not ours. `readOnly`: neither
// creates nor migrates; an older schema is refused, saying how to upgrade.
void EnsureSchema(IConnection& db, bool readOnly = false);

// The statements that differ by dialect.
struct TDialectSql {
    // Taken at the start of an ingest's transaction so that ingests run one
    // at a time (SQLite's BEGIN IMMEDIATE does that already): or null.
    const char* lockIngest;
    // Adds names, the head of a batch (batch_insert.h): each id, hash,
    // name (on PostgreSQL the folded name), exact. Ingests give names and folders their ids themselves (one runs
    // at a time): an INSERT with RETURNING costs SQLite a statement journal.
    const char* insertName;
    // Puts the names from id ? on into the name index (SQLite's FTS5 table,
    // through the connection's fold()), or null where the names table indexes
    // its own folded column (PostgreSQL's pg_trgm). One statement at the end
    // of an ingest: FTS5 writes what it holds to the file as a new segment at
    // the start of every statement, so names added a few hundred a statement
    // cost half an ingest's time.
    const char* indexNewNames;
    // Ids, names and exact names whose folded form may hold a piece: one parameter, made
    // by NameQuery. May give false positives; never misses one.
    const char* namesHolding;
};
const TDialectSql& DialectSql(EDialect dialect);

// A secondary index: its name and the statement that makes it. An ingest
// that brings more rows than a table holds drops the table's indexes and
// makes them again after its rows: one sort instead of a b-tree insert a
// row, and full pages.
struct TIndexDef {
    const char* name;
    const char* create;
};
// Of names (on PostgreSQL the name index too; SQLite's is a table of its
// own), and of versions.
std::span<const TIndexDef> NameIndexes(EDialect dialect);
std::span<const TIndexDef> VersionIndexes(EDialect dialect);
// The parameter of namesHolding for a folded piece of at least 3 units.
std::string NameQuery(EDialect dialect, std::u16string_view foldedPiece);
// A name is kept in two columns: `name`, its UTF-8 (where a lone surrogate
// of a damaged name becomes U+FFFD), which the name index and hash are of;
// and `exact`, null for a name that is valid Unicode, else its UTF-16 units
// as 4 upper-case hex digits each, so that two damaged names that differ in
// their lone surrogates stay two names and come back as they were.
std::string ExactName(std::u16string_view name);  // "" for null
// The name from a row's `name` column and the `exact` one after it.
std::u16string StoredName(const IStatement& row, int nameColumn);
// The hash of a name's UTF-8 bytes that names_by_hash indexes: 32 bits
// (FNV-1a), signed, so that it takes 4 bytes in either database.
int32_t NameHash(std::string_view utf8);

}  // namespace catalogue
