#include "platform/posix/volume_table.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "base/utf.h"
#include "platform/errors.h"
#include "testing/temp_registry.h"

namespace platform {
namespace {

const std::u16string kVolC = u"\\\\?\\Volume{0000000c-0000-0000-0000-000000000001}\\";
const std::u16string kVolD = u"\\\\?\\Volume{0000000d-0000-0000-0000-000000000002}\\";
const std::u16string kVolE = u"\\\\?\\Volume{0000000e-0000-0000-0000-000000000003}\\";

// C: a folder and an image; D: a folder mount below C:; E: a drive that is
// also mounted below D:; two shadows, one with a folder, one an image only.
CVolumeTable MakeTable(std::string imageOfC = "/srv/c.img") {
    std::vector<TVolumeTableEntry> volumes(3);
    volumes[0].mountPoints = {u"C:"};
    volumes[0].volumeName = u"{0000000C-0000-0000-0000-000000000001}";
    volumes[0].folder = "/srv/c";
    volumes[0].device = imageOfC;
    volumes[1].mountPoints = {u"C:\\mnt\\data\\"};
    volumes[1].volumeName = kVolD;
    volumes[1].folder = "/srv/d";
    volumes[1].mountType = u"ext4";
    volumes[2].mountPoints = {u"C:\\mnt\\data\\e", u"E:"};
    volumes[2].volumeName = kVolE;
    volumes[2].folder = "/srv/e";
    volumes[2].driveType = kDriveRemovable;
    volumes[2].fileSystem = u"FAT32";
    volumes[2].label = u"STICK";
    std::vector<TShadowTableEntry> shadows = {{u"/dev/snap-c", "/dev/snap-c", "/mnt/snap-c"},
                                              {u"/srv/only.img", "/srv/only.img", ""}};
    return CVolumeTable(std::move(volumes), std::move(shadows));
}

TEST(VolumeTableTest, VolumePathNameAnswersInTheSpellingGiven) {
    CVolumeTable table = MakeTable();
    struct {
        std::u16string path, answer;
    } cases[] = {
        {u"\\\\?\\c:\\data\\x", u"\\\\?\\c:\\"},
        {u"C:\\MNT\\Data\\sub", u"C:\\MNT\\Data\\"},
        {u"C:\\mnt\\database", u"C:\\"},
        {u"C:\\mnt\\data\\e\\x\\y", u"C:\\mnt\\data\\e\\"},
        {u"C:/mnt/data", u"C:\\mnt\\data\\"},
        {u"e:", u"e:\\"},
        {kVolD + u"Users", kVolD},
        {u"x\\y", u"C:\\"},  // relative: the boot volume
    };
    for (const auto& c : cases) {
        std::u16string answer;
        ASSERT_TRUE(table.GetVolumePathName(c.path, answer, 260)) << util::Utf16ToUtf8(c.path);
        EXPECT_EQ(answer, c.answer);
    }
    std::u16string answer = u"untouched";
    EXPECT_FALSE(table.GetVolumePathName(u"Q:\\x", answer, 260));
    EXPECT_EQ(GetLastError(), kErrPathNotFound);
    SetLastError(5);
    EXPECT_FALSE(table.GetVolumePathName(u"", answer, 260));
    EXPECT_EQ(GetLastError(), kErrSuccess);
    EXPECT_FALSE(table.GetVolumePathName(u"\\\\?\\c:\\data", answer, 7));  // needs 8
    EXPECT_EQ(GetLastError(), kErrFilenameExcedRange);
    EXPECT_EQ(answer, u"untouched");
    EXPECT_TRUE(table.GetVolumePathName(u"\\\\?\\c:\\data", answer, 8));
}

TEST(VolumeTableTest, VolumeNameForMountPointNeedsTheTrailingSeparator) {
    CVolumeTable table = MakeTable();
    std::u16string name;
    ASSERT_TRUE(table.GetVolumeNameForVolumeMountPoint(u"C:\\", name, 50));
    EXPECT_EQ(name, kVolC);  // completed and lower-cased from "{0000000C-...}"
    ASSERT_TRUE(table.GetVolumeNameForVolumeMountPoint(u"c:\\MNT\\data\\", name, 50));
    EXPECT_EQ(name, kVolD);
    ASSERT_TRUE(table.GetVolumeNameForVolumeMountPoint(kVolE, name, 50));
    EXPECT_EQ(name, kVolE);
    struct {
        std::u16string mountPoint;
        uint32_t length, error;
    } failures[] = {
        {u"C:", 50, kErrInvalidName},
        {u"C:\\Windows\\", 50, kErrNotAReparsePoint},
        {u"Q:\\", 50, kErrFileNotFound},
        {u"C:\\", 49, kErrFilenameExcedRange},
    };
    for (const auto& f : failures) {
        EXPECT_FALSE(table.GetVolumeNameForVolumeMountPoint(f.mountPoint, name, f.length));
        EXPECT_EQ(GetLastError(), f.error) << util::Utf16ToUtf8(f.mountPoint);
    }
}

TEST(VolumeTableTest, PathNamesForVolumeNameListDrivesFirstAndAskForMoreRoom) {
    CVolumeTable table = MakeTable();
    std::vector<std::u16string> names;
    uint32_t needed = 0;
    EXPECT_FALSE(table.GetVolumePathNamesForVolumeName(kVolE, names, 10, &needed));
    EXPECT_EQ(GetLastError(), kErrMoreData);
    EXPECT_EQ(needed, 4u + 15u + 1u);  // "E:\", "C:\mnt\data\e\", each with its null, and one more
    ASSERT_TRUE(table.GetVolumePathNamesForVolumeName(kVolE, names, needed, &needed));
    EXPECT_EQ(names, (std::vector<std::u16string>{u"E:\\", u"C:\\mnt\\data\\e\\"}));
    EXPECT_FALSE(table.GetVolumePathNamesForVolumeName(kVolE.substr(0, kVolE.size() - 1), names,
                                                       2048, &needed));
    EXPECT_EQ(GetLastError(), kErrInvalidName);
}

TEST(VolumeTableTest, EnumerationsEndWithNoMoreFiles) {
    CVolumeTable table = MakeTable();
    std::u16string name;
    std::vector<std::u16string> seen;
    CVolumeFindHandle volumes = table.FindFirstVolume(name, 50);
    ASSERT_TRUE(volumes.IsValid());
    do seen.push_back(name);
    while (table.FindNextVolume(volumes, name, 50));
    EXPECT_EQ(GetLastError(), kErrNoMoreFiles);
    EXPECT_EQ(seen, (std::vector<std::u16string>{kVolC, kVolD, kVolE}));

    // Mount points that lie on a volume, relative to its root.
    CVolumeFindHandle onC = table.FindFirstVolumeMountPoint(u"C:\\", name, 261);
    ASSERT_TRUE(onC.IsValid());
    EXPECT_EQ(name, u"mnt\\data\\");
    EXPECT_FALSE(table.FindNextVolumeMountPoint(onC, name, 261));
    EXPECT_EQ(GetLastError(), kErrNoMoreFiles);
    CVolumeFindHandle onD = table.FindFirstVolumeMountPoint(kVolD, name, 261);
    ASSERT_TRUE(onD.IsValid());
    EXPECT_EQ(name, u"e\\");
    // The root must end in "\", as the real call wants it.
    EXPECT_FALSE(table.FindFirstVolumeMountPoint(u"C:", name, 261).IsValid());
    EXPECT_EQ(GetLastError(), kErrInvalidName);
}

TEST(VolumeTableTest, DriveTypeInformationAndDosDevices) {
    // An image whose boot sector says NTFS, with serial 0x12345678.
    char path[] = "/tmp/ngi-volume-XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    uint8_t sector[512] = {};
    std::memcpy(sector + 3, "NTFS    ", 8);
    sector[0x48] = 0x78, sector[0x49] = 0x56, sector[0x4A] = 0x34, sector[0x4B] = 0x12;
    ASSERT_EQ(write(fd, sector, sizeof sector), 512);
    close(fd);
    CVolumeTable table = MakeTable(path);

    EXPECT_EQ(table.GetDriveType(u"C:\\"), kDriveFixed);
    EXPECT_EQ(table.GetDriveType(kVolE), kDriveRemovable);
    EXPECT_EQ(table.GetDriveType(u"C:"), kDriveNoRootDir);
    EXPECT_EQ(table.GetDriveType(u"Q:\\"), kDriveNoRootDir);

    TVolumeInformation info;
    ASSERT_TRUE(table.GetVolumeInformation(u"C:\\", info, 261, 261));
    EXPECT_EQ(info.fileSystemName, u"NTFS");
    EXPECT_EQ(info.serialNumber, 0x12345678u);
    ASSERT_TRUE(table.GetVolumeInformation(u"C:\\mnt\\data\\", info, 261, 261));
    EXPECT_EQ(info.fileSystemName, u"ext4");  // no device: the mount's type
    ASSERT_TRUE(table.GetVolumeInformation(u"E:\\", info, 261, 261));
    EXPECT_EQ(info.fileSystemName, u"FAT32");  // set by the table
    EXPECT_EQ(info.volumeLabel, u"STICK");
    EXPECT_FALSE(table.GetVolumeInformation(u"E:\\", info, 5, 261));
    EXPECT_EQ(GetLastError(), kErrMoreData);
    unlink(path);

    std::vector<std::u16string> targets;
    EXPECT_EQ(table.QueryDosDevice(u"c:", targets, 260), 25u);
    EXPECT_EQ(targets, (std::vector<std::u16string>{u"\\Device\\HarddiskVolume1"}));
    EXPECT_EQ(table.QueryDosDevice(u"C:", targets, 24), 0u);
    EXPECT_EQ(GetLastError(), kErrInsufficientBuffer);
    EXPECT_EQ(table.QueryDosDevice(u"C:\\mnt\\data", targets, 260), 0u);
    EXPECT_EQ(GetLastError(), kErrFileNotFound);
}

TEST(VolumeTableTest, ResolvesDrivesVolumeNamesAndShadows) {
    CVolumeTable table = MakeTable();
    struct {
        std::u16string path;
        std::string base;
        std::u16string rest;
        bool device;
    } cases[] = {
        {u"C:\\Users\\x", "/srv/c", u"Users\\x", false},
        {u"c:", "/srv/c", u"", false},
        {u"\\\\?\\C:\\", "/srv/c", u"", false},
        {u"\\\\.\\C:", "/srv/c.img", u"", true},
        {kVolC.substr(0, kVolC.size() - 1), "/srv/c.img", u"", true},
        {kVolC + u"Users", "/srv/c", u"Users", false},
        {u"C:\\mnt\\data\\e\\f", "/srv/e", u"f", false},
        {u"\\\\.\\E:", "/srv/e", u"", false},  // no device: its folder
        {u"/dev/snap-c", "/dev/snap-c", u"", true},
        {u"/dev/snap-c\\Users\\x", "/mnt/snap-c", u"Users\\x", false},
    };
    for (const auto& c : cases) {
        const auto resolved = table.Resolve(c.path);
        ASSERT_TRUE(resolved) << util::Utf16ToUtf8(c.path);
        EXPECT_EQ(resolved->base, c.base) << util::Utf16ToUtf8(c.path);
        EXPECT_EQ(resolved->rest, c.rest) << util::Utf16ToUtf8(c.path);
        EXPECT_EQ(resolved->isDevice, c.device) << util::Utf16ToUtf8(c.path);
    }
    EXPECT_FALSE(table.Resolve(u"/srv/only.img\\x"));  // a shadow without folder can't be walked
    EXPECT_TRUE(table.Resolve(u"/srv/only.img"));
    EXPECT_FALSE(table.Resolve(u"/dev/snap-cc\\x"));
    EXPECT_FALSE(table.Resolve(u"Q:\\x"));
}

TEST(VolumeTableTest, SystemTableResolvesNativePathsAndStaysInsideTheVolume) {
    posix::SetSystemVolumeTable(std::make_shared<CVolumeTable>(MakeTable()));
    EXPECT_EQ(posix::ResolveVolumePath(u"C:\\Users\\x"), "/srv/c/Users/x");
    EXPECT_EQ(posix::ResolveVolumePath(u"C:\\a\\..\\..\\..\\etc"), "/srv/c/etc");
    EXPECT_EQ(posix::ResolveVolumePath(u"C:\\"), "/srv/c");
    EXPECT_EQ(posix::ResolveVolumePath(u"/tmp/x"), std::nullopt);
    posix::SetSystemVolumeTable(nullptr);
}

TEST(VolumeTableTest, RefusesContradictoryTables) {
    std::vector<TVolumeTableEntry> twice(2);
    twice[0].mountPoints = {u"C:"};
    twice[1].mountPoints = {u"c:\\"};
    EXPECT_THROW(CVolumeTable(twice, {}), CExc);
    std::vector<TVolumeTableEntry> badName(1);
    badName[0].volumeName = u"{not-a-guid}";
    EXPECT_THROW(CVolumeTable(badName, {}), CExc);
}

bool AllFolders(const std::string& path) { return path != "/etc/hosts"; }
bool SdaIsBlock(const std::string& path) { return path.rfind("/dev/sda", 0) == 0; }

TEST(VolumeTableTest, MachineMountsBecomeZAndFolderMounts) {
    const char* mountInfo =
        "21 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
        "22 21 0:5 / /proc rw - proc proc rw\n"
        "23 21 0:6 / /dev rw - devtmpfs udev rw\n"
        "24 21 8:2 / /srv/data rw shared:1 - ntfs3 /dev/sda2 rw\n"
        "25 21 8:2 / /srv/again rw - ntfs3 /dev/sda2 rw\n"
        "26 21 0:40 / /mnt/my\\040disk rw - tmpfs tmpfs rw\n"
        "27 21 8:1 /etc/hosts /etc/hosts rw - ext4 /dev/sda1 rw\n"
        "28 21 0:41 / /srv/net rw - nfs4 server:/x rw\n"
        "garbage line\n";
    CVolumeTable table = posix::BuildMountVolumeTable(mountInfo, AllFolders, SdaIsBlock);
    const auto& volumes = table.Volumes();
    ASSERT_EQ(volumes.size(), 4u);
    EXPECT_EQ(volumes[0].mountPoints, std::vector<std::u16string>{u"Z:"});
    EXPECT_EQ(volumes[0].device, "/dev/sda1");
    EXPECT_EQ(volumes[0].mountType, u"ext4");
    EXPECT_EQ(volumes[1].mountPoints,
              (std::vector<std::u16string>{u"Z:\\srv\\data", u"Z:\\srv\\again"}));
    EXPECT_EQ(volumes[1].mountType, u"NTFS");
    EXPECT_EQ(volumes[2].mountPoints, std::vector<std::u16string>{u"Z:\\mnt\\my disk"});
    EXPECT_EQ(volumes[2].driveType, kDriveRamdisk);
    EXPECT_EQ(volumes[3].driveType, kDriveRemote);
    // Names are stable: the same mounts give the same names.
    CVolumeTable again = posix::BuildMountVolumeTable(mountInfo, AllFolders, SdaIsBlock);
    for (size_t i = 0; i < volumes.size(); ++i)
        EXPECT_EQ(again.Volumes()[i].volumeName, volumes[i].volumeName);
    EXPECT_NE(volumes[0].volumeName, volumes[1].volumeName);
}

TEST(VolumeTableTest, RegistryWithoutVolumesLeavesTheMounts) {
    ngitest::CTempRegistry registry("[HKEY_LOCAL_MACHINE\\SYSTEM\\Other]\r\n\"x\"=\"y\"\r\n");
    EXPECT_FALSE(posix::LoadVolumeTableFromRegistry());
    posix::SetSystemVolumeTable(nullptr);
    // This machine's root file system stands in as Z:.
    std::u16string name;
    EXPECT_TRUE(GetVolumeNameForVolumeMountPoint(u"Z:\\", name, 50));
    EXPECT_EQ(posix::ResolveVolumePath(u"Z:\\etc"), "/etc");
    posix::SetSystemVolumeTable(nullptr);
}

}  // namespace
}  // namespace platform
