#pragma once
// The catalogue's schema (docs/catalogue-db.md), one for both databases,
// with a version number in the table meta. EnsureSchema creates it in an
// empty database and migrates an older one; a newer one is refused.
// The few statements whose words differ between SQLite and PostgreSQL are
// here too, so that the rest of db/ is written once.

#include <cstdint>
#include <string>

#include "catalogue/db/connection.h"

namespace catalogue {

inline constexpr int64_t kSchemaVersion = 1;

// Throws CExc: "<db> holds catalogue schema N; this ngi-catalogue knows up
// to M" for a newer schema, "<db> is not a catalogue (table X without meta)"
// for a database that holds other tables and not ours.
void EnsureSchema(IConnection& db);

// The statements that differ by dialect.
struct TDialectSql {
    // Taken at the start of an ingest's transaction so that ingests run one
    // at a time (SQLite's BEGIN IMMEDIATE does that already): or null.
    const char* lockIngest;
    // Adds names, the head of a batch (batch_insert.h): each id, hash,
    // name (and on PostgreSQL the folded name). Ingests give names and folders their ids themselves (one runs
    // at a time): an INSERT with RETURNING costs SQLite a statement journal.
    const char* insertName;
    // Adds names' trigrams (SQLite's FTS5 table), the head of a batch:
    // each an id and a folded name; or null where the names table indexes its
    // own folded column (PostgreSQL's pg_trgm). Many names go in one
    // statement: a statement on FTS5 costs a savepoint of its own, half the
    // time of an ingest when taken once a name.
    const char* insertNameGrams;
    // Ids and names whose folded form may hold a piece: one parameter, made
    // by NameQuery. May give false positives; never misses one.
    const char* namesHolding;
};
const TDialectSql& DialectSql(EDialect dialect);
// The parameter of namesHolding for a folded piece of at least 3 units.
std::string NameQuery(EDialect dialect, std::u16string_view foldedPiece);
// The hash of a name's UTF-8 bytes that names_by_hash indexes: 32 bits
// (FNV-1a), signed, so that it takes 4 bytes in either database.
int32_t NameHash(std::string_view utf8);

}  // namespace catalogue
