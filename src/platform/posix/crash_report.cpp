// The text report of a crash (WriteCrashReport), written from the signal
// handler with async-signal-safe calls only: fixed buffers, write(2),
// /proc/self files, and backtrace(), whose unwinder SetCrashFilter loads
// beforehand.
//
// The report reads:
//
//   /////...
//   // Exception: 0x0000000b (SIGSEGV), Code: 1, Address: 0x..., Date/Time 2026-11-21 12:00:00 UTC
//   // Process <name> (<path>), Process ID: 0x..., Thread ID: 0x...
//
//   Loaded modules:
//
//   0x<start> - 0x<end> <name> (<path>)             one line per mapped file
//
//   Registers:
//   rax=0x... rbx=0x... ...
//
//   Stack frames:
//   0x<address>	<module>(<symbol>+<offset>) [<address>]
//
// The stack starts at the faulting frame when the unwinder finds it, else
// it shows the handler's own frames too.

#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/crash.h"
#include "platform/posix/crash_core.h"
#include "platform/posix/posix_errors.h"

namespace platform {

namespace {

using posix::CSafeText;

const char* SignalName(int signal) {
    switch (signal) {
        case SIGSEGV: return "SIGSEGV";
        case SIGBUS: return "SIGBUS";
        case SIGILL: return "SIGILL";
        case SIGFPE: return "SIGFPE";
        case SIGABRT: return "SIGABRT";
        default: return "signal";
    }
}

// Days since 1970-01-01 to a civil date (proleptic Gregorian).
void CivilFromDays(int64_t days, int64_t& year, unsigned& month, unsigned& day) {
    days += 719468;
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(days - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    day = doy - (153 * mp + 2) / 5 + 1;
    month = mp < 10 ? mp + 3 : mp - 9;
    year = static_cast<int64_t>(yoe) + era * 400 + (month <= 2);
}

void Two(CSafeText& text, unsigned value) {
    text.Char(static_cast<char>('0' + value / 10 % 10)).Char(static_cast<char>('0' + value % 10));
}

void WriteTime(CSafeText& text) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    int64_t year;
    unsigned month, day;
    CivilFromDays(now.tv_sec / 86400, year, month, day);
    const unsigned secs = static_cast<unsigned>(now.tv_sec % 86400);
    text.Dec(static_cast<uint64_t>(year)).Char('-');
    Two(text, month);
    text.Char('-');
    Two(text, day);
    text.Char(' ');
    Two(text, secs / 3600);
    text.Char(':');
    Two(text, secs / 60 % 60);
    text.Char(':');
    Two(text, secs % 60);
    text.Str(" UTC");
}

// Lines of /proc/self/maps that map files, one per file and address range
// run: "start - end name (path)".
bool WriteModules(int fd, CSafeText& text) {
    int maps = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (maps < 0) return text.Str("(no module list)\n").Flush(fd);
    char buffer[8192];
    char line[1024];
    size_t lineLength = 0;
    bool ok = true;
    while (ok) {
        ssize_t n = read(maps, buffer, sizeof(buffer));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        for (ssize_t i = 0; i < n && ok; ++i) {
            if (buffer[i] != '\n') {
                if (lineLength < sizeof(line)) line[lineLength++] = buffer[i];
                continue;
            }
            // "start-end perms offset dev inode   path": keep executable file mappings.
            const char* path = static_cast<const char*>(memchr(line, '/', lineLength));
            const char* dash = static_cast<const char*>(memchr(line, '-', lineLength));
            const char* perms = static_cast<const char*>(memchr(line, ' ', lineLength));
            if (path && dash && perms && perms + 3 < line + lineLength && perms[3] == 'x') {
                const size_t pathLength = static_cast<size_t>(line + lineLength - path);
                const char* base = path;
                for (const char* p = path; p < path + pathLength; ++p)
                    if (*p == '/') base = p + 1;
                text.Str("0x").Str(line, static_cast<size_t>(dash - line)).Str(" - 0x");
                text.Str(dash + 1, static_cast<size_t>(perms - dash - 1)).Char(' ');
                text.Str(base, static_cast<size_t>(path + pathLength - base)).Str(" (");
                text.Str(path, pathLength).Str(")\n");
                ok = text.Flush(fd);
            }
            lineLength = 0;
        }
    }
    close(maps);
    return ok;
}

uint64_t FaultPc(const TCrashInfo& info) {
    if (!info.context) return 0;
    const auto* uc = static_cast<const ucontext_t*>(info.context);
#if defined(__x86_64__)
    return static_cast<uint64_t>(uc->uc_mcontext.gregs[REG_RIP]);
#elif defined(__aarch64__)
    return uc->uc_mcontext.pc;
#else
    (void)uc;
    return 0;
#endif
}

bool WriteRegisters(int fd, CSafeText& text, const TCrashInfo& info) {
    if (!info.context) return text.Str("(no register context)\n").Flush(fd);
    const auto* uc = static_cast<const ucontext_t*>(info.context);
#if defined(__x86_64__)
    static const struct {
        const char* name;
        int index;
    } kRegs[] = {{"rax", REG_RAX}, {"rbx", REG_RBX}, {"rcx", REG_RCX}, {"rdx", REG_RDX},
                 {"rsi", REG_RSI}, {"rdi", REG_RDI}, {"rbp", REG_RBP}, {"rsp", REG_RSP},
                 {"r8", REG_R8},   {"r9", REG_R9},   {"r10", REG_R10}, {"r11", REG_R11},
                 {"r12", REG_R12}, {"r13", REG_R13}, {"r14", REG_R14}, {"r15", REG_R15},
                 {"rip", REG_RIP}, {"efl", REG_EFL}, {"err", REG_ERR}, {"trapno", REG_TRAPNO}};
    int column = 0;
    for (const auto& r : kRegs) {
        text.Str(r.name).Char('=').Hex(static_cast<uint64_t>(uc->uc_mcontext.gregs[r.index]), 16);
        text.Char(++column % 4 == 0 ? '\n' : ' ');
    }
#elif defined(__aarch64__)
    for (int i = 0; i < 31; ++i) {
        text.Char('x').Dec(static_cast<uint64_t>(i)).Char('=').Hex(uc->uc_mcontext.regs[i], 16);
        text.Char(i % 4 == 3 ? '\n' : ' ');
    }
    text.Str("sp=").Hex(uc->uc_mcontext.sp, 16).Str(" pc=").Hex(uc->uc_mcontext.pc, 16);
    text.Str(" pstate=").Hex(uc->uc_mcontext.pstate, 16);
#endif
    return text.Char('\n').Flush(fd);
}

bool WriteFrames(int fd, CSafeText& text, const TCrashInfo& info) {
    void* frames[128];
    const int count = backtrace(frames, 128);
    const uint64_t pc = FaultPc(info);
    int first = 0;
    for (int i = 0; i < count; ++i)
        if (reinterpret_cast<uint64_t>(frames[i]) == pc) {
            first = i;
            break;
        }
    bool ok = true;
    for (int i = first; i < count && ok; ++i) {
        ok = text.Hex(reinterpret_cast<uint64_t>(frames[i]), 16).Char('\t').Flush(fd);
        backtrace_symbols_fd(&frames[i], 1, fd);  // one line with its own line end
    }
    return ok;
}

}  // namespace

bool WriteCrashReport(NativeHandle file, const TCrashInfo& info) {
    const int fd = static_cast<int>(file);
    char buffer[2048];
    CSafeText text(buffer, sizeof(buffer));
    text.Str("\n/////////////////////////////////////////////////////////////////////////////////////\n");
    text.Str("// Exception: ").Hex(static_cast<uint32_t>(info.signal), 8).Str(" (");
    text.Str(SignalName(info.signal)).Str("), Code: ").Dec(static_cast<uint32_t>(info.code));
    text.Str(", Address: ").Hex(info.faultAddress, 16).Str(", Date/Time ");
    WriteTime(text);
    text.Str("\n// Process ");
    char exe[512];
    ssize_t exeLength = readlink("/proc/self/exe", exe, sizeof(exe));
    if (exeLength < 0) exeLength = 0;
    const char* base = exe;
    for (ssize_t i = 0; i < exeLength; ++i)
        if (exe[i] == '/') base = exe + i + 1;
    text.Str(base, static_cast<size_t>(exe + exeLength - base)).Str(" (");
    text.Str(exe, static_cast<size_t>(exeLength)).Str("), Process ID: ");
    text.Hex(info.processId, 8).Str(", Thread ID: ").Hex(info.threadId, 8).Str("\n\n");
    bool ok = text.Flush(fd);
    ok = ok && text.Str("Loaded modules:\n\n").Flush(fd) && WriteModules(fd, text);
    ok = ok && text.Str("\nRegisters:\n").Flush(fd) && WriteRegisters(fd, text, info);
    ok = ok && text.Str("\nStack frames:\n").Flush(fd) && WriteFrames(fd, text, info);
    return ok ? true : posix::FailErrno();
}

}  // namespace platform
