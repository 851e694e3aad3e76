// Crash handling on POSIX: fatal signals on an alternate stack, the forked
// dump writer, and the start of the dump recorder.

#include "platform/crash.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <execinfo.h>
#include <string>
#include <vector>

#include "base/utf.h"
#include "platform/errors.h"
#include "platform/posix/crash_core.h"
#include "platform/posix/native_path.h"
#include "platform/posix/posix_errors.h"

extern char** environ;

namespace platform {

namespace {

constexpr int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
// Room for the filter's own work (formatting, logging, a sanitizer's
// instrumented frames) on top of the handler.
constexpr size_t kAltStackSize = 1u << 20;

std::atomic<CrashFilter> g_Filter{nullptr};
std::atomic<pid_t> g_HandlingThread{0};
std::atomic<bool> g_Installed{false};

pid_t CurrentTid() { return static_cast<pid_t>(syscall(SYS_gettid)); }

void RestoreDefaultAndRaise(int signal) {
    struct sigaction action;
    memset(&action, 0, sizeof(action));
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    syscall(SYS_tgkill, getpid(), CurrentTid(), signal);
}

void CrashSignalHandler(int signal, siginfo_t* si, void* context) {
    const int savedErrno = errno;
    const pid_t tid = CurrentTid();
    pid_t expected = 0;
    if (!g_HandlingThread.compare_exchange_strong(expected, tid)) {
        if (expected == tid) {
            // The filter itself failed: end the process now.
            RestoreDefaultAndRaise(signal);
            return;
        }
        // Another thread is writing the dump: wait for it to end the process.
        while (true) pause();
    }
    alarm(kCrashWatchdogSeconds);  // SIGALRM's default action ends a stuck filter

    TCrashInfo info;
    info.signal = signal;
    info.code = si ? si->si_code : 0;
    info.faultAddress = si ? reinterpret_cast<uint64_t>(si->si_addr) : 0;
    info.processId = static_cast<uint32_t>(getpid());
    info.threadId = static_cast<uint32_t>(tid);
    info.context = context;
    if (CrashFilter filter = g_Filter.load()) filter(info);

    // Whatever the filter answered, the process ends by the original signal,
    // so that its parent sees how it ended.
    errno = savedErrno;
    RestoreDefaultAndRaise(signal);
}

bool InstallAltStack() {
    stack_t current;
    if (sigaltstack(nullptr, &current) == 0 && !(current.ss_flags & SS_DISABLE) &&
        current.ss_size >= kAltStackSize)
        return true;
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* p = mmap(nullptr, kAltStackSize + page, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) return posix::FailErrno();
    mprotect(p, page, PROT_NONE);  // guard page below the stack
    stack_t stack;
    memset(&stack, 0, sizeof(stack));
    stack.ss_sp = static_cast<char*>(p) + page;
    stack.ss_size = kAltStackSize;
    if (sigaltstack(&stack, nullptr) != 0) {
        int err = errno;
        munmap(p, kAltStackSize + page);
        errno = err;
        return posix::FailErrno();
    }
    return true;  // the stack stays for the thread's life
}

}  // namespace

namespace posix {

// CommandLineToArgvW's rules: blanks separate; double quotes group; 2n
// backslashes before a quote give n and the quote toggles, 2n+1 give n and a
// literal quote; other backslashes are literal.
std::vector<std::string> SplitCommandLine(std::u16string_view line) {
    std::vector<std::string> args;
    std::u16string current;
    bool inArg = false, quoted = false;
    for (size_t i = 0; i < line.size();) {
        char16_t c = line[i];
        if (!quoted && (c == u' ' || c == u'\t')) {
            if (inArg) args.push_back(util::Utf16ToUtf8(current));
            current.clear();
            inArg = false;
            ++i;
            continue;
        }
        inArg = true;
        if (c == u'\\') {
            size_t n = 0;
            while (i < line.size() && line[i] == u'\\') ++n, ++i;
            if (i < line.size() && line[i] == u'"') {
                current.append(n / 2, u'\\');
                if (n % 2) current += u'"', ++i;
            } else {
                current.append(n, u'\\');
            }
            continue;
        }
        if (c == u'"') {
            if (quoted && i + 1 < line.size() && line[i + 1] == u'"') {
                current += u'"';  // "" inside quotes: a literal quote
                i += 2;
                continue;
            }
            quoted = !quoted;
            ++i;
            continue;
        }
        current += c;
        ++i;
    }
    if (inArg) args.push_back(util::Utf16ToUtf8(current));
    return args;
}

}  // namespace posix

CrashFilter SetCrashFilter(CrashFilter filter) {
    CrashFilter previous = g_Filter.exchange(filter);
    if (!g_Installed.exchange(true)) {
        InstallAltStack();
        // The first backtrace loads the unwinder; do it now, not in a handler.
        void* frames[4];
        backtrace(frames, 4);
        struct sigaction action;
        memset(&action, 0, sizeof(action));
        action.sa_sigaction = CrashSignalHandler;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK;
        sigemptyset(&action.sa_mask);
        for (int signal : kFatalSignals) sigaction(signal, &action, nullptr);
    }
    return previous;
}

bool PrepareThreadForCrashes() { return InstallAltStack(); }

bool ProcessDumpsSupported() {
    char value = '0';
    int fd = open("/proc/sys/kernel/yama/ptrace_scope", O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        if (read(fd, &value, 1) != 1) value = '0';
        close(fd);
    }
    if (value == '3') return posix::Fail(kErrNotSupported);
    return true;
}

bool WriteProcessDump(NativeHandle file, const TCrashInfo& info, uint32_t dumpType) {
    // The child must be allowed to trace us (Yama's restricted mode), and a
    // process that changed its credentials must be made dumpable again.
    prctl(PR_SET_DUMPABLE, 1, 0, 0, 0);
    prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY, 0, 0, 0);
    const pid_t parent = getpid();
    pid_t child = _Fork();
    if (child < 0) return posix::FailErrno();
    if (child == 0) {
        int err = posix::WriteCore(static_cast<int>(file), parent, static_cast<pid_t>(info.threadId),
                                   reinterpret_cast<uint64_t>(&info), dumpType);
        _exit(err > 0 && err < 256 ? err : err ? EIO : 0);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            int err = errno;
            prctl(PR_SET_PTRACER, 0, 0, 0, 0);
            return posix::Fail(posix::Win32FromErrno(err));
        }
    }
    prctl(PR_SET_PTRACER, 0, 0, 0, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
    return posix::Fail(WIFEXITED(status) ? posix::Win32FromErrno(WEXITSTATUS(status))
                                          : kErrGenFailure);
}

