#pragma once
// The constants of the table file format and of the index file (.ifd) built
// from it: magic, version, table ids, field type codes, header offsets, and
// the little-endian helpers every encoder and decoder of the store uses.
// The byte layout is documented in docs/index-format.md.
//
// Layout of one table, offsets from the table's first byte:
//   0  "TBLX"               4 bytes of narrow text
//   4  major version        word, 1
//   6  minor version        word, 1
//   8  next table offset    long long, absolute; 0 in the last table
//  16  reserved             dword, 0
//  20  table id             dword
//  24  field count n        dword
//  28  field types          n words (EFieldType)
//  28+2n row count          long long
//  36+2n rows               each row its fields in order, no padding

#include <bit>
#include <cstdint>
#include <cstring>

static_assert(std::endian::native == std::endian::little,
              "the store copies UTF-16 text and integers in host order; it needs a little-endian host");

namespace idxdata {

inline constexpr char kTableMagic[4] = {'T', 'B', 'L', 'X'};
inline constexpr uint16_t kTableVersionMajor = 1;
inline constexpr uint16_t kTableVersionMinor = 1;

// Offsets inside a table header.
inline constexpr uint64_t kOffNextTable = 8;
inline constexpr uint64_t kOffReserved = 16;
inline constexpr uint64_t kOffTableId = 20;
inline constexpr uint64_t kOffFieldCount = 24;
inline constexpr uint64_t kOffFieldTypes = 28;
// The header of a table with n fields, row count included.
constexpr uint64_t TableHeaderSize(uint64_t fieldCount) { return 36 + 2 * fieldCount; }
// Offset of the row count field in a table with n fields.
constexpr uint64_t RowCountOffset(uint64_t fieldCount) { return 28 + 2 * fieldCount; }

// The next table offset of a table not yet combined (all ones).
inline constexpr uint64_t kNextTableUncombined = ~uint64_t{0};

enum EFieldType : uint16_t {
    FieldQword = 1,   // long long
    FieldString = 2,  // dword count of UTF-16 units, then the units
    FieldDword = 3,   // dword
};

enum ETableId : uint32_t {
    TableFiles = 1,
    TableDirs = 2,
    TableOwners = 3,
    TableReparses = 4,
    TableIndex = 5,
};

// Copy step of the combiners and the string read chunk, in bytes.
inline constexpr uint32_t kCopyBufferSize = 0x100000;

// Little-endian stores and loads on unaligned memory.
inline void PutU16(uint8_t* p, uint16_t v) { std::memcpy(p, &v, 2); }
inline void PutU32(uint8_t* p, uint32_t v) { std::memcpy(p, &v, 4); }
inline void PutU64(uint8_t* p, uint64_t v) { std::memcpy(p, &v, 8); }
inline uint16_t GetU16(const uint8_t* p) { uint16_t v; std::memcpy(&v, p, 2); return v; }
inline uint32_t GetU32(const uint8_t* p) { uint32_t v; std::memcpy(&v, p, 4); return v; }
inline uint64_t GetU64(const uint8_t* p) { uint64_t v; std::memcpy(&v, p, 8); return v; }

}  // namespace idxdata
