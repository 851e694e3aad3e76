#include "inputs/volume.h"

#include <gtest/gtest.h>

#include "platform/errors.h"
#include "platform/volume_table.h"

namespace diskmgmt {
namespace {

platform::TVolumeTableEntry Volume(std::vector<std::u16string> mountPoints, std::u16string fileSystem,
                                   uint32_t driveType = platform::kDriveFixed, std::u16string ntDevice = u"") {
    platform::TVolumeTableEntry entry;
    entry.mountPoints = std::move(mountPoints);
    entry.fileSystem = std::move(fileSystem);
    entry.driveType = driveType;
    entry.ntDevice = std::move(ntDevice);
    return entry;
}

// A machine with every kind of volume the legacy run meets.
platform::CVolumeTable Machine() {
    return platform::CVolumeTable(
        {
            Volume({u"C:"}, u"NTFS"),
            Volume({u"D:"}, u"ext4"),
            Volume({u"E:"}, u"NTFS", platform::kDriveRemovable),
            Volume({u"A:"}, u"FAT", platform::kDriveRemovable, u"\\Device\\Floppy0"),
            Volume({}, u"NTFS"),                    // not mounted anywhere
            Volume({u"C:\\x", u"X:"}, u"ReFS"),     // two mount points, the drive first
            Volume({u"N:"}, u"NTFS", platform::kDriveRemote),
        },
        {});
}

TEST(VolumeTest, LegacyRunKeepsFixedNtfsAndRefsVolumesOnce) {
    platform::CVolumeTable machine = Machine();
    std::vector<std::u16string> mountPoints;
    EnumerateVolumesForIndexing(mountPoints, machine);
    EXPECT_EQ(mountPoints, (std::vector<std::u16string>{u"C:\\", u"X:\\"}));
    // No volumes: the enumeration fails, the legacy run's list is empty.
    platform::CVolumeTable empty;
    std::vector<std::u16string> none;
    EXPECT_THROW(EnumerateVolumeNames(none, empty), CWin32Exc);
    EnumerateVolumesForIndexing(none, empty);
    EXPECT_TRUE(none.empty());
}

TEST(VolumeTest, VolumePropertiesFromMountPointOrName) {
    platform::CVolumeTable machine = Machine();
    CVolume x(u"C:\\x", machine);
    EXPECT_EQ(x.GetVolumeName(), machine.Volumes()[5].volumeName);
    EXPECT_EQ(x.GetMountPoint(), u"C:\\x\\");  // as given
    EXPECT_EQ(x.GetFileSystemKind(), FsReFS);
    CVolume byName(machine.Volumes()[5].volumeName, machine);
    EXPECT_EQ(byName.GetMountPoint(), u"X:\\");  // the first of the list
    EXPECT_EQ(byName.GetMountPoints(), (std::vector<std::u16string>{u"X:\\", u"C:\\x\\"}));
    EXPECT_TRUE(IsFloppyVolume(machine.Volumes()[3].volumeName, machine));
    EXPECT_FALSE(IsFloppyVolume(machine.Volumes()[0].volumeName, machine));
    EXPECT_THROW(CVolume(u"Q:", machine), CWin32Exc);
    // A volume name the table doesn't know: no file system, no throw.
    CVolume unknown(u"\\\\?\\Volume{00000000-0000-0000-0000-000000000009}\\", machine);
    EXPECT_EQ(unknown.GetFileSystemKind(), FsUnknown);
    EXPECT_THROW(unknown.GetMountPoints(), CWin32Exc);
}

TEST(VolumeTest, DeviceNamesAndVolumeNameTest) {
    platform::CVolumeTable machine = Machine();
    EXPECT_EQ(indexer::GetVolumeDeviceName(u"c:", machine), machine.Volumes()[0].volumeName);
    EXPECT_EQ(indexer::GetVolumeDeviceName(u"C:\\x\\", machine), machine.Volumes()[5].volumeName);
    EXPECT_THROW(indexer::GetVolumeDeviceName(u"C:\\windows", machine), CWin32Exc);
    const std::u16string name = u"\\\\?\\Volume{00000000-0000-0000-0000-000000000009}";
    EXPECT_TRUE(indexer::IsVolumeName(name + u"\\"));
    EXPECT_FALSE(indexer::IsVolumeName(u"C:\\"));
    EXPECT_EQ(GetFileSystemKind(u"ReFS"), FsReFS);
    EXPECT_EQ(GetFileSystemKind(u"ntfs"), FsUnknown);  // compared exactly
}

}  // namespace
}  // namespace diskmgmt
