// The Win32 exceptions and the errno table.

#include "platform/errors.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/posix/posix_errors.h"

namespace {

TEST(CWin32Exc, SystemLineAndCode) {
    platform::SetLastError(5);
    CWin32Exc e(u"Cannot open volume: [%1].", u"C:");
    EXPECT_EQ(e.GetWin32Error(), 5u);
    EXPECT_EQ(e.GetCode(), static_cast<int32_t>(0x80070005));
    // The system text keeps its own line end, inside the last message.
    EXPECT_EQ(e.GetDescription(),
              u"Cannot open volume: [C:].\r\nWin32 error:Access is denied.\r\n Code: 5");
    e.AddFailContext(u"IndexVolumesOptimized");
    EXPECT_EQ(e.GetMessages().front(), u"IndexVolumesOptimized fail.");
}

TEST(CWin32Exc, ErrorValues) {
    platform::SetLastError(32);
    EXPECT_EQ(CWin32Exc().GetWin32Error(), 32u);
    CWin32Exc minus2(u"m", 0xFFFFFFFEu);
    EXPECT_EQ(minus2.GetCode(), -2);
    EXPECT_EQ(minus2.GetMessages().back(), u"Win32 error: Code: -2");  // no text for it
}

TEST(CWin32Exc, CloneKeepsTypeAndError) {
    CWin32Exc e(u"ctx", 183);
    std::shared_ptr<CExc> copy = e.Clone();
    try {
        copy->Rethrow();
        FAIL();
    } catch (const CWin32Exc& r) {
        EXPECT_EQ(r.GetWin32Error(), 183u);
        EXPECT_EQ(r.GetDescription(), e.GetDescription());
    }
}

TEST(CComExc, SystemLineAndCodeKeptAsGiven) {
    CComExc e(u"Cannot load [%1].", u"x.xml", static_cast<int32_t>(0x800C0005));
    EXPECT_EQ(e.GetCode(), static_cast<int32_t>(0x800C0005));
    EXPECT_EQ(e.GetDescription(), u"Cannot load [x.xml].\r\nCOM error:  Code: 0x800c0005");
}

TEST(Errno, MapsToWin32Numbers) {
    struct Case {
        int err;
        uint32_t win32;
    } cases[] = {
        {0, 0},        {ENOENT, 2},   {ENOTDIR, 3},  {EACCES, 5},    {EPERM, 5},
        {EROFS, 5},    {EEXIST, 80},  {ENOSPC, 112}, {EDQUOT, 112},  {EBADF, 6},
        {ENOMEM, 8},   {EMFILE, 4},   {EINVAL, 87},  {ENAMETOOLONG, 206},
        {ENOTEMPTY, 145}, {EBUSY, 170}, {EXDEV, 17}, {ENOTTY, 1},    {EAGAIN, 33},
        {EIO, 1117},   {EFBIG, 223},  {ELOOP, 1921}, {EHOSTDOWN, 31},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(platform::posix::Win32FromErrno(c.err), c.win32) << "errno " << c.err;
        // Every number the table gives has a text, so the system line reads whole.
        EXPECT_FALSE(platform::GetErrorText(c.win32).empty()) << c.win32;
    }
    errno = ENOSPC;
    EXPECT_FALSE(platform::posix::FailErrno());
    EXPECT_EQ(platform::GetLastError(), 112u);
    EXPECT_EQ(platform::GetErrorText(99999), u"");
}

}  // namespace
