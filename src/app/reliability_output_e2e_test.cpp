// An output folder that fills up or cannot be written, through the built
// program: the run ends with exit 1 and an "Error:" row, leaves no final
// file that is incomplete and no summary.txt, and does not touch the good
// files an earlier run left there. The folder is a small tmpfs mounted for
// the test (root), or a folder without write permission (other users);
// where neither can be had the cases skip.
#include <sys/stat.h>

#include "app/run_test_env.h"

namespace {

using namespace runtest;

// A tmpfs mounted at a folder for the life of the object (root only).
class CTmpfs {
public:
    CTmpfs(const fs::path& at, const std::string& options) : m_At(at) {
        fs::create_directories(at);
        m_Mounted = ::geteuid() == 0 && Shell("mount -t tmpfs -o " + options + " ngi-test '" + at.string() + "'");
    }
    ~CTmpfs() {
        if (m_Mounted) Shell("umount '" + m_At.string() + "'");
    }
    bool Mounted() const { return m_Mounted; }
    bool Remount(const std::string& options) {
        return Shell("mount -o remount," + options + " '" + m_At.string() + "'");
    }

private:
    static bool Shell(const std::string& command) { return std::system((command + " 2>/dev/null").c_str()) == 0; }
    fs::path m_At;
    bool m_Mounted = false;
};

std::vector<std::string> TempFiles(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(folder))
        if (e.path().extension() == ".tmp") names.push_back(e.path().filename().string());
    return names;
}

// C: small; D: enough rows that its index cannot fit in what the small
// folder has left.
struct CTwoVolumes : CInstance {
    CTwoVolumes() {
        walktest::WriteFile(Root() / "c" / "small.txt", 5);
        for (int i = 0; i < 4000; ++i)
            walktest::WriteFile(Root() / "d" / ("f" + std::to_string(i) + std::string(60, 'x')), 1);
        SetVolumes({{"C:", kGuidC, Root() / "c", {}}, {"D:", kGuidD, Root() / "d", {}}}, {});
        Filters({"C:\\"}, {});
    }
};

// Full (root: a tmpfs of 192 KiB), then read-only (the tmpfs remounted, or
// a folder without write permission for other users).
TEST(ReliabilityOutput, AFullOrReadOnlyFolderFailsAndKeepsTheEarlierGoodFiles) {
    CTwoVolumes run;
    CTmpfs out(run.Out(), "size=192k");
    ASSERT_EQ(run.Run(), 0) << run.Output();
    const fs::path c = run.Out() / "volume.c_.ifd", d = run.Out() / "volume.d_.ifd", sum = run.Out() / "summary.txt";
    if (out.Mounted()) {
        const std::string earlier = ReadBytes(c);
        run.Filters({"C:\\", "D:\\"}, {});
        EXPECT_EQ(run.Run(), 1);
        EXPECT_NE(run.Output().find("Error: "), std::string::npos) << run.Output();
        EXPECT_NE(run.Output().find("[d:]"), std::string::npos) << run.Output();
        EXPECT_NE(run.LogText().find("There is not enough space on the disk."), std::string::npos) << run.LogText();
        EXPECT_EQ(ReadBytes(c), earlier);
        EXPECT_FALSE(fs::exists(d));
        EXPECT_FALSE(fs::exists(sum));
        // With room again, the next run completes and sweeps what was left.
        ASSERT_TRUE(out.Remount("size=16m"));
        ASSERT_EQ(run.Run(), 0) << run.Output();
        EXPECT_TRUE(fs::exists(d));
        EXPECT_EQ(TempFiles(run.Out()), std::vector<std::string>{});
    }
    const std::string index = ReadBytes(c), summary = ReadBytes(sum);
    if (out.Mounted()) {
        ASSERT_TRUE(out.Remount("ro"));
    } else if (::geteuid() != 0) {
        fs::permissions(run.Out(), fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write,
                        fs::perm_options::remove);
    } else {
        GTEST_SKIP() << "no read-only folder can be made here";
    }
    EXPECT_EQ(run.Run(), 1);
    EXPECT_NE(run.Output().find("Error: "), std::string::npos) << run.Output();
    // What the earlier run left is neither damaged nor half replaced.
    EXPECT_EQ(ReadBytes(c), index);
    if (fs::exists(sum)) {
        EXPECT_EQ(ReadBytes(sum), summary);
    }
    EXPECT_EQ(TempFiles(run.Out()), std::vector<std::string>{});
    if (!out.Mounted()) fs::permissions(run.Out(), fs::perms::owner_all, fs::perm_options::add);
}

}  // namespace
