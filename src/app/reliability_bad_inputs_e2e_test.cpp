// Damaged, oversized and odd input files through the built program: each
// case must end with its exit code and the message that names the problem,
// never with a crash, a hang or a summary that claims success.
#include <functional>

#include "app/run_test_env.h"

namespace {

using namespace runtest;

struct TCase {
    const char* name;
    std::function<void(CInstance&)> damage;
    int exitCode;
    std::vector<std::string> messages;  // each must appear in the output or the log
};

// A change: the file at `where` (below the instance's root) given `bytes`,
// then, when `size` is given, resized to it (a hole).
std::function<void(CInstance&)> Put(const std::string& where, const std::string& bytes, uintmax_t size = 0) {
    return [=](CInstance& run) {
        fs::create_directories((run.Root() / where).parent_path());
        WriteBytes(run.Root() / where, bytes);
        if (size) fs::resize_file(run.Root() / where, size);
    };
}

// Runs each case in a fresh instance holding volume C with C:\data included.
void RunCases(const std::vector<TCase>& cases) {
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        CInstance run;
        run.UseC({"C:\\data"});
        walktest::WriteFile(run.C() / "data" / "f", 3);
        c.damage(run);
        EXPECT_EQ(run.Run(), c.exitCode) << run.Output() << run.LogText();
        // Failures of one volume reach the log; those of the run the output.
        const std::string said = run.Output() + run.LogText();
        for (const auto& message : c.messages) EXPECT_NE(said.find(message), std::string::npos) << said;
        // A failed run never leaves a summary that presents it as complete.
        EXPECT_EQ(fs::exists(run.Out() / "summary.txt"), c.exitCode == 0);
        const bool failed = c.exitCode == 1;
        EXPECT_EQ(run.Output().find("Error:") != std::string::npos, failed) << run.Output();
        EXPECT_EQ(fs::exists(run.Out() / "volume.c_.ifd"), !failed) << run.Output();
    }
}

TEST(ReliabilityBadInputs, FilterFiles) {
    const std::string inc = "bin/NorvaGuestIndexer.inc.filter", exc = "bin/NorvaGuestIndexer.exc.filter";
    const std::string nonUnicode = "Unicode filter file contains non-unicode lines.";
    std::string deep = "C:";
    for (int i = 0; i < 5000; ++i) deep += "\\d";
    RunCases({
        {"empty exclude file", Put(exc, ""), 0, {}},
        {"odd size", Put(inc, Utf16("C:\\data\r\n") + "x"), 1, {nonUnicode}},
        {"UTF-8 text of odd length", Put(inc, "C:\\data\r\n"), 1, {nonUnicode}},
        {"over 10 MiB", Put(inc, "", 0xA00002), 1, {"Size of NorvaGuestIndexer.filter is too big (10485762 bytes)"}},
        {"missing include file", [](CInstance& run) { fs::remove(run.Bin() / "NorvaGuestIndexer.inc.filter"); }, 1,
         {"Cannot find file:"}},
        // A line far beyond any path the volume holds selects nothing, and
        // the rest of the volume is still indexed.
        {"line of 40,000 characters", Put(inc, Utf16("C:\\data\r\nC:\\" + std::string(40000, 'a') + "\r\n")), 0, {}},
        {"line nested 5,000 levels deep", Put(exc, Utf16(deep + "\r\n")), 1, {"Filter path is nested too deeply"}},
        {"no line end and no mark", Put(inc, Utf16("C:\\data", false)), 0, {}},
    });
}

TEST(ReliabilityBadInputs, SnapshotMapping) {
    const std::string xml = "bin/NorvaGuestIndexer.SnapshotMapping.xml";
    const std::string cannotLoad = "Cannot load the specified XML file: [";
    RunCases({
        {"empty", Put(xml, ""), 1, {cannotLoad}},
        {"20 MB of blanks", Put(xml, std::string(20000000, ' ')), 1, {cannotLoad}},
        {"other root", Put(xml, "<Shadows><Shadow/></Shadows>"), 1,
         {"There is no child nodes with name [ShadowsList]."}},
        {"entry without its names", Put(xml, "<ShadowsList><Shadow><a>x</a><b>y</b></Shadow></ShadowsList>"), 1,
         {"There is no child nodes with name [OriginalVolumeGuidName]."}},
        {"invalid VolumeId",
         Put(xml, "<ShadowsList><Shadow><OriginalVolumeGuidName>" + VolumeName(kGuidC) +
                      "</OriginalVolumeGuidName><ShadowMountPointName>/nowhere</ShadowMountPointName>"
                      "<VolumeId>{zz}</VolumeId></Shadow></ShadowsList>"),
         1, {"Cannot convert string to GUID. String: [{zz}]."}},
        {"no entries", Put(xml, "<ShadowsList/>"), 0, {}},
    });
}

// A damaged summary.txt (and a .old beside it) of an earlier run is replaced
// by the new one, whatever it holds.
TEST(ReliabilityBadInputs, OldSummaryInTheOutputFolder) {
    const std::string odd("\xFF\xFEk\x00=", 5);
    RunCases({
        {"odd size with a .old",
         [&](CInstance& run) {
             Put("out/summary.txt", odd)(run);
             Put("out/summary.txt.old", odd)(run);
         },
         0, {}},
        {"over the meta-file limit", Put("out/summary.txt", "x", 0x20000001), 0, {}},
    });
}

// A registry file that does not parse or is too big is named in the error;
// one without volumes leaves the included volume unknown.
TEST(ReliabilityBadInputs, DamagedRegistryFileIsNamedInTheError) {
    const std::string unknown = "GetVolumePathName fail! path is 'c:\\data'";
    RunCases({
        {"empty", Put("registry.reg", ""), 1, {unknown}},
        {"only the header", Put("registry.reg", "Windows Registry Editor Version 5.00\r\n"), 1, {unknown}},
        {"garbage", Put("registry.reg", "garbage\r\n[HKLM\\x]\r\n\"a\"=dword:xyz\r\n"), 1, {"registry.reg", "line 1"}},
        {"over the size limit", Put("registry.reg", "x", 0x4000001), 1, {"registry.reg"}},
    });
}

}  // namespace
