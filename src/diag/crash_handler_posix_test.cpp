// The crash handler end to end: a forked child installs it and crashes on
// purpose; the parent looks at what the child left behind. POSIX only (fork
// and signals); the Windows build has crash_rerun_test.cpp.

#include "diag/crash_handler.h"

#include <pthread.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include "diag/crash_test_util.h"
#include "diag/dump_recorder_image.h"
#include "diag/log.h"
#include "testing/run_program.h"
#include "testing/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

// An address in the never-mapped first page (not null: a sanitizer would
// report a null store itself instead of letting the fault happen).
int* volatile g_Nowhere = reinterpret_cast<int*>(uintptr_t{16});

// The function every dump must show on top of the crashing thread's stack.
__attribute__((noinline)) void CrashHereOnPurpose() {
    *g_Nowhere = 42;
    asm volatile("" ::: "memory");
}

__attribute__((noinline)) void* CrashInThread(void*) {
    CrashHereOnPurpose();
    return nullptr;
}

// The main thread waits while another one crashes: the core must hold both.
__attribute__((noinline)) void CrashOnASecondThread() {
    pthread_t thread;
    pthread_create(&thread, nullptr, CrashInThread, nullptr);
    pthread_join(thread, nullptr);
}

volatile bool g_KeepRecursing = true;

__attribute__((noinline)) int RecurseForever(int depth) {
    volatile char frame[512];
    frame[0] = static_cast<char>(depth);
    if (!g_KeepRecursing) return frame[0];
    return RecurseForever(depth + 1) + frame[0];
}

void OverflowTheStack() { RecurseForever(0); }

std::vector<std::string> Names(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(folder)) names.push_back(e.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

class CrashHandlerTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(dir.Native() / "dumps");
        fs::create_directories(dir.Native() / "tmp");
        settings.tempFolder = dir.Path(u"tmp");
    }

    // Forks a child that installs the handler with `settings`, registers two
    // crash handlers (each leaves a line in "handlers"; with `failFirst` the
    // first throws and the second must not run) and crashes. Expects the
    // child killed by SIGSEGV, the signal every crash here raises.
    void CrashChild(void (*crash)() = CrashHereOnPurpose, bool failFirst = false) {
        std::fflush(nullptr);  // the child must not print the parent's buffers again
        pid_t child = fork();
        if (child == 0) {
            GetLog().SetWriter(std::make_shared<ngitest::CLogAppender>(dir.Path(u"log")));
            CCrashHandler::Install(crash::DumpRecorderImage());
            CCrashHandler::SetDumpLocation(dir.Path(u"dumps"), u"Indexer");
            const crash::TDumpSettings s = settings;
            CCrashHandler::Instance().SetSettingsReader([s] { return s; });
            const std::u16string marks = dir.Path(u"handlers");
            auto seq = CCrashHandler::Instance().GetDeinitSeq();
            if (failFirst) seq->Add([] { throw CExc(u"handler broke"); });
            for (const char16_t* mark : {u"first", u"second"})
                seq->Add([marks, mark] { ngitest::CLogAppender(marks).WriteLine(0, GetLog(), 0, mark); });
            crash();
            _exit(99);  // not reached
        }
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << "status " << status;
        EXPECT_EQ(WTERMSIG(status), SIGSEGV);
        log = dir.ReadFile("log");
    }

    void ExpectHandlersRan() {
        EXPECT_EQ(dir.ReadFile("handlers"), "first\nsecond\n");
        EXPECT_THAT(log, HasSubstr("Executing crash handlers."));
        EXPECT_THAT(log, HasSubstr("Crash handlers were successfully executed."));
    }

    // The one dump the crash left.
    std::string OnlyDump() {
        const auto names = Names(dir.Native() / "dumps");
        EXPECT_EQ(names.size(), 1u);
        return names.empty() ? "" : "dumps/" + names[0];
    }

    // gdb's backtrace of the core must name the crashing function.
    std::string ExpectGdbShowsCrash(const std::string& core, const std::string& command = "bt") {
        const std::string exe = fs::read_symlink("/proc/self/exe");
        const std::string bt = ngitest::RunProgram("gdb -nx -batch -ex '" + command + "' '" + exe + "' '" +
                                                   (dir.Native() / core).string() + "' 2>&1").out;
        EXPECT_THAT(bt, HasSubstr("CrashHereOnPurpose")) << bt;
        EXPECT_THAT(bt, HasSubstr("SIGSEGV")) << bt;
        return bt;
    }

    // Process dumps need ptrace (a sandbox may forbid it), and reading them gdb.
    void SkipWithoutDumpSupport() {
        if (!platform::ProcessDumpsSupported()) GTEST_SKIP() << "process tracing is switched off";
        if (ngitest::RunProgram("command -v gdb").out.empty()) GTEST_SKIP() << "gdb is not installed";
        std::fflush(nullptr);
        pid_t child = fork();
        if (child == 0) {
            pause();
            _exit(0);
        }
        const bool traced = ptrace(PTRACE_SEIZE, child, nullptr, nullptr) == 0;
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        if (!traced) GTEST_SKIP() << "ptrace is not permitted here";
    }

    ngitest::CTempDir dir;
    crash::TDumpSettings settings;
    std::string log;
};

