#include "inputs/path_utils.h"

#include <gtest/gtest.h>

#include "base/utf.h"
#include "platform/errors.h"
#include "platform/volume_table.h"

namespace indexer {
namespace {

const std::u16string kVolC = u"\\\\?\\Volume{0000000c-0000-0000-0000-000000000001}";
const std::u16string kVolLoose = u"\\\\?\\Volume{00000001-0000-0000-0000-000000000001}";

platform::CVolumeTable MakeTable() {
    std::vector<platform::TVolumeTableEntry> volumes(3);
    volumes[0].mountPoints = {u"C:"};
    volumes[0].volumeName = kVolC;
    volumes[1].mountPoints = {u"C:\\mnt\\data"};
    volumes[2].volumeName = kVolLoose;  // mounted nowhere
    return platform::CVolumeTable(std::move(volumes), {});
}

std::vector<std::u16string> Texts(const std::vector<TPathPart>& parts) {
    std::vector<std::u16string> texts;
    for (const auto& part : parts) texts.emplace_back(part.View());
    return texts;
}

TEST(PathUtilsTest, NtNamesBecomeWin32Names) {
    platform::CVolumeTable table = MakeTable();
    const struct {
        std::u16string in, out;
    } cases[] = {
        {u"\\??\\C:\\dir", u"C:\\dir"},
        {u"\\DosDevice\\C:\\dir", u"C:\\dir"},
        {u"\\..\\C:\\dir", u"C:\\dir"},
        {u"C:\\dir", u"C:\\dir"},
        {u"\\Device\\HarddiskVolume1\\dir", u""},
        {u"\\??\\Volume{0000000c-0000-0000-0000-000000000001}\\dir", u"C:\\dir"},
        {kVolC, u"C:\\"},
        {kVolLoose + u"\\dir", u""},  // a volume without a mount point
        {u"\\\\?\\Volume{00000000-0000-0000-0000-00000000000f}\\dir", u""},  // an unknown volume
    };
    for (const auto& c : cases) EXPECT_EQ(ConvertNamespaceNTtoWin32(c.in, table), c.out) << util::Utf16ToUtf8(c.in);
}

TEST(PathUtilsTest, MountPointNamesAndSeparatedPaths) {
    platform::CVolumeTable table = MakeTable();
    std::u16string name;
    EXPECT_EQ(GetVolumeMountPointName(u"\\??\\C:\\x", name, table), 1);
    EXPECT_EQ(name, u"C:");
    EXPECT_EQ(GetVolumeMountPointName(u"c:\\MNT\\data\\f", name, table), 1);
    EXPECT_EQ(name, u"c:\\MNT\\data");
    EXPECT_EQ(GetVolumeMountPointName(u"Q:\\x", name, table), 0);

    std::vector<TPathPart> parts;
    for (const auto& [path, expected] : std::vector<std::pair<std::u16string, std::vector<std::u16string>>>{
             {u"C:\\\\a\\\\\\b\\", {u"C:", u"a", u"b"}},
             {u"\\\\?\\C:\\mnt\\data\\f", {u"C:\\mnt\\data", u"f"}},
             {u"C:", {u"C:"}}}) {
        SeparatePathAndVolume(path, parts, table);
        EXPECT_EQ(Texts(parts), expected);
    }
    EXPECT_THROW(SeparatePathAndVolume(u"Q:\\x", parts, table), CWin32Exc);
}

TEST(PathUtilsTest, SplitPathSkipsPrefixesAndEmptyComponents) {
    struct {
        std::u16string path;
        std::vector<std::u16string> parts;
    } cases[] = {
        {u"\\\\?\\", {}},
        {u"\\??\\a\\\\b", {u"a", u"b"}},
        {u"\\\\.\\C:\\x\\", {u"C:", u"x"}},
        {u"\\a", {u"a"}},
        {u"", {}},
    };
    for (const auto& c : cases) {
        std::vector<TPathPart> parts;
        SplitPath(c.path, parts);
        EXPECT_EQ(Texts(parts), c.parts) << util::Utf16ToUtf8(c.path);
    }
}

TEST(PathUtilsTest, SeparatorsFileAndDirectoryNames) {
    struct {
        std::u16string path;
        int separator, file;
        std::u16string fileName;
        std::u16string directory;
    } cases[] = {
        {u"", -1, -1, u"", u""},
        {u"\\name", -2, -2, u"", u""},  // index 0 isn't examined
        {u"dir\\", 0, -3, u"", u"dir"},
        {u"dir\\file", 0, 0, u"file", u"dir"},
        {u"C:\\a/b", 0, 0, u"b", u"C:\\a"},
        {u"name", -2, -2, u"", u""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(util::Utf16ToUtf8(c.path));
        std::u16string name;
        EXPECT_EQ(GetFileName(c.path, name), c.file);
        EXPECT_EQ(name, c.fileName);
        std::u16string directory;
        EXPECT_EQ(GetDirectoryName(c.path, directory), c.separator);
        EXPECT_EQ(directory, c.directory);
    }
}

TEST(PathUtilsTest, PrefixesAreExactNamesIgnoreCase) {
    EXPECT_TRUE(StartsWith(u"\\??\\C:", u"\\??\\"));
    EXPECT_FALSE(StartsWith(u"\\Device", u"\\DEVICE"));
    const std::u16string abc = u"ABC", lower = u"abc", longer = u"ABCD";
    std::vector<TPathPart> parts;
    SplitPath(u"ABC\\abc\\\u00c4rger", parts);
    EXPECT_TRUE(IsEqualNames(parts[0], parts[1]));
    EXPECT_TRUE(IsEqualNames(abc, lower.data(), lower.size()));
    EXPECT_FALSE(IsEqualNames(abc, longer.data(), longer.size()));
    EXPECT_FALSE(IsEqualNames(parts[0], u"ABCD"));
    EXPECT_TRUE(IsEqualNames(parts[2], u"\u00e4RGER"));  // folding beyond ASCII
}

}  // namespace
}  // namespace indexer
