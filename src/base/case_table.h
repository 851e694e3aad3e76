#pragma once
// The generated upper-case table behind base/case.h (scripts/gen-case-table.py).
// Page p of the BMP (code units p*256 .. p*256+255) uses kPageDeltas[kPageIndex[p]];
// an entry is (upper - code) modulo 2^16.

#include <cstddef>
#include <cstdint>

namespace util::case_table {

extern const uint8_t kPageIndex[256];
extern const uint16_t kPageDeltas[][256];
extern const size_t kPageCount;

}  // namespace util::case_table
