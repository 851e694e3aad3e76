// CIndexBase: the worked example byte for byte, the chain with and without
// the index table, ids and positions, reads of unflushed rows, the state
// failures, and a round trip at scale through CIndexBaseReader.
#include <gtest/gtest.h>

#include "base/utf.h"
#include "platform/errors.h"
#include "store/index_base.h"
#include "store/index_base_reader.h"
#include "store/store_test_util.h"

using indexer::CIndexBase;
using indexer::CIndexBaseReader;
using namespace store_testing;

namespace {

// The bytes of one table header: the field types and the counts given.
std::vector<uint8_t> Header(uint64_t next, uint32_t id, std::vector<uint16_t> types, uint64_t rows) {
    std::vector<uint8_t> b = {'T', 'B', 'L', 'X', 1, 0, 1, 0};
    auto put = [&b](uint64_t v, int n) {
        for (int i = 0; i < n; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
    };
    put(next, 8);
    put(0, 4);
    put(id, 4);
    put(types.size(), 4);
    for (uint16_t t : types) put(t, 2);
    put(rows, 8);
    return b;
}

TEST(IndexBase, WorkedExampleIs208BytesByteForByte) {
    CTempDir dir;
    {
        CIndexBase base;
        base.Open(dir.Dir(), false, u"volume.C.ifd");
        uint64_t id = 99;
        EXPECT_EQ(base.AddDir(u"", 0, &id), 40u);
        EXPECT_EQ(id, 0u);
        EXPECT_EQ(base.AddOwner(u"S-1-0-0", u"", u"", &id), 42u);
        EXPECT_EQ(id, 0u);
        base.Close();
    }
    const auto bytes = ReadAll(dir.Native("volume.C.ifd"));
    ASSERT_EQ(bytes.size(), 208u);

    std::vector<uint8_t> expected = Header(46, 1, {2, 1, 3, 1, 1}, 0);
    ASSERT_EQ(expected.size(), 46u);
    auto dirs = Header(98, 2, {2, 1}, 1);
    dirs.insert(dirs.end(), 12, 0);  // root row: empty name, parent 0
    auto owners = Header(166, 3, {2, 2, 2}, 1);
    const std::u16string sid = u"S-1-0-0";
    owners.insert(owners.end(), {7, 0, 0, 0});
    for (char16_t ch : sid) owners.insert(owners.end(), {static_cast<uint8_t>(ch), 0});
    owners.insert(owners.end(), 8, 0);
    auto reparses = Header(0, 4, {1, 2, 2}, 0);
    EXPECT_EQ(dirs.size(), 52u);
    EXPECT_EQ(owners.size(), 68u);
    EXPECT_EQ(reparses.size(), 42u);
    for (const auto* part : {&dirs, &owners, &reparses}) expected.insert(expected.end(), part->begin(), part->end());
    EXPECT_EQ(bytes, expected);
    // Only the final file is left.
    EXPECT_EQ(dir.List(), std::vector<std::string>{"volume.C.ifd"});
}

TEST(IndexBase, IdsAndPositions) {
    CTempDir dir;
    CIndexBase base;
    base.Open(dir.Dir(), false, u"v.ifd");
    uint64_t id0 = 9, id1 = 9;
    EXPECT_EQ(base.AddDir(u"", 0, &id0), 40u);
    EXPECT_EQ(base.AddDir(u"abc", 0, &id1), 40u + 12);
    EXPECT_EQ(id0, 0u);
    EXPECT_EQ(id1, 1u);
    base.AddDir(u"x", 1, nullptr);  // counted without an id pointer
    EXPECT_EQ(base.GetDirCount(), 3u);
    const char16_t name[] = {u'f', u'1', u'!'};
    EXPECT_EQ(base.AddFile(name, 2, 0, 1, 10, 20, &id0), 46u);
    EXPECT_EQ(base.AddReparse(1, u"l", u"t", &id0), 42u);
    base.Close();

    CIndexBaseReader reader;
    reader.Open(dir.Path(u"v.ifd"));
    reader.PrepareIdIndexes();
    EXPECT_EQ(reader.GetDirIndexById(1), 52u);
    EXPECT_EQ(reader.GetDirPath(2), u"abc\\x");
    int files = 0;
    reader.ForEachFile([&](uint64_t, uint64_t position, const rec::CFileRecord& f) {
        ++files;
        EXPECT_EQ(position, 46u);
        EXPECT_EQ(f.m_Name, u"f1");
        EXPECT_EQ(f.m_ParentId, 1u);
        EXPECT_EQ(f.m_Size, 10u);
        EXPECT_EQ(f.m_ModificationTime, 20u);
    });
    EXPECT_EQ(files, 1);
}

TEST(IndexBase, EmptyBaseKeepsAnIntactChain) {
    CTempDir dir;
    for (bool useIndexes : {false, true}) {
        SCOPED_TRACE(useIndexes);
        CIndexBase base;
        base.Open(dir.Dir(), useIndexes, u"e.ifd");
        base.Close();
        CIndexBaseReader reader;
        reader.Open(dir.Path(u"e.ifd"));
        const auto& tables = reader.GetTables();
        ASSERT_EQ(tables.size(), useIndexes ? 5u : 4u);
        for (size_t i = 0; i < tables.size(); ++i) EXPECT_EQ(tables[i].tableId, i + 1);
        EXPECT_EQ(reader.GetFileCount() + reader.GetDirCount() + reader.GetOwnerCount() +
                      reader.GetReparseCount(), 0u);
        const auto bytes = ReadAll(dir.Native("e.ifd"));
        EXPECT_EQ(U64At(bytes, tables.back().start + 8), 0u);
        if (useIndexes) {
            EXPECT_EQ(tables.back().end - tables.back().start, 36u);
            EXPECT_EQ(reader.GetIndexRowCount(), 0u);
        } else {
            EXPECT_CEXC(reader.GetIndexRowCount(), EXPECT_EQ(Deepest(e), u"Index file is not used!"));
        }
        EXPECT_EQ(dir.List(), std::vector<std::string>{"e.ifd"});
    }
}

TEST(IndexBase, OpenTwiceAndCloseWithoutOpen) {
    CTempDir dir;
    CIndexBase base;
    EXPECT_CEXC(base.Close(), {
        EXPECT_EQ(First(e), u"CIndexBase::Close fail! Files is not opened!");
        EXPECT_EQ(e.GetCode(), NormaliseCode(1359));
    });
    base.Open(dir.Dir(), false, u"t.ifd");
    base.AddDir(u"", 0, nullptr);
    EXPECT_CEXC(base.Open(dir.Dir(), false, u"other.ifd"),
                EXPECT_EQ(First(e), u"CIndexBase::Open fail! Files alresdy opened!"));
    base.Close();  // the first open is intact
    CIndexBaseReader reader;
    reader.Open(dir.Path(u"t.ifd"));
    EXPECT_EQ(reader.GetDirCount(), 1u);
}

TEST(IndexBase, OlderFinalFileIsReplaced) {
    CTempDir dir;
    WriteAll(dir.Native("v.ifd"), std::vector<uint8_t>(5000, 0xAB));
    CIndexBase base;
    base.Open(dir.Dir(), false, u"v.ifd");
    base.Close();
    EXPECT_EQ(ReadAll(dir.Native("v.ifd")).size(), 46u + 40 + 42 + 42);
}

TEST(IndexBase, StatisticsAreLogged) {
    CTempDir dir;
    CScopedLogCapture log;
    CIndexBase base;
    base.Open(dir.Dir(), true, u"v.ifd");
    base.AddFile(u"a", 0, 0, 1, 1, nullptr);
    base.AddFile(u"b", 0, 0, 1, 1, nullptr);
    base.Close();
    for (const char16_t* line : {u"IndexBase statistic:", u"    files 2", u"    directories 0", u"    owners 0",
                                 u"    reparse points 0", u"    index 0", u"Combining tables complete!"})
        EXPECT_TRUE(log->Has(line)) << util::Utf16ToUtf8(line);
}

TEST(IndexBase, FailedOpenLeavesNothingBehind) {
    CTempDir dir;
    CIndexBase base;
    EXPECT_ANY_THROW(base.Open(dir.Path(u"missing"), false, u"v.ifd"));
    EXPECT_FALSE(base.IsOpen());
    EXPECT_TRUE(dir.List().empty());
}

// The final name is a folder: the move fails, the base stays spent, the
// destructor neither throws nor retries, the temporary file stays.
TEST(IndexBase, FailedMoveIsReportedOnce) {
    CTempDir dir;
    std::filesystem::create_directory(dir.Native("v.ifd"));
    std::filesystem::create_directory(dir.Native("v.ifd") / "x");
    CScopedLogCapture log;
    {
        CIndexBase base;
        base.Open(dir.Dir(), false, u"v.ifd");
        EXPECT_CEXC(base.Close(), EXPECT_NE(First(e).find(u"CIndexBase::Combine fail! MoveFile can`t move file"),
                                            std::u16string::npos));
        EXPECT_TRUE(base.IsOpen());
        EXPECT_ANY_THROW(base.Close());
    }
    EXPECT_EQ(dir.List().size(), 2u);  // the folder and the files table
}

// Discard drops an open base, and also the files a failed Close left:
// nothing under the final name, no temporary file, nothing for the
// destructor to do.
TEST(IndexBase, DiscardLeavesNoFileEvenAfterAFailedClose) {
    for (const bool failClose : {false, true}) {
        CTempDir dir;
        if (failClose) {
            std::filesystem::create_directory(dir.Native("v.ifd"));
            std::filesystem::create_directory(dir.Native("v.ifd") / "x");
        }
        {
            CIndexBase base;
            base.Open(dir.Dir(), true, u"v.ifd");
            base.AddDir(u"", 0, nullptr);
            base.AddFile(u"a.txt", 0, 0, 1, 2, nullptr);
            if (failClose) {
                EXPECT_ANY_THROW(base.Close());
            }
            base.Discard();
            EXPECT_FALSE(base.IsOpen());
            base.Discard();  // a closed base: nothing to do
        }
        EXPECT_EQ(dir.List().size(), failClose ? 1u : 0u) << failClose;  // only the blocking folder
    }
}

TEST(IndexBase, DestructorClosesAnOpenBase) {
    CTempDir dir;
    {
        CIndexBase base;
        base.Open(dir.Dir(), false, u"v.ifd");
        base.AddDir(u"", 0, nullptr);
    }
    CIndexBaseReader reader;
    reader.Open(dir.Path(u"v.ifd"));
    EXPECT_EQ(reader.GetDirCount(), 1u);
}

TEST(IndexBase, ReadFileRecordOfAnUnflushedRow) {
    CTempDir dir;
    CIndexBase base;
    base.Open(dir.Dir(), false, u"v.ifd");
    const uint64_t pos = base.AddFile(u"fresh.txt", 3, 7, 12345, 0x01DA000000000001ull, nullptr);
    rec::CFileRecord f;
    base.ReadFileRecord(pos, f);
    EXPECT_EQ(f.m_Name, u"fresh.txt");
    EXPECT_EQ(f.m_Owner, 3u);
    EXPECT_EQ(f.m_ParentId, 7u);
    EXPECT_EQ(f.m_Size, 12345u);
    EXPECT_EQ(f.m_ModificationTime, 0x01DA000000000001ull);
    base.Close();
}

// A million file rows and a hundred thousand directories; file rows read
// back now and then while the table grows (flushed, cached or evicted), and
// every row read back from the final file.
TEST(IndexBase, MillionRowRoundTrip) {
    constexpr uint64_t kDirs = 100000, kFiles = 1000000;
    auto dirName = [](uint64_t i) { return u"d" + util::ToStrU64(i); };
    auto fileName = [](uint64_t i) { return std::u16string(1 + i % 17, u'a' + i % 26) + util::ToStrU64(i); };
    CTempDir dir;
    std::vector<uint64_t> positions;
    positions.reserve(kFiles);
    {
        CIndexBase base;
        base.Open(dir.Dir(), false, u"big.ifd");
        base.AddOwner(u"S-1-0-0", u"", u"", nullptr);
        base.AddOwner(u"S-1-5-18", u"NT AUTHORITY", u"SYSTEM", nullptr);
        base.AddDir(u"", 0, nullptr);
        for (uint64_t i = 1; i < kDirs; ++i) base.AddDir(dirName(i), (i * 7919) % i, nullptr);
        rec::CFileRecord back;
        for (uint64_t i = 0; i < kFiles; ++i) {
            positions.push_back(base.AddFile(fileName(i), i % 2, i % kDirs, i * 3, i << 20, nullptr));
            if (i % 9973 == 0) {
                const uint64_t j = (i * 31) % (i + 1);
                base.ReadFileRecord(positions[j], back);
                ASSERT_EQ(back.m_Name, fileName(j));
                ASSERT_EQ(back.m_Size, j * 3);
            }
        }
        base.Close();
    }
    CIndexBaseReader reader;
    reader.Open(dir.Path(u"big.ifd"));
    ASSERT_EQ(reader.GetFileCount(), kFiles);
    ASSERT_EQ(reader.GetDirCount(), kDirs);
    reader.PrepareIdIndexes();
    rec::CDirRecord d;
    for (uint64_t i = 1; i < kDirs; i += 997) {
        reader.GetDir(i, d);
        ASSERT_EQ(d.m_Name, dirName(i));
        ASSERT_EQ(d.m_ParentId, (i * 7919) % i);
    }
    rec::COwnerRecord o;
    reader.GetOwner(1, o);
    EXPECT_EQ(o.m_Third, u"SYSTEM");
    uint64_t seen = 0;
    reader.ForEachFile([&](uint64_t id, uint64_t position, const rec::CFileRecord& f) {
        ASSERT_EQ(id, seen);
        ASSERT_EQ(position, positions[id]);
        ASSERT_EQ(f.m_Name, fileName(id));
        ASSERT_EQ(f.m_ParentId, id % kDirs);
        ASSERT_EQ(f.m_Owner, id % 2);
        ASSERT_EQ(f.m_Size, id * 3);
        ASSERT_EQ(f.m_ModificationTime, id << 20);
        ++seen;
    });
    EXPECT_EQ(seen, kFiles);
}

}  // namespace
