// The process on POSIX: /proc/self/exe, the C environment, flock for named
// mutexes, nice values and I/O priority classes for the priority classes.

#include "platform/process.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <mutex>

#include "base/utf.h"
#include "platform/errors.h"
#include "platform/names.h"
#include "platform/posix/posix_errors.h"

extern char** environ;

namespace platform {

namespace {
// A native path in the program's spelling: names converted, "/" kept.
std::u16string PathFromNative(std::string_view native) {
    std::u16string path;
    size_t start = 0;
    while (true) {
        size_t end = native.find('/', start);
        path += NameFromNative(native.substr(start, end == std::string_view::npos ? end : end - start));
        if (end == std::string_view::npos) break;
        path += u'/';
        start = end + 1;
    }
    return path;
}
}  // namespace

std::vector<std::u16string> GetCommandLineArguments(int argc, char** argv) {
    std::vector<std::u16string> args;
    for (int i = 0; i < argc && argv && argv[i]; ++i) args.push_back(PathFromNative(argv[i]));
    return args;
}

bool GetModuleFileName(std::u16string& path) {
    std::string buffer(256, '\0');
    while (true) {
        ssize_t n = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
        if (n < 0) return posix::FailErrno();
        if (static_cast<size_t>(n) < buffer.size()) {
            buffer.resize(static_cast<size_t>(n));
            break;
        }
        buffer.resize(buffer.size() * 2);
    }
    path = PathFromNative(buffer);
    SetLastError(kErrSuccess);
    return true;
}

namespace {
bool ValidEnvName(std::u16string_view name) {
    return !name.empty() && name.find(u'=') == std::u16string_view::npos &&
           name.find(u'\0') == std::u16string_view::npos;
}
}  // namespace

bool GetEnvVar(std::u16string_view name, std::u16string& value) {
    if (!ValidEnvName(name)) return posix::Fail(kErrEnvVarNotFound);
    const char* v = std::getenv(util::Utf16ToUtf8(name).c_str());
    if (!v) return posix::Fail(kErrEnvVarNotFound);
    value = util::Utf8ToUtf16(v);
    SetLastError(kErrSuccess);
    return true;
}

bool SetEnvVar(std::u16string_view name, std::u16string_view value) {
    if (!ValidEnvName(name)) return posix::Fail(kErrInvalidParameter);
    if (::setenv(util::Utf16ToUtf8(name).c_str(), util::Utf16ToUtf8(value).c_str(), 1) != 0)
        return posix::FailErrno();
    return true;
}

bool UnsetEnvVar(std::u16string_view name) {
    if (!ValidEnvName(name)) return posix::Fail(kErrInvalidParameter);
    if (::unsetenv(util::Utf16ToUtf8(name).c_str()) != 0) return posix::FailErrno();
    return true;
}

std::vector<std::u16string> GetEnvironmentStrings() {
    std::vector<std::u16string> result;
    for (char** p = environ; p && *p; ++p) result.push_back(util::Utf8ToUtf16(*p));
    return result;
}

CHandle CreateNamedMutex(std::u16string_view name, bool) {
    std::string dir;
    if (const char* env = std::getenv(kLockDirVariable); env && *env) {
        dir = env;
    } else {
        struct stat st {};
        dir = ::stat("/run/lock", &st) == 0 && S_ISDIR(st.st_mode) ? "/run/lock" : "/tmp";
    }
    std::u16string fileName(name);
    for (auto& c : fileName)
        if (c == u'\\' || c == u'/') c = u'_';
    const std::string path = dir + "/" + util::Utf16ToUtf8(fileName) + ".lock";

    int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd >= 0)
        ::fchmod(fd, 0666);  // any user may take the lock; only the creator can do this
    else if (errno == EACCES)
        fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);  // flock needs no write access
    if (fd < 0) {
        posix::FailErrno();
        return CHandle();
    }
    int rc;
    do rc = ::flock(fd, LOCK_EX | LOCK_NB);
    while (rc != 0 && errno == EINTR);
    if (rc != 0 && errno != EWOULDBLOCK) {
        posix::FailErrno();
        ::close(fd);
        return CHandle();
    }
    // Held elsewhere: the handle stands for the existing mutex, as on Windows.
    SetLastError(rc == 0 ? kErrSuccess : kErrAlreadyExists);
    return CHandle(fd);
}

