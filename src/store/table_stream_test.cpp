// CTableStream against the rows CIndexBase wrote, over several chunk sizes
// with and without the read-ahead thread: rows cut by chunk boundaries, rows
// larger than a chunk and its carry room, and damage
// found at the row it is in even when the reader has gone past it.
#include <gtest/gtest.h>

#include "base/utf.h"
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

// Chunk settings worth running every reading test over.
struct TCase {
    const char* what;
    CTableStream::TTuning tuning;
};
constexpr uint64_t kAlways = 0, kNever = ~uint64_t{0};
const TCase kCases[] = {
    {"default, read ahead", {256u << 10, 64u << 10, 4, kAlways}},
    // Nearly every row is cut and larger than the carry room: gathered.
    {"7-byte chunks, 2 bytes of carry, no thread", {7, 2, 4, kNever}},
    // The reader hands over to the caller as soon as it is not ahead.
    {"64-byte chunks, read ahead in 3 slots, never waited for", {64, 64, 3, kAlways, 0}},
};

// The position of a table in a file, as the header check finds it.
struct TTablePlace {
    idxdata::TTableInfo table;
    uint64_t firstRowPos = 0, rowCount = 0;
};
TTablePlace TableOf(const std::u16string& path, idxdata::ETableId id, const idxdata::IRecord& schema) {
    idxdata::CBuffFileReader reader;
    reader.Open(path);
    idxdata::CDataFileReader data(reader, path, reader.GetSize());
    const idxdata::CSeqTableReader checked = data.OpenSeqTable(id, schema);
    return {checked.GetTable(), checked.GetFirstRowPos(), checked.GetRowCount()};
}
TTablePlace FilesTableOf(const std::u16string& path) { return TableOf(path, idxdata::TableFiles, rec::CFileRecord()); }
CTableStream Stream(const std::u16string& path, const TTablePlace& files, const CTableStream::TTuning& tuning,
                    const idxdata::IRecord& schema = rec::CFileRecord()) {
    return CTableStream(path, files.table, files.firstRowPos, files.rowCount, schema, tuning);
}

// Writes `count` file rows with names of 0..299 units, one of them
// (`bigAt`) of `bigUnits` units; and as many reparse rows whose names and
// targets are the file names and the same reversed (two strings a row).
// Now and then an earlier file row is read back while the table grows
// (unflushed, cached or evicted), as the NTFS pipeline does.
std::vector<TRow> WriteFiles(const CTempDir& dir, const std::u16string& name, uint64_t count, uint64_t bigAt,
                             size_t bigUnits) {
    std::vector<TRow> rows;
    indexer::CIndexBase base;
    base.Open(dir.Path(), false, name);
    for (uint64_t i = 0; i < count; ++i) {
        std::u16string file(i == bigAt ? bigUnits : i % 300, static_cast<char16_t>(u'a' + i % 26));
        const uint64_t position = base.AddFile(file, static_cast<uint32_t>(i * 3), i / 7, i * 11, i * 13, nullptr);
        rows.push_back({file, position, i / 7, i * 13, i * 11, static_cast<uint32_t>(i * 3)});
        base.AddReparse(i / 7, file, std::u16string(file.rbegin(), file.rend()) + u"!", nullptr);
        if (i % 97 == 0) {
            rec::CFileRecord back;
            const TRow& earlier = rows[i * 7919 % (i + 1)];
            base.ReadFileRecord(earlier.position, back);
            EXPECT_EQ(back.m_Name, earlier.name);
            EXPECT_EQ(back.m_Size, earlier.size);
        }
    }
    base.Close();
    return rows;
}

void ExpectRow(CTableStream& stream, const TRow& row) {
    ASSERT_EQ(stream.GetRowPos(), row.position);
    ASSERT_EQ(stream.String(0), row.name);
    ASSERT_EQ(stream.Qword(1), row.parent);
    ASSERT_EQ(stream.Dword(2), row.owner);
    ASSERT_EQ(stream.Qword(3), row.time);
    ASSERT_EQ(stream.Qword(4), row.size);
}

