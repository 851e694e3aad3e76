// CIndexBase: the worked example byte for byte, the chain with the index
// table, ids and positions, and what a destructor, a failed close or a
// discard leaves.
#include <gtest/gtest.h>

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
        base.Open(dir.Path(), false, u"volume.C.ifd");
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

// Ids count from 0, positions are the rows' offsets in their tables, and a
// name is as long as its length says.
TEST(IndexBase, IdsAndPositions) {
    CTempDir dir;
    CIndexBase base;
    base.Open(dir.Path(), false, u"v.ifd");
    uint64_t id0 = 9, id1 = 9;
    EXPECT_EQ(base.AddDir(u"", 0, &id0), 40u);
    EXPECT_EQ(base.AddDir(u"abc", 0, &id1), 40u + 12);
    EXPECT_EQ(id0, 0u);
    EXPECT_EQ(id1, 1u);
    const char16_t name[] = {u'f', u'1', u'!'};
    EXPECT_EQ(base.AddFile(name, 2, 0, 1, 10, 20, &id0), 46u);
    EXPECT_EQ(base.AddReparse(1, u"l", u"t", &id0), 42u);
    rec::CFileRecord f;
    base.ReadFileRecord(46, f);
    EXPECT_EQ(f.m_Name, u"f1");
}

// A base left open whose Close fails: the destructor logs the failure at
// level ERR, lets nothing escape, and the test process goes on.
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
        EXPECT_EQ(log.LevelOf(u"Failed to close index base [" + out + u"\\v.ifd]."), LogError)
            << util::Utf16ToUtf8(log.Text());
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
            base.Open(dir.Path(), true, u"v.ifd");
            base.AddDir(u"", 0, nullptr);
            base.AddFile(u"a.txt", 0, 0, 1, 2, nullptr);
            if (failClose) {
                EXPECT_ANY_THROW(base.Close());
            }
            base.Discard();
            EXPECT_FALSE(base.IsOpen());
        }
        EXPECT_EQ(dir.List().size(), failClose ? 1u : 0u) << failClose;  // only the blocking folder
    }
}

}  // namespace
