#pragma once
// The volume handle of one indexing attempt and the boot-sector probe that
// chooses the indexer.
//
// OpenVolume opens a volume or shadow device for raw reading (on Linux a
// device or image file; a volume that is only a folder reads as zeros, see
// platform/volume_io.h). Throws CWin32Exc "Cannot open volume: [%1].".
//
// GetVolumeFileSystemType reads the boot sector from offset 0 with a buffer
// of 512 bytes, doubled after each failed or short read up to 0x10000, so a
// device that reads only in whole sectors of 4096 bytes answers at the
// fourth round. Throws CWin32Exc "GetVolumeFileSystemType fail! Cannot set
// file pointer for volume!" and "Cannot read boot sector from volume!".

#include <cstdint>
#include <string_view>

#include "platform/file.h"

namespace indexer {

// Four-character codes, the first letter in the highest byte.
inline constexpr uint32_t kFsTypeNtfs = 0x4E544653;     // "NTFS"
inline constexpr uint32_t kFsTypeReFS = 0x52654653;     // "ReFS"
inline constexpr uint32_t kFsTypeUnknown = 0x554E4B4E;  // "UNKN"

// Generic read, shared read and write, random access and read-only attribute.
inline constexpr uint32_t kVolumeOpenFlags = 0x10000001;

platform::CHandle OpenVolume(std::u16string_view name);

// Where the probe reads from: a handle, or a fake in tests.
class IBootSectorSource {
public:
    virtual ~IBootSectorSource() = default;
    // SetFilePointerEx to 0 and ReadFile, with the platform's contracts.
    virtual bool SeekToStart() = 0;
    virtual bool Read(void* buffer, uint32_t size, uint32_t* done) = 0;
};

// `sectorSize`, when given, receives the size of the read that succeeded.
uint32_t GetVolumeFileSystemType(platform::NativeHandle volume, uint32_t* sectorSize = nullptr);
uint32_t GetVolumeFileSystemType(IBootSectorSource& source, uint32_t* sectorSize = nullptr);

}  // namespace indexer
