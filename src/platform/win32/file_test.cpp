// The Win32 files, search and error texts, run under Windows or Wine: the
// error numbers the core tests must come out of the real calls unchanged.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "platform/errors.h"
#include "platform/file.h"
#include "platform/find.h"

namespace platform {
namespace {

// A fresh folder under the temporary folder, removed with its contents.
class Win32FileTest : public testing::Test {
protected:
    void SetUp() override {
        auto base = std::filesystem::temp_directory_path() /
                    ("ngi-win32-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                     "-" + testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(base);
        std::filesystem::create_directories(base);
        m_Dir = base.u16string();
    }
    void TearDown() override { std::filesystem::remove_all(std::filesystem::path(m_Dir)); }

    std::u16string Path(std::u16string_view name) const { return m_Dir + u"\\" + std::u16string(name); }

    void WriteFile(std::u16string_view name, std::string_view content) {
        CHandle h = FileOpen(Path(name), kGenericWrite, 0, kCreateAlways, kAttrNormal);
        ASSERT_TRUE(h.IsValid()) << GetLastError();
        uint32_t done = 0;
        ASSERT_TRUE(FileWrite(h.Get(), content.data(), static_cast<uint32_t>(content.size()), &done));
        ASSERT_EQ(done, content.size());
    }

    std::u16string m_Dir;
};

TEST_F(Win32FileTest, CopyAndReadOnly) {
    WriteFile(u"a", "data");
    WriteFile(u"b", "old");
    EXPECT_FALSE(FileCopy(Path(u"a"), Path(u"b"), true));
    EXPECT_EQ(GetLastError(), kErrFileExists);
    ASSERT_TRUE(FileCopy(Path(u"a"), Path(u"b"), false));
    CHandle h = FileOpen(Path(u"b"), kGenericRead, kShareRead, kOpenExisting, 0);
    int64_t size = 0;
    ASSERT_TRUE(FileGetSize(h.Get(), &size));
    EXPECT_EQ(size, 4);
    h.Close();

    ASSERT_TRUE(SetAttributes(Path(u"b"), kAttrReadOnly));
    EXPECT_EQ(GetAttributes(Path(u"b")) & kAttrReadOnly, kAttrReadOnly);
    EXPECT_FALSE(FileDelete(Path(u"b")));
    EXPECT_EQ(GetLastError(), kErrAccessDenied);
    ASSERT_TRUE(SetAttributes(Path(u"b"), kAttrNormal));
    EXPECT_TRUE(FileDelete(Path(u"b")));
}

TEST_F(Win32FileTest, TempFileNamesAreUniqueAndCreated) {
    std::u16string first, second;
    uint32_t n1 = MakeTempFileName(m_Dir, u"ifdXYZ", first);
    uint32_t n2 = MakeTempFileName(m_Dir, u"ifd", second);
    ASSERT_NE(n1, 0u);
    ASSERT_NE(n2, 0u);
    EXPECT_NE(first, second);
    // "<dir>\ifd<hex>.tmp": the prefix cut to three characters.
    std::u16string name = first.substr(m_Dir.size() + 1);
    EXPECT_EQ(name.substr(0, 3), u"ifd");
    EXPECT_EQ(name.substr(name.size() - 4), u".tmp");
    EXPECT_NE(GetAttributes(first), kInvalidFileAttributes);
    std::u16string missing;
    // Windows checks the folder first and answers 267, not 3.
    EXPECT_EQ(MakeTempFileName(Path(u"none"), u"ifd", missing), 0u);
    EXPECT_EQ(GetLastError(), kErrDirectory);
}

TEST_F(Win32FileTest, FindListsDotsFilesAndFolders) {
    WriteFile(u"one.txt", "12345");
    WriteFile(u"two.dat", "");
    ASSERT_TRUE(DirCreate(Path(u"sub")));

    std::map<std::u16string, TFindData> seen;
    TFindData data;
    CFindHandle h = FindFirst(Path(u"*"), data);
    ASSERT_TRUE(h.IsValid()) << GetLastError();
    do seen[data.name] = data;
    while (FindNext(h, data));
    EXPECT_EQ(GetLastError(), kErrNoMoreFiles);

    EXPECT_EQ(seen.size(), 5u);
    EXPECT_TRUE(seen.count(u".") && seen.count(u".."));
    EXPECT_EQ(seen[u"one.txt"].size, 5u);
    EXPECT_EQ(seen[u"one.txt"].attributes & kAttrDirectory, 0u);
    EXPECT_EQ(seen[u"one.txt"].reparseTag, 0u);
    EXPECT_NE(seen[u"one.txt"].lastWriteTime, 0u);
    EXPECT_EQ(seen[u"sub"].attributes & kAttrDirectory, kAttrDirectory);

    h = FindFirst(Path(u"*.txt"), data);
    ASSERT_TRUE(h.IsValid());
    EXPECT_EQ(data.name, u"one.txt");
    EXPECT_FALSE(FindNext(h, data));
}

TEST(Win32Errors, SystemTextsAndLastError) {
    // The wording is the system's (Wine's differs from Windows'); the line
    // end is kept.
    std::u16string text = GetErrorText(kErrFileNotFound);
    ASSERT_GT(text.size(), 2u);
    EXPECT_EQ(text.substr(text.size() - 2), u"\r\n");
    EXPECT_EQ(GetErrorText(0x2FFFFFFF), u"");  // no text
    SetLastError(kErrAccessDenied);
    (void)GetErrorText(0x2FFFFFFF);  // a failing FormatMessageW leaves the last error alone
    EXPECT_EQ(GetLastError(), kErrAccessDenied);
    CWin32Exc e(u"Can`t open %1.", u"x");
    EXPECT_EQ(e.GetWin32Error(), kErrAccessDenied);
    EXPECT_EQ(e.GetCode(), static_cast<int32_t>(0x80070005));
    EXPECT_EQ(e.GetDescription(),
              u"Can`t open x.\r\nWin32 error:" + GetErrorText(kErrAccessDenied) + u" Code: 5");
    EXPECT_EQ(GetComErrorDescription(), u"");  // no error object on this thread
}

}  // namespace
}  // namespace platform
