// The crash handler end to end: a forked child installs it and crashes on
// purpose; the parent looks at what the child left behind. POSIX only (fork
// and signals); the Windows build has no such test yet.

#include "diag/crash_handler.h"

#include <elf.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "base/utf.h"
#include "diag/dump_recorder_image.h"
#include "diag/log.h"

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

// Sleeps in a thread of its own: the core must hold this thread too.
__attribute__((noinline)) void* WaitForeverOnPurpose(void*) {
    while (true) pause();
    return nullptr;
}

void CrashWithASecondThread() {
    pthread_t thread;
    pthread_create(&thread, nullptr, WaitForeverOnPurpose, nullptr);
    usleep(20000);
    CrashHereOnPurpose();
}

volatile bool g_KeepRecursing = true;

void* CrashInThread(void*) {
    CrashHereOnPurpose();
    return nullptr;
}

// The main thread waits while another one crashes.
void CrashOnASecondThread() {
    pthread_t thread;
    pthread_create(&thread, nullptr, CrashInThread, nullptr);
    pthread_join(thread, nullptr);
}

__attribute__((noinline)) int RecurseForever(int depth) {
    volatile char frame[512];
    frame[0] = static_cast<char>(depth);
    if (!g_KeepRecursing) return frame[0];
    return RecurseForever(depth + 1) + frame[0];
}

void OverflowTheStack() { RecurseForever(0); }

void AbortOnPurpose() { std::abort(); }

