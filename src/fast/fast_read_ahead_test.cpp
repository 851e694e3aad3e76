// Reading the $MFT ahead, with or without the asynchronous queue (io_uring,
// overlapped ReadFile), in large or small requests, and unbuffered: on every
// fixture image and shared sample the index file has the same bytes and the
// log the same lines as when the main loop reads block by block.
#include <gtest/gtest.h>

#include "fast/fast_test_util.h"
#include "testing/log_capture.h"

using namespace ngitest::fast;

namespace {

// The index bytes and the log; every run writes into the same folder, so
// that the log names the same files.
std::pair<std::vector<uint8_t>, std::string> IndexWith(const fs::path& image, uint32_t depth, uint32_t requestKiB,
                                                       bool async, bool directIo) {
    static ngitest::CTempDir out;
    fs::remove(out.Native() / "volume.C.ifd");
    indexer::CIncExcNode root(std::vector<std::u16string>{}, std::vector<std::u16string>{});
    indexer::CBlockReadAhead::TTuning tuning;
    tuning.depth = depth;
    tuning.requestBytes = requestKiB << 10;
    tuning.async = async;
    ngitest::CLogCapture capture;
    std::vector<uint8_t> index = ngitest::ntfs::ReadBytes(RunPipeline(image, root, out, {}, {tuning, directIo}));
    return {index, U8(capture.Text())};
}

class FastReadAhead : public ::testing::TestWithParam<ngitest::ntfs::TImage> {};

TEST_P(FastReadAhead, SameIndexAndLogAsBlockByBlock) {
    const fs::path image = ngitest::ntfs::UnpackedImage(GetParam());
    ASSERT_FALSE(image.empty());
    const auto plain = IndexWith(image, 0, 1024, true, false);
    ASSERT_FALSE(plain.first.empty());
    const struct {
        const char* what;
        uint32_t depth, requestKiB;
        bool async, directIo;
    } cases[] = {
        {"asynchronous, depth 8, 1 MiB", 8, 1024, true, false},
        {"asynchronous, depth 1, one block", 1, 256, true, false},
        {"synchronous, depth 4, 2 MiB", 4, 2048, false, false},
        {"asynchronous, unbuffered", 8, 1024, true, true},
        {"no read-ahead, unbuffered", 0, 1024, true, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        try {
            const auto run = IndexWith(image, c.depth, c.requestKiB, c.async, c.directIo);
            EXPECT_TRUE(run.first == plain.first);
            EXPECT_EQ(run.second, plain.second);
        } catch (const CExc&) {
            // Only unbuffered reads may be refused, by a file system without
            // direct I/O (tmpfs).
            EXPECT_TRUE(c.directIo);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Images, FastReadAhead, ::testing::ValuesIn(ngitest::ntfs::AllImages()),
                         ngitest::ntfs::TImageTestName());

}  // namespace
