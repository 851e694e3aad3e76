// LookupAccountSid through LookupAccountSidW on the local machine.
#include "platform/win32/win32_util.h"
#undef LookupAccountSid

#include <algorithm>
#include <vector>

#include "platform/accounts.h"
#include "platform/errors.h"

namespace platform {

namespace {

class CWin32Accounts : public IAccounts {
public:
    bool LookupAccountSid(const uint8_t* sid, size_t available, std::u16string& name,
                          std::u16string& domain, uint32_t& use) override {
        if (!IsValidSid(sid, available)) return false;
        PSID p = const_cast<uint8_t*>(sid);
        DWORD nameLength = 0, domainLength = 0;
        SID_NAME_USE kind = SidTypeUnknown;
        // The first call only reports the lengths; its result is not tested.
        ::LookupAccountSidW(nullptr, p, nullptr, &nameLength, nullptr, &domainLength, &kind);
        std::vector<wchar_t> nameBuffer(nameLength + 1);
        std::vector<wchar_t> domainBuffer(std::max<DWORD>(domainLength + 1, 256));
        nameLength = static_cast<DWORD>(nameBuffer.size());
        domainLength = static_cast<DWORD>(domainBuffer.size());
        if (::LookupAccountSidW(nullptr, p, nameBuffer.data(), &nameLength, domainBuffer.data(),
                                &domainLength, &kind) != TRUE)
            return false;
        name.assign(reinterpret_cast<const char16_t*>(nameBuffer.data()), nameLength);
        domain.assign(reinterpret_cast<const char16_t*>(domainBuffer.data()), domainLength);
        use = static_cast<uint32_t>(kind);
        return true;
    }
};

}  // namespace

IAccounts& SystemAccounts() {
    static CWin32Accounts accounts;
    return accounts;
}

}  // namespace platform
