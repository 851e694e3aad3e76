// A block device's place on the physical disks, from sysfs:
//   <sys>/dev/block/<major>:<minor>  link to the device's own folder, which
//                                    holds "partition" for a partition, and
//                                    "start" and "size" in 512-byte sectors;
//                                    a partition's folder lies inside its
//                                    disk's folder;
//   <sys>/block/<disk>/device        present for disks with hardware behind.

#include "platform/posix/disk_extent.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <vector>

#include "platform/errors.h"
#include "platform/posix/posix_errors.h"

namespace platform::posix {

namespace {

namespace fs = std::filesystem;

constexpr int64_t kSysfsSectorSize = 512;

std::optional<int64_t> ReadNumber(const fs::path& file) {
    std::ifstream in(file);
    int64_t value = 0;
    if (!(in >> value) || value < 0) return std::nullopt;
    return value;
}

// Physical disks in disk number order.
std::vector<std::string> PhysicalDisks(const std::string& sysRoot) {
    std::vector<std::string> disks;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(fs::path(sysRoot) / "block", ec)) {
        std::error_code linkEc;
        if (fs::exists(entry.path() / "device", linkEc)) disks.push_back(entry.path().filename());
    }
    std::sort(disks.begin(), disks.end(), [](const std::string& a, const std::string& b) {
        return a.size() != b.size() ? a.size() < b.size() : a < b;
    });
    return disks;
}

}  // namespace

bool DiskExtentOfBlockDevice(const std::string& sysRoot, uint32_t major, uint32_t minor,
                             TDiskExtent& extent) {
    std::error_code ec;
    const fs::path own = fs::canonical(
        fs::path(sysRoot) / "dev" / "block" / (std::to_string(major) + ":" + std::to_string(minor)), ec);
    if (ec) return Fail(kErrInvalidFunction);
    const bool isPartition = fs::exists(own / "partition", ec);
    const std::string disk = (isPartition ? own.parent_path() : own).filename();
    const std::optional<int64_t> sectors = ReadNumber(own / "size");
    const std::optional<int64_t> start = isPartition ? ReadNumber(own / "start") : int64_t{0};
    constexpr int64_t kMaxSectors = INT64_MAX / kSysfsSectorSize;
    if (!sectors || !start || *sectors > kMaxSectors || *start > kMaxSectors)
        return Fail(kErrInvalidFunction);
    const std::vector<std::string> disks = PhysicalDisks(sysRoot);
    const auto at = std::find(disks.begin(), disks.end(), disk);
    if (at == disks.end()) return Fail(kErrInvalidFunction);
    extent.DiskNumber = static_cast<uint32_t>(at - disks.begin());
    extent.StartingOffset = *start * kSysfsSectorSize;
    extent.ExtentLength = *sectors * kSysfsSectorSize;
    return true;
}

}  // namespace platform::posix
