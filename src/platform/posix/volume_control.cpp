// Space and placement of a volume on Linux: statvfs of the file system that
// holds a folder or file; the disk extent of a block device from sysfs; no
// driver to answer the allocation bitmap.

#include "platform/volume_control.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "platform/errors.h"
#include "platform/posix/disk_extent.h"
#include "platform/posix/native_path.h"
#include "platform/posix/posix_errors.h"
#include "platform/volume_io.h"

namespace platform {

namespace {

constexpr uint32_t kSectorSize = 512;

bool IsValidFd(NativeHandle h) { return h >= 0 && h <= INT32_MAX; }

class CSystemVolumeControl : public IVolumeControl {
public:
    CHandle OpenVolume(std::u16string_view name, uint32_t access, uint32_t share) override {
        return OpenVolumeDevice(name, access, share, kOpenExisting, 0);
    }

    bool GetDiskFreeSpaceEx(std::u16string_view folder, TDiskFreeSpace& space) override {
        posix::TNativeAt at;
        if (!folder.empty() && !posix::OpenPathAt(folder, at)) return false;
        const char* name = folder.empty() ? "." : at.name.c_str();  // empty: the current folder
        const posix::CFd fd(::openat(at.dir, name, O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (fd.Get() < 0) {
            if (errno == ENOTDIR) return posix::Fail(kErrDirectory);
            return posix::FailErrnoAt(at);
        }
        struct statvfs st {};
        if (::fstatvfs(fd.Get(), &st) != 0) return posix::FailErrno();
        const uint64_t unit = st.f_frsize ? st.f_frsize : st.f_bsize;
        space.freeBytesAvailable = uint64_t{st.f_bavail} * unit;
        space.totalBytes = uint64_t{st.f_blocks} * unit;
        space.totalFreeBytes = uint64_t{st.f_bfree} * unit;
        return true;
    }

    bool GetVolumeBitmap(NativeHandle volume, int64_t, uint32_t, TVolumeBitmap& bitmap) override {
        bitmap = TVolumeBitmap();
        if (!IsValidFd(volume)) return posix::Fail(kErrInvalidHandle);
        // Only a file system driver knows the allocation of clusters; Linux
        // has none that answers this control.
        return posix::Fail(kErrInvalidFunction);
    }

    uint32_t QueryFsSizeInformation(NativeHandle handle, TFsSizeInformation& info) override {
        struct stat st {};
        if (!IsValidFd(handle) || ::fstat(static_cast<int>(handle), &st) != 0)
            return kStatusInvalidHandle;
        // A device's statvfs describes the file system holding its node
        // (/dev), not the one on the device.
        if (S_ISBLK(st.st_mode) || S_ISCHR(st.st_mode)) return kStatusInvalidDeviceRequest;
        struct statvfs fs {};
        if (::fstatvfs(static_cast<int>(handle), &fs) != 0) return kStatusInvalidDeviceRequest;
        const uint64_t unit = fs.f_frsize ? fs.f_frsize : fs.f_bsize;
        // Clusters of whole 512-byte sectors where the unit allows it.
        const uint64_t sector = unit >= kSectorSize && unit % kSectorSize == 0 ? kSectorSize : unit;
        info.TotalAllocationUnits = static_cast<int64_t>(fs.f_blocks);
        info.AvailableAllocationUnits = static_cast<int64_t>(fs.f_bavail);
        info.SectorsPerAllocationUnit = static_cast<uint32_t>(sector ? unit / sector : 0);
        info.BytesPerSector = static_cast<uint32_t>(sector);
        return kStatusSuccess;
    }

    bool GetVolumeDiskExtents(NativeHandle volume, uint32_t maxExtents,
                              TVolumeDiskExtents& extents) override {
        extents = TVolumeDiskExtents();
        struct stat st {};
        if (!IsValidFd(volume) || ::fstat(static_cast<int>(volume), &st) != 0)
            return posix::Fail(kErrInvalidHandle);
        // An image file, a folder-only volume (read as /dev/zero) or a
        // character device lies on no disk that Linux can name.
        if (!S_ISBLK(st.st_mode)) return posix::Fail(kErrInvalidFunction);
        TDiskExtent extent;
        if (!posix::DiskExtentOfBlockDevice("/sys", major(st.st_rdev), minor(st.st_rdev), extent))
            return false;
        extents.NumberOfDiskExtents = 1;
        if (maxExtents < 1) return posix::Fail(kErrMoreData);
        extents.Extents.push_back(extent);
        return true;
    }
};

}  // namespace

IVolumeControl& SystemVolumeControl() {
    static CSystemVolumeControl control;
    return control;
}

}  // namespace platform
