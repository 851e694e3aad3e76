#pragma once
// catalogue::CVolumeIndex: what the tool keeps of one index file in memory:
// the directory table (names and parents, about 20 bytes a directory plus its
// name) and the owner table. File and reparse rows are not kept: they are
// streamed through Tables() by whoever needs them, so memory grows with the
// number of directories, never of files.
//
// Load checks every directory and owner row (CTableStream) and then:
//   - row 0, the root, names itself as its parent;
//   - every other row has a name ("Empty DirName. ID=0x%1") and a parent
//     that comes before it. Every writer of index files writes a parent
//     before its children, so this also rules out loops of parents, and a
//     path is found by at most `depth` steps;
//   - at most CIndexBaseReader::kMaxDirs directories and kMaxOwners owners.
// A failure throws the damaged-file CExc naming the file, table and offset.
//
// Paths are the program's spelling: "\" for the root, "\a\b" below it.
// Lookups compare names without regard to case as Windows does.
// Not thread-safe.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "catalogue/index/ifd_tables.h"

namespace catalogue {

struct TOwner {
    std::u16string sid;
    std::u16string account;  // "domain\name", "name", or empty
};

class CVolumeIndex {
public:
    explicit CVolumeIndex(std::u16string_view fileName) : CVolumeIndex(fileName, nullptr) {}
    // `beforeLoad`, when given, runs once the tables are found and before
    // the folders load. find opens its stream of file rows there: a long
    // table's reading thread then starts, and fills its chunks, while the
    // folders load, instead of when the first row is wanted (a thread can
    // take milliseconds to get a processor that was idle).
    CVolumeIndex(std::u16string_view fileName, const std::function<void(const CIfdTables&)>& beforeLoad);

    const CIfdTables& Tables() const { return m_Tables; }
    uint64_t GetDirCount() const { return m_Parents.size(); }
    std::u16string_view DirName(uint64_t id) const {
        return std::u16string_view(m_Names).substr(m_NameAt[id], m_NameAt[id + 1] - m_NameAt[id]);
    }
    uint64_t DirParent(uint64_t id) const { return m_Parents[id]; }
    // "\" for the root.
    std::u16string DirPath(uint64_t id) const;
    // The path of an entry named `name` in the directory `dirId`, through a
    // one-entry cache of the last directory's path (rows of one folder come
    // together in the tables).
    const std::u16string& EntryPath(uint64_t dirId, std::u16string_view name);
    // The directory at a path ("\" separated, "/" accepted, leading and
    // trailing separators optional), or null.
    std::optional<uint64_t> FindDir(std::u16string_view path) const;
    // Throws the damaged-file CExc at the current row of `rows` when
    // `parent` names no directory row.
    void CheckParent(const idxdata::CTableStream& rows, uint64_t parent) const {
        if (parent >= m_Parents.size()) _ThrowBadParent(rows, parent);
    }

    uint64_t GetOwnerCount() const { return m_Owners.size(); }
    // Null for an id without a row.
    const TOwner* Owner(uint64_t id) const { return id < m_Owners.size() ? &m_Owners[id] : nullptr; }
    // The account if known, else the SID, else "#<id>" for an id without a row.
    std::u16string OwnerText(uint64_t id) const;

    // Set by Load: the root row has a name (nothing writes one).
    bool RootHasName() const { return !m_Parents.empty() && m_NameAt[1] != 0; }

private:
    [[noreturn]] void _ThrowBadParent(const idxdata::CTableStream& rows, uint64_t parent) const;
    void _LoadDirs();
    void _LoadOwners();

    CIfdTables m_Tables;
    std::u16string m_Names;          // every name, one after the other
    std::vector<uint64_t> m_NameAt;  // start of each name, and the end
    std::vector<uint32_t> m_Parents;
    std::vector<TOwner> m_Owners;

    uint64_t m_CachedDir = ~uint64_t{0};
    std::u16string m_CachedPath;  // the cached directory's path with a "\" behind it
    std::u16string m_EntryPath;
};

}  // namespace catalogue
