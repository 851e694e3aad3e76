#pragma once
// indexer::CFileWriteCollectorReadCache: one file, two jobs.
//
// Write side: small sequential writes (WriteSequentially and the typed
// writes) are collected into blocks of 1 << blockShift bytes; a block goes to
// the file only when it is full and another byte arrives, or at Close. So
// blocks lie on the file at multiples of the block size.
//
// Read side: ReadRandomly / ReadBuf serve reads from a least-recently-used
// cache of aligned blocks (at most maxBlocks). A block the writer flushes
// moves into the cache when there is a read handle, and the block still
// being written is read from memory before the cache is searched: data can
// be read back the moment it was written, before it reaches the disk.
//
// Block memory is recycled: the block the cache evicts (or, without a read
// handle, the block just flushed) becomes the next block loaded or written,
// so once the cache is full neither reading nor writing allocates. At most
// maxBlocks + 2 blocks are held (the cache, the block being written, one
// spare).
//
// The same class, write side unused, is the byte reader of a raw volume:
// SetCacheProps(18, 32), OpenForReadByHandle(volume), SetReadMaxLimit(size).
// Under a read limit the last block is cut to the limit; a read that starts
// before the limit ends at it, one that starts at or past it throws.
//
// A read that reaches the end of the data a block holds (the block being
// written, a block cut by the limit or by the end of the file) stops there:
// ReadRandomly returns the count read so far, and never loops on an empty
// block. ReadBuf and the typed reads turn any shortfall into a failure.
//
// Ownership: Open creates the file and owns both handles; the ByHandle forms
// borrow the caller's handle (not closed at Close). The destructor closes an
// open object and logs, never throws, a failure of that close.
//
// Errors: CExc / CWin32Exc with the texts of write_collector.cpp, %1 being
// "indexer::CFileWriteCollectorReadCache::<operation>". Not thread-safe:
// every read reorders the cache.

#include <cstdint>
#include <cstring>
#include <list>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "platform/file.h"

namespace write_collector_types {

// Block memory starts at a multiple of this, so that a block can be read
// from a device that wants aligned buffers (unbuffered reads of a volume).
inline constexpr size_t kBlockAlignment = 4096;

struct TAlignedFree {
    void operator()(uint8_t* p) const { ::operator delete[](p, std::align_val_t{kBlockAlignment}); }
};

// One block: owned memory of a fixed capacity, its valid bytes, and the file
// offset of its first byte.
class CBuffer {
public:
    CBuffer(uint32_t capacity, uint64_t filePos);
    CBuffer(const CBuffer&) = delete;
    CBuffer& operator=(const CBuffer&) = delete;

    uint8_t* Data() { return m_Data.get(); }
    uint32_t Capacity() const { return m_Capacity; }
    uint32_t Used() const { return m_Used; }
    void SetUsed(uint32_t used) { m_Used = used; }
    uint64_t FilePos() const { return m_FilePos; }
    bool IsFull() const { return m_Used == m_Capacity; }

    // Appends up to size bytes that fit; returns the count taken.
    uint32_t Append(const uint8_t* data, uint32_t size);
    // Copies the bytes at the file position `position` (REQUIRES: not before
    // the block, else throws "buffer underflow"), at most size, cut to the
    // valid data; returns the count (0 at or past the end of the data).
    uint32_t GetDataFromBuffer(uint64_t position, uint8_t* buffer, uint32_t size) const;
    // Empties the block for reuse at another file position.
    void Reset(uint64_t filePos) {
        m_Used = 0;
        m_FilePos = filePos;
    }

private:
    std::unique_ptr<uint8_t[], TAlignedFree> m_Data;
    uint32_t m_Capacity;
    uint32_t m_Used = 0;
    uint64_t m_FilePos;
};

}  // namespace write_collector_types

namespace indexer {

class CBlockReadAhead;

class CFileWriteCollectorReadCache {
public:
    static constexpr uint32_t kDefaultBlockShift = 16;
    static constexpr uint32_t kDefaultMaxBlocks = 64;
    // The block shifts SetCacheProps accepts (512 bytes to 1 GiB).
    static constexpr uint32_t kMinBlockShift = 9;
    static constexpr uint32_t kMaxBlockShift = 30;

    CFileWriteCollectorReadCache();
    ~CFileWriteCollectorReadCache();
    CFileWriteCollectorReadCache(const CFileWriteCollectorReadCache&) = delete;
    CFileWriteCollectorReadCache& operator=(const CFileWriteCollectorReadCache&) = delete;

    // REQUIRES: closed ("Can`t change properties while files is opened."),
    // blockShift in [kMinBlockShift, kMaxBlockShift] and maxBlocks >= 1
    // (else CExc 0x80070057).
    void SetCacheProps(uint32_t blockShift, uint32_t maxBlocks);

    // Creates (truncates) the file and opens it for writing and for reading.
    void Open(std::u16string_view name);
    // Borrows a write handle; write and flushed positions start at 0.
    void OpenForWriteByHandle(platform::NativeHandle handle);
    // Borrows a read handle; the read position starts at 0.
    void OpenForReadByHandle(platform::NativeHandle handle);
    // Reads never start at or past `limit` and never pass it; 0 is refused.
    void SetReadMaxLimit(uint64_t limit);
    uint64_t GetReadMaxLimit() const { return m_ReadMaxLimit; }

