#include "catalogue/model/values.h"

#include <charconv>
#include <cstdio>

#include "catalogue/model/text_out.h"
#include "platform/time.h"

namespace catalogue {

namespace {

constexpr uint64_t kTicksPerSecond = 10000000;

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
    platform::TSystemTime t;
    if (!platform::FileTimeToSystemTime(ticks, t)) {  // past year 30827: the ticks as they are
        out += "ticks:";
        AppendNumber(out, ticks);
        return;
    }
    auto digits = [&](uint64_t value, int width) {
        char text[20];
        for (int i = width - 1; i >= 0; --i, value /= 10) text[i] = static_cast<char>('0' + value % 10);
        out.append(text, static_cast<size_t>(width));
    };
    if (t.year > 9999) AppendNumber(out, t.year); else digits(t.year, 4);
    out += '-';
    digits(t.month, 2);
    out += '-';
    digits(t.day, 2);
    out += 'T';
    digits(t.hour, 2);
    out += ':';
    digits(t.minute, 2);
    out += ':';
    digits(t.second, 2);
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
    if (!text.empty()) return std::nullopt;
    platform::TSystemTime t;
    t.year = static_cast<uint16_t>(y);
    t.month = static_cast<uint16_t>(m);
    t.day = static_cast<uint16_t>(d);
    t.hour = static_cast<uint16_t>(hh);
    t.minute = static_cast<uint16_t>(mm);
    t.second = static_cast<uint16_t>(ss);
    uint64_t ticks = 0;
    if (!platform::SystemTimeToFileTime(t, ticks)) return std::nullopt;  // 2026-02-30 and the like
    return ticks;
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

void AppendJson(std::string& out, std::u16string_view text) {
    out.push_back('"');
    size_t from = 0;  // the start of the text not yet written
    for (size_t i = 0; i < text.size(); ++i) {
        const char16_t c = text[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            ++i;  // a pair: UTF-8 below
            continue;
        }
        // Written escaped: quotes, control characters, and a lone surrogate,
        // which UTF-8 has no bytes for and JSON's escape keeps exactly.
        if (c >= 0x20 && c != '"' && c != '\\' && (c < 0xD800 || c > 0xDFFF)) continue;
        AppendUtf8(out, text.substr(from, i - from));
        if (c == '"' || c == '\\') {
            out.push_back('\\');
            out.push_back(static_cast<char>(c));
        } else {
            char esc[8];
            std::snprintf(esc, sizeof esc, "\\u%04x", static_cast<unsigned>(c));
            out.append(esc);
        }
        from = i + 1;
    }
    AppendUtf8(out, text.substr(from));
    out.push_back('"');
}

}  // namespace catalogue