// Priority classes as nice values. Linux keeps nice values per thread, so a
// class is given to every thread of the process.
namespace {

constexpr int kIoprioWhoProcess = 1;
constexpr int kIoprioClassShift = 13;
constexpr int kIoprioClassIdle = 3;

struct TClassNice {
    uint32_t value;
    int nice;
};
constexpr TClassNice kClassNice[] = {
    {kIdlePriorityClass, 19},        {kBelowNormalPriorityClass, 10},
    {kNormalPriorityClass, 0},       {kAboveNormalPriorityClass, -5},
    {kHighPriorityClass, -10},       {kRealtimePriorityClass, -20},
};

struct TThreadPriority {
    pid_t tid;
    int nice;
    int ioprio;
};

struct TBackground {
    std::mutex mutex;
    bool active = false;
    uint32_t classBefore = kNormalPriorityClass;
    std::vector<TThreadPriority> saved;
};

TBackground& Background() {
    static TBackground state;
    return state;
}

pid_t CurrentTid() { return static_cast<pid_t>(::syscall(SYS_gettid)); }

std::vector<pid_t> ProcessThreads() {
    std::vector<pid_t> tids;
    if (DIR* d = ::opendir("/proc/self/task")) {
        while (dirent* e = ::readdir(d)) {
            char* end = nullptr;
            long tid = std::strtol(e->d_name, &end, 10);
            if (end != e->d_name && *end == '\0' && tid > 0) tids.push_back(static_cast<pid_t>(tid));
        }
        ::closedir(d);
    }
    if (tids.empty()) tids.push_back(CurrentTid());
    return tids;
}

bool GetNice(pid_t tid, int& nice) {
    errno = 0;
    nice = ::getpriority(PRIO_PROCESS, static_cast<id_t>(tid));
    return !(nice == -1 && errno != 0);
}

int GetIoprio(pid_t tid) { return static_cast<int>(::syscall(SYS_ioprio_get, kIoprioWhoProcess, tid)); }

bool SetIoprio(pid_t tid, int ioprio) {
    return ::syscall(SYS_ioprio_set, kIoprioWhoProcess, tid, ioprio) == 0;
}

// Gives each thread of the process the nice value; a thread that has ended
// meanwhile (ESRCH) is no failure.
bool SetNiceAll(int nice) {
    for (pid_t tid : ProcessThreads())
        if (::setpriority(PRIO_PROCESS, static_cast<id_t>(tid), nice) != 0 && errno != ESRCH)
            return false;
    return true;
}

uint32_t ClassOfNice(int nice) {
    if (nice >= 15) return kIdlePriorityClass;
    if (nice >= 5) return kBelowNormalPriorityClass;
    if (nice > -5) return kNormalPriorityClass;
    if (nice > -10) return kAboveNormalPriorityClass;
    if (nice > -20) return kHighPriorityClass;
    return kRealtimePriorityClass;
}

// True when the process may set its threads' nice values back to `nice`
// after lowering them: with CAP_SYS_NICE, or within RLIMIT_NICE (whose
// ceiling is 20 - limit). Most users have neither: their lowered nice value
// is theirs for good.
bool CanRaiseNiceBackTo(int nice) {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NICE, &limit) == 0 &&
        (limit.rlim_cur == RLIM_INFINITY || 20 - nice <= static_cast<long long>(limit.rlim_cur)))
        return true;
    constexpr int kCapSysNice = 23;
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("CapEff:", 0) == 0)
            return (std::strtoull(line.c_str() + 7, nullptr, 16) >> kCapSysNice) & 1;
    return false;
}

