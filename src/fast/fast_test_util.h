#pragma once
// Tests only: runs the fast pipeline over a volume image into an index file
// and reads the result back as path sets; the Sleuth Kit's listing in the
// same form.

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "base/utf.h"
#include "fast/volume_ntfs_indexer.h"
#include "ntfs/ntfs_test_util.h"
#include "platform/volume_io.h"
#include "platform/volume_table.h"
#include "store/index_base_reader.h"
#include "testing/temp_dir.h"

namespace ngitest::fast {

namespace fs = std::filesystem;

// The settings key, and its lines that skip owners and reparse points.
constexpr char kSettingsKey[] = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\n";
constexpr char kSkipOwners[] = "\"IndexerSkipOwnersParsing\"=dword:00000001\n";
constexpr char kSkipReparse[] = "\"IndexerSkipReparsePoints\"=dword:00000001\n";

// The volume table of the links' substitute names: C: alone.
inline platform::CVolumeTable DriveC() {
    std::vector<platform::TVolumeTableEntry> volumes(1);
    volumes[0].mountPoints = {u"C:"};
    volumes[0].volumeName = u"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}\\";
    return platform::CVolumeTable(volumes, {});
}

constexpr uint64_t kEpochDelta = 116444736000000000ull;  // 1601 to 1970 in 100 ns ticks

// (path, size, last-write time in whole seconds since 1970)
using TFileRow = std::tuple<std::string, uint64_t, int64_t>;

struct TIndexContent {
    std::set<std::string> Dirs;  // "" for the root, "a/b" below it
    std::set<TFileRow> Files;
    std::vector<std::pair<uint64_t, uint64_t>> DirRows;  // (id, parent id) in row order
    std::vector<std::tuple<std::string, std::string, std::string>> Owners;
    std::map<std::string, uint32_t> FileOwners;          // path to owner id
    std::vector<uint64_t> FileParents;                   // parent id of each file row
    std::vector<std::tuple<std::string, std::string, std::string>> Reparses;  // (parent path, name, target)
};

inline std::string U8(std::u16string_view s) { return util::Utf16ToUtf8(s); }

inline std::string SlashPath(std::u16string path) {
    for (auto& c : path)
        if (c == u'\\') c = u'/';
    return U8(path);
}

// With `withPaths` false, rows carry their own names only (for trees too
// deep to spell out every path).
inline TIndexContent ReadIndex(const fs::path& file, bool withPaths = true) {
    TIndexContent c;
    indexer::CIndexBaseReader reader;
    reader.Open(util::Utf8ToUtf16(file.string()));
    reader.PrepareIdIndexes();
    std::vector<std::string> paths;
    for (uint64_t id = 0; id < reader.GetDirCount(); ++id) {
        rec::CDirRecord row;
        reader.GetDir(id, row);
        c.DirRows.emplace_back(id, row.m_ParentId);
        // Parents come first: a path is its parent's and the name (linear
        // also for a chain of thousands of levels).
        if (id == 0 || !withPaths)
            paths.push_back(id == 0 ? "" : U8(row.m_Name));
        else
            paths.push_back((paths.at(row.m_ParentId).empty() ? "" : paths[row.m_ParentId] + "/") + U8(row.m_Name));
        c.Dirs.insert(paths.back());
    }
    for (uint64_t id = 0; id < reader.GetOwnerCount(); ++id) {
        rec::COwnerRecord row;
        reader.GetOwner(id, row);
        c.Owners.emplace_back(U8(row.m_Sid), U8(row.m_Second), U8(row.m_Third));
    }
    reader.ForEachFile([&](uint64_t, uint64_t, const rec::CFileRecord& row) {
        const std::string& dir = paths[row.m_ParentId];
        const std::string path = (dir.empty() ? "" : dir + "/") + U8(row.m_Name);
        const int64_t seconds =
            static_cast<int64_t>(row.m_ModificationTime / 10000000) - static_cast<int64_t>(kEpochDelta / 10000000);
        c.Files.insert({path, row.m_Size, seconds});
        c.FileOwners[path] = row.m_Owner;
        c.FileParents.push_back(row.m_ParentId);
    });
    reader.ForEachReparse([&](uint64_t, const rec::CReparseRecord& row) {
        c.Reparses.emplace_back(SlashPath(reader.GetDirPath(row.m_ParentId)), U8(row.m_Name), U8(row.m_Substitute));
    });
    return c;
}

// Indexes `image` as volume "C:" with the filter tree `root` into a fresh
// index file in `dir`; returns its path. Throws what the pipeline throws.
// How RunPipeline reads: the read-ahead's tuning (none: the settings') and
// whether the image is read unbuffered.
struct TReadOptions {
    std::optional<indexer::CBlockReadAhead::TTuning> ReadAhead;
    bool DirectIo = false;
};

inline fs::path RunPipeline(const fs::path& image, indexer::CIncExcNode& root, const ngitest::CTempDir& dir,
                            indexer::fast_ntfs_indexer::TProcessorServices services = {},
                            const TReadOptions& read = {}) {
    // Opened for overlapped I/O where it is read ahead, as the program opens a volume.
    const bool ahead = read.ReadAhead && read.ReadAhead->depth > 0;
    platform::CHandle handle =
        platform::FileOpen(util::Utf8ToUtf16(image.string()), platform::kGenericRead, platform::kShareRead,
                           platform::kOpenExisting, ahead ? platform::kFlagOverlapped : 0);
    if (!handle.IsValid()) throw CExc(u"cannot open the image");
    if (read.DirectIo && !platform::UseDirectIo(handle.Get(), true)) throw CExc(u"no direct I/O for the image");
    indexer::CIndexBase base;
    base.Open(dir.Path(), false, u"volume.C.ifd");
    base.AddOwner(u"S-1-0-0", u"", u"", nullptr);
    indexer::CIndexingVolumeInfo description;
    description.m_Name = u"C:";
    indexer::fast_ntfs_indexer::CVolumeNTFSIndexer indexer(services);
    if (read.ReadAhead) indexer.SetReadAhead(*read.ReadAhead);
    indexer.IndexVolume(handle.Get(), description, u"", root, base);
    base.Close();
    return dir.Native() / "volume.C.ifd";
}

// The Sleuth Kit's view (ngitest::ntfs::ListFls) as index rows: without
// metafiles (records below 16 in the root, anything in $Extend), alternate
// streams and $FILE_NAME lines; directories as paths, files with size and
// time; the record behind each path.
struct TFlsContent {
    std::set<std::string> Dirs{""};
    std::set<TFileRow> Files;
    std::map<std::string, uint64_t> Records;
};

inline TFlsContent RunFls(const fs::path& image) {
    TFlsContent c;
    for (ngitest::ntfs::TFlsLine& e : ngitest::ntfs::ListFls(image)) {
        if (e.FileNameLine || e.Stream || e.Path.rfind("/$Extend", 0) == 0) continue;
        if (e.Inode < 16 && e.Path.find('/', 1) == std::string::npos) continue;
        e.Path.erase(0, 1);
        c.Records[e.Path] = e.Inode;
        if (e.Directory)
            c.Dirs.insert(e.Path);
        else
            c.Files.insert({e.Path, e.Size, e.Mtime});
    }
    return c;
}

}  // namespace ngitest::fast