TEST(TableStream, ReadsEveryRowOverEveryChunkSize) {
    CTempDir dir;
    // One row larger than a default chunk and its carry room together.
    const std::vector<TRow> rows = WriteFiles(dir, u"v.ifd", 3000, 1500, 200000);
    const std::u16string path = dir.Path(u"v.ifd");
    const TTablePlace files = FilesTableOf(path);
    for (const TCase& c : kCases) {
        SCOPED_TRACE(c.what);
        CTableStream byNext = Stream(path, files, c.tuning);
        ASSERT_EQ(byNext.GetRowCount(), rows.size());
        for (const TRow& row : rows) {
            ASSERT_TRUE(byNext.Next());
            ASSERT_NO_FATAL_FAILURE(ExpectRow(byNext, row));
        }
        EXPECT_FALSE(byNext.Next());
        EXPECT_FALSE(byNext.Next());

        CTableStream byVisit = Stream(path, files, c.tuning);
        size_t seen = 0;
        byVisit.ForEachRow([&] {
            ASSERT_LT(seen, rows.size());
            EXPECT_EQ(byVisit.GetRowId(), seen);
            ASSERT_NO_FATAL_FAILURE(ExpectRow(byVisit, rows[seen]));
            ++seen;
        });
        EXPECT_EQ(seen, rows.size());

        // A string larger than a chunk with another string behind it.
        CTableStream links = Stream(path, TableOf(path, idxdata::TableReparses, rec::CReparseRecord()), c.tuning,
                                    rec::CReparseRecord());
        for (const TRow& row : rows) {
            ASSERT_TRUE(links.Next());
            ASSERT_EQ(links.Qword(0), row.parent);
            ASSERT_EQ(links.String(1), row.name);
            ASSERT_EQ(links.String(2), std::u16string(row.name.rbegin(), row.name.rend()) + u"!");
        }
        EXPECT_FALSE(links.Next());
    }
}

// Damage is reported at the row it is in, after every row before it, also
// when the read-ahead thread has read past it: a string past the table's
// end, a file cut short, a row count lower than the rows, a file that shrinks
// under an open stream. A stream left early stops its thread.
TEST(TableStream, DamageIsReportedAtItsRow) {
    CTempDir dir;
    const std::vector<TRow> rows = WriteFiles(dir, u"v.ifd", 3000, kNever, 0);
    const std::vector<uint8_t> good = ReadAll(dir.Native("v.ifd"));
    const TTablePlace files = FilesTableOf(dir.Path(u"v.ifd"));
    const uint64_t damagedAt = files.table.start + rows[2000].position;
    std::vector<uint8_t> longName = good;
    idxdata::PutU32(longName.data() + damagedAt, 0x7FFFFFFF);
    WriteAll(dir.Native("long.ifd"), longName);
    WriteAll(dir.Native("cut.ifd"),
             std::vector<uint8_t>(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(damagedAt + 5)));
    TTablePlace fewer = files;
    fewer.rowCount = 2000;
    const struct {
        const char16_t* file;
        const TTablePlace& place;
        uint64_t offset;
        std::u16string text;
    } damages[] = {
        {u"long.ifd", files, damagedAt, u"a string of 2147483647 units runs past the table's end"},
        {u"cut.ifd", files, damagedAt + 5, u"the file ends before the table does"},
        {u"v.ifd", fewer, damagedAt, u"bytes follow the last of 2000 rows"},
    };
    for (const TCase& c : kCases) {
        SCOPED_TRACE(c.what);
        for (const auto& d : damages) {
            CTableStream stream = Stream(dir.Path(d.file), d.place, c.tuning);
            size_t seen = 0;
            EXPECT_CEXC(stream.ForEachRow([&] { ++seen; }), {
                EXPECT_NE(Deepest(e).find(u"offset 0x" + util::Hex16(d.offset) + u": "), std::u16string::npos)
                    << util::Utf16ToUtf8(Deepest(e));
                EXPECT_NE(Deepest(e).find(d.text), std::u16string::npos) << util::Utf16ToUtf8(Deepest(e));
            });
            EXPECT_EQ(seen, 2000u);
        }
        // Left after a few rows, with the reader waiting for room.
        CTableStream early = Stream(dir.Path(u"v.ifd"), files, c.tuning);
        for (int i = 0; i < 3; ++i) ASSERT_TRUE(early.Next());
    }
    CTableStream stream = Stream(dir.Path(u"v.ifd"), files, kCases[1].tuning);
    std::filesystem::resize_file(dir.Native("v.ifd"), damagedAt);
    EXPECT_CEXC(stream.ForEachRow([] {}), EXPECT_NE(Deepest(e).find(u"the file ends"), std::u16string::npos));
}

}  // namespace
