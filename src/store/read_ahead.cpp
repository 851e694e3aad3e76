#include "store/read_ahead.h"

#include <algorithm>
#include <chrono>

#include "base/exc.h"
#include "base/format.h"
#include "platform/errors.h"

namespace idxdata {

void CReadAhead::CCounter::Publish(uint64_t value) {
    // With the waiter's store of m_Sleeping and load of m_Value, both
    // sequentially consistent: either it sees the new value or this sees it
    // sleeping, so no wake is lost.
    m_Value.store(value, std::memory_order_seq_cst);
    if (m_Sleeping.load(std::memory_order_seq_cst)) {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_Wake.notify_one();
    }
}

bool CReadAhead::CCounter::SpinPast(uint64_t seen, uint32_t micros) const {
    // No yield: on a busy machine it hands the processor to another program
    // for a whole time slice.
    const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(micros);
    do {
        for (int i = 0; i < 256; ++i)
            if (m_Value.load(std::memory_order_acquire) != seen) return true;
    } while (std::chrono::steady_clock::now() < until);
    return false;
}

void CReadAhead::CCounter::WaitPast(uint64_t seen, uint32_t micros) {
    if (SpinPast(seen, micros)) return;
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_Sleeping.store(true, std::memory_order_seq_cst);
    while (m_Value.load(std::memory_order_seq_cst) == seen) m_Wake.wait(lock);
    m_Sleeping.store(false, std::memory_order_relaxed);
}

CReadAhead::CReadAhead(platform::CHandle file, std::u16string_view fileName, std::u16string_view context,
                       uint64_t from, uint64_t to, const TTuning& tuning)
    : m_File(std::move(file)), m_FileName(fileName), m_Context(context), m_Tuning(tuning), m_End(to),
      m_ReadAt(from) {
    const bool threaded = to > from && to - from >= tuning.threadFrom;
    // The caller holds at most two; a thread needs one more to read into.
    const uint32_t slots = threaded ? std::max<uint32_t>(3, tuning.slots) : 2;
    // A slot: the carry room, one byte to set the parity, the chunk.
    const size_t slotSize = size_t{m_Tuning.carryRoom} + 1 + std::min<uint64_t>(m_Tuning.chunkSize, to - from);
    for (uint32_t i = 0; i < slots; ++i) m_Slots.emplace_back(new uint8_t[slotSize]);
    if (threaded) {
        m_Chunks.resize(slots);
        m_Thread = std::thread([this] { _Run(); });
    }
}

CReadAhead::~CReadAhead() {
    if (m_Thread.joinable()) _StopReader();
}

void CReadAhead::_StopReader() {
    m_Stop.store(true);
    // Frees every slot, so that a reader waiting for one wakes up; it stops
    // after the chunk it may be reading.
    m_GivenCount.Publish(m_Given + m_Slots.size());
    m_Thread.join();
}

CReadAhead::TChunk CReadAhead::_Read(uint32_t slot) {
    TChunk chunk;
    chunk.slot = slot;
    chunk.at = m_ReadAt;
    chunk.data = m_Slots[slot].get() + m_Tuning.carryRoom + (m_ReadAt & 1);
    const uint32_t want = static_cast<uint32_t>(std::min<uint64_t>(m_Tuning.chunkSize, m_End - m_ReadAt));
    auto fail = [&](uint64_t at) {
        throw CWin32Exc(u"%1 fail. Cannot read file [%2] at offset 0x%3.", m_Context, m_FileName, util::Hex16(at));
    };
    // The reads go on from the first one: the handle is this reader's alone.
    if (!m_Seeked) {
        if (!platform::FileSeek(m_File.Get(), static_cast<int64_t>(m_ReadAt), nullptr, platform::kFileBegin))
            fail(m_ReadAt);
        m_Seeked = true;
    }
    while (chunk.size < want) {
        uint32_t done = 0;
        if (!platform::FileRead(m_File.Get(), chunk.data + chunk.size, want - chunk.size, &done))
            fail(m_ReadAt + chunk.size);
        if (done == 0) break;
        chunk.size += done;
    }
    m_ReadAt += chunk.size;
    return chunk;
}

void CReadAhead::_Run() {
    const uint64_t slots = m_Slots.size();
    for (uint64_t k = 0;; ++k) {
        // Chunk k goes to slot k % slots once chunk k - slots was given back.
        for (uint64_t given = m_GivenCount.Load(); k >= given + slots; given = m_GivenCount.Load())
            m_GivenCount.WaitPast(given, m_Tuning.spinMicroseconds);
        if (m_Stop.load()) return;
        TChunk& chunk = m_Chunks[k % slots];
        bool last = true;
        try {
            chunk = _Read(static_cast<uint32_t>(k % slots));
            last = chunk.size == 0 || m_ReadAt >= m_End;
        } catch (...) {
            // Chunk k stands for the failed read.
            m_Error = std::current_exception();
            m_ErrorChunk = k;
        }
        if (last) m_ReadEnded.store(true, std::memory_order_release);
        m_ReadCount.Publish(k + 1);
        if (last) return;
    }
}

CReadAhead::TChunk CReadAhead::Take() {
    if (m_Thread.joinable() && m_Taken >= m_ReadCount.Load() &&
        !m_ReadCount.SpinPast(m_Taken, m_Tuning.handOverMicroseconds)) {
        // The reader is behind and does not come: on a busy machine it may
        // wait a whole time slice for a processor, chunk after chunk. From
        // here on this thread reads, after the chunks already read.
        _StopReader();
    }
    if (m_Taken < m_ReadCount.Load()) {
        if (m_Error && m_Taken == m_ErrorChunk) std::rethrow_exception(m_Error);
        const TChunk& chunk = m_Chunks[m_Taken++ % m_Slots.size()];
        m_LastSlot = chunk.slot;
        return chunk;
    }
    // The ended flag is stored before the count that goes with it.
    if (m_ReadEnded.load(std::memory_order_acquire))
        throw CExc(u"idxdata::CReadAhead::Take: the range was read to its end.");
    // No thread (any more): slots 0 and 1 take turns, whatever slot the last
    // chunk taken lies in (the caller holds only that one when it asks for
    // the next): two slots stay in the processor's cache better than four.
    const uint32_t slot = m_LastSlot == 0 ? 1 : 0;
    ++m_Taken;
    m_LastSlot = slot;
    return _Read(slot);
}

void CReadAhead::Give(const TChunk&) {
    if (!m_Thread.joinable()) return;
    m_GivenCount.Publish(++m_Given);
}

}  // namespace idxdata
