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
    EXPECT_ANY_THROW(base.Close());
    base.Open(dir.Dir(), false, u"t.ifd");
    base.AddDir(u"", 0, nullptr);
    EXPECT_ANY_THROW(base.Open(dir.Dir(), false, u"other.ifd"));
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

TEST(IndexBase, FailedOpenLeavesNothingBehind) {
    CTempDir dir;
    CIndexBase base;
    EXPECT_ANY_THROW(base.Open(dir.Path(u"missing"), false, u"v.ifd"));
    EXPECT_FALSE(base.IsOpen());
    EXPECT_TRUE(dir.List().empty());
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

// splitmix64: varied, reproducible values, so that the test computes every
// row it expects instead of keeping it.
uint64_t Mix(uint64_t x) {
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

// A name of 1 to 24 units (255 now and then) of ASCII, Latin, Cyrillic, CJK
// and surrogate pairs, ended by the row's number.
std::u16string RowName(uint64_t seed, uint64_t i) {
    static constexpr char16_t kUnits[] = u"abcxyzABZ09 ._-~\u00e9\u00df\u0416\u044f\u4e2d\U0001F600";
    uint64_t m = Mix(seed);
    std::u16string name(m % 5000 == 0 ? 255 : 1 + m % 24, u'x');
    for (size_t k = 0; k < name.size(); ++k) name[k] = kUnits[Mix(m + k) % (std::size(kUnits) - 1)];
    return name + util::ToStrU64(i);
}

// The base at scale: directories whose parents are earlier directories
// (sometimes the one just before, so chains grow deep), files spread over
// them with sizes and times over the whole 64-bit range, and reparse rows.
// File rows are read back now and then while the table grows (unflushed,
// cached or evicted); every row is read back from the final file.
TEST(IndexBase, MillionRowRoundTrip) {
    constexpr uint64_t kFiles = 1000000, kDirs = 100000, kReparses = 3000;
    auto dirName = [](uint64_t i) { return i == 0 ? std::u16string() : RowName(i * 4 + 1, i); };
    auto dirParent = [](uint64_t i) -> uint64_t { return i == 0 ? 0 : Mix(i) % 4 == 0 ? i - 1 : Mix(i) % i; };
    auto file = [](uint64_t i) {
        rec::CFileRecord f;
        f.m_Name = RowName(i * 8 + 3, i);
        f.m_ParentId = Mix(i * 8 + 4) % kDirs;
        f.m_Owner = static_cast<uint32_t>(Mix(i * 8 + 5) % 2);
        f.m_Size = Mix(i * 8 + 6) >> (i % 64);
        f.m_ModificationTime = Mix(i * 8 + 7);
        return f;
    };
    auto expectFile = [](const rec::CFileRecord& got, const rec::CFileRecord& f, uint64_t i) {
        ASSERT_EQ(got.m_Name, f.m_Name) << i;
        ASSERT_EQ(got.m_ParentId, f.m_ParentId) << i;
        ASSERT_EQ(got.m_Owner, f.m_Owner) << i;
        ASSERT_EQ(got.m_Size, f.m_Size) << i;
        ASSERT_EQ(got.m_ModificationTime, f.m_ModificationTime) << i;
    };
    auto target = [](uint64_t i) { return u"\\??\\C:\\" + RowName(i * 2 + 0xBEEF, i); };
    CTempDir dir;
    std::vector<uint64_t> positions;
    {
        CIndexBase base;
        base.Open(dir.Dir(), false, u"big.ifd");
        base.AddOwner(u"S-1-0-0", u"", u"", nullptr);
        base.AddOwner(u"S-1-5-21-1-2-3-1001", u"WS-\u0416", u"\u00e9l\u00e8ve", nullptr);
        for (uint64_t i = 0; i < kDirs; ++i) base.AddDir(dirName(i), dirParent(i), nullptr);
        for (uint64_t i = 0; i < kReparses; ++i) base.AddReparse(i % kDirs, RowName(i, i), target(i), nullptr);
        rec::CFileRecord back;
        for (uint64_t i = 0; i < kFiles; ++i) {
            const rec::CFileRecord f = file(i);
            positions.push_back(base.AddFile(f.m_Name, f.m_Owner, f.m_ParentId, f.m_Size, f.m_ModificationTime,
                                             nullptr));
            if (i % 997 == 0) {
                const uint64_t j = Mix(i) % (i + 1);
                base.ReadFileRecord(positions[j], back);
                ASSERT_NO_FATAL_FAILURE(expectFile(back, file(j), j));
            }
        }
        base.Close();
    }
    CIndexBaseReader reader;
    reader.Open(dir.Path(u"big.ifd"));
    ASSERT_EQ(reader.GetFileCount(), kFiles);
    ASSERT_EQ(reader.GetOwnerCount(), 2u);
    reader.PrepareIdIndexes();
    rec::CDirRecord d;
    for (uint64_t i = 0; i < kDirs; ++i) {
        reader.GetDir(i, d);
        ASSERT_EQ(d.m_Name, dirName(i)) << i;
        ASSERT_EQ(d.m_ParentId, dirParent(i)) << i;
    }
    rec::COwnerRecord o;
    reader.GetOwner(1, o);
    EXPECT_EQ(o.m_Third, u"\u00e9l\u00e8ve");
    uint64_t seen = 0;
    reader.ForEachFile([&](uint64_t id, uint64_t position, const rec::CFileRecord& f) {
        ASSERT_EQ(id, seen++);
        ASSERT_EQ(position, positions[id]);
        ASSERT_NO_FATAL_FAILURE(expectFile(f, file(id), id));
    });
    EXPECT_EQ(seen, kFiles);
    seen = 0;
    reader.ForEachReparse([&](uint64_t id, const rec::CReparseRecord& r) {
        ASSERT_EQ(id, seen++);
        ASSERT_EQ(r.m_Name, RowName(id, id));
        ASSERT_EQ(r.m_Substitute, target(id));
    });
    EXPECT_EQ(seen, kReparses);
    // A deep chain of parents still reads as a path ("\"-joined names from the root).
    std::u16string path = dirName(kDirs - 1);
    for (uint64_t p = dirParent(kDirs - 1); p != 0; p = dirParent(p)) path = dirName(p) + u"\\" + path;
    EXPECT_EQ(reader.GetDirPath(kDirs - 1), path);
}

}  // namespace
