// Damaged, oversized and odd input files through the built program: each
// case must end with its exit code and the message that names the problem,
// never with a crash, a hang or a summary that claims success.
#include <gtest/gtest.h>

#include <functional>

#include "app/run_test_env.h"
#include "walk/walk_test_env.h"

namespace {

using namespace runtest;

constexpr char kGuidC[] = "0000000c-0000-0000-0000-00000000000c";
constexpr char kMapping[] = "NorvaGuestIndexer.SnapshotMapping.xml";
constexpr char kInclude[] = "NorvaGuestIndexer.inc.filter";

void WriteBytes(const fs::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::string Utf16(const std::string& text, bool mark = true) {
    std::string bytes = mark ? "\xFF\xFE" : "";
    for (char16_t c : util::Utf8ToUtf16(text)) {
        bytes += static_cast<char>(c & 0xFF);
        bytes += static_cast<char>(c >> 8);
    }
    return bytes;
}

// A mapping of one entry for volume C whose Shadow element holds `inner`
// after the two names.
std::string MappingWith(const std::string& shadowFolder, const std::string& inner) {
    return "<?xml version=\"1.0\"?>\n<ShadowsList><Shadow><OriginalVolumeGuidName>" + VolumeName(kGuidC) +
           "</OriginalVolumeGuidName><ShadowMountPointName>" + shadowFolder + "</ShadowMountPointName>" + inner +
           "</Shadow></ShadowsList>\n";
}

struct TCase {
    const char* name;
    std::function<void(CInstance&)> damage;
    int exitCode;
    std::vector<std::string> messages;  // each must appear in the output or the log
};

// Runs each case in a fresh instance holding volume C with C:\data included.
void RunCases(const std::vector<TCase>& cases) {
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        CInstance run;
        const fs::path volume = run.Root() / "c";
        walktest::WriteFile(volume / "data" / "f", 3);
        run.SetVolumes({{"C:", kGuidC, volume, {}}}, {});
        run.Filters({"C:\\data"}, {});
        c.damage(run);
        const int code = run.Run();
        EXPECT_EQ(code, c.exitCode) << run.Output() << run.LogText();
        // Failures of one volume reach the log; those of the run the output.
        const std::string said = run.Output() + run.LogText();
        for (const auto& message : c.messages) EXPECT_NE(said.find(message), std::string::npos) << said;
        if (c.exitCode == 1) {
            EXPECT_NE(run.Output().find("Error:"), std::string::npos) << run.Output();
            // A failed run never leaves a summary that presents it as complete.
            EXPECT_FALSE(fs::exists(run.Out() / "summary.txt"));
        } else {
            EXPECT_TRUE(fs::exists(run.Out() / "volume.c_.ifd")) << run.Output() << run.LogText();
            EXPECT_NE(TextOf(run.Out() / "summary.txt").find("volume"), std::string::npos);
        }
    }
}

TEST(ReliabilityBadInputs, FilterFiles) {
    const auto include = [](const std::string& bytes) {
        return [bytes](CInstance& run) { WriteBytes(run.Bin() / kInclude, bytes); };
    };
    RunCases({
        {"empty exclude file", [](CInstance& run) { WriteBytes(run.Bin() / "NorvaGuestIndexer.exc.filter", ""); }, 0, {}},
        {"exclude file of only the mark",
         [](CInstance& run) { WriteBytes(run.Bin() / "NorvaGuestIndexer.exc.filter", "\xFF\xFE"); }, 0, {}},
        {"odd size", include(Utf16("C:\\data\r\n") + "x"), 1, {"Unicode filter file contains non-unicode lines."}},
        {"UTF-8 text of odd length", include("C:\\data\r\n"), 1, {"Unicode filter file contains non-unicode lines."}},
        {"over 10 MiB", include(std::string(0xA00002, '\0')), 1,
         {"Size of NorvaGuestIndexer.filter is too big (10485762 bytes)"}},
        {"missing include file", [](CInstance& run) { fs::remove(run.Bin() / kInclude); }, 1, {"Cannot find file:"}},
        // A line far beyond any path the volume holds selects nothing, and
        // the rest of the volume is still indexed.
        {"line of 40,000 characters", include(Utf16("C:\\data\r\nC:\\" + std::string(40000, 'a') + "\r\n")), 0, {}},
        {"line nested 5,000 levels deep",
         [](CInstance& run) {
             std::string deep = "C:";
             for (int i = 0; i < 5000; ++i) deep += "\\d";
             WriteBytes(run.Bin() / "NorvaGuestIndexer.exc.filter", Utf16(deep + "\r\n"));
         },
         1, {"Filter path is nested too deeply"}},
        {"no line end and no mark", include(Utf16("C:\\data", false)), 0, {}},
    });
}

TEST(ReliabilityBadInputs, SnapshotMapping) {
    const auto mapping = [](const std::string& bytes) {
        return [bytes](CInstance& run) { WriteBytes(run.Bin() / kMapping, bytes); };
    };
    const std::string cannotLoad = "Cannot load the specified XML file: [";
    RunCases({
        {"empty", mapping(""), 1, {cannotLoad}},
        {"truncated element", mapping("<ShadowsList><Shadow>"), 1, {cannotLoad}},
        {"binary bytes", mapping(std::string("\x00\xFF\x01<", 4) + std::string(999, '\x80')), 1, {cannotLoad}},
        {"20 MB of blanks", mapping(std::string(20000000, ' ')), 1, {cannotLoad}},
        {"other root", mapping("<Shadows><Shadow/></Shadows>"), 1, {"There is no child nodes with name [ShadowsList]."}},
        {"entry without its names", mapping("<ShadowsList><Shadow><a>x</a><b>y</b></Shadow></ShadowsList>"), 1,
         {"There is no child nodes with name [OriginalVolumeGuidName]."}},
        {"invalid VolumeId", mapping(MappingWith("/nowhere", "<VolumeId>{zz}</VolumeId>")), 1,
         {"Cannot convert string to GUID. String: [{zz}]."}},
        {"no entries", mapping("<ShadowsList/>"), 0, {}},
    });
}

TEST(ReliabilityBadInputs, OldSummaryInTheOutputFolder) {
    // A damaged summary.txt (and a .old beside it) of an earlier run is
    // replaced by the new one, whatever it holds.
    const auto summary = [](const std::string& bytes, bool old) {
        return [bytes, old](CInstance& run) {
            fs::create_directories(run.Out());
            WriteBytes(run.Out() / "summary.txt", bytes);
            if (old) WriteBytes(run.Out() / "summary.txt.old", bytes);
        };
    };
    RunCases({
        {"binary bytes", summary(std::string("\xFF\xFE\x00\xD8garbage\x00", 12), false), 0, {}},
        {"odd size with a .old", summary("\xFF\xFEk\x00=", true), 0, {}},
        {"line of a million characters", summary(std::string(1000000, 'k') + "=v\n", true), 0, {}},
        {"over the meta-file limit",
         [](CInstance& run) {
             fs::create_directories(run.Out());
             WriteBytes(run.Out() / "summary.txt", "x");
             fs::resize_file(run.Out() / "summary.txt", 0x20000001);  // sparse
         },
         0, {}},
    });
}

TEST(ReliabilityBadInputs, RegistryFile) {
    const auto registry = [](const std::string& bytes) {
        return [bytes](CInstance& run) { WriteBytes(run.Root() / "registry.reg", bytes); };
    };
    // Without a volume table the included volume is unknown.
    const std::string unknown = "GetVolumePathName fail! path is 'c:\\data'";
    RunCases({
        {"empty", registry(""), 1, {unknown}},
        {"only the header", registry("Windows Registry Editor Version 5.00\r\n"), 1, {unknown}},
    });
}

// The registry file that does not parse is taken as a registry without
// volumes: the run fails, but its message names the missing volume instead of
// the file and the line that is wrong.
TEST(ReliabilityBadInputs, DamagedRegistryFileIsNamedInTheError) {
    RunCases({
        {"garbage", [](CInstance& run) { WriteBytes(run.Root() / "registry.reg", "garbage\r\n[HKLM\\x]\r\n\"a\"=dword:xyz\r\n"); },
         1, {"registry.reg", "line 1"}},
        {"over the size limit",
         [](CInstance& run) {
             WriteBytes(run.Root() / "registry.reg", "x");
             fs::resize_file(run.Root() / "registry.reg", 0x4000001);  // over 64 MiB, sparse
         },
         1, {"registry.reg"}},
    });
}

}  // namespace
