// The Win32 error texts and exceptions, run under Windows or Wine: the
// system's own wording reaches the messages unchanged.

#include <gtest/gtest.h>

#include <string>

#include "platform/errors.h"

namespace platform {
namespace {

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
