#include "platform/file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <fstream>

#include "base/utf.h"
#include "platform/errors.h"
#include "platform/find.h"
#include "platform/posix/native_path.h"
#include "testing/temp_dir.h"

namespace platform {
namespace {

using CTestDir = ngitest::CTempDir;

// A path below the test folder in this system's spelling.
std::string In(const CTestDir& dir, const std::string& rest) { return (dir.Native() / rest).string(); }

std::string ReadAll(const std::string& native) {
    std::ifstream in(native, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

bool Exists(const std::string& native) {
    struct stat st;
    return ::lstat(native.c_str(), &st) == 0;
}

// ---- Paths ------------------------------------------------------------------

TEST(NativePath, ConvertsNameByName) {
    const struct {
        std::u16string path;
        std::string native;
    } cases[] = {
        {u"/tmp/a\\b", "/tmp/a/b"},
        {u"/tmp//x\\", "/tmp/x"},
        {u"/a/./b/../c", "/a/c"},
        {u"/..\\..", "/"},
        {u"..\\x", "../x"},
        {u".", "."},
        {u"/t/a\uF02Ab", "/t/a*b"},
        {u"/t/\xDCFF", "/t/\xFF"},
    };
    for (const auto& c : cases) {
        std::string native;
        ASSERT_TRUE(posix::ToNativePath(c.path, native)) << c.native;
        EXPECT_EQ(native, c.native);
    }
}

TEST(NativePath, Refusals) {
    const struct {
        std::u16string path;
        uint32_t error;
    } cases[] = {
        {u"", kErrPathNotFound},
        {u"\\\\?\\Volume{00000000-0000-0000-0000-000000000000}\\x", kErrPathNotFound},
        {u"\\\\server\\share\\x", kErrPathNotFound},
        {u"/tmp/a\xD800" u"b", kErrInvalidName},
        {u"/" + std::u16string(posix::kMaxPathUnits, u'a'), kErrFilenameExcedRange},
    };
    for (const auto& c : cases) {
        std::string native;
        SetLastError(0);
        EXPECT_FALSE(posix::ToNativePath(c.path, native));
        EXPECT_EQ(GetLastError(), c.error) << native;
    }
}

// ---- Opening ----------------------------------------------------------------

TEST(FileOpen, FolderNeedsBackupSemantics) {
    CTestDir dir;
    std::filesystem::create_directory(dir.Native() / "d");
    EXPECT_FALSE(FileOpen(dir.Path(u"d"), kGenericRead, 0, kOpenExisting, 0).IsValid());
    EXPECT_EQ(GetLastError(), kErrAccessDenied);
    CHandle h = FileOpen(dir.Path(u"d"), kGenericRead, 0, kOpenExisting, kFlagBackupSemantics);
    EXPECT_TRUE(h.IsValid());
    uint64_t write = 0;
    EXPECT_TRUE(FileGetTimes(h.Get(), nullptr, nullptr, &write));
    EXPECT_NE(write, 0u);
}

TEST(FileOpen, ReparsePointFlagOpensTheLinkItself) {
    CTestDir dir;
    ASSERT_EQ(::symlink("missing-target", In(dir, "link").c_str()), 0);
    EXPECT_FALSE(FileOpen(dir.Path(u"link"), 0, 0, kOpenExisting, kFlagBackupSemantics).IsValid());
    CHandle h = FileOpen(dir.Path(u"link"), kFileReadAttributes, 7, kOpenExisting,
                         kFlagBackupSemantics | kFlagOpenReparsePoint);
    ASSERT_TRUE(h.IsValid());
    char target[64] = {};
    EXPECT_EQ(::readlinkat(static_cast<int>(h.Get()), "", target, sizeof target - 1), 14);
    EXPECT_STREQ(target, "missing-target");
}

TEST(FileOpen, AttributeHandleOfAFifoDoesNotBlock) {
    CTestDir dir;
    ASSERT_EQ(::mkfifo(In(dir, "fifo").c_str(), 0666), 0);
    CHandle h = FileOpen(dir.Path(u"fifo"), kFileReadAttributes, 7, kOpenExisting, kFlagBackupSemantics);
    EXPECT_TRUE(h.IsValid());
}

TEST(FileOpen, DeleteOnCloseRemovesTheNameAtClose) {
    CTestDir dir;
    CHandle h = FileOpen(dir.Path(u"t"), kGenericWrite, 0, kCreateNew, kFlagDeleteOnClose);
    ASSERT_TRUE(h.IsValid());
    EXPECT_TRUE(Exists(In(dir, "t")));
    CHandle moved = std::move(h);
    EXPECT_TRUE(Exists(In(dir, "t")));
    moved.Close();
    EXPECT_FALSE(Exists(In(dir, "t")));
}

TEST(FileHandle, TimesAreFileTimeWithSubSecondTicks) {
    CTestDir dir;
    dir.WriteFile("f", "x");
    // 2021-01-01 00:00:00.123456789 UTC.
    const struct timespec times[2] = {{1609459200, 987654321}, {1609459200, 123456789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, In(dir, "f").c_str(), times, 0), 0);
    const uint64_t expectedWrite = (1609459200ULL + 11644473600ULL) * 10000000ULL + 1234567;
    const uint64_t expectedAccess = (1609459200ULL + 11644473600ULL) * 10000000ULL + 9876543;
    CHandle h = FileOpen(dir.Path(u"f"), kGenericRead, 0, kOpenExisting, 0);
    uint64_t creation = 0, access = 0, write = 0;
    ASSERT_TRUE(FileGetTimes(h.Get(), &creation, &access, &write));
    EXPECT_EQ(write, expectedWrite);
    EXPECT_EQ(access, expectedAccess);
    TFindData data;
    CFindHandle find = FindFirst(dir.Path(u"f"), data);
    ASSERT_TRUE(find.IsValid());
    EXPECT_EQ(data.lastWriteTime, expectedWrite);
    EXPECT_EQ(data.size, 1u);
}

// ---- Names ------------------------------------------------------------------

TEST(FileNames, RemoveDirectoryTakesALinkToAFolder) {
    CTestDir dir;
    std::filesystem::create_directory(dir.Native() / "d");
    ASSERT_EQ(::symlink("d", In(dir, "l").c_str()), 0);
    EXPECT_TRUE(DirRemove(dir.Path(u"l")));
    EXPECT_TRUE(Exists(In(dir, "d")));
    EXPECT_FALSE(Exists(In(dir, "l")));
}

TEST(FileNames, Attributes) {
    CTestDir dir;
    dir.WriteFile("f", "");
    dir.WriteFile(".dot", "");
    dir.WriteFile("ro", "");
    ::chmod(In(dir, "ro").c_str(), 0444);
    std::filesystem::create_directory(dir.Native() / "d");
    ::symlink("d", In(dir, "ld").c_str());
    ::symlink("f", In(dir, "lf").c_str());
    ::symlink("nowhere", In(dir, "lx").c_str());
    const struct {
        std::u16string name;
        uint32_t attributes;
    } cases[] = {
        {u"f", kAttrArchive},
        {u".dot", kAttrArchive},  // no hidden bit for dot-names
        {u"ro", kAttrArchive | kAttrReadOnly},
        {u"d", kAttrDirectory},
        {u"ld", kAttrDirectory | kAttrReparsePoint},
        {u"lf", kAttrArchive | kAttrReparsePoint},
        {u"lx", kAttrArchive | kAttrReparsePoint},
    };
    for (const auto& c : cases)
        EXPECT_EQ(GetAttributes(dir.Path(c.name)), c.attributes) << util::Utf16ToUtf8(c.name);
}

// Paths beyond PATH_MAX work through every call, and stop at 32,767 units.
TEST(FileNames, LongPaths) {
    CTestDir dir;
    const std::u16string name(200, u'n');
    std::u16string path = dir.Path();
    std::vector<std::u16string> folders;
    while (path.size() < 5000) {
        path += u"\\" + name;
        ASSERT_TRUE(DirCreate(path)) << path.size() << " error " << GetLastError();
        folders.push_back(path);
    }
    ASSERT_GT(util::Utf16ToUtf8(path).size(), 4096u);
    const std::u16string file = path + u"\\file.bin";
    {
        CHandle h = FileOpen(file, kGenericWrite, 0, kCreateNew, 0);
        ASSERT_TRUE(h.IsValid()) << GetLastError();
        uint32_t done = 0;
        ASSERT_TRUE(FileWrite(h.Get(), "long", 4, &done));
    }
    EXPECT_EQ(GetAttributes(file), kAttrArchive);
    EXPECT_EQ(GetAttributes(path + u"\\missing\\x"), kInvalidFileAttributes);
    EXPECT_EQ(GetLastError(), kErrPathNotFound);
    TFindData data;
    CFindHandle find = FindFirst(path + u"\\*.bin", data);
    ASSERT_TRUE(find.IsValid());
    EXPECT_EQ(data.name, u"file.bin");
    EXPECT_EQ(data.size, 4u);
    EXPECT_TRUE(FileMove(file, path + u"\\moved.bin", 0));
    std::u16string temp;
    EXPECT_NE(MakeTempFileName(path, u"ifd", temp), 0u);
    EXPECT_TRUE(FileDelete(temp));
    EXPECT_TRUE(FileDelete(path + u"\\moved.bin"));
    EXPECT_FALSE(DirCreate(path + u"\\" + std::u16string(33000 - path.size(), u'x')));
    EXPECT_EQ(GetLastError(), kErrFilenameExcedRange);
    for (auto it = folders.rbegin(); it != folders.rend(); ++it) ASSERT_TRUE(DirRemove(*it));
}

TEST(FileNames, TempFileNames) {
    CTestDir dir;
    std::u16string first, second;
    const uint32_t a = MakeTempFileName(dir.Path() + u"\\", u"ifdXYZ", first);
    ASSERT_NE(MakeTempFileName(dir.Path(), u"ifd", second), 0u);
    EXPECT_NE(first, second);
    // "<dir>\ifd" + one to four upper-case hex digits (the number returned) + ".tmp", made empty.
    char hex[8];
    std::snprintf(hex, sizeof hex, "%X", a);
    EXPECT_EQ(util::Utf16ToUtf8(first), dir.Native().string() + "\\ifd" + hex + ".tmp");
    for (const auto& name : {first, second}) {
        const std::string text = util::Utf16ToUtf8(name).substr(dir.Native().string().size() + 1);
        EXPECT_THAT(text, ::testing::MatchesRegex("ifd[1-9A-F][0-9A-F]{0,3}\\.tmp"));
        EXPECT_EQ(ReadAll(In(dir, text)), "");
    }
    std::u16string none;
    EXPECT_EQ(MakeTempFileName(dir.Path(u"missing"), u"ifd", none), 0u);
    EXPECT_EQ(GetLastError(), kErrPathNotFound);
}

TEST(FileNames, CopyAndReadOnlyAttribute) {
    CTestDir dir;
    dir.WriteFile("a", "content");
    dir.WriteFile("b", "other");
    EXPECT_TRUE(FileCopy(dir.Path(u"a"), dir.Path(u"b"), false));
    EXPECT_EQ(ReadAll(In(dir, "b")), "content");

    ASSERT_TRUE(SetAttributes(dir.Path(u"b"), kAttrReadOnly | kAttrArchive));
    EXPECT_EQ(GetAttributes(dir.Path(u"b")), kAttrArchive | kAttrReadOnly);
    EXPECT_TRUE(FileCopy(dir.Path(u"b"), dir.Path(u"c"), true));
    EXPECT_EQ(GetAttributes(dir.Path(u"c")) & kAttrReadOnly, kAttrReadOnly);
    ASSERT_TRUE(SetAttributes(dir.Path(u"b"), kAttrNormal));
    EXPECT_EQ(GetAttributes(dir.Path(u"b")), kAttrArchive);
}

}  // namespace
}  // namespace platform
