// Space and placement of a volume: GetDiskFreeSpaceExW, the two device
// controls, and NtQueryVolumeInformationFile from ntdll (it has no import
// library entry in every tool chain, so it is looked up once by name).

#include "platform/win32/win32_util.h"

#include <winioctl.h>

#include <cstring>
#include <vector>

#include "platform/errors.h"
#include "platform/volume_control.h"
#include "platform/volume_io.h"

namespace platform {

namespace {

using win32::Fail;
using win32::ToHandle;

// The ntdll forms, declared here to keep <winternl.h> out.
struct TIoStatusBlock {
    union {
        LONG Status;
        PVOID Pointer;
    };
    ULONG_PTR Information;
};
struct TFileFsSizeInformation {
    LARGE_INTEGER TotalAllocationUnits;
    LARGE_INTEGER AvailableAllocationUnits;
    ULONG SectorsPerAllocationUnit;
    ULONG BytesPerSector;
};
constexpr ULONG kFileFsSizeInformation = 3;
using NtQueryVolumeInformationFileFn = LONG(NTAPI*)(HANDLE, TIoStatusBlock*, PVOID, ULONG, ULONG);

NtQueryVolumeInformationFileFn NtQueryVolumeInformationFileEntry() {
    static const NtQueryVolumeInformationFileFn entry = [] {
        HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
        return ntdll ? reinterpret_cast<NtQueryVolumeInformationFileFn>(reinterpret_cast<void*>(
                           ::GetProcAddress(ntdll, "NtQueryVolumeInformationFile")))
                     : nullptr;
    }();
    return entry;
}

int64_t Le64(const uint8_t* p) {
    int64_t value;
    std::memcpy(&value, p, sizeof value);
    return value;
}

class CWin32VolumeControl : public IVolumeControl {
public:
    CHandle OpenVolume(std::u16string_view name, uint32_t access, uint32_t share) override {
        return OpenVolumeDevice(name, access, share, kOpenExisting, 0);
    }

    bool GetDiskFreeSpaceEx(std::u16string_view folder, TDiskFreeSpace& space) override {
        ULARGE_INTEGER available, total, free;
        const std::wstring name = win32::ToWide(folder);
        const wchar_t* argument = folder.empty() ? nullptr : name.c_str();
        if (!::GetDiskFreeSpaceExW(argument, &available, &total, &free)) {
            // Under Wine a volume GUID path reaches nothing; its mount point does.
            if (!win32::FailedOnVolumeName()) return false;
            const std::wstring retry = win32::PathThroughMountPoint(folder);
            if (retry.empty() || !::GetDiskFreeSpaceExW(retry.c_str(), &available, &total, &free))
                return false;
        }
        space.freeBytesAvailable = available.QuadPart;
        space.totalBytes = total.QuadPart;
        space.totalFreeBytes = free.QuadPart;
        return true;
    }

    bool GetVolumeBitmap(NativeHandle volume, int64_t startingLcn, uint32_t outputSize,
                         TVolumeBitmap& bitmap) override {
        bitmap = TVolumeBitmap();
        STARTING_LCN_INPUT_BUFFER input = {};
        input.StartingLcn.QuadPart = startingLcn;
        std::vector<uint8_t> output(outputSize);
        DWORD done = 0;
        const BOOL ok = ::DeviceIoControl(ToHandle(volume), FSCTL_GET_VOLUME_BITMAP, &input,
                                          sizeof input, output.data(), outputSize, &done, nullptr);
        const DWORD error = ::GetLastError();
        if (!ok && error != ERROR_MORE_DATA) return false;
        if (done >= kVolumeBitmapHeaderSize) {
            bitmap.StartingLcn = Le64(output.data());
            bitmap.BitmapSize = Le64(output.data() + 8);
            bitmap.Buffer.assign(output.begin() + kVolumeBitmapHeaderSize, output.begin() + done);
        }
        return ok ? true : Fail(error);
    }

    uint32_t QueryFsSizeInformation(NativeHandle handle, TFsSizeInformation& info) override {
        const NtQueryVolumeInformationFileFn query = NtQueryVolumeInformationFileEntry();
        if (!query) return kStatusProcedureNotFound;
        TIoStatusBlock status = {};
        TFileFsSizeInformation answer = {};
        const LONG result =
            query(ToHandle(handle), &status, &answer, sizeof answer, kFileFsSizeInformation);
        if (result >= 0) {
            info.TotalAllocationUnits = answer.TotalAllocationUnits.QuadPart;
            info.AvailableAllocationUnits = answer.AvailableAllocationUnits.QuadPart;
            info.SectorsPerAllocationUnit = answer.SectorsPerAllocationUnit;
            info.BytesPerSector = answer.BytesPerSector;
        }
        return static_cast<uint32_t>(result);
    }

    bool GetVolumeDiskExtents(NativeHandle volume, uint32_t maxExtents,
                              TVolumeDiskExtents& extents) override {
        extents = TVolumeDiskExtents();
        // VOLUME_DISK_EXTENTS: the count (padded to 8 bytes), then DISK_EXTENT
        // records of 24 bytes (number padded to 8, offset, length).
        constexpr size_t kHeader = offsetof(VOLUME_DISK_EXTENTS, Extents);
        const size_t size = kHeader + sizeof(DISK_EXTENT) * (maxExtents ? maxExtents : 1);
        if (size > MAXDWORD) return Fail(kErrInvalidParameter);
        std::vector<uint8_t> output(size);
        DWORD done = 0;
        const BOOL ok = ::DeviceIoControl(ToHandle(volume), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS,
                                          nullptr, 0, output.data(), static_cast<DWORD>(size), &done,
                                          nullptr);
        const DWORD error = ::GetLastError();
        if (!ok && error != ERROR_MORE_DATA) return false;
        if (done >= sizeof(DWORD)) {
            DWORD count;
            std::memcpy(&count, output.data(), sizeof count);
            extents.NumberOfDiskExtents = count;
        }
        if (!ok) return Fail(error);
        const size_t answered = done >= kHeader ? (done - kHeader) / sizeof(DISK_EXTENT) : 0;
        for (size_t i = 0; i < answered && i < extents.NumberOfDiskExtents; ++i) {
            DISK_EXTENT extent;
            std::memcpy(&extent, output.data() + kHeader + i * sizeof(DISK_EXTENT), sizeof extent);
            extents.Extents.push_back({extent.DiskNumber, extent.StartingOffset.QuadPart,
                                       extent.ExtentLength.QuadPart});
        }
        return true;
    }
};

}  // namespace

IVolumeControl& SystemVolumeControl() {
    static CWin32VolumeControl control;
    return control;
}

}  // namespace platform
