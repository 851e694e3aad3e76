#pragma once
// POSIX side only: the ELF core writer behind WriteProcessDump and
// WriteProcessDumpOf, the small async-signal-safe helpers that the crash
// code shares, and the command line splitter of ProcessStart.
//
// Everything here but SplitCommandLine uses system calls and fixed buffers
// only (no heap, no locks), so that it runs in a signal handler and in a
// child forked from one. The layout of the core is described in
// docs/crash-dumps.md.

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace platform::posix {

// Writes an ELF core of process `pid` to `fd` (at its current position,
// which should be 0). The caller must be allowed to trace the process; every
// thread of it is stopped while the core is written and let go afterwards.
// `crashTid` names the crashing thread (0: none), whose notes come first;
// `crashInfoAddress`, if not 0, is the address inside the target of its
// platform::TCrashInfo, whose context gives the registers of the fault (else
// the thread's registers as they are now). `dumpType` as WriteProcessDump.
// Returns 0 or an errno value.
int WriteCore(int fd, pid_t pid, pid_t crashTid, uint64_t crashInfoAddress, uint32_t dumpType);

// A command line split into arguments by CommandLineToArgvW's rules:
// blanks separate; double quotes group (and "" inside quotes is one quote);
// 2n backslashes before a quote give n and the quote counts, 2n+1 give n and
// a literal quote; other backslashes are literal. Each argument as UTF-8.
std::vector<std::string> SplitCommandLine(std::u16string_view line);

// Writes all of `size` bytes, retrying on EINTR and short writes.
bool WriteAll(int fd, const void* data, size_t size);

// A fixed-size text builder for signal handlers: never allocates, cuts what
// does not fit.
class CSafeText {
public:
    CSafeText(char* buffer, size_t size) : m_Buf(buffer), m_Size(size) {}
    CSafeText& Str(const char* text);
    CSafeText& Str(const char* text, size_t length);
    CSafeText& Dec(uint64_t value);
    CSafeText& Hex(uint64_t value, int digits);  // "0x" and at least `digits` digits
    CSafeText& Char(char c);
    const char* Data() const { return m_Buf; }
    size_t Length() const { return m_Len; }
    void Clear() { m_Len = 0; }
    bool Flush(int fd);  // writes and clears

private:
    char* m_Buf;
    size_t m_Size;
    size_t m_Len = 0;
};

}  // namespace platform::posix
