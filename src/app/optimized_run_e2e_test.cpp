// The optimized run through the built program: a volume table over prepared
// folders, the index decoded and compared with the tree on disk; failures,
// shadows, the temp sweep.
#include "app/run_test_env.h"

namespace {

using namespace runtest;

bool Under(const std::string& rel, const std::string& folder) {
    return rel == folder || rel.rfind(folder + "\\", 0) == 0;
}

TEST(OptimizedRun, IndexHoldsExactlyWhatTheFiltersSelect) {
    CInstance run;
    const fs::path c = run.C();
    for (const char* f : {"data/a/nested/deep/f1", "data/a/f2", "data/a/x/excluded.txt", "data/a/x/sub/also",
                          "data/c/not_included.txt", "top.txt", "data/a/\xC3\xBCn\xC3\xAF" "c\xC3\xB8" "d\xC3\xA9/u"})
        walktest::WriteFile(c / f, std::string(f).size());
    walktest::WriteFile(c / "data" / "a" / std::string(200, 'L') / std::string(200, 'F'), 5);
    fs::create_directories(c / "data" / "a" / "empty");
    for (int i = 0; i < 2000; ++i) walktest::WriteFile(c / "data" / "b" / "many" / ("f" + std::to_string(i)), i % 3);
    // Links: one that the walk follows (the walk's own tests have every kind).
    fs::create_directory_symlink(c / "data" / "a" / "nested", c / "data" / "b" / "to_dir");
    run.UseC();
    run.Filters({"C:\\data\\a", "C:\\Data\\B\\"}, {"C:\\data\\a\\x"});
    ASSERT_EQ(run.Run(), 0) << run.Output() << run.LogText();

    // The oracle: the tree itself, with the filter's meaning applied.
    Lines expected = {"D ", "D data", "D data\\b\\to_dir", "R data\\b|to_dir|C:\\data\\a\\nested"};
    for (auto it = fs::recursive_directory_iterator(c); it != fs::recursive_directory_iterator(); ++it) {
        std::string rel = fs::relative(it->path(), c).string();
        std::replace(rel.begin(), rel.end(), '/', '\\');
        if (!(Under(rel, "data\\a") || Under(rel, "data\\b")) || Under(rel, "data\\a\\x") || it->is_symlink())
            continue;
        expected.insert(it->is_directory() ? "D " + rel : "F " + rel + " " + std::to_string(it->file_size()));
    }
    EXPECT_EQ(Rows(run.Out() / "volume.c_.ifd"), expected);
    // The summary's lines: WriteSummary.ListsEachVolumeTwiceInOrder.
    EXPECT_NE(TextOf(run.Out() / "summary.txt").find("Volumes.0.DataFileName=volume.c_.ifd"), std::string::npos);
}

TEST(OptimizedRun, FailedVolumesAreCountedAndTheOthersStay) {
    CInstance run;
    walktest::WriteFile(run.C() / "kept", 1);
    // D: and E: have no folder: each fails at its only attempt (no shadow).
    run.SetVolumes({{"C:", kGuidC, run.C(), {}},
                    {"D:", kGuidD, run.Root() / "missing_d", {}},
                    {"E:", "0000000e-0000-0000-0000-00000000000e", run.Root() / "missing_e", {}}}, {});
    run.Filters({"C:\\", "D:\\", "E:\\"}, {});
    // An earlier run's summary must not present this run's files as complete.
    fs::create_directories(run.Out());
    WriteBytes(run.Out() / "summary.txt", "type=ifd\r\nvolume.d=volume.d_.ifd\r\n");
    EXPECT_EQ(run.Run(), 1);
    const std::string message = "Indexing failed for 2 volume(s):  [d:], [e:].";
    EXPECT_NE(run.Output().find(message), std::string::npos) << run.Output();
    EXPECT_NE(run.LogText().find(message), std::string::npos);
    EXPECT_TRUE(fs::exists(run.Out() / "volume.c_.ifd"));
    EXPECT_FALSE(fs::exists(run.Out() / "volume.d_.ifd"));
    EXPECT_FALSE(fs::exists(run.Out() / "summary.txt"));
}

TEST(OptimizedRun, ShadowsChooseWhatIsRead) {
    CInstance run;
    const fs::path c = run.C(), d = run.Root() / "d";
    walktest::WriteFile(c / "live.txt", 1);
    walktest::WriteFile(run.Root() / "snap_c" / "shadow.txt", 2);
    walktest::WriteFile(d / "live.txt", 1);
    walktest::WriteFile(run.Root() / "snap_d" / "shadow_d.txt", 3);
    // D:'s shadow: an image whose boot sector says NTFS (no real NTFS: the
    // walk of the shadow's folder makes the index), and its folder.
    std::string boot(512, '\0');
    WriteBytes(run.Root() / "snap_d.img", boot.replace(3, 8, "NTFS    "));
    const std::string shadowD = "/dev/mapper/test-snap-d";
    run.SetVolumes({{"C:", kGuidC, c, {}}, {"D:", kGuidD, d, {}}},
                   {{shadowD, run.Root() / "snap_d.img", run.Root() / "snap_d"}});
    run.Mapping({{VolumeName(kGuidC), (run.Root() / "snap_c").string()}, {VolumeName(kGuidD), shadowD}});
    run.Filters({"C:\\", "D:\\"}, {});
    ASSERT_EQ(run.Run(), 0) << run.Output() << run.LogText();
    EXPECT_EQ(Rows(run.Out() / "volume.c_.ifd"), (Lines{"D ", "F shadow.txt 2"}));
    EXPECT_EQ(Rows(run.Out() / "volume.d_.ifd"), (Lines{"D ", "F shadow_d.txt 3"}));
}

TEST(OptimizedRun, LostTempFilesOfTheTableWriterAreSwept) {
    CInstance run;
    run.UseC();
    const fs::path out = run.Out();
    fs::create_directories(out);
    const std::vector<std::pair<const char*, bool>> files = {
        {"ifd1.tmp", false}, {"ifdAB12.tmp", false},
        // Five characters are more than "????" matches; the index base's own
        // temporary family of a killed run stays.
        {"ifd12345.tmp", true}, {"Index1700000000_Files.tmp", true}};
    for (const auto& [name, stays] : files) WriteBytes(out / name, "x");
    ASSERT_EQ(run.Run({}, out), 0) << run.Output();
    for (const auto& [name, stays] : files) EXPECT_EQ(fs::exists(out / name), stays) << name;
    EXPECT_TRUE(fs::exists(out / "summary.txt"));
}

}  // namespace
