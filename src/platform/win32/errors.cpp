#include "platform/errors.h"

#include "platform/win32/win32_util.h"

#include <oleauto.h>

namespace platform {

uint32_t GetLastError() { return ::GetLastError(); }
void SetLastError(uint32_t error) { ::SetLastError(error); }

std::u16string GetErrorText(uint32_t error) {
    // FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, language
    // 0x0400 (neutral, user default). Inserts are ignored: there are no
    // arguments to give, and a "%1" in a system text would otherwise make
    // FormatMessageW read arguments that are not there.
    const DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                        FORMAT_MESSAGE_IGNORE_INSERTS;
    const DWORD saved = ::GetLastError();
    wchar_t* text = nullptr;
    DWORD length = ::FormatMessageW(flags, nullptr, error, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
                                    reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    std::u16string result;
    if (length != 0 && text) result = win32::FromWide(text, length);
    if (text) ::LocalFree(text);
    ::SetLastError(saved);
    return result;
}

std::u16string GetComErrorDescription() {
    // GetErrorInfo hands over (and clears) the thread's error object.
    IErrorInfo* info = nullptr;
    if (::GetErrorInfo(0, &info) != S_OK || !info) return {};
    std::u16string result;
    BSTR description = nullptr;
    if (SUCCEEDED(info->GetDescription(&description)) && description)
        result = win32::FromWide(description, ::SysStringLen(description));
    ::SysFreeString(description);
    info->Release();
    return result;
}

}  // namespace platform
