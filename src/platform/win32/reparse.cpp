// FSCTL_GET_REPARSE_POINT as the real device control.

#include "platform/reparse.h"

#include "platform/win32/win32_util.h"

#include <winioctl.h>

namespace platform {

bool GetReparsePoint(NativeHandle h, void* buffer, uint32_t size, uint32_t* returned) {
    DWORD done = 0;
    const BOOL ok = ::DeviceIoControl(win32::ToHandle(h), FSCTL_GET_REPARSE_POINT, nullptr, 0, buffer,
                                      size, &done, nullptr);
    if (returned) *returned = done;
    return ok != 0;
}

}  // namespace platform
