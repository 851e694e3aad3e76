#include "metafile/mtf_file_rw.h"

#include <gtest/gtest.h>

#include "base/exc.h"
#include "metafile/mtf_test_util.h"

namespace metafile {
namespace {

using testing::CMtfTestDir;
using testing::kBom;
using testing::Le;

std::u16string Line(const CMtfFileRw& rw, int64_t index) {
    std::u16string text;
    rw.GetLines()->GetLine(index, text);
    return text;
}

// An interrupted save left summary.txt half-written and summary.txt.old good.
TEST(MtfOpen, OldFileInEachMode) {
    const std::string good = kBom + Le("type=ifd\r\nv=good");
    const std::string half = kBom + Le("type=i");
    const struct {
        int32_t mode;
        int64_t lines;
        bool attached;
        const std::string* main;  // s.txt after, null when gone
        bool oldStays;
    } cases[] = {
        {EMtfLoad, 2, false, &half, true},            // both left as they are
        {EMtfOpenRW, 2, true, &good, false},          // recovery finished
        {EMtfCreateNewDetached, 0, false, nullptr, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.mode);
        CMtfTestDir dir;
        dir.Write("s.txt", half);
        dir.Write("s.txt.old", good);
        auto rw = CMtfFileRw::Open(dir.Path("s.txt"), c.mode);
        EXPECT_EQ(rw->GetLines()->GetLineCount(), c.lines);
        if (c.lines) {
            EXPECT_EQ(Line(*rw, 1), u"v=good");
        }
        EXPECT_EQ(rw->IsAttached(), c.attached);
        EXPECT_EQ(dir.Exists("s.txt"), c.main != nullptr);
        EXPECT_EQ(c.main ? dir.Read("s.txt") : "", c.main ? *c.main : "");
        EXPECT_EQ(dir.Exists("s.txt.old"), c.oldStays);
    }
}

TEST(MtfOpen, Failures) {
    CMtfTestDir dir;
    EXPECT_THROW(CMtfFileRw::Open(dir.Path("s.txt"), EMtfLoad), CExc);  // nothing to load
    dir.Write("s.txt.old", kBom);
    EXPECT_THROW(CMtfFileRw::Open(dir.Path("s.txt"), 7), CExc);
    EXPECT_TRUE(dir.Exists("s.txt.old"));  // an unknown mode touches nothing
}

TEST(MtfOpen, ReadWriteCreatesAMissingFileWithTheMarkOnly) {
    CMtfTestDir dir;
    auto rw = CMtfFileRw::Open(dir.Path("s.txt"), EMtfOpenRW);
    EXPECT_EQ(dir.Read("s.txt"), kBom);
    rw->GetLines()->AddLine(u"type=ifd", MtfLineAdded);
    rw->Save();
    EXPECT_EQ(dir.Read("s.txt"), kBom + Le("type=ifd"));
}

TEST(MtfSave, AppendsOrRewritesSafely) {
    CMtfTestDir dir;
    dir.Write("s.txt", kBom + Le("a=1\nb=2"));
    auto rw = CMtfFileRw::Open(dir.Path("s.txt"), EMtfOpenRW);
    rw->Save();  // nothing changed: nothing written
    EXPECT_EQ(dir.Read("s.txt"), kBom + Le("a=1\nb=2"));

    // Appended with a break before each line, none at the end; LF kept.
    rw->GetLines()->AddLine(u"c=3", MtfLineAdded);
    rw->Save();
    EXPECT_EQ(dir.Read("s.txt"), kBom + Le("a=1\nb=2\r\nc=3"));

    // The first line updated: the whole file, through .old, which is gone after.
    rw->GetLines()->ReplaceLine(0, u"a=10");
    rw->Save();
    EXPECT_EQ(dir.Read("s.txt"), kBom + Le("a=10\r\nb=2\r\nc=3"));
    EXPECT_FALSE(dir.Exists("s.txt.old"));

    // Detached: the next save rewrites whole, even for an added line.
    rw->Detach();
    rw->GetLines()->AddLine(u"d=4", MtfLineAdded);
    rw->Save();
    EXPECT_EQ(dir.Read("s.txt"), kBom + Le("a=10\r\nb=2\r\nc=3\r\nd=4"));
    EXPECT_FALSE(dir.Exists("s.txt.old"));
}

// A .old that stands already holds the last good version: the safe rewrite
// must not overwrite it with the (maybe half-written) main file.
TEST(MtfSave, StandingOldIsKept) {
    CMtfTestDir dir;
    auto rw = CMtfFileRw::Open(dir.Path("s.txt"), EMtfCreateNewDetached);
    rw->GetLines()->AddLine(u"a=1", MtfLineAdded);
    // The main file can't be written (a folder stands in its place).
    std::filesystem::create_directory(dir.Native("s.txt"));
    dir.Write("s.txt.old", "GOOD");
    EXPECT_THROW(rw->Save(), CExc);
    EXPECT_EQ(dir.Read("s.txt.old"), "GOOD");
    EXPECT_EQ(rw->GetLines()->GetChangeKind(), MtfChangeAppend);  // still pending
}

}  // namespace
}  // namespace metafile
