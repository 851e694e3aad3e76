// platform::CReadQueue on Linux: io_uring (liburing) for the asynchronous
// form, preadv for the synchronous one.

#include "platform/read_queue.h"

#include <liburing.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "platform/errors.h"
#include "platform/posix/posix_errors.h"
#include "platform/read_queue_sync.h"
#include "platform/volume_io.h"

namespace platform {

bool ReadSlicesAt(NativeHandle handle, uint64_t offset, const TReadSlice* slices, uint32_t count, uint64_t* done) {
    iovec vec[CReadQueue::kMaxSlices];
    uint64_t want = 0;
    for (uint32_t i = 0; i < count; ++i) {
        vec[i] = {slices[i].Data, slices[i].Size};
        want += slices[i].Size;
    }
    *done = 0;
    uint32_t first = 0;
    while (*done < want) {
        const ssize_t n = ::preadv(static_cast<int>(handle), vec + first, static_cast<int>(count - first),
                                   static_cast<off_t>(offset + *done));
        if (n < 0) {
            if (errno == EINTR) continue;
            return posix::FailErrno();
        }
        if (n == 0) break;  // the end of the file
        *done += static_cast<uint64_t>(n);
        // Steps over the slices filled; a slice filled in part goes on.
        for (size_t left = static_cast<size_t>(n); left > 0;) {
            const size_t take = std::min(left, vec[first].iov_len);
            vec[first].iov_base = static_cast<uint8_t*>(vec[first].iov_base) + take;
            vec[first].iov_len -= take;
            left -= take;
            if (vec[first].iov_len == 0) ++first;
        }
    }
    return true;
}

namespace {

// io_uring: one submission queue entry a read; the iovec arrays stay put
// until the read ends (the kernel may read them late).
class CUringReadQueue : public CReadQueue {
public:
    // A read through the cache would be copied inside io_uring_submit when
    // the cache holds its bytes: IOSQE_ASYNC hands it to a kernel worker.
    CUringReadQueue(NativeHandle handle, uint32_t depth)
        : m_Handle(handle), m_SqeFlags(ReadsBypassCache(handle) ? 0 : IOSQE_ASYNC), m_Slots(depth) {}
    ~CUringReadQueue() override {
        while (m_Outstanding > 0) Reap();
        ::io_uring_queue_exit(&m_Ring);
    }
    bool Init(uint32_t depth) { return ::io_uring_queue_init(depth, &m_Ring, 0) == 0; }

    bool IsAsync() const override { return true; }
    uint32_t Outstanding() const override { return m_Outstanding; }

    void Submit(uint64_t offset, const TReadSlice* slices, uint32_t count, uint64_t tag) override {
        uint32_t slot = 0;
        while (m_Slots[slot].Busy) ++slot;
        TSlot& s = m_Slots[slot];
        s.Busy = true;
        s.Tag = tag;
        s.Offset = offset;
        s.Count = count;
        s.Want = 0;
        for (uint32_t i = 0; i < count; ++i) {
            s.Vec[i] = {slices[i].Data, slices[i].Size};
            s.Want += slices[i].Size;
        }
        io_uring_sqe* sqe = ::io_uring_get_sqe(&m_Ring);
        ::io_uring_prep_readv(sqe, static_cast<int>(m_Handle), s.Vec, count, offset);
        ::io_uring_sqe_set_data64(sqe, slot);
        ::io_uring_sqe_set_flags(sqe, m_SqeFlags);
        ++m_Outstanding;
        const int rc = ::io_uring_submit(&m_Ring);
        if (rc < 0) s.Failed = -rc;  // reported by Reap, after the read (if any) ended
    }

    TReadResult Reap() override {
        io_uring_cqe* cqe = nullptr;
        int rc;
        do rc = ::io_uring_wait_cqe(&m_Ring, &cqe);
        while (rc == -EINTR);
        if (rc < 0) {
            // Nothing ended that can be named: the first busy slot fails.
            for (TSlot& s : m_Slots)
                if (s.Busy) return _Finish(s, 0, -rc);
        }
        TSlot& s = m_Slots[::io_uring_cqe_get_data64(cqe)];
        const int res = cqe->res;
        ::io_uring_cqe_seen(&m_Ring, cqe);
        if (res < 0) return _Finish(s, 0, -res);
        // A short read that is not at the end of the file (io_uring may end
        // a buffered read early) goes on synchronously.
        uint64_t done = static_cast<uint64_t>(res);
        if (done < s.Want && done > 0) {
            std::vector<TReadSlice> rest;
            uint64_t skip = done;
            for (uint32_t i = 0; i < s.Count; ++i) {
                const uint64_t len = s.Vec[i].iov_len;
                if (skip >= len) {
                    skip -= len;
                    continue;
                }
                rest.push_back({static_cast<uint8_t*>(s.Vec[i].iov_base) + skip, static_cast<uint32_t>(len - skip)});
                skip = 0;
            }
            uint64_t more = 0;
            if (!ReadSlicesAt(m_Handle, s.Offset + done, rest.data(), static_cast<uint32_t>(rest.size()), &more))
                return _Finish(s, done, 0, GetLastError());
            done += more;
        }
        return _Finish(s, done, s.Failed);
    }

private:
    struct TSlot {
        bool Busy = false;
        int Failed = 0;  // errno of a failed submission
        uint64_t Tag = 0;
        uint64_t Offset = 0;
        uint64_t Want = 0;
        uint32_t Count = 0;
        iovec Vec[kMaxSlices];
    };

    TReadResult _Finish(TSlot& s, uint64_t done, int err, uint32_t win32 = 0) {
        TReadResult r;
        r.Tag = s.Tag;
        r.Done = done;
        r.Error = win32 != 0 ? win32 : err != 0 ? posix::Win32FromErrno(err) : 0;
        s.Busy = false;
        s.Failed = 0;
        --m_Outstanding;
        return r;
    }

    NativeHandle m_Handle;
    unsigned m_SqeFlags;
    io_uring m_Ring{};
    std::vector<TSlot> m_Slots;
    uint32_t m_Outstanding = 0;
};

}  // namespace

bool CReadQueue::ReadsCachedInBackground() {
    static const bool works = [] {
        io_uring ring{};
        if (::io_uring_queue_init(1, &ring, 0) != 0) return false;
        ::io_uring_queue_exit(&ring);
        return true;
    }();
    return works;
}

std::unique_ptr<CReadQueue> CReadQueue::Make(NativeHandle handle, uint32_t depth, bool async) {
    if (async) {
        auto ring = std::make_unique<CUringReadQueue>(handle, depth);
        if (ring->Init(depth)) return ring;
    }
    return std::make_unique<CSyncReadQueue>(handle);
}

}  // namespace platform
