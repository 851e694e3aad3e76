#pragma once
// POSIX side only: where a block device lies on the machine's physical
// disks, read from sysfs, for IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS.
//
// A physical disk is an entry of <sys>/block that has a "device" link (a
// disk behind real or virtual hardware: sda, nvme0n1, vda; not loop, ram,
// dm or md devices). Its disk number is its place among them, ordered by
// name length, then name (sda, sdb, ..., sdz, sdaa; nvme0n1 before
// nvme10n1), so the numbers stay put while the set of disks does.

#include <cstdint>
#include <string>

#include "platform/volume_control.h"

namespace platform::posix {

// The one extent of the block device major:minor, looked up under `sysRoot`
// ("/sys" on the machine): a partition of a physical disk (from its "start"
// and "size", in 512-byte units), or a whole physical disk (offset 0).
// False with last error 1 when the device is neither.
bool DiskExtentOfBlockDevice(const std::string& sysRoot, uint32_t major, uint32_t minor,
                             TDiskExtent& extent);

}  // namespace platform::posix
