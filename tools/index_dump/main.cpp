// NorvaIndexDump <volume.X.ifd>: every directory of an index file with its
// path, then its files (size in bytes, last-write time in UTC) and the
// reparse points that lead elsewhere. Exit code 0, or 1 with the reason on
// standard error for a file that can't be read or is damaged.

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "base/exc.h"
#include "base/utf.h"
#include "store/index_base_reader.h"

namespace {

std::string U8(std::u16string_view text) { return util::Utf16ToUtf8(text); }

// FILETIME ticks as "YYYY-MM-DD hh:mm:ss.fffffff" UTC.
std::string TimeText(uint64_t ticks) {
    constexpr uint64_t kTicksPerSecond = 10000000, kEpochDelta = 11644473600ULL;
    const uint64_t seconds = ticks / kTicksPerSecond;
    if (seconds < kEpochDelta) return "before 1970";
    const std::time_t unix = static_cast<std::time_t>(seconds - kEpochDelta);
    std::tm tm{};
    gmtime_r(&unix, &tm);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%07llu", tm.tm_year + 1900,
                  tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                  static_cast<unsigned long long>(ticks % kTicksPerSecond));
    return text;
}

struct TFile {
    std::u16string name;
    uint64_t size, time;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "Usage: NorvaIndexDump <volume.X.ifd>\n");
        return 1;
    }
    try {
        indexer::CIndexBaseReader reader;
        reader.Open(util::Utf8ToUtf16(argv[1]));
        reader.PrepareIdIndexes();
        std::map<uint64_t, std::vector<TFile>> files;
        reader.ForEachFile([&](uint64_t, uint64_t, const rec::CFileRecord& f) {
            files[f.m_ParentId].push_back({f.m_Name, f.m_Size, f.m_ModificationTime});
        });
        std::map<uint64_t, std::vector<std::pair<std::u16string, std::u16string>>> reparses;
        reader.ForEachReparse([&](uint64_t, const rec::CReparseRecord& r) {
            reparses[r.m_ParentId].emplace_back(r.m_Name, r.m_Substitute);
        });
        std::printf("%s: %llu directories, %llu files, %llu owners, %llu reparse points\n", argv[1],
                    static_cast<unsigned long long>(reader.GetDirCount()),
                    static_cast<unsigned long long>(reader.GetFileCount()),
                    static_cast<unsigned long long>(reader.GetOwnerCount()),
                    static_cast<unsigned long long>(reader.GetReparseCount()));
        for (uint64_t id = 0; id < reader.GetDirCount(); ++id) {
            std::printf("\\%s\n", U8(reader.GetDirPath(id)).c_str());
            for (const auto& f : files[id])
                std::printf("    %-40s %12llu  %s\n", U8(f.name).c_str(),
                            static_cast<unsigned long long>(f.size), TimeText(f.time).c_str());
            for (const auto& [name, substitute] : reparses[id])
                std::printf("    %-40s -> %s\n", U8(name).c_str(), U8(substitute).c_str());
        }
        // Output that cannot be written (a full disk) is an error, with the
        // system's message.
        errno = 0;
        if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
            std::fprintf(stderr, "NorvaIndexDump: cannot write standard output: %s\n",
                         std::strerror(errno ? errno : EIO));
            return 1;
        }
        return 0;
    } catch (const CExc& e) {
        std::fprintf(stderr, "Error: %s\n", U8(e.GetDescription()).c_str());
        return 1;
    }
}
