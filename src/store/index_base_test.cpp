// CIndexBase: the worked example byte for byte, the chain with and without
// the index table, ids and positions, reads of unflushed rows, the state
// failures, and a round trip at scale through CIndexBaseReader.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <iterator>

#include "base/format.h"
#include "base/utf.h"
#include "platform/errors.h"
#include "store/index_base.h"
#include "store/index_base_reader.h"
#include "store/store_test_util.h"
#include "testing/log_capture.h"

using indexer::CIndexBase;
using indexer::CIndexBaseReader;
using namespace store_testing;

namespace {

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
    EXPECT_EQ(bytes, EmptyIndexBytes());
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
    ngitest::CLogCapture log;
    {
        CIndexBase base;
        base.Open(dir.Dir(), false, u"v.ifd");
        EXPECT_CEXC(base.Close(), EXPECT_NE(First(e).find(u"CIndexBase::Combine fail! MoveFile can`t move file"),
                                            std::u16string::npos));
        EXPECT_TRUE(base.IsOpen());
        EXPECT_ANY_THROW(base.Close());
    }
    EXPECT_EQ(dir.List().size(), 2u);  // the folder and the files table
    EXPECT_FALSE(log.Contains(u"Failed to close index base"));
}

// A base left open whose Close fails: the destructor logs the failure at
// level ERR (its context line, then the exception's messages one level
// deeper), lets nothing escape, and the test process goes on.
TEST(IndexBase, DestructorLogsAFailedClose) {
    struct TCase {
        const char* what;
        // Spoils the close of a base open in `out`.
        std::function<void(const std::filesystem::path& out)> spoil;
        std::u16string firstMessage;  // the exception's first message, "%1": the output folder
        std::u16string systemText;
    } cases[] = {
        {"the final name became a folder",
         [](const std::filesystem::path& out) { std::filesystem::create_directories(out / "v.ifd" / "x"); },
         u"CIndexBase::Combine fail! MoveFile can`t move file '%1\\%2' to '%1\\v.ifd'.", u"Access is denied."},
        // The open tables live on unlinked; the files table can't be opened
        // again to take the others.
        {"the output folder was removed",
         [](const std::filesystem::path& out) { std::filesystem::remove_all(out); },
         u"idxdata::CFileWriter::Open fail. Cannot create file [%1\\%2]",
         u"The system cannot find the path specified."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CTempDir dir;
        std::filesystem::create_directory(dir.Native("out"));
        const std::u16string out = dir.Path(u"out");
        ngitest::CLogCapture log;
        std::u16string filesTable;
        {
            CIndexBase base;
            base.Open(out, false, u"v.ifd");
            base.AddDir(u"", 0, nullptr);
            base.AddFile(u"f", 0, 0, 1, 2, nullptr);
            filesTable = base.GetFilesTempName().substr(out.size() + 1);
            c.spoil(dir.Native("out"));
        }
        const auto& lines = log.Lines();
        auto context = std::find_if(lines.begin(), lines.end(), [&](const ngitest::TLogLine& l) {
            return l.text == u"Failed to close index base [" + out + u"\\v.ifd].";
        });
        ASSERT_NE(context, lines.end()) << util::Utf16ToUtf8(log.Text());
        ASSERT_GE(lines.end() - context, 3) << util::Utf16ToUtf8(log.Text());
        EXPECT_EQ(context->level, LogError);
        EXPECT_EQ(context[1].text, FormatMessageArgs(c.firstMessage, {out, filesTable}));
        EXPECT_NE(context[2].text.find(c.systemText), std::u16string::npos) << util::Utf16ToUtf8(context[2].text);
        for (auto line = context + 1; line != lines.end(); ++line) {
            EXPECT_EQ(line->level, LogError);
            EXPECT_EQ(line->depth, context->depth + 1);
        }
        EXPECT_FALSE(log.Contains(u"IndexBase statistic:"));
    }
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

// splitmix64: varied, reproducible values for row i, so that the test can
// compute every row it expects instead of keeping them.
uint64_t Mix(uint64_t x) {
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

// A name of 1 to 24 units (255 now and then) drawn from ASCII, Latin,
// Cyrillic, CJK, a surrogate pair and the odd blank or dot, ended by the
// row's number.
std::u16string RowName(uint64_t seed, uint64_t i) {
    static constexpr char16_t kUnits[] = u"abcxyzABZ09 ._-~\u00e9\u00df\u0416\u044f\u4e2d\u6587";
    uint64_t m = Mix(seed);
    const size_t length = m % 5000 == 0 ? 255 : 1 + m % 24;
    std::u16string name;
    for (size_t k = 0; name.size() < length; ++k) {
        if (k % 8 == 0) m = Mix(m);
        const unsigned pick = static_cast<unsigned>(m >> (8 * (k % 8))) & 0xFF;
        if (pick % 29 == 0) {
            name += u"\U0001F600";  // two units
        } else {
            name += kUnits[pick % (std::size(kUnits) - 1)];
        }
    }
    return name + util::ToStrU64(i);
}

// The base at scale: directories whose parents are earlier directories
// (sometimes the one just before, so chains grow deep), files spread over
// them with every owner, sizes and times over the whole 64-bit range, and
// reparse rows. File rows are read back now and then while the table grows
// (flushed, cached or evicted); every row of every table is read back from
// the final file. (About 0.5 s plain, 3.5 s under the sanitizers.)
TEST(IndexBase, MillionRowRoundTrip) {
    constexpr uint64_t kFiles = 1000000, kDirs = 100000, kReparses = 3000;
    auto dirName = [](uint64_t i) { return i == 0 ? std::u16string() : RowName(i * 4 + 1, i); };
    auto dirParent = [](uint64_t i) -> uint64_t {
        if (i == 0) return 0;
        const uint64_t m = Mix(i * 4 + 2);
        return m % 4 == 0 ? i - 1 : (m >> 2) % i;
    };
    const std::vector<std::array<std::u16string, 3>> owners = {
        {u"S-1-0-0", u"", u""},
        {u"S-1-5-18", u"NT AUTHORITY", u"SYSTEM"},
        {u"S-1-5-32-544", u"BUILTIN", u"Administrators"},
        {u"S-1-5-21-1004336348-1177238915-682003330-1001", u"WS-\u0416", u"\u00e9l\u00e8ve"},
        {u"S-1-5-21-1-2-3-500", u"", u"Administrator"},
    };
    auto fileName = [](uint64_t i) { return RowName(i * 8 + 3, i); };
    auto fileParent = [](uint64_t i) { return Mix(i * 8 + 4) % kDirs; };
    auto fileOwner = [&owners](uint64_t i) { return static_cast<uint32_t>(Mix(i * 8 + 5) % owners.size()); };
    auto fileSize = [](uint64_t i) { return Mix(i * 8 + 6) >> (i % 64); };
    auto fileTime = [](uint64_t i) { return Mix(i * 8 + 7); };
    auto reparseParent = [](uint64_t i) { return Mix(i * 2 + 0x5EED) % kDirs; };
    auto reparseTarget = [](uint64_t i) { return u"\\??\\C:\\" + RowName(i * 2 + 0xBEEF, i); };

    CTempDir dir;
    std::vector<uint64_t> positions;
    positions.reserve(kFiles);
    {
        CIndexBase base;
        base.Open(dir.Dir(), false, u"big.ifd");
        for (const auto& o : owners) base.AddOwner(o[0], o[1], o[2], nullptr);
        for (uint64_t i = 0; i < kDirs; ++i) base.AddDir(dirName(i), dirParent(i), nullptr);
        for (uint64_t i = 0; i < kReparses; ++i)
            base.AddReparse(reparseParent(i), RowName(i * 2 + 0xFACE, i), reparseTarget(i), nullptr);
        rec::CFileRecord back;
        for (uint64_t i = 0; i < kFiles; ++i) {
            positions.push_back(
                base.AddFile(fileName(i), fileOwner(i), fileParent(i), fileSize(i), fileTime(i), nullptr));
            if (i % 997 == 0) {
                const uint64_t j = Mix(i) % (i + 1);
                base.ReadFileRecord(positions[j], back);
                ASSERT_EQ(back.m_Name, fileName(j)) << j;
                ASSERT_EQ(back.m_ParentId, fileParent(j)) << j;
                ASSERT_EQ(back.m_Owner, fileOwner(j)) << j;
                ASSERT_EQ(back.m_Size, fileSize(j)) << j;
                ASSERT_EQ(back.m_ModificationTime, fileTime(j)) << j;
            }
        }
        base.Close();
    }
    CIndexBaseReader reader;
    reader.Open(dir.Path(u"big.ifd"));
    ASSERT_EQ(reader.GetFileCount(), kFiles);
    ASSERT_EQ(reader.GetDirCount(), kDirs);
    ASSERT_EQ(reader.GetOwnerCount(), owners.size());
    ASSERT_EQ(reader.GetReparseCount(), kReparses);
    reader.PrepareIdIndexes();
    rec::CDirRecord d;
    for (uint64_t i = 0; i < kDirs; ++i) {
        reader.GetDir(i, d);
        ASSERT_EQ(d.m_Name, dirName(i)) << i;
        ASSERT_EQ(d.m_ParentId, dirParent(i)) << i;
    }
    rec::COwnerRecord o;
    for (uint64_t i = 0; i < owners.size(); ++i) {
        reader.GetOwner(i, o);
        EXPECT_EQ(o.m_Sid, owners[i][0]);
        EXPECT_EQ(o.m_Second, owners[i][1]);
        EXPECT_EQ(o.m_Third, owners[i][2]);
    }
    uint64_t seen = 0;
    reader.ForEachFile([&](uint64_t id, uint64_t position, const rec::CFileRecord& f) {
        ASSERT_EQ(id, seen);
        ASSERT_EQ(position, positions[id]);
        ASSERT_EQ(f.m_Name, fileName(id)) << id;
        ASSERT_EQ(f.m_ParentId, fileParent(id)) << id;
        ASSERT_EQ(f.m_Owner, fileOwner(id)) << id;
        ASSERT_EQ(f.m_Size, fileSize(id)) << id;
        ASSERT_EQ(f.m_ModificationTime, fileTime(id)) << id;
        ++seen;
    });
    EXPECT_EQ(seen, kFiles);
    seen = 0;
    reader.ForEachReparse([&](uint64_t id, const rec::CReparseRecord& r) {
        ASSERT_EQ(id, seen);
        ASSERT_EQ(r.m_ParentId, reparseParent(id)) << id;
        ASSERT_EQ(r.m_Name, RowName(id * 2 + 0xFACE, id)) << id;
        ASSERT_EQ(r.m_Substitute, reparseTarget(id)) << id;
        ++seen;
    });
    EXPECT_EQ(seen, kReparses);
    // A deep chain of parents still reads as a path ("\"-joined names from the root).
    const uint64_t last = kDirs - 1;
    std::u16string path = dirName(last);
    for (uint64_t p = dirParent(last); p != 0; p = dirParent(p)) path = dirName(p) + u"\\" + path;
    EXPECT_EQ(reader.GetDirPath(last), path);
}

}  // namespace
