// Trees that make a directory walk go wrong, through the built program
// (volume C: a prepared folder, no shadow, so the walk indexes it): names
// of every kind, bytes that are not UTF-8, folders that cannot be read,
// links that form loops, entries that come and go while the walk runs, and
// paths longer than Windows allows. Each run must end, exit 0, and index
// what can be indexed without dropping or merging names.
#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <thread>

#include "app/run_test_env.h"
#include "platform/names.h"

namespace {

using namespace runtest;

class ReliabilityHostileTree : public ::testing::Test {
protected:
    void SetUp() override {
        m_Run.UseC();
        m_Run.Launcher = "timeout --foreground -s KILL 120";
    }
    fs::path C() const { return m_Run.C(); }
    fs::path Index() const { return m_Run.Out() / "volume.c_.ifd"; }
    Lines Rows() const { return runtest::Rows(Index()); }
    CInstance m_Run;
};

// The names of the file rows whose folder is `folder` (a path from the
// root), in the Linux spelling they convert back to.
std::multiset<std::string> NativeNamesIn(const fs::path& index, const std::u16string& folder) {
    indexer::CIndexBaseReader reader;
    reader.Open(index.u16string());
    reader.PrepareIdIndexes();
    std::multiset<std::string> names;
    reader.ForEachFile([&](uint64_t, uint64_t, const rec::CFileRecord& f) {
        if (reader.GetDirPath(f.m_ParentId) != folder) return;
        const auto native = platform::NameToNative(f.m_Name);
        names.insert(native ? *native : "<no Linux spelling: " + util::Utf16ToUtf8(f.m_Name) + ">");
    });
    return names;
}

TEST_F(ReliabilityHostileTree, EveryNameComesBackAsTheBytesOnDisk) {
    const std::vector<std::string> names = {
        "plain.txt",
        "A.txt", "a.txt",                              // differ only in case
        "\xC3\xA9.txt", "e\xCC\x81.txt",               // é composed and decomposed
        "\xF0\x9F\x98\x80\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9.txt",  // emoji, joiner
        "\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D \xD8\xB3\xD9\x84\xD8\xA7\xD9\x85",  // right to left
        "\xE5\x90\x8D\xE5\x89\x8D\xEF\xBC\x9A",       // CJK, fullwidth colon
        "\xEF\x80\xAA",                                // U+F02A, the private-use stand-in for '*'
        "*", "a:b", "q?", "back\\slash", "pipe|", "<>\"",
        "tab\there", "new\nline", "\x01\x1F",
        "\xFF", "\xFE\xFF", "bad\xC3(", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80",  // not UTF-8
        "\xE2\x80\xAE" "cod.exe",                      // right-to-left override
        " lead and trail ", "dots...", std::string(255, 'L'),
    };
    fs::create_directories(C() / "names");
    for (const auto& name : names) std::ofstream(C() / "names" / name) << name.size();
    std::multiset<std::string> onDisk;
    for (const auto& e : fs::directory_iterator(C() / "names")) onDisk.insert(e.path().filename().string());
    ASSERT_EQ(onDisk.size(), names.size());
    ASSERT_EQ(m_Run.Run(), 0) << m_Run.Output();
    EXPECT_EQ(NativeNamesIn(Index(), u"names"), onDisk);
}

TEST_F(ReliabilityHostileTree, AFolderThatCannotBeReadIsListedButNotEntered) {
    for (const char* file : {"open/seen.txt", "locked/secret.txt", "locked/inner/deep.txt"})
        walktest::WriteFile(C() / file, 1);
    if (::geteuid() == 0) {
        // Root reads every folder: run as nobody, in folders nobody may use.
        if (std::system("command -v setpriv >/dev/null") != 0) GTEST_SKIP() << "no setpriv to drop root";
        for (const auto& e : fs::recursive_directory_iterator(m_Run.Root()))
            fs::permissions(e.path(), fs::perms::all, fs::perm_options::add);
        fs::permissions(m_Run.Root(), fs::perms::all, fs::perm_options::add);
        m_Run.Launcher += " setpriv --reuid=65534 --regid=65534 --clear-groups";
    }
    fs::permissions(C() / "locked", fs::perms::none);
    const int code = m_Run.Run();
    fs::permissions(C() / "locked", fs::perms::owner_all);
    ASSERT_EQ(code, 0) << m_Run.Output() << m_Run.LogText();
    EXPECT_EQ(Rows(), (Lines{"D ", "D open", "F open\\seen.txt 1", "D locked"}));
}

TEST_F(ReliabilityHostileTree, LinkLoopsEndTheWalk) {
    walktest::WriteFile(C() / "a" / "f.txt", 1);
    fs::create_directory_symlink(".", C() / "dot");
    fs::create_directory_symlink("..", C() / "a" / "up");
    fs::create_directory_symlink(C(), C() / "a" / "root");
    fs::create_symlink("self", C() / "self");
    fs::create_symlink("ping", C() / "pong");
    fs::create_symlink("pong", C() / "ping");
    ASSERT_EQ(m_Run.Run(), 0) << m_Run.Output() << m_Run.LogText();
    const Lines rows = Rows();
    EXPECT_TRUE(rows.count("F a\\f.txt 1"));
    // Nothing below a link was walked again.
    for (const auto& row : rows)
        for (const char* link : {"dot\\", "a\\up\\", "a\\root\\"})
            EXPECT_EQ(row.find(link), std::string::npos) << row;
}

TEST_F(ReliabilityHostileTree, EntriesThatComeAndGoDuringTheWalk) {
    for (int i = 0; i < 200; ++i) walktest::WriteFile(C() / "stable" / ("s" + std::to_string(i)), 3);
    fs::create_directories(C() / "churn");
    std::atomic<bool> stop{false};
    std::thread churn([&] {
        for (uint64_t n = 0; !stop; ++n) {
            const fs::path file = C() / "churn" / ("t" + std::to_string(n % 500));
            const fs::path dir = C() / "churn" / ("d" + std::to_string(n % 50));
            std::error_code ignored;
            if (n % 2 == 0) {
                std::ofstream(file) << "x";
                fs::create_directories(dir / "sub", ignored);
            } else {
                fs::remove(file, ignored);
                fs::remove_all(dir, ignored);
            }
        }
    });
    Lines stable;
    for (int i = 0; i < 200; ++i) stable.insert("F stable\\s" + std::to_string(i) + " 3");
    for (int run = 0; run < 8; ++run) {
        const int code = m_Run.Run();
        EXPECT_EQ(code, 0) << m_Run.Output();
        if (code != 0) break;
        const Lines rows = Rows();
        for (const auto& row : stable) EXPECT_TRUE(rows.count(row)) << row;
        // What the walk saw in the churning folder is what the churn makes.
        for (const auto& row : rows) {
            if (row.find("churn\\") == std::string::npos) continue;
            EXPECT_TRUE(row.starts_with("F churn\\t") || row.starts_with("D churn\\d")) << row;
        }
    }
    stop = true;
    churn.join();
}

TEST_F(ReliabilityHostileTree, PathsPastTheWindowsLimitStopTheirBranchOnly) {
    // 140 folders of 255 characters: the path passes 32,767 characters at
    // the 128th level.
    const std::string name(255, 'n');
    // Past PATH_MAX a folder can only be made from its parent's descriptor.
    int fd = ::open(C().c_str(), O_DIRECTORY | O_RDONLY);
    ASSERT_GE(fd, 0);
    for (int level = 1; level <= 140; ++level) {
        ASSERT_EQ(::mkdirat(fd, name.c_str(), 0755), 0) << level;
        const int next = ::openat(fd, name.c_str(), O_DIRECTORY | O_RDONLY);
        ::close(fd);
        ASSERT_GE(next, 0) << level;
        fd = next;
    }
    ::close(::openat(fd, "bottom.txt", O_CREAT | O_WRONLY, 0644));
    ::close(fd);
    walktest::WriteFile(C() / "beside.txt", 2);
    ASSERT_EQ(m_Run.Run(), 0) << m_Run.Output() << m_Run.LogText();
    const Lines rows = Rows();
    EXPECT_TRUE(rows.count("F beside.txt 2"));
    size_t deepest = 0;
    for (const auto& row : rows)
        if (row.starts_with("D ")) deepest = std::max(deepest, row.size() - 2);
    EXPECT_GT(deepest, 30000u);
    EXPECT_LE(deepest, 32767u);
    // rm removes a tree of any depth; the temporary folder's cleanup
    // works through paths and could not.
    EXPECT_EQ(std::system(("rm -rf '" + (C() / name).string() + "'").c_str()), 0);
}

}  // namespace
