// CTableStream against the rows CIndexBase wrote: rows across window
// boundaries, a row larger than the window, strings at odd offsets, and
// damage found at the row it is in.
#include <gtest/gtest.h>

#include "store/buff_file_reader.h"
#include "store/index_base.h"
#include "store/store_test_util.h"
#include "store/table_stream.h"

using idxdata::CTableStream;
using namespace store_testing;

namespace {

struct TRow {
    std::u16string name;
    uint64_t position, parent, time, size;
    uint32_t owner;
};

// Streams the files table of `path`, checked through the store's readers.
CTableStream FilesOf(const std::u16string& path, idxdata::CBuffFileReader& reader) {
    reader.Open(path);
    idxdata::CDataFileReader data(reader, path, reader.GetSize());
    return CTableStream(path, data.OpenSeqTable(idxdata::TableFiles, rec::CFileRecord()), rec::CFileRecord());
}

TEST(TableStream, ReadsEveryRowAcrossWindowsAndAGrownWindow) {
    CTempDir dir;
    std::vector<TRow> rows;
    {
        indexer::CIndexBase base;
        base.Open(dir.Dir(), false, u"v.ifd");
        for (uint64_t i = 0; i < 40000; ++i) {
            // Lengths 0..299 units; one name larger than the whole window.
            std::u16string name(i == 20000 ? CTableStream::kWindowSize : i % 300, static_cast<char16_t>(u'a' + i % 26));
            const uint64_t position = base.AddFile(name, static_cast<uint32_t>(i * 3), i / 7, i * 11, i * 13, nullptr);
            rows.push_back({name, position, i / 7, i * 13, i * 11, static_cast<uint32_t>(i * 3)});
        }
        base.Close();
    }
    idxdata::CBuffFileReader reader;
    CTableStream stream = FilesOf(dir.Path(u"v.ifd"), reader);
    ASSERT_EQ(stream.GetRowCount(), rows.size());
    for (const TRow& row : rows) {
        ASSERT_TRUE(stream.Next());
        ASSERT_EQ(stream.GetRowPos(), row.position);
        ASSERT_EQ(stream.String(0), row.name);
        ASSERT_EQ(stream.Qword(1), row.parent);
        ASSERT_EQ(stream.Dword(2), row.owner);
        ASSERT_EQ(stream.Qword(3), row.time);
        ASSERT_EQ(stream.Qword(4), row.size);
    }
    EXPECT_FALSE(stream.Next());
    EXPECT_FALSE(stream.Next());
}

// A table placed at an odd offset: its strings are not aligned for
// char16_t and are handed out as copies.
TEST(TableStream, StringsAtOddOffsetsComeBackWhole) {
    CTempDir dir;
    {
        indexer::CIndexBase base;
        base.Open(dir.Dir(), false, u"v.ifd");
        base.AddOwner(u"S-1-0-0", u"", u"", nullptr);
        base.AddOwner(u"S-1-5-18", u"SYSTEM", u"NT AUTHORITY", nullptr);
        base.Close();
    }
    const std::vector<uint8_t> bytes = ReadAll(dir.Native("v.ifd"));
    // The owners table (the third), one byte later in a new file.
    uint64_t start = 0;
    for (int i = 0; i < 2; ++i) start = U64At(bytes, start + 8);
    const uint64_t end = U64At(bytes, start + 8);
    std::vector<uint8_t> shifted{0xEE};
    shifted.insert(shifted.end(), bytes.begin() + static_cast<std::ptrdiff_t>(start),
                   bytes.begin() + static_cast<std::ptrdiff_t>(end));
    WriteAll(dir.Native("odd.bin"), shifted);
    const idxdata::TTableInfo table{idxdata::TableOwners, 1, 1 + end - start, 3};
    CTableStream stream(dir.Path(u"odd.bin"), table, idxdata::TableHeaderSize(3), 2, rec::COwnerRecord());
    ASSERT_TRUE(stream.Next());
    EXPECT_EQ(stream.String(0), u"S-1-0-0");
    ASSERT_TRUE(stream.Next());
    EXPECT_EQ(stream.String(0), u"S-1-5-18");
    EXPECT_EQ(stream.String(1), u"SYSTEM");
    EXPECT_EQ(stream.String(2), u"NT AUTHORITY");
    EXPECT_FALSE(stream.Next());
}

TEST(TableStream, DamageIsReportedAtItsRow) {
    CTempDir dir;
    uint64_t second = 0;
    {
        indexer::CIndexBase base;
        base.Open(dir.Dir(), false, u"v.ifd");
        base.AddFile(u"one", 0, 0, 1, 1, nullptr);
        second = base.AddFile(u"two", 0, 0, 2, 2, nullptr);
        base.Close();
    }
    const std::vector<uint8_t> good = ReadAll(dir.Native("v.ifd"));
    auto streamAll = [&](const std::vector<uint8_t>& bytes) {
        WriteAll(dir.Native("d.ifd"), bytes);
        idxdata::CBuffFileReader reader;
        CTableStream stream = FilesOf(dir.Path(u"d.ifd"), reader);
        while (stream.Next()) stream.String(0);
    };
    std::vector<uint8_t> longName = good;
    idxdata::PutU32(longName.data() + second, 1000);
    EXPECT_CEXC(streamAll(longName), {
        EXPECT_NE(Deepest(e).find(u"offset 0x" + util::Hex16(second) + u": a string of 1000 units runs past"),
                  std::u16string::npos);
    });
    std::vector<uint8_t> fewer = good;
    idxdata::PutU64(fewer.data() + 38, 1);
    EXPECT_CEXC(streamAll(fewer), {
        EXPECT_NE(Deepest(e).find(u"bytes follow the last of 1 rows"), std::u16string::npos);
    });

    // The file shrinks under an open stream.
    WriteAll(dir.Native("d.ifd"), good);
    idxdata::CBuffFileReader reader;
    CTableStream stream = FilesOf(dir.Path(u"d.ifd"), reader);
    std::filesystem::resize_file(dir.Native("d.ifd"), second + 6);
    EXPECT_TRUE(stream.Next());
    EXPECT_CEXC(stream.Next(), {
        EXPECT_NE(Deepest(e).find(u"the file ends before the table does"), std::u16string::npos);
    });
}

}  // namespace
