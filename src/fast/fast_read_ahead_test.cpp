// Reading the $MFT ahead, with or without the asynchronous queue (io_uring,
// overlapped ReadFile), in large or small requests, and unbuffered: on every
// fixture image and shared sample the index file has the same bytes and the
// log the same lines as when the main loop reads block by block.
#include <gtest/gtest.h>

#include <algorithm>

#include "fast/fast_test_util.h"
#include "testing/log_capture.h"

using namespace ngitest::fast;
using TTuning = indexer::CBlockReadAhead::TTuning;

namespace {

struct TRun {
    std::vector<uint8_t> Index;
    std::u16string Log;
};

// Every run writes into the same folder, so that the log names the same files.
TRun IndexWith(const fs::path& image, const TReadOptions& read) {
    static ngitest::CTempDir out;
    fs::remove(out.Native() / "volume.C.ifd");
    indexer::CIncExcNode root(std::vector<std::u16string>{}, std::vector<std::u16string>{});
    TRun run;
    ngitest::CLogCapture capture;
    run.Index = ngitest::ntfs::ReadBytes(RunPipeline(image, root, out, {}, read));
    run.Log = capture.Text();
    return run;
}

TTuning Tuning(uint32_t depth, uint32_t requestKiB, bool async) {
    TTuning t;
    t.depth = depth;
    t.requestBytes = requestKiB << 10;
    t.async = async;
    return t;
}

class FastReadAhead : public ::testing::TestWithParam<TImage> {};

TEST_P(FastReadAhead, SameIndexAndLogAsBlockByBlock) {
    ngitest::CTempDir dir;
    const fs::path image = dir.Native() / "volume.img";
    ASSERT_TRUE(ngitest::ntfs::Decompress(GetParam().Gz, image));
    const TRun plain = IndexWith(image, {Tuning(0, 1024, true), false});
    ASSERT_FALSE(plain.Index.empty());
    const struct {
        const char* what;
        TReadOptions read;
    } cases[] = {
        {"asynchronous, depth 8, 1 MiB", {Tuning(8, 1024, true), false}},
        {"asynchronous, depth 1, one block", {Tuning(1, 256, true), false}},
        {"synchronous, depth 4, 2 MiB", {Tuning(4, 2048, false), false}},
        {"asynchronous, unbuffered", {Tuning(8, 1024, true), true}},
        {"no read-ahead, unbuffered", {Tuning(0, 1024, true), true}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        TRun run;
        try {
            run = IndexWith(image, c.read);
        } catch (const CExc&) {
            // Only the unbuffered cases may be refused, by a file system
            // without direct I/O (tmpfs).
            ASSERT_TRUE(c.read.DirectIo);
            continue;
        }
        EXPECT_TRUE(run.Index == plain.Index);
        EXPECT_EQ(U8(run.Log), U8(plain.Log));
    }
}

INSTANTIATE_TEST_SUITE_P(Images, FastReadAhead, ::testing::ValuesIn(AllImages()),
                         [](const auto& info) {
                             std::string name = info.param.Name;
                             for (char& c : name)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return name;
                         });

}  // namespace
