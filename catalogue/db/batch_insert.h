#pragma once
// catalogue::CBatchInsert: rows for one table gathered and written many to
// a statement ("INSERT INTO t(a, b) VALUES (?, ?), (?, ?), ..."), on both
// databases: a PostgreSQL statement costs a round trip to the server, a
// SQLite one a statement of its own (and on FTS5 a savepoint). Rows are
// written when a batch is full and by Flush, which the caller must call
// before anything reads the table; until then they are not in it.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "catalogue/db/connection.h"

namespace catalogue {

class CBatchInsert {
public:
    using TValue = std::variant<std::monostate, int64_t, std::string>;  // monostate: NULL

    // `head`: "INSERT INTO t(a, b) VALUES"; `columns`: values a row;
    // `tail`: what follows the rows (" ON CONFLICT DO NOTHING").
    CBatchInsert(IConnection& db, std::string head, int columns, size_t rowsPerBatch = 256, std::string tail = {})
        : m_Db(db), m_Head(std::move(head)), m_Tail(std::move(tail)), m_Columns(columns), m_Batch(rowsPerBatch) {}

    // One row: as many values as the table's columns.
    template <typename... TValues>
    void Add(TValues&&... row) {
        (m_Values.emplace_back(std::forward<TValues>(row)), ...);
        if (m_Values.size() == m_Batch * static_cast<size_t>(m_Columns)) Flush();
    }
    void Flush();

private:
    std::unique_ptr<IStatement> _Prepare(size_t rows);

    IConnection& m_Db;
    std::string m_Head, m_Tail;
    int m_Columns;
    size_t m_Batch;
    std::vector<TValue> m_Values;
    std::unique_ptr<IStatement> m_Full;  // the statement of a full batch
};

}  // namespace catalogue
