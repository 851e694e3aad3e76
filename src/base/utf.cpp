#include "base/utf.h"

namespace util {

namespace {

std::u16string FromUtf8(std::string_view text, bool keepLone) {
    std::u16string out;
    out.reserve(text.size());
    size_t i = 0;
    const size_t n = text.size();
    while (i < n) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        char32_t cp;
        size_t len;
        if (c < 0x80) { cp = c; len = 1; }
        else if ((c & 0xE0) == 0xC0) { cp = c & 0x1F; len = 2; }
        else if ((c & 0xF0) == 0xE0) { cp = c & 0x0F; len = 3; }
        else if ((c & 0xF8) == 0xF0) { cp = c & 0x07; len = 4; }
        else { out += u'\xFFFD'; ++i; continue; }
        if (i + len > n) { out += u'\xFFFD'; ++i; continue; }
        bool ok = true;
        for (size_t k = 1; k < len; ++k) {
            unsigned char cc = static_cast<unsigned char>(text[i + k]);
            if ((cc & 0xC0) != 0x80) { ok = false; break; }
            cp = (cp << 6) | (cc & 0x3F);
        }
        static const char32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
        const bool lone = cp >= 0xD800 && cp <= 0xDFFF;
        if (!ok || cp < kMin[len] || cp > 0x10FFFF || (lone && !keepLone)) {
            out += u'\xFFFD';
            ++i;
            continue;
        }
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out += static_cast<char16_t>(0xD800 + (cp >> 10));
            out += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
        } else {
            out += static_cast<char16_t>(cp);
        }
        i += len;
    }
    return out;
}

std::string ToUtf8(std::u16string_view text, bool keepLone) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t cp = text[i];
        if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (cp >= 0xD800 && cp <= 0xDFFF && !keepLone) {
            cp = 0xFFFD;
        }
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += static_cast<char>(0xC0 | (cp >> 6));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            out += static_cast<char>(0xE0 | (cp >> 12));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (cp >> 18));
            out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }
    return out;
}

}  // namespace

std::u16string Utf8ToUtf16(std::string_view text) { return FromUtf8(text, false); }
std::string Utf16ToUtf8(std::u16string_view text) { return ToUtf8(text, false); }
std::u16string Wtf8ToUtf16(std::string_view text) { return FromUtf8(text, true); }
std::string Utf16ToWtf8(std::u16string_view text) { return ToUtf8(text, true); }

bool HasLoneSurrogate(std::u16string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] < 0xD800 || text[i] > 0xDFFF) continue;
        if (text[i] <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            ++i;
            continue;
        }
        return true;
    }
    return false;
}

}  // namespace util
