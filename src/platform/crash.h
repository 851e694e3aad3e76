#pragma once
// What crash handling needs of the OS: the unhandled-exception filter, the
// dump writers, and the start of the out-of-process dump recorder.
//
// On Windows these are SetUnhandledExceptionFilter, MiniDumpWriteDump, the
// DbgHelp stack walk, DuplicateHandle and CreateProcessW. On POSIX a crash is
// a fatal signal (SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT) caught on an
// alternate stack, and a dump is an ELF core file that debuggers open
// (docs/crash-dumps.md has the details).
//
// Failures are reported the Win32 way: false / an invalid handle and the
// thread's last error (platform/errors.h).
//
// Signal safety: the filter runs inside the signal handler of the crashing
// thread. WriteCrashReport and WriteProcessDump themselves use only
// async-signal-safe calls; whatever else the filter does is its own risk,
// bounded by the watchdog described at SetCrashFilter.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/file.h"

namespace platform {

// What the filter learns of a crash ("exception pointers"). The dump
// recorder reads it from the crashed process's memory, so it stays a plain
// structure of fixed layout.
struct TCrashInfo {
    int32_t signal = 0;         // POSIX signal number; on Windows the exception code
    int32_t code = 0;           // si_code; on Windows the exception flags
    uint64_t faultAddress = 0;  // the address that faulted (si_addr)
    uint32_t processId = 0;
    uint32_t threadId = 0;      // the crashing thread (kernel thread id on Linux)
    // The machine context of the fault, in the crashing process's memory:
    // a ucontext_t* on POSIX, an EXCEPTION_POINTERS* on Windows. Its address
    // is what goes to the dump recorder, which reads it from outside.
    const void* context = nullptr;
};
static_assert(sizeof(void*) != 8 || sizeof(TCrashInfo) == 32, "TCrashInfo layout changed");

// EXCEPTION_EXECUTE_HANDLER and EXCEPTION_CONTINUE_SEARCH. On POSIX both end
// the process by the original signal once the filter returns.
inline constexpr int32_t kCrashExecuteHandler = 1;
inline constexpr int32_t kCrashContinueSearch = 0;

using CrashFilter = int32_t (*)(const TCrashInfo& info);

// SetUnhandledExceptionFilter: makes `filter` the process's crash filter and
// returns the previous one (null if none). Never fails.
// Windows: the system's filter that was in place before the first call (a
// runtime's or a host's) is kept; once `filter` has run, it is called and
// its answer is the answer.
// POSIX: the first call installs handlers for the five fatal signals and an
// alternate signal stack for the calling thread (other threads that want
// their stack overflows caught call PrepareThreadForCrashes). A second crash
// while the filter runs (another thread) waits for the first to finish; a
// fault inside the filter itself ends the process at once. A watchdog ends
// the process if the filter has not returned after kCrashWatchdogSeconds.
CrashFilter SetCrashFilter(CrashFilter filter);
inline constexpr unsigned kCrashWatchdogSeconds = 300;

// POSIX: gives the calling thread its own alternate signal stack (the
// thread's stack overflow can then be caught). A no-op on Windows.
bool PrepareThreadForCrashes();

// Whether this system can write full process dumps (GetVersionExW: Windows
// XP or later). POSIX: false when process tracing is switched off for good
// (the Yama ptrace scope 3).
bool ProcessDumpsSupported();

// Dump types for WriteProcessDump (the MINIDUMP_TYPE bits that matter here).
inline constexpr uint32_t kDumpNormal = 0;
inline constexpr uint32_t kDumpWithFullMemory = 0x2;

// MiniDumpWriteDump of the own process into `file` (open for writing, empty).
// POSIX: a child forked from the caller attaches to this process and writes
// an ELF core (registers of every thread, the crashing one from
// info.context); kDumpNormal keeps writable and stack memory, full memory
// every readable mapping. False with last error when the dump fails.
bool WriteProcessDump(NativeHandle file, const TCrashInfo& info, uint32_t dumpType);

// The same for another process, the dump recorder's job: the target given by
// what DuplicateCurrentProcess returned inside it, the crashing thread, and
// the address of its context inside the target (0: none).
bool WriteProcessDumpOf(uint64_t process, uint32_t threadId, uint64_t contextAddress,
                        uint32_t dumpType, NativeHandle file);

// The text report of a crash into `file`: signal or exception, address,
// time, process, loaded modules, registers and a stack trace.
// Async-signal-safe on POSIX.
bool WriteCrashReport(NativeHandle file, const TCrashInfo& info);

// GetTempPathW: the user's folder for temporary files, without a trailing
// separator. POSIX: $TMPDIR, else "/tmp". The folder need not exist.
bool GetUserTempFolder(std::u16string& folder);

// A handle on the own process for a child to inherit (DuplicateHandle, kept
// for the process's life); POSIX: the process id. 0 with last error on
// failure.
uint64_t DuplicateCurrentProcess();

// CreateFileW(GENERIC_WRITE, share read and delete, CREATE_NEW) of a program
// file: on POSIX the file may be run (mode 0700). 80 when it exists; POSIX:
// 5 when the folder's file system doesn't let programs run (noexec).
CHandle ProgramFileCreate(std::u16string_view path);

// Reopens a written program file for deletion (DELETE access,
// FILE_FLAG_DELETE_ON_CLOSE): the file goes when the handle closes, however
// the process ends. POSIX: the name is removed at once and the program is
// run from this handle (ProcessStart).
CHandle ProgramFileOpenForDeletion(std::u16string_view path);

// A started child process. Move-only.
struct TChildProcess {
    int64_t id = 0;          // process id; 0 when none was started
    CHandle handle;          // Windows: the process handle; POSIX: unused
    bool finished = false;
    uint32_t exitCode = 0;   // valid when finished; POSIX: a signal s gives 128 + s
};

// CreateProcessW(application, commandLine, inherit handles, no flags).
// `commandLine` is split into arguments by the Windows rules (blanks,
// double quotes, backslashes before a quote). `programFile`, if valid, is an
// open handle on the application's file (ProgramFileOpenForDeletion); POSIX
// runs the program from it, since its name may already be gone.
bool ProcessStart(std::u16string_view application, NativeHandle programFile,
                  std::u16string_view commandLine, TChildProcess& process);
// WaitForSingleObject(INFINITE) on the child; true once it has ended.
bool ProcessWait(TChildProcess& process);
// GetExitCodeProcess of an ended child.
bool ProcessGetExitCode(const TChildProcess& process, uint32_t* exitCode);

}  // namespace platform
