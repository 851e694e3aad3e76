#pragma once
// Helpers for the store's tests only (included by *_test.cpp, never by the
// library): a temporary folder, whole-file reads and writes by native path,
// and table bytes.

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "base/exc.h"
#include "store/serial.h"
#include "store/table_format.h"
#include "testing/temp_dir.h"

namespace store_testing {

// A temporary folder with the names the store's tests use.
class CTempDir : public ngitest::CTempDir {
public:
    std::filesystem::path Native(const std::string& name) const { return ngitest::CTempDir::Native() / name; }
    // The plain names of the entries, sorted.
    std::vector<std::string> List() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(ngitest::CTempDir::Native()))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
};

inline std::vector<uint8_t> ReadAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteAll(const std::filesystem::path& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// The bytes of one table header: signature and versions, the next table's
// offset, the table id, the field types and the row count, as the writer
// lays them out (table_format.h).
inline std::vector<uint8_t> TableHeaderBytes(uint64_t next, uint32_t id, const std::vector<uint16_t>& types,
                                             uint64_t rows) {
    std::vector<uint8_t> b = {'T', 'B', 'L', 'X', 1, 0, 1, 0};
    auto put = [&b](uint64_t v, int n) {
        for (int i = 0; i < n; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
    };
    put(next, 8);
    put(0, 4);
    put(id, 4);
    put(types.size(), 4);
    for (uint16_t t : types) put(t, 2);
    put(rows, 8);
    return b;
}

// The whole index file of an empty volume, 208 bytes: an empty files
// table, the root's row (empty name, parent 0), one owner row "S-1-0-0"
// with empty names, an empty reparse table.
inline std::vector<uint8_t> EmptyIndexBytes() {
    std::vector<uint8_t> bytes = TableHeaderBytes(46, 1, {2, 1, 3, 1, 1}, 0);
    auto dirs = TableHeaderBytes(98, 2, {2, 1}, 1);
    dirs.insert(dirs.end(), 12, 0);
    auto owners = TableHeaderBytes(166, 3, {2, 2, 2}, 1);
    owners.insert(owners.end(), {7, 0, 0, 0});
    for (char16_t ch : std::u16string(u"S-1-0-0")) owners.insert(owners.end(), {static_cast<uint8_t>(ch), 0});
    owners.insert(owners.end(), 8, 0);
    auto reparses = TableHeaderBytes(0, 4, {1, 2, 2}, 0);
    for (const auto* part : {&dirs, &owners, &reparses}) bytes.insert(bytes.end(), part->begin(), part->end());
    return bytes;
}

// Bytes that differ from block to block at any block size up to 64 KiB.
inline std::vector<uint8_t> Pattern(size_t size, uint8_t seed = 1) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + seed + i / 251);
    return bytes;
}

inline uint64_t U64At(const std::vector<uint8_t>& bytes, size_t offset) {
    return idxdata::GetU64(bytes.data() + offset);
}

// The deepest message of an exception: the fixed text of the failure.
inline std::u16string Deepest(const CExc& e) { return e.GetMessages().back(); }

}  // namespace store_testing

// Runs `statement`, expects a CExc, and binds it to `e` for the checks that
// follow in `checks`.
#define EXPECT_CEXC(statement, checks)                              \
    do {                                                            \
        bool thrown_ = false;                                       \
        try {                                                       \
            statement;                                              \
        } catch (const CExc& e) {                                   \
            thrown_ = true;                                         \
            checks;                                                 \
        }                                                           \
        EXPECT_TRUE(thrown_) << "no CExc from: " #statement;        \
    } while (0)
