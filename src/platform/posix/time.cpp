// Time on POSIX: clock_gettime, localtime_r, and the LC_TIME locale's date
// and time forms for the texts of GetDateFormatW / GetTimeFormatW.

#include "platform/time.h"

#include <langinfo.h>
#include <locale.h>

#include <ctime>

#include "base/utf.h"
#include "platform/errors.h"
#include "platform/posix/posix_errors.h"

namespace platform {

namespace {

void FromTm(const std::tm& tm, long nanoseconds, TSystemTime& time) {
    time.year = static_cast<uint16_t>(tm.tm_year + 1900);
    time.month = static_cast<uint16_t>(tm.tm_mon + 1);
    time.dayOfWeek = static_cast<uint16_t>(tm.tm_wday);
    time.day = static_cast<uint16_t>(tm.tm_mday);
    time.hour = static_cast<uint16_t>(tm.tm_hour);
    time.minute = static_cast<uint16_t>(tm.tm_min);
    time.second = static_cast<uint16_t>(tm.tm_sec > 59 ? 59 : tm.tm_sec);  // leap second
    time.milliseconds = static_cast<uint16_t>(nanoseconds / 1000000);
}

// Days since 1970-01-01 of a proleptic Gregorian date (H. Hinnant's method).
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void CivilFromDays(int64_t z, int64_t& y, unsigned& m, unsigned& d) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    y = static_cast<int64_t>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y += m <= 2;
}

bool IsLeap(unsigned y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

unsigned DaysInMonth(unsigned y, unsigned m) {
    static const unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && IsLeap(y) ? 29 : kDays[m - 1];
}

constexpr int64_t kDays1601To1970 = 134774;
constexpr uint64_t kTicksPerDay = 864000000000ull;
constexpr uint64_t kTicksPerMs = 10000;

// The user's LC_TIME locale, or "C" when the environment names none we have.
locale_t TimeLocale() {
    static locale_t locale = [] {
        locale_t l = ::newlocale(LC_TIME_MASK, "", static_cast<locale_t>(0));
        if (!l) l = ::newlocale(LC_TIME_MASK, "C", static_cast<locale_t>(0));
        return l;
    }();
    return locale;
}

std::tm ToTm(const TSystemTime& time) {
    std::tm tm{};
    tm.tm_year = time.year - 1900;
    tm.tm_mon = time.month - 1;
    tm.tm_mday = time.day;
    tm.tm_wday = time.dayOfWeek;
    tm.tm_hour = time.hour;
    tm.tm_min = time.minute;
    tm.tm_sec = time.second;
    return tm;
}

std::u16string Format(const std::string& format, const TSystemTime& time) {
    std::tm tm = ToTm(time);
    char buffer[256];
    size_t n = ::strftime_l(buffer, sizeof buffer, format.c_str(), &tm, TimeLocale());
    return util::Utf8ToUtf16(std::string_view(buffer, n));
}

}  // namespace

void GetLocalTime(TSystemTime& time) {
    timespec ts{};
    ::clock_gettime(CLOCK_REALTIME, &ts);
    std::tm tm{};
    ::localtime_r(&ts.tv_sec, &tm);
    FromTm(tm, ts.tv_nsec, time);
}

void GetSystemTime(TSystemTime& time) {
    timespec ts{};
    ::clock_gettime(CLOCK_REALTIME, &ts);
    std::tm tm{};
    ::gmtime_r(&ts.tv_sec, &tm);
    FromTm(tm, ts.tv_nsec, time);
}

uint32_t GetTickCount() {
    timespec ts{};
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    uint64_t ms = static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
    return static_cast<uint32_t>(ms);
}

bool SystemTimeToFileTime(const TSystemTime& time, uint64_t& fileTime) {
    if (time.year < 1601 || time.year > 30827 || time.month < 1 || time.month > 12 ||
        time.day < 1 || time.day > DaysInMonth(time.year, time.month) || time.hour > 23 ||
        time.minute > 59 || time.second > 59 || time.milliseconds > 999)
        return posix::Fail(kErrInvalidParameter);
    const int64_t days = DaysFromCivil(time.year, time.month, time.day) + kDays1601To1970;
    fileTime = static_cast<uint64_t>(days) * kTicksPerDay +
               ((time.hour * 60u + time.minute) * 60u + time.second) * 10000000ull +
               time.milliseconds * kTicksPerMs;
    return true;
}

bool FileTimeToSystemTime(uint64_t fileTime, TSystemTime& time) {
    if (fileTime >= 0x8000000000000000ull) return posix::Fail(kErrInvalidParameter);
    const int64_t days = static_cast<int64_t>(fileTime / kTicksPerDay);
    uint64_t rest = fileTime % kTicksPerDay;
    int64_t y = 0;
    unsigned m = 0, d = 0;
    CivilFromDays(days - kDays1601To1970, y, m, d);
    time.year = static_cast<uint16_t>(y);
    time.month = static_cast<uint16_t>(m);
    time.day = static_cast<uint16_t>(d);
    time.dayOfWeek = static_cast<uint16_t>((days + 1) % 7);  // 1601-01-01 was a Monday
    time.milliseconds = static_cast<uint16_t>(rest / kTicksPerMs % 1000);
    rest /= 10000000ull;
    time.second = static_cast<uint16_t>(rest % 60);
    time.minute = static_cast<uint16_t>(rest / 60 % 60);
    time.hour = static_cast<uint16_t>(rest / 3600);
    return true;
}

std::u16string FormatDate(const TSystemTime& time) {
    // Windows' short dates show four-digit years; so do ours.
    std::string format = ::nl_langinfo_l(D_FMT, TimeLocale());
    std::string widened;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] == '%' && i + 1 < format.size()) {
            char c = format[++i];
            if (c == 'y')
                widened += "%Y";
            else if (c == 'D')
                widened += "%m/%d/%Y";
            else
                widened += {'%', c};
        } else {
            widened += format[i];
        }
    }
    return Format(widened, time);
}

std::u16string FormatTime(const TSystemTime& time) {
    return Format(::nl_langinfo_l(T_FMT, TimeLocale()), time);
}

}  // namespace platform
