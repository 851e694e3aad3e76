#include "inputs/volume.h"

#include <gtest/gtest.h>

#include <deque>

#include "platform/errors.h"
#include "platform/volume_table.h"
#include "testing/log_capture.h"
#include "testing/temp_dir.h"

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

// Answers of the calls on an opened volume, given in order by the test. The
// volume opens as a real file, since a handle must close.
class CScriptedControl : public platform::IVolumeControl {
public:
    struct TAnswer {
        uint32_t error = 0;  // 0: success
        uint64_t count = 0;  // extents the volume reports / clusters of the bitmap
    };
    std::deque<TAnswer> answers;
    uint32_t openError = 0;
    std::vector<std::u16string> opened;
    std::vector<uint32_t> asked;  // maxExtents or output size of each query

    platform::CHandle OpenVolume(std::u16string_view name, uint32_t, uint32_t) override {
        opened.emplace_back(name);
        if (openError) {
            platform::SetLastError(openError);
            return platform::CHandle();
        }
        m_Dir.WriteFile("volume", "");
        return platform::FileOpen(m_Dir.Path(u"volume"), platform::kGenericRead,
                                  platform::kShareRead, platform::kOpenExisting, 0);
    }
    bool GetDiskFreeSpaceEx(std::u16string_view, platform::TDiskFreeSpace& space) override {
        space.totalBytes = 100;
        return Next() == 0;
    }
    bool GetVolumeBitmap(platform::NativeHandle, int64_t, uint32_t outputSize,
                         platform::TVolumeBitmap& bitmap) override {
        asked.push_back(outputSize);
        const TAnswer answer = Peek();
        bitmap.BitmapSize = static_cast<int64_t>(answer.count);
        bitmap.Buffer.assign(answer.error ? 0 : (answer.count + 7) / 8, 0xFF);
        return Next() == 0;
    }
    uint32_t QueryFsSizeInformation(platform::NativeHandle, platform::TFsSizeInformation& info) override {
        info.BytesPerSector = 512;
        return Next();
    }
    bool GetVolumeDiskExtents(platform::NativeHandle, uint32_t maxExtents,
                              platform::TVolumeDiskExtents& extents) override {
        asked.push_back(maxExtents);
        const TAnswer answer = Peek();
        extents = {};
        extents.NumberOfDiskExtents = static_cast<uint32_t>(answer.count);
        if (answer.error == 0)
            for (uint32_t i = 0; i < answer.count; ++i) extents.Extents.push_back({7 - i, 0, 0});
        return Next() == 0;
    }

private:
    TAnswer Peek() const { return answers.empty() ? TAnswer{platform::kErrGenFailure, 0} : answers.front(); }
    // The error of the next answer, set as the last error; consumes it.
    uint32_t Next() {
        const uint32_t error = Peek().error;
        if (!answers.empty()) answers.pop_front();
        platform::SetLastError(error);
        return error;
    }
    ngitest::CTempDir m_Dir;
};

const std::u16string kVolumeName = u"\\\\?\\Volume{00000000-0000-0000-0000-000000000009}\\";

TEST(VolumeTest, DiskNumbersFollowTheExtentQueries) {
    const std::u16string unplaced = u"Unable to retrieve disk numbers for volume '" + kVolumeName +
                                    u"': volume cannot be associated with physical disks.";
    struct TCase {
        const char* what;
        std::vector<CScriptedControl::TAnswer> answers;
        std::vector<uint32_t> numbers;
        std::vector<uint32_t> asked;
        bool logged;
    } cases[] = {
        {"one extent", {{0, 1}}, {7}, {1}, false},
        {"three extents, asked again", {{platform::kErrMoreData, 3}, {0, 3}}, {7, 6, 5}, {1, 3}, false},
        {"no disks behind the volume", {{platform::kErrInvalidFunction, 0}}, {}, {1}, true},
        {"second query fails", {{platform::kErrMoreData, 2}, {platform::kErrIoDevice, 0}}, {}, {1, 2}, true},
    };
    platform::CVolumeTable machine = Machine();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CScriptedControl control;
        control.answers.assign(c.answers.begin(), c.answers.end());
        ngitest::CLogCapture log;
        CVolume volume(kVolumeName, machine, control);
        EXPECT_EQ(volume.GetDiskNumbers(), c.numbers);
        EXPECT_EQ(volume.GetDiskNumbers(), c.numbers);  // kept: asked once
        EXPECT_EQ(control.asked, c.asked);
        EXPECT_EQ(control.opened, (std::vector<std::u16string>{kVolumeName.substr(0, kVolumeName.size() - 1)}));
        const bool logged = log.Contains(unplaced);
        EXPECT_EQ(logged, c.logged);
        if (logged) {
            for (const auto& line : log.Lines())
                if (line.text.find(u"Unable to retrieve disk numbers") != std::u16string::npos) {
                    EXPECT_EQ(line.level, LogInfo);
                }
        }
    }
}

