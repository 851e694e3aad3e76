#pragma once
// Case folding of UTF-16 names as the Windows name comparison does it: each
// code unit of the Basic Multilingual Plane maps to its simple (one character)
// Unicode upper case; surrogates and characters without an upper case stay.
// The table is generated from the Unicode data (scripts/gen-case-table.py).
//
// No locale is involved: the result is the same on every machine, which is
// what a comparison of file names needs.

#include <string>
#include <string_view>

namespace util {

// The simple upper case of one UTF-16 code unit.
char16_t ToUpperChar(char16_t c);
// Each code unit upper-cased.
std::u16string ToUpper(std::u16string_view text);
// True when both have the same length and fold to the same text.
bool EqualNoCase(std::u16string_view a, std::u16string_view b);
// <0, 0, >0 by the folded code units, then by length.
int CompareNoCase(std::u16string_view a, std::u16string_view b);
// a begins with prefix, ignoring case.
bool StartsWithNoCase(std::u16string_view a, std::u16string_view prefix);
// Only "A".."Z" to "a".."z": the lower-casing of filter lines.
std::u16string AsciiLower(std::u16string_view text);

}  // namespace util
