// The read queue on Linux: io_uring where asked for (this kernel has it),
// reads ended in any order with their tags, a scatter read over slices, a
// read at the end of the file short, a bad handle's error; the synchronous
// form alike.

#include "platform/read_queue.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

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
    const int fd = ::open((dir.Native() / "f.bin").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    {
        auto queue = platform::CReadQueue::Make(fd, 4, GetParam());
        EXPECT_EQ(queue->IsAsync(), GetParam());
        std::vector<char> a(3000), b1(1000), b2(2000), c(5000);
        const platform::TReadSlice sa[] = {{a.data(), 3000}};
        const platform::TReadSlice sb[] = {{b1.data(), 1000}, {b2.data(), 2000}};
        const platform::TReadSlice sc[] = {{c.data(), 5000}};
        queue->Submit(50000, sa, 1, 7);
        queue->Submit(10, sb, 2, 8);
        queue->Submit(97000, sc, 1, 9);  // 3,000 bytes before the end
        EXPECT_EQ(queue->Outstanding(), 3u);
        std::map<uint64_t, platform::TReadResult> done;
        while (queue->Outstanding() > 0) {
            const platform::TReadResult r = queue->Reap();
            done[r.Tag] = r;
        }
        ASSERT_EQ(done.size(), 3u);
        EXPECT_EQ(done[7].Done, 3000u);
        EXPECT_EQ(done[8].Done, 3000u);
        EXPECT_EQ(done[9].Done, 3000u);
        for (const auto& [tag, r] : done) EXPECT_EQ(r.Error, 0u) << tag;
        EXPECT_EQ(std::string(a.data(), 3000), bytes.substr(50000, 3000));
        EXPECT_EQ(std::string(b1.data(), 1000) + std::string(b2.data(), 2000), bytes.substr(10, 3000));
        EXPECT_EQ(std::string(c.data(), 3000), bytes.substr(97000, 3000));
    }
    ::close(fd);
    auto bad = platform::CReadQueue::Make(-1, 1, GetParam());
    char x[16];
    const platform::TReadSlice sx[] = {{x, 16}};
    bad->Submit(0, sx, 1, 1);
    EXPECT_EQ(bad->Reap().Error, platform::kErrInvalidHandle);
}

INSTANTIATE_TEST_SUITE_P(Forms, ReadQueue, ::testing::Values(true, false),
                         [](const auto& info) { return info.param ? "io_uring" : "synchronous"; });

}  // namespace
