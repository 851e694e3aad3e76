// Raw volume access and process privileges: CreateFileW on a volume name,
// DeviceIoControl(FSCTL_ALLOW_EXTENDED_DASD_IO) and AdjustTokenPrivileges.
// The volume handle may be opened for overlapped I/O (read-ahead): its
// device controls are waited for (platform/win32/waited_io.h).

#include "platform/win32/win32_util.h"

#include <winioctl.h>

#include <cstddef>

#include "platform/errors.h"
#include "platform/volume_io.h"
#include "platform/win32/waited_io.h"

namespace platform {

using win32::Fail;
using win32::ToHandle;

CHandle OpenVolumeDevice(std::u16string_view name, uint32_t access, uint32_t share,
                         uint32_t disposition, uint32_t flagsAndAttributes) {
    return FileOpen(name, access, share, disposition, flagsAndAttributes);
}

bool AllowExtendedDasdIo(NativeHandle h) {
    DWORD returned = 0;
    if (win32::DeviceControlAndWait(ToHandle(h), FSCTL_ALLOW_EXTENDED_DASD_IO, nullptr, 0, nullptr, 0, &returned))
        return true;
    const DWORD error = ::GetLastError();
    // Extended access lifts the limit of the file system's announced end.
    // Where there is no such limit to lift, the call has nothing to do:
    // - an image file that stands in for a volume is refused the call (only
    //   a volume handle takes it), but every byte of a file is readable
    //   already; a handle with a file size is a file, a volume handle has none;
    // - a device that does not implement the request at all (1, 50: Wine's
    //   volume handles) reads what it reads; a read past its end fails then.
    LARGE_INTEGER size;
    const bool isFile = ::GetFileType(ToHandle(h)) == FILE_TYPE_DISK && ::GetFileSizeEx(ToHandle(h), &size);
    if (isFile || error == ERROR_INVALID_FUNCTION || error == ERROR_NOT_SUPPORTED) {
        ::SetLastError(kErrSuccess);
        return true;
    }
    return Fail(error);
}

bool UseDirectIo(NativeHandle, bool) { return false; }

uint32_t GetReadAlignment(NativeHandle h) {
    STORAGE_PROPERTY_QUERY query = {};
    query.PropertyId = StorageAccessAlignmentProperty;
    query.QueryType = PropertyStandardQuery;
    STORAGE_ACCESS_ALIGNMENT_DESCRIPTOR alignment = {};
    DWORD returned = 0;
    if (!win32::DeviceControlAndWait(ToHandle(h), IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof(query), &alignment,
                                     sizeof(alignment), &returned) ||
        returned < offsetof(STORAGE_ACCESS_ALIGNMENT_DESCRIPTOR, BytesPerPhysicalSector))
        return 0;
    return alignment.BytesPerLogicalSector;
}

bool ReadsBypassCache(NativeHandle h) {
    // A file that holds a volume has a size; a volume handle has none, and
    // reads past the cache. Wine gives a block device (a dosdevices link)
    // the size 0, which no image of a volume has.
    LARGE_INTEGER size;
    return !(::GetFileType(ToHandle(h)) == FILE_TYPE_DISK && ::GetFileSizeEx(ToHandle(h), &size) &&
             size.QuadPart > 0);
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
