#pragma once
// Tests of the catalogue tool: an index written through CIndexBase from a
// list of paths, the tool run in-process on it, and byte access to the file.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "base/utf.h"
#include "catalogue/cmd/commands.h"
#include "store/index_base.h"
#include "store/table_format.h"
#include "testing/temp_dir.h"

namespace cattest {

// Builds an index: folders are made on the way to every path given.
class CIndexBuilder {
public:
    CIndexBuilder(const ngitest::CTempDir& dir, const std::u16string& name) : m_Dir(dir), m_Name(name) {
        m_Base.Open(dir.Path(), false, name);
        m_Base.AddOwner(u"S-1-0-0", u"", u"", nullptr);
        m_Base.AddDir(u"", 0, nullptr);
        m_Dirs[u""] = 0;
    }
    uint32_t Owner(const std::u16string& sid, const std::u16string& name, const std::u16string& domain) {
        uint64_t id = 0;
        m_Base.AddOwner(sid, name, domain, &id);
        return static_cast<uint32_t>(id);
    }
    // "a\b": makes a and a\b; returns the id of the last.
    uint64_t Dir(const std::u16string& path) {
        const auto it = m_Dirs.find(path);
        if (it != m_Dirs.end()) return it->second;
        const size_t slash = path.rfind(u'\\');
        const uint64_t parent = Dir(slash == std::u16string::npos ? u"" : path.substr(0, slash));
        uint64_t id = 0;
        m_Base.AddDir(slash == std::u16string::npos ? path : path.substr(slash + 1), parent, &id);
        return m_Dirs[path] = id;
    }
    uint64_t File(const std::u16string& path, uint64_t size, uint64_t time, uint32_t owner = 0) {
        const size_t slash = path.rfind(u'\\');
        const uint64_t parent = slash == std::u16string::npos ? 0 : Dir(path.substr(0, slash));
        return m_Base.AddFile(slash == std::u16string::npos ? path : path.substr(slash + 1), owner, parent, size,
                              time, nullptr);
    }
    void Link(const std::u16string& path, const std::u16string& target) {
        const size_t slash = path.rfind(u'\\');
        const uint64_t parent = slash == std::u16string::npos ? 0 : Dir(path.substr(0, slash));
        m_Base.AddReparse(parent, slash == std::u16string::npos ? path : path.substr(slash + 1), target, nullptr);
    }
    indexer::CIndexBase& Base() { return m_Base; }
    // Closes the base; the index file's native path.
    std::string Close() {
        m_Base.Close();
        return (m_Dir.Native() / util::Utf16ToUtf8(m_Name)).string();
    }

private:
    const ngitest::CTempDir& m_Dir;
    std::u16string m_Name;
    indexer::CIndexBase m_Base;
    std::map<std::u16string, uint64_t> m_Dirs;
};

struct TRun {
    int code = -1;
    std::string out, err;
};

inline TRun RunTool(const std::vector<std::string>& words) {
    catalogue::CTextOut out, err;
    TRun run;
    run.code = catalogue::RunCatalogue(words, out, err);
    run.out = out.Text();
    run.err = err.Text();
    return run;
}

inline std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    size_t at = 0;
    while (at < text.size()) {
        const size_t end = text.find('\n', at);
        lines.push_back(text.substr(at, end - at));
        if (end == std::string::npos) break;
        at = end + 1;
    }
    return lines;
}

inline std::vector<uint8_t> ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// The start offsets of the tables of a well-formed file, in chain order.
inline std::vector<uint64_t> TableStarts(const std::vector<uint8_t>& bytes) {
    std::vector<uint64_t> starts{0};
    for (uint64_t next; (next = idxdata::GetU64(bytes.data() + starts.back() + 8)) != 0;) starts.push_back(next);
    return starts;
}

// FILETIME of a UTC date and time.
constexpr uint64_t Ft(int64_t unixSeconds) { return (static_cast<uint64_t>(unixSeconds) + 11644473600ull) * 10000000ull; }

}  // namespace cattest
