#pragma once
// GUIDs as the RPC runtime reads and writes them (UuidFromStringW,
// UuidToStringW): "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx", hexadecimal digits
// of either case, no braces.

#include <cstdint>
#include <string>
#include <string_view>

namespace indexer {

struct TGuid {
    uint32_t Data1 = 0;
    uint16_t Data2 = 0;
    uint16_t Data3 = 0;
    uint8_t Data4[8] = {};

    bool IsZero() const;
    bool operator==(const TGuid&) const = default;
};

// RPC_S_INVALID_STRING_UUID, the error of a text that is no GUID.
inline constexpr uint32_t kErrInvalidStringUuid = 1705;

// False (the GUID untouched) when the text is not exactly a GUID.
bool ParseGuid(std::u16string_view text, TGuid& guid);
// Lower-case digits, without braces.
std::u16string GuidToString(const TGuid& guid);

}  // namespace indexer
