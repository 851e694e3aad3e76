#pragma once
// Time: GetLocalTime, GetSystemTime, GetTickCount, the SYSTEMTIME and
// FILETIME conversions, and the date and time texts of GetDateFormatW /
// GetTimeFormatW (LOCALE_USER_DEFAULT, flags 0, the default short forms).
//
// POSIX: the date text is the LC_TIME locale's date form (nl_langinfo
// D_FMT) with a two-digit year widened to four digits, the time text its
// T_FMT; the locale comes from the environment (LC_ALL, LC_TIME, LANG) and
// is "C" when that names none the machine has. In the "C" locale:
// "11/21/2026" and "14:05:09". See docs/platform.md.
//
// Thread-safety: every call may come from any thread.

#include <cstdint>
#include <string>

namespace platform {

// SYSTEMTIME, field for field (16 bytes; compared byte for byte by the log).
struct TSystemTime {
    uint16_t year = 0;
    uint16_t month = 0;      // 1..12
    uint16_t dayOfWeek = 0;  // 0 Sunday .. 6 Saturday
    uint16_t day = 0;        // 1..31
    uint16_t hour = 0;
    uint16_t minute = 0;
    uint16_t second = 0;
    uint16_t milliseconds = 0;
};
static_assert(sizeof(TSystemTime) == 16, "TSystemTime has the layout of SYSTEMTIME");

void GetLocalTime(TSystemTime& time);
void GetSystemTime(TSystemTime& time);  // UTC

// Milliseconds since an arbitrary start, wrapping at 2^32 (about 49.7 days).
uint32_t GetTickCount();

// FILETIME values are 100 ns ticks since 1601-01-01 UTC.
// False (87) for a field out of its range; the day of the week is ignored.
bool SystemTimeToFileTime(const TSystemTime& time, uint64_t& fileTime);
// Fills every field, the day of the week too. False (87) past year 30827.
bool FileTimeToSystemTime(uint64_t fileTime, TSystemTime& time);

// The default short date and time texts of the user's locale.
std::u16string FormatDate(const TSystemTime& time);
std::u16string FormatTime(const TSystemTime& time);

}  // namespace platform
