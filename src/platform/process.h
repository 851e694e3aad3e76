#pragma once
// The process: module path, environment, the named mutex, priority, ids and
// the COM apartment, as thin wrappers of GetModuleFileNameW, GetCommandLineW,
// GetEnvironmentVariableW / SetEnvironmentVariableW / GetEnvironmentStringsW,
// CreateMutexW, GetPriorityClass / SetPriorityClass, GetCurrentProcessId,
// GetCurrentThreadId and CoInitializeEx / CoUninitialize.
//
// Failures return false (or an invalid handle, or 0 where the Win32 call
// answers 0) and set the thread's last error (platform/errors.h).

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/file.h"

namespace platform {

// GetModuleFileNameW(nullptr): the full path of the running executable, in
// the program's spelling (POSIX: /proc/self/exe, names converted as the
// arguments below are).
bool GetModuleFileName(std::u16string& path);

// The arguments of the command line, the program's name first, as the wide
// entry point gets them (Windows: CommandLineToArgvW of GetCommandLineW, and
// argc / argv are not read). POSIX: each argument is a native path whose
// names convert reversibly (platform/names.h), "/" kept as the separator.
std::vector<std::u16string> GetCommandLineArguments(int argc, char** argv);


// GetEnvironmentVariableW: false with 203 (kErrEnvVarNotFound) when unset.
// An empty value is a value.
bool GetEnvVar(std::u16string_view name, std::u16string& value);
// SetEnvironmentVariableW; UnsetEnvVar is the form with a null value.
// Errors: 87 for an empty name or one holding "=".
bool SetEnvVar(std::u16string_view name, std::u16string_view value);
bool UnsetEnvVar(std::u16string_view name);
// GetEnvironmentStringsW: every variable as "NAME=value", in the order the
// environment holds them.
std::vector<std::u16string> GetEnvironmentStrings();

// CreateMutexW(nullptr, initialOwner, name). A valid handle either way; the
// last error is 183 (kErrAlreadyExists) when another holder has the mutex
// already, 0 otherwise. The mutex lives until the handle closes.
// POSIX: an exclusive flock on "<lock folder>/<name>.lock" ("\" and "/" of
// the name become "_"). The lock folder is NGI_LOCK_DIR when set, else
// /run/lock, else /tmp. A second holder, in this or another process, gets
// 183. Errors: 5 when the lock file cannot be created.
inline constexpr char kLockDirVariable[] = "NGI_LOCK_DIR";
CHandle CreateNamedMutex(std::u16string_view name, bool initialOwner);

// Priority classes and the background mode, with the values of
// SetPriorityClass.
inline constexpr uint32_t kIdlePriorityClass = 0x00000040u;
inline constexpr uint32_t kNormalPriorityClass = 0x00000020u;
inline constexpr uint32_t kHighPriorityClass = 0x00000080u;
inline constexpr uint32_t kRealtimePriorityClass = 0x00000100u;
inline constexpr uint32_t kBelowNormalPriorityClass = 0x00004000u;
inline constexpr uint32_t kAboveNormalPriorityClass = 0x00008000u;
inline constexpr uint32_t kProcessModeBackgroundBegin = 0x00100000u;
inline constexpr uint32_t kProcessModeBackgroundEnd = 0x00200000u;

// GetPriorityClass(GetCurrentProcess()): 0 with last error on failure.
// POSIX: the class whose nice value band holds the calling thread's nice
// value (see docs/platform.md); in background mode, the class before it.
uint32_t GetPriorityClass();
// SetPriorityClass(GetCurrentProcess(), value). Errors: 402 background mode
// begun when the process is in it already, 403 ended when it is not, 5 not
// permitted (POSIX: a raise of priority without the privilege), 87 unknown
// value. POSIX: every thread of the process gets the class's nice value;
// background mode sets nice 19 and the idle I/O class, and its end puts back
// the nice value and I/O class each thread had.
bool SetPriorityClass(uint32_t value);

// The four parts of a module's file version (GetFileVersionInfoW, the
// fixed file info). POSIX: executables carry no version resource; false
// with 1813 (kErrResourceTypeNotFound).
bool GetFileVersion(std::u16string_view modulePath, uint16_t (&parts)[4]);

uint32_t GetCurrentProcessId();
// POSIX: the kernel thread id (gettid).
uint32_t GetCurrentThreadId();

// CoInitializeEx(nullptr, COINIT_MULTITHREADED) and CoUninitialize. The
// result of the first is an HRESULT; POSIX has no COM and answers 0 (S_OK).
int32_t ComInitialize();
void ComUninitialize();

}  // namespace platform
