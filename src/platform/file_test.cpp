// Reading and writing through a file handle, the same on both systems.

#include "platform/file.h"

#include <gtest/gtest.h>

#include "testing/temp_dir.h"

namespace platform {
namespace {

TEST(FileHandle, ReadWriteSeekSizeEnd) {
    ngitest::CTempDir dir;
    CHandle h = FileOpen(dir.Path(u"f"), kGenericRead | kGenericWrite, 0, kCreateNew, 0);
    ASSERT_TRUE(h.IsValid());
    uint32_t done = 0;
    ASSERT_TRUE(FileWrite(h.Get(), "0123456789", 10, &done));
    EXPECT_EQ(done, 10u);
    int64_t pos = -1, size = -1;
    ASSERT_TRUE(FileSeek(h.Get(), -4, &pos, kFileEnd));
    EXPECT_EQ(pos, 6);
    char buf[16] = {};
    ASSERT_TRUE(FileRead(h.Get(), buf, sizeof buf, &done));
    EXPECT_EQ(done, 4u);  // a short read at the end succeeds
    EXPECT_STREQ(buf, "6789");
    ASSERT_TRUE(FileRead(h.Get(), buf, sizeof buf, &done));
    EXPECT_EQ(done, 0u);
    ASSERT_TRUE(FileSeek(h.Get(), 3, nullptr, kFileBegin));
    ASSERT_TRUE(FileSetEnd(h.Get()));
    ASSERT_TRUE(FileGetSize(h.Get(), &size));
    EXPECT_EQ(size, 3);
    EXPECT_TRUE(FileFlush(h.Get()));
    uint64_t written = 0;
    ASSERT_TRUE(FileGetTimes(h.Get(), nullptr, nullptr, &written));
    EXPECT_GT(written, 116444736000000000ull);  // after 1970
    EXPECT_FALSE(FileSeek(h.Get(), -1, nullptr, kFileBegin));
    EXPECT_FALSE(FileSeek(h.Get(), 0, nullptr, 7));
    EXPECT_TRUE(h.Close());
    EXPECT_FALSE(h.IsValid());
}

}  // namespace
}  // namespace platform
