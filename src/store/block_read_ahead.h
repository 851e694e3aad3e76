#pragma once
// indexer::CBlockReadAhead: reads ahead, in a known order, the blocks that a
// CFileWriteCollectorReadCache will ask for, several requests in flight.
//
// The plan is the list of blocks (file position and byte count, each at a
// multiple of the cache's block size) in the order they will be wanted; the
// $MFT's main loop knows it from the runs and the bitmap. Consecutive
// blocks of the plan that lie one after another on the file are read
// together, up to TTuning::requestBytes a request, with up to TTuning::depth
// requests in flight (platform::CReadQueue: io_uring where the system has
// it, else each request read synchronously when it is submitted).
//
// The blocks are a fixed set of CBuffer objects of the cache's block size,
// reused: Take hands a block that was read to the cache by swapping it with
// the empty block the cache would have read into, so no byte is copied and
// the memory held stays depth * requestBytes. Take answers false (the cache
// then reads the block itself, with its own errors) for a block that is not
// among those read ahead, that a failed or short request should have held,
// or when the object was stopped. Taking a block drops the blocks before it
// in the plan (the cache had them, or will read them itself).
//
// Every read is aligned: positions are multiples of the block size, the
// buffers of kBlockAlignment, and the last block of a request, when short
// (the end of a volume), is read rounded up to `alignment` bytes.
//
// One thread; the handle is borrowed and must outlive the object, whose
// destructor waits for the reads in flight.

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "platform/read_queue.h"
#include "store/write_collector.h"

namespace indexer {

class CBlockReadAhead {
public:
    struct TTuning {
        uint32_t requestBytes = 1u << 20;  // a multiple of the block size
        uint32_t depth = 4;                // requests in flight
        bool async = true;                 // false: each request read when submitted
    };
    struct TPlannedBlock {
        uint64_t Pos = 0;
        uint32_t Size = 0;  // bytes wanted: the block size, or less at the end of a volume
    };

    // REQUIRES: blockSize a power of two, a multiple of `alignment` (0: none)
    // and of kBlockAlignment; every planned block at a multiple of blockSize
    // with 0 < Size <= blockSize.
    CBlockReadAhead(platform::NativeHandle handle, uint32_t blockSize, uint32_t alignment,
                    std::vector<TPlannedBlock> plan, const TTuning& tuning);
    ~CBlockReadAhead();
    CBlockReadAhead(const CBlockReadAhead&) = delete;
    CBlockReadAhead& operator=(const CBlockReadAhead&) = delete;

    // On a miss of the cache at `pos` for `size` bytes: true when the block
    // was read ahead; `block` (empty, of the block size) then holds it, with
    // its position and `size` bytes used. False: nothing changed.
    bool Take(uint64_t pos, uint32_t size, std::unique_ptr<write_collector_types::CBuffer>& block);

    bool IsAsync() const { return m_Queue->IsAsync(); }
    // Bytes asked of the file so far, and requests.
    uint64_t GetBytesRequested() const { return m_BytesRequested; }
    uint64_t GetRequestCount() const { return m_Requests; }

private:
    using CBuffer = write_collector_types::CBuffer;
    enum class EState { InFlight, Ready, Failed };
    struct TEntry {
        TPlannedBlock Block;
        uint64_t Request = 0;
        EState State = EState::InFlight;
        std::unique_ptr<CBuffer> Buffer;
    };

    // Submits requests while there is room in the queue and free blocks.
    void _Fill();
    // Waits for one request and marks its blocks.
    void _ReapOne();
    void _Release(TEntry& entry);

    std::unique_ptr<platform::CReadQueue> m_Queue;
    uint32_t m_BlockSize;
    uint32_t m_Alignment;
    uint32_t m_BlocksPerRequest;
    TTuning m_Tuning;
    std::vector<TPlannedBlock> m_Plan;
    size_t m_Next = 0;  // the first planned block not yet submitted
    std::deque<TEntry> m_Window;  // submitted and not yet taken, in plan order
    std::vector<std::unique_ptr<CBuffer>> m_Free;
    uint64_t m_NextRequest = 0;
    uint64_t m_BytesRequested = 0;
    uint64_t m_Requests = 0;
};

}  // namespace indexer
