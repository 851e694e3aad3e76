// Space and placement of a volume on Linux: statvfs answers on a temporary
// folder, the device controls on handles with no disk behind them, and the
// disk numbers read from a made-up sysfs tree.

#include "platform/volume_control.h"

#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <filesystem>
#include <fstream>

#include "platform/errors.h"
#include "platform/posix/disk_extent.h"
#include "testing/temp_dir.h"

namespace {

namespace fs = std::filesystem;

TEST(VolumeControl, FreeSpaceAndClustersAgreeWithStatvfs) {
    ngitest::CTempDir dir;
    dir.WriteFile("sub/file.txt", "x");
    struct statvfs st {};
    ASSERT_EQ(::statvfs(dir.Native().c_str(), &st), 0);
    const uint64_t unit = st.f_frsize;

    platform::TDiskFreeSpace space;
    ASSERT_TRUE(platform::GetDiskFreeSpaceEx(dir.Path(u"sub"), space));
    EXPECT_EQ(space.totalBytes, uint64_t{st.f_blocks} * unit);
    // Others write to the same file system meanwhile: near, not equal.
    const uint64_t slack = space.totalBytes / 20;
    EXPECT_NEAR(static_cast<double>(space.totalFreeBytes), static_cast<double>(st.f_bfree * unit),
                static_cast<double>(slack));

    // The same file system through a handle on a file in it.
    platform::CHandle file = platform::FileOpen(dir.Path(u"sub\\file.txt"), platform::kGenericRead,
                                                platform::kShareRead, platform::kOpenExisting, 0);
    ASSERT_TRUE(file.IsValid());
    platform::TFsSizeInformation info;
    ASSERT_EQ(platform::QueryFsSizeInformation(file.Get(), info), platform::kStatusSuccess);
    const uint64_t cluster = uint64_t{info.SectorsPerAllocationUnit} * info.BytesPerSector;
    EXPECT_EQ(cluster, unit);
    EXPECT_EQ(static_cast<uint64_t>(info.TotalAllocationUnits) * cluster, space.totalBytes);

    // Errors of the path.
    struct {
        std::u16string path;
        uint32_t error;
    } failures[] = {
        {dir.Path(u"sub\\file.txt"), platform::kErrDirectory},
        {dir.Path(u"missing"), platform::kErrFileNotFound},
        {dir.Path(u"missing\\deeper"), platform::kErrPathNotFound},
    };
    for (const auto& f : failures) {
        EXPECT_FALSE(platform::GetDiskFreeSpaceEx(f.path, space));
        EXPECT_EQ(platform::GetLastError(), f.error);
    }
    EXPECT_TRUE(platform::GetDiskFreeSpaceEx(u"", space));  // the current folder
}

TEST(VolumeControl, DeviceControlsWithoutADiskAnswerInvalidFunction) {
    ngitest::CTempDir dir;
    dir.WriteFile("image", std::string(4096, '\0'));
    platform::IVolumeControl& control = platform::SystemVolumeControl();
    // An image file, and a folder-only volume (which reads as zeros).
    for (const std::u16string& name : {dir.Path(u"image"), dir.Path()}) {
        SCOPED_TRACE(std::string(name.begin(), name.end()));
        platform::CHandle volume =
            control.OpenVolume(name, platform::kGenericRead, platform::kShareRead | platform::kShareWrite);
        ASSERT_TRUE(volume.IsValid());
        platform::TVolumeDiskExtents extents;
        EXPECT_FALSE(control.GetVolumeDiskExtents(volume.Get(), 1, extents));
        EXPECT_EQ(platform::GetLastError(), platform::kErrInvalidFunction);
        platform::TVolumeBitmap bitmap;
        EXPECT_FALSE(control.GetVolumeBitmap(volume.Get(), 0, 4096, bitmap));
        EXPECT_EQ(platform::GetLastError(), platform::kErrInvalidFunction);
    }
    platform::CHandle zeros = control.OpenVolume(dir.Path(), platform::kGenericRead, platform::kShareRead);
    platform::TFsSizeInformation info;
    EXPECT_EQ(control.QueryFsSizeInformation(zeros.Get(), info), platform::kStatusInvalidDeviceRequest);
    EXPECT_EQ(control.QueryFsSizeInformation(platform::kInvalidHandle, info), platform::kStatusInvalidHandle);
}

TEST(VolumeControl, DiskNumbersFromSysfs) {
    ngitest::CTempDir sys;
    const fs::path root = sys.Native();
    auto write = [&](const fs::path& rest, const std::string& text) {
        fs::create_directories((root / rest).parent_path());
        std::ofstream(root / rest) << text << "\n";
    };
    // Physical disks sda, sdb, sdaa (numbered 0, 1, 2) and a loop device.
    for (const char* disk : {"sdb", "sdaa", "sda"}) {
        fs::create_directories(root / "block" / disk / "device");
        write(fs::path("block") / disk / "size", "1000");
    }
    write("block/sda/sda2/partition", "2");
    write("block/sda/sda2/start", "2048");
    write("block/sda/sda2/size", "4096");
    write("block/loop0/size", "64");
    fs::create_directories(root / "dev" / "block");
    const std::pair<const char*, const char*> links[] = {
        {"8:2", "sda/sda2"}, {"8:16", "sdb"}, {"65:160", "sdaa"}, {"7:0", "loop0"}};
    for (const auto& [id, target] : links)
        fs::create_directory_symlink(fs::path("../../block") / target, root / "dev" / "block" / id);

    struct {
        uint32_t major, minor;
        bool placed;
        platform::TDiskExtent extent;
    } cases[] = {
        {8, 2, true, {0, 2048 * 512, 4096 * 512}},   // a partition of the first disk
        {8, 16, true, {1, 0, 1000 * 512}},           // a whole disk
        {65, 160, true, {2, 0, 1000 * 512}},         // sdaa after sdb
        {7, 0, false, {}},                           // loop: no hardware behind it
        {9, 9, false, {}},                           // no such device
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.major) + ":" + std::to_string(c.minor));
        platform::TDiskExtent extent;
        ASSERT_EQ(platform::posix::DiskExtentOfBlockDevice(root, c.major, c.minor, extent), c.placed);
        if (!c.placed) {
            EXPECT_EQ(platform::GetLastError(), platform::kErrInvalidFunction);
            continue;
        }
        EXPECT_EQ(extent.DiskNumber, c.extent.DiskNumber);
        EXPECT_EQ(extent.StartingOffset, c.extent.StartingOffset);
        EXPECT_EQ(extent.ExtentLength, c.extent.ExtentLength);
    }
}

}  // namespace
