#include "store/block_read_ahead.h"

#include <algorithm>

namespace indexer {

CBlockReadAhead::CBlockReadAhead(platform::NativeHandle handle, uint32_t blockSize, uint32_t alignment,
                                 std::vector<TPlannedBlock> plan, const TTuning& tuning)
    : m_BlockSize(blockSize), m_Alignment(alignment), m_Tuning(tuning), m_Plan(std::move(plan)) {
    m_Tuning.depth = std::max<uint32_t>(1, m_Tuning.depth);
    m_BlocksPerRequest = std::clamp<uint32_t>(m_Tuning.requestBytes / blockSize, 1, platform::CReadQueue::kMaxSlices);
    m_Queue = platform::CReadQueue::Make(handle, m_Tuning.depth, m_Tuning.async);
    const size_t blocks = std::min<size_t>(size_t{m_Tuning.depth} * m_BlocksPerRequest, m_Plan.size());
    for (size_t i = 0; i < blocks; ++i) m_Free.push_back(std::make_unique<CBuffer>(blockSize, 0));
    _Fill();
}

CBlockReadAhead::~CBlockReadAhead() {
    // The buffers must outlive the reads into them.
    while (m_Queue->Outstanding() > 0) _ReapOne();
}

void CBlockReadAhead::_Fill() {
    platform::TReadSlice slices[platform::CReadQueue::kMaxSlices];
    while (m_Queue->Outstanding() < m_Tuning.depth && m_Next < m_Plan.size() && !m_Free.empty()) {
        const uint64_t request = m_NextRequest++;
        const uint64_t at = m_Plan[m_Next].Pos;
        uint32_t count = 0;
        while (count < m_BlocksPerRequest && m_Next < m_Plan.size() && !m_Free.empty()) {
            const TPlannedBlock& b = m_Plan[m_Next];
            // One request reads blocks that follow each other on the file,
            // each whole but the last.
            if (count > 0 && (b.Pos != at + uint64_t{count} * m_BlockSize ||
                              m_Window.back().Block.Size != m_BlockSize))
                break;
            TEntry entry;
            entry.Block = b;
            entry.Request = request;
            entry.Buffer = std::move(m_Free.back());
            m_Free.pop_back();
            entry.Buffer->Reset(b.Pos);
            uint32_t size = b.Size;
            if (m_Alignment > 1 && size % m_Alignment != 0)
                size = std::min(m_BlockSize, (size / m_Alignment + 1) * m_Alignment);
            slices[count++] = {entry.Buffer->Data(), size};
            m_BytesRequested += size;
            m_Window.push_back(std::move(entry));
            ++m_Next;
        }
        ++m_Requests;
        m_Queue->Submit(at, slices, count, request);
    }
}

void CBlockReadAhead::_ReapOne() {
    const platform::TReadResult r = m_Queue->Reap();
    uint64_t offset = 0;
    for (TEntry& e : m_Window) {
        if (e.Request != r.Tag) continue;
        // Only whole blocks are served; the cache reads anything else
        // itself, and so meets the failure or the end of the file itself.
        const bool whole = r.Error == 0 && r.Done >= offset + e.Block.Size;
        e.State = whole ? EState::Ready : EState::Failed;
        offset += m_BlockSize;
    }
}

void CBlockReadAhead::_Release(TEntry& entry) {
    while (entry.State == EState::InFlight) _ReapOne();
    m_Free.push_back(std::move(entry.Buffer));
}

bool CBlockReadAhead::Take(uint64_t pos, uint32_t size, std::unique_ptr<CBuffer>& block) {
    auto it = std::find_if(m_Window.begin(), m_Window.end(), [pos](const TEntry& e) { return e.Block.Pos == pos; });
    if (it == m_Window.end()) return false;
    // The blocks planned before this one were not asked for: the cache had
    // them (or reads them itself if it ever does).
    while (&m_Window.front() != &*it) {
        _Release(m_Window.front());
        m_Window.pop_front();
    }
    TEntry& entry = m_Window.front();
    while (entry.State == EState::InFlight) _ReapOne();
    const bool served = entry.State == EState::Ready && entry.Block.Size == size && block &&
                        block->Capacity() == m_BlockSize;
    if (served) {
        std::swap(entry.Buffer, block);
        block->SetUsed(size);
    }
    _Release(entry);
    m_Window.pop_front();
    _Fill();
    return served;
}

}  // namespace indexer
