#pragma once
// Tests only: runs the fast pipeline over a volume image into an index file
// and reads the result back as path sets; the Sleuth Kit's listing and
// libfsntfs's records in the same form.

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
#include "ntfs/fsntfsinfo_listing.h"
#include "ntfs/ntfs_test_util.h"
#include "platform/volume_io.h"
#include "store/index_base_reader.h"
#include "testing/temp_dir.h"

namespace ngitest::fast {

namespace fs = std::filesystem;

constexpr uint64_t kEpochDelta = 116444736000000000ull;  // 1601 to 1970 in 100 ns ticks

// (path, size, last-write time in whole seconds since 1970)
using TFileRow = std::tuple<std::string, uint64_t, int64_t>;

struct TIndexContent {
    std::set<std::string> Dirs;  // "" for the root, "a/b" below it
    std::set<TFileRow> Files;
    std::vector<std::pair<uint64_t, uint64_t>> DirRows;  // (id, parent id) in row order
    std::vector<std::string> DirNames;                   // by id
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
        c.DirNames.push_back(U8(row.m_Name));
        // Parents come first: a path is its parent's and the name (linear
        // also for a chain of thousands of levels).
        if (id == 0 || !withPaths)
            paths.push_back(id == 0 ? "" : U8(row.m_Name));
        else if (row.m_ParentId < id)
            paths.push_back((paths[row.m_ParentId].empty() ? "" : paths[row.m_ParentId] + "/") + U8(row.m_Name));
        else
            paths.push_back(SlashPath(reader.GetDirPath(id)));
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

// An NTFS image of the tests: a fixture or a shared sample, gzipped.
struct TImage {
    std::string Name;
    fs::path Gz;
};

inline void PrintTo(const TImage& image, std::ostream* os) { *os << image.Name; }

// Every fixture image and shared sample, by name.
inline std::vector<TImage> AllImages() {
    std::vector<TImage> images;
    for (const fs::path& folder : {ngitest::ntfs::SourceDir() / "fixtures" / "ntfs", ngitest::ntfs::SamplesDir()}) {
        std::error_code ec;
        for (const auto& e : fs::directory_iterator(folder, ec))
            if (e.path().extension() == ".gz") images.push_back({e.path().stem().stem().string(), e.path()});
    }
    std::sort(images.begin(), images.end(), [](const TImage& a, const TImage& b) { return a.Name < b.Name; });
    return images;
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

// The Sleuth Kit's view: `fls -r -u -p -m /`, without metafiles (records
// below 16 in the root, anything in $Extend), alternate streams, $FILE_NAME
// lines and orphans. Directories as paths, files with size and time.
struct TFlsContent {
    std::set<std::string> Dirs{""};
    std::set<TFileRow> Files;
    bool Read = false;
};

inline TFlsContent RunFls(const fs::path& image) {
    TFlsContent c;
    std::istringstream in(ngitest::ntfs::RunCommand("fls -r -u -p -m / " + ngitest::ntfs::Quote(image) +
                                                    " 2>/dev/null"));
    std::string line;
    while (std::getline(in, line)) {
        std::vector<std::string> f;
        std::stringstream ss(line);
        std::string part;
        while (std::getline(ss, part, '|')) f.push_back(part);
        if (f.size() < 11) continue;
        c.Read = true;
        std::string path = f[1];
        if (path.find(" ($FILE_NAME)") != std::string::npos) continue;
        const size_t slash = path.rfind('/');
        if (path.find(':', slash == std::string::npos ? 0 : slash) != std::string::npos) continue;
        if (path.rfind("/$OrphanFiles", 0) == 0 || path.rfind("/$Extend", 0) == 0) continue;
        const uint64_t inode = std::stoull(f[2]);
        if (inode < 16 && path.find('/', 1) == std::string::npos) continue;
        path.erase(0, 1);
        if (f[3].rfind("d/", 0) == 0)
            c.Dirs.insert(path);
        else
            c.Files.insert({path, std::stoull(f[6]), std::stoll(f[8])});
    }
    return c;
}

// libfsntfs's records (ngitest::ntfs::RunFsntfsinfo) as the rows an index
// should hold: folders reached from the root through folders in use, without
// metafiles (records below 16, $Extend and below) and DOS-only names; files
// with the size of their unnamed $DATA and the $STANDARD_INFORMATION time in
// whole seconds. Records gives the record behind each path.
struct TFsntfsContent {
    std::set<std::string> Dirs{""};
    std::set<TFileRow> Files;
    std::map<std::string, uint64_t> Records;
};

inline TFsntfsContent RowsFromFsntfs(const std::map<uint64_t, ngitest::ntfs::TFsntfsRecord>& records) {
    TFsntfsContent c;
    auto firstName = [](const ngitest::ntfs::TFsntfsRecord& r) -> const ngitest::ntfs::TFsntfsName* {
        for (const auto& n : r.Names)
            if (n.Namespace != 2) return &n;
        return nullptr;
    };
    // A folder's path, or nullopt when its chain leaves the user's tree;
    // chains are followed at most 4096 levels.
    std::map<uint64_t, std::optional<std::string>> paths{{5, std::string()}};
    auto pathOf = [&](uint64_t folder) -> std::optional<std::string> {
        std::vector<uint64_t> chain;
        uint64_t at = folder;
        while (!paths.count(at)) {
            const auto it = records.find(at);
            const ngitest::ntfs::TFsntfsName* name = it == records.end() ? nullptr : firstName(it->second);
            if (chain.size() > 4096 || !name || !ngitest::ntfs::IsUserRecord(at, it->second) ||
                !it->second.Directory) {
                paths[at] = std::nullopt;
                break;
            }
            chain.push_back(at);
            at = name->Parent;
        }
        for (auto rit = chain.rbegin(); rit != chain.rend(); ++rit) {
            const std::optional<std::string>& parent = paths[firstName(records.at(*rit))->Parent];
            paths[*rit] = parent ? std::optional<std::string>((parent->empty() ? "" : *parent + "/") +
                                                              firstName(records.at(*rit))->Name)
                                 : std::nullopt;
        }
        return paths[folder];
    };
    for (const auto& [number, r] : records) {
        if (number < 16 || !ngitest::ntfs::IsUserRecord(number, r)) continue;
        for (const auto& n : r.Names) {
            if (n.Namespace == 2) continue;
            const std::optional<std::string> dir = pathOf(n.Parent);
            if (!dir) continue;
            const std::string path = (dir->empty() ? "" : *dir + "/") + n.Name;
            c.Records[path] = number;
            if (r.Directory)
                c.Dirs.insert(path);
            else
                c.Files.insert({path, r.DataSize.value_or(0),
                                static_cast<int64_t>(r.ModificationTime / 10000000) -
                                    static_cast<int64_t>(kEpochDelta / 10000000)});
        }
    }
    return c;
}

// A path with every character beyond the BMP (4-byte UTF-8) as "?": this
// libfsntfs decodes surrogate pairs into the wrong character.
inline std::string BlurAstral(std::string path) {
    for (size_t i = 0; i < path.size(); ++i)
        if ((static_cast<unsigned char>(path[i]) & 0xF8) == 0xF0) path.replace(i, 4, "?");
    return path;
}

inline std::set<std::string> BlurAstral(const std::set<std::string>& paths) {
    std::set<std::string> out;
    for (const std::string& p : paths) out.insert(BlurAstral(p));
    return out;
}

inline std::set<TFileRow> BlurAstral(const std::set<TFileRow>& rows) {
    std::set<TFileRow> out;
    for (const auto& [path, size, time] : rows) out.insert({BlurAstral(path), size, time});
    return out;
}

// The elements of a that b lacks, one per line, at most 20.
template <class T, class Show>
std::string Missing(const std::set<T>& a, const std::set<T>& b, Show show) {
    std::string out;
    int n = 0;
    for (const T& x : a)
        if (!b.count(x) && n++ < 20) out += "  " + show(x) + "\n";
    return out;
}

inline std::string ShowRow(const TFileRow& r) {
    return std::get<0>(r) + " size " + std::to_string(std::get<1>(r)) + " time " + std::to_string(std::get<2>(r));
}

// The clusters istat lists under the attribute line starting `type`, and the
// attribute's size.
inline std::pair<std::vector<uint64_t>, uint64_t> IstatRuns(const std::string& istat, const std::string& type) {
    std::vector<uint64_t> clusters;
    const size_t at = istat.find("Type: " + type);
    if (at == std::string::npos) return {clusters, 0};
    const size_t sizeAt = istat.find("size: ", at);
    const uint64_t size = std::stoull(istat.substr(sizeAt + 6));
    std::istringstream in(istat.substr(istat.find('\n', at) + 1));
    std::string line;
    while (std::getline(in, line) && line.rfind("Type:", 0) != 0) {
        std::istringstream words(line);
        uint64_t c;
        while (words >> c) clusters.push_back(c);
    }
    return {clusters, size};
}

}  // namespace ngitest::fast
