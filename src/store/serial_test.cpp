// Byte forms and the three file classes: sizes on disk, the failure texts,
// and the two short-read behaviours (zeros on CFileReader, a throw on
// CBuffFileReader).
#include <gtest/gtest.h>

#include "platform/errors.h"
#include "store/buff_file_reader.h"
#include "store/file_reader.h"
#include "store/file_writer.h"
#include "store/store_test_util.h"

using namespace idxdata;
using namespace store_testing;

namespace {

TEST(FileWriter, StringSizesOnDisk) {
    struct TCase {
        std::u16string text;
        size_t bytes;
    } cases[] = {
        {u"", 4},
        {u"a", 6},
        {u"name.txt", 20},
        {u"\U0001F600", 8},  // a surrogate pair is two units
    };
    CTempDir dir;
    for (const auto& c : cases) {
        CFileWriter w;
        w.Create(dir.Path(u"s.bin"));
        w.WriteString(c.text);
        w.Close();
        auto bytes = ReadAll(dir.Native("s.bin"));
        ASSERT_EQ(bytes.size(), c.bytes);
        EXPECT_EQ(GetU32(bytes.data()), c.text.size());
        EXPECT_EQ(std::memcmp(bytes.data() + 4, c.text.data(), c.text.size() * 2), 0);
    }
}

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

TEST(FileWriter, PrefixArgumentsAreCheckedBeforeWriting) {
    CTempDir dir;
    CFileWriter w;
    w.Create(dir.Path(u"p.bin"));
    EXPECT_CEXC(w.WritePrefix("TBL"), {
        EXPECT_EQ(Deepest(e), u"Invalid length of prefix CFileWriter::WritePrefix");
        EXPECT_EQ(e.GetCode(), kHrInvalidArg);
    });
    EXPECT_CEXC(w.WritePrefix(nullptr),
                EXPECT_EQ(Deepest(e), u"Invalid argument in CFileWriter::WritePrefix"));
    w.Close();
    EXPECT_TRUE(ReadAll(dir.Native("p.bin")).empty());
}

TEST(FileWriter, WritesAfterCloseThrowTheirOwnText) {
    CTempDir dir;
    CFileWriter w;
    w.Create(dir.Path(u"c.bin"));
    w.Close();
    w.Close();  // harmless
    EXPECT_FALSE(w.IsOpen());
    const std::pair<std::function<void()>, std::u16string> cases[] = {
        {[&] { w.WriteWord(1); }, u"Cannot write word in CFileWriter::WriteWord"},
        {[&] { w.WriteDWord(1); }, u"Cannot write word in CFileWriter::WriteDWord"},
        {[&] { w.WriteLongLong(1); }, u"Cannot write word in CFileWriter::WriteLongLong"},
        {[&] { w.WriteString(u"a"); }, u"Cannot write in CFileWriter::WriteString"},
        {[&] { w.WriteBuf("a", 1); }, u"Cannot write buf in CFileWriter::WriteBuf"},
    };
    for (const auto& [call, text] : cases) {
        EXPECT_CEXC(call(), {
            EXPECT_EQ(Deepest(e), text);
            EXPECT_EQ(e.GetCode(), kHrInvalidArg);
        });
    }
}

TEST(FileWriter, OpenAndCreateTextsDiffer) {
    CTempDir dir;
    CFileWriter w;
    const std::u16string missing = dir.Path(u"none\\x.bin");
    EXPECT_CEXC(w.Create(missing),
                EXPECT_EQ(First(e), u"idxdata::CFileWriter::Create fail. Cannot create file [" + missing + u"]."));
    EXPECT_CEXC(w.Open(missing, true, nullptr),
                EXPECT_EQ(First(e), u"idxdata::CFileWriter::Open fail. Cannot create file [" + missing + u"]"));
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
    EXPECT_CEXC(w.WriteDWord(1), {
        EXPECT_EQ(First(e), u"Cannot write file in CFileWriter::WriteDWord");
        EXPECT_EQ(e.GetCode(), NormaliseCode(platform::kErrDiskFull));
    });
    EXPECT_CEXC(w.WriteString(u"ab"), EXPECT_EQ(First(e), u"Cannot write file in CFileWriter::WriteString"));
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
}

TEST(FileReader, StringCutByTheEndHoldsWhatWasThere) {
    CTempDir dir;
    WriteAll(dir.Native("cut.bin"), {0xFF, 0xFF, 0xFF, 0xFF, 'a', 0, 'b', 0});
    CFileReader r;
    r.Open(dir.Path(u"cut.bin"));
    EXPECT_EQ(r.ReadString(), u"ab");
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

TEST(FileReader, FailureTexts) {
    CTempDir dir;
    CFileReader r;
    EXPECT_CEXC(r.Open(dir.Path(u"none.bin")), {
        EXPECT_EQ(First(e), u"Cannot open file CFileReader::Open");
        EXPECT_EQ(e.GetCode(), NormaliseCode(platform::kErrFileNotFound));
    });
    EXPECT_CEXC(r.ReadPrefix(nullptr), {
        EXPECT_EQ(Deepest(e), u"Invalid argument in CFileReader::ReadPrefix");
        EXPECT_EQ(e.GetCode(), kHrInvalidArg);
    });
    // On a closed reader every system call fails; the crossed texts stay.
    uint8_t b[1];
    EXPECT_CEXC(r.ReadBuf(b, 1), EXPECT_EQ(First(e), u"Cannot read file in CFileReader::ReadWord"));
    EXPECT_CEXC(r.GetCurFilePos(), EXPECT_EQ(First(e), u"Error in CFileWriter::GetCurFilePos"));
    EXPECT_CEXC(r.SetCurFilePos(0), EXPECT_EQ(First(e), u"Error in CFileReader::SetCurFilePos"));
    EXPECT_CEXC(r.ReadString(), EXPECT_EQ(First(e), u"Cannot read file in CFileReader::ReadString"));
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
}

TEST(BuffFileReader, OpenTwiceKeepsContentAndClosePosition) {
    CTempDir dir;
    WriteAll(dir.Native("a.bin"), {1, 0});
    WriteAll(dir.Native("b.bin"), {2, 0});
    CBuffFileReader r;
    r.Open(dir.Path(u"a.bin"));
    r.SetCurFilePos(1);
    r.Open(dir.Path(u"b.bin"));
    EXPECT_EQ(r.GetCurFilePos(), 1u);
    r.SetCurFilePos(0);
    EXPECT_EQ(r.ReadWord(), 1);
    r.Close();
    EXPECT_EQ(r.GetCurFilePos(), 0xFFFFFFFFu);
    r.Close();
    EXPECT_ANY_THROW(r.ReadWord());
}

TEST(BuffFileReader, FailureTexts) {
    CTempDir dir;
    CBuffFileReader r;
    EXPECT_CEXC(r.Open(dir.Path(u"none.bin")), EXPECT_EQ(First(e), u"Cannot open file CBuffFileReader::Open"));
    EXPECT_CEXC(r.SetCurFilePos(0xFFFFFFFFu), {
        EXPECT_EQ(First(e), u"Cannot set file position CBuffFileReader::SetCurFilePos");
        EXPECT_EQ(e.GetCode(), NormaliseCode(platform::kErrNotSupported));
    });
    EXPECT_CEXC(r.ReadPrefix(nullptr), EXPECT_EQ(Deepest(e), u"Invalid argument in CFileReader::ReadPrefix"));
}

TEST(BuffFileReader, EmptyFileReadsNothing) {
    CTempDir dir;
    WriteAll(dir.Native("empty.bin"), {});
    CBuffFileReader r;
    r.Open(dir.Path(u"empty.bin"));
    EXPECT_EQ(r.GetSize(), 0u);
    EXPECT_ANY_THROW(r.ReadWord());
}

}  // namespace
