// Trees that make a directory walk go wrong, through the built program
// (volume C: a prepared folder, no shadow, so the walk indexes it): names
// of every kind, bytes that are not UTF-8 and folders that cannot be read. Each run must end, exit 0, and index
// what can be indexed without dropping or merging names.
#include <fcntl.h>
#include <sys/stat.h>

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

}  // namespace
