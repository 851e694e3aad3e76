// platform::CReadQueue on Windows: the synchronous form, ReadFile at an
// offset (an OVERLAPPED on a synchronous handle) for each slice in turn.

#include "platform/win32/win32_util.h"

#include "platform/errors.h"
#include "platform/read_queue.h"
#include "platform/read_queue_sync.h"

namespace platform {

bool ReadSlicesAt(NativeHandle handle, uint64_t offset, const TReadSlice* slices, uint32_t count, uint64_t* done) {
    *done = 0;
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t got = 0;
        while (got < slices[i].Size) {
            OVERLAPPED at = {};
            const uint64_t position = offset + *done;
            at.Offset = static_cast<DWORD>(position);
            at.OffsetHigh = static_cast<DWORD>(position >> 32);
            DWORD n = 0;
            if (!::ReadFile(win32::ToHandle(handle), static_cast<uint8_t*>(slices[i].Data) + got,
                            slices[i].Size - got, &n, &at)) {
                if (::GetLastError() == ERROR_HANDLE_EOF) return true;
                return false;
            }
            if (n == 0) return true;  // the end of the file
            got += n;
            *done += n;
        }
    }
    return true;
}

std::unique_ptr<CReadQueue> CReadQueue::Make(NativeHandle handle, uint32_t, bool) {
    return std::make_unique<CSyncReadQueue>(handle);
}

}  // namespace platform
