#pragma once
// The NTFS device controls of a live volume, as thin wrappers of
// DeviceIoControl with FSCTL_GET_NTFS_VOLUME_DATA (0x90064) and
// FSCTL_GET_NTFS_FILE_RECORD (0x90068), and the owner of a file, as
// GetNamedSecurityInfoW(SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION).
//
// Windows: the file system driver answers both controls on a volume handle.
// POSIX: no driver answers them; both fail with 1 (ERROR_INVALID_FUNCTION,
// "Incorrect function."), as Windows does for a device that does not
// implement a control. The caller then reads the volume's device or image
// itself (the legacy scanner does, through the raw NTFS reader).
//
// Every call returns false on failure and sets the thread's last error
// (platform/errors.h).

#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/file.h"

namespace platform {

// NTFS_VOLUME_DATA_BUFFER, the 96 bytes of the answer.
struct TNtfsVolumeData {
    int64_t VolumeSerialNumber = 0;
    int64_t NumberSectors = 0;
    int64_t TotalClusters = 0;
    int64_t FreeClusters = 0;
    int64_t TotalReserved = 0;
    uint32_t BytesPerSector = 0;
    uint32_t BytesPerCluster = 0;
    uint32_t BytesPerFileRecordSegment = 0;
    uint32_t ClustersPerFileRecordSegment = 0;
    int64_t MftValidDataLength = 0;
    int64_t MftStartLcn = 0;
    int64_t Mft2StartLcn = 0;
    int64_t MftZoneStart = 0;
    int64_t MftZoneEnd = 0;
};

// The size of NTFS_FILE_RECORD_OUTPUT_BUFFER's header: the 64-bit number of
// the record answered and its 32-bit length; the record follows.
inline constexpr uint32_t kNtfsFileRecordHeaderSize = 12;

bool GetNtfsVolumeData(NativeHandle volume, TNtfsVolumeData& data);

// The highest record in use at or below `fileReference`, into `output`
// (header, then the record with its update sequence applied). `returned`
// receives the bytes written. Fails with 122 when the record does not fit.
bool GetNtfsFileRecord(NativeHandle volume, uint64_t fileReference, uint8_t* output,
                       uint32_t outputSize, uint32_t& returned);

// The owner SID of a file or folder, by path. True with an empty `sid` when
// the descriptor names no owner. Errors: 2 / 3 the path is missing, 5 the
// descriptor can't be read.
// POSIX: where the file system keeps a Windows security descriptor (ntfs-3g
// exposes it as the extended attribute "system.ntfs_acl"), its owner SID;
// otherwise the Unix owner as "S-1-22-1-<uid>".
bool GetFileOwnerSid(std::u16string_view path, std::vector<uint8_t>& sid);

}  // namespace platform
