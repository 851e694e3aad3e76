#pragma once
// Security identifiers and account names, as thin wrappers of IsValidSid,
// GetLengthSid, ConvertSidToStringSidW and LookupAccountSidW.
//
// A SID is handed in as bytes with their count, never as a bare pointer: the
// bytes come from disk, and every call checks the SID against the count.
// Layout: revision (1), sub-authority count (at most 15), a 48-bit
// big-endian identifier authority, then the sub-authorities, 32 bits each,
// little-endian.
//
// Every call returns false on failure and sets the thread's last error
// (platform/errors.h):
//   1337 the bytes are no valid SID (kErrInvalidSid);
//   1332 no account is known for a valid SID (kErrNoneMapped).
//
// LookupAccountSid answers for the machine the program runs on. Windows asks
// the system (null system name: the local machine, then its domain). POSIX
// has no such database; it answers under the same contract from, in order:
//   - the well-known SIDs, with the names and domains Windows gives them
//     ("S-1-5-18" is "SYSTEM" in "NT AUTHORITY", "S-1-5-32-544"
//     "Administrators" in "BUILTIN", "S-1-1-0" "Everyone" with no domain);
//   - the registry file: under HKLM\SOFTWARE\NorvA\Accounts a REG_SZ value
//     named by the SID's text whose data is "DOMAIN\name" (or "name" alone,
//     with no domain);
//   - Unix users and groups in the form Samba gives them, "S-1-22-1-<uid>"
//     and "S-1-22-2-<gid>", by the user and group database, with the domains
//     "Unix User" and "Unix Group";
//   - anything else fails with 1332.
// See docs/platform.md, "Accounts and security".
//
// Thread-safety: every call may run on any thread.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

inline constexpr size_t kMaxSidSubAuthorities = 15;
inline constexpr size_t kMinSidLength = 8;
inline constexpr size_t kMaxSidLength = kMinSidLength + 4 * kMaxSidSubAuthorities;

// SID_NAME_USE values.
inline constexpr uint32_t kSidTypeUser = 1, kSidTypeGroup = 2, kSidTypeDomain = 3,
                          kSidTypeAlias = 4, kSidTypeWellKnownGroup = 5, kSidTypeUnknown = 8,
                          kSidTypeLabel = 10;

// IsValidSid for a SID that must lie within `available` bytes.
bool IsValidSid(const uint8_t* sid, size_t available);
// GetLengthSid: 8 plus 4 per sub-authority; 0 (and 1337) for an invalid SID.
size_t GetLengthSid(const uint8_t* sid, size_t available);
// ConvertSidToStringSidW: "S-1-5-21-1-2-3-500". An authority of 2^32 or more
// is written as "0x" and twelve upper-case hexadecimal digits, as Windows does.
bool ConvertSidToStringSid(const uint8_t* sid, size_t available, std::u16string& text);

// The account calls as an object, so that the layers above can be handed a
// fake in tests. SystemAccounts() is the machine's.
class IAccounts {
public:
    virtual ~IAccounts() = default;
    // LookupAccountSidW with a null system name: the account's name and
    // domain (either may be empty) and its kind (SID_NAME_USE).
    virtual bool LookupAccountSid(const uint8_t* sid, size_t available, std::u16string& name,
                                  std::u16string& domain, uint32_t& use) = 0;
};

IAccounts& SystemAccounts();

inline bool LookupAccountSid(const uint8_t* sid, size_t available, std::u16string& name,
                             std::u16string& domain, uint32_t& use) {
    return SystemAccounts().LookupAccountSid(sid, available, name, domain, use);
}

}  // namespace platform
