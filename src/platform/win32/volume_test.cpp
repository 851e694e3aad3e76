// Volume calls and raw access under Windows or Wine. Wine's drive C: is a
// folder of the prefix, so these check the shape of the answers and the
// error numbers, not a particular machine.

#include "platform/win32/win32_util.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/errors.h"
#include "platform/file.h"
#include "platform/find.h"
#include "platform/volume.h"
#include "platform/volume_io.h"

namespace platform {
namespace {

constexpr uint32_t kMaxPath = 261;

TEST(Win32Volumes, DriveCAnswers) {
    std::u16string mountPoint;
    ASSERT_TRUE(GetVolumePathName(u"C:\\windows\\system32", mountPoint, kMaxPath)) << GetLastError();
    EXPECT_EQ(mountPoint, u"C:\\");
    ASSERT_TRUE(GetVolumePathName(u"C:", mountPoint, kMaxPath)) << GetLastError();  // a bare drive
    EXPECT_EQ(mountPoint, u"C:\\");
    // The same with the long-path prefix: what an include line for a whole
    // drive ("C:\" in the filter) is asked as.
    ASSERT_TRUE(GetVolumePathName(u"\\\\?\\c:", mountPoint, kMaxPath)) << GetLastError();
    EXPECT_EQ(mountPoint, u"\\\\?\\c:\\");
    EXPECT_FALSE(GetVolumePathName(u"C:\\windows\\system32", mountPoint, 2));  // "C:\" needs 4
    EXPECT_EQ(GetLastError(), kErrFilenameExcedRange);

    EXPECT_EQ(GetDriveType(u"C:\\"), kDriveFixed);

    TVolumeInformation info;
    ASSERT_TRUE(GetVolumeInformation(u"C:\\", info, kMaxPath, kMaxPath)) << GetLastError();
    EXPECT_FALSE(info.fileSystemName.empty());
}

TEST(Win32Volumes, FilesThroughTheVolumeName) {
    // Windows reaches files through "\\?\Volume{GUID}\"; Wine does not, and
    // the layer then goes through the volume's mount point.
    std::u16string volume;
    ASSERT_TRUE(GetVolumeNameForVolumeMountPoint(u"C:\\", volume, kMaxPath)) << GetLastError();
    ASSERT_EQ(volume.back(), u'\\');
    EXPECT_EQ(win32::PathThroughMountPoint(volume + u"windows\\system32"), L"C:\\windows\\system32");
    EXPECT_EQ(win32::PathThroughMountPoint(u"C:\\windows"), L"");
    // An unknown volume: no other path, and the caller's error stays.
    SetLastError(kErrBusy);
    EXPECT_EQ(win32::PathThroughMountPoint(u"\\\\?\\Volume{12345678-0000-0000-0000-000000000000}\\x"), L"");
    EXPECT_EQ(GetLastError(), kErrBusy);

    TFindData data;
    CFindHandle h = FindFirst(volume + u"windows\\*", data);
    EXPECT_TRUE(h.IsValid()) << GetLastError();
    EXPECT_NE(GetAttributes(volume + u"windows\\system32"), kInvalidFileAttributes);
    CHandle file = FileOpen(volume + u"windows\\system32\\kernel32.dll", kGenericRead, kShareRead,
                            kOpenExisting, 0);
    EXPECT_TRUE(file.IsValid()) << GetLastError();
    EXPECT_FALSE(FindFirst(volume + u"no-such-folder\\*", data).IsValid());
    EXPECT_EQ(GetLastError(), kErrPathNotFound);
}

TEST(Win32Volumes, ImageFileStandsInForAVolume) {
    const std::u16string path = (std::filesystem::temp_directory_path() / "ngi-win32-raw.img").u16string();
    {
        CHandle h = FileOpen(path, kGenericWrite, 0, kCreateAlways, kAttrNormal);
        char sector[512] = {};
        uint32_t done = 0;
        ASSERT_TRUE(FileWrite(h.Get(), sector, sizeof(sector), &done));
    }
    CHandle h = OpenVolumeDevice(path, kGenericRead, kShareRead | kShareWrite, kOpenExisting, 0);
    ASSERT_TRUE(h.IsValid()) << GetLastError();
    // Refused by the file system for a plain file, accepted by the layer.
    EXPECT_TRUE(AllowExtendedDasdIo(h.Get())) << GetLastError();
    int64_t size = 0;
    ASSERT_TRUE(FileGetSize(h.Get(), &size));
    EXPECT_EQ(size, 512);
    h = CHandle();
    FileDelete(path);
}

}  // namespace
}  // namespace platform
