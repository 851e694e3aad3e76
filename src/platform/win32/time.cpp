// Time through GetLocalTime, GetSystemTime, GetTickCount, the SYSTEMTIME /
// FILETIME conversions, GetDateFormatW and GetTimeFormatW.

#include "platform/win32/win32_util.h"

#include "platform/time.h"

namespace platform {

namespace {

SYSTEMTIME ToNative(const TSystemTime& t) {
    SYSTEMTIME st;
    st.wYear = t.year;
    st.wMonth = t.month;
    st.wDayOfWeek = t.dayOfWeek;
    st.wDay = t.day;
    st.wHour = t.hour;
    st.wMinute = t.minute;
    st.wSecond = t.second;
    st.wMilliseconds = t.milliseconds;
    return st;
}

void FromNative(const SYSTEMTIME& st, TSystemTime& t) {
    t.year = st.wYear;
    t.month = st.wMonth;
    t.dayOfWeek = st.wDayOfWeek;
    t.day = st.wDay;
    t.hour = st.wHour;
    t.minute = st.wMinute;
    t.second = st.wSecond;
    t.milliseconds = st.wMilliseconds;
}

FILETIME ToFileTime(uint64_t value) {
    FILETIME ft;
    ft.dwLowDateTime = static_cast<DWORD>(value);
    ft.dwHighDateTime = static_cast<DWORD>(value >> 32);
    return ft;
}

// GetDateFormatW / GetTimeFormatW: the size first, then the text.
template <class F>
std::u16string Format(F format) {
    int n = format(nullptr, 0);
    if (n <= 0) return {};
    std::wstring buffer(static_cast<size_t>(n), L'\0');
    n = format(buffer.data(), n);
    if (n <= 0) return {};
    return win32::FromWide(buffer.data(), static_cast<size_t>(n - 1));  // n counts the null
}

}  // namespace

void GetLocalTime(TSystemTime& time) {
    SYSTEMTIME st;
    ::GetLocalTime(&st);
    FromNative(st, time);
}

void GetSystemTime(TSystemTime& time) {
    SYSTEMTIME st;
    ::GetSystemTime(&st);
    FromNative(st, time);
}

uint32_t GetTickCount() { return ::GetTickCount(); }

bool SystemTimeToFileTime(const TSystemTime& time, uint64_t& fileTime) {
    SYSTEMTIME st = ToNative(time);
    FILETIME ft;
    if (!::SystemTimeToFileTime(&st, &ft)) return false;
    fileTime = win32::FromFileTime(ft);
    return true;
}

bool FileTimeToSystemTime(uint64_t fileTime, TSystemTime& time) {
    FILETIME ft = ToFileTime(fileTime);
    SYSTEMTIME st;
    if (!::FileTimeToSystemTime(&ft, &st)) return false;
    FromNative(st, time);
    return true;
}

std::u16string FormatDate(const TSystemTime& time) {
    SYSTEMTIME st = ToNative(time);
    return Format([&](wchar_t* out, int size) {
        return ::GetDateFormatW(LOCALE_USER_DEFAULT, 0, &st, nullptr, out, size);
    });
}

std::u16string FormatTime(const TSystemTime& time) {
    SYSTEMTIME st = ToNative(time);
    return Format([&](wchar_t* out, int size) {
        return ::GetTimeFormatW(LOCALE_USER_DEFAULT, 0, &st, nullptr, out, size);
    });
}

}  // namespace platform
