// Files through handles and names, the same on both systems: what each way
// of opening does, and the error numbers of failing calls.

#include "platform/file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "platform/errors.h"
#include "testing/temp_dir.h"

namespace platform {
namespace {

TEST(FileOpen, Dispositions) {
    const struct {
        const char* what;
        bool exists;
        uint32_t access;
        uint32_t disposition;
        bool opens;
        uint32_t error;     // last error after the call
        bool truncated;     // the old content is gone
    } cases[] = {
        {"create new, missing", false, kGenericWrite, kCreateNew, true, 0, false},
        {"create new, existing", true, kGenericWrite, kCreateNew, false, kErrFileExists, false},
        {"create always, missing", false, kGenericWrite, kCreateAlways, true, 0, false},
        {"create always, existing", true, kGenericWrite, kCreateAlways, true, kErrAlreadyExists, true},
        {"open existing, missing", false, kGenericRead, kOpenExisting, false, kErrFileNotFound, false},
        {"open existing, existing", true, kGenericRead, kOpenExisting, true, 0, false},
        {"open always, missing", false, kGenericRead, kOpenAlways, true, 0, false},
        {"open always, existing", true, kGenericRead, kOpenAlways, true, kErrAlreadyExists, false},
        {"truncate existing", true, kGenericWrite, kTruncateExisting, true, 0, true},
#if !defined(_WIN32)  // Wine truncates even then
        {"truncate without write access", true, kGenericRead, kTruncateExisting, false,
         kErrInvalidParameter, false},
#endif
        {"truncate missing", false, kGenericWrite, kTruncateExisting, false, kErrFileNotFound, false},
        {"unknown disposition", true, kGenericRead, 9, false, kErrInvalidParameter, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ngitest::CTempDir dir;
        if (c.exists) dir.WriteFile("f", "old");
        SetLastError(12345);
        CHandle h = FileOpen(dir.Path(u"f"), c.access, kShareRead, c.disposition, kAttrNormal);
        EXPECT_EQ(h.IsValid(), c.opens);
        EXPECT_EQ(GetLastError(), c.error);
        h.Close();
        if (c.exists) {
            EXPECT_EQ(dir.ReadFile("f"), c.truncated ? "" : "old");
        }
    }
}

TEST(FileNames, ErrorsOfDeleteMoveCreateRemove) {
    ngitest::CTempDir dir;
    dir.WriteFile("a", "A");
    dir.WriteFile("b", "B");
    std::filesystem::create_directory(dir.Native() / "d");
    dir.WriteFile("d/inside", "");
    auto open = [&](std::u16string_view name) {
        return FileOpen(dir.Path(name), kGenericRead, 0, kOpenExisting, 0).IsValid();
    };
    const struct {
        const char* what;
        std::function<bool()> call;
        uint32_t error;  // 0: succeeds
    } cases[] = {
        {"delete missing", [&] { return FileDelete(dir.Path(u"zz")); }, kErrFileNotFound},
        {"delete a folder", [&] { return FileDelete(dir.Path(u"d")); }, kErrAccessDenied},
        {"mkdir existing", [&] { return DirCreate(dir.Path(u"d")); }, kErrAlreadyExists},
        {"mkdir, parent missing", [&] { return DirCreate(dir.Path(u"no\\x")); }, kErrPathNotFound},
        {"rmdir not empty", [&] { return DirRemove(dir.Path(u"d")); }, kErrDirNotEmpty},
        {"rmdir a file", [&] { return DirRemove(dir.Path(u"a")); }, kErrDirectory},
        {"move onto existing", [&] { return FileMove(dir.Path(u"a"), dir.Path(u"b"), 0); },
         kErrAlreadyExists},
        {"move onto a folder, replacing",
         [&] { return FileMove(dir.Path(u"a"), dir.Path(u"d"), kMoveReplaceExisting); },
         kErrAccessDenied},
        {"move into missing folder", [&] { return FileMove(dir.Path(u"a"), dir.Path(u"no\\y"), 0); },
         kErrPathNotFound},
        {"move replacing", [&] {
             return FileMove(dir.Path(u"a"), dir.Path(u"b"), kMoveReplaceExisting | kMoveWriteThrough);
         }, 0},
        {"open in missing folder", [&] { return open(u"no\\f"); }, kErrPathNotFound},
        {"open below a file", [&] { return open(u"b\\f"); }, kErrPathNotFound},
        {"copy onto existing", [&] { return FileCopy(dir.Path(u"b"), dir.Path(u"d\\inside"), true); },
         kErrFileExists},
    };
    for (const auto& c : cases) {
        SetLastError(0);
        EXPECT_EQ(c.call(), c.error == 0) << c.what;
        if (c.error) {
            EXPECT_EQ(GetLastError(), c.error) << c.what;
        }
    }
    EXPECT_EQ(dir.ReadFile("b"), "A");
    EXPECT_FALSE(std::filesystem::exists(dir.Native() / "a"));
}

TEST(FileHandle, ReadWriteSeekSizeEnd) {
    ngitest::CTempDir dir;
    CHandle h = FileOpen(dir.Path(u"f"), kGenericRead | kGenericWrite, 0, kCreateNew, 0);
    ASSERT_TRUE(h.IsValid());
    uint32_t done = 0;
    ASSERT_TRUE(FileWrite(h.Get(), "0123456789", 10, &done));
    EXPECT_EQ(done, 10u);
    int64_t pos = -1, size = -1;
    ASSERT_TRUE(FileSeek(h.Get(), -4, &pos, kFileEnd));
    EXPECT_EQ(pos, 6);
    char buf[16] = {};
    ASSERT_TRUE(FileRead(h.Get(), buf, sizeof buf, &done));
    EXPECT_EQ(done, 4u);  // a short read at the end succeeds
    EXPECT_STREQ(buf, "6789");
    ASSERT_TRUE(FileRead(h.Get(), buf, sizeof buf, &done));
    EXPECT_EQ(done, 0u);
    ASSERT_TRUE(FileSeek(h.Get(), 3, nullptr, kFileBegin));
    ASSERT_TRUE(FileSetEnd(h.Get()));
    ASSERT_TRUE(FileGetSize(h.Get(), &size));
    EXPECT_EQ(size, 3);
    uint64_t written = 0;
    ASSERT_TRUE(FileGetTimes(h.Get(), nullptr, nullptr, &written));
    EXPECT_GT(written, 116444736000000000ull);  // after 1970
    EXPECT_FALSE(FileSeek(h.Get(), -1, nullptr, kFileBegin));
    EXPECT_FALSE(FileSeek(h.Get(), 0, nullptr, 7));
    EXPECT_TRUE(h.Close());
}

}  // namespace
}  // namespace platform
