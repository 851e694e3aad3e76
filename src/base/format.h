#pragma once
// The %1 formatter and the fixed conversions used for message arguments.
//
// FormatMessageArgs copies the format; at "%" it reads a decimal number the
// way a standard base-10 conversion does (blanks skipped, a sign accepted).
// With no digits it writes "%" and goes on. A number n in 1..count writes
// argument n; any other number writes "%" and the number, so "%3" without a
// third argument stays "%3". Arguments are written as they are, not rescanned.

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

std::u16string FormatMessageArgs(std::u16string_view format,
                                 std::initializer_list<std::u16string_view> args);
std::u16string FormatMessageArgs(std::u16string_view format,
                                 const std::vector<std::u16string>& args);

namespace util {

std::u16string ToStr(int32_t value);          // "%d"
std::u16string ToStrU64(uint64_t value);      // "%I64u"
std::u16string ToStrU32(uint32_t value);      // "%u"
std::u16string Hex16(uint64_t value);         // "%16.16I64x": record numbers
std::u16string Hex8(uint32_t value);          // "%8.8x": security ids and tags
std::u16string HexCode(uint32_t value);       // "0x%x": COM codes
std::u16string BoolStr(bool value);           // "true" / "false"
std::u16string Ascii(std::string_view text);  // widens 7-bit text

}  // namespace util