// Appends each log line to a file, so that the parent can read what the
// crashing child logged.
class CLogToFile : public CLogWriter {
public:
    explicit CLogToFile(std::string path) : m_Path(std::move(path)) {}
    void WriteLine(int32_t, const CLog&, int32_t, std::u16string_view text) override {
        const std::string line = util::Utf16ToUtf8(text) + "\n";
        int fd = open(m_Path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        if (fd < 0) return;
        if (write(fd, line.data(), line.size()) < 0) {
        }
        close(fd);
    }

private:
    std::string m_Path;
};

std::string ReadText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// The bytes of code a core carries: the file sizes of its executable
// PT_LOAD segments.
uint64_t CodeBytesInCore(const fs::path& core) {
    const std::string bytes = ReadText(core);
    if (bytes.size() < sizeof(Elf64_Ehdr)) return 0;
    Elf64_Ehdr eh;
    memcpy(&eh, bytes.data(), sizeof(eh));
    uint64_t total = 0;
    for (unsigned i = 0; i < eh.e_phnum; ++i) {
        const uint64_t at = eh.e_phoff + uint64_t(i) * sizeof(Elf64_Phdr);
        if (at + sizeof(Elf64_Phdr) > bytes.size()) break;
        Elf64_Phdr ph;
        memcpy(&ph, bytes.data() + at, sizeof(ph));
        if (ph.p_type == PT_LOAD && (ph.p_flags & PF_X)) total += ph.p_filesz;
    }
    return total;
}

std::vector<std::string> Names(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(folder)) names.push_back(e.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

std::string RunCommand(const std::string& command) {
    std::string out;
    FILE* p = popen(command.c_str(), "r");
    if (!p) return out;
    std::array<char, 4096> buf;
    size_t n;
    while ((n = fread(buf.data(), 1, buf.size(), p)) > 0) out.append(buf.data(), n);
    pclose(p);
    return out;
}

class CrashHandlerTest : public ::testing::Test {
protected:
    void SetUp() override {
        const char* tmp = getenv("TMPDIR");
        std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/ngi-crash-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        root = pattern;
        dumps = root / "dumps";
        fs::create_directories(dumps);
        fs::create_directories(root / "tmp");
        settings.tempFolder = util::Utf8ToUtf16((root / "tmp").string());
    }
    void TearDown() override {
        if (getenv("NGI_KEEP_CRASH_FILES")) {  // for a look at the dumps by hand
            std::fprintf(stderr, "crash files kept in %s\n", root.c_str());
            return;
        }
        std::error_code ec;
        fs::remove_all(root, ec);
    }

    // Forks a child that installs the handler with `settings`, registers two
    // crash handlers (each leaves a line in "handlers") and crashes. Returns
    // the child's wait status.
    int CrashChild(void (*crash)() = CrashHereOnPurpose) {
        std::fflush(nullptr);  // the child must not print the parent's buffers again
        pid_t child = fork();
        if (child == 0) {
            GetLog().SetWriter(std::make_shared<CLogToFile>((root / "log").string()));
            CCrashHandler::Install(crash::DumpRecorderImage());
            CCrashHandler::SetDumpLocation(util::Utf8ToUtf16(dumps.string()), u"Indexer");
            const crash::TDumpSettings s = settings;
            CCrashHandler::Instance().SetSettingsReader([s] { return s; });
            const std::string marks = (root / "handlers").string();
            for (const char* mark : {"first", "second"})
                CCrashHandler::Instance().GetDeinitSeq()->Add([marks, mark] {
                    CLogToFile(marks).WriteLine(0, GetLog(), 0, util::Utf8ToUtf16(mark));
                });
            crash();
            _exit(99);  // not reached
        }
        int status = 0;
        waitpid(child, &status, 0);
        return status;
    }

    void ExpectKilledBySegv(int status, int signal = SIGSEGV) {
        ASSERT_TRUE(WIFSIGNALED(status)) << "status " << status;
        EXPECT_EQ(WTERMSIG(status), signal);
    }

    void ExpectHandlersRan() {
        EXPECT_EQ(ReadText(root / "handlers"), "first\nsecond\n");
        const std::string log = ReadText(root / "log");
        EXPECT_THAT(log, HasSubstr("Executing crash handlers."));
        EXPECT_THAT(log, HasSubstr("Crash handlers were successfully executed."));
    }

    // gdb's backtrace of the core must name the crashing function.
    void ExpectGdbShowsCrash(const fs::path& core, const std::string& command = "bt") {
        if (RunCommand("command -v gdb").empty()) {
            GTEST_SKIP() << "gdb is not installed";
        }
        const std::string exe = fs::read_symlink("/proc/self/exe");
        const std::string bt = RunCommand("gdb -nx -batch -ex '" + command + "' '" + exe + "' '" +
                                          core.string() + "' 2>&1");
        lastGdbOutput = bt;
        EXPECT_THAT(bt, HasSubstr("CrashHereOnPurpose")) << bt;
        EXPECT_THAT(bt, HasSubstr("SIGSEGV")) << bt;
    }

    // Process dumps need ptrace; a sandbox may forbid it.
    void SkipWithoutDumpSupport() {
        if (!platform::ProcessDumpsSupported()) GTEST_SKIP() << "process tracing is switched off";
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

    fs::path root, dumps;
    crash::TDumpSettings settings;
    std::string lastGdbOutput;
};

TEST_F(CrashHandlerTest, MinidumpGeneratorLeavesACoreThatGdbReads) {
    SkipWithoutDumpSupport();
    ExpectKilledBySegv(CrashChild());
    ASSERT_EQ(Names(dumps), std::vector<std::string>{"Indexer_crash_0.mdmp"});
    const std::string core = ReadText(dumps / "Indexer_crash_0.mdmp");
    ASSERT_GT(core.size(), 64u);
    EXPECT_EQ(core.substr(0, 4), "\x7f" "ELF");
    EXPECT_LT(CodeBytesInCore(dumps / "Indexer_crash_0.mdmp"), 64u * 4096);
    EXPECT_THAT(ReadText(root / "log"), HasSubstr("Writing dump. Dump path: "));
    ExpectHandlersRan();
    ExpectGdbShowsCrash(dumps / "Indexer_crash_0.mdmp");
}

TEST_F(CrashHandlerTest, OutOfProcessGeneratorLeavesTheRecordersCore) {
    SkipWithoutDumpSupport();
    settings.outOfProcDumpGen = 1;
    ExpectKilledBySegv(CrashChild());
    const auto names = Names(dumps);
    ASSERT_EQ(names.size(), 1u);
    EXPECT_THAT(names[0], ::testing::MatchesRegex("Indexer_crash__[0-9]+_[0-9]+_[0-9]+\\.mdmp"));
    EXPECT_TRUE(Names(root / "tmp").empty()) << "the recorder file must be gone";
    const std::string log = ReadText(root / "log");
    EXPECT_THAT(log, HasSubstr("Generating dump to " + dumps.string()));
    EXPECT_THAT(log, HasSubstr(". Ok."));
    ExpectHandlersRan();
    ExpectGdbShowsCrash(dumps / names[0]);
}

TEST_F(CrashHandlerTest, EveryThreadIsInTheCoreTheCrashingOneFirst) {
    SkipWithoutDumpSupport();
    ExpectKilledBySegv(CrashChild(CrashWithASecondThread));
    ASSERT_EQ(Names(dumps), std::vector<std::string>{"Indexer_crash_0.mdmp"});
    ExpectGdbShowsCrash(dumps / "Indexer_crash_0.mdmp", "thread apply all bt");
    EXPECT_THAT(lastGdbOutput, HasSubstr("WaitForeverOnPurpose")) << lastGdbOutput;
    // libc frames resolve: the debugger found the shared libraries
    EXPECT_THAT(lastGdbOutput, HasSubstr("pause")) << lastGdbOutput;
    // gdb lists the current (crashing) thread's frames with "#0" first in bt
    ExpectGdbShowsCrash(dumps / "Indexer_crash_0.mdmp", "bt 1");
}

TEST_F(CrashHandlerTest, ACrashOffTheMainThreadLeadsTheRecordersCore) {
    SkipWithoutDumpSupport();
    settings.outOfProcDumpGen = 1;
    ExpectKilledBySegv(CrashChild(CrashOnASecondThread));
    const auto names = Names(dumps);
    ASSERT_EQ(names.size(), 1u);
    ExpectGdbShowsCrash(dumps / names[0]);  // bt of the current thread: the crashing one
    EXPECT_THAT(lastGdbOutput, HasSubstr("CrashInThread")) << lastGdbOutput;
}

TEST_F(CrashHandlerTest, FullMemoryDumpThroughTheRecorder) {
    SkipWithoutDumpSupport();
    settings.outOfProcDumpGen = 1;
    settings.dumpModeName = u"Full";
    ExpectKilledBySegv(CrashChild());
    const auto names = Names(dumps);
    ASSERT_EQ(names.size(), 1u);
    ExpectGdbShowsCrash(dumps / names[0]);
    // Full memory carries the code as well (a normal dump only the first
    // page of each code mapping).
    EXPECT_GT(CodeBytesInCore(dumps / names[0]), 1u << 20);
}

TEST_F(CrashHandlerTest, AbortIsACrashToo) {
    settings.processDumpsSupported = false;
    ExpectKilledBySegv(CrashChild(AbortOnPurpose), SIGABRT);
    EXPECT_THAT(ReadText(dumps / "Indexer_crash_0.log"), HasSubstr("(SIGABRT)"));
    ExpectHandlersRan();
}

TEST_F(CrashHandlerTest, StackOverflowIsCaughtOnTheAlternateStack) {
    settings.processDumpsSupported = false;
    ExpectKilledBySegv(CrashChild(OverflowTheStack));
    EXPECT_THAT(ReadText(dumps / "Indexer_crash_0.log"), HasSubstr("Stack frames:"));
    ExpectHandlersRan();
}

TEST_F(CrashHandlerTest, LegacyGeneratorWritesTheTextReport) {
    settings.processDumpsSupported = false;
    ExpectKilledBySegv(CrashChild());
    ASSERT_EQ(Names(dumps), std::vector<std::string>{"Indexer_crash_0.log"});
    const std::string report = ReadText(dumps / "Indexer_crash_0.log");
    EXPECT_THAT(report, HasSubstr("// Exception: 0x0000000b (SIGSEGV)"));
    EXPECT_THAT(report, HasSubstr("Address: 0x0000000000000010"));
    EXPECT_THAT(report, HasSubstr("Loaded modules:"));
    EXPECT_THAT(report, HasSubstr("Registers:"));
    EXPECT_THAT(report, HasSubstr("Stack frames:"));
    EXPECT_THAT(ReadText(root / "log"), HasSubstr("Writing legacy dump. Dump path: "));
    ExpectHandlersRan();
}

TEST_F(CrashHandlerTest, TwentyDumpsLoseTheOldestAndTheNewTakesItsId) {
    settings.processDumpsSupported = false;  // the text report: quick to write
    for (int id = 0; id < 20; ++id) {
        const fs::path p = dumps / ("Indexer_crash_" + std::to_string(id) + ".log");
        std::ofstream(p) << "old " << id;
        // id 6 is the oldest, the others follow in id order
        const auto age = std::chrono::hours(id == 6 ? 1000 : 100 - id);
        fs::last_write_time(p, fs::file_time_type::clock::now() - age);
    }
    ExpectKilledBySegv(CrashChild());
    EXPECT_EQ(Names(dumps).size(), 20u);
    EXPECT_THAT(ReadText(dumps / "Indexer_crash_6.log"), HasSubstr("SIGSEGV"));
    EXPECT_THAT(ReadText(root / "log"), HasSubstr("Indexer_crash_6.log] deleted."));
}

TEST_F(CrashHandlerTest, UndeletableDumpsStopTheDumpButNotTheHandlers) {
    // A folder bearing a dump's name is found like one and can't be deleted
    // as a file: the way to have undeletable dumps even as root.
    for (int id = 0; id < 20; ++id)
        fs::create_directory(dumps / ("Indexer_crash_" + std::to_string(id) + ".mdmp"));
    ExpectKilledBySegv(CrashChild());
    const std::string log = ReadText(root / "log");
    EXPECT_THAT(log, HasSubstr("Old dump cannot be removed. Dump path: ["));
    EXPECT_THAT(log, HasSubstr("Cannot cleanup out of date dumps. There are [20] dumps stored. "
                               "Maximum allowed dumps number: [20]."));
    EXPECT_THAT(log, HasSubstr("Cannot generate crash dump."));
    ExpectHandlersRan();
}

TEST_F(CrashHandlerTest, AFailingHandlerSkipsTheRestAndTheProcessStillEnds) {
    settings.processDumpsSupported = false;
    std::fflush(nullptr);
    pid_t child = fork();
    if (child == 0) {
        GetLog().SetWriter(std::make_shared<CLogToFile>((root / "log").string()));
        CCrashHandler::Install();
        CCrashHandler::SetDumpLocation(util::Utf8ToUtf16(dumps.string()), u"Indexer");
        const crash::TDumpSettings s = settings;
        CCrashHandler::Instance().SetSettingsReader([s] { return s; });
        auto seq = CCrashHandler::Instance().GetDeinitSeq();
        seq->Add([] { throw CExc(u"handler broke"); });
        seq->Add([] { _exit(77); });  // must not run
        CrashHereOnPurpose();
        _exit(99);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ExpectKilledBySegv(status);
    const std::string log = ReadText(root / "log");
    EXPECT_THAT(log, HasSubstr("Crash handlers cannot be executed."));
    EXPECT_THAT(log, HasSubstr("handler broke"));
}

TEST(CrashHandlerLocationTest, FolderIsTakenOnlyWhenGivenNameAlways) {
    CCrashHandler::SetDumpLocation(u"/var/dumps", u"Indexer");
    CCrashHandler::SetDumpLocation(u"", u"Other");
    EXPECT_EQ(CCrashHandler::Instance().GetDumpFolder(), u"/var/dumps");
    EXPECT_EQ(CCrashHandler::Instance().GetDumpName(), u"Other");
}

}  // namespace

