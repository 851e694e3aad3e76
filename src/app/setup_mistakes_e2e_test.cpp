// Mistakes a person setting up a guest makes, run through the built program:
// each one leaves the run as its inputs say and adds one Warning line that
// names it; a sound setup logs no Warning and no Error, also where the
// process may not raise its priority again.
#include <cstring>
#include <functional>

#include "app/run_test_env.h"

namespace {

using namespace runtest;

// The lines of the log at one level ("WARN", "ERR "), their text only.
std::vector<std::string> LinesAt(const std::string& log, const std::string& label) {
    std::vector<std::string> found;
    const std::string tag = "  " + label + "    ";
    for (size_t at = log.find(tag); at != std::string::npos; at = log.find(tag, at + 1)) {
        const size_t text = log.find_first_not_of(' ', at + tag.size());
        found.push_back(log.substr(text, log.find("\r\n", text) - text));
    }
    return found;
}

// A guest set up right: C: with a folder, its shadow a copy of it in the
// mapping, filters naming a folder of it in another case than on disk.
void SoundSetup(CInstance& run) {
    const fs::path snap = run.Root() / "snap_c";
    run.UseC({"C:\\data"});
    for (const fs::path& root : {run.C(), snap}) {
        walktest::WriteFile(root / "Data" / "a" / "f", 1);
        walktest::WriteFile(root / "other" / "g", 2);
    }
    run.Mapping({{VolumeName(kGuidC), snap.string()}});
}

TEST(SetupMistakes, EachIsNamedByOneWarningAndTheRunIsAsTheInputsSay) {
    const Lines data = {"D ", "D Data", "D Data\\a", "F Data\\a\\f 1"};
    struct Case {
        const char* name;
        std::function<void(CInstance&)> make;
        std::vector<std::string> warnings;
        int exitCode;
        Lines index;
    } cases[] = {
        {"sound", [](CInstance&) {}, {}, 0, data},
        {"unix line ends",
         [](CInstance& r) { WriteBytes(r.Bin() / "NorvaGuestIndexer.inc.filter", Utf16("C:\\data\nC:\\other\n")); },
         {"Filter file [@BIN@\\NorvaGuestIndexer.inc.filter] has a line with a lone LF or CR, beginning [c:\\data]; "
          "lines must end with CR LF. The line is kept whole, as one path, and matches no folder."},
         0, {"D "}},
        {"missing include folder", [](CInstance& r) { r.Filters({"C:\\nosuch"}, {}); },
         {"Include folder [c:\\nosuch] does not exist; nothing under it is indexed."}, 0, {"D "}},
        {"-opt Yes", [](CInstance& r) { r.Mode = "-opt Yes"; },
         // The legacy run indexes NTFS volumes only: this folder is none.
         {"Option -opt has the value [Yes], which is neither \"yes\" nor \"no\"; the legacy run is used.",
          "The filters cover no volume; nothing is indexed."},
         0, {"no index"}},
        {"no shadow", [](CInstance& r) { r.Mapping({}); },
         {"Volume [c:] has no shadow in the snapshot mapping; the live volume is walked instead."}, 0, data},
        {"shadow that cannot be opened",
         [](CInstance& r) { r.Mapping({{VolumeName(kGuidC), (r.Root() / "gone").string()}}); },
         {"Shadow [@ROOT@/gone] of volume [c:] cannot be opened (The system cannot find the file specified); "
          "the volume's indexing fails."},
         1, {"no index"}},
        {"registry value of another type",
         [](CInstance& r) {
             std::ofstream(r.Root() / "registry.reg", std::ios::app)
                 << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\r\n"
                    "\"IndexerSkipReparsePoints\"=\"yes\"\r\n";
         },
         {"Registry value [HKLM\\SOFTWARE\\NorvA\\Norva Archive and Mirror\\IndexerSkipReparsePoints] is not a "
          "DWORD; the default [0] is used instead."},
         0, data},
    };
    // Root may raise its priority again; the runs drop that right, so that
    // the end of background mode is checked where it cannot be left.
    const bool root = ::geteuid() == 0;
    if (root && std::system("setpriv --inh-caps=-sys_nice --bounding-set=-sys_nice true >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "setpriv cannot drop CAP_SYS_NICE here";
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        CInstance run;
        SoundSetup(run);
        if (root) run.Launcher = "setpriv --inh-caps=-sys_nice --bounding-set=-sys_nice";
        c.make(run);
        for (auto& warning : c.warnings)
            for (const auto& [mark, path] : {std::pair{"@ROOT@", run.Root()}, std::pair{"@BIN@", run.Bin()}})
                if (const size_t at = warning.find(mark); at != std::string::npos)
                    warning.replace(at, strlen(mark), path.string());
        EXPECT_EQ(run.Run(), c.exitCode) << run.Output();
        const std::string log = run.LogText();
        EXPECT_EQ(LinesAt(log, "WARN"), c.warnings) << log;
        EXPECT_EQ(Rows(run.Out() / "volume.c_.ifd"), c.index) << log;
        EXPECT_EQ(fs::exists(run.Out() / "summary.txt"), c.exitCode == 0);
        if (c.exitCode == 0) {
            EXPECT_EQ(LinesAt(log, "ERR "), std::vector<std::string>{}) << log;
            EXPECT_NE(log.find("INFO    Process priority restored."), std::string::npos) << log;
        }
    }
}

}  // namespace
