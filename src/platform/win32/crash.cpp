// Crash handling on Windows: the unhandled-exception filter, MiniDumpWriteDump
// and the DbgHelp stack walk from dbghelp.dll (loaded when first needed), and
// CreateProcessW for the dump recorder.

#include "platform/win32/win32_util.h"

#include <dbghelp.h>
#include <tlhelp32.h>

#include <atomic>
#include <cstdio>
#include <string>

#include "platform/crash.h"
#include "platform/errors.h"

namespace platform {

using win32::Fail;
using win32::FromHandle;
using win32::ToHandle;
using win32::ToWide;

namespace {

std::atomic<CrashFilter> g_Filter{nullptr};
// The process's filter from before ours (a runtime's or a host's), if any.
std::atomic<LPTOP_LEVEL_EXCEPTION_FILTER> g_PreviousOsFilter{nullptr};

LONG WINAPI TopLevelFilter(EXCEPTION_POINTERS* pointers) {
    TCrashInfo info;
    const EXCEPTION_RECORD* record = pointers ? pointers->ExceptionRecord : nullptr;
    if (record) {
        info.signal = static_cast<int32_t>(record->ExceptionCode);
        info.code = static_cast<int32_t>(record->ExceptionFlags);
        info.faultAddress = reinterpret_cast<uint64_t>(record->ExceptionAddress);
        // An access violation names the data address it touched.
        if (record->ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record->NumberParameters >= 2)
            info.faultAddress = record->ExceptionInformation[1];
    }
    info.processId = ::GetCurrentProcessId();
    info.threadId = ::GetCurrentThreadId();
    info.context = pointers;
    CrashFilter filter = g_Filter.load();
    const LONG answer = filter ? filter(info) : EXCEPTION_CONTINUE_SEARCH;
    // Ours has written its dump; the filter that was there before gives the
    // answer, as it would have without us.
    if (LPTOP_LEVEL_EXCEPTION_FILTER previous = g_PreviousOsFilter.load()) return previous(pointers);
    return answer;
}

// dbghelp.dll, loaded once, with the entries the crash code uses.
struct TDbgHelp {
    decltype(&::MiniDumpWriteDump) miniDumpWriteDump = nullptr;
    decltype(&::SymInitializeW) symInitialize = nullptr;
    decltype(&::SymCleanup) symCleanup = nullptr;
    decltype(&::StackWalk64) stackWalk = nullptr;
    decltype(&::SymFunctionTableAccess64) functionTableAccess = nullptr;
    decltype(&::SymGetModuleBase64) getModuleBase = nullptr;
    decltype(&::SymFromAddr) symFromAddr = nullptr;
    DWORD loadError = 0;
};

template <class F>
void Resolve(HMODULE module, const char* name, F& entry) {
    entry = reinterpret_cast<F>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

const TDbgHelp& DbgHelp() {
    static const TDbgHelp help = [] {
        TDbgHelp h;
        HMODULE module = ::LoadLibraryW(L"dbghelp.dll");
        if (!module) {
            h.loadError = ::GetLastError();
            return h;
        }
        Resolve(module, "MiniDumpWriteDump", h.miniDumpWriteDump);
        Resolve(module, "SymInitializeW", h.symInitialize);
        Resolve(module, "SymCleanup", h.symCleanup);
        Resolve(module, "StackWalk64", h.stackWalk);
        Resolve(module, "SymFunctionTableAccess64", h.functionTableAccess);
        Resolve(module, "SymGetModuleBase64", h.getModuleBase);
        Resolve(module, "SymFromAddr", h.symFromAddr);
        return h;
    }();
    return help;
}

bool WriteText(HANDLE file, const std::string& text) {
    DWORD done = 0;
    return ::WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &done, nullptr) &&
           done == text.size();
}

template <class... A>
std::string Format(const char* format, A... args) {
    char buffer[1024];
    int n = std::snprintf(buffer, sizeof(buffer), format, args...);
    return std::string(buffer, n < 0 ? 0 : (n < int(sizeof(buffer)) ? n : int(sizeof(buffer)) - 1));
}

std::string Narrow(const wchar_t* text) {
    std::string out;
    for (; *text; ++text) out += *text < 0x80 ? static_cast<char>(*text) : '?';
    return out;
}

std::string ModulesText() {
    std::string text;
    HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, ::GetCurrentProcessId());
    if (snapshot == INVALID_HANDLE_VALUE) return "(no module list)\n";
    MODULEENTRY32W entry;
    entry.dwSize = sizeof(entry);
    for (BOOL more = ::Module32FirstW(snapshot, &entry); more; more = ::Module32NextW(snapshot, &entry)) {
        const uint64_t start = reinterpret_cast<uint64_t>(entry.modBaseAddr);
        text += Format("0x%016llx - 0x%016llx %s (%s)\n", static_cast<unsigned long long>(start),
                       static_cast<unsigned long long>(start + entry.modBaseSize),
                       Narrow(entry.szModule).c_str(), Narrow(entry.szExePath).c_str());
    }
    ::CloseHandle(snapshot);
    return text;
}

std::string FramesText(const CONTEXT& faultContext) {
    const TDbgHelp& help = DbgHelp();
    if (!help.stackWalk || !help.symInitialize) return "(no stack walk: dbghelp.dll is missing)\n";
    HANDLE process = ::GetCurrentProcess();
    help.symInitialize(process, nullptr, TRUE);
    CONTEXT context = faultContext;
    STACKFRAME64 frame = {};
    frame.AddrPC.Offset = context.Rip;
    frame.AddrPC.Mode = AddrModeFlat;
    frame.AddrStack.Offset = context.Rsp;
    frame.AddrStack.Mode = AddrModeFlat;
    frame.AddrFrame.Offset = context.Rbp;
    frame.AddrFrame.Mode = AddrModeFlat;
    std::string text;
    for (int i = 0; i < 128; ++i) {
        if (!help.stackWalk(IMAGE_FILE_MACHINE_AMD64, process, ::GetCurrentThread(), &frame,
                            &context, nullptr, help.functionTableAccess, help.getModuleBase,
                            nullptr) ||
            frame.AddrPC.Offset == 0)
            break;
        text += Format("0x%016llx\t", static_cast<unsigned long long>(frame.AddrPC.Offset));
        alignas(SYMBOL_INFO) char buffer[sizeof(SYMBOL_INFO) + 256] = {};
        auto* symbol = reinterpret_cast<SYMBOL_INFO*>(buffer);
        symbol->SizeOfStruct = sizeof(SYMBOL_INFO);
        symbol->MaxNameLen = 255;
        DWORD64 displacement = 0;
        if (help.symFromAddr && help.symFromAddr(process, frame.AddrPC.Offset, &displacement, symbol))
            text += Format("%s %+lld bytes\n", symbol->Name, static_cast<long long>(displacement));
        else
            text += "<no symbol>\n";
    }
    if (help.symCleanup) help.symCleanup(process);
    return text;
}

}  // namespace

