#include "platform/read_queue_sync.h"

#include "platform/errors.h"

namespace platform {

void CSyncReadQueue::Submit(uint64_t offset, const TReadSlice* slices, uint32_t count, uint64_t tag) {
    TReadResult result;
    result.Tag = tag;
    if (!ReadSlicesAt(m_Handle, offset, slices, count, &result.Done)) {
        result.Error = GetLastError();
        if (result.Error == 0) result.Error = kErrGenFailure;
    }
    m_Done.push_back(result);
}

TReadResult CSyncReadQueue::Reap() {
    TReadResult result = m_Done.front();
    m_Done.pop_front();
    return result;
}

}  // namespace platform
