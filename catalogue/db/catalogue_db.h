#pragma once
// catalogue::CCatalogue: the questions a catalogue answers, over one
// IConnection, as plain structs (catalogue_types.h), for the commands and
// for a server. It reads the machines, volumes and restore points once, at
// construction (they are few); versions, folders and names are read per
// question. Make a new one after an ingest or forget.
//
// Paths given are spelled from the volume's root ("\" or "/", leading
// separator optional), optionally after a volume ("C:\Users"); names are
// compared without regard to case, as Windows compares them.
//
// Throws CExc for a restore point that is not there ("no restore point 7"),
// a path that is not there, and database errors.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <unordered_map>
#include <vector>

#include "catalogue/db/connection.h"
#include "catalogue/model/catalogue_types.h"

namespace catalogue {

// Search found more versions than it was allowed to hold.
class CTooManyResults : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class CCatalogue {
public:
    explicit CCatalogue(IConnection& db);

    std::vector<TMachineInfo> Machines() const;
    // In order of machine, then time taken.
    std::vector<TPointInfo> Points(const std::optional<std::u16string>& machine = std::nullopt) const;
    // Every version matching PATTERN (search_pattern.h) and the filter,
    // sorted by machine, volume, path, first restore point. Throws
    // CTooManyResults as soon as more than `atMost` match, so that a server
    // answering a pattern like "*" holds at most that many.
    std::vector<TVersion> Search(std::u16string_view pattern, const TSearchFilter& filter,
                                 size_t atMost = SIZE_MAX);
    // Each distinct version of the entry at PATH, on every volume the filter
    // keeps, in the same order. Empty when there is none.
    std::vector<TVersion> Versions(std::u16string_view path, const TSearchFilter& filter);
    // The entries of the folder PATH as restore point `point` holds it, on
    // each of its volumes that has that folder (or `volume` only): folders,
    // files, links, each by name. Throws when no volume has the folder.
    std::vector<TVersion> Ls(std::u16string_view path, int64_t point, const std::optional<std::u16string>& volume);
    // What changed from restore point `from` to `to` of one machine, sorted
    // by volume, then path as `diff` sorts. Values are compared as `diff`
    // compares them: size, time, owner SID, link target.
    std::vector<TChange> Changes(int64_t from, int64_t to);
    // Removes a restore point and the versions no other point holds.
    // Returns how many versions were removed.
    uint64_t Forget(int64_t point);

    const TPointInfo& Point(int64_t id) const;

private:
    struct TVolumeInfo {
        int64_t machineId = 0;
        std::u16string machine, name;
        std::vector<int64_t> points;  // ascending
    };
    struct TRow;  // one row of versions, as read
    void _Load();
    std::string _RowSql(const std::string& where) const;
    TRow _ReadRow(IStatement& s) const;
    std::vector<int64_t> _VolumesFor(const TSearchFilter& filter) const;
    // The row as a version; null when the filter's point, kind, size, time
    // or owner bounds refuse it.
    std::optional<TVersion> _Version(const TRow& row, const TSearchFilter* filter);
    std::u16string _FolderPath(int64_t folder);
    const TOwnerInfo& _Owner(int64_t id);
    // The folders of `volume` at the path's names (several where names differ in case only).
    std::vector<int64_t> _Folders(int64_t volume, const std::vector<std::u16string>& names);
    std::vector<TRow> _RowsAt(int64_t volume, int64_t point);

    IConnection& m_Db;
    std::map<int64_t, TVolumeInfo> m_Volumes;
    std::map<int64_t, TPointInfo> m_Points;
    std::unordered_map<int64_t, std::u16string> m_FolderPaths;
    std::unique_ptr<IStatement> m_FolderUp;  // a folder's parent and name
    std::unordered_map<int64_t, TOwnerInfo> m_Owners;
};

// A path from a user: the volume before ":\" when given ("C:"), and the
// names (empty for the root).
struct TUserPath {
    std::optional<std::u16string> volume;
    std::vector<std::u16string> names;
};
TUserPath SplitUserPath(std::u16string_view path);

}  // namespace catalogue