CrashFilter SetCrashFilter(CrashFilter filter) {
    static std::atomic<bool> installed{false};
    CrashFilter previous = g_Filter.exchange(filter);
    if (!installed.exchange(true)) {
        LPTOP_LEVEL_EXCEPTION_FILTER previousOs = ::SetUnhandledExceptionFilter(TopLevelFilter);
        if (previousOs != TopLevelFilter) g_PreviousOsFilter = previousOs;
    }
    return previous;
}

bool PrepareThreadForCrashes() {
    ULONG reserve = 64 * 1024;  // room for the filter after a stack overflow
    return ::SetThreadStackGuarantee(&reserve) ? true : false;
}

bool ProcessDumpsSupported() {
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    if (!::GetVersionExW(&version)) return false;
#pragma GCC diagnostic pop
    if (version.dwMajorVersion < 5 || (version.dwMajorVersion == 5 && version.dwMinorVersion == 0))
        return Fail(kErrNotSupported);
    return true;
}

bool WriteProcessDump(NativeHandle file, const TCrashInfo& info, uint32_t dumpType) {
    const TDbgHelp& help = DbgHelp();
    if (!help.miniDumpWriteDump) return Fail(help.loadError ? help.loadError : kErrNotSupported);
    MINIDUMP_EXCEPTION_INFORMATION exception = {
        info.threadId, static_cast<EXCEPTION_POINTERS*>(const_cast<void*>(info.context)), FALSE};
    return help.miniDumpWriteDump(::GetCurrentProcess(), ::GetCurrentProcessId(), ToHandle(file),
                                  static_cast<MINIDUMP_TYPE>(dumpType),
                                  info.context ? &exception : nullptr, nullptr, nullptr) == TRUE;
}

bool WriteProcessDumpOf(uint64_t process, uint32_t threadId, uint64_t contextAddress,
                        uint32_t dumpType, NativeHandle file) {
    const TDbgHelp& help = DbgHelp();
    if (!help.miniDumpWriteDump) return Fail(help.loadError ? help.loadError : kErrNotSupported);
    HANDLE target = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(process));
    const DWORD processId = ::GetProcessId(target);
    if (processId == 0) return false;
    // The crash info lies in the target; its context is the target's
    // EXCEPTION_POINTERS, handed on only between processes of one bitness.
    MINIDUMP_EXCEPTION_INFORMATION exception = {};
    bool haveException = false;
    TCrashInfo crash;
    SIZE_T read = 0;
    BOOL ownWow = FALSE, targetWow = FALSE;
    if (contextAddress != 0 &&
        ::ReadProcessMemory(target, reinterpret_cast<const void*>(contextAddress), &crash,
                            sizeof(crash), &read) &&
        read == sizeof(crash) && crash.context &&
        ::IsWow64Process(::GetCurrentProcess(), &ownWow) && ::IsWow64Process(target, &targetWow) &&
        ownWow == targetWow) {
        exception = {threadId, static_cast<EXCEPTION_POINTERS*>(const_cast<void*>(crash.context)),
                     TRUE};
        haveException = true;
    }
    return help.miniDumpWriteDump(target, processId, ToHandle(file),
                                  static_cast<MINIDUMP_TYPE>(dumpType),
                                  haveException ? &exception : nullptr, nullptr, nullptr) == TRUE;
}