    // The row path: bytes that fit in the block being written are copied
    // inline; the rest (a block to flush, a closed object) goes the slow way.
    void WriteSequentially(const void* buffer, uint32_t size) {
        if (uint8_t* at = TryWriteInPlace(size)) {
            if (size != 0) std::memcpy(at, buffer, size);
            return;
        }
        _WriteSequentiallySlow(buffer, size);
    }
    // When `size` more bytes fit in the block being written, counts them as
    // written and returns where they go; the caller stores exactly `size`
    // bytes there before any other call on this object. Null when they do
    // not fit, or when the object is not open for writing: then use
    // WriteSequentially, which flushes, and throws its failure texts.
    uint8_t* TryWriteInPlace(uint64_t size) {
        CBuffer* block = m_WriteBlock.get();
        if (block == nullptr || block->Capacity() - block->Used() < size) return nullptr;
        uint8_t* at = block->Data() + block->Used();
        block->SetUsed(block->Used() + static_cast<uint32_t>(size));
        m_WritePos += size;
        return at;
    }
    void WriteBuf(const void* buffer, uint32_t size) { WriteSequentially(buffer, size); }
    void WriteWord(uint16_t value);
    void WriteDWord(uint32_t value);
    void WriteLongLong(uint64_t value);
    // Logical bytes written so far, buffered ones included.
    uint64_t GetWritePos() const { return m_WritePos; }

    // Up to size bytes at position; returns the count read. Does not move
    // the read position.
    uint32_t ReadRandomly(uint64_t position, void* buffer, uint32_t size);
    void SetReadPos(uint64_t position) { m_ReadPos = position; }
    uint64_t GetReadPos() const { return m_ReadPos; }
    // Exactly size bytes at the read position, which moves on; a short read
    // throws "Can`t read all data." and leaves the position.
    void ReadBuf(void* buffer, uint32_t size);
    uint32_t ReadDWord();
    uint64_t ReadLongLong();
    // A dword count n, then n UTF-16 units; a count larger than the data
    // fails before more than one step of memory is taken.
    std::u16string ReadString();

    // Flushes the block being written (whatever its fill), frees the cache,
    // closes owned handles. REQUIRES: open. The object is closed afterwards
    // even when the final write fails (the failure is then rethrown).
    void Close();
    bool IsOpen() const { return m_Opened; }

    // Blocks missing from the cache are first asked of `readAhead`, which
    // reads on this object's read handle (null: none). Close drops it.
    void SetReadAhead(std::unique_ptr<CBlockReadAhead> readAhead);
    CBlockReadAhead* GetReadAhead() const { return m_ReadAhead.get(); }
    // Every read of the file must then have its position, length and buffer
    // address at multiples of `alignment` (a power of two up to the block
    // size; 0 for no rule), as an unbuffered volume handle wants: a block
    // cut short by the read limit is read rounded up. A read that breaks the
    // rule fails before it reaches the system: CExc "%1 fail. Read at
    // Pos=0x%2 Length=0x%3 into buffer 0x%4 is not aligned to the sector
    // size 0x%5.".
    void SetReadAlignment(uint32_t alignment) { m_ReadAlignment = alignment; }
    uint32_t GetReadAlignment() const { return m_ReadAlignment; }
    // Bytes this object read itself (not those read ahead for it).
    uint64_t GetBytesRead() const { return m_BytesRead; }

    // For tests and diagnostics: blocks held in the cache, front first.
    size_t GetCachedBlockCount() const { return m_CacheCount; }
    uint64_t GetCachedBlockPos(size_t index) const;

private:
    using CBuffer = write_collector_types::CBuffer;

    uint32_t BlockSize() const { return uint32_t{1} << m_BlockShift; }
    void _WriteSequentiallySlow(const void* buffer, uint32_t size);
    // A block of BlockSize() bytes at filePos, empty: the spare when there
    // is one, else new memory.
    std::unique_ptr<CBuffer> _TakeBlock(uint64_t filePos);
    uint32_t _WriteBlock(const uint8_t* data, uint32_t length);
    uint32_t _ReadBlock(uint64_t position, uint8_t* buffer, uint32_t size);
    // Front of the list; evicts the back block when full; drops a stale
    // block of the same position. The block put out becomes the spare.
    void _InsertIntoCache(std::unique_ptr<CBuffer> block);
    // The cached block at blockStart, moved to the front, or null.
    CBuffer* _FindInCache(uint64_t blockStart);

    std::list<std::unique_ptr<CBuffer>> m_Cache;
    size_t m_CacheCount = 0;
    // Null unless open for writing on a valid handle (TryWriteInPlace
    // relies on it).
    std::unique_ptr<CBuffer> m_WriteBlock;
    std::unique_ptr<CBuffer> m_Spare;
    uint32_t m_BlockShift = kDefaultBlockShift;
    uint32_t m_MaxBlocks = kDefaultMaxBlocks;
    bool m_OwnsHandles = false;
    bool m_Opened = false;
    platform::NativeHandle m_ReadHandle = platform::kInvalidHandle;
    platform::NativeHandle m_WriteHandle = platform::kInvalidHandle;
    uint64_t m_WritePos = 0;
    uint64_t m_FlushedPos = 0;
    uint64_t m_ReadPos = 0;
    uint64_t m_ReadMaxLimit = 0;
    uint32_t m_ReadAlignment = 0;
    uint64_t m_BytesRead = 0;
    std::unique_ptr<CBlockReadAhead> m_ReadAhead;
};

}  // namespace indexer
