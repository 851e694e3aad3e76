// The file owner on Linux.

#include "platform/ntfs_control.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "base/utf.h"
#include "platform/accounts.h"
#include "platform/errors.h"
#include "testing/temp_dir.h"

namespace {

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
