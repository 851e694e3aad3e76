#pragma once
// Reversible conversion of one file name between the program's UTF-16 and
// the bytes of a POSIX name (POSIX side only; the Windows build keeps UTF-16).
//
// From bytes (NameFromNative):
//   - valid UTF-8 becomes the same characters;
//   - a byte that is not part of valid UTF-8 becomes the lone surrogate
//     U+DC00 + byte (U+DC80..U+DCFF);
//   - a character that a Windows name cannot hold (control characters
//     1..31, '"', '*', ':', '<', '>', '?', '\', '|') becomes U+F000 + char;
//   - the UTF-8 form of one of those private-use characters (U+F001..U+F07C
//     for the set above) is escaped byte by byte as lone surrogates, so that
//     it cannot be confused with a mapped character.
// To bytes (NameToNative) undoes each rule, so that
// NameToNative(NameFromNative(b)) == b for every byte string without '/'
// and NUL (which no POSIX name holds).
//
// NameToNative refuses (nullopt) a name holding U+0000, '/', or a surrogate
// that is not part of a pair and not one of U+DC80..U+DCFF: no POSIX name
// could be spelled from it. The characters of the Windows set written as
// themselves ('*', ':' ...) pass through as their own byte.

#include <optional>
#include <string>
#include <string_view>

namespace platform {

std::u16string NameFromNative(std::string_view bytes);
std::optional<std::string> NameToNative(std::u16string_view name);

// True for the characters a Windows name cannot hold (mapped to U+F000 + c).
bool IsWindowsReservedNameChar(char32_t c);

}  // namespace platform
