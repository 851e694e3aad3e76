#include "platform/find.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <map>

#include "base/utf.h"
#include "platform/errors.h"
#include "testing/temp_dir.h"

namespace platform {
namespace {

using CTestDir = ngitest::CTempDir;

// A path below the test folder in this system's spelling.
std::string In(const CTestDir& dir, const std::string& rest) { return (dir.Native() / rest).string(); }

std::vector<std::u16string> List(std::u16string_view pattern, uint32_t* error = nullptr) {
    std::vector<std::u16string> names;
    TFindData data;
    CFindHandle find = FindFirst(pattern, data);
    if (!find.IsValid()) {
        if (error) *error = GetLastError();
        return names;
    }
    do names.push_back(data.name);
    while (FindNext(find, data));
    EXPECT_EQ(GetLastError(), kErrNoMoreFiles);
    EXPECT_FALSE(FindNext(find, data));
    return names;
}

TEST(Find, ListsSortedWithDotsFirst) {
    CTestDir dir;
    for (const char* name : {"b.TXT", "a.txt", "C.dat", "noext", ".hidden", "a*b"}) dir.WriteFile(name, "");
    std::filesystem::create_directory(dir.Native() / "sub");
    using V = std::vector<std::u16string>;
    EXPECT_EQ(List(dir.Path(u"*")),
              (V{u".", u"..", u".hidden", u"a.txt", u"a\uF02Ab", u"b.TXT", u"C.dat", u"noext", u"sub"}));
    EXPECT_EQ(List(dir.Path(u"*.txt")), (V{u"a.txt", u"b.TXT"}));
    EXPECT_EQ(List(dir.Path(u"*.")), (V{u".", u"..", u"a\uF02Ab", u"noext", u"sub"}));
    EXPECT_EQ(List(dir.Path(u"A\uF02A?")), (V{u"a\uF02Ab"}));
    // Without wildcards: the entry itself, or found without regard to case.
    EXPECT_EQ(List(dir.Path(u"a.txt")), (V{u"a.txt"}));
    EXPECT_EQ(List(dir.Path(u"B.txt")), (V{u"b.TXT"}));
    EXPECT_EQ(List(dir.Path() + u"/SUB"), (V{u"sub"}));
}

TEST(Find, DescribesEntriesWithoutFollowingLinks) {
    CTestDir dir;
    dir.WriteFile("file", "12345");
    std::filesystem::create_directory(dir.Native() / "d");
    ASSERT_EQ(::symlink("d", In(dir, "ld").c_str()), 0);
    ASSERT_EQ(::symlink("file", In(dir, "lf").c_str()), 0);
    std::map<std::u16string, TFindData> seen;
    TFindData data;
    CFindHandle find = FindFirst(dir.Path(u"*"), data);
    ASSERT_TRUE(find.IsValid());
    do seen[data.name] = data;
    while (FindNext(find, data));

    EXPECT_EQ(seen[u"file"].attributes, kAttrArchive);
    EXPECT_EQ(seen[u"file"].size, 5u);
    EXPECT_EQ(seen[u"d"].attributes, kAttrDirectory);
    EXPECT_EQ(seen[u"ld"].attributes, kAttrDirectory | kAttrReparsePoint);
    EXPECT_EQ(seen[u"ld"].reparseTag, 0xA000000Cu);
    EXPECT_EQ(seen[u"lf"].attributes, kAttrArchive | kAttrReparsePoint);
    EXPECT_EQ(seen[u"lf"].size, 0u);
}

}  // namespace
}  // namespace platform
