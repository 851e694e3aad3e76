#pragma once
// catalogue::CSqliteConnection: IConnection over a SQLite file (libsqlite3).
// The file is made when missing, unless it is opened read-only. A busy file is waited for up to 10 s (a
// second program ingesting). Statements are prepared once and kept by their
// callers.

#include <sqlite3.h>

#include "catalogue/db/connection.h"

namespace catalogue {

class CSqliteConnection : public IConnection {
public:
    explicit CSqliteConnection(const std::string& fileName, bool readOnly = false);
    ~CSqliteConnection() override;

    EDialect Dialect() const override { return EDialect::kSqlite; }
    const std::string& Name() const override { return m_Name; }
    void Exec(const std::string& sql) override;
    std::unique_ptr<IStatement> Prepare(const std::string& sql) override;
    void Begin() override { Exec("BEGIN IMMEDIATE"); }
    void Commit() override;
    void Rollback() override;
    uint64_t SizeBytes() override;

    // Throws CExc: "<db>: <what>: <SQLite's message>".
    [[noreturn]] void Fail(std::string_view what) const;
    sqlite3* Handle() const { return m_Db; }

private:
    std::string m_Name;
    sqlite3* m_Db = nullptr;
};

}  // namespace catalogue
