#include "platform/win32/waited_io.h"

#include <winternl.h>

namespace platform::win32 {

namespace {

// One manual-reset event a thread, made at its first waited call and closed
// when the thread ends. Null when it could not be made: waiting on the
// handle instead could wake for another read in flight on it, so the calls
// fail then (1450, no system resources).
HANDLE ThreadEvent() {
    struct TEvent {
        HANDLE Handle = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
        ~TEvent() {
            if (Handle) ::CloseHandle(Handle);
        }
    };
    thread_local TEvent event;
    return event.Handle;
}

// A call that may have returned ERROR_IO_PENDING, finished.
bool Finish(HANDLE h, BOOL ok, OVERLAPPED& at, DWORD* transferred) {
    if (!ok && ::GetLastError() == ERROR_IO_PENDING) ok = ::GetOverlappedResult(h, &at, transferred, TRUE);
    return ok != 0;
}

using NtQueryInformationFileFn = NTSTATUS(NTAPI*)(HANDLE, IO_STATUS_BLOCK*, PVOID, ULONG, FILE_INFORMATION_CLASS);

}  // namespace

bool ReadAtAndWait(HANDLE h, uint64_t offset, void* buffer, DWORD size, DWORD* done) {
    *done = 0;
    OVERLAPPED at = OverlappedAt(offset, ThreadEvent());
    if (!at.hEvent) return Fail(ERROR_NO_SYSTEM_RESOURCES);
    if (Finish(h, ::ReadFile(h, buffer, size, done, &at), at, done)) return true;
    if (::GetLastError() != ERROR_HANDLE_EOF) return false;
    *done = 0;
    ::SetLastError(ERROR_SUCCESS);
    return true;
}

bool DeviceControlAndWait(HANDLE h, DWORD code, void* in, DWORD inSize, void* out, DWORD outSize,
                          DWORD* returned) {
    *returned = 0;
    OVERLAPPED at = OverlappedAt(0, ThreadEvent());
    if (!at.hEvent) return Fail(ERROR_NO_SYSTEM_RESOURCES);
    return Finish(h, ::DeviceIoControl(h, code, in, inSize, out, outSize, returned, &at), at, returned);
}

bool IsOpenedForOverlappedIo(HANDLE h) {
    // ntdll has no import library entry in every tool chain: looked up once.
    static const NtQueryInformationFileFn query = [] {
        HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
        return ntdll ? reinterpret_cast<NtQueryInformationFileFn>(
                           reinterpret_cast<void*>(::GetProcAddress(ntdll, "NtQueryInformationFile")))
                     : nullptr;
    }();
    FILE_MODE_INFORMATION mode = {};
    IO_STATUS_BLOCK status = {};
    if (!query || query(h, &status, &mode, sizeof(mode), FileModeInformation) < 0) return false;
    return (mode.Mode & (FILE_SYNCHRONOUS_IO_ALERT | FILE_SYNCHRONOUS_IO_NONALERT)) == 0;
}

}  // namespace platform::win32
