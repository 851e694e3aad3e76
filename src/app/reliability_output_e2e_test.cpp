// An output folder that fills up or cannot be written, through the built
// program: the run ends with exit 1 and an "Error:" row, leaves no final
// file that is incomplete and no summary.txt, and does not touch the good
// files an earlier run left there. The folder is a small tmpfs mounted for
// the test (root), or a folder without write permission (other users);
// where neither can be had the cases skip.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "app/run_test_env.h"
#include "walk/walk_test_env.h"

namespace {

using namespace runtest;

constexpr char kGuidC[] = "0000000c-0000-0000-0000-00000000000c";
constexpr char kGuidD[] = "0000000d-0000-0000-0000-00000000000d";

// A tmpfs mounted at a folder for the life of the object.
class CTmpfs {
public:
    CTmpfs(const fs::path& at, const std::string& options) : m_At(at) {
        fs::create_directories(at);
        if (::geteuid() != 0) return;
        m_Mounted = Shell("mount -t tmpfs -o " + options + " ngi-test '" + at.string() + "'");
    }
    ~CTmpfs() {
        if (m_Mounted) Shell("umount '" + m_At.string() + "'");
    }
    bool Mounted() const { return m_Mounted; }
    bool Remount(const std::string& options) { return Shell("mount -o remount," + options + " '" + m_At.string() + "'"); }

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

class ReliabilityOutput : public ::testing::Test {
protected:
    void SetUp() override {
        walktest::WriteFile(m_Run.Root() / "c" / "small.txt", 5);
        // Enough rows that D:'s index cannot fit in what the small folder has left.
        const std::string padding(60, 'x');
        for (int i = 0; i < 4000; ++i)
            walktest::WriteFile(m_Run.Root() / "d" / ("f" + std::to_string(i) + padding), 1);
        m_Run.SetVolumes({{"C:", kGuidC, m_Run.Root() / "c", {}}, {"D:", kGuidD, m_Run.Root() / "d", {}}}, {});
    }
    CInstance m_Run;
};

TEST_F(ReliabilityOutput, AFullFolderFailsTheVolumeAndKeepsTheEarlierGoodFile) {
    CTmpfs out(m_Run.Out(), "size=192k");
    if (!out.Mounted()) GTEST_SKIP() << "a tmpfs cannot be mounted here";
    m_Run.Filters({"C:\\"}, {});
    ASSERT_EQ(m_Run.Run(), 0) << m_Run.Output();
    const std::string earlier = ReadBytes(m_Run.Out() / "volume.c_.ifd");

    m_Run.Filters({"C:\\", "D:\\"}, {});
    EXPECT_EQ(m_Run.Run(), 1);
    EXPECT_NE(m_Run.Output().find("Error: "), std::string::npos) << m_Run.Output();
    EXPECT_NE(m_Run.Output().find("[d:]"), std::string::npos) << m_Run.Output();
    EXPECT_NE(m_Run.LogText().find("There is not enough space on the disk."), std::string::npos) << m_Run.LogText();
    EXPECT_EQ(ReadBytes(m_Run.Out() / "volume.c_.ifd"), earlier);
    EXPECT_FALSE(fs::exists(m_Run.Out() / "volume.d_.ifd"));
    EXPECT_FALSE(fs::exists(m_Run.Out() / "summary.txt"));

    // With room again, the next run completes and sweeps what was left.
    ASSERT_TRUE(out.Remount("size=16m"));
    ASSERT_EQ(m_Run.Run(), 0) << m_Run.Output();
    EXPECT_TRUE(fs::exists(m_Run.Out() / "volume.d_.ifd"));
    EXPECT_TRUE(fs::exists(m_Run.Out() / "summary.txt"));
    EXPECT_EQ(TempFiles(m_Run.Out()), std::vector<std::string>{});
}

TEST_F(ReliabilityOutput, AReadOnlyFolderFailsTheRunAndKeepsWhatItHeld) {
    m_Run.Filters({"C:\\"}, {});
    CTmpfs out(m_Run.Out(), "size=1m");
    ASSERT_EQ(m_Run.Run(), 0) << m_Run.Output();
    const std::string index = ReadBytes(m_Run.Out() / "volume.c_.ifd");
    const std::string summary = ReadBytes(m_Run.Out() / "summary.txt");
    if (out.Mounted()) {
        ASSERT_TRUE(out.Remount("ro"));
    } else if (::geteuid() != 0) {
        fs::permissions(m_Run.Out(), fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write,
                        fs::perm_options::remove);
    } else {
        GTEST_SKIP() << "no read-only folder can be made here";
    }

    EXPECT_EQ(m_Run.Run(), 1);
    EXPECT_NE(m_Run.Output().find("Error: "), std::string::npos) << m_Run.Output();
    // What the earlier run left is neither damaged nor half replaced.
    EXPECT_EQ(ReadBytes(m_Run.Out() / "volume.c_.ifd"), index);
    if (fs::exists(m_Run.Out() / "summary.txt")) {
        EXPECT_EQ(ReadBytes(m_Run.Out() / "summary.txt"), summary);
    }
    EXPECT_EQ(TempFiles(m_Run.Out()), std::vector<std::string>{});
    if (!out.Mounted()) fs::permissions(m_Run.Out(), fs::perms::owner_all, fs::perm_options::add);
}

}  // namespace
