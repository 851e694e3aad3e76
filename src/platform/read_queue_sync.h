#pragma once
// The synchronous form of platform::CReadQueue, for both platforms: each read
// is done in Submit by the platform's ReadSlicesAt, and Reap hands back the
// results in submission order.

#include <deque>

#include "platform/read_queue.h"

namespace platform {

// Reads `count` slices of consecutive bytes at `offset`, looping over short
// reads; stops early only at the end of the file. Sets *done to the bytes
// read. False with the last error set when a read fails.
bool ReadSlicesAt(NativeHandle handle, uint64_t offset, const TReadSlice* slices, uint32_t count, uint64_t* done);

class CSyncReadQueue : public CReadQueue {
public:
    explicit CSyncReadQueue(NativeHandle handle) : m_Handle(handle) {}
    bool IsAsync() const override { return false; }
    void Submit(uint64_t offset, const TReadSlice* slices, uint32_t count, uint64_t tag) override;
    uint32_t Outstanding() const override { return static_cast<uint32_t>(m_Done.size()); }
    TReadResult Reap() override;

private:
    NativeHandle m_Handle;
    std::deque<TReadResult> m_Done;
};

}  // namespace platform
