// LookupAccountSid without a Windows account database: well-known SIDs, a
// map in the registry file, Unix users and groups (see platform/accounts.h).
#include <grp.h>
#include <pwd.h>

#include <vector>

#include "base/utf.h"
#include "platform/accounts.h"
#include "platform/errors.h"
#include "platform/registry.h"

namespace platform {

namespace {

struct TWellKnown {
    const char16_t* Sid;
    const char16_t* Name;
    const char16_t* Domain;
    uint32_t Use;
};

// The names Windows gives the standard SIDs (English systems).
constexpr TWellKnown kWellKnown[] = {
    {u"S-1-0-0", u"NULL SID", u"", kSidTypeWellKnownGroup},
    {u"S-1-1-0", u"Everyone", u"", kSidTypeWellKnownGroup},
    {u"S-1-2-0", u"LOCAL", u"", kSidTypeWellKnownGroup},
    {u"S-1-2-1", u"CONSOLE LOGON", u"", kSidTypeWellKnownGroup},
    {u"S-1-3-0", u"CREATOR OWNER", u"", kSidTypeWellKnownGroup},
    {u"S-1-3-1", u"CREATOR GROUP", u"", kSidTypeWellKnownGroup},
    {u"S-1-3-4", u"OWNER RIGHTS", u"", kSidTypeWellKnownGroup},
    {u"S-1-5-1", u"DIALUP", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-2", u"NETWORK", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-3", u"BATCH", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-4", u"INTERACTIVE", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-6", u"SERVICE", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-7", u"ANONYMOUS LOGON", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-9", u"ENTERPRISE DOMAIN CONTROLLERS", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-10", u"SELF", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-11", u"Authenticated Users", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-12", u"RESTRICTED", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-13", u"TERMINAL SERVER USER", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-14", u"REMOTE INTERACTIVE LOGON", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-15", u"This Organization", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-17", u"IUSR", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-18", u"SYSTEM", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-19", u"LOCAL SERVICE", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-20", u"NETWORK SERVICE", u"NT AUTHORITY", kSidTypeWellKnownGroup},
    {u"S-1-5-32", u"BUILTIN", u"BUILTIN", kSidTypeDomain},
    {u"S-1-5-32-544", u"Administrators", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-545", u"Users", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-546", u"Guests", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-547", u"Power Users", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-548", u"Account Operators", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-549", u"Server Operators", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-550", u"Print Operators", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-551", u"Backup Operators", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-552", u"Replicator", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-555", u"Remote Desktop Users", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-556", u"Network Configuration Operators", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-558", u"Performance Monitor Users", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-559", u"Performance Log Users", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-562", u"Distributed COM Users", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-568", u"IIS_IUSRS", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-569", u"Cryptographic Operators", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-573", u"Event Log Readers", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-578", u"Hyper-V Administrators", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-32-580", u"Remote Management Users", u"BUILTIN", kSidTypeAlias},
    {u"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464", u"TrustedInstaller",
     u"NT SERVICE", kSidTypeWellKnownGroup},
    {u"S-1-15-2-1", u"ALL APPLICATION PACKAGES", u"APPLICATION PACKAGE AUTHORITY",
     kSidTypeWellKnownGroup},
    {u"S-1-16-4096", u"Low Mandatory Level", u"Mandatory Label", kSidTypeLabel},
    {u"S-1-16-8192", u"Medium Mandatory Level", u"Mandatory Label", kSidTypeLabel},
    {u"S-1-16-12288", u"High Mandatory Level", u"Mandatory Label", kSidTypeLabel},
    {u"S-1-16-16384", u"System Mandatory Level", u"Mandatory Label", kSidTypeLabel},
};

constexpr char16_t kAccountsKey[] = u"SOFTWARE\\NorvA\\Accounts";

bool FromRegistry(const std::u16string& text, std::u16string& name, std::u16string& domain) {
    CRegKey key;
    if (!RegOpenKey(kHkeyLocalMachine, kAccountsKey, kKeyRead, key)) return false;
    uint32_t type = 0;
    std::vector<uint8_t> data;
    if (!RegQueryValue(key, text, type, data) || (type != kRegSz && type != kRegExpandSz)) return false;
    const std::u16string value = RegDataToString(data);
    const size_t slash = value.find(u'\\');
    if (slash == std::u16string::npos) {
        domain.clear();
        name = value;
    } else {
        domain = value.substr(0, slash);
        name = value.substr(slash + 1);
    }
    return true;
}

// The decimal number after `prefix`, when the text is exactly that.
bool UnixId(const std::u16string& text, std::u16string_view prefix, uint32_t& id) {
    if (text.size() <= prefix.size() || text.compare(0, prefix.size(), prefix) != 0) return false;
    uint64_t value = 0;
    for (size_t i = prefix.size(); i < text.size(); ++i) {
        if (text[i] < u'0' || text[i] > u'9') return false;
        value = value * 10 + (text[i] - u'0');
        if (value > 0xFFFFFFFFu) return false;
    }
    id = static_cast<uint32_t>(value);
    return true;
}

bool FromUnixDatabase(const std::u16string& text, std::u16string& name, std::u16string& domain,
                      uint32_t& use) {
    uint32_t id = 0;
    std::vector<char> buffer(16384);
    if (UnixId(text, u"S-1-22-1-", id)) {
        passwd pw{};
        passwd* found = nullptr;
        if (getpwuid_r(id, &pw, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) return false;
        name = util::Utf8ToUtf16(found->pw_name);
        domain = u"Unix User";
        use = kSidTypeUser;
        return true;
    }
    if (UnixId(text, u"S-1-22-2-", id)) {
        group gr{};
        group* found = nullptr;
        if (getgrgid_r(id, &gr, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) return false;
        name = util::Utf8ToUtf16(found->gr_name);
        domain = u"Unix Group";
        use = kSidTypeAlias;
        return true;
    }
    return false;
}

class CPosixAccounts : public IAccounts {
public:
    bool LookupAccountSid(const uint8_t* sid, size_t available, std::u16string& name,
                          std::u16string& domain, uint32_t& use) override {
        std::u16string text;
        if (!ConvertSidToStringSid(sid, available, text)) return false;
        for (const TWellKnown& known : kWellKnown) {
            if (text == known.Sid) {
                name = known.Name;
                domain = known.Domain;
                use = known.Use;
                return true;
            }
        }
        if (FromRegistry(text, name, domain)) {
            use = kSidTypeUser;
            return true;
        }
        if (FromUnixDatabase(text, name, domain, use)) return true;
        SetLastError(kErrNoneMapped);
        return false;
    }
};

}  // namespace

IAccounts& SystemAccounts() {
    static CPosixAccounts accounts;
    return accounts;
}

}  // namespace platform
