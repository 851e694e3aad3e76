// Raw volume access and process privileges: CreateFileW on a volume name,
// DeviceIoControl(FSCTL_ALLOW_EXTENDED_DASD_IO) and AdjustTokenPrivileges.

#include "platform/win32/win32_util.h"

#include <winioctl.h>

#include "platform/errors.h"
#include "platform/volume_io.h"

namespace platform {

using win32::Fail;
using win32::ToHandle;

CHandle OpenVolumeDevice(std::u16string_view name, uint32_t access, uint32_t share,
                         uint32_t disposition, uint32_t flagsAndAttributes) {
    return FileOpen(name, access, share, disposition, flagsAndAttributes);
}

bool AllowExtendedDasdIo(NativeHandle h) {
    DWORD returned = 0;
    if (::DeviceIoControl(ToHandle(h), FSCTL_ALLOW_EXTENDED_DASD_IO, nullptr, 0, nullptr, 0,
                          &returned, nullptr))
        return true;
    // An image file that stands in for a volume is refused the call (only a
    // volume handle takes it), but a file has no announced end to read past:
    // every byte is readable already. A handle with a file size is a file;
    // a volume handle has none.
    const DWORD error = ::GetLastError();
    LARGE_INTEGER size;
    if (::GetFileType(ToHandle(h)) == FILE_TYPE_DISK && ::GetFileSizeEx(ToHandle(h), &size)) {
        ::SetLastError(kErrSuccess);
        return true;
    }
    return Fail(error);
}

bool EnableProcessPrivilege(std::u16string_view name) {
    LUID luid;
    if (!::LookupPrivilegeValueW(nullptr, win32::ToWide(name).c_str(), &luid)) return false;
    HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token))
        return false;
    TOKEN_PRIVILEGES privileges = {};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Luid = luid;
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    // Succeeds also when the token lacks the privilege; the last error then
    // says ERROR_NOT_ALL_ASSIGNED (1300).
    BOOL ok = ::AdjustTokenPrivileges(token, FALSE, &privileges, sizeof(privileges), nullptr, nullptr);
    const DWORD error = ::GetLastError();
    ::CloseHandle(token);
    if (!ok) return Fail(error);
    return error == ERROR_SUCCESS ? true : Fail(error);
}

}  // namespace platform
