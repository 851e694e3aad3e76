// The read queue on a handle opened for overlapped I/O, as the volume is
// when it is read ahead: the asynchronous form where asked for (io_uring on
// Linux, overlapped ReadFile on Windows) and the synchronous one; reads
// ended in any order with their tags, a scatter read over slices, a read at
// the end of the file short, a read at an offset of the same handle while
// others are in flight, a bad handle's error.

#include "platform/read_queue.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "platform/errors.h"
#include "testing/temp_dir.h"

namespace {

class ReadQueue : public ::testing::TestWithParam<bool> {};

TEST_P(ReadQueue, ReadsEndWithTheirTagsAndBytes) {
    ngitest::CTempDir dir;
    std::string bytes(100000, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 31 + i / 977);
    dir.WriteFile("f.bin", bytes);
    platform::CHandle file = platform::FileOpen(dir.Path(u"f.bin"), platform::kGenericRead, platform::kShareRead,
                                                platform::kOpenExisting, platform::kFlagOverlapped);
    ASSERT_TRUE(file.IsValid());
    auto queue = platform::CReadQueue::Make(file.Get(), 4, GetParam());
    EXPECT_EQ(queue->IsAsync(), GetParam());
    std::vector<char> a(3000), b1(1000), b2(2000), c(5000);
    const platform::TReadSlice sa[] = {{a.data(), 3000}};
    const platform::TReadSlice sb[] = {{b1.data(), 1000}, {b2.data(), 2000}};
    const platform::TReadSlice sc[] = {{c.data(), 5000}};
    queue->Submit(50000, sa, 1, 7);
    queue->Submit(10, sb, 2, 8);
    queue->Submit(97000, sc, 1, 9);  // 3,000 bytes before the end
    EXPECT_EQ(queue->Outstanding(), 3u);

    // The cache reads blocks outside the plan itself, meanwhile.
    char at[100];
    uint32_t done = 1;
    ASSERT_TRUE(platform::FileReadAt(file.Get(), 99950, at, sizeof at, &done));
    EXPECT_EQ(std::string(at, done), bytes.substr(99950));
    ASSERT_TRUE(platform::FileReadAt(file.Get(), 200000, at, sizeof at, &done));
    EXPECT_EQ(done, 0u);

    std::map<uint64_t, platform::TReadResult> ended;
    while (queue->Outstanding() > 0) {
        const platform::TReadResult r = queue->Reap();
        ended[r.Tag] = r;
    }
    ASSERT_EQ(ended.size(), 3u);
    for (const auto& [tag, r] : ended) {
        EXPECT_EQ(r.Error, 0u) << tag;
        EXPECT_EQ(r.Done, 3000u) << tag;
    }
    EXPECT_EQ(std::string(a.data(), 3000), bytes.substr(50000, 3000));
    EXPECT_EQ(std::string(b1.data(), 1000) + std::string(b2.data(), 2000), bytes.substr(10, 3000));
    EXPECT_EQ(std::string(c.data(), 3000), bytes.substr(97000, 3000));

    auto bad = platform::CReadQueue::Make(platform::kInvalidHandle, 1, GetParam());
    char x[16];
    const platform::TReadSlice sx[] = {{x, 16}};
    bad->Submit(0, sx, 1, 1);
    EXPECT_EQ(bad->Reap().Error, platform::kErrInvalidHandle);
}

INSTANTIATE_TEST_SUITE_P(Forms, ReadQueue, ::testing::Values(true, false),
                         [](const auto& info) { return info.param ? "asynchronous" : "synchronous"; });

}  // namespace
