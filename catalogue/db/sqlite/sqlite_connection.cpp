#include "catalogue/db/sqlite/sqlite_connection.h"

#include <filesystem>

#include "base/case.h"
#include "base/exc.h"
#include "base/utf.h"

namespace catalogue {

namespace {

class CSqliteStatement : public IStatement {
public:
    CSqliteStatement(const CSqliteConnection& db, const std::string& sql) : m_Db(db) {
        if (sqlite3_prepare_v3(db.Handle(), sql.c_str(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT,
                               &m_Stmt, nullptr) != SQLITE_OK)
            db.Fail("cannot prepare [" + sql + "]");
    }
    ~CSqliteStatement() override { sqlite3_finalize(m_Stmt); }

    void Bind(int index, int64_t value) override { _Check(sqlite3_bind_int64(m_Stmt, index, value)); }
    void Bind(int index, std::string_view utf8) override {
        _Check(sqlite3_bind_text(m_Stmt, index, utf8.data(), static_cast<int>(utf8.size()), SQLITE_TRANSIENT));
    }
    void BindNull(int index) override { _Check(sqlite3_bind_null(m_Stmt, index)); }
    bool Step() override {
        const int rc = sqlite3_step(m_Stmt);
        if (rc == SQLITE_ROW) return true;
        if (rc == SQLITE_DONE) return false;
        const std::string sql = sqlite3_sql(m_Stmt);
        sqlite3_reset(m_Stmt);
        m_Db.Fail("[" + sql + "]");
    }
    void Reset() override {
        sqlite3_reset(m_Stmt);
        sqlite3_clear_bindings(m_Stmt);
    }
    bool IsNull(int column) const override { return sqlite3_column_type(m_Stmt, column) == SQLITE_NULL; }
    int64_t Int(int column) const override { return sqlite3_column_int64(m_Stmt, column); }
    std::string Text(int column) const override {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(m_Stmt, column));
        return text ? std::string(text, static_cast<size_t>(sqlite3_column_bytes(m_Stmt, column))) : std::string();
    }

private:
    void _Check(int rc) const {
        if (rc != SQLITE_OK) m_Db.Fail("cannot bind a value");
    }
    const CSqliteConnection& m_Db;
    sqlite3_stmt* m_Stmt = nullptr;
};

// fold(name): the name in upper case as Windows compares names
// (util::ToUpper), for the name index, which is made from the names in SQL.
void Fold(sqlite3_context* context, int, sqlite3_value** args) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(args[0]));
    if (!text) return sqlite3_result_null(context);
    const std::string folded = util::Utf16ToUtf8(
        util::ToUpper(util::Utf8ToUtf16(std::string_view(text, static_cast<size_t>(sqlite3_value_bytes(args[0]))))));
    sqlite3_result_text(context, folded.data(), static_cast<int>(folded.size()), SQLITE_TRANSIENT);
}

}  // namespace

CSqliteConnection::CSqliteConnection(const std::string& fileName, bool readOnly) : m_Name(fileName) {
    // No count of the library's memory: it takes a lock around every
    // allocation. Only possible before the library starts; later calls fail
    // harmlessly.
    static const int once = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    (void)once;
    const int flags = readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    const int rc = sqlite3_open_v2(fileName.c_str(), &m_Db, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc != SQLITE_OK) {
        const std::string message = m_Db ? sqlite3_errmsg(m_Db) : sqlite3_errstr(rc);
        sqlite3_close(m_Db);
        m_Db = nullptr;
        throw CExc(util::Utf8ToUtf16("cannot open " + fileName + ": " + message));
    }
    sqlite3_busy_timeout(m_Db, 10000);
    sqlite3_create_function_v2(m_Db, "fold", 1, SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS, nullptr, Fold,
                               nullptr, nullptr, nullptr);
    // A catalogue is rebuilt from the indexes if lost: a crash may lose the
    // last transaction but never corrupt the file (journal, synchronous=NORMAL).
    // A reader (the web server keeps several) takes a smaller page cache: the
    // operating system caches the file anyway, and 16 MiB holds a search's pages.
    Exec(readOnly ? "PRAGMA synchronous=NORMAL; PRAGMA cache_size=-16384; PRAGMA temp_store=MEMORY"
                  : "PRAGMA synchronous=NORMAL; PRAGMA cache_size=-262144; PRAGMA temp_store=MEMORY");
    if (readOnly) Exec("PRAGMA query_only=1");
}

CSqliteConnection::~CSqliteConnection() { sqlite3_close_v2(m_Db); }

void CSqliteConnection::Fail(std::string_view what) const {
    std::string text = m_Name + ": ";
    text.append(what);
    text += ": ";
    text += sqlite3_errmsg(m_Db);
    throw CExc(util::Utf8ToUtf16(text));
}

void CSqliteConnection::Exec(const std::string& sql) {
    char* message = nullptr;
    if (sqlite3_exec(m_Db, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
        const std::string text = message ? message : "unknown error";
        sqlite3_free(message);
        throw CExc(util::Utf8ToUtf16(m_Name + ": [" + sql + "]: " + text));
    }
}

std::unique_ptr<IStatement> CSqliteConnection::Prepare(const std::string& sql) {
    return std::make_unique<CSqliteStatement>(*this, sql);
}

void CSqliteConnection::Commit() {
    // A statement that gave a row and was kept for later still reads:
    // finished here, as PostgreSQL's results are finished when they come.
    for (sqlite3_stmt* s = sqlite3_next_stmt(m_Db, nullptr); s; s = sqlite3_next_stmt(m_Db, s))
        if (sqlite3_stmt_busy(s)) sqlite3_reset(s);
    Exec("COMMIT");
}

void CSqliteConnection::Rollback() {
    if (!sqlite3_get_autocommit(m_Db)) sqlite3_exec(m_Db, "ROLLBACK", nullptr, nullptr, nullptr);
}

uint64_t CSqliteConnection::SizeBytes() {
    std::error_code ec;
    const auto size = std::filesystem::file_size(m_Name, ec);
    return ec ? 0 : size;
}

}  // namespace catalogue
