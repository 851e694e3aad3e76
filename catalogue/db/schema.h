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
    // Adds a name: parameters name, folded name; returns its id.
    const char* insertName;
    // Adds the name's trigrams (SQLite's FTS5 table), or null where the
    // names table indexes its own folded column (PostgreSQL's pg_trgm).
    const char* insertNameGrams;
    // Removes them: parameters id, folded name; or null.
    const char* deleteNameGrams;
    // Ids and names whose folded form may hold a piece: one parameter, made
    // by NameQuery. May give false positives; never misses one.
    const char* namesHolding;
};
const TDialectSql& DialectSql(EDialect dialect);
// The parameter of namesHolding for a folded piece of at least 3 units.
std::string NameQuery(EDialect dialect, std::u16string_view foldedPiece);

}  // namespace catalogue
