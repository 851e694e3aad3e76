// FSCTL_GET_NTFS_VOLUME_DATA and FSCTL_GET_NTFS_FILE_RECORD as the real
// device controls; the owner through GetNamedSecurityInfoW.

#include "platform/ntfs_control.h"

#include "platform/win32/win32_util.h"

#include <aclapi.h>
#include <winioctl.h>

#include <cstring>

namespace platform {

bool GetNtfsVolumeData(NativeHandle volume, TNtfsVolumeData& data) {
    NTFS_VOLUME_DATA_BUFFER buffer = {};
    DWORD done = 0;
    if (!::DeviceIoControl(win32::ToHandle(volume), FSCTL_GET_NTFS_VOLUME_DATA, nullptr, 0, &buffer,
                           sizeof buffer, &done, nullptr))
        return false;
    data.VolumeSerialNumber = buffer.VolumeSerialNumber.QuadPart;
    data.NumberSectors = buffer.NumberSectors.QuadPart;
    data.TotalClusters = buffer.TotalClusters.QuadPart;
    data.FreeClusters = buffer.FreeClusters.QuadPart;
    data.TotalReserved = buffer.TotalReserved.QuadPart;
    data.BytesPerSector = buffer.BytesPerSector;
    data.BytesPerCluster = buffer.BytesPerCluster;
    data.BytesPerFileRecordSegment = buffer.BytesPerFileRecordSegment;
    data.ClustersPerFileRecordSegment = buffer.ClustersPerFileRecordSegment;
    data.MftValidDataLength = buffer.MftValidDataLength.QuadPart;
    data.MftStartLcn = buffer.MftStartLcn.QuadPart;
    data.Mft2StartLcn = buffer.Mft2StartLcn.QuadPart;
    data.MftZoneStart = buffer.MftZoneStart.QuadPart;
    data.MftZoneEnd = buffer.MftZoneEnd.QuadPart;
    return true;
}

bool GetNtfsFileRecord(NativeHandle volume, uint64_t fileReference, uint8_t* output,
                       uint32_t outputSize, uint32_t& returned) {
    NTFS_FILE_RECORD_INPUT_BUFFER input = {};
    input.FileReferenceNumber.QuadPart = static_cast<LONGLONG>(fileReference);
    DWORD done = 0;
    const BOOL ok = ::DeviceIoControl(win32::ToHandle(volume), FSCTL_GET_NTFS_FILE_RECORD, &input,
                                      sizeof input, output, outputSize, &done, nullptr);
    returned = done;
    return ok != 0;
}

bool GetFileOwnerSid(std::u16string_view path, std::vector<uint8_t>& sid) {
    const std::wstring name = win32::ToWide(path);
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD status = ::GetNamedSecurityInfoW(name.c_str(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION,
                                                 &owner, nullptr, nullptr, nullptr, &descriptor);
    if (status != ERROR_SUCCESS) return win32::Fail(status);
    sid.clear();
    if (owner && ::IsValidSid(owner)) {
        const auto* bytes = static_cast<const uint8_t*>(owner);
        sid.assign(bytes, bytes + ::GetLengthSid(owner));
    }
    ::LocalFree(descriptor);
    return true;
}

}  // namespace platform
