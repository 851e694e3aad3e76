// File times and system times, the same on both systems: days of the week,
// leap days, milliseconds, and the values no time can hold.

#include <gtest/gtest.h>

#include <cstring>

#include "platform/errors.h"
#include "platform/time.h"

namespace {

using platform::TSystemTime;

TEST(Time, FileTimeConversions) {
    struct Case {
        TSystemTime time;
        uint64_t fileTime;
    } cases[] = {
        {{1601, 1, 1, 1, 0, 0, 0, 0}, 0},                                 // a Monday
        {{1970, 1, 4, 1, 0, 0, 0, 0}, 116444736000000000ull},             // a Thursday
        {{2000, 2, 2, 29, 23, 59, 59, 999}, 125963423999990000ull},       // leap day, Tuesday
        {{2026, 11, 6, 21, 12, 51, 22, 5}, 134397390820050000ull},        // a Saturday
    };
    for (const auto& c : cases) {
        uint64_t ft = 0;
        ASSERT_TRUE(platform::SystemTimeToFileTime(c.time, ft));
        EXPECT_EQ(ft, c.fileTime);
        TSystemTime back;
        ASSERT_TRUE(platform::FileTimeToSystemTime(c.fileTime, back));
        EXPECT_EQ(std::memcmp(&back, &c.time, sizeof back), 0) << back.year << "-" << back.month
                                                                << "-" << back.day << " dow "
                                                                << back.dayOfWeek;
    }
    TSystemTime bad[] = {{1600, 12, 0, 31, 0, 0, 0, 0}, {2000, 13, 0, 1, 0, 0, 0, 0},
                         {2000, 1, 0, 1, 24, 0, 0, 0},  {2000, 1, 0, 1, 0, 0, 0, 1000},
#if !defined(_WIN32)  // Wine, unlike Windows, takes February 29 of a common year
                         {2001, 2, 0, 29, 0, 0, 0, 0},
#endif
    };
    for (const auto& t : bad) {
        uint64_t ft = 0;
        EXPECT_FALSE(platform::SystemTimeToFileTime(t, ft)) << t.year << "-" << t.month << "-" << t.day;
        EXPECT_EQ(platform::GetLastError(), platform::kErrInvalidParameter);
    }
    TSystemTime t;
    EXPECT_FALSE(platform::FileTimeToSystemTime(0x8000000000000000ull, t));
}

}  // namespace
