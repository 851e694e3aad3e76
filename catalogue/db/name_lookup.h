#pragma once
// catalogue::NamesHoldingQuery: the parameter of namesHolding (schema.h)
// for a folded piece, chosen to be cheap to answer.
//
// SQLite's trigram table keeps no positions, so the names holding a piece
// are found as those holding each of its trigrams, and any subset of them
// still finds every such name (the caller matches each name found exactly).
// The cost of such a query is in its common trigrams: each is stepped to
// every name the others give ("FIL" of "file_4242", held by nearly every
// name of a volume of "file_..." names, costs more than the rest together).
// So each trigram's names are counted (up to a bound: counting costs what
// stepping does), and the rarest few under the bound are used alone; when
// every trigram is common, all are. Counts are kept for a minute for each
// database, so that a server counts a trigram once, not per question; a
// count grown stale since costs time, never an answer.
// On PostgreSQL (pg_trgm) the server's planner chooses: the piece as is.

#include <string>
#include <string_view>

#include "catalogue/db/connection.h"

namespace catalogue {

std::string NamesHoldingQuery(IConnection& db, std::u16string_view foldedPiece);

}  // namespace catalogue
