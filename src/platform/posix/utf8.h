#pragma once
// POSIX side only: strict UTF-8 decoding, one sequence at a time, for the
// conversions that decide themselves what an invalid byte becomes.

#include <string>
#include <string_view>

namespace platform::posix {

// The length of the valid UTF-8 sequence at text[i], with its code point in
// cp; 0 when the bytes there are not valid UTF-8 (overlong, a surrogate,
// beyond U+10FFFF, truncated).
inline size_t DecodeUtf8At(std::string_view text, size_t i, char32_t& cp) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    size_t len;
    if (c < 0x80) { cp = c; return 1; }
    if ((c & 0xE0) == 0xC0) { cp = c & 0x1F; len = 2; }
    else if ((c & 0xF0) == 0xE0) { cp = c & 0x0F; len = 3; }
    else if ((c & 0xF8) == 0xF0) { cp = c & 0x07; len = 4; }
    else return 0;
    if (i + len > text.size()) return 0;
    for (size_t k = 1; k < len; ++k) {
        const unsigned char cc = static_cast<unsigned char>(text[i + k]);
        if ((cc & 0xC0) != 0x80) return 0;
        cp = (cp << 6) | (cc & 0x3F);
    }
    static constexpr char32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kMin[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
    return len;
}

// Appends one code point as UTF-16 (a pair above U+FFFF).
inline void AppendUtf16(std::u16string& out, char32_t cp) {
    if (cp >= 0x10000) {
        out += static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10));
        out += static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF));
    } else {
        out += static_cast<char16_t>(cp);
    }
}

}  // namespace platform::posix
