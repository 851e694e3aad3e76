#include "app/volume_access.h"

#include <cstring>

#include "base/buf.h"
#include "base/format.h"
#include "diag/log.h"
#include "diag/settings.h"
#include "platform/errors.h"
#include "platform/volume_io.h"
#include "store/write_collector.h"

namespace indexer {

namespace {

// The handle may be opened for overlapped I/O, which keeps no position for
// its reads: each read says its offset, the one the seek set.
class CHandleSource : public IBootSectorSource {
public:
    explicit CHandleSource(platform::NativeHandle h) : m_Handle(h) {}
    bool SeekToStart() override {
        m_Position = 0;
        return platform::FileSeek(m_Handle, 0, nullptr, platform::kFileBegin);
    }
    bool Read(void* buffer, uint32_t size, uint32_t* done) override {
        const bool ok = platform::FileReadAt(m_Handle, m_Position, buffer, size, done);
        m_Position += *done;
        return ok;
    }

private:
    platform::NativeHandle m_Handle;
    uint64_t m_Position = 0;
};

constexpr uint32_t kFirstSectorSize = 512;
constexpr uint32_t kLastSectorSize = 0x10000;

}  // namespace

platform::CHandle OpenVolume(std::u16string_view name) {
    // Reading ahead keeps several reads in flight: on Windows only a handle
    // opened for overlapped I/O can (platform/read_queue.h).
    const uint32_t flags = kVolumeOpenFlags | (settings::IsReadAheadOn() ? platform::kFlagOverlapped : 0);
    platform::CHandle h = platform::OpenVolumeDevice(name, platform::kGenericRead,
                                                     platform::kShareRead | platform::kShareWrite,
                                                     platform::kOpenExisting, flags);
    if (!h.IsValid()) throw CWin32Exc(u"Cannot open volume: [%1].", name);
    // Read as Windows reads a volume: past the system's cache, whole sectors
    // only. Where that can't be had (an image on tmpfs) the handle reads
    // through the cache, as before.
    platform::UseDirectIo(h.Get(), settings::IsDirectIoForImages());
    GetLog().Detail(u"Volume [%1] opened.", name);
    return h;
}

uint32_t GetVolumeFileSystemType(platform::NativeHandle volume, uint32_t* sectorSize) {
    CHandleSource source(volume);
    return GetVolumeFileSystemType(source, sectorSize);
}

uint32_t GetVolumeFileSystemType(IBootSectorSource& source, uint32_t* sectorSize) {
    // One buffer for every round, at a sector boundary, so that an
    // unbuffered handle fails or succeeds by the size alone.
    std::unique_ptr<uint8_t[], write_collector_types::TAlignedFree> sector(static_cast<uint8_t*>(
        ::operator new[](kLastSectorSize, std::align_val_t{write_collector_types::kBlockAlignment})));
    uint32_t size = kFirstSectorSize;
    for (;; size *= 2) {
        if (!source.SeekToStart())
            throw CWin32Exc(u"GetVolumeFileSystemType fail! Cannot set file pointer for volume!");
        uint32_t done = 0;
        const bool read = source.Read(sector.get(), size, &done);
        if (read && done == size) break;
        // A read that succeeds short (an image smaller than a sector) has
        // no error of its own: say where it stopped.
        if (read) platform::SetLastError(platform::kErrHandleEof);
        if (size >= kLastSectorSize) throw CWin32Exc(u"Cannot read boot sector from volume!");
    }
    GetLog().Detail(u"Boot sector was read with sector size %1 bytes.", util::ToStrU64(size));
    if (sectorSize) *sectorSize = size;
    const uint8_t* oem = sector.get() + 3;
    if (std::memcmp(oem, "NTFS    ", 8) == 0) return kFsTypeNtfs;
    if (std::memcmp(oem, "ReFS", 4) == 0) return kFsTypeReFS;
    return kFsTypeUnknown;
}

}  // namespace indexer
