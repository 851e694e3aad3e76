#include "platform/time.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

#include "platform/errors.h"

namespace {

using platform::TSystemTime;

TEST(Time, LocalTimeAgreesWithTheCLibrary) {
    TSystemTime now;
    platform::GetLocalTime(now);
    std::time_t c = std::time(nullptr);
    std::tm tm{};
    ::localtime_r(&c, &tm);
    EXPECT_EQ(now.year, tm.tm_year + 1900);
    EXPECT_EQ(now.dayOfWeek, tm.tm_wday);
    EXPECT_LT(now.milliseconds, 1000);
}

}  // namespace
