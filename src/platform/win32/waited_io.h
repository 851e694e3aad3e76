#pragma once
// Win32 side only: calls that do one I/O on a handle and wait for it, on a
// handle opened for overlapped I/O (FILE_FLAG_OVERLAPPED) as on any other.
//
// A handle opened for overlapped I/O keeps no file position for its reads
// and may end any call later than it returns: ReadFile and DeviceIoControl
// on it need an OVERLAPPED, with an event of its own to wait on, and
// ERROR_IO_PENDING means "not yet", not a failure. Each call here passes one
// (the calling thread's event, reused) and waits; on a synchronous handle
// the same call ends before it returns, so one form serves both.

#include "platform/win32/win32_util.h"

#include <cstdint>

namespace platform::win32 {

// ReadFile of `size` bytes at `offset`. True with *done the bytes read,
// fewer at the end of the file (0 at or past it: ERROR_HANDLE_EOF is no
// failure here); false with the last error set.
bool ReadAtAndWait(HANDLE h, uint64_t offset, void* buffer, DWORD size, DWORD* done);

// DeviceIoControl, waited for. As the API: false with the last error set.
bool DeviceControlAndWait(HANDLE h, DWORD code, void* in, DWORD inSize, void* out, DWORD outSize,
                          DWORD* returned);

// Whether the handle was opened for overlapped I/O (its file object has
// neither synchronous mode); false when that cannot be asked.
bool IsOpenedForOverlappedIo(HANDLE h);

// An OVERLAPPED at `offset` that signals `event` when its call ends.
inline OVERLAPPED OverlappedAt(uint64_t offset, HANDLE event) {
    OVERLAPPED at = {};
    at.Offset = static_cast<DWORD>(offset);
    at.OffsetHigh = static_cast<DWORD>(offset >> 32);
    at.hEvent = event;
    return at;
}

}  // namespace platform::win32