TEST(VolumeTest, DiskNumbersFailuresThrowAndKeepNothing) {
    platform::CVolumeTable machine = Machine();
    CScriptedControl control;
    control.openError = platform::kErrAccessDenied;
    CVolume volume(kVolumeName, machine, control);
    try {
        volume.GetDiskNumbers();
        FAIL();
    } catch (const CWin32Exc& e) {
        EXPECT_EQ(e.GetMessages().front(), u"Unable to open volume '" + kVolumeName + u"'.");
        EXPECT_EQ(e.GetWin32Error(), platform::kErrAccessDenied);
    }
    control.openError = 0;
    control.answers = {{platform::kErrNotReady, 0}};
    try {
        volume.GetDiskNumbers();
        FAIL();
    } catch (const CWin32Exc& e) {
        EXPECT_EQ(e.GetMessages().front(),
                  u"Unable to retrieve location of a volume '" + kVolumeName + u"' on the physical disks.");
        EXPECT_EQ(e.GetWin32Error(), platform::kErrNotReady);
    }
    control.answers = {{0, 1}};
    EXPECT_EQ(volume.GetDiskNumbers(), std::vector<uint32_t>{7});
}

TEST(VolumeTest, VolumeBitmapGrowsToTheAnsweredSize) {
    CScriptedControl control;
    // 1,000,000 clusters need 125,000 bytes of bitmap after the header.
    control.answers = {{platform::kErrMoreData, 1000000}, {0, 1000000}};
    const platform::TVolumeBitmap bitmap = indexer::WinGetVolumeBitmap(0, control);
    EXPECT_EQ(bitmap.BitmapSize, 1000000);
    EXPECT_EQ(bitmap.Buffer.size(), 125000u);
    EXPECT_EQ(control.asked, (std::vector<uint32_t>{indexer::kInitialBitmapBuffer, 125016}));

    // An answer that claims to fit but still says 234 gets twice the room;
    // a volume that never stops saying 234 is given up on.
    CScriptedControl endless;
    endless.answers.assign(100, {platform::kErrMoreData, 8});
    try {
        indexer::WinGetVolumeBitmap(0, endless);
        FAIL();
    } catch (const CWin32Exc& e) {
        EXPECT_EQ(e.GetMessages().front(), u"WinGetVolumeBitmap fail.");
        EXPECT_EQ(e.GetWin32Error(), platform::kErrMoreData);
    }
    ASSERT_EQ(endless.asked.size(), static_cast<size_t>(indexer::kMaxBitmapAttempts));
    EXPECT_EQ(endless.asked[1], 2 * indexer::kInitialBitmapBuffer);

    // A bitmap larger than one query can carry (over 4 GiB) is not asked for.
    CScriptedControl huge;
    huge.answers = {{platform::kErrMoreData, uint64_t{40} << 30}};
    EXPECT_THROW(indexer::WinGetVolumeBitmap(0, huge), CWin32Exc);
    EXPECT_EQ(huge.asked.size(), 1u);
}

TEST(VolumeTest, FreeSpaceAndClusterFailuresCarryTheirWords) {
    CScriptedControl control;
    control.answers = {{0, 0}, {platform::kErrPathNotFound, 0}};
    EXPECT_EQ(indexer::GetVolumeFreeSpace(u"C:\\", control).totalBytes, 100u);
    try {
        indexer::GetVolumeFreeSpace(u"Q:\\", control);
        FAIL();
    } catch (const CWin32Exc& e) {
        EXPECT_EQ(e.GetMessages().front(), u"GetDiskFreeSpaceExW fail.");
        EXPECT_EQ(e.GetWin32Error(), platform::kErrPathNotFound);
    }
    control.answers = {{platform::kStatusSuccess, 0}, {platform::kStatusInvalidDeviceRequest, 0}};
    EXPECT_EQ(indexer::GetVolumeClusterInfo(0, control).BytesPerSector, 512u);
    try {
        indexer::GetVolumeClusterInfo(0, control);
        FAIL();
    } catch (const CExc& e) {
        EXPECT_EQ(e.GetMessages().front(),
                  u"Failed to query information about the FS clusters. NTSTATUS=0xc0000010");
        EXPECT_EQ(e.GetCode(), static_cast<int32_t>(platform::kStatusInvalidDeviceRequest));
    }
}

}  // namespace
}  // namespace diskmgmt
