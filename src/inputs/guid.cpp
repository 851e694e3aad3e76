#include "inputs/guid.h"

namespace indexer {

namespace {

int HexValue(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
}

}  // namespace

bool TGuid::IsZero() const { return *this == TGuid{}; }

bool ParseGuid(std::u16string_view text, TGuid& guid) {
    // Digit groups of 8-4-4-4-12; the dashes stand at 8, 13, 18 and 23.
    if (text.size() != 36) return false;
    uint8_t bytes[16];
    size_t byte = 0;
    for (size_t i = 0; i < text.size();) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != u'-') return false;
            ++i;
            continue;
        }
        const int high = HexValue(text[i]), low = HexValue(text[i + 1]);
        if (high < 0 || low < 0) return false;
        bytes[byte++] = static_cast<uint8_t>(high * 16 + low);
        i += 2;
    }
    guid.Data1 = (static_cast<uint32_t>(bytes[0]) << 24) | (bytes[1] << 16) | (bytes[2] << 8) | bytes[3];
    guid.Data2 = static_cast<uint16_t>((bytes[4] << 8) | bytes[5]);
    guid.Data3 = static_cast<uint16_t>((bytes[6] << 8) | bytes[7]);
    for (int k = 0; k < 8; ++k) guid.Data4[k] = bytes[8 + k];
    return true;
}

std::u16string GuidToString(const TGuid& guid) {
    static const char16_t digits[] = u"0123456789abcdef";
    std::u16string text;
    auto put = [&](uint64_t value, int count) {
        for (int shift = (count - 1) * 4; shift >= 0; shift -= 4) text += digits[(value >> shift) & 0xF];
    };
    put(guid.Data1, 8);
    text += u'-';
    put(guid.Data2, 4);
    text += u'-';
    put(guid.Data3, 4);
    text += u'-';
    put(guid.Data4[0], 2);
    put(guid.Data4[1], 2);
    text += u'-';
    for (int k = 2; k < 8; ++k) put(guid.Data4[k], 2);
    return text;
}

}  // namespace indexer
