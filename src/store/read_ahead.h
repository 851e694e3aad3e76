#pragma once
// idxdata::CReadAhead: the bytes of one range of a file, in order, handed
// out in chunks. For a long range (TTuning::threadFrom bytes or more) a
// second thread, started by the constructor, reads the next chunks while the
// caller works on the current one, so that copying the file out of the
// system's cache and taking its rows apart overlap; a short range is read on
// the caller's thread when it asks.
//
// Every chunk has free room in front of its data (TTuning::carryRoom
// bytes): the caller may copy there the end of the previous chunk that it
// still needs (a row cut by the chunk's boundary), so that the row lies in
// one piece. A chunk's data starts at an address of the parity of its file
// offset, so a string at an even offset of the file lies at an even address.
//
// Take() gives the chunks in file order; the caller gives each back with
// Give(), in the same order, once it no longer reads it, and holds at most
// the last one taken when it asks for the next. Reading stops at the range's end, at the file's end
// (a chunk of size 0: the file ends at its `at`) or at a failed read:
// Take() then throws the CWin32Exc "%1 fail. Cannot read file [%2] at
// offset 0x%3." made on the thread that read. Nothing is read past the
// range.
//
// With a thread, chunk k lives in slot k % slots: a ring with one writer and
// one reader, kept by two counters (chunks read, chunks given back), so a
// chunk changes hands without a lock or a system call. The reading thread,
// ahead, watches for a free slot for a moment, then sleeps until one is
// given back. The caller never sleeps: when the next chunk is not there
// after a while (TTuning::handOverMicroseconds; on a busy machine the thread
// may wait a whole time slice for a processor, again and again), it stops
// the thread and reads the rest itself, as without one.
//
// One caller thread; the object owns the handle and, once a thread reads,
// uses the handle on that thread only. Destruction stops and joins it.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/file.h"

namespace idxdata {

class CReadAhead {
public:
    struct TTuning {
        uint32_t chunkSize = 256u << 10;  // small enough to stay in a core's cache
        uint32_t carryRoom = 64u << 10;   // a path of 32,767 units and its row fit
        uint32_t slots = 4;               // chunks in flight with a thread (at least 3)
        uint64_t threadFrom = 4u << 20;   // a shorter range is read without a thread
        // How long the reading thread watches for a free slot before it
        // sleeps: a chunk takes some microseconds to take apart; sleeping
        // and being woken takes longer.
        uint32_t spinMicroseconds = 50;
        // How long the caller watches for the next chunk before it stops
        // the thread and reads itself. Long enough for a thread that was
        // just started, or whose first reads are slow, to come (a processor
        // that was idle can take a millisecond or more to run it); a hand-
        // over happens once, so this is the most it can cost.
        uint32_t handOverMicroseconds = 2000;
    };
    struct TChunk {
        uint8_t* data = nullptr;  // carryRoom writable bytes lie before it
        uint32_t size = 0;        // 0: the file ends at `at`
        uint64_t at = 0;          // file offset of data[0]
        uint32_t slot = 0;
    };

    // REQUIRES: from <= to; an even carryRoom; chunkSize > 0.
    CReadAhead(platform::CHandle file, std::u16string_view fileName, std::u16string_view context, uint64_t from,
               uint64_t to, const TTuning& tuning);
    ~CReadAhead();
    CReadAhead(const CReadAhead&) = delete;
    CReadAhead& operator=(const CReadAhead&) = delete;

    // The next chunk. REQUIRES: the chunks taken so far end before the
    // range does, and none of them had size 0.
    TChunk Take();
    // REQUIRES: the oldest chunk taken and not yet given back.
    void Give(const TChunk& chunk);

private:
    // A counter one thread raises and one other thread waits on.
    class CCounter {
    public:
        uint64_t Load() const { return m_Value.load(std::memory_order_acquire); }
        // Stores the new value (a release) and wakes the waiter, if any.
        void Publish(uint64_t value);
        // Whether the value moved past `seen` within `micros`.
        bool SpinPast(uint64_t seen, uint32_t micros) const;
        // Returns once the value is no longer `seen`, sleeping after `micros`.
        void WaitPast(uint64_t seen, uint32_t micros);

    private:
        std::atomic<uint64_t> m_Value{0};
        std::atomic<bool> m_Sleeping{false};
        std::mutex m_Mutex;
        std::condition_variable m_Wake;
    };

    // Reads the chunk at m_ReadAt into the slot; on the reading thread.
    TChunk _Read(uint32_t slot);
    void _Run();
    // Stops the reading thread after the chunk it is reading, and joins it.
    void _StopReader();

    platform::CHandle m_File;
    std::u16string m_FileName;
    std::u16string m_Context;  // the function named by a read error
    TTuning m_Tuning;
    uint64_t m_End = 0;
    uint64_t m_ReadAt = 0;  // the next chunk's offset; the reader's own
    bool m_Seeked = false;  // the reader's own
    std::vector<std::unique_ptr<uint8_t[]>> m_Slots;
    uint64_t m_Taken = 0;   // chunks taken; the caller's own
    uint32_t m_LastSlot = 1;  // the slot of the last chunk taken; the caller's own
    uint64_t m_Given = 0;   // chunks given back; the caller's own copy

    // The ring, with a thread. m_Chunks[k % slots] and m_Error are written
    // by the reader before it publishes them in m_ReadCount (release) and
    // read by the caller after it saw them there (acquire).
    std::vector<TChunk> m_Chunks;
    std::exception_ptr m_Error;              // the failed read
    uint64_t m_ErrorChunk = 0;               // the chunk that stands for it
    CCounter m_ReadCount;                    // chunks read
    std::atomic<bool> m_ReadEnded{false};    // no more: range end, file end or error
    CCounter m_GivenCount;                   // chunks given back (more to stop the reader)
    std::atomic<bool> m_Stop{false};
    std::thread m_Thread;
};

}  // namespace idxdata
