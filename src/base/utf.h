#pragma once
// Plain conversions between UTF-8 and UTF-16. Malformed input is replaced by
// U+FFFD. The reversible conversion of file names (every byte kept) belongs
// to the platform layer, not here.
//
// The Wtf8 pair is the same conversion made lossless for any UTF-16: a lone
// surrogate (a damaged NTFS name holds them) is written as the three bytes
// its code point would take in UTF-8, ED A0 80 to ED BF BF, and read back so.
// Valid UTF-16 gives the same bytes either way. Used where a name must come
// back exactly from bytes: a query's parameters, a database column.

#include <string>
#include <string_view>

namespace util {

std::u16string Utf8ToUtf16(std::string_view text);
std::string Utf16ToUtf8(std::u16string_view text);

std::u16string Wtf8ToUtf16(std::string_view text);
std::string Utf16ToWtf8(std::u16string_view text);

// True when `text` holds a surrogate that is not half of a pair.
bool HasLoneSurrogate(std::u16string_view text);

}  // namespace util
