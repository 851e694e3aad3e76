// 8-bit text of the thread's code page through MultiByteToWideChar.

#include "platform/win32/win32_util.h"

#include "platform/codepage.h"

namespace platform {

std::u16string AnsiToUtf16(std::string_view text) {
    if (text.empty()) return {};
    const int size = static_cast<int>(text.size());
    int n = ::MultiByteToWideChar(CP_THREAD_ACP, 0, text.data(), size, nullptr, 0);
    if (n <= 0) return {};
    std::wstring wide(static_cast<size_t>(n), L'\0');
    n = ::MultiByteToWideChar(CP_THREAD_ACP, 0, text.data(), size, wide.data(), n);
    return win32::FromWide(wide.data(), static_cast<size_t>(n > 0 ? n : 0));
}

}  // namespace platform
