#include "inputs/volume.h"

#include <gtest/gtest.h>

#include "platform/errors.h"
#include "platform/volume_table.h"
#include "testing/log_capture.h"

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
    ngitest::CLogCapture log;
    std::vector<std::u16string> mountPoints;
    EnumerateVolumesForIndexing(mountPoints, machine);
    EXPECT_EQ(mountPoints, (std::vector<std::u16string>{u"C:\\", u"X:\\"}));
    const auto& volumes = machine.Volumes();
    EXPECT_TRUE(log.Contains(u"Skipped floppy volume. [" + volumes[3].volumeName + u"]."));
    EXPECT_TRUE(log.Contains(u"Skipping volume '" + volumes[1].volumeName + u"' with '1' mount points and FS: '9'."));
    EXPECT_TRUE(log.Contains(u"Skipping volume '" + volumes[2].volumeName + u"': not a fixed drive (type: '2')."));
    EXPECT_TRUE(log.Contains(u"Skipping volume '" + volumes[6].volumeName + u"': not a fixed drive (type: '4')."));
    EXPECT_TRUE(log.Contains(u"Skipping volume '" + volumes[4].volumeName + u"' with '0' mount points and FS: '2'."));
    EXPECT_TRUE(log.Contains(u"Adding mount point 'X:\\' for volume '" + volumes[5].volumeName + u"'."));
}

TEST(VolumeTest, EnumerationOfNoVolumesFailsAndIsLogged) {
    platform::CVolumeTable empty;
    std::vector<std::u16string> names;
    EXPECT_THROW(EnumerateVolumeNames(names, empty), CWin32Exc);
    ngitest::CLogCapture log;
    std::vector<std::u16string> mountPoints;
    EnumerateVolumesForIndexing(mountPoints, empty);
    EXPECT_TRUE(mountPoints.empty());
    EXPECT_TRUE(log.Contains(u"Unable to enumerate the volumes for indexing."));
    EXPECT_TRUE(log.Contains(u"Unable to begin scanning the volumes."));
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
    EXPECT_EQ(byName.GetDriveType(), platform::kDriveFixed);
    EXPECT_TRUE(IsFloppyVolume(machine.Volumes()[3].volumeName, machine));
    EXPECT_FALSE(IsFloppyVolume(machine.Volumes()[0].volumeName, machine));
    try {
        CVolume missing(u"Q:", machine);
        FAIL();
    } catch (const CWin32Exc& e) {
        ASSERT_EQ(e.GetMessages().size(), 3u);
        EXPECT_EQ(e.GetMessages()[0], u"Unable to retrieve volume information. Mount point: 'Q:'.");
        EXPECT_EQ(e.GetMessages()[1], u"Unable to retrieve volume name for mount point 'Q:'.");
    }
    // A volume name the table doesn't know: no file system, logged, no throw.
    ngitest::CLogCapture log;
    CVolume unknown(u"\\\\?\\Volume{00000000-0000-0000-0000-000000000009}\\", machine);
    EXPECT_EQ(unknown.GetFileSystemKind(), FsUnknown);
    EXPECT_TRUE(log.Contains(u"Unable to retrieve information about the file system for volume"));
    EXPECT_THROW(unknown.GetMountPoints(), CWin32Exc);
}

TEST(VolumeTest, FileSystemKindsBothWays) {
    const char16_t* names[] = {u"FAT", u"FAT32", u"NTFS", u"HPFS", u"CDFS", u"UDF", u"NWFS", u"exFAT", u"ReFS"};
    for (uint32_t i = 0; i < 9; ++i) {
        EXPECT_EQ(GetFileSystemKind(names[i]), static_cast<TFileSystemKind>(i));
        EXPECT_EQ(GetFileSystemName(static_cast<TFileSystemKind>(i)), names[i]);
    }
    EXPECT_EQ(GetFileSystemKind(u"ntfs"), FsUnknown);  // exact comparison
    EXPECT_EQ(GetFileSystemKind(u"ext4"), FsUnknown);
    EXPECT_EQ(GetFileSystemName(FsUnknown), u"9");
}

TEST(VolumeTest, DeviceNamesAndVolumeNameTest) {
    platform::CVolumeTable machine = Machine();
    EXPECT_EQ(indexer::GetVolumeDeviceName(u"c:", machine), machine.Volumes()[0].volumeName);
    EXPECT_EQ(indexer::GetVolumeDeviceName(u"C:\\x\\", machine), machine.Volumes()[5].volumeName);
    EXPECT_THROW(indexer::GetVolumeDeviceName(u"C:\\windows", machine), CWin32Exc);
    EXPECT_EQ(indexer::GetVolumeMountPoint(u"C:\\x\\file", machine), u"C:\\x\\");
    const std::u16string name = u"\\\\?\\Volume{00000000-0000-0000-0000-000000000009}";
    EXPECT_TRUE(indexer::IsVolumeName(u"C:"));
    EXPECT_TRUE(indexer::IsVolumeName(name));
    EXPECT_TRUE(indexer::IsVolumeName(name + u"\\"));
    EXPECT_FALSE(indexer::IsVolumeName(u"C:\\"));
    EXPECT_FALSE(indexer::IsVolumeName(name + u"x"));
}

}  // namespace
}  // namespace diskmgmt
