#include "fast/sid.h"

#include "platform/errors.h"

namespace util {

CSid::CSid(const uint8_t* sid, size_t available) {
    try {
        if (!platform::IsValidSid(sid, available))
            throw CWin32Exc(u"The specified SID is invalid. Sid type: [%1].", u"Source SID");
        const size_t length = platform::GetLengthSid(sid, available);
        m_Bytes.assign(sid, sid + length);
    } catch (CExc& e) {
        e.AddContext(u"Cannot copy a security identifier ( SID ).");
        throw;
    }
}

void CSid::_CheckInitialized() const {
    if (m_Bytes.empty()) throw CExc(u"SID() object is not initialized.", kHrFail);
}

std::u16string CSid::GetString() const {
    _CheckInitialized();
    std::u16string text;
    if (!platform::ConvertSidToStringSid(m_Bytes.data(), m_Bytes.size(), text))
        throw CWin32Exc(u"Failed to format string from SID.");
    return text;
}

void CSid::LookupAccount(std::u16string& name, std::u16string& domain, platform::IAccounts& accounts) const {
    _CheckInitialized();
    try {
        uint32_t use = 0;
        if (!accounts.LookupAccountSid(m_Bytes.data(), m_Bytes.size(), name, domain, use))
            throw CWin32Exc(u"LookupAccountSid() function call failed.");
    } catch (CExc& e) {
        e.AddContext(u"Cannot lookup an account SID.");
        throw;
    }
}

}  // namespace util
