#pragma once
// The catalogue's answers as plain structs: what the commands print and what
// a server may send on, with no database type in them. Names and paths are
// the program's UTF-16 text; paths are spelled from the volume's root with
// "\" ("\Users\alice\a.txt", "\" for the root itself). Times are FILETIME
// ticks (100 ns since 1601-01-01 UTC). Restore points are named by their id.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace catalogue {

enum class EKind : uint8_t { kDir = 0, kFile = 1, kLink = 2 };

// "dir", "file", "link".
const char* KindName(EKind kind);

struct TOwnerInfo {
    std::u16string sid;
    std::u16string account;  // "domain\name", "name" or empty
    // The account if known, else the SID.
    const std::u16string& Shown() const { return account.empty() ? sid : account; }
};

// One version of an entry: its place, its values, and the restore points of
// its volume that hold it, in order.
struct TVersion {
    std::u16string machine;
    std::u16string volume;
    std::u16string path;
    EKind kind = EKind::kFile;
    uint64_t size = 0;      // files only
    uint64_t modified = 0;  // files only: last-write time
    TOwnerInfo owner;       // files only
    std::u16string target;  // links only
    std::vector<int64_t> points;
};

struct TPointInfo {
    int64_t id = 0;
    std::u16string machine;
    uint64_t taken = 0;
    std::u16string source;  // the folder it was ingested from
    std::vector<std::u16string> volumes;
    uint64_t files = 0;  // file rows over all its volumes
};

struct TMachineInfo {
    std::u16string name;
    uint64_t points = 0;
    uint64_t firstTaken = 0, lastTaken = 0;  // 0 without points
};

// The values of one side of a change.
struct TSide {
    uint64_t size = 0;
    uint64_t modified = 0;
    TOwnerInfo owner;
    std::u16string target;
};

struct TChange {
    enum EWhat : uint8_t { kAdded, kRemoved, kChanged } what = kAdded;
    std::u16string volume;
    std::u16string path;
    EKind kind = EKind::kFile;
    std::optional<TSide> before, after;
};

// "added", "removed", "changed".
const char* ChangeName(TChange::EWhat what);

// What a search keeps; every bound is optional and inclusive unless said.
struct TSearchFilter {
    std::optional<std::u16string> machine;  // compared without regard to case
    std::optional<std::u16string> volume;   // "C:"; compared without regard to case
    std::optional<EKind> kind;
    // Restore points: versions held by at least one point with an id in
    // [fromPoint, toPoint] and taken in [takenFrom, takenTo].
    std::optional<int64_t> fromPoint, toPoint;
    std::optional<uint64_t> takenFrom, takenTo;
    // Size and last-write bounds select files only; modifiedTo is exclusive.
    std::optional<uint64_t> minSize, maxSize;
    std::optional<uint64_t> modifiedFrom, modifiedTo;
    std::optional<std::u16string> owner;  // account or SID, without regard to case
};

}  // namespace catalogue
