#include "platform/codepage.h"

#include "platform/posix/utf8.h"

namespace platform {

namespace {

// Windows-1252 at 0x80..0x9F; the holes (0x81, 0x8D, 0x8F, 0x90, 0x9D) map
// to themselves, as MultiByteToWideChar does.
constexpr char16_t kCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

char16_t FromCp1252(unsigned char c) {
    return (c >= 0x80 && c < 0xA0) ? kCp1252High[c - 0x80] : static_cast<char16_t>(c);
}

}  // namespace

std::u16string AnsiToUtf16(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        char32_t cp = 0;
        const size_t len = posix::DecodeUtf8At(text, i, cp);
        if (len == 0) {
            out += FromCp1252(static_cast<unsigned char>(text[i]));
            ++i;
            continue;
        }
        posix::AppendUtf16(out, cp);
        i += len;
    }
    return out;
}

}  // namespace platform
