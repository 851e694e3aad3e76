#pragma once
// catalogue::IConnection: the one database interface of the catalogue. The
// schema, the ingest and the questions (catalogue_db.h) are written once over
// it; sqlite/ and postgres/ implement it. Statements are SQL with "?" for
// each parameter (the PostgreSQL side numbers them); text is UTF-8.
//
// Errors: every call throws CExc naming the database and giving the server's
// or library's message. One thread at a time per connection.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace catalogue {

enum class EDialect { kSqlite, kPostgres };

// One prepared statement. Bind parameters (1-based), then Step through the
// rows (false at the end); Reset before binding again. Columns are 0-based.
class IStatement {
public:
    virtual ~IStatement() = default;
    virtual void Bind(int index, int64_t value) = 0;
    virtual void Bind(int index, std::string_view utf8) = 0;
    virtual void BindNull(int index) = 0;
    virtual bool Step() = 0;
    virtual void Reset() = 0;
    virtual bool IsNull(int column) const = 0;
    virtual int64_t Int(int column) const = 0;
    virtual std::string Text(int column) const = 0;
};

class IConnection {
public:
    virtual ~IConnection() = default;
    virtual EDialect Dialect() const = 0;
    // What the user gave as --db, for messages.
    virtual const std::string& Name() const = 0;
    // One or more statements without parameters or results.
    virtual void Exec(const std::string& sql) = 0;
    // REQUIRES: the statement outlives no connection it came from.
    virtual std::unique_ptr<IStatement> Prepare(const std::string& sql) = 0;
    virtual void Begin() = 0;
    virtual void Commit() = 0;
    virtual void Rollback() = 0;  // never throws
    // Bytes the database takes (file size, or the server's database size).
    virtual uint64_t SizeBytes() = 0;
};

// A transaction that rolls back unless committed.
class CTransaction {
public:
    explicit CTransaction(IConnection& db) : m_Db(db) { m_Db.Begin(); }
    ~CTransaction() {
        if (!m_Done) m_Db.Rollback();
    }
    CTransaction(const CTransaction&) = delete;
    CTransaction& operator=(const CTransaction&) = delete;
    void Commit() {
        m_Db.Commit();
        m_Done = true;
    }

private:
    IConnection& m_Db;
    bool m_Done = false;
};

// Opens --db LOCATION: "postgresql://..." or "postgres://..." (a libpq URI)
// connects to PostgreSQL; anything else is a SQLite file, made when missing
// if `create` (an ingest), else refused: "no catalogue at X (ingest makes
// one)", so that a mistyped name is not an empty catalogue. The schema is
// created or migrated (schema.h).
std::unique_ptr<IConnection> OpenDatabase(const std::string& location, bool create = true);
// The same for reading only (the web server): the SQLite file is opened
// read-only, every PostgreSQL transaction is read-only; a write fails in
// the database.
std::unique_ptr<IConnection> OpenDatabaseReadOnly(const std::string& location);
// The SQLite file used without --db: $NGI_CATALOGUE_DB when set, else
// $XDG_DATA_HOME/ngi-catalogue/catalogue.sqlite, else
// ~/.local/share/ngi-catalogue/catalogue.sqlite (its folder made).
std::string DefaultDatabase();

}  // namespace catalogue
