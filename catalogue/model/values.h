#pragma once
// The texts of values the tool prints and reads: file times as ISO 8601 UTC,
// sizes with an optional binary suffix, CSV and JSON quoting.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace catalogue {

// FILETIME ticks (100 ns since 1601-01-01 UTC) as "YYYY-MM-DDThh:mm:ssZ",
// ("ticks:<n>" past the year 30827, where the calendar conversion stops)
// or with seven digits of fraction "YYYY-MM-DDThh:mm:ss.fffffffZ".
std::string IsoTime(uint64_t ticks, bool fraction = false);
// The same appended to `out`, and a number in decimal: the forms of export,
// where they are written for every row.
void AppendIsoTime(std::string& out, uint64_t ticks, bool fraction);
void AppendNumber(std::string& out, uint64_t value);
// "YYYY-MM-DD", optionally followed by "T" or a blank and "hh:mm" or
// "hh:mm:ss", optionally "Z"; always UTC. Null for anything else.
std::optional<uint64_t> ParseIsoTime(std::string_view text);
// Decimal bytes, optionally followed by K, M, G or T (powers of 1024).
std::optional<uint64_t> ParseSize(std::string_view text);

// A CSV field: quoted (doubling quotes) when it holds a comma, a quote, CR or LF.
void AppendCsv(std::string& out, std::string_view utf8);
// A JSON string literal, quotes included, in UTF-8; a lone surrogate of a
// damaged name is written as its escape ("\ud800"), which keeps it exactly.
void AppendJson(std::string& out, std::u16string_view text);

}  // namespace catalogue
