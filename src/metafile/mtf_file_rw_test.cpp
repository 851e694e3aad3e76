#include "metafile/mtf_file_rw.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/exc.h"
#include "metafile/mtf_test_util.h"

namespace metafile {
namespace {

using testing::CMtfTestDir;
using testing::kBom;
using testing::Le;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string Describe(const std::function<void()>& call) {
    try {
        call();
    } catch (const CExc& e) {
        return util::Utf16ToUtf8(e.GetDescription());
    }
    return "no failure";
}

std::u16string Line(const CMtfFileRw& rw, int64_t index) {
    std::u16string text;
    rw.GetLines()->GetLine(index, text);
    return text;
}

// An interrupted save left summary.txt half-written and summary.txt.old good.
TEST(MtfOpen, OldFileInEachMode) {
    const std::string good = kBom + Le("type=ifd\r\nv=good");
    const std::string half = kBom + Le("type=i");
    {
        CMtfTestDir dir;
        dir.Write("s.txt", half);
        dir.Write("s.txt.old", good);
        auto rw = CMtfFileRw::Open(dir.Path("s.txt"), EMtfLoad);
        EXPECT_EQ(Line(*rw, 1), u"v=good");
        EXPECT_FALSE(rw->IsAttached());
        EXPECT_EQ(dir.Read("s.txt"), half);  // both left as they are
        EXPECT_EQ(dir.Read("s.txt.old"), good);
    }
    {
        CMtfTestDir dir;
        dir.Write("s.txt", half);
        dir.Write("s.txt.old", good);
        auto rw = CMtfFileRw::Open(dir.Path("s.txt"), EMtfOpenRW);
        EXPECT_EQ(Line(*rw, 1), u"v=good");
        EXPECT_TRUE(rw->IsAttached());
        EXPECT_EQ(dir.Read("s.txt"), good);  // recovery finished
        EXPECT_FALSE(dir.Exists("s.txt.old"));
    }
    {
        CMtfTestDir dir;
        dir.Write("s.txt", half);
        dir.Write("s.txt.old", good);
        auto rw = CMtfFileRw::Open(dir.Path("s.txt"), EMtfCreateNewDetached);
        EXPECT_EQ(rw->GetLines()->GetLineCount(), 0);
        EXPECT_FALSE(rw->IsAttached());
        EXPECT_FALSE(dir.Exists("s.txt"));
        EXPECT_FALSE(dir.Exists("s.txt.old"));
    }
}

TEST(MtfOpen, Failures) {
    CMtfTestDir dir;
    const std::string name = util::Utf16ToUtf8(dir.Path("s.txt"));
    EXPECT_EQ(Describe([&] { CMtfFileRw::Open(dir.Path("s.txt"), EMtfLoad); }),
              "Cannot create or load meta-file \"" + name + "\". Open mode: EMtfLoad\r\n"
              "File \"" + name + "\" does not exist.");
    EXPECT_EQ(Describe([&] { CMtfFileRw::Open(dir.Path("s.txt"), 7); }),
              "Cannot create or load meta-file \"" + name + "\". Open mode: 7\r\n"
              "The specified open mode \"7\" is not supported.");
    dir.Write("s.txt.old", kBom);
    EXPECT_EQ(Describe([&] { CMtfFileRw::Open(dir.Path("s.txt"), -1); }),
              "Cannot create or load meta-file \"" + name + "\". Open mode: -1\r\n"
              "The specified open mode \"-1\" is not supported.");
    EXPECT_TRUE(dir.Exists("s.txt.old"));
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
    dir.Write("s.txt", kBom + Le("a=1\r\nb=2"));
    auto rw = CMtfFileRw::Open(dir.Path("s.txt"), EMtfOpenRW);
    rw->Save();  // nothing changed: nothing written
    EXPECT_EQ(dir.Read("s.txt"), kBom + Le("a=1\r\nb=2"));

    rw->GetLines()->AddLine(u"c=3", MtfLineAdded);
    rw->Save();
    EXPECT_EQ(dir.Read("s.txt"), kBom + Le("a=1\r\nb=2\r\nc=3"));

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

TEST(MtfSave, DetachedTableCreatesTheFile) {
    CMtfTestDir dir;
    auto rw = CMtfFileRw::Open(dir.Path("s.txt"), EMtfCreateNewDetached);
    EXPECT_FALSE(dir.Exists("s.txt"));
    rw->GetLines()->AddLine(u"type=ifd", MtfLineAdded);
    rw->GetLines()->AddLine(u"x=1", MtfLineAdded);
    rw->Save();
    EXPECT_EQ(dir.Read("s.txt"), kBom + Le("type=ifd\r\nx=1"));
    EXPECT_FALSE(dir.Exists("s.txt.old"));
    EXPECT_FALSE(rw->IsAttached());
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
    const std::string failure = Describe([&] { rw->Save(); });
    EXPECT_THAT(failure, StartsWith("Cannot save changes in meta-file"));
    EXPECT_THAT(failure, HasSubstr("Failed to create new binary file"));
    EXPECT_EQ(dir.Read("s.txt.old"), "GOOD");
    EXPECT_EQ(rw->GetLines()->GetChangeKind(), MtfChangeAppend);  // still pending

    // Without a .old the copy is what fails, with its own messages.
    std::filesystem::remove(dir.Native("s.txt.old"));
    EXPECT_THAT(Describe([&] { rw->Save(); }),
                HasSubstr("Cannot copy file. Source file: [" + util::Utf16ToUtf8(dir.Path("s.txt")) +
                          "]. Target file: [" + util::Utf16ToUtf8(dir.Path("s.txt.old")) +
                          "].\r\nCopyFile() failed.\r\nWin32 error:"));
}

}  // namespace
}  // namespace metafile
