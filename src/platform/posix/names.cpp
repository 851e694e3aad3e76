#include "platform/names.h"

#include "platform/posix/utf8.h"

namespace platform {

namespace {

constexpr char16_t kEscapeBase = 0xDC00;   // lone surrogate for an undecodable byte
constexpr char32_t kPrivateBase = 0xF000;  // private-use character for a reserved one

void AppendUtf8(std::string& out, char32_t cp) {
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

bool IsMappedPrivate(char32_t cp) {
    return cp >= kPrivateBase && cp < kPrivateBase + 0x80 &&
           IsWindowsReservedNameChar(cp - kPrivateBase);
}

}  // namespace

bool IsWindowsReservedNameChar(char32_t c) {
    if (c >= 1 && c <= 31) return true;
    switch (c) {
        case '"': case '*': case ':': case '<': case '>': case '?': case '\\': case '|':
            return true;
        default:
            return false;
    }
}

std::u16string NameFromNative(std::string_view bytes) {
    std::u16string out;
    out.reserve(bytes.size());
    size_t i = 0;
    while (i < bytes.size()) {
        char32_t cp = 0;
        const size_t len = posix::DecodeUtf8At(bytes, i, cp);
        if (len == 0 || IsMappedPrivate(cp)) {
            // Undecodable, or a literal private-use character that would read
            // back as a reserved one: keep its bytes one by one.
            const size_t n = len == 0 ? 1 : len;
            for (size_t k = 0; k < n; ++k)
                out += static_cast<char16_t>(kEscapeBase + static_cast<unsigned char>(bytes[i + k]));
            i += n;
            continue;
        }
        if (IsWindowsReservedNameChar(cp)) cp += kPrivateBase;
        posix::AppendUtf16(out, cp);
        i += len;
    }
    return out;
}

std::optional<std::string> NameToNative(std::u16string_view name) {
    std::string out;
    out.reserve(name.size());
    for (size_t i = 0; i < name.size(); ++i) {
        char32_t cp = name[i];
        if (cp == 0 || cp == '/') return std::nullopt;
        if (cp >= 0xD800 && cp <= 0xDBFF) {
            if (i + 1 >= name.size() || name[i + 1] < 0xDC00 || name[i + 1] > 0xDFFF)
                return std::nullopt;
            cp = 0x10000 + ((cp - 0xD800) << 10) + (name[i + 1] - 0xDC00);
            ++i;
        } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
            if (cp < 0xDC80) return std::nullopt;
            out += static_cast<char>(cp - kEscapeBase);
            continue;
        } else if (IsMappedPrivate(cp)) {
            cp -= kPrivateBase;
        }
        AppendUtf8(out, cp);
    }
    return out;
}

}  // namespace platform
