// The built program, run as a user runs it: its texts on standard output and
// standard error, its exit codes, its log file and its use of the registry.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>

#include <filesystem>

#include "app/entry.h"
#include "platform/process.h"
#include "testing/build_kind.h"
#include "testing/run_program.h"
#include "testing/temp_dir.h"
#include "testing/temp_registry.h"

namespace {

namespace fs = std::filesystem;

const std::string kUsage =
    "Norva command line utility for indexing NTFS volumes. Version 2.0.\n\n"
    "Usage:\n\n"
    "  NorvaGuestIndexer [-log log_file_name] [-opt <yes|no> [-parseFS <yes|no>]] <outputdir>\n"
    "    - Generates binary index files in output directory\n\n"
    "  -log - optional parameter. Defines full path to log file.\n"
    "  -opt - optional parameter. If parameter have value 'yes', when used optimized algorithm. "
    "in other cases used old algorithm.\n"
    "  -parse_fs - optional parameter. if parameter used with value 'no', when used primitive "
    "FindFirst/FindNext algorithm. In other cases used parsing FS algorithm.\n\n"
    "\n";

// Each test has its own lock folder, so that tests running side by side
// never meet on the single-instance mutex, and its own registry.
struct CProgramFixture : ::testing::Test {
    ngitest::CTempDir dir;
    ngitest::CTempRegistry registry;
    CProgramFixture() { platform::SetEnvVar(u"NGI_LOCK_DIR", dir.Path(u"locks")); fs::create_directory(dir.Native() / "locks"); }
    ~CProgramFixture() override { platform::UnsetEnvVar(u"NGI_LOCK_DIR"); }

    ngitest::TProgramResult Exec(const std::string& args, const std::string& prefix = {}) {
        return ngitest::RunProgram(prefix + "\"" + ngitest::ProgramBeside("NorvaGuestIndexer") + "\" " + args);
    }
    std::string Out(const std::string& name) const { return "\"" + (dir.Native() / name).string() + "\""; }

    // The text of the only log file of the folder "logs" (UTF-16LE after its mark).
    std::u16string LogText() {
        std::u16string text;
        size_t files = 0;
        for (const auto& e : fs::directory_iterator(dir.Native() / "logs")) {
            ++files;
            const std::string bytes = dir.ReadFile(fs::path("logs") / e.path().filename());
            EXPECT_EQ(bytes.substr(0, 2), "\xFF\xFE");
            for (size_t i = 2; i + 1 < bytes.size(); i += 2)
                text += static_cast<char16_t>(static_cast<uint8_t>(bytes[i]) |
                                              (static_cast<uint8_t>(bytes[i + 1]) << 8));
        }
        EXPECT_EQ(files, 1u);
        return text;
    }
};

TEST_F(CProgramFixture, CommandLineRows) {
    struct Case {
        std::string args;
        bool usage;
        std::string err;
    } cases[] = {
        {"", true, "Error: Parameters not found.\n"},
        {"-opt", true, "Error: Parameters not found.\n"},
        {"-log a -log b out", false, "Error: Command line already has key: [log].\n"},
        {"-opt -x out", false, "Error: No value for key: [opt].\n"},
        {"-x -X out", false, "Error: Command line already has flag: [x].\n"},
        {"out1 out2", true, "Wrong command line: Unexpected parameters in the command line.\n"},
        {"-parseFS no out", true, "Wrong command line: Unexpected parameters in the command line.\n"},
        {"-log " + Out("logs"), true,
         "Wrong command line: Command line error: Additional argument expected.\n"},
    };
    for (const auto& c : cases) {
        auto r = Exec(c.args);
        EXPECT_EQ(r.exitCode, 1) << c.args;
        EXPECT_EQ(r.out, c.usage ? kUsage : "") << c.args;
        EXPECT_EQ(r.err, c.err) << c.args;
    }
    // The log is set up before the output directory is asked for: the wrong
    // command line is logged.
    EXPECT_NE(LogText().find(u"ERR     Wrong command line: Command line error: Additional argument "
                             u"expected..\r\n"),
              std::u16string::npos);
}

TEST_F(CProgramFixture, SecondInstanceIsRefused) {
    platform::CHandle first = platform::CreateNamedMutex(indexer::kInstanceMutexName, true);
    ASSERT_TRUE(first.IsValid());
    auto r = Exec("-log " + Out("logs") + " " + Out("out"));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "Error: Other instance of indexer detected.\n");
    EXPECT_FALSE(fs::exists(dir.Native() / "logs"));  // nothing else touched
}

// The lock file of the single-instance mutex cannot be made, for a reason
// other than another instance: the "Error:" row with the system's text, and
// nothing else touched (the log is not set up yet).
TEST_F(CProgramFixture, MutexThatCannotBeCreated) {
    dir.WriteFile("a-file", "x");
    struct Case {
        const char* lockDir;
        std::string systemText;
    } cases[] = {
        {"a-file", "Win32 error:The system cannot find the path specified.\r\n Code: 3"},
        {"missing", "Win32 error:The system cannot find the file specified.\r\n Code: 2"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.lockDir);
        auto r = Exec("-log " + Out("logs") + " " + Out("out"), "NGI_LOCK_DIR=" + Out(c.lockDir) + " ");
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, "Error: Cannot create mutex.\r\n" + c.systemText + "\n");
        EXPECT_FALSE(fs::exists(dir.Native() / "logs"));
        EXPECT_FALSE(fs::exists(dir.Native() / "out"));
    }
}

