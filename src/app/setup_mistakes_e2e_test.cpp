// Mistakes a person setting up a guest makes, run through the built program:
// each one leaves the run as its inputs say and adds one Warning line that
// names it; a sound setup logs no Warning and no Error, with or without the
// right to raise the priority again.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <functional>

#include "app/run_test_env.h"
#include "walk/walk_test_env.h"

namespace {

using namespace runtest;
using Lines = std::set<std::string>;

constexpr char kGuidC[] = "0000000c-0000-0000-0000-00000000000c";

// The lines of the log at one level ("WARN", "ERR "), their text only.
std::vector<std::string> LinesAt(const std::string& log, const std::string& label) {
    std::vector<std::string> found;
    const std::string tag = "  " + label + "    ";
    for (size_t at = log.find(tag); at != std::string::npos; at = log.find(tag, at + 1)) {
        const size_t from = at + tag.size();
        const size_t text = log.find_first_not_of(' ', from);
        found.push_back(log.substr(text, log.find("\r\n", text) - text));
    }
    return found;
}

// A guest set up right: C: with a folder, its shadow a copy of it in the
// mapping, filters naming a folder of it in another case than on disk (the
// lines are lower-cased; Windows names compare ignoring case).
struct CSetup {
    CInstance run;
    fs::path c = run.Root() / "c", snap = run.Root() / "snap_c";
    CSetup() {
        for (const fs::path& root : {c, snap}) {
            walktest::WriteFile(root / "Data" / "a" / "f", 1);
            walktest::WriteFile(root / "other" / "g", 2);
        }
        run.SetVolumes({{"C:", kGuidC, c, {}}}, {});
        run.Mapping({{VolumeName(kGuidC), snap.string()}});
        run.Filters({"C:\\data"}, {});
    }
    // The include filter's bytes as given (UTF-16LE with its mark).
    void RawInclude(const std::u16string& text) {
        std::string bytes = "\xFF\xFE";
        for (char16_t ch : text) bytes += {static_cast<char>(ch & 0xFF), static_cast<char>(ch >> 8)};
        std::ofstream(run.Bin() / "NorvaGuestIndexer.inc.filter", std::ios::binary) << bytes;
    }
    void Registry(const std::string& values) {
        std::ofstream(run.Root() / "registry.reg", std::ios::binary | std::ios::app)
            << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\r\n" << values << "\r\n";
    }
};

// The index of C: when the run wrote one, else "no index".
Lines IndexOfC(const CInstance& run) {
    const fs::path file = run.Out() / "volume.c_.ifd";
    if (!fs::exists(file)) return {"no index"};
    return walktest::DecodeIndex(file.u16string());
}

TEST(SetupMistakes, EachIsNamedByOneWarningAndTheRunIsAsTheInputsSay) {
    struct Case {
        const char* name;
        std::function<void(CSetup&)> make;
        std::vector<std::string> warnings;
        int exitCode;
        Lines index;
        bool summary;
    } cases[] = {
        {"sound", [](CSetup&) {}, {}, 0, {"D ", "D Data", "D Data\\a", "F Data\\a\\f 1"}, true},
        {"unix line ends",
         [](CSetup& s) { s.RawInclude(u"C:\\data\nC:\\other\n"); },
         {"Filter file [@BIN@\\NorvaGuestIndexer.inc.filter] has a line with a lone LF or CR, beginning [c:\\data]; "
          "lines must end with CR LF. The line is kept whole, as one path, and matches no folder."},
         0, {"D "}, true},
        {"missing include folder", [](CSetup& s) { s.run.Filters({"C:\\nosuch"}, {}); },
         {"Include folder [c:\\nosuch] does not exist; nothing under it is indexed."}, 0, {"D "}, true},
        {"-opt Yes", [](CSetup& s) { s.run.Mode = "-opt Yes"; },
         // The legacy run indexes NTFS volumes only: this folder is none.
         {"Option -opt has the value [Yes], which is neither \"yes\" nor \"no\"; the legacy run is used.",
          "The filters cover no volume; nothing is indexed."},
         0,
         {"no index"}, true},
        {"no shadow", [](CSetup& s) { s.run.Mapping({}); },
         {"Volume [c:] has no shadow in the snapshot mapping; the live volume is walked instead."}, 0,
         {"D ", "D Data", "D Data\\a", "F Data\\a\\f 1"}, true},
        {"shadow that cannot be opened",
         [](CSetup& s) { s.run.Mapping({{VolumeName(kGuidC), (s.run.Root() / "gone").string()}}); },
         {"Shadow [@ROOT@/gone] of volume [c:] cannot be opened (The system cannot find the file specified); "
          "the volume's indexing fails."},
         1, {"no index"}, false},
        {"filters cover nothing", [](CSetup& s) { s.run.Filters({}, {}); },
         {"The filters cover no volume; nothing is indexed."}, 0, {"no index"}, true},
        {"registry value of another type",
         [](CSetup& s) { s.Registry("\"IndexerSkipReparsePoints\"=\"yes\"\r\n"); },
         {"Registry value [HKLM\\SOFTWARE\\NorvA\\Norva Archive and Mirror\\IndexerSkipReparsePoints] is not a "
          "DWORD; the default [0] is used instead."},
         0, {"D ", "D Data", "D Data\\a", "F Data\\a\\f 1"}, true},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        CSetup setup;
        c.make(setup);
        for (auto& warning : c.warnings)
            for (const auto& [mark, path] : {std::pair{"@ROOT@", setup.run.Root()}, std::pair{"@BIN@", setup.run.Bin()}})
                if (const size_t at = warning.find(mark); at != std::string::npos)
                    warning.replace(at, strlen(mark), path.string());
        EXPECT_EQ(setup.run.Run(), c.exitCode) << setup.run.Output();
        const std::string log = setup.run.LogText();
        EXPECT_EQ(LinesAt(log, "WARN"), c.warnings) << log;
        EXPECT_EQ(IndexOfC(setup.run), c.index) << log;
        EXPECT_EQ(fs::exists(setup.run.Out() / "summary.txt"), c.summary);
    }
}

// Background mode ends cleanly also for a process that may not raise its
// priority again: the test drops CAP_SYS_NICE when it has it.
TEST(SetupMistakes, ASoundRunWithoutThePriorityRightLogsNoError) {
    CSetup setup;
    if (::geteuid() == 0) {
        if (std::system("setpriv --inh-caps=-sys_nice --bounding-set=-sys_nice true >/dev/null 2>&1") != 0)
            GTEST_SKIP() << "setpriv cannot drop CAP_SYS_NICE here";
        setup.run.Launcher = "setpriv --inh-caps=-sys_nice --bounding-set=-sys_nice";
    }
    ASSERT_EQ(setup.run.Run(), 0) << setup.run.Output();
    const std::string log = setup.run.LogText();
    EXPECT_EQ(LinesAt(log, "ERR "), std::vector<std::string>{}) << log;
    EXPECT_EQ(LinesAt(log, "WARN"), std::vector<std::string>{}) << log;
    EXPECT_NE(log.find("INFO    Background priority set."), std::string::npos) << log;
    EXPECT_NE(log.find("INFO    Process priority restored."), std::string::npos) << log;
}

}  // namespace
