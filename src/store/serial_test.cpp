// The file classes' failures: a failed write, and the two short-read
// behaviours (zeros on CFileReader, a throw on CBuffFileReader). The byte
// forms are checked by the records' rows and the index's worked example.
#include <gtest/gtest.h>

#include "platform/errors.h"
#include "store/buff_file_reader.h"
#include "store/file_reader.h"
#include "store/file_writer.h"
#include "store/store_test_util.h"

using namespace idxdata;
using namespace store_testing;

namespace {

// /dev/full refuses every write with "disk full": a failing handle for free.
TEST(FileWriter, FailedWriteIsWin32) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
    CFileWriter w;
    w.Create(u"/dev/full");
    EXPECT_CEXC(w.WriteDWord(1), EXPECT_EQ(e.GetCode(), NormaliseCode(platform::kErrDiskFull)));
}

TEST(FileReader, ShortReadsGiveZerosAndEmptyStrings) {
    CTempDir dir;
    WriteAll(dir.Native("short.bin"), {0x11, 0x22});
    CFileReader r;
    r.Open(dir.Path(u"short.bin"));
    EXPECT_EQ(r.ReadDWord(), 0x2211u);  // two bytes there, two zeros
    EXPECT_EQ(r.ReadDWord(), 0u);
    EXPECT_EQ(r.ReadString(), u"");
    // A string cut by the end holds what was there.
    WriteAll(dir.Native("cut.bin"), {0xFF, 0xFF, 0xFF, 0xFF, 'a', 0, 'b', 0});
    CFileReader cut;
    cut.Open(dir.Path(u"cut.bin"));
    EXPECT_EQ(cut.ReadString(), u"ab");
}

TEST(BuffFileReader, ReadPastTheEndThrowsAndKeepsThePosition) {
    CTempDir dir;
    WriteAll(dir.Native("b.bin"), {1, 0, 0, 0, 9, 9, 9});
    CBuffFileReader r;
    r.Open(dir.Path(u"b.bin"));
    EXPECT_EQ(r.GetSize(), 7u);
    EXPECT_EQ(r.ReadDWord(), 1u);
    EXPECT_CEXC(r.ReadDWord(), {
        EXPECT_EQ(Deepest(e), u"The specified size is out of the buffer boundary.");
        EXPECT_EQ(e.GetCode(), kHrFail);
    });
    EXPECT_EQ(r.GetCurFilePos(), 4u);
    EXPECT_EQ(r.ReadWord(), 0x0909);
    // A count far larger than the file throws before anything is sized.
    r.SetCurFilePos(3);
    EXPECT_CEXC(r.ReadString(), EXPECT_EQ(Deepest(e), u"The specified size is out of the buffer boundary."));
    EXPECT_EQ(r.GetCurFilePos(), 3u);
    // Two units where only one is left: the count is checked in bytes.
    WriteAll(dir.Native("s.bin"), {2, 0, 0, 0, 'a', 0});
    CBuffFileReader s;
    s.Open(dir.Path(u"s.bin"));
    EXPECT_CEXC(s.ReadString(), EXPECT_EQ(Deepest(e), u"The specified size is out of the buffer boundary."));
    EXPECT_EQ(s.GetCurFilePos(), 0u);
}

}  // namespace
