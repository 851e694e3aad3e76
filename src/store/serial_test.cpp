// Byte forms and the three file classes: the bytes on disk, refused writes,
// and the two short-read behaviours (zeros on CFileReader, a throw on
// CBuffFileReader).
#include <gtest/gtest.h>

#include <functional>

#include "platform/errors.h"
#include "store/buff_file_reader.h"
#include "store/file_reader.h"
#include "store/file_writer.h"
#include "store/store_test_util.h"

using namespace idxdata;
using namespace store_testing;

namespace {

TEST(FileWriter, AllFormsRoundTripThroughBothReaders) {
    CTempDir dir;
    const std::u16string name = dir.Path(u"forms.bin");
    {
        CFileWriter w;
        w.Create(name);
        w.WritePrefix("TBLX");
        w.WriteVersion(1, 2);
        w.WriteWord(0xBEEF);
        w.WriteDWord(0xDEADBEEF);
        w.WriteLongLong(~uint64_t{0});
        w.WriteString(u"x\u00e9");
        const uint8_t raw[3] = {7, 8, 9};
        w.WriteBuf(raw, 3);
        EXPECT_EQ(w.GetCurFilePos(), 4u + 4 + 2 + 4 + 8 + 8 + 3);
    }
    const std::vector<uint8_t> expected = {'T', 'B', 'L', 'X', 1, 0, 2, 0, 0xEF, 0xBE, 0xEF, 0xBE, 0xAD,
                                           0xDE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 2, 0, 0,
                                           0, 'x', 0, 0xE9, 0, 7, 8, 9};
    EXPECT_EQ(ReadAll(dir.Native("forms.bin")), expected);

    CFileReader plain;
    CBuffFileReader buffered;
    for (IReader* r : {static_cast<IReader*>(&plain), static_cast<IReader*>(&buffered)}) {
        r->Open(name);
        char prefix[4];
        r->ReadPrefix(prefix);
        EXPECT_EQ(std::string(prefix, 4), "TBLX");
        EXPECT_EQ(r->ReadWord(), 1);
        EXPECT_EQ(r->ReadWord(), 2);
        EXPECT_EQ(r->ReadWord(), 0xBEEF);
        EXPECT_EQ(r->ReadDWord(), 0xDEADBEEFu);
        EXPECT_EQ(r->ReadLongLong(), ~uint64_t{0});
        EXPECT_EQ(r->ReadString(), u"x\u00e9");
        EXPECT_EQ(r->GetCurFilePos(), 30u);
        r->SetCurFilePos(8);
        EXPECT_EQ(r->ReadWord(), 0xBEEF);
        r->Close();
    }
}

// A refused prefix and writes on a closed writer throw and write nothing.
TEST(FileWriter, RefusedWritesLeaveTheFileAlone) {
    CTempDir dir;
    CFileWriter w;
    w.Create(dir.Path(u"p.bin"));
    EXPECT_CEXC(w.WritePrefix("TBL"), EXPECT_EQ(e.GetCode(), kHrInvalidArg));
    EXPECT_CEXC(w.WritePrefix(nullptr), EXPECT_EQ(e.GetCode(), kHrInvalidArg));
    w.Close();
    w.Close();  // harmless
    for (const auto& call : std::vector<std::function<void()>>{
             [&] { w.WriteWord(1); }, [&] { w.WriteDWord(1); }, [&] { w.WriteLongLong(1); },
             [&] { w.WriteString(u"a"); }, [&] { w.WriteBuf("a", 1); }})
        EXPECT_CEXC(call(), EXPECT_EQ(e.GetCode(), kHrInvalidArg));
    EXPECT_TRUE(ReadAll(dir.Native("p.bin")).empty());
}

TEST(FileWriter, OpenSeeksToTheEnd) {
    CTempDir dir;
    WriteAll(dir.Native("e.bin"), {1, 2, 3});
    CFileWriter w;
    uint64_t end = 0;
    w.Open(dir.Path(u"e.bin"), true, &end);
    EXPECT_EQ(end, 3u);
    w.WriteWord(0x0504);
    w.Close();
    EXPECT_EQ(ReadAll(dir.Native("e.bin")), (std::vector<uint8_t>{1, 2, 3, 4, 5}));
}

// /dev/full refuses every write with "disk full": a failing handle for free.
TEST(FileWriter, FailedWriteIsWin32) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
    CFileWriter w;
    w.Create(u"/dev/full");
    EXPECT_CEXC(w.WriteDWord(1), EXPECT_EQ(e.GetCode(), NormaliseCode(platform::kErrDiskFull)));
    EXPECT_CEXC(w.WriteString(u"ab"), EXPECT_EQ(e.GetCode(), NormaliseCode(platform::kErrDiskFull)));
}

TEST(FileReader, ShortReadsGiveZerosAndEmptyStrings) {
    CTempDir dir;
    WriteAll(dir.Native("short.bin"), {0x11, 0x22});
    CFileReader r;
    r.Open(dir.Path(u"short.bin"));
    EXPECT_EQ(r.ReadBuf(nullptr, 0), 0u);
    EXPECT_EQ(r.GetCurFilePos(), 0u);
    EXPECT_EQ(r.ReadDWord(), 0x2211u);  // two bytes there, two zeros
    EXPECT_EQ(r.ReadDWord(), 0u);
    EXPECT_EQ(r.ReadLongLong(), 0u);
    EXPECT_EQ(r.ReadString(), u"");
    uint8_t buf[8];
    r.SetCurFilePos(1);
    EXPECT_EQ(r.ReadBuf(buf, 8), 1u);
    // A string cut by the end holds what was there.
    WriteAll(dir.Native("cut.bin"), {0xFF, 0xFF, 0xFF, 0xFF, 'a', 0, 'b', 0});
    CFileReader cut;
    cut.Open(dir.Path(u"cut.bin"));
    EXPECT_EQ(cut.ReadString(), u"ab");
}

TEST(FileReader, DeleteOnCloseRemovesTheFileOnce) {
    CTempDir dir;
    WriteAll(dir.Native("d.bin"), {1});
    {
        CFileReader r;
        r.Open(dir.Path(u"d.bin"));
        r.SetDeleteOnClose();
        r.Close();
        EXPECT_FALSE(std::filesystem::exists(dir.Native("d.bin")));
        WriteAll(dir.Native("d.bin"), {1});
        r.Close();  // the name is forgotten: nothing happens
    }
    EXPECT_TRUE(std::filesystem::exists(dir.Native("d.bin")));
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
    // A position past the end is stored; the next read fails.
    r.SetCurFilePos(100);
    EXPECT_EQ(r.GetCurFilePos(), 100u);
    EXPECT_ANY_THROW(r.ReadWord());
    WriteAll(dir.Native("empty.bin"), {});
    CBuffFileReader empty;
    empty.Open(dir.Path(u"empty.bin"));
    EXPECT_ANY_THROW(empty.ReadWord());
}

}  // namespace
