#pragma once
// Console output of UTF-16 text, as the wide console calls of the C runtime
// write it: the text goes out as it stands, with no line end added.
// POSIX: converted to UTF-8 (lone surrogates become U+FFFD) and written to
// file descriptor 1 or 2 at once, unbuffered, so that standard output and
// standard error keep their order.
//
// Thread-safety: any thread; one call's text is written by one write() when
// it fits a pipe's atomic size.

#include <string_view>

namespace platform {

void WriteStdOut(std::u16string_view text);
void WriteStdErr(std::u16string_view text);

}  // namespace platform
