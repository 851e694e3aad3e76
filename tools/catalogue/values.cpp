#include "catalogue/values.h"

#include <charconv>
#include <cstdio>

namespace catalogue {

namespace {

constexpr uint64_t kTicksPerSecond = 10000000;
constexpr int64_t kDaysFrom1601To1970 = 134774;

// Days since 1970-01-01 of a civil date, and back (proleptic Gregorian).
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
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y = static_cast<int64_t>(yoe) + era * 400 + (m <= 2);
}

bool TakeNumber(std::string_view& text, size_t digits, unsigned& value) {
    if (text.size() < digits) return false;
    value = 0;
    for (size_t i = 0; i < digits; ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
        value = value * 10 + static_cast<unsigned>(text[i] - '0');
    }
    text.remove_prefix(digits);
    return true;
}

bool TakeChar(std::string_view& text, char c) {
    if (text.empty() || text[0] != c) return false;
    text.remove_prefix(1);
    return true;
}

}  // namespace

std::string IsoTime(uint64_t ticks, bool fraction) {
    std::string text;
    AppendIsoTime(text, ticks, fraction);
    return text;
}

void AppendIsoTime(std::string& out, uint64_t ticks, bool fraction) {
    const uint64_t seconds = ticks / kTicksPerSecond;
    const int64_t days = static_cast<int64_t>(seconds / 86400) - kDaysFrom1601To1970;
    const uint64_t inDay = seconds % 86400;
    int64_t y;
    unsigned m, d;
    CivilFromDays(days, y, m, d);
    auto digits = [&](uint64_t value, int width) {
        char text[20];
        for (int i = width - 1; i >= 0; --i, value /= 10) text[i] = static_cast<char>('0' + value % 10);
        out.append(text, static_cast<size_t>(width));
    };
    if (y > 9999) AppendNumber(out, static_cast<uint64_t>(y)); else digits(static_cast<uint64_t>(y), 4);
    out += '-';
    digits(m, 2);
    out += '-';
    digits(d, 2);
    out += 'T';
    digits(inDay / 3600, 2);
    out += ':';
    digits(inDay / 60 % 60, 2);
    out += ':';
    digits(inDay % 60, 2);
    if (fraction) {
        out += '.';
        digits(ticks % kTicksPerSecond, 7);
    }
    out += 'Z';
}

void AppendNumber(std::string& out, uint64_t value) {
    char text[24];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    out.append(text, static_cast<size_t>(end - text));
}

std::optional<uint64_t> ParseIsoTime(std::string_view text) {
    unsigned y, m, d, hh = 0, mm = 0, ss = 0;
    if (!TakeNumber(text, 4, y) || !TakeChar(text, '-') || !TakeNumber(text, 2, m) || !TakeChar(text, '-') ||
        !TakeNumber(text, 2, d))
        return std::nullopt;
    if (!text.empty() && (text[0] == 'T' || text[0] == ' ')) {
        text.remove_prefix(1);
        if (!TakeNumber(text, 2, hh) || !TakeChar(text, ':') || !TakeNumber(text, 2, mm)) return std::nullopt;
        if (TakeChar(text, ':') && !TakeNumber(text, 2, ss)) return std::nullopt;
    }
    TakeChar(text, 'Z');
    if (!text.empty() || y < 1601 || m < 1 || m > 12 || d < 1 || d > 31 || hh > 23 || mm > 59 || ss > 59)
        return std::nullopt;
    int64_t ry;
    unsigned rm, rd;
    const int64_t days = DaysFromCivil(y, m, d);
    CivilFromDays(days, ry, rm, rd);
    if (rm != m || rd != d) return std::nullopt;  // 2026-02-30 and the like
    const uint64_t seconds = static_cast<uint64_t>(days + kDaysFrom1601To1970) * 86400 + hh * 3600 + mm * 60 + ss;
    return seconds * kTicksPerSecond;
}

std::optional<uint64_t> ParseSize(std::string_view text) {
    uint64_t value = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end == text.data()) return std::nullopt;
    std::string_view rest(end, static_cast<size_t>(text.data() + text.size() - end));
    unsigned shift = 0;
    if (rest.size() == 1) {
        switch (rest[0]) {
            case 'K': case 'k': shift = 10; break;
            case 'M': case 'm': shift = 20; break;
            case 'G': case 'g': shift = 30; break;
            case 'T': case 't': shift = 40; break;
            default: return std::nullopt;
        }
    } else if (!rest.empty()) {
        return std::nullopt;
    }
    if (shift && value > (~uint64_t{0} >> shift)) return std::nullopt;
    return value << shift;
}

void AppendCsv(std::string& out, std::string_view utf8) {
    bool plain = true;
    for (char c : utf8) plain &= c != ',' && c != '"' && c != '\r' && c != '\n';
    if (plain) {
        out.append(utf8);
        return;
    }
    out.push_back('"');
    for (char c : utf8) {
        if (c == '"') out.push_back('"');
        out.push_back(c);
    }
    out.push_back('"');
}

void AppendJson(std::string& out, std::string_view utf8) {
    out.push_back('"');
    for (char c : utf8) {
        const auto u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out.push_back('\\');
            out.push_back(c);
        } else if (u < 0x20) {
            char esc[8];
            std::snprintf(esc, sizeof esc, "\\u%04x", u);
            out.append(esc);
        } else {
            out.push_back(c);
        }
    }
    out.push_back('"');
}

}  // namespace catalogue
