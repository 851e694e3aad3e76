#pragma once
// Plain conversions between UTF-8 and UTF-16. Malformed input is replaced by
// U+FFFD. The reversible conversion of file names (every byte kept) belongs
// to the platform layer, not here.

#include <string>
#include <string_view>

namespace util {

std::u16string Utf8ToUtf16(std::string_view text);
std::string Utf16ToUtf8(std::u16string_view text);

}  // namespace util
