#include "inputs/filter_reader.h"

#include <gtest/gtest.h>

#include "base/exc.h"
#include "base/utf.h"
#include "testing/temp_dir.h"

namespace indexer {
namespace {

std::string Utf16Bytes(std::u16string_view text, bool mark = false) {
    std::string bytes;
    if (mark) bytes += "\xFF\xFE";
    for (char16_t c : text) {
        bytes += static_cast<char>(c & 0xFF);
        bytes += static_cast<char>(c >> 8);
    }
    return bytes;
}

std::vector<std::u16string> Parse(const CFilterReader& reader, const std::string& bytes) {
    std::vector<std::u16string> lines;
    reader.ParseFilterText(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), lines);
    return lines;
}

CFilterReader MakeReader(std::u16string folder = u"/nowhere") {
    return CFilterReader(std::move(folder), {u"SystemDrive=C:", u"UserProfile=C:\\Users\\Ann",
                                             u"=C:=C:\\", u"systemdrive=D:"});
}

TEST(FilterReaderTest, LinesEndOnlyAtCarriageReturnAndLineFeed) {
    const CFilterReader reader = MakeReader();
    using Lines = std::vector<std::u16string>;
    struct {
        std::u16string text;
        bool mark;
        Lines lines;
    } cases[] = {
        {u"", false, {}},
        {u"", true, {}},                      // only the mark
        {u"C", false, {}},                    // one code unit: no lines
        {u"C:\\a\r\nC:\\b", false, {u"c:\\a\\", u"c:\\b\\"}},
        {u"C:\\a\r\nC:\\b\r\n", true, {u"c:\\a\\", u"c:\\b\\"}},
        {u"C:\\a\r\n\r\n\r\nC:\\b", false, {u"c:\\a\\", u"c:\\b\\"}},  // empty lines add nothing
        {u"C:\\a\nC:\\b", false, {u"c:\\a\nc:\\b\\"}},                  // a lone LF stays
        {u"C:\\a\rC:\\b", false, {u"c:\\a\rc:\\b\\"}},                  // a lone CR stays
        {u"X\nC:\\a", false, {u"c:\\a\\"}},  // LF at index 1 ends an empty line: "X" is lost
        {u"\nC:\\a", true, {u"c:\\a\\"}},    // the same behind the mark
        {u"\xFEFF" u"C:\\a", false, {u"c:\\a\\"}},  // a mark in the text counts as one
    };
    for (const auto& c : cases)
        EXPECT_EQ(Parse(reader, Utf16Bytes(c.text, c.mark)), c.lines) << util::Utf16ToUtf8(c.text);
}

TEST(FilterReaderTest, OddSizeIsRefusedWhateverItHolds) {
    const CFilterReader reader = MakeReader();
    EXPECT_THROW(Parse(reader, "x"), CExc);
    EXPECT_THROW(Parse(reader, Utf16Bytes(u"C:\\data\r\n", true) + std::string(1, '\0')), CExc);
}

// One spelling of a folder (lower-case A-Z only, "\\" at the end, no quotes),
// environment tokens expanded where known.
TEST(FilterReaderTest, NormalisationAndEnvironmentTokens) {
    const CFilterReader reader = MakeReader();
    struct {
        std::u16string in, out;
    } cases[] = {
        {u"C:\\Data", u"c:\\data\\"},
        {u"\"C:/DATA/\"", u"c:\\data\\"},
        {u"\"\"", u""},
        {u"C:\\\u00c4", u"c:\\\u00c4\\"},
        {u"%SYSTEMDRIVE%\\data", u"d:\\data\\"},  // the later entry of a name wins
        {u"%NOSUCH%\\data", u"%nosuch%\\data\\"},
        {u"%userprofile%\\docs", u"c:\\users\\ann\\docs\\"},
        {u"c:\\100%", u"c:\\100%\\"},  // one sign alone stays
        {u"%systemdrive%%nosuch%x", u"d:%nosuch%x\\"},
        // "=C:=C:\" gives the empty name a value, so "%%" expands to it.
        {u"%%", u"c:=c:\\"},
    };
    for (const auto& c : cases) EXPECT_EQ(reader.NormaliseFilterLine(c.in), c.out) << util::Utf16ToUtf8(c.in);
    EXPECT_THROW(CFilterReader(u"/", {u"NOEQUALS"}), CExc);
}

TEST(FilterReaderTest, ReadsBothFilesBesideTheExecutable) {
    ngitest::CTempDir dir;
    dir.WriteFile("NorvaGuestIndexer.inc.filter", Utf16Bytes(u"C:\\Data\r\n%SystemDrive%\\Users", true));
    dir.WriteFile("NorvaGuestIndexer.exc.filter", Utf16Bytes(u"C:\\Data\\Tmp\r\n"));
    const CFilterReader reader = MakeReader(dir.Path());
    std::vector<std::u16string> include, exclude;
    reader.ReadFilters(include, exclude);
    EXPECT_EQ(include, (std::vector<std::u16string>{u"c:\\data\\", u"d:\\users\\"}));
    EXPECT_EQ(exclude, (std::vector<std::u16string>{u"c:\\data\\tmp\\"}));
    // 10 MiB is too big; a missing file is no empty list.
    dir.WriteFile("NorvaGuestIndexer.exc.filter", std::string(0xA00000, '\0'));
    EXPECT_THROW(reader.ReadFilters(include, exclude), CExc);
    std::vector<std::u16string> lines;
    EXPECT_THROW(reader.ReadFilterFile(u"missing.filter", lines), CExc);
}

}  // namespace
}  // namespace indexer
