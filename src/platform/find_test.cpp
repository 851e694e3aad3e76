// The file search's failures, the same on both systems.

#include "platform/find.h"

#include <gtest/gtest.h>

#include "base/utf.h"
#include "platform/errors.h"
#include "testing/temp_dir.h"

namespace platform {
namespace {

TEST(Find, Errors) {
    ngitest::CTempDir dir;
    dir.WriteFile("f", "");
    const struct {
        std::u16string pattern;
        uint32_t error;
    } cases[] = {
        {dir.Path(u"*.none"), kErrFileNotFound},
        {dir.Path(u"missing\\*"), kErrPathNotFound},
#if !defined(_WIN32)  // Windows answers a file searched as a folder otherwise (123 under Wine)
        {dir.Path(u"f\\*"), kErrPathNotFound},
#endif
        {dir.Path(u"missing\\deeper\\*"), kErrPathNotFound},
        {dir.Path() + u"\\", kErrFileNotFound},
    };
    TFindData data;
    for (const auto& c : cases) {
        EXPECT_FALSE(FindFirst(c.pattern, data).IsValid());
        EXPECT_EQ(GetLastError(), c.error) << util::Utf16ToUtf8(c.pattern);
    }
    CFindHandle closed;
    EXPECT_FALSE(FindNext(closed, data));
    EXPECT_EQ(GetLastError(), kErrInvalidHandle);
}

}  // namespace
}  // namespace platform
