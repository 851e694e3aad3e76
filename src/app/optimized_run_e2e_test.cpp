// The optimized run through the built program, as a new user runs it: a
// volume table over prepared folders, filter files, and the index decoded
// and compared with the tree on disk; failures, shadows, the temp sweep.
#include <gtest/gtest.h>
#include <unistd.h>

#include "app/run_test_env.h"
#include "walk/walk_test_env.h"

namespace {

using namespace runtest;
using Lines = std::set<std::string>;

constexpr char kGuidC[] = "0000000c-0000-0000-0000-00000000000c";
constexpr char kGuidD[] = "0000000d-0000-0000-0000-00000000000d";
constexpr char kGuidE[] = "0000000e-0000-0000-0000-00000000000e";

std::string Rel(const fs::path& path, const fs::path& root) {
    std::string rel = fs::relative(path, root).string();
    for (auto& c : rel)
        if (c == '/') c = '\\';
    return rel;
}

bool Under(const std::string& rel, const std::string& folder) {
    return rel == folder || rel.rfind(folder + "\\", 0) == 0;
}

void Link(const std::string& target, const fs::path& at) {
    fs::create_directories(at.parent_path());
    ASSERT_EQ(::symlink(target.c_str(), at.c_str()), 0) << at;
}

TEST(OptimizedRun, IndexHoldsExactlyWhatTheFiltersSelect) {
    CInstance run;
    const fs::path c = run.Root() / "c", d = run.Root() / "d";
    walktest::WriteFile(c / "data" / "a" / "nested" / "deep" / "f1", 10);
    walktest::WriteFile(c / "data" / "a" / "f2", 2);
    walktest::WriteFile(c / "data" / "a" / "x" / "excluded.txt", 3);
    walktest::WriteFile(c / "data" / "a" / "x" / "sub" / "also", 3);
    fs::create_directories(c / "data" / "a" / "empty");
    walktest::WriteFile(c / "data" / "a" / "\xC3\xBCn\xC3\xAF" "c\xC3\xB8" "d\xC3\xA9-\xE5\x90\x8D" / "u.txt", 4);
    walktest::WriteFile(c / "data" / "a" / std::string(200, 'L') / std::string(200, 'F'), 5);
    fs::create_directories(c / "data" / "b" / "many");
    for (int i = 0; i < 20000; ++i) std::ofstream(c / "data" / "b" / "many" / ("f" + std::to_string(i)));
    walktest::WriteFile(c / "data" / "b" / "many" / "f0", 1);
    walktest::WriteFile(c / "data" / "c" / "not_included.txt", 1);
    walktest::WriteFile(c / "top.txt", 1);
    walktest::WriteFile(d / "stuff" / "s", 1);
    const fs::path links = c / "data" / "b" / "links";
    Link((c / "data" / "a" / "f2").string(), links / "to_file");
    Link((c / "data" / "a" / "nested").string(), links / "to_dir");
    Link((d / "stuff").string(), links / "to_other_volume");
    Link("../many", links / "relative");
    Link((c / "data").string(), links / "loop");

    run.SetVolumes({{"C:", kGuidC, c, {}}, {"D:", kGuidD, d, {}}}, {});
    run.Filters({"C:\\data\\a", "C:\\Data\\B\\"}, {"C:\\data\\a\\x"});
    ASSERT_EQ(run.Run(), 0) << run.Output() << run.LogText();

    // The oracle: the tree itself, with the filter's meaning applied.
    Lines expected = {"D ", "D data"};
    for (auto it = fs::recursive_directory_iterator(c); it != fs::recursive_directory_iterator(); ++it) {
        const std::string rel = Rel(it->path(), c);
        if (!(Under(rel, "data\\a") || Under(rel, "data\\b")) || Under(rel, "data\\a\\x")) continue;
        if (it->is_symlink()) continue;
        if (it->is_directory()) expected.insert("D " + rel);
        else expected.insert("F " + rel + " " + std::to_string(it->file_size()));
    }
    // Links: a file link is a file row; a folder link on the volume a folder
    // row and a reparse row; one to another volume an empty folder; the
    // relative one is skipped but listed; the loop back to an ancestor is
    // followed once.
    for (const char* line : {"F data\\b\\links\\to_file 0", "D data\\b\\links\\to_dir",
                             "R data\\b\\links|to_dir|C:\\data\\a\\nested", "D data\\b\\links\\to_other_volume",
                             "D data\\b\\links\\relative", "D data\\b\\links\\loop",
                             "R data\\b\\links|loop|C:\\data"})
        expected.insert(line);
    ASSERT_TRUE(fs::exists(run.Out() / "volume.c_.ifd")) << run.LogText();
    const Lines actual = walktest::DecodeIndex((run.Out() / "volume.c_.ifd").u16string());
    EXPECT_EQ(actual.size(), expected.size());
    EXPECT_EQ(actual, expected);

    const std::string summary = TextOf(run.Out() / "summary.txt");
    for (const char* line : {"type=ifd", "volume.c=volume.c_.ifd", "Volumes.0.MountPointName=c",
                             "Volumes.0.DataFileName=volume.c_.ifd"})
        EXPECT_NE(summary.find(line), std::string::npos) << line << "\n" << summary;
    EXPECT_EQ(summary.find("IsCluster"), std::string::npos);
    const std::string log = run.LogText();
    EXPECT_NE(log.find("There is no shadow volume for volume 'c:' : FF indexing will be used."), std::string::npos);
    EXPECT_EQ(log.find("Indexing failed"), std::string::npos);
}

TEST(OptimizedRun, FailedVolumesAreCountedAndTheOthersStay) {
    CInstance run;
    const fs::path e = run.Root() / "e";
    walktest::WriteFile(e / "kept", 1);
    // C: and D: have no folder: each fails at its only attempt (no shadow).
    run.SetVolumes({{"C:", kGuidC, run.Root() / "missing_c", {}},
                    {"D:", kGuidD, run.Root() / "missing_d", {}},
                    {"E:", kGuidE, e, {}}}, {});
    run.Filters({"C:\\", "D:\\", "E:\\"}, {});
    // An earlier run's summary, left from when every volume was indexed, must
    // not present this run's files as complete.
    fs::create_directories(run.Out());
    std::ofstream(run.Out() / "summary.txt") << "type=ifd\r\nvolume.c=volume.c_.ifd\r\n";
    EXPECT_EQ(run.Run(), 1);
    const std::string message = "Indexing failed for 2 volume(s):  [c:], [d:].";
    EXPECT_NE(run.Output().find(message), std::string::npos) << run.Output();
    EXPECT_NE(run.LogText().find(message), std::string::npos);
    EXPECT_TRUE(fs::exists(run.Out() / "volume.e_.ifd"));
    EXPECT_FALSE(fs::exists(run.Out() / "volume.c_.ifd"));
    EXPECT_FALSE(fs::exists(run.Out() / "summary.txt"));
}

TEST(OptimizedRun, ShadowsChooseWhatIsRead) {
    CInstance run;
    const fs::path c = run.Root() / "c", d = run.Root() / "d";
    walktest::WriteFile(c / "live.txt", 1);
    walktest::WriteFile(run.Root() / "snap_c" / "shadow.txt", 2);
    walktest::WriteFile(d / "live.txt", 1);
    walktest::WriteFile(run.Root() / "snap_d" / "shadow_d.txt", 3);
    // D:'s shadow: an image whose boot sector says NTFS, and its folder.
    std::string boot(512, '\0');
    boot.replace(3, 8, "NTFS    ");
    std::ofstream(run.Root() / "snap_d.img", std::ios::binary) << boot;
    const std::string shadowD = "/dev/mapper/test-snap-d";
    run.SetVolumes({{"C:", kGuidC, c, {}}, {"D:", kGuidD, d, {}}},
                   {{shadowD, run.Root() / "snap_d.img", run.Root() / "snap_d"}});
    run.Mapping({{VolumeName(kGuidC), (run.Root() / "snap_c").string()}, {VolumeName(kGuidD), shadowD}});
    run.Filters({"C:\\", "D:\\"}, {});
    ASSERT_EQ(run.Run(), 0) << run.Output() << run.LogText();
    EXPECT_EQ(walktest::DecodeIndex((run.Out() / "volume.c_.ifd").u16string()), (Lines{"D ", "F shadow.txt 2"}));
    EXPECT_EQ(walktest::DecodeIndex((run.Out() / "volume.d_.ifd").u16string()), (Lines{"D ", "F shadow_d.txt 3"}));
    const std::string log = run.LogText();
    // A folder-only shadow has no file system the probe knows: walked, no
    // failure. (D:'s image is no real NTFS: whether the NTFS path declines it
    // or fails and is retried, the walk of its folder makes the index.)
    EXPECT_NE(log.find("Boot sector was read with sector size 512 bytes."), std::string::npos);
    EXPECT_EQ(log.find("Indexing failed for volume [c:]"), std::string::npos);
}

TEST(OptimizedRun, FailureCountsAtTheFirstAttemptWhenTheWalkWasChosen) {
    CInstance run;
    const fs::path c = run.Root() / "c";
    walktest::WriteFile(c / "live.txt", 1);
    // An image without a folder: it opens, but its tree can't be listed.
    std::ofstream(run.Root() / "snap.img", std::ios::binary) << std::string(4096, '\0');
    run.SetVolumes({{"C:", kGuidC, c, {}}}, {});
    run.Mapping({{VolumeName(kGuidC), (run.Root() / "snap.img").string()}});
    run.Filters({"C:\\"}, {});

    auto attempts = [&run] {
        const std::string log = run.LogText();
        size_t n = 0;
        for (size_t at = log.find("Indexing failed for volume [c:]"); at != std::string::npos;
             at = log.find("Indexing failed for volume [c:]", at + 1))
            ++n;
        return n;
    };
    EXPECT_EQ(run.Run("-parse_fs no"), 1);
    EXPECT_EQ(attempts(), 1u) << run.LogText();
    EXPECT_NE(run.LogText().find("Cannot list the root folder [" + (run.Root() / "snap.img").string() +
                                 "] of the tree to index."),
              std::string::npos);

    // A shadow that can't even be opened fails before the choice: retried.
    fs::remove_all(run.Logs());
    run.Mapping({{VolumeName(kGuidC), (run.Root() / "no_such_snapshot").string()}});
    EXPECT_EQ(run.Run(), 1);
    EXPECT_EQ(attempts(), 2u) << run.LogText();
}

TEST(OptimizedRun, LostTempFilesOfTheTableWriterAreSwept) {
    CInstance run;
    const fs::path c = run.Root() / "c";
    walktest::WriteFile(c / "f", 1);
    run.SetVolumes({{"C:", kGuidC, c, {}}}, {});
    run.Filters({"C:\\"}, {});
    fs::create_directories(run.Out());
    for (const char* name : {"ifd1.tmp", "ifdAB12.tmp", "Index1700000000_Files.tmp", "Index1700000000_Dirs.tmp",
                             "ifd12345.tmp"})
        std::ofstream(run.Out() / name) << "x";
    ASSERT_EQ(run.Run(), 0) << run.Output();
    EXPECT_FALSE(fs::exists(run.Out() / "ifd1.tmp"));
    EXPECT_FALSE(fs::exists(run.Out() / "ifdAB12.tmp"));
    // Five characters are more than "????" matches; the index base's own
    // temporary family of a killed run stays.
    EXPECT_TRUE(fs::exists(run.Out() / "ifd12345.tmp"));
    EXPECT_TRUE(fs::exists(run.Out() / "Index1700000000_Files.tmp"));
    EXPECT_TRUE(fs::exists(run.Out() / "Index1700000000_Dirs.tmp"));
    EXPECT_TRUE(fs::exists(run.Out() / "summary.txt"));
}

TEST(OptimizedRun, NestedOutputFolderIsCreated) {
    CInstance run;
    const fs::path c = run.Root() / "c";
    fs::create_directories(c);
    run.SetVolumes({{"C:", kGuidC, c, {}}}, {});
    run.Filters({}, {});
    const fs::path out = run.Out() / "x" / "y";
    fs::create_directories(run.Out());
    // An empty include filter: no volumes, a summary with only its type.
    EXPECT_EQ(run.Run({}, out), 0) << run.Output();
    const std::string summary = TextOf(out / "summary.txt");
    EXPECT_NE(summary.find("type=ifd"), std::string::npos);
    EXPECT_EQ(summary.find("volume."), std::string::npos);
}

}  // namespace
