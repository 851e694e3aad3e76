#pragma once
// 8-bit text of the system's code page to UTF-16, as MultiByteToWideChar
// with CP_THREAD_ACP converts it.
//
// POSIX: the code page is UTF-8. A byte that is not part of valid UTF-8 is
// read as Windows-1252 (its printable characters; the five holes of that
// code page keep their byte value), so that 8-bit text written on a Western
// Windows system converts too and no byte is lost or replaced.

#include <string>
#include <string_view>

namespace platform {

std::u16string AnsiToUtf16(std::string_view text);

}  // namespace platform