bool BeginBackground(TBackground& bg) {
    const pid_t self = CurrentTid();
    int ioprio = GetIoprio(self);
    if (bg.active || (ioprio >= 0 && (ioprio >> kIoprioClassShift) == kIoprioClassIdle))
        return posix::Fail(kErrProcessModeAlreadyBackground);
    int nice = 0;
    if (!GetNice(self, nice)) return posix::FailErrno();
    bg.classBefore = ClassOfNice(nice);
    bg.saved.clear();
    for (pid_t tid : ProcessThreads()) {
        TThreadPriority t{tid, 0, GetIoprio(tid)};
        if (!GetNice(tid, t.nice) || t.ioprio < 0) continue;  // ended meanwhile
        bg.saved.push_back(t);
    }
    // The idle I/O class can always be left again; nice 19 only with the
    // right to raise it back, else the end of background mode would fail.
    int lowestNice = 19;
    for (const auto& t : bg.saved) lowestNice = std::min(lowestNice, t.nice);
    const bool lowerNice = CanRaiseNiceBackTo(lowestNice);
    const int idle = kIoprioClassIdle << kIoprioClassShift;
    for (const auto& t : bg.saved) {
        if ((lowerNice && ::setpriority(PRIO_PROCESS, static_cast<id_t>(t.tid), 19) != 0) ||
            !SetIoprio(t.tid, idle)) {
            if (errno == ESRCH) continue;
            int err = errno;
            for (const auto& u : bg.saved) {  // undo what was done
                ::setpriority(PRIO_PROCESS, static_cast<id_t>(u.tid), u.nice);
                SetIoprio(u.tid, u.ioprio);
            }
            errno = err;
            return posix::FailErrno();
        }
    }
    bg.active = true;
    return true;
}

bool EndBackground(TBackground& bg) {
    if (!bg.active) return posix::Fail(kErrProcessModeNotBackground);
    const TThreadPriority* own = nullptr;
    for (const auto& t : bg.saved)
        if (t.tid == CurrentTid()) own = &t;
    for (pid_t tid : ProcessThreads()) {
        // Threads started in background mode get the values of the thread ending it.
        const TThreadPriority* t = own ? own : (bg.saved.empty() ? nullptr : &bg.saved.front());
        for (const auto& s : bg.saved)
            if (s.tid == tid) t = &s;
        if (!t) continue;
        if ((::setpriority(PRIO_PROCESS, static_cast<id_t>(tid), t->nice) != 0 ||
             !SetIoprio(tid, t->ioprio)) &&
            errno != ESRCH)
            return posix::FailErrno();
    }
    bg.active = false;
    return true;
}

}  // namespace

uint32_t GetPriorityClass() {
    TBackground& bg = Background();
    std::lock_guard<std::mutex> lock(bg.mutex);
    if (bg.active) return bg.classBefore;
    int nice = 0;
    if (!GetNice(CurrentTid(), nice)) {
        posix::FailErrno();
        return 0;
    }
    return ClassOfNice(nice);
}

bool SetPriorityClass(uint32_t value) {
    TBackground& bg = Background();
    std::lock_guard<std::mutex> lock(bg.mutex);
    if (value == kProcessModeBackgroundBegin) return BeginBackground(bg);
    if (value == kProcessModeBackgroundEnd) return EndBackground(bg);
    for (const auto& c : kClassNice) {
        if (c.value != value) continue;
        if (bg.active) {  // takes effect when background mode ends
            bg.classBefore = value;
            for (auto& t : bg.saved) t.nice = c.nice;
            return true;
        }
        return SetNiceAll(c.nice) ? true : posix::FailErrno();
    }
    return posix::Fail(kErrInvalidParameter);
}

bool GetFileVersion(std::u16string_view, uint16_t (&)[4]) {
    return posix::Fail(kErrResourceTypeNotFound);
}

uint32_t GetCurrentProcessId() { return static_cast<uint32_t>(::getpid()); }
uint32_t GetCurrentThreadId() { return static_cast<uint32_t>(CurrentTid()); }

int32_t ComInitialize() { return 0; }
void ComUninitialize() {}

}  // namespace platform
