#include "store/write_collector.h"

#include <algorithm>
#include <cstring>

#include "base/exc.h"
#include "base/format.h"
#include "diag/log.h"
#include "platform/errors.h"
#include "store/block_read_ahead.h"
#include "store/table_format.h"

namespace write_collector_types {

CBuffer::CBuffer(uint32_t capacity, uint64_t filePos)
    : m_Data(static_cast<uint8_t*>(::operator new[](capacity, std::align_val_t{kBlockAlignment}))),
      m_Capacity(capacity),
      m_FilePos(filePos) {}

uint32_t CBuffer::Append(const uint8_t* data, uint32_t size) {
    const uint32_t n = std::min(size, m_Capacity - m_Used);
    std::memcpy(m_Data.get() + m_Used, data, n);
    m_Used += n;
    return n;
}

uint32_t CBuffer::GetDataFromBuffer(uint64_t position, uint8_t* buffer, uint32_t size) const {
    if (position < m_FilePos)
        throw CExc(u"%1 fail. buffer underflow.", u"write_collector_types::CBuffer::GetDataFromBuffer");
    const uint64_t offset = position - m_FilePos;
    if (offset >= m_Used) return 0;
    const uint32_t n = static_cast<uint32_t>(std::min<uint64_t>(size, m_Used - offset));
    std::memcpy(buffer, m_Data.get() + offset, n);
    return n;
}

}  // namespace write_collector_types

