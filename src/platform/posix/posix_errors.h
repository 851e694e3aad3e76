#pragma once
// POSIX side only: errno to Win32 error numbers.

#include <cstdint>

namespace platform::posix {

// The Win32 error for an errno value (EEXIST gives 80, the file-exists
// error; callers that mean "already exists" for other objects pass 183).
uint32_t Win32FromErrno(int err);
// Sets the thread's last error from errno and returns false, for
// `return FailErrno();` in operations that answer a bool.
bool FailErrno();
bool Fail(uint32_t win32Error);

}  // namespace platform::posix
