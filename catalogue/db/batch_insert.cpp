#include "catalogue/db/batch_insert.h"

namespace catalogue {

std::unique_ptr<IStatement> CBatchInsert::_Prepare(size_t rows) {
    std::string row = "(";
    for (int i = 0; i < m_Columns; ++i) row += i ? ",?" : "?";
    row += ")";
    std::string sql = m_Head;
    for (size_t i = 0; i < rows; ++i) sql += (i ? "," : " ") + row;
    return m_Db.Prepare(sql);
}

void CBatchInsert::Flush() {
    if (m_Values.empty()) return;
    const size_t rows = m_Values.size() / static_cast<size_t>(m_Columns);
    std::unique_ptr<IStatement> partial;
    IStatement* statement;
    if (rows == m_Batch) {
        if (!m_Full) m_Full = _Prepare(rows);
        statement = m_Full.get();
    } else {
        partial = _Prepare(rows);
        statement = partial.get();
    }
    statement->Reset();
    int at = 0;
    for (const auto& value : m_Values) {
        ++at;
        if (const auto* number = std::get_if<int64_t>(&value))
            statement->Bind(at, *number);
        else if (const auto* text = std::get_if<std::string>(&value))
            statement->Bind(at, std::string_view(*text));
        else
            statement->BindNull(at);
    }
    statement->Step();
    statement->Reset();
    m_Values.clear();
}

}  // namespace catalogue
