#pragma once
// util::CSid: an owned copy of one binary security identifier, with its text
// form and its account (platform/accounts.h).
//
// Errors: construction from bytes that are no valid SID within their count
// throws CWin32Exc 1337 "The specified SID is invalid. Sid type: [Source
// SID]." under the context "Cannot copy a security identifier ( SID ).";
// GetString of an invalid copy CWin32Exc "Failed to format string from SID.";
// a failed lookup CWin32Exc "LookupAccountSid() function call failed." under
// "Cannot lookup an account SID."; any operation on an empty CSid CExc
// "SID() object is not initialized.". A value; one thread at a time.

#include <cstdint>
#include <string>
#include <vector>

#include "platform/accounts.h"

namespace util {

class CSid {
public:
    CSid() = default;
    // Copies the SID at `sid`, which must lie within `available` bytes.
    CSid(const uint8_t* sid, size_t available);

    bool IsEmpty() const { return m_Bytes.empty(); }
    const std::vector<uint8_t>& GetBytes() const { return m_Bytes; }
    std::u16string GetString() const;
    // The account's name and domain through `accounts`.
    void LookupAccount(std::u16string& name, std::u16string& domain,
                       platform::IAccounts& accounts = platform::SystemAccounts()) const;

private:
    void _CheckInitialized() const;
    std::vector<uint8_t> m_Bytes;
};

}  // namespace util
