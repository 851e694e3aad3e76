// The Win32 process calls under Windows or Wine. Registry reads are checked
// end to end by scripts/test-windows.sh.

#include "platform/win32/win32_util.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/errors.h"
#include "platform/process.h"

namespace platform {
namespace {

TEST(Win32Process, FileVersion) {
    uint16_t parts[4] = {};
    std::u16string self;
    ASSERT_TRUE(GetModuleFileName(self));
    // The test program has no resources at all: 1812 (1813 where it has
    // resources but no version).
    EXPECT_FALSE(GetFileVersion(self, parts));
    EXPECT_TRUE(GetLastError() == 1812u || GetLastError() == kErrResourceTypeNotFound)
        << GetLastError();
    // A system library has one (Windows' and Wine's alike).
    EXPECT_TRUE(GetFileVersion(u"C:\\windows\\system32\\kernel32.dll", parts)) << GetLastError();
    EXPECT_NE(parts[0], 0);
}

}  // namespace
}  // namespace platform
