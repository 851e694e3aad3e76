#include "base/format.h"

#include <climits>

namespace {

bool IsBlank(char16_t c) { return c == u' ' || (c >= u'\t' && c <= u'\r'); }

template <class Args>
std::u16string FormatImpl(std::u16string_view format, const Args& args) {
    std::u16string result;
    result.reserve(format.size() + 16);
    const size_t count = args.size();
    size_t i = 0;
    while (i < format.size()) {
        char16_t c = format[i];
        if (c != u'%') {
            result += c;
            ++i;
            continue;
        }
        // Parse like a base-10 string-to-long conversion from i + 1.
        size_t p = i + 1;
        while (p < format.size() && IsBlank(format[p])) ++p;
        bool negative = false;
        if (p < format.size() && (format[p] == u'+' || format[p] == u'-')) {
            negative = format[p] == u'-';
            ++p;
        }
        size_t digitsStart = p;
        long long value = 0;
        while (p < format.size() && format[p] >= u'0' && format[p] <= u'9') {
            if (value <= INT32_MAX) value = value * 10 + (format[p] - u'0');
            ++p;
        }
        if (p == digitsStart) {  // no number: a plain "%"
            result += u'%';
            ++i;
            continue;
        }
        if (negative) value = -value;
        if (value > INT32_MAX) value = INT32_MAX;  // the conversion saturates
        if (value < INT32_MIN) value = INT32_MIN;
        if (value >= 1 && static_cast<size_t>(value) <= count) {
            auto it = args.begin();
            std::advance(it, value - 1);
            result += *it;
        } else {
            result += u'%';
            result += util::ToStr(static_cast<int32_t>(value));
        }
        i = p;
    }
    return result;
}

}  // namespace

std::u16string FormatMessageArgs(std::u16string_view format,
                                 std::initializer_list<std::u16string_view> args) {
    return FormatImpl(format, args);
}

std::u16string FormatMessageArgs(std::u16string_view format,
                                 const std::vector<std::u16string>& args) {
    return FormatImpl(format, args);
}

namespace util {

std::u16string Ascii(std::string_view text) { return std::u16string(text.begin(), text.end()); }

std::u16string ToStr(int32_t value) { return Ascii(std::to_string(value)); }
std::u16string ToStrU64(uint64_t value) { return Ascii(std::to_string(value)); }
std::u16string ToStrU32(uint32_t value) { return Ascii(std::to_string(value)); }

namespace {
std::u16string HexDigits(uint64_t value, int width) {
    static const char16_t kDigits[] = u"0123456789abcdef";
    // Filled from the end: one allocation, whatever the width.
    char16_t digits[64];
    int at = 64;
    do {
        digits[--at] = kDigits[value & 0xF];
        value >>= 4;
    } while (value != 0);
    const int limit = width < 64 ? width : 64;
    while (64 - at < limit) digits[--at] = u'0';
    return std::u16string(digits + at, digits + 64);
}
}  // namespace

std::u16string Hex16(uint64_t value) { return HexDigits(value, 16); }
std::u16string Hex8(uint32_t value) { return HexDigits(value, 8); }
std::u16string HexCode(uint32_t value) { return u"0x" + HexDigits(value, 1); }
std::u16string BoolStr(bool value) { return value ? u"true" : u"false"; }

}  // namespace util