bool WriteCrashReport(NativeHandle file, const TCrashInfo& info) {
    HANDLE h = ToHandle(file);
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    wchar_t exe[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, exe, MAX_PATH - 1);
    const wchar_t* base = exe;
    for (const wchar_t* p = exe; *p; ++p)
        if (*p == L'\\' || *p == L'/') base = p + 1;
    std::string text =
        "\n/////////////////////////////////////////////////////////////////////////////////////\n";
    text += Format("// Exception: 0x%08x, Address: 0x%016llx, Date/Time %04u-%02u-%02u %02u:%02u:%02u\n",
                   static_cast<unsigned>(info.signal), static_cast<unsigned long long>(info.faultAddress),
                   now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond);
    text += Format("// Process %s (%s), Process ID: 0x%08x, Thread ID: 0x%08x\n\n",
                   Narrow(base).c_str(), Narrow(exe).c_str(), info.processId, info.threadId);
    text += "Loaded modules:\n\n" + ModulesText();
    const auto* pointers = static_cast<const EXCEPTION_POINTERS*>(info.context);
    if (pointers && pointers->ContextRecord) {
        const CONTEXT& c = *pointers->ContextRecord;
        text += "\nRegisters:\n";
        text += Format("rax=0x%016llx rbx=0x%016llx rcx=0x%016llx rdx=0x%016llx\n", c.Rax, c.Rbx, c.Rcx, c.Rdx);
        text += Format("rsi=0x%016llx rdi=0x%016llx rbp=0x%016llx rsp=0x%016llx\n", c.Rsi, c.Rdi, c.Rbp, c.Rsp);
        text += Format("r8=0x%016llx r9=0x%016llx r10=0x%016llx r11=0x%016llx\n", c.R8, c.R9, c.R10, c.R11);
        text += Format("r12=0x%016llx r13=0x%016llx r14=0x%016llx r15=0x%016llx\n", c.R12, c.R13, c.R14, c.R15);
        text += Format("rip=0x%016llx efl=0x%08lx\n", c.Rip, c.EFlags);
        text += "\nStack frames:\n" + FramesText(c);
    } else {
        text += "\nRegisters:\n(no register context)\n\nStack frames:\n";
    }
    return WriteText(h, text);
}

bool GetUserTempFolder(std::u16string& folder) {
    wchar_t buffer[MAX_PATH + 2] = {};
    DWORD n = ::GetTempPathW(MAX_PATH + 1, buffer);
    if (n == 0 || n > MAX_PATH + 1) return n == 0 ? false : Fail(kErrInsufficientBuffer);
    while (n > 3 && (buffer[n - 1] == L'\\' || buffer[n - 1] == L'/')) --n;
    folder = win32::FromWide(buffer, n);
    return true;
}

uint64_t DuplicateCurrentProcess() {
    static HANDLE duplicated = nullptr;  // kept for the process's life
    if (!duplicated && !::DuplicateHandle(::GetCurrentProcess(), ::GetCurrentProcess(),
                                          ::GetCurrentProcess(), &duplicated, 0, TRUE,
                                          DUPLICATE_SAME_ACCESS))
        return 0;
    return reinterpret_cast<uintptr_t>(duplicated);
}

CHandle ProgramFileCreate(std::u16string_view path) {
    HANDLE h = ::CreateFileW(ToWide(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                             nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    return CHandle(h == INVALID_HANDLE_VALUE ? kInvalidHandle : FromHandle(h));
}

CHandle ProgramFileOpenForDeletion(std::u16string_view path) {
    HANDLE h = ::CreateFileW(ToWide(path).c_str(), DELETE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                             nullptr, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    return CHandle(h == INVALID_HANDLE_VALUE ? kInvalidHandle : FromHandle(h));
}

bool ProcessStart(std::u16string_view application, NativeHandle, std::u16string_view commandLine,
                  TChildProcess& process) {
    process.id = 0;
    process.finished = false;
    std::wstring line = ToWide(commandLine);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info = {};
    if (!::CreateProcessW(ToWide(application).c_str(), line.data(), nullptr, nullptr, TRUE, 0,
                          nullptr, nullptr, &startup, &info))
        return false;
    ::CloseHandle(info.hThread);
    process.id = info.dwProcessId;
    process.handle = CHandle(FromHandle(info.hProcess));
    return true;
}

bool ProcessWait(TChildProcess& process) {
    if (!process.handle.IsValid()) return Fail(kErrInvalidHandle);
    if (::WaitForSingleObject(ToHandle(process.handle.Get()), INFINITE) != WAIT_OBJECT_0)
        return false;
    DWORD code = 0;
    if (!::GetExitCodeProcess(ToHandle(process.handle.Get()), &code)) return false;
    process.finished = true;
    process.exitCode = code;
    return true;
}

bool ProcessGetExitCode(const TChildProcess& process, uint32_t* exitCode) {
    if (!process.finished) return Fail(kErrInvalidHandle);
    *exitCode = process.exitCode;
    return true;
}

}  // namespace platform
