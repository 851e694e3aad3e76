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
        {"crlf, empty lines, none after the last", kBom + Le("\r\na=1\r\n\r\nb=2\r\n"), {u"", u"a=1", u"", u"b=2"}},
        {"lf alone, mixed; a lone cr is text", kBom + Le("a\nb\rc\r\nd"), {u"a", u"b\rc", u"d"}},
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

}  // namespace
}  // namespace metafile
