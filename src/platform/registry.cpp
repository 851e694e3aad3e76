// Registry helpers common to both platforms, over the calls of registry.h.

#include "platform/registry.h"

#include "platform/errors.h"

namespace platform {

bool RegReadDword(RegRoot root, std::u16string_view subKey, std::u16string_view name,
                  uint32_t& value, uint32_t access) {
    CRegKey key;
    if (!RegOpenKey(root, subKey, access, key)) return false;
    uint32_t type = 0;
    std::vector<uint8_t> data;
    if (!RegQueryValue(key, name, type, data)) return false;
    if (type != kRegDword || data.size() != 4) {
        SetLastError(kErrInvalidData);
        return false;
    }
    value = static_cast<uint32_t>(data[0]) | (static_cast<uint32_t>(data[1]) << 8) |
            (static_cast<uint32_t>(data[2]) << 16) | (static_cast<uint32_t>(data[3]) << 24);
    return true;
}

std::u16string RegDataToString(const std::vector<uint8_t>& data) {
    std::u16string text;
    for (size_t i = 0; i + 1 < data.size(); i += 2) {
        char16_t c = static_cast<char16_t>(data[i] | (data[i + 1] << 8));
        if (c == 0) break;
        text += c;
    }
    return text;
}

}  // namespace platform
