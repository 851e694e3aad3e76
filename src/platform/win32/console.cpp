// Console output. On a console the text goes to WriteConsoleW as UTF-16, so
// every character shows; redirected to a file or pipe it is written as the
// C runtime's text mode writes it, with "\n" as "\r\n", in UTF-8 (the
// runtime's own conversion would lose every character outside the ANSI
// code page).

#include "platform/win32/win32_util.h"

#include <algorithm>
#include <string>

#include "platform/console.h"

namespace platform {

namespace {

void WriteAll(HANDLE h, const void* data, DWORD size) {
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        DWORD done = 0;
        if (!::WriteFile(h, p, size, &done, nullptr) || done == 0) return;  // nowhere to report
        p += done;
        size -= done;
    }
}

void Write(DWORD which, std::u16string_view text) {
    HANDLE h = ::GetStdHandle(which);
    if (h == nullptr || h == INVALID_HANDLE_VALUE || text.empty()) return;
    DWORD mode = 0;
    if (::GetConsoleMode(h, &mode)) {
        const wchar_t* p = reinterpret_cast<const wchar_t*>(text.data());
        size_t left = text.size();
        while (left > 0) {
            DWORD done = 0;
            DWORD chunk = static_cast<DWORD>(std::min<size_t>(left, 16384));
            if (!::WriteConsoleW(h, p, chunk, &done, nullptr) || done == 0) return;
            p += done;
            left -= done;
        }
        return;
    }
    std::u16string crlf;
    crlf.reserve(text.size() + text.size() / 16);
    for (char16_t c : text) {
        if (c == u'\n') crlf += u'\r';
        crlf += c;
    }
    const wchar_t* wide = reinterpret_cast<const wchar_t*>(crlf.data());
    int n = ::WideCharToMultiByte(CP_UTF8, 0, wide, static_cast<int>(crlf.size()), nullptr, 0,
                                  nullptr, nullptr);
    if (n <= 0) return;
    std::string bytes(static_cast<size_t>(n), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, wide, static_cast<int>(crlf.size()), bytes.data(), n,
                          nullptr, nullptr);
    WriteAll(h, bytes.data(), static_cast<DWORD>(bytes.size()));
}

}  // namespace

void WriteStdOut(std::u16string_view text) { Write(STD_OUTPUT_HANDLE, text); }
void WriteStdErr(std::u16string_view text) { Write(STD_ERROR_HANDLE, text); }

}  // namespace platform
