#pragma once
// Helpers for the store's tests only (included by *_test.cpp, never by the
// library): a temporary folder, whole-file reads and writes by native path,
// in-memory streams, and a log writer that keeps the lines it is given.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "base/exc.h"
#include "diag/log.h"
#include "store/serial.h"
#include "store/table_format.h"

namespace store_testing {

// A fresh folder under the system's temporary folder, removed at the end.
class CTempDir {
public:
    CTempDir() {
        std::mt19937_64 rng(std::random_device{}());
        for (int i = 0; i < 100; ++i) {
            auto p = std::filesystem::temp_directory_path() / ("ngi-store-" + std::to_string(rng()));
            if (std::filesystem::create_directory(p)) {
                m_Path = p;
                return;
            }
        }
        throw CExc(u"Cannot create a temporary folder for a test.");
    }
    ~CTempDir() {
        std::error_code ec;
        std::filesystem::remove_all(m_Path, ec);
    }
    // The folder as the program spells it, and a name inside it.
    std::u16string Dir() const { return m_Path.u16string(); }
    std::u16string Path(std::u16string_view name) const {
        return m_Path.u16string() + u"\\" + std::u16string(name);
    }
    std::filesystem::path Native(const std::string& name) const { return m_Path / name; }
    // The plain names of the entries, sorted.
    std::vector<std::string> List() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_Path))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::filesystem::path m_Path;
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

inline uint64_t U64At(const std::vector<uint8_t>& bytes, size_t offset) {
    return idxdata::GetU64(bytes.data() + offset);
}

// Bytes in memory through the serialisation interfaces.
class CMemWriter : public idxdata::ISerializator {
public:
    void WriteWord(uint16_t v) override { Put(&v, 2); }
    void WriteDWord(uint32_t v) override { Put(&v, 4); }
    void WriteLongLong(uint64_t v) override { Put(&v, 8); }
    void WriteString(std::u16string_view text) override {
        WriteDWord(static_cast<uint32_t>(text.size()));
        Put(text.data(), text.size() * 2);
    }
    std::vector<uint8_t> m_Bytes;

private:
    void Put(const void* p, size_t n) {
        auto* b = static_cast<const uint8_t*>(p);
        m_Bytes.insert(m_Bytes.end(), b, b + n);
    }
};

class CMemReader : public idxdata::IDeserializator {
public:
    explicit CMemReader(std::vector<uint8_t> bytes) : m_Bytes(std::move(bytes)) {}
    uint16_t ReadWord() override { uint16_t v; Take(&v, 2); return v; }
    uint32_t ReadDWord() override { uint32_t v; Take(&v, 4); return v; }
    uint64_t ReadLongLong() override { uint64_t v; Take(&v, 8); return v; }
    std::u16string ReadString() override {
        std::u16string s(ReadDWord(), u'\0');
        Take(s.data(), s.size() * 2);
        return s;
    }
    bool AtEnd() const { return m_Pos == m_Bytes.size(); }

private:
    void Take(void* p, size_t n) {
        if (m_Bytes.size() - m_Pos < n) throw CExc(u"CMemReader: read past the end");
        std::memcpy(p, m_Bytes.data() + m_Pos, n);
        m_Pos += n;
    }
    std::vector<uint8_t> m_Bytes;
    size_t m_Pos = 0;
};

// Keeps every log line; installed on the global log for the test's scope.
class CLogCapture : public CLogWriter {
public:
    void WriteLine(int32_t, const CLog&, int32_t, std::u16string_view text) override {
        m_Lines.emplace_back(text);
    }
    bool Has(std::u16string_view line) const {
        return std::find(m_Lines.begin(), m_Lines.end(), line) != m_Lines.end();
    }
    std::vector<std::u16string> m_Lines;
};

class CScopedLogCapture {
public:
    CScopedLogCapture() : m_Capture(std::make_shared<CLogCapture>()) { GetLog().SetWriter(m_Capture); }
    ~CScopedLogCapture() { GetLog().SetWriter(nullptr); }
    CLogCapture& operator*() { return *m_Capture; }
    CLogCapture* operator->() { return m_Capture.get(); }

private:
    std::shared_ptr<CLogCapture> m_Capture;
};

// The deepest message of an exception: the fixed text of the failure.
inline std::u16string Deepest(const CExc& e) { return e.GetMessages().back(); }
// The first message: the text a CWin32Exc was built with (its system line follows).
inline std::u16string First(const CExc& e) { return e.GetMessages().front(); }

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
