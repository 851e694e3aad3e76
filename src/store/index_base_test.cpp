// CIndexBase: the worked example byte for byte, the chain with and without
// the index table, ids and positions, the state failures, and what a failed
// close or a discard leaves.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

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
    ASSERT_EQ(reader.GetFileCount(), 1u);
    reader.ForEachFile([&](uint64_t, uint64_t position, const rec::CFileRecord& f) {
        EXPECT_EQ(position, 46u);
        EXPECT_EQ(f.m_Name, u"f1");  // the length given, not the array's
    });
}

// With the index table the chain has a fifth, empty table, and still ends.
TEST(IndexBase, EmptyBaseKeepsAnIntactChain) {
    CTempDir dir;
    CIndexBase base;
    base.Open(dir.Dir(), true, u"e.ifd");
    base.Close();
    CIndexBaseReader reader;
    reader.Open(dir.Path(u"e.ifd"));
    const auto& tables = reader.GetTables();
    ASSERT_EQ(tables.size(), 5u);
    for (size_t i = 0; i < tables.size(); ++i) EXPECT_EQ(tables[i].tableId, i + 1);
    EXPECT_EQ(U64At(ReadAll(dir.Native("e.ifd")), tables.back().start + 8), 0u);
    EXPECT_EQ(tables.back().end - tables.back().start, 36u);
    EXPECT_EQ(reader.GetIndexRowCount(), 0u);
    EXPECT_EQ(dir.List(), std::vector<std::string>{"e.ifd"});
}

// A failed Open leaves nothing; Close without Open and a second Open throw
// and leave the first intact.
TEST(IndexBase, OpenTwiceAndCloseWithoutOpen) {
    CTempDir dir;
    CIndexBase base;
    EXPECT_ANY_THROW(base.Open(dir.Path(u"missing"), false, u"v.ifd"));
    EXPECT_FALSE(base.IsOpen());
    EXPECT_TRUE(dir.List().empty());
    EXPECT_ANY_THROW(base.Close());
    base.Open(dir.Dir(), false, u"t.ifd");
    base.AddDir(u"", 0, nullptr);
    EXPECT_ANY_THROW(base.Open(dir.Dir(), false, u"other.ifd"));
    base.Close();
    CIndexBaseReader reader;
    reader.Open(dir.Path(u"t.ifd"));
    EXPECT_EQ(reader.GetDirCount(), 1u);
}

// A base left open is closed by its destructor, over an older final file.
TEST(IndexBase, DestructorClosesAnOpenBase) {
    CTempDir dir;
    WriteAll(dir.Native("v.ifd"), std::vector<uint8_t>(5000, 0xAB));
    {
        CIndexBase base;
        base.Open(dir.Dir(), false, u"v.ifd");
        base.AddDir(u"", 0, nullptr);
    }
    EXPECT_EQ(ReadAll(dir.Native("v.ifd")).size(), 46u + 52 + 42 + 42);
}

// A base left open whose Close fails: the destructor logs the failure at
// level ERR (its context line, then the exception's messages one level
// deeper), lets nothing escape, and the test process goes on.
TEST(IndexBase, DestructorLogsAFailedClose) {
    const std::pair<const char*, std::function<void(const std::filesystem::path& out)>> cases[] = {
        {"the final name became a folder",
         [](const std::filesystem::path& out) { std::filesystem::create_directories(out / "v.ifd" / "x"); }},
        // The open tables live on unlinked; the files table can't be opened
        // again to take the others.
        {"the output folder was removed", [](const std::filesystem::path& out) { std::filesystem::remove_all(out); }},
    };
    for (const auto& [what, spoil] : cases) {
        SCOPED_TRACE(what);
        CTempDir dir;
        std::filesystem::create_directory(dir.Native("out"));
        const std::u16string out = dir.Path(u"out");
        ngitest::CLogCapture log;
        {
            CIndexBase base;
            base.Open(out, false, u"v.ifd");
            base.AddDir(u"", 0, nullptr);
            base.AddFile(u"f", 0, 0, 1, 2, nullptr);
            spoil(dir.Native("out"));
        }
        const auto& lines = log.Lines();
        auto context = std::find_if(lines.begin(), lines.end(), [&](const ngitest::TLogLine& l) {
            return l.text == u"Failed to close index base [" + out + u"\\v.ifd].";
        });
        ASSERT_NE(context, lines.end()) << util::Utf16ToUtf8(log.Text());
        ASSERT_GE(lines.end() - context, 3) << util::Utf16ToUtf8(log.Text());
        EXPECT_EQ(context->level, LogError);
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

}  // namespace
