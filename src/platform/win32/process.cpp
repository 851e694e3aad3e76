// The process through GetModuleFileNameW, CommandLineToArgvW, the
// environment calls, CreateMutexW, the priority class calls and COM.

#include "platform/win32/win32_util.h"

#include <objbase.h>
#include <shellapi.h>

#include "platform/errors.h"
#include "platform/process.h"

namespace platform {

using win32::Fail;
using win32::FromWide;
using win32::ToWide;

bool GetModuleFileName(std::u16string& path) {
    // The call truncates silently and answers the buffer's size when the path
    // does not fit; the longest path is 32,767 characters.
    for (DWORD size = MAX_PATH; size <= 32768; size *= 2) {
        std::wstring buffer(size, L'\0');
        DWORD n = ::GetModuleFileNameW(nullptr, buffer.data(), size);
        if (n == 0) return false;
        if (n < size) {
            path = FromWide(buffer.data(), n);
            return true;
        }
    }
    return Fail(kErrInsufficientBuffer);
}

std::vector<std::u16string> GetCommandLineArguments(int, char**) {
    std::vector<std::u16string> args;
    int count = 0;
    wchar_t** argv = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    if (!argv) return args;
    for (int i = 0; i < count; ++i) args.push_back(FromWide(argv[i]));
    ::LocalFree(argv);
    return args;
}

namespace {
bool ValidEnvName(std::u16string_view name) {
    return !name.empty() && name.find(u'=') == std::u16string_view::npos;
}
}  // namespace

bool GetEnvVar(std::u16string_view name, std::u16string& value) {
    if (!ValidEnvName(name)) return Fail(kErrEnvVarNotFound);
    const std::wstring wideName = ToWide(name);
    std::wstring buffer(256, L'\0');
    for (int attempt = 0; attempt < 4; ++attempt) {
        // An empty value answers 0 too, but leaves the last error at 0.
        ::SetLastError(kErrSuccess);
        DWORD n = ::GetEnvironmentVariableW(wideName.c_str(), buffer.data(),
                                            static_cast<DWORD>(buffer.size()));
        if (n == 0) {
            if (::GetLastError() != kErrSuccess) return false;
            value.clear();
            return true;
        }
        if (n < buffer.size()) {
            value = FromWide(buffer.data(), n);
            return true;
        }
        buffer.resize(n);  // n counts the terminating null
    }
    return Fail(kErrMoreData);  // the value kept growing under us
}

bool SetEnvVar(std::u16string_view name, std::u16string_view value) {
    if (!ValidEnvName(name)) return Fail(kErrInvalidParameter);
    return ::SetEnvironmentVariableW(ToWide(name).c_str(), ToWide(value).c_str()) != 0;
}

bool UnsetEnvVar(std::u16string_view name) {
    if (!ValidEnvName(name)) return Fail(kErrInvalidParameter);
    return ::SetEnvironmentVariableW(ToWide(name).c_str(), nullptr) != 0;
}

std::vector<std::u16string> GetEnvironmentStrings() {
    std::vector<std::u16string> result;
    wchar_t* block = ::GetEnvironmentStringsW();
    if (!block) return result;
    for (const wchar_t* p = block; *p; p += result.back().size() + 1) result.push_back(FromWide(p));
    ::FreeEnvironmentStringsW(block);
    return result;
}

CHandle CreateNamedMutex(std::u16string_view name, bool initialOwner) {
    HANDLE h = ::CreateMutexW(nullptr, initialOwner, ToWide(name).c_str());
    if (!h) return CHandle();  // CreateMutexW fails with a null handle
    // Success leaves 183 when the mutex existed; make "created" read 0.
    if (::GetLastError() != ERROR_ALREADY_EXISTS) ::SetLastError(kErrSuccess);
    return CHandle(win32::FromHandle(h));
}

uint32_t GetPriorityClass() { return ::GetPriorityClass(::GetCurrentProcess()); }

bool SetPriorityClass(uint32_t value) {
    return ::SetPriorityClass(::GetCurrentProcess(), value) != 0;
}

bool GetFileVersion(std::u16string_view modulePath, uint16_t (&parts)[4]) {
    const std::wstring path = ToWide(modulePath);
    DWORD ignored = 0;
    DWORD size = ::GetFileVersionInfoSizeW(path.c_str(), &ignored);
    if (size == 0) return false;
    std::vector<uint8_t> block(size);
    if (!::GetFileVersionInfoW(path.c_str(), 0, size, block.data())) return false;
    VS_FIXEDFILEINFO* info = nullptr;
    UINT length = 0;
    if (!::VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&info), &length) || !info ||
        length < sizeof(VS_FIXEDFILEINFO))
        return Fail(kErrResourceTypeNotFound);
    parts[0] = HIWORD(info->dwFileVersionMS);
    parts[1] = LOWORD(info->dwFileVersionMS);
    parts[2] = HIWORD(info->dwFileVersionLS);
    parts[3] = LOWORD(info->dwFileVersionLS);
    return true;
}

uint32_t GetCurrentProcessId() { return ::GetCurrentProcessId(); }
uint32_t GetCurrentThreadId() { return ::GetCurrentThreadId(); }

int32_t ComInitialize() { return ::CoInitializeEx(nullptr, COINIT_MULTITHREADED); }
void ComUninitialize() { ::CoUninitialize(); }

}  // namespace platform