bool WriteProcessDumpOf(uint64_t process, uint32_t threadId, uint64_t contextAddress,
                        uint32_t dumpType, NativeHandle file) {
    if (process == 0 || process > 0x7FFFFFFF) return posix::Fail(kErrInvalidParameter);
    int err = posix::WriteCore(static_cast<int>(file), static_cast<pid_t>(process),
                               static_cast<pid_t>(threadId), contextAddress, dumpType);
    return err == 0 ? true : posix::Fail(posix::Win32FromErrno(err));
}

bool GetUserTempFolder(std::u16string& folder) {
    const char* tmp = getenv("TMPDIR");
    std::string value = tmp && *tmp ? tmp : "/tmp";
    while (value.size() > 1 && value.back() == '/') value.pop_back();
    folder = util::Utf8ToUtf16(value);
    return true;
}

uint64_t DuplicateCurrentProcess() {
    // A child given our id may trace us (Yama's restricted mode).
    prctl(PR_SET_DUMPABLE, 1, 0, 0, 0);
    prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY, 0, 0, 0);
    return static_cast<uint64_t>(getpid());
}

CHandle ProgramFileCreate(std::u16string_view path) {
    std::string native;
    if (!posix::ToNativePath(path, native)) return CHandle();
    int fd;
    do {
        fd = open(native.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0700);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        posix::FailErrno();
        return CHandle();
    }
    // A program on a file system mounted noexec could be written and never
    // run: refuse it now, while another way of dumping can still be chosen.
    struct statvfs fsInfo;
    if (fstatvfs(fd, &fsInfo) == 0 && (fsInfo.f_flag & ST_NOEXEC)) {
        close(fd);
        unlink(native.c_str());
        posix::Fail(kErrAccessDenied);
        return CHandle();
    }
    return CHandle(fd);
}

CHandle ProgramFileOpenForDeletion(std::u16string_view path) {
    std::string native;
    if (!posix::ToNativePath(path, native)) return CHandle();
    int fd = open(native.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        posix::FailErrno();
        return CHandle();
    }
    if (unlink(native.c_str()) != 0) {
        int err = errno;
        close(fd);
        posix::Fail(posix::Win32FromErrno(err));
        return CHandle();
    }
    return CHandle(fd);
}

bool ProcessStart(std::u16string_view application, NativeHandle programFile,
                  std::u16string_view commandLine, TChildProcess& process) {
    process.id = 0;
    process.finished = false;
    std::string path;
    if (programFile == kInvalidHandle && !posix::ToNativePath(application, path)) return false;
    std::vector<std::string> args = posix::SplitCommandLine(commandLine);
    if (args.empty()) args.push_back(path);
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);

    // The child tells an exec failure through a pipe that closes on success.
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) return posix::FailErrno();
    pid_t child = _Fork();
    if (child < 0) {
        int err = errno;
        close(pipeFds[0]);
        close(pipeFds[1]);
        return posix::Fail(posix::Win32FromErrno(err));
    }
    if (child == 0) {
        close(pipeFds[0]);
        if (programFile != kInvalidHandle)
            syscall(SYS_execveat, static_cast<int>(programFile), "", argv.data(), environ,
                    AT_EMPTY_PATH);
        else
            execve(path.c_str(), argv.data(), environ);
        int err = errno;
        posix::WriteAll(pipeFds[1], &err, sizeof(err));
        _exit(127);
    }
    close(pipeFds[1]);
    int err = 0;
    ssize_t n;
    do {
        n = read(pipeFds[0], &err, sizeof(err));
    } while (n < 0 && errno == EINTR);
    close(pipeFds[0]);
    process.id = child;
    if (n == static_cast<ssize_t>(sizeof(err))) {
        ProcessWait(process);
        process.id = 0;
        process.finished = false;
        return posix::Fail(posix::Win32FromErrno(err));
    }
    return true;
}

bool ProcessWait(TChildProcess& process) {
    if (process.id <= 0) return posix::Fail(kErrInvalidHandle);
    if (process.finished) return true;
    int status = 0;
    while (waitpid(static_cast<pid_t>(process.id), &status, 0) < 0)
        if (errno != EINTR) return posix::FailErrno();
    process.finished = true;
    process.exitCode = WIFEXITED(status) ? static_cast<uint32_t>(WEXITSTATUS(status))
                                         : 128u + static_cast<uint32_t>(WTERMSIG(status));
    return true;
}

bool ProcessGetExitCode(const TChildProcess& process, uint32_t* exitCode) {
    if (process.id <= 0 || !process.finished) return posix::Fail(kErrInvalidHandle);
    *exitCode = process.exitCode;
    return true;
}

}  // namespace platform
