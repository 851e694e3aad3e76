// OpenDatabase and DefaultDatabase: which implementation a --db value names.

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "base/exc.h"
#include "base/utf.h"
#include "catalogue/db/connection.h"
#include "catalogue/db/postgres/pg_connection.h"
#include "catalogue/db/schema.h"
#include "catalogue/db/sqlite/sqlite_connection.h"

namespace catalogue {

namespace {

std::unique_ptr<IConnection> Open(const std::string& location, bool create, bool readOnly) {
    std::unique_ptr<IConnection> db;
    if (location.rfind("postgresql://", 0) == 0 || location.rfind("postgres://", 0) == 0) {
        db = std::make_unique<CPgConnection>(location, readOnly);
    } else {
        std::error_code ec;
        if (!create && !std::filesystem::exists(location, ec))
            throw CExc(util::Utf8ToUtf16("no catalogue at " + location + " (ingest makes one)"));
        db = std::make_unique<CSqliteConnection>(location, readOnly);
    }
    EnsureSchema(*db, readOnly);
    return db;
}

}  // namespace

std::unique_ptr<IConnection> OpenDatabase(const std::string& location, bool create) { return Open(location, create, false); }

std::unique_ptr<IConnection> OpenDatabaseReadOnly(const std::string& location) { return Open(location, false, true); }

std::string DefaultDatabase() {
    if (const char* set = std::getenv("NGI_CATALOGUE_DB"); set && *set) return set;
    std::filesystem::path dir;
    if (const char* data = std::getenv("XDG_DATA_HOME"); data && *data)
        dir = data;
    else if (const char* home = std::getenv("HOME"); home && *home)
        dir = std::filesystem::path(home) / ".local" / "share";
    else
        return "catalogue.sqlite";
    dir /= "ngi-catalogue";
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    return (dir / "catalogue.sqlite").string();
}

}  // namespace catalogue
