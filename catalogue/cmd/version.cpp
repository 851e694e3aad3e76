#include "catalogue/cmd/version.h"

#include <libpq-fe.h>
#include <sqlite3.h>

namespace catalogue {

std::string SqliteVersion() { return sqlite3_libversion(); }

std::string PgLibraryVersion() {
    const int v = PQlibVersion();  // 150018 for 15.18
    return std::to_string(v / 10000) + "." + std::to_string(v % 10000);
}

}  // namespace catalogue
