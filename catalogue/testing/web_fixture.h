#pragma once
// The catalogue the web server's tests and the browser test search: two
// machines, three restore points. budget-2026.xlsx stands on both machines
// in three versions (pc-01 has two, srv-02 one); pc-01's \Logs holds 250
// files (more than a page); \Odd holds names with quotes, %, _, a non-BMP
// character, and lone surrogates as damaged names have: "damaged \uD800
// name.txt" and "damaged \uDC00 name.txt", "torn \uDBFF\inside.txt".

#include <string>

namespace cattest {

// Writes the runs under `scratch` and ingests them into `db` (a SQLite file
// or a PostgreSQL conninfo). Throws std::runtime_error when an ingest fails.
void MakeWebCatalogue(const std::string& scratch, const std::string& db);

}  // namespace cattest