TEST_F(CrashHandlerTest, MinidumpGeneratorLeavesACoreThatGdbReads) {
    SkipWithoutDumpSupport();
    CrashChild(CrashOnASecondThread);
    ASSERT_EQ(Names(dir.Native() / "dumps"), std::vector<std::string>{"Indexer_crash_0.mdmp"});
    EXPECT_THAT(log, HasSubstr("Writing dump. Dump path: "));
    ExpectHandlersRan();
    // Every thread is in the core (libc frames resolve too), the crashing
    // one first: "bt 1" shows the current thread.
    const std::string all = ExpectGdbShowsCrash("dumps/Indexer_crash_0.mdmp", "thread apply all bt");
    EXPECT_THAT(all, HasSubstr("CrashOnASecondThread")) << all;
    EXPECT_THAT(all, HasSubstr("pthread_join")) << all;
    ExpectGdbShowsCrash("dumps/Indexer_crash_0.mdmp", "bt 1");
}

TEST_F(CrashHandlerTest, OutOfProcessGeneratorLeavesTheRecordersCore) {
    SkipWithoutDumpSupport();
    settings.outOfProcDumpGen = 1;
    // A crash off the main thread: the current thread of the core is the crashing one.
    CrashChild(CrashOnASecondThread);
    const std::string core = OnlyDump();
    EXPECT_THAT(core, ::testing::MatchesRegex("dumps/Indexer_crash__[0-9]+_[0-9]+_[0-9]+\\.mdmp"));
    EXPECT_TRUE(Names(dir.Native() / "tmp").empty()) << "the recorder file must be gone";
    EXPECT_THAT(log, HasSubstr("Generating dump to " + (dir.Native() / "dumps").string()));
    EXPECT_THAT(log, HasSubstr(". Ok."));
    ExpectHandlersRan();
    EXPECT_THAT(ExpectGdbShowsCrash(core), HasSubstr("CrashInThread"));
}

TEST_F(CrashHandlerTest, LegacyGeneratorWritesTheTextReportOfEachCrash) {
    settings.processDumpsSupported = false;
    const struct {
        void (*crash)();
        std::vector<std::string> report;
    } cases[] = {
        {CrashHereOnPurpose,
         {"// Exception: 0x0000000b (SIGSEGV)", "Address: 0x0000000000000010", "Loaded modules:", "Registers:",
          "Stack frames:"}},
        {OverflowTheStack, {"Stack frames:"}},  // caught on the alternate stack
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.report[0]);
        CrashChild(c.crash);
        ASSERT_EQ(Names(dir.Native() / "dumps"), std::vector<std::string>{"Indexer_crash_0.log"});
        const std::string report = dir.ReadFile("dumps/Indexer_crash_0.log");
        for (const auto& part : c.report) EXPECT_THAT(report, HasSubstr(part));
        EXPECT_THAT(log, HasSubstr("Writing legacy dump. Dump path: "));
        ExpectHandlersRan();
        fs::remove(dir.Native() / "dumps" / "Indexer_crash_0.log");
        fs::remove(dir.Native() / "handlers");
    }
}

TEST_F(CrashHandlerTest, UndeletableDumpsStopTheDumpButNotTheHandlers) {
    // A folder bearing a dump's name is found like one and can't be deleted
    // as a file: the way to have undeletable dumps even as root.
    for (int id = 0; id < 20; ++id)
        fs::create_directory(dir.Native() / "dumps" / ("Indexer_crash_" + std::to_string(id) + ".mdmp"));
    CrashChild();
    EXPECT_THAT(log, HasSubstr("Cannot generate crash dump."));
    ExpectHandlersRan();
}

TEST_F(CrashHandlerTest, AFailingHandlerSkipsTheRestAndTheProcessStillEnds) {
    settings.processDumpsSupported = false;
    CrashChild(CrashHereOnPurpose, true);
    EXPECT_EQ(dir.ReadFile("handlers"), "");
    EXPECT_THAT(log, HasSubstr("Crash handlers cannot be executed."));
    EXPECT_THAT(log, HasSubstr("handler broke"));
}

}  // namespace