namespace indexer {

namespace {

constexpr char16_t kSetCacheProps[] = u"indexer::CFileWriteCollectorReadCache::SetCacheProps";
constexpr char16_t kOpen[] = u"indexer::CFileWriteCollectorReadCache::Open";
constexpr char16_t kOpenForWrite[] = u"indexer::CFileWriteCollectorReadCache::OpenForWriteByHandle";
constexpr char16_t kOpenForRead[] = u"indexer::CFileWriteCollectorReadCache::OpenForReadByHandle";
constexpr char16_t kSetReadMaxLimit[] = u"indexer::CFileWriteCollectorReadCache::SetReadMaxLimit";
constexpr char16_t kWriteSequentially[] = u"indexer::CFileWriteCollectorReadCache::WriteSequentially";
constexpr char16_t kWriteBlock[] = u"indexer::CFileWriteCollectorReadCache::_WriteBlock";
constexpr char16_t kReadRandomly[] = u"indexer::CFileWriteCollectorReadCache::ReadRandomly";
constexpr char16_t kReadBlock[] = u"indexer::CFileWriteCollectorReadCache::_ReadBlock";
constexpr char16_t kReadBuf[] = u"indexer::CFileWriteCollectorReadCache::ReadBuf";
constexpr char16_t kClose[] = u"indexer::CFileWriteCollectorReadCache::Close";

// Strings are read in steps of this many units (see ReadString).
constexpr uint32_t kStringStepUnits = 0x8000;

}  // namespace

CFileWriteCollectorReadCache::CFileWriteCollectorReadCache() = default;

CFileWriteCollectorReadCache::~CFileWriteCollectorReadCache() {
    if (!m_Opened) return;
    try {
        Close();
    } catch (const CExc& e) {
        GetLog().LogException(u"Failed to close the write collector.", e);
    } catch (const std::exception& e) {
        GetLog().LogException(u"Failed to close the write collector.", CExc(e));
    }
}

void CFileWriteCollectorReadCache::SetCacheProps(uint32_t blockShift, uint32_t maxBlocks) {
    if (m_Opened) throw CExc(u"%1 fail. Can`t change properties while files is opened.", kSetCacheProps);
    if (blockShift < kMinBlockShift || blockShift > kMaxBlockShift || maxBlocks == 0)
        throw CExc(u"%1 fail. Invalid cache properties: block shift %2, blocks %3.", kSetCacheProps,
                   util::ToStrU32(blockShift), util::ToStrU32(maxBlocks), kHrInvalidArg);
    m_BlockShift = blockShift;
    m_MaxBlocks = maxBlocks;
}

void CFileWriteCollectorReadCache::Open(std::u16string_view name) {
    if (m_Opened) throw CExc(u"%1 fail! Files [%2] is already opened!", kOpen, name);
    platform::CHandle write = platform::FileOpen(name, platform::kGenericWrite, platform::kShareRead,
                                                 platform::kCreateAlways, platform::kAttrNormal);
    if (!write.IsValid()) throw CWin32Exc(u"%1 fail! Cannot create file [%2] for write!", kOpen, name);
    platform::CHandle read = platform::FileOpen(
        name, platform::kGenericRead, platform::kShareRead | platform::kShareWrite,
        platform::kOpenExisting, platform::kAttrNormal);
    if (!read.IsValid()) throw CWin32Exc(u"%1 fail! Cannot open file [%2] for read!", kOpen, name);
    OpenForWriteByHandle(write.Release());
    OpenForReadByHandle(read.Release());
    m_OwnsHandles = true;
    m_Opened = true;
}

void CFileWriteCollectorReadCache::OpenForWriteByHandle(platform::NativeHandle handle) {
    if (m_Opened && m_WriteHandle != platform::kInvalidHandle)
        throw CExc(u"%1 fail! Files is already opened for write!", kOpenForWrite);
    // No block without a handle: writes then take the slow path and fail.
    m_WriteBlock = handle != platform::kInvalidHandle ? _TakeBlock(0) : nullptr;
    m_WriteHandle = handle;
    m_WritePos = 0;
    m_FlushedPos = 0;
    m_Opened = true;
}

void CFileWriteCollectorReadCache::OpenForReadByHandle(platform::NativeHandle handle) {
    if (m_Opened && m_ReadHandle != platform::kInvalidHandle)
        throw CExc(u"%1 fail! Files is already opened for read!", kOpenForRead);
    m_ReadHandle = handle;
    m_ReadPos = 0;
    m_Opened = true;
}

void CFileWriteCollectorReadCache::SetReadMaxLimit(uint64_t limit) {
    if (limit == 0) throw CExc(u"%1 failed. Read limit cannot be zero", kSetReadMaxLimit, kHrInvalidArg);
    m_ReadMaxLimit = limit;
    GetLog().Detail(u"File read limit = 0x%1", util::Hex16(limit));
}

std::unique_ptr<write_collector_types::CBuffer> CFileWriteCollectorReadCache::_TakeBlock(uint64_t filePos) {
    if (!m_Spare) return std::make_unique<CBuffer>(BlockSize(), filePos);
    m_Spare->Reset(filePos);
    return std::move(m_Spare);
}

// Flushes a full block when more bytes arrive; the flushed block goes to the
// cache (or, with no read handle, is reused at once).
void CFileWriteCollectorReadCache::_WriteSequentiallySlow(const void* buffer, uint32_t size) {
    if (!m_Opened) throw CExc(u"%1 fail. Files is not opened.", kWriteSequentially);
    if (m_WriteHandle == platform::kInvalidHandle)
        throw CWin32Exc(u"%1 fail. Files is not opened for writing.", kWriteSequentially);
    const auto* data = static_cast<const uint8_t*>(buffer);
    while (size > 0) {
        if (m_WriteBlock->IsFull()) {
            const uint32_t used = m_WriteBlock->Used();
            if (_WriteBlock(m_WriteBlock->Data(), used) != used)
                throw CWin32Exc(u"%1 fail. Can`t write all data.", kWriteSequentially);
            if (m_ReadHandle != platform::kInvalidHandle) {
                std::unique_ptr<CBuffer> next = _TakeBlock(m_FlushedPos);
                std::swap(next, m_WriteBlock);
                _InsertIntoCache(std::move(next));
            } else {
                m_WriteBlock->Reset(m_FlushedPos);
            }
        }
        const uint32_t n = m_WriteBlock->Append(data, size);
        data += n;
        size -= n;
        m_WritePos += n;
    }
}

void CFileWriteCollectorReadCache::WriteWord(uint16_t value) {
    uint8_t b[2];
    idxdata::PutU16(b, value);
    WriteSequentially(b, 2);
}

void CFileWriteCollectorReadCache::WriteDWord(uint32_t value) {
    uint8_t b[4];
    idxdata::PutU32(b, value);
    WriteSequentially(b, 4);
}

void CFileWriteCollectorReadCache::WriteLongLong(uint64_t value) {
    uint8_t b[8];
    idxdata::PutU64(b, value);
    WriteSequentially(b, 8);
}

uint32_t CFileWriteCollectorReadCache::_WriteBlock(const uint8_t* data, uint32_t length) {
    uint32_t done = 0;
    if (!platform::FileWrite(m_WriteHandle, data, length, &done))
        throw CWin32Exc(u"%1 fail. Can`t Write to file.  Pos=0x%2 Length=0x%3.", kWriteBlock,
                        util::Hex16(m_FlushedPos), util::Hex8(length));
    m_FlushedPos += done;
    return done;
}

void CFileWriteCollectorReadCache::_InsertIntoCache(std::unique_ptr<CBuffer> block) {
    for (auto it = m_Cache.begin(); it != m_Cache.end(); ++it) {
        if ((*it)->FilePos() == block->FilePos()) {
            m_Spare = std::move(*it);
            m_Cache.erase(it);
            --m_CacheCount;
            break;
        }
    }
    if (m_CacheCount >= m_MaxBlocks) {
        m_Spare = std::move(m_Cache.back());
        m_Cache.pop_back();
        --m_CacheCount;
    }
    m_Cache.push_front(std::move(block));
    ++m_CacheCount;
}

write_collector_types::CBuffer* CFileWriteCollectorReadCache::_FindInCache(uint64_t blockStart) {
    for (auto it = m_Cache.begin(); it != m_Cache.end(); ++it) {
        if ((*it)->FilePos() != blockStart) continue;
        if (it != m_Cache.begin()) m_Cache.splice(m_Cache.begin(), m_Cache, it);
        return m_Cache.front().get();
    }
    return nullptr;
}

uint32_t CFileWriteCollectorReadCache::ReadRandomly(uint64_t position, void* buffer, uint32_t size) {
    if (!m_Opened) throw CExc(u"%1 fail. Files is not opened.", kReadRandomly);
    if (m_ReadHandle == platform::kInvalidHandle)
        throw CExc(u"%1 fail. Files is not opened for reading.", kReadRandomly);
    auto* out = static_cast<uint8_t*>(buffer);
    const uint64_t mask = ~(uint64_t{BlockSize()} - 1);
    uint32_t done = 0;
    while (done < size) {
        const uint64_t blockStart = position & mask;
        const CBuffer* block = nullptr;
        if (m_WriteHandle != platform::kInvalidHandle && m_WriteBlock &&
            m_WriteBlock->FilePos() == blockStart) {
            block = m_WriteBlock.get();  // unflushed data wins over the cache
        } else {
            block = _FindInCache(blockStart);
        }
        if (!block) {
            // A read that began before the limit ends at it; only one that
            // starts at or past it fails (in _ReadBlock).
            if (m_ReadMaxLimit != 0 && blockStart >= m_ReadMaxLimit && done > 0) break;
            uint32_t blockSize = BlockSize();
            if (m_ReadMaxLimit != 0 && blockStart < m_ReadMaxLimit &&
                m_ReadMaxLimit - blockStart < blockSize) {
                blockSize = static_cast<uint32_t>(m_ReadMaxLimit - blockStart);
                GetLog().Detail(u"Unordered last block size 0x%1", util::Hex8(blockSize));
            }
            // Every block has the full capacity, so that any block can be
            // recycled for any position; a cut block just holds fewer bytes.
            std::unique_ptr<CBuffer> loaded = _TakeBlock(blockStart);
            const uint32_t got = m_ReadAhead && m_ReadAhead->Take(blockStart, blockSize, loaded)
                                     ? blockSize
                                     : _ReadBlock(blockStart, loaded->Data(), blockSize);
            if (got == 0) {
                m_Spare = std::move(loaded);
                return done;
            }
            loaded->SetUsed(got);
            block = loaded.get();
            _InsertIntoCache(std::move(loaded));
        }
        const uint32_t n = block->GetDataFromBuffer(position, out + done, size - done);
        if (n == 0) break;  // the block ends before the request does
        done += n;
        position += n;
    }
    return done;
}

uint32_t CFileWriteCollectorReadCache::_ReadBlock(uint64_t position, uint8_t* buffer, uint32_t size) {
    if (m_ReadMaxLimit != 0) {
        if (position >= m_ReadMaxLimit)
            throw CExc(u"%1 fail. FilePos[0x%2] not less than ReadMaxLimit[0x%3]", kReadBlock,
                       util::Hex16(position), util::Hex16(m_ReadMaxLimit));
        if (m_ReadMaxLimit - position < size) {
            size = static_cast<uint32_t>(m_ReadMaxLimit - position);
            GetLog().Detail(u"Block size limited. New size=%1", util::ToStrU32(size));
        }
    }
    if (!platform::FileSeek(m_ReadHandle, static_cast<int64_t>(position), nullptr, platform::kFileBegin))
        throw CWin32Exc(u"Error in %1. SetFilePointerEx return ErrorCode. Pos=0x%2.", kReadBlock,
                        util::Hex16(position));
    // An unbuffered handle reads whole sectors: the last, cut block is read
    // rounded up (the buffer has the room) and counted to the limit.
    uint32_t readSize = size;
    if (m_ReadAlignment > 1) {
        const uint32_t a = m_ReadAlignment;
        if (readSize % a != 0) readSize = (readSize / a + 1) * a;
        if (position % a != 0 || reinterpret_cast<uintptr_t>(buffer) % a != 0 || readSize > BlockSize())
            throw CExc(FormatMessageArgs(
                u"%1 fail. Read at Pos=0x%2 Length=0x%3 into buffer 0x%4 is not aligned to the sector size 0x%5.",
                {kReadBlock, util::Hex16(position), util::Hex8(readSize),
                 util::Hex16(reinterpret_cast<uintptr_t>(buffer)), util::Hex8(a)}));
    }
    // Read at the position just set, as a handle opened for overlapped I/O
    // (a volume read ahead) needs: it keeps no position for its reads.
    uint32_t done = 0;
    if (!platform::FileReadAt(m_ReadHandle, position, buffer, readSize, &done))
        throw CWin32Exc(u"Cannot read file in %1. Pos=0x%2 Length=0x%3.", kReadBlock,
                        util::Hex16(position), util::Hex8(size));
    m_BytesRead += done;
    return std::min(done, size);
}

void CFileWriteCollectorReadCache::SetReadAhead(std::unique_ptr<CBlockReadAhead> readAhead) {
    m_ReadAhead = std::move(readAhead);
}

void CFileWriteCollectorReadCache::ReadBuf(void* buffer, uint32_t size) {
    if (ReadRandomly(m_ReadPos, buffer, size) != size)
        throw CExc(u"%1 fail. Can`t read all data. Pos=0x%2 Length=0x%3.", kReadBuf,
                   util::Hex16(m_ReadPos), util::Hex8(size));
    m_ReadPos += size;
}

uint32_t CFileWriteCollectorReadCache::ReadDWord() {
    uint8_t b[4];
    ReadBuf(b, 4);
    return idxdata::GetU32(b);
}

uint64_t CFileWriteCollectorReadCache::ReadLongLong() {
    uint8_t b[8];
    ReadBuf(b, 8);
    return idxdata::GetU64(b);
}

// The string grows one step at a time, so a damaged count fails on the
// first missing step instead of allocating up to 8 GiB first.
std::u16string CFileWriteCollectorReadCache::ReadString() {
    uint32_t left = ReadDWord();
    std::u16string text;
    while (left > 0) {
        const uint32_t step = std::min(left, kStringStepUnits);
        const size_t old = text.size();
        text.resize(old + step);
        ReadBuf(text.data() + old, step * 2);
        left -= step;
    }
    return text;
}

void CFileWriteCollectorReadCache::Close() {
    if (!m_Opened) throw CExc(u"%1 fail. Files is not opened.", kClose);
    // The handles are let go even when the last write fails; the failure is
    // rethrown (with its own type) once the object is closed.
    std::shared_ptr<CExc> failure;
    if (m_WriteHandle != platform::kInvalidHandle) {
        try {
            const uint32_t used = m_WriteBlock ? m_WriteBlock->Used() : 0;
            if (_WriteBlock(m_WriteBlock ? m_WriteBlock->Data() : nullptr, used) != used)
                throw CWin32Exc(u"%1 fail. Can`t write all data.", kClose);
        } catch (const CExc& e) {
            failure = e.Clone();
        }
        m_WriteBlock.reset();
        m_Spare.reset();
        if (m_OwnsHandles) platform::CHandle(m_WriteHandle).Close();
        m_WriteHandle = platform::kInvalidHandle;
    }
    if (m_ReadHandle != platform::kInvalidHandle) {
        m_ReadAhead.reset();
        m_Cache.clear();
        m_CacheCount = 0;
        m_Spare.reset();
        if (m_OwnsHandles) platform::CHandle(m_ReadHandle).Close();
        m_ReadHandle = platform::kInvalidHandle;
    }
    m_OwnsHandles = false;
    m_Opened = false;
    if (failure) failure->Rethrow();
}

uint64_t CFileWriteCollectorReadCache::GetCachedBlockPos(size_t index) const {
    auto it = m_Cache.begin();
    std::advance(it, std::min(index, m_Cache.size()));
    return it == m_Cache.end() ? ~uint64_t{0} : (*it)->FilePos();
}

}  // namespace indexer
