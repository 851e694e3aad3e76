#pragma once
// catalogue::CPgConnection: IConnection over a PostgreSQL server (libpq),
// for one catalogue that many backup servers share. The connection string is
// libpq's ("postgresql://user@host/db", or "postgresql:///db?host=/socket").
// Parameters travel as text; "?" in a statement becomes $1, $2, ... Notices
// of the server are not shown.

#include <libpq-fe.h>

#include "catalogue/db/connection.h"

namespace catalogue {

class CPgConnection : public IConnection {
public:
    // readOnly: every transaction of the session is read-only.
    explicit CPgConnection(const std::string& conninfo, bool readOnly = false);
    ~CPgConnection() override;

    EDialect Dialect() const override { return EDialect::kPostgres; }
    const std::string& Name() const override { return m_Name; }
    void Exec(const std::string& sql) override;
    std::unique_ptr<IStatement> Prepare(const std::string& sql) override;
    void Begin() override { Exec("BEGIN"); }
    void Commit() override { Exec("COMMIT"); }
    void Rollback() override;
    uint64_t SizeBytes() override;

    // Throws CExc: "<db>: <what>: <the server's message>".
    [[noreturn]] void Fail(std::string_view what, const PGresult* result = nullptr) const;
    PGconn* Handle() const { return m_Conn; }

private:
    std::string m_Name;
    PGconn* m_Conn = nullptr;
    uint64_t m_Statements = 0;
};

// "?" numbered as $1, $2, ... outside quoted literals.
std::string NumberParameters(std::string_view sql);

}  // namespace catalogue
