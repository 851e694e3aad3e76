#include "fast/warning_limit.h"

#include <gtest/gtest.h>

#include "testing/log_capture.h"

using indexer::fast_ntfs_indexer::CWarningLimit;

// Each format is counted on its own, by text (not by address), and only the
// formats past the bound get their closing line.
TEST(WarningLimit, EachFormatIsWrittenUpToTheBoundThenCountedOnce) {
    CWarningLimit limit(3);
    const std::u16string copy = u"often %1";
    int written = 0;
    for (int i = 0; i < 5; ++i) written += limit.Admit(u"often %1");
    written += limit.Admit(copy);
    EXPECT_EQ(written, 3);
    EXPECT_TRUE(limit.Admit(u"rare %1"));
    ngitest::CLogCapture log;
    limit.LogSuppressed();
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(log.Lines()[0].text,
              u"The warning [often %1] was given 3 more times; only its first 3 were written.");
    EXPECT_EQ(log.Lines()[0].level, LogWarning);
}
