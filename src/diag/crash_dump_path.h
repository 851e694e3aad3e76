#pragma once
// Names of in-process crash dumps and their rotation.
//
// A dump is "<folder>\<name>_crash_<id>.<extension>" with id 0 to 9,999. At
// most kMaxDumps - 1 old dumps of one extension stay: before a new name is
// chosen the oldest are deleted (by last write time) until fewer than
// kMaxDumps remain, and the new dump takes the lowest free id, so ids are
// reused after rotation.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace crash {

inline constexpr size_t kMaxDumps = 20;
inline constexpr uint32_t kMaxDumpId = 9999;

// The folder operations NextDumpPath needs; a fake stands in for tests.
class IDumpFolder {
public:
    struct TFile {
        uint64_t lastWriteTime = 0;  // FILETIME ticks
        std::u16string name;         // file name only
    };
    virtual ~IDumpFolder() = default;
    // The files of `folder` that match the wildcard `mask`. A folder that
    // can't be listed gives an empty list; a failure after the listing began
    // throws CWin32Exc.
    virtual std::vector<TFile> List(const std::u16string& folder, const std::u16string& mask) = 0;
    // DeleteFileW: false with the last error set.
    virtual bool Delete(const std::u16string& path) = 0;
};

// The real folder (platform/find.h, platform/file.h).
IDumpFolder& SystemDumpFolder();

// "<folder>\<file>"; no separator is added after one that is there.
std::u16string JoinDumpPath(std::u16string_view folder, std::u16string_view file);

// The path of the next dump, after the rotation. Logs each deletion ("Dump
// [%1] deleted.", Info) and each failed one ("Old dump cannot be removed.
// Dump path: [%1].", Error, with the system error). Throws CExc, with the
// context "Cannot define the name of the next crash dump. Dumps folder:
// [%1].", when kMaxDumps or more remain ("Cannot cleanup out of date dumps.
// There are [%1] dumps stored. Maximum allowed dumps number: [%2]."), when
// every id is taken ("All dump identifiers are reserved.") or when the
// listing fails ("Unable to enumerate dumps stored in a folder. Folder: [%1].
// Dump extension: [%2].").
std::u16string NextDumpPath(const std::u16string& folder, const std::u16string& name,
                            const std::u16string& extension,
                            IDumpFolder& dumps = SystemDumpFolder());

}  // namespace crash
