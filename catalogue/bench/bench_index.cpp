// catalogue_bench_index OUTDIR GEN (--synthetic FILES DIRS | --list FILE):
// one restore point of a benchmark volume, volume.B_.ifd and summary.txt,
// for scripts/bench-catalogue-db.sh only.
//
// The entries are either synthetic (FILES names that never repeat, over
// DIRS folders) or the paths of a list (one a line, "/" separated, as find
// prints them; a line ending in "/" is a folder). Generation GEN (0 to 99)
// is the volume GEN restore points later: at each generation k, of the
// files whose number i has i % 100 == k, a third changed size and time, a
// third are gone from then on, and as many new files as a third came. So
// about 1% of the files changed, went or came at each restore point.

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "base/exc.h"
#include "base/utf.h"
#include "store/index_base.h"

namespace {

struct TFile {
    uint64_t dir;
    std::u16string name;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "Usage: catalogue_bench_index OUTDIR GEN (--synthetic FILES DIRS | --list FILE)\n");
        return 2;
    }
    const std::string out = argv[1];
    const uint64_t gen = std::strtoull(argv[2], nullptr, 10);
    const std::string mode = argv[3];
    try {
        indexer::CIndexBase base;
        base.Open(util::Utf8ToUtf16(out), false, u"volume.B_.ifd");
        base.AddOwner(u"S-1-0-0", u"", u"", nullptr);
        base.AddOwner(u"S-1-5-32-544", u"Administrators", u"BUILTIN", nullptr);
        base.AddDir(u"", 0, nullptr);
        std::vector<TFile> files;
        if (mode == "--synthetic" && argc == 6) {
            const uint64_t count = std::strtoull(argv[4], nullptr, 10);
            const uint64_t dirs = std::max<uint64_t>(1, std::strtoull(argv[5], nullptr, 10));
            for (uint64_t i = 1; i < dirs; ++i)
                base.AddDir(u"folder_" + util::Utf8ToUtf16(std::to_string(i)), (i - 1) / 16, nullptr);
            static const char* kExt[] = {".docx", ".txt", ".dll", ".jpg", ".log", ".exe", ".xml", ".dat"};
            const uint64_t perDir = (count + dirs - 1) / dirs;
            for (uint64_t i = 0; i < count; ++i)
                files.push_back({i / perDir, util::Utf8ToUtf16("file_" + std::to_string(i) + kExt[i % 8])});
        } else if (mode == "--list" && argc == 5) {
            std::ifstream list(argv[4]);
            std::map<std::string, uint64_t> dirIds{{"", 0}};
            auto dirOf = [&](const std::string& path, auto&& self) -> uint64_t {
                const auto it = dirIds.find(path);
                if (it != dirIds.end()) return it->second;
                const size_t slash = path.rfind('/');
                const uint64_t parent = self(slash == std::string::npos ? "" : path.substr(0, slash), self);
                uint64_t id = 0;
                base.AddDir(util::Utf8ToUtf16(slash == std::string::npos ? path : path.substr(slash + 1)), parent, &id);
                return dirIds[path] = id;
            };
            for (std::string line; std::getline(list, line);) {
                while (line.rfind("./", 0) == 0) line.erase(0, 2);
                if (line.empty() || line == ".") continue;
                if (line.back() == '/') {
                    line.pop_back();
                    dirOf(line, dirOf);
                    continue;
                }
                const size_t slash = line.rfind('/');
                const uint64_t dir = dirOf(slash == std::string::npos ? "" : line.substr(0, slash), dirOf);
                files.push_back({dir, util::Utf8ToUtf16(slash == std::string::npos ? line : line.substr(slash + 1))});
            }
        } else {
            std::fprintf(stderr, "catalogue_bench_index: bad arguments\n");
            return 2;
        }
        const uint64_t baseTime = 132000000000000000ull;
        uint64_t rows = 0;
        for (uint64_t i = 0; i < files.size(); ++i) {
            const uint64_t k = i % 100, third = (i / 100) % 3;
            const bool touched = k >= 1 && k <= gen;
            if (touched && third == 1) continue;  // gone since generation k
            const bool changed = touched && third == 0;
            base.AddFile(files[i].name, static_cast<uint32_t>(i & 1), files[i].dir, i * 37 % 100000 + (changed ? 1 : 0),
                         baseTime + i * 10000000ull + (changed ? k : 0), nullptr);
            ++rows;
            if (touched && third == 2)  // a new file beside it since generation k
                base.AddFile(files[i].name + u".new", 1, files[i].dir, 4096, baseTime + k, nullptr);
        }
        base.Close();
        std::ofstream summary(out + "/summary.txt");
        summary << "type=ifd\nVolumes.0.MountPointName=B\nVolumes.0.DataFileName=volume.B_.ifd\n";
        std::printf("%llu files\n", static_cast<unsigned long long>(rows));
    } catch (const CExc& e) {
        std::fprintf(stderr, "%s\n", util::Utf16ToUtf8(e.GetDescription()).c_str());
        return 1;
    }
    return 0;
}
