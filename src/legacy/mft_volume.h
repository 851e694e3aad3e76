#pragma once
// mftlib::IMftVolume: what the MFT scanner needs of a live NTFS volume, with
// the contracts of the device controls it stands for:
//   GetVolumeData  FSCTL_GET_NTFS_VOLUME_DATA: the volume's sizes;
//   GetFileRecord  FSCTL_GET_NTFS_FILE_RECORD: the highest record in use at
//                  or below the number asked, as a 12-byte header (record
//                  number answered, 32-bit length) and the record with its
//                  update sequence applied;
//   Seek / Read    SetFilePointerEx / ReadFile on the volume's bytes.
// Each returns false with the thread's last error set on failure.
//
// OpenMftVolume gives the machine's implementation for an open volume
// handle: the device controls where the system answers them (Windows);
// where it answers 1 or 50 (no such control: Linux, or an image file under
// Wine) the same contracts served by the raw NTFS reader over the volume's
// own bytes, so the scanner works wherever the volume can be read.
//
// Ownership: the handle belongs to the caller and must outlive the object.
// One thread at a time.

#include <cstdint>
#include <memory>

#include "platform/file.h"
#include "platform/ntfs_control.h"

namespace mftlib {

class IMftVolume {
public:
    virtual ~IMftVolume() = default;
    virtual bool GetVolumeData(platform::TNtfsVolumeData& data) = 0;
    virtual bool GetFileRecord(uint64_t fileReference, uint8_t* output, uint32_t outputSize,
                               uint32_t& returned) = 0;
    virtual bool Seek(int64_t position) = 0;
    virtual bool Read(uint8_t* buffer, uint32_t size, uint32_t& done) = 0;
};

// Throws what the raw reader throws when the system has no device controls
// and the volume's bytes are no NTFS it can read.
std::unique_ptr<IMftVolume> OpenMftVolume(platform::NativeHandle volume);

}  // namespace mftlib
