#pragma once
// The catalogue's version, and those of the database libraries it runs on.

#include <string>

namespace catalogue {

inline constexpr char kCatalogueVersion[] = "1.1.0";

std::string SqliteVersion();
std::string PgLibraryVersion();

}  // namespace catalogue
