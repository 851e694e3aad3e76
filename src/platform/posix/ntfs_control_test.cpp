// The NTFS device controls and the file owner on Linux.

#include "platform/ntfs_control.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "base/utf.h"
#include "platform/accounts.h"
#include "platform/errors.h"
#include "testing/temp_dir.h"

namespace {

TEST(NtfsControl, DeviceControlsAreNotImplementedHere) {
    platform::TNtfsVolumeData data;
    EXPECT_FALSE(platform::GetNtfsVolumeData(0, data));
    EXPECT_EQ(platform::GetLastError(), platform::kErrInvalidFunction);
    uint8_t buffer[64];
    uint32_t returned = 7;
    EXPECT_FALSE(platform::GetNtfsFileRecord(0, 16, buffer, sizeof buffer, returned));
    EXPECT_EQ(platform::GetLastError(), platform::kErrInvalidFunction);
    EXPECT_EQ(returned, 0u);
}

TEST(NtfsControl, OwnerWithoutAWindowsDescriptorIsTheUnixUser) {
    ngitest::CTempDir dir;
    dir.WriteFile("f.txt", "x");
    std::vector<uint8_t> sid;
    ASSERT_TRUE(platform::GetFileOwnerSid(dir.Path(u"f.txt"), sid));
    std::u16string text;
    ASSERT_TRUE(platform::ConvertSidToStringSid(sid.data(), sid.size(), text));
    EXPECT_EQ(text, u"S-1-22-1-" + util::Utf8ToUtf16(std::to_string(::getuid())));

    EXPECT_FALSE(platform::GetFileOwnerSid(dir.Path(u"missing.txt"), sid));
    EXPECT_EQ(platform::GetLastError(), platform::kErrFileNotFound);
    EXPECT_FALSE(platform::GetFileOwnerSid(dir.Path(u"no/such/f.txt"), sid));
    EXPECT_EQ(platform::GetLastError(), platform::kErrPathNotFound);
}

}  // namespace
