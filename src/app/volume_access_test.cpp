// The boot-sector probe over a fake device and over real files, and the
// volume open of devices, images and folder-only volumes.
#include "app/volume_access.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

#include "platform/errors.h"
#include "testing/log_capture.h"
#include "testing/temp_dir.h"

namespace {

using indexer::GetVolumeFileSystemType;

// A device of `sectorSize`-byte sectors that fails any read of another size,
// as a raw disk does; `bytes` are what it holds.
class CFakeDevice : public indexer::IBootSectorSource {
public:
    CFakeDevice(uint32_t sectorSize, std::string bytes) : m_SectorSize(sectorSize), m_Bytes(std::move(bytes)) {}
    bool SeekToStart() override { return ++m_Seeks > 0; }
    bool Read(void* buffer, uint32_t size, uint32_t* done) override {
        m_Sizes.push_back(size);
        if (size % m_SectorSize != 0) {
            platform::SetLastError(platform::kErrInvalidParameter);
            return false;
        }
        *done = static_cast<uint32_t>(std::min<size_t>(size, m_Bytes.size()));
        std::memcpy(buffer, m_Bytes.data(), *done);
        return true;
    }
    uint32_t m_SectorSize;
    std::string m_Bytes;
    int m_Seeks = 0;
    std::vector<uint32_t> m_Sizes;
};

std::string BootSector(const char* oem, size_t size = 8192) {
    std::string b(size, '\0');
    b.replace(3, std::strlen(oem), oem);
    return b;
}

TEST(GetVolumeFileSystemType, NamesTheFileSystemOfTheBootSector) {
    const std::vector<std::pair<const char*, uint32_t>> cases = {
        {"NTFS    ", indexer::kFsTypeNtfs}, {"ReFS\0\0\0\0", indexer::kFsTypeReFS},
        {"NTFS", indexer::kFsTypeUnknown},  // the four blanks belong to the name
        {"MSDOS5.0", indexer::kFsTypeUnknown}, {"", indexer::kFsTypeUnknown}};
    for (const auto& [oem, code] : cases) {
        SCOPED_TRACE(oem);
        CFakeDevice device(512, BootSector(oem));
        EXPECT_EQ(GetVolumeFileSystemType(device), code);
    }
    // A device of 4096-byte sectors refuses the first three rounds.
    ngitest::CLogCapture log;
    CFakeDevice device(4096, BootSector("NTFS    "));
    EXPECT_EQ(GetVolumeFileSystemType(device), indexer::kFsTypeNtfs);
    EXPECT_EQ(device.m_Sizes, (std::vector<uint32_t>{512, 1024, 2048, 4096}));
    EXPECT_EQ(device.m_Seeks, 4);
    EXPECT_TRUE(log.Contains(u"Boot sector was read with sector size 4096 bytes."));
}

TEST(GetVolumeFileSystemType, GivesUpAfterTheLargestRound) {
    CFakeDevice tooBig(0x20000, BootSector("NTFS    "));
    EXPECT_THROW(GetVolumeFileSystemType(tooBig), CWin32Exc);
    EXPECT_EQ(tooBig.m_Sizes.back(), 0x10000u);  // the largest round
}

TEST(OpenVolume, ImagesReadTheirBytesAndFoldersReadZeros) {
    ngitest::CTempDir dir;
    std::ofstream(dir.Native() / "ntfs.img", std::ios::binary) << BootSector("NTFS    ", 4096);
    std::filesystem::create_directories(dir.Native() / "folder" / "sub");
    {
        const platform::CHandle image = indexer::OpenVolume(dir.Path(u"ntfs.img"));
        EXPECT_EQ(GetVolumeFileSystemType(image.Get()), indexer::kFsTypeNtfs);
    }
    {
        const platform::CHandle folder = indexer::OpenVolume(dir.Path(u"folder"));
        EXPECT_EQ(GetVolumeFileSystemType(folder.Get()), indexer::kFsTypeUnknown);
        char bytes[8] = {1, 1, 1, 1, 1, 1, 1, 1};
        uint32_t done = 0;
        ASSERT_TRUE(platform::FileRead(folder.Get(), bytes, sizeof bytes, &done));
        EXPECT_EQ(done, 8u);
        EXPECT_EQ(std::string(bytes, 8), std::string(8, '\0'));
    }
    try {
        indexer::OpenVolume(dir.Path(u"missing"));
        ADD_FAILURE();
    } catch (const CWin32Exc& e) {
        EXPECT_EQ(e.GetWin32Error(), platform::kErrFileNotFound);
    }
}

}  // namespace
