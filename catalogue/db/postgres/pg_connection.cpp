#include "catalogue/db/postgres/pg_connection.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <vector>

#include "base/exc.h"
#include "base/utf.h"

namespace catalogue {

namespace {

class CPgStatement : public IStatement {
public:
    CPgStatement(CPgConnection& db, const std::string& sql, std::string name)
        : m_Db(db), m_Name(std::move(name)) {
        const std::string numbered = NumberParameters(sql);
        PGresult* result = PQprepare(db.Handle(), m_Name.c_str(), numbered.c_str(), 0, nullptr);
        const bool ok = PQresultStatus(result) == PGRES_COMMAND_OK;
        if (!ok) {
            const std::string message = PQresultErrorMessage(result);
            PQclear(result);
            throw CExc(util::Utf8ToUtf16(db.Name() + ": cannot prepare [" + sql + "]: " + message));
        }
        PQclear(result);
        PGresult* described = PQdescribePrepared(db.Handle(), m_Name.c_str());
        m_Values.resize(static_cast<size_t>(std::max(0, PQnparams(described))));
        PQclear(described);
        m_Sql = sql;
    }
    ~CPgStatement() override { Reset(); }

    void Bind(int index, int64_t value) override { _Slot(index) = std::to_string(value); }
    void Bind(int index, std::string_view utf8) override { _Slot(index) = std::string(utf8); }
    void BindNull(int index) override { _Slot(index).reset(); }
    bool Step() override {
        if (!m_Result) {
            std::vector<const char*> values;
            for (const auto& value : m_Values) values.push_back(value ? value->c_str() : nullptr);
            m_Result = PQexecPrepared(m_Db.Handle(), m_Name.c_str(), static_cast<int>(values.size()), values.data(),
                                      nullptr, nullptr, 0);
            const ExecStatusType status = PQresultStatus(m_Result);
            if (status != PGRES_TUPLES_OK && status != PGRES_COMMAND_OK) {
                std::string message = PQresultErrorMessage(m_Result);
                PQclear(m_Result);
                m_Result = nullptr;
                throw CExc(util::Utf8ToUtf16(m_Db.Name() + ": [" + m_Sql + "]: " + message));
            }
            m_Row = -1;
            m_Rows = PQntuples(m_Result);
        }
        return ++m_Row < m_Rows;
    }
    void Reset() override {
        if (m_Result) PQclear(m_Result);
        m_Result = nullptr;
        for (auto& value : m_Values) value.reset();
    }
    bool IsNull(int column) const override { return PQgetisnull(m_Result, m_Row, column); }
    int64_t Int(int column) const override { return std::strtoll(PQgetvalue(m_Result, m_Row, column), nullptr, 10); }
    std::string Text(int column) const override {
        return std::string(PQgetvalue(m_Result, m_Row, column),
                           static_cast<size_t>(PQgetlength(m_Result, m_Row, column)));
    }

private:
    std::optional<std::string>& _Slot(int index) {
        if (index < 1 || static_cast<size_t>(index) > m_Values.size())
            throw CExc(util::Utf8ToUtf16(m_Db.Name() + ": no parameter " + std::to_string(index) + " in [" + m_Sql + "]"));
        return m_Values[static_cast<size_t>(index) - 1];
    }
    CPgConnection& m_Db;
    std::string m_Name, m_Sql;
    std::vector<std::optional<std::string>> m_Values;
    PGresult* m_Result = nullptr;
    int m_Row = -1, m_Rows = 0;
};

}  // namespace

std::string NumberParameters(std::string_view sql) {
    std::string out;
    int next = 0;
    bool quoted = false;
    for (char c : sql) {
        if (c == '\'') quoted = !quoted;
        if (c == '?' && !quoted) {
            out += '$';
            out += std::to_string(++next);
        } else {
            out += c;
        }
    }
    return out;
}

CPgConnection::CPgConnection(const std::string& conninfo, bool readOnly) : m_Name(conninfo) {
    m_Conn = PQconnectdb(conninfo.c_str());
    if (PQstatus(m_Conn) != CONNECTION_OK) {
        std::string message = PQerrorMessage(m_Conn);
        while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) message.pop_back();
        PQfinish(m_Conn);
        m_Conn = nullptr;
        throw CExc(util::Utf8ToUtf16("cannot connect to " + conninfo + ": " + message));
    }
    PQsetNoticeProcessor(m_Conn, [](void*, const char*) {}, nullptr);
    Exec("SET client_min_messages = warning");
    if (readOnly) Exec("SET default_transaction_read_only = on");
}

CPgConnection::~CPgConnection() { PQfinish(m_Conn); }

void CPgConnection::Fail(std::string_view what, const PGresult* result) const {
    std::string text = m_Name + ": ";
    text.append(what);
    text += ": ";
    text += result ? PQresultErrorMessage(result) : PQerrorMessage(m_Conn);
    while (!text.empty() && text.back() == '\n') text.pop_back();
    throw CExc(util::Utf8ToUtf16(text));
}

void CPgConnection::Exec(const std::string& sql) {
    PGresult* result = PQexec(m_Conn, sql.c_str());
    const ExecStatusType status = PQresultStatus(result);
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
        std::string message = PQresultErrorMessage(result);
        PQclear(result);
        while (!message.empty() && message.back() == '\n') message.pop_back();
        throw CExc(util::Utf8ToUtf16(m_Name + ": [" + sql + "]: " + message));
    }
    PQclear(result);
}

std::unique_ptr<IStatement> CPgConnection::Prepare(const std::string& sql) {
    return std::make_unique<CPgStatement>(*this, sql, "ngi_" + std::to_string(++m_Statements));
}

void CPgConnection::Rollback() {
    if (PQtransactionStatus(m_Conn) != PQTRANS_IDLE) PQclear(PQexec(m_Conn, "ROLLBACK"));
}

uint64_t CPgConnection::SizeBytes() {
    auto statement = Prepare("SELECT pg_database_size(current_database())");
    return statement->Step() ? static_cast<uint64_t>(statement->Int(0)) : 0;
}

}  // namespace catalogue
