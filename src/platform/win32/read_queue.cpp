// platform::CReadQueue on Windows: overlapped ReadFile for the asynchronous
// form, on a handle opened with FILE_FLAG_OVERLAPPED; ReadFile at an offset,
// waited for, for the synchronous one.

#include "platform/win32/win32_util.h"

#include <deque>
#include <memory>
#include <vector>

#include "platform/errors.h"
#include "platform/read_queue.h"
#include "platform/read_queue_sync.h"
#include "platform/win32/waited_io.h"

namespace platform {

using win32::ToHandle;

bool ReadSlicesAt(NativeHandle handle, uint64_t offset, const TReadSlice* slices, uint32_t count, uint64_t* done) {
    *done = 0;
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t got = 0;
        while (got < slices[i].Size) {
            DWORD n = 0;
            if (!win32::ReadAtAndWait(ToHandle(handle), offset + *done, static_cast<uint8_t*>(slices[i].Data) + got,
                                      slices[i].Size - got, &n))
                return false;
            if (n == 0) return true;  // the end of the file
            got += n;
            *done += n;
        }
    }
    return true;
}

namespace {

// Overlapped ReadFile has no scatter form for buffers of any size
// (ReadFileScatter takes one page an element), so a read of several slices
// is one ReadFile a slice, all in flight together, each with an OVERLAPPED
// and an event of its own. Reap waits for the oldest read: requests are
// taken in the order they were submitted, which is the order the caller
// needs them in.
class COverlappedReadQueue : public CReadQueue {
public:
    explicit COverlappedReadQueue(NativeHandle handle) : m_Handle(ToHandle(handle)) {}
    ~COverlappedReadQueue() override {
        while (!m_InFlight.empty()) Reap();
        for (const auto& read : m_Reads)
            for (HANDLE event : read->Events)
                if (event) ::CloseHandle(event);
    }

    bool IsAsync() const override { return true; }
    uint32_t Outstanding() const override { return static_cast<uint32_t>(m_InFlight.size()); }

    void Submit(uint64_t offset, const TReadSlice* slices, uint32_t count, uint64_t tag) override {
        TRead& r = _FreeRead();
        r.Tag = tag;
        r.Offset = offset;
        r.Count = count;
        uint64_t at = offset;
        for (uint32_t i = 0; i < count; ++i) {
            TPart& part = r.Parts[i];
            part = TPart{};
            part.Slice = slices[i];
            if (!r.Events[i]) r.Events[i] = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
            part.At = win32::OverlappedAt(at, r.Events[i]);
            at += slices[i].Size;
            if (!r.Events[i]) {
                part.Error = ERROR_NO_SYSTEM_RESOURCES;
                continue;
            }
            if (::ReadFile(m_Handle, slices[i].Data, slices[i].Size, nullptr, &part.At)) {
                part.Started = true;  // ended already; its count comes from GetOverlappedResult
                continue;
            }
            const DWORD error = ::GetLastError();
            if (error == ERROR_IO_PENDING)
                part.Started = true;
            else if (error != ERROR_HANDLE_EOF)
                part.Error = error;
        }
        m_InFlight.push_back(&r);
    }

    TReadResult Reap() override {
        TRead& r = *m_InFlight.front();
        m_InFlight.pop_front();
        // Every part is waited for (its buffer and OVERLAPPED are in use
        // until then); the count is of the bytes that follow each other from
        // the start, the error the first part's that failed.
        uint64_t done = 0, want = 0;
        uint32_t error = 0;
        bool cut = false;
        for (uint32_t i = 0; i < r.Count; ++i) {
            TPart& part = r.Parts[i];
            DWORD n = 0;
            if (part.Started && !::GetOverlappedResult(m_Handle, &part.At, &n, TRUE)) {
                n = 0;
                if (::GetLastError() != ERROR_HANDLE_EOF) part.Error = ::GetLastError();
            }
            if (part.Error != 0 && error == 0) error = part.Error;
            if (!cut) done += n;
            cut = cut || n < part.Slice.Size;
            want += part.Slice.Size;
        }
        r.Busy = false;
        TReadResult result;
        result.Tag = r.Tag;
        // A part that ended short where the file goes on (not at its end):
        // the rest is read synchronously, as the io_uring queue does.
        if (error == 0 && done > 0 && done < want) {
            std::vector<TReadSlice> rest;
            uint64_t skip = done;
            for (uint32_t i = 0; i < r.Count; ++i) {
                const TPart& part = r.Parts[i];
                if (skip >= part.Slice.Size) {
                    skip -= part.Slice.Size;
                    continue;
                }
                rest.push_back({static_cast<uint8_t*>(part.Slice.Data) + skip,
                                static_cast<uint32_t>(part.Slice.Size - skip)});
                skip = 0;
            }
            uint64_t more = 0;
            if (!ReadSlicesAt(win32::FromHandle(m_Handle), r.Offset + done, rest.data(),
                              static_cast<uint32_t>(rest.size()), &more))
                error = ::GetLastError();
            done += more;
        }
        result.Done = done;
        result.Error = error;
        return result;
    }

private:
    struct TPart {
        TReadSlice Slice;
        OVERLAPPED At = {};
        bool Started = false;  // ReadFile took it: GetOverlappedResult tells how it ended
        DWORD Error = 0;       // a failure ReadFile returned at once
    };
    // One request; its events stay with it and are reused by later ones.
    struct TRead {
        bool Busy = false;
        uint64_t Tag = 0;
        uint64_t Offset = 0;
        uint32_t Count = 0;
        TPart Parts[kMaxSlices];
        HANDLE Events[kMaxSlices] = {};
    };

    TRead& _FreeRead() {
        for (const auto& read : m_Reads)
            if (!read->Busy) {
                read->Busy = true;
                return *read;
            }
        m_Reads.push_back(std::make_unique<TRead>());
        m_Reads.back()->Busy = true;
        return *m_Reads.back();
    }

    HANDLE m_Handle;
    std::vector<std::unique_ptr<TRead>> m_Reads;  // as many as were ever in flight at once
    std::deque<TRead*> m_InFlight;                // in the order submitted
};

}  // namespace

bool CReadQueue::ReadsCachedInBackground() { return false; }

std::unique_ptr<CReadQueue> CReadQueue::Make(NativeHandle handle, uint32_t, bool async) {
    // Overlapped ReadFile keeps several reads in flight only on a handle
    // opened for it; on another it would end each read before returning.
    if (async && win32::IsOpenedForOverlappedIo(ToHandle(handle)))
        return std::make_unique<COverlappedReadQueue>(handle);
    return std::make_unique<CSyncReadQueue>(handle);
}

}  // namespace platform
