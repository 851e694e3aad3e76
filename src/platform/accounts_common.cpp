// The SID calls that need no system: validation, length, text form.
#include "base/format.h"
#include "platform/accounts.h"
#include "platform/errors.h"

namespace platform {

bool IsValidSid(const uint8_t* sid, size_t available) {
    if (sid == nullptr || available < kMinSidLength || sid[0] != 1 || sid[1] > kMaxSidSubAuthorities ||
        available < kMinSidLength + 4 * size_t{sid[1]}) {
        SetLastError(kErrInvalidSid);
        return false;
    }
    return true;
}

size_t GetLengthSid(const uint8_t* sid, size_t available) {
    if (!IsValidSid(sid, available)) return 0;
    return kMinSidLength + 4 * size_t{sid[1]};
}

bool ConvertSidToStringSid(const uint8_t* sid, size_t available, std::u16string& text) {
    if (!IsValidSid(sid, available)) return false;
    uint64_t authority = 0;
    for (int i = 2; i < 8; ++i) authority = (authority << 8) | sid[i];
    text = u"S-1-";
    if (authority >> 32) {
        static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
        text += u"0x";
        for (int shift = 44; shift >= 0; shift -= 4) text += kDigits[(authority >> shift) & 0xF];
    } else {
        text += util::ToStrU64(authority);
    }
    for (size_t i = 0; i < sid[1]; ++i) {
        const uint8_t* p = sid + kMinSidLength + 4 * i;
        const uint32_t sub = uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
        text += u"-" + util::ToStrU32(sub);
    }
    return true;
}

}  // namespace platform