// An exception that is not a CExc leaves the run: the entry point's
// catch-all answers "Error: Unhandled exception." and 1. Provoked as a
// machine short of memory would: under an address-space limit the registry
// file, which is read whole, cannot be held (64 MiB, the most the reader
// takes, as a hole). The same limit with a small registry runs on to the
// ordinary failure of a missing filter file, so the program had room to
// start, and the memory ran out where it was meant to. (Here that run stops
// at the filter files missing beside the built program.)
TEST_F(CProgramFixture, ExceptionThatIsNotACExc) {
    if (ngitest::kSanitizedBuild) GTEST_SKIP() << "the sanitizers cannot start under an address-space limit";
    dir.WriteFile("small.reg", "Windows Registry Editor Version 5.00\r\n");
    dir.WriteFile("big.reg", "Windows Registry Editor Version 5.00\r\n");
    fs::resize_file(dir.Native() / "big.reg", 64 * 1024 * 1024);
    const std::string limit = "ulimit -v 98304; ";  // KiB: the program takes about 45 MiB to start
    auto control = Exec("-opt yes " + Out("out"), limit + "NGI_REGISTRY_FILE=" + Out("small.reg") + " ");
    ASSERT_TRUE(control.exitCode == 0 || control.err.rfind("Error: ", 0) == 0) << control.err;
    ASSERT_EQ(control.err.find("Unhandled exception"), std::string::npos);

    auto r = Exec("-opt yes " + Out("out"), limit + "NGI_REGISTRY_FILE=" + Out("big.reg") + " ");
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "Error: Unhandled exception.\n");
}

TEST_F(CProgramFixture, LogFileOfARun) {
    // Five old logs and a limit of three: two old ones stay beside today's.
    registry.Set("[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA]\n\"MAX_LOGS_COUNT\"=dword:00000003\n");
    for (int i = 0; i < 5; ++i) {
        const fs::path old = fs::path("logs") / ("NorvaGuestIndexer_0" + std::to_string(i) + "012000.log");
        dir.WriteFile(old, "\xFF\xFE");
        fs::last_write_time(dir.Native() / old, fs::file_time_type::clock::now() - std::chrono::hours(100 - i));
    }
    auto r = Exec("-log " + Out("logs") + " -opt yes -parse_fs no " + Out("out"));
    size_t logs = 0;
    for (const auto& e : fs::directory_iterator(dir.Native() / "logs")) {
        ++logs;
        const std::string name = e.path().filename().string();
        EXPECT_TRUE(name.rfind("NorvaGuestIndexer_", 0) == 0) << name;
    }
    EXPECT_EQ(logs, 3u);
    EXPECT_TRUE(fs::exists(dir.Native() / "logs" / "NorvaGuestIndexer_04012000.log"));
    EXPECT_TRUE(fs::exists(dir.Native() / "logs" / "NorvaGuestIndexer_03012000.log"));
    if (r.exitCode != 0) {
        EXPECT_EQ(r.err.rfind("Error: ", 0), 0u) << r.err;
    }
}

TEST_F(CProgramFixture, LogLinesAndPriorityFromTheRegistry) {
    // The lines checked here are those of a start at normal priority; a test
    // run that was itself started under `nice` gets "already have" lines.
    errno = 0;
    if (getpriority(PRIO_PROCESS, 0) != 0 && errno == 0)
        GTEST_SKIP() << "the tests run at a lowered priority";
    struct Case {
        std::string value;
        std::u16string line;
    } cases[] = {
        {"", u"INFO    Background priority set.\r\n"},
        {"\"below_normal\"", u"INFO    Process take [BELOW_NORMAL] priority.\r\n"},
        {"\"FAST\"", u"ERR     Invalid priority name [FAST]\r\n"},
    };
    for (const auto& c : cases) {
        registry.Set(c.value.empty() ? std::string()
                                     : "[HKEY_LOCAL_MACHINE\\Software\\Norva\\Norva Archive And Mirror]\n"
                                       "\"NorvaGuestIndexerPriority\"=" + c.value + "\n");
        fs::remove_all(dir.Native() / "logs");
        auto r = Exec("-log " + Out("logs") + " -opt yes " + Out("out"));
        const std::u16string text = LogText();
        EXPECT_NE(text.find(u"    INFO    " + std::u16string(96, u'=') + u"\r\n"), std::u16string::npos);
        EXPECT_NE(text.find(c.line), std::u16string::npos) << std::string(text.begin(), text.end());
        if (c.value == "\"FAST\"") {
            EXPECT_EQ(text.find(u"Process priority restored."), std::u16string::npos);
        } else {
            // Leaving a lower priority needs a privilege (root on Linux); without
            // it the guard says that it failed.
            EXPECT_TRUE(text.find(u"INFO    Process priority restored.\r\n") != std::u16string::npos ||
                        text.find(u"Failed to restore priority.\r\n") != std::u16string::npos);
        }
        // A failed run reports itself in the log and on standard error alike.
        if (r.exitCode == 1) {
            ASSERT_EQ(r.err.rfind("Error: ", 0), 0u);
            const std::string first = r.err.substr(7, r.err.find_first_of("\r\n") - 7);
            EXPECT_NE(text.find(u"ERR     Error: " + std::u16string(first.begin(), first.end())),
                      std::u16string::npos);
        } else {
            EXPECT_NE(text.find(u"Algorithm execute time: "), std::u16string::npos);
        }
    }
}

TEST_F(CProgramFixture, StartedInBackgroundModeStaysInIt) {
    if (std::system("ionice -c3 true >/dev/null 2>&1") != 0) GTEST_SKIP() << "ionice is missing";
    Exec("-log " + Out("logs") + " -opt yes " + Out("out"), "ionice -c3 ");
    const std::u16string text = LogText();
    EXPECT_NE(text.find(u"INFO    Process already have background priority.\r\n"), std::u16string::npos);
    EXPECT_EQ(text.find(u"Process priority restored."), std::u16string::npos);
}

}  // namespace
