// Console output on POSIX: UTF-16 to UTF-8, written straight to the descriptor.

#include "platform/console.h"

#include <unistd.h>

#include <cerrno>
#include <string>

#include "base/utf.h"

namespace platform {

namespace {
void WriteAll(int fd, std::u16string_view text) {
    const std::string bytes = util::Utf16ToUtf8(text);
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;  // nowhere to report a failure of the console itself
        done += static_cast<size_t>(n);
    }
}
}  // namespace

void WriteStdOut(std::u16string_view text) { WriteAll(STDOUT_FILENO, text); }
void WriteStdErr(std::u16string_view text) { WriteAll(STDERR_FILENO, text); }

}  // namespace platform
