#include "platform/names.h"

#include "base/utf.h"
#include "platform/posix/utf8.h"

namespace platform {

namespace {

constexpr char16_t kEscapeBase = 0xDC00;   // lone surrogate for an undecodable byte
constexpr char32_t kPrivateBase = 0xF000;  // private-use character for a reserved one

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
    // Runs of ordinary characters convert as UTF-8; an escaped byte goes out
    // as itself between them.
    std::string out;
    std::u16string run;
    auto flush = [&] {
        out += util::Utf16ToUtf8(run);
        run.clear();
    };
    for (size_t i = 0; i < name.size(); ++i) {
        const char16_t c = name[i];
        if (c == 0 || c == u'/') return std::nullopt;
        if (c >= 0xD800 && c <= 0xDBFF) {
            if (i + 1 >= name.size() || name[i + 1] < 0xDC00 || name[i + 1] > 0xDFFF)
                return std::nullopt;
            run += c;
            run += name[++i];
        } else if (c >= 0xDC00 && c <= 0xDFFF) {
            if (c < 0xDC80) return std::nullopt;
            flush();
            out += static_cast<char>(c - kEscapeBase);
        } else {
            run += IsMappedPrivate(c) ? static_cast<char16_t>(c - kPrivateBase) : c;
        }
    }
    flush();
    return out;
}

}  // namespace platform
