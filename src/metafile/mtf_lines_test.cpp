#include "metafile/mtf_lines.h"

#include <gtest/gtest.h>

#include "base/exc.h"
#include "base/format.h"
#include "metafile/mtf_binary_file.h"
#include "metafile/mtf_test_util.h"
#include "platform/codepage.h"

namespace metafile {
namespace {

using testing::CMtfTestDir;
using testing::kBom;
using testing::Le;
using testing::Lines;

std::shared_ptr<CMtfLinesTab> LoadBytes(const CMtfTestDir& dir, const std::string& bytes,
                                        uint64_t limit = kMtfFileSizeLimit) {
    dir.Write("m.txt", bytes);
    auto file = CMtfBinaryFile::OpenExisting(dir.Path("m.txt"), false);
    return CMtfLinesTab::Load(*file, u"m.txt", limit);
}

TEST(MtfLoad, BothEncodingsAndLineEnds) {
    const struct {
        const char* what;
        std::string bytes;
        std::vector<std::u16string> lines;
    } cases[] = {
        {"mark alone", kBom, {}},
        {"empty file", "", {}},
        {"crlf, none after the last", kBom + Le("a=1\r\nb=2\r\n"), {u"a=1", u"b=2"}},
        {"lf alone, mixed", kBom + Le("a\nb\r\nc"), {u"a", u"b", u"c"}},
        {"lone cr is text", kBom + Le("a\rb"), {u"a\rb"}},
        {"empty lines", kBom + Le("\r\n\r\nx"), {u"", u"", u"x"}},
        {"non-ascii unit", kBom + std::string("\xE9\x00\x3A\x04", 4), {u"\u00E9\u043A"}},
        // 8-bit text is in the ANSI code page: UTF-8 on Linux, the system's
        // on Windows.
        {"8-bit", "a=1\r\nb=caf\xC3\xA9\n", {u"a=1", platform::AnsiToUtf16("b=caf\xC3\xA9")}},
        {"single FF byte is 8-bit", "\xFF", {u"\u00FF"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CMtfTestDir dir;
        auto tab = LoadBytes(dir, c.bytes);
        EXPECT_EQ(Lines(*tab), c.lines);
        EXPECT_EQ(tab->GetChangeKind(), MtfNoChange);
    }
}

TEST(MtfLoad, RefusedFiles) {
    CMtfTestDir dir;
    EXPECT_THROW(LoadBytes(dir, kBom + Le("ab") + "c"), CExc);                      // odd tail
    EXPECT_THROW(LoadBytes(dir, kBom + std::string("\x41\x0A\x00\x42", 4)), CExc);  // "\n\0" at an odd offset
    // The size limit: one byte less is read.
    EXPECT_EQ(Lines(*LoadBytes(dir, std::string(15, 'x'), 16)).size(), 1u);
    EXPECT_THROW(LoadBytes(dir, std::string(16, 'x'), 16), CExc);
}

TEST(MtfLines, Grammar) {
    const struct {
        std::u16string line;
        bool attribute;
        std::u16string key, value;
    } cases[] = {
        {u"type=ifd", true, u"type", u"ifd"},
        {u"  key = value  ", true, u"key", u"value"},
        {u"\tk\t=\tv\t", true, u"k", u"v"},
        {u"a=b=c", true, u"a", u"b=c"},
        {u"k=v \u00A0", true, u"k", u"v \u00A0"},  // only blanks and tabs are trimmed
        {u"=v", true, u"", u"v"},
        {u"#a=b", false, u"", u""},
        {u" #a=b", true, u"#a", u"b"},
        {u"", false, u"", u""},
        {u"no attribute", false, u"", u""},
    };
    CMtfLinesTab tab(u"t");
    for (const auto& c : cases) {
        const int64_t i = tab.AddLine(c.line, MtfLineAdded);
        std::u16string key, value;
        EXPECT_EQ(tab.ParseLine(i, key, value), c.attribute) << util::Utf16ToUtf8(c.line);
        if (c.attribute) {
            EXPECT_EQ(key, c.key);
            EXPECT_EQ(value, c.value);
        }
    }
}

TEST(MtfLines, StatesAndIndices) {
    CMtfLinesTab tab(u"t");
    EXPECT_EQ(tab.AddLine(u"a", MtfLineUnchanged), 0);
    EXPECT_EQ(tab.AddLine(u"b", MtfLineUnchanged), 1);
    EXPECT_EQ(tab.GetChangeKind(), MtfNoChange);
    tab.AddLine(u"c", MtfLineAdded);
    EXPECT_EQ(tab.GetChangeKind(), MtfChangeAppend);
    tab.ReplaceLine(2, u"c2");  // not yet in the file: still appendable
    EXPECT_EQ(tab.GetChangeKind(), MtfChangeAppend);
    tab.ReplaceLine(1, u"b2");
    EXPECT_EQ(tab.GetLineState(1), MtfLineUpdated);
    EXPECT_EQ(tab.GetChangeKind(), MtfChangeRewrite);
    EXPECT_THROW(tab.ReplaceLine(3, u"x"), CExc);
    EXPECT_TRUE(tab.DeleteLine(0));
    std::u16string text;
    EXPECT_FALSE(tab.GetLine(0, text));
    EXPECT_FALSE(tab.DeleteLine(0));
    EXPECT_FALSE(tab.GetLine(-1, text));
    EXPECT_FALSE(tab.GetLine(9, text));
}

TEST(MtfWrite, AppendRewriteAndCommit) {
    CMtfTestDir dir;
    dir.Write("m.txt", kBom + Le("a=1\nb=2"));
    auto file = CMtfBinaryFile::OpenExisting(dir.Path("m.txt"), true);
    auto tab = CMtfLinesTab::Load(*file, u"m.txt");
    tab->AddLine(u"c=3", MtfLineAdded);
    tab->AddLine(u"d=4", MtfLineAdded);
    tab->WriteIncrementally(*file);
    // Appended with a break before each line, none at the end; LF kept.
    EXPECT_EQ(dir.Read("m.txt"), kBom + Le("a=1\nb=2\r\nc=3\r\nd=4"));
    EXPECT_EQ(tab->GetChangeKind(), MtfNoChange);

    tab->ReplaceLine(0, u"a=9");
    EXPECT_THROW(tab->WriteIncrementally(*file), CExc);  // a change before the end
    EXPECT_TRUE(tab->DeleteLine(1));
    tab->Rewrite(*file);
    EXPECT_EQ(dir.Read("m.txt"), kBom + Le("a=9\r\nc=3\r\nd=4"));
    EXPECT_EQ(tab->GetChangeKind(), MtfNoChange);
    std::u16string text;
    EXPECT_FALSE(tab->GetLine(1, text));  // a null slot now
    EXPECT_TRUE(tab->GetLine(2, text));   // the others keep their index
    EXPECT_EQ(text, u"c=3");

    // Appended to a file of no lines: no break first.
    dir.Write("e.txt", kBom);
    auto empty = CMtfBinaryFile::OpenExisting(dir.Path("e.txt"), true);
    auto fresh = CMtfLinesTab::Load(*empty, u"e.txt");
    fresh->AddLine(u"x=1", MtfLineAdded);
    fresh->WriteIncrementally(*empty);
    EXPECT_EQ(dir.Read("e.txt"), kBom + Le("x=1"));
}

TEST(MtfWrite, EightBitFileGetsUtf16AppendedAndRewrittenWithMark) {
    CMtfTestDir dir;
    dir.Write("m.txt", "a=1\nb=2");
    auto file = CMtfBinaryFile::OpenExisting(dir.Path("m.txt"), true);
    auto tab = CMtfLinesTab::Load(*file, u"m.txt");
    tab->AddLine(u"c=3", MtfLineAdded);
    tab->WriteIncrementally(*file);
    EXPECT_EQ(dir.Read("m.txt"), "a=1\nb=2" + Le("\r\nc=3"));
    tab->Rewrite(*file);
    EXPECT_EQ(dir.Read("m.txt"), kBom + Le("a=1\r\nb=2\r\nc=3"));
}

TEST(MtfWrite, LargeTableGrowsTheStream) {
    CMtfTestDir dir;
    dir.Write("m.txt", "");
    auto file = CMtfBinaryFile::OpenExisting(dir.Path("m.txt"), true);
    CMtfLinesTab tab(u"m.txt");
    tab.AddLine(u"first", MtfLineAdded);
    tab.Rewrite(*file);  // a small stream to start with
    std::vector<std::u16string> expected = {u"first"};
    for (int i = 0; i < 4000; ++i) {
        expected.push_back(u"Volumes." + util::Ascii(std::to_string(i)) + u".Name=" + std::u16string(40, u'v'));
        tab.AddLine(expected.back(), MtfLineAdded);
    }
    tab.WriteIncrementally(*file);
    EXPECT_EQ(Lines(*CMtfLinesTab::Load(*file, u"m.txt")), expected);
}

TEST(MtfWrite, FailedWriteLeavesTheChangesPending) {
    CMtfTestDir dir;
    dir.Write("m.txt", kBom + Le("a=1"));
    auto readOnly = CMtfBinaryFile::OpenExisting(dir.Path("m.txt"), false);
    auto tab = CMtfLinesTab::Load(*readOnly, u"m.txt");
    tab->ReplaceLine(0, u"a=2");
    EXPECT_THROW(tab->Rewrite(*readOnly), CExc);
    EXPECT_EQ(tab->GetChangeKind(), MtfChangeRewrite);
    EXPECT_EQ(dir.Read("m.txt"), kBom + Le("a=1"));
    // Windows lets no writer in while the reader's handle is open.
    readOnly.reset();
    auto writable = CMtfBinaryFile::OpenExisting(dir.Path("m.txt"), true);
    tab->Rewrite(*writable);
    EXPECT_EQ(dir.Read("m.txt"), kBom + Le("a=2"));
}

}  // namespace
}  // namespace metafile
