#include "metafile/mtf_lines.h"

#include <gmock/gmock.h>
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
using ::testing::HasSubstr;

std::shared_ptr<CMtfLinesTab> LoadBytes(const CMtfTestDir& dir, const std::string& bytes,
                                        uint64_t limit = kMtfFileSizeLimit) {
    dir.Write("m.txt", bytes);
    auto file = CMtfBinaryFile::OpenExisting(dir.Path("m.txt"), false);
    return CMtfLinesTab::Load(*file, u"m.txt", limit);
}

TEST(MtfLoad, BothEncodingsAndLineEnds) {
    using V = std::vector<std::u16string>;
    const struct {
        const char* what;
        std::string bytes;
        V lines;
    } cases[] = {
        {"mark alone", kBom, {}},
        {"empty file", "", {}},
        {"crlf", kBom + Le("a=1\r\nb=2"), {u"a=1", u"b=2"}},
        {"terminator at the end adds no line", kBom + Le("a\r\n"), {u"a"}},
        {"lf alone", kBom + Le("a\nb\n"), {u"a", u"b"}},
        {"mixed", kBom + Le("a\nb\r\nc"), {u"a", u"b", u"c"}},
        {"lone cr is text", kBom + Le("a\rb"), {u"a\rb"}},
        {"empty lines", kBom + Le("\r\n\r\nx"), {u"", u"", u"x"}},
        {"non-ascii unit", kBom + std::string("\xE9\x00\x3A\x04", 4), {u"\u00E9\u043A"}},
        {"8-bit", "a=1\r\nb=caf\xE9\n", {u"a=1", u"b=caf\u00E9"}},
        // 8-bit text is in the ANSI code page: UTF-8 on Linux (é here),
        // the system's on Windows (two characters in Windows-1252).
        {"8-bit utf-8", "k=\xC3\xA9", {platform::AnsiToUtf16("k=\xC3\xA9")}},
        {"8-bit lone cr", "x\ry", {u"x\ry"}},
        {"single FF byte is 8-bit", "\xFF", {u"\u00FF"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CMtfTestDir dir;
        auto tab = LoadBytes(dir, c.bytes);
        EXPECT_EQ(Lines(*tab), c.lines);
        for (int64_t i = 0; i < tab->GetLineCount(); ++i) EXPECT_EQ(tab->GetLineState(i), MtfLineUnchanged);
        EXPECT_EQ(tab->GetChangeKind(), MtfNoChange);
    }
}

TEST(MtfLoad, OddLinesOfUtf16AreRefused) {
    const std::string cases[] = {
        kBom + Le("ab") + "c",                  // odd tail
        kBom + std::string("\x41\x0A\x00\x42", 4),  // "\n\0" found at an odd offset
    };
    for (const auto& bytes : cases) {
        CMtfTestDir dir;
        try {
            LoadBytes(dir, bytes);
            ADD_FAILURE() << "loaded";
        } catch (const CExc& e) {
            EXPECT_EQ(util::Utf16ToUtf8(e.GetDescription()),
                      "Parsing of the meta-file \"m.txt\" has been failed.\r\n"
                      "Unicode meta-file \"m.txt\" contains non-unicode lines.");
        }
    }
}

TEST(MtfLoad, SizeLimit) {
    CMtfTestDir dir;
    // The real limit: a sparse file of exactly 512 MiB is refused before any read.
    dir.Write("big.txt", "");
    std::filesystem::resize_file(dir.Native("big.txt"), kMtfFileSizeLimit);
    auto file = CMtfBinaryFile::OpenExisting(dir.Path("big.txt"), false);
    try {
        CMtfLinesTab::Load(*file, u"big.txt");
        ADD_FAILURE() << "loaded";
    } catch (const CExc& e) {
        EXPECT_EQ(util::Utf16ToUtf8(e.GetDescription()),
                  "Parsing of the meta-file \"big.txt\" has been failed.\r\n"
                  "Size of the meta-file  \"big.txt\" is too big (536870912 bytes)");
        EXPECT_EQ(e.GetCode(), kHrFail);
    }
    // The boundary, with a small limit: one byte less is read.
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
    EXPECT_EQ(tab.GetLineState(2), MtfLineAdded);
    tab.ReplaceLine(1, u"b2");
    EXPECT_EQ(tab.GetLineState(1), MtfLineUpdated);
    EXPECT_EQ(tab.GetChangeKind(), MtfChangeRewrite);
    try {
        tab.ReplaceLine(3, u"x");
        ADD_FAILURE();
    } catch (const CExc& e) {
        EXPECT_EQ(e.GetDescription(), u"There is no line 3 in meta-file t");
    }
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
    try {
        tab->WriteIncrementally(*file);
        ADD_FAILURE();
    } catch (const CExc& e) {
        EXPECT_EQ(util::Utf16ToUtf8(e.GetDescription()),
                  "Meta-file [m.txt] cannot be updated incrementally.\r\n"
                  "There are one or more lines updated at the beginning of the file.");
    }
    EXPECT_TRUE(tab->DeleteLine(1));
    tab->Rewrite(*file);
    EXPECT_EQ(dir.Read("m.txt"), kBom + Le("a=9\r\nc=3\r\nd=4"));
    EXPECT_EQ(tab->GetChangeKind(), MtfNoChange);
    std::u16string text;
    EXPECT_FALSE(tab->GetLine(1, text));  // a null slot now
    EXPECT_TRUE(tab->GetLine(2, text));   // the others keep their index
    EXPECT_EQ(text, u"c=3");
}

TEST(MtfWrite, AppendToAnEmptyFileStartsWithoutABreak) {
    CMtfTestDir dir;
    dir.Write("m.txt", kBom);
    auto file = CMtfBinaryFile::OpenExisting(dir.Path("m.txt"), true);
    auto tab = CMtfLinesTab::Load(*file, u"m.txt");
    tab->AddLine(u"x=1", MtfLineAdded);
    tab->WriteIncrementally(*file);
    EXPECT_EQ(dir.Read("m.txt"), kBom + Le("x=1"));
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
    std::u16string expected = u"first";
    for (int i = 0; i < 4000; ++i) {
        const std::u16string line = u"Volumes." + util::Ascii(std::to_string(i)) + u".Name=" + std::u16string(40, u'v');
        tab.AddLine(line, MtfLineAdded);
        expected += u"\r\n" + line;
    }
    tab.WriteIncrementally(*file);
    auto back = CMtfLinesTab::Load(*file, u"m.txt");
    ASSERT_EQ(back->GetLineCount(), 4001);
    std::u16string joined, text;
    for (int64_t i = 0; i < back->GetLineCount(); ++i) {
        back->GetLine(i, text);
        joined += (i ? u"\r\n" : u"") + text;
    }
    EXPECT_EQ(joined, expected);
}

TEST(MtfWrite, FailedWriteLeavesTheChangesPending) {
    CMtfTestDir dir;
    dir.Write("m.txt", kBom + Le("a=1"));
    auto readOnly = CMtfBinaryFile::OpenExisting(dir.Path("m.txt"), false);
    auto tab = CMtfLinesTab::Load(*readOnly, u"m.txt");
    tab->ReplaceLine(0, u"a=2");
    try {
        tab->Rewrite(*readOnly);
        ADD_FAILURE();
    } catch (const CExc& e) {
        EXPECT_THAT(util::Utf16ToUtf8(e.GetDescription()),
                    HasSubstr("Meta-file [m.txt] cannot be rewritten.\r\n"));
    }
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
