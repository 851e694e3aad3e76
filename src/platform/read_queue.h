#pragma once
// platform::CReadQueue: reads at given offsets of one handle, several at
// once where the system can, ended in any order.
//
// Submit starts a read of consecutive bytes into one or more buffers (a
// scatter read: the bytes fill the slices in turn); Reap waits for one read
// to end and says which (its tag), how many bytes came and, for a failure,
// the Win32 error. At most `depth` reads are submitted and not yet reaped.
//
// Two mechanisms behind one interface, so that the caller has one code path:
// - asynchronous: on Linux io_uring (the reads are in flight together and
//   the caller's thread goes on meanwhile); chosen when asked for and when
//   the kernel offers it (a kernel or a sandbox may refuse it);
// - synchronous: each read is done inside Submit (preadv on Linux,
//   ReadFile at the offset on Windows) and Reap hands back the results in
//   order. Windows has only this form today.
//
// The buffers of a read belong to the caller and must stay valid until its
// Reap; the destructor waits for every read still in flight. The handle is
// borrowed. One thread.

#include <cstdint>
#include <memory>

#include "platform/file.h"

namespace platform {

struct TReadSlice {
    void* Data = nullptr;
    uint32_t Size = 0;
};

struct TReadResult {
    uint64_t Tag = 0;
    uint64_t Done = 0;   // bytes read; fewer than asked at the end of the file
    uint32_t Error = 0;  // Win32 error, 0 for success
};

class CReadQueue {
public:
    // An asynchronous queue when `async` and the system has one, else a
    // synchronous one. REQUIRES: depth >= 1.
    static std::unique_ptr<CReadQueue> Make(NativeHandle handle, uint32_t depth, bool async);
    // Whether an asynchronous queue copies the bytes of a read that the
    // system's cache holds on another thread, so that reading ahead through
    // the cache overlaps the caller's work. Linux: yes where io_uring works
    // (a read of a handle that goes through the cache is handed to the
    // kernel's workers; without that it would end inside Submit). Windows:
    // no (an overlapped ReadFile of cached bytes ends before it returns).
    static bool ReadsCachedInBackground();
    virtual ~CReadQueue() = default;

    virtual bool IsAsync() const = 0;
    // REQUIRES: fewer than depth reads outstanding; 1 to kMaxSlices slices.
    virtual void Submit(uint64_t offset, const TReadSlice* slices, uint32_t count, uint64_t tag) = 0;
    // Reads submitted and not yet reaped.
    virtual uint32_t Outstanding() const = 0;
    // Waits for one outstanding read. REQUIRES: Outstanding() > 0.
    virtual TReadResult Reap() = 0;

    static constexpr uint32_t kMaxSlices = 64;
};

}  // namespace platform
