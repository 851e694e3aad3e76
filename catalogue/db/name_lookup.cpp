#include "catalogue/db/name_lookup.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "catalogue/db/schema.h"

namespace catalogue {

namespace {

// A trigram held by this many names or more is common: counting stops there
// (about 0.5 ms on the development machine), and the query answers at most
// this many names for each rare trigram it keeps.
constexpr int64_t kCommonGram = 10000;
// The rarest this many trigrams narrow a piece enough.
constexpr size_t kMostGrams = 3;
constexpr std::chrono::seconds kCountAge{60};
constexpr size_t kMostCounts = 1 << 16;

struct TCount {
    int64_t names = 0;
    std::chrono::steady_clock::time_point when;
};

// By database name and the trigram's FTS5 string, with a NUL between.
std::mutex g_Lock;
std::unordered_map<std::string, TCount> g_Counts;

int64_t NamesHoldingGram(IConnection& db, std::unique_ptr<IStatement>& count, const std::string& term) {
    const std::string key = db.Name() + '\0' + term;
    const auto now = std::chrono::steady_clock::now();
    {
        std::lock_guard lock(g_Lock);
        const auto it = g_Counts.find(key);
        if (it != g_Counts.end() && now - it->second.when < kCountAge) return it->second.names;
    }
    if (!count)
        count = db.Prepare("SELECT count(*) FROM (SELECT 1 FROM name_grams WHERE name_grams MATCH ? LIMIT " +
                           std::to_string(kCommonGram) + ")");
    count->Reset();
    count->Bind(1, std::string_view(term));
    const int64_t names = count->Step() ? count->Int(0) : kCommonGram;
    std::lock_guard lock(g_Lock);
    if (g_Counts.size() >= kMostCounts) g_Counts.clear();
    g_Counts[key] = {names, now};
    return names;
}

}  // namespace

std::string NamesHoldingQuery(IConnection& db, std::u16string_view foldedPiece) {
    if (db.Dialect() != EDialect::kSqlite || foldedPiece.size() <= 3) return NameQuery(db.Dialect(), foldedPiece);
    std::unique_ptr<IStatement> count;
    std::vector<std::tuple<int64_t, size_t, std::string>> rare;  // names, place in the piece, term
    for (size_t i = 0; i + 3 <= foldedPiece.size(); ++i) {
        std::string term = NameQuery(EDialect::kSqlite, foldedPiece.substr(i, 3));
        if (std::any_of(rare.begin(), rare.end(), [&](const auto& r) { return std::get<2>(r) == term; })) continue;
        const int64_t names = NamesHoldingGram(db, count, term);
        if (names < kCommonGram) rare.emplace_back(names, i, std::move(term));
    }
    if (rare.empty()) return NameQuery(db.Dialect(), foldedPiece);
    std::sort(rare.begin(), rare.end());
    rare.resize(std::min(rare.size(), kMostGrams));
    std::string query;
    for (const auto& r : rare) query += (query.empty() ? "" : " ") + std::get<2>(r);
    return query;
}

}  // namespace catalogue
