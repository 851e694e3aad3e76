// The built program's answers before any volume is touched: the command
// line and the single-instance mutex; what goes to standard output (the
// usage), standard error and the log.
#include <gtest/gtest.h>

#include "app/entry.h"
#include "app/run_test_env.h"
#include "platform/process.h"
#include "testing/run_program.h"

namespace {

namespace fs = std::filesystem;

// Each test has its own lock folder, so that tests running side by side
// never meet on the single-instance mutex.
struct CProgramFixture : ::testing::Test {
    ngitest::CTempDir dir;
    CProgramFixture() {
        fs::create_directory(dir.Native() / "locks");
        platform::SetEnvVar(u"NGI_LOCK_DIR", dir.Path(u"locks"));
    }
    ~CProgramFixture() override { platform::UnsetEnvVar(u"NGI_LOCK_DIR"); }

    ngitest::TProgramResult Exec(const std::string& args, const std::string& prefix = {}) {
        return ngitest::RunProgram(prefix + "\"" + ngitest::ProgramBeside("NorvaGuestIndexer") + "\" " + args);
    }
    std::string Path(const std::string& name) const { return "\"" + (dir.Native() / name).string() + "\""; }
};

TEST_F(CProgramFixture, RunsRefusedBeforeTheirStart) {
    dir.WriteFile("a-file", "x");
    const std::string logs = "-log " + Path("logs") + " ";
    struct Case {
        std::string args, prefix;
        bool usage;
        std::string err;
    } cases[] = {
        {"", "", true, "Error: Parameters not found.\n"},
        {"-log a -log b out", "", false, "Error: Command line already has key: [log].\n"},
        {"-log " + Path("logs"), "", true, "Wrong command line: Command line error: Additional argument expected.\n"},
        // The lock file cannot be made: the system's text, and nothing else
        // touched (the log is not set up yet).
        {logs + Path("out"), "NGI_LOCK_DIR=" + Path("missing") + " ", false,
         "Error: Cannot create mutex.\r\nWin32 error:The system cannot find the file specified.\r\n Code: 2\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        auto r = Exec(c.args, c.prefix);
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.out.find("Usage:") != std::string::npos, c.usage) << r.out;
        EXPECT_EQ(r.err, c.err);
        EXPECT_FALSE(fs::exists(dir.Native() / "out"));
    }
    // The log is set up before the output directory is asked for: the wrong
    // command line is logged.
    EXPECT_NE(runtest::TextOf(*fs::directory_iterator(dir.Native() / "logs"))
                  .find("ERR     Wrong command line: Command line error: Additional argument expected..\r\n"),
              std::string::npos);
}

TEST_F(CProgramFixture, SecondInstanceIsRefused) {
    platform::CHandle first = platform::CreateNamedMutex(indexer::kInstanceMutexName, true);
    ASSERT_TRUE(first.IsValid());
    auto r = Exec("-log " + Path("logs") + " " + Path("out"));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "Error: Other instance of indexer detected.\n");
    EXPECT_FALSE(fs::exists(dir.Native() / "logs"));  // nothing else touched
}

}  // namespace
