// An allow entry for BUILTIN\Users on a file: GetNamedSecurityInfoW for the
// DACL it has, SetEntriesInAclW to add the entry, SetNamedSecurityInfoW.
// These calls return their error instead of setting the last error.

#include "platform/win32/win32_util.h"

#include <aclapi.h>

#include "platform/file_acl.h"

namespace platform {

bool AllowUsersFullAccess(std::u16string_view path) {
    std::wstring name = win32::ToWide(path);
    PACL oldDacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    DWORD status = ::GetNamedSecurityInfoW(name.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                                           nullptr, nullptr, &oldDacl, nullptr, &descriptor);
    if (status != ERROR_SUCCESS) return win32::Fail(status);

    // S-1-5-32-545.
    SID_IDENTIFIER_AUTHORITY ntAuthority = SECURITY_NT_AUTHORITY;
    PSID users = nullptr;
    if (!::AllocateAndInitializeSid(&ntAuthority, 2, SECURITY_BUILTIN_DOMAIN_RID,
                                    DOMAIN_ALIAS_RID_USERS, 0, 0, 0, 0, 0, 0, &users)) {
        const DWORD error = ::GetLastError();
        ::LocalFree(descriptor);
        return win32::Fail(error);
    }
    EXPLICIT_ACCESSW access = {};
    access.grfAccessPermissions = GENERIC_ALL;
    access.grfAccessMode = SET_ACCESS;
    access.grfInheritance = OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE;  // 3
    access.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    access.Trustee.TrusteeType = TRUSTEE_IS_WELL_KNOWN_GROUP;
    access.Trustee.ptstrName = static_cast<LPWSTR>(users);

    PACL newDacl = nullptr;
    status = ::SetEntriesInAclW(1, &access, oldDacl, &newDacl);
    if (status == ERROR_SUCCESS)
        status = ::SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                                         nullptr, nullptr, newDacl, nullptr);
    ::LocalFree(newDacl);
    ::FreeSid(users);
    ::LocalFree(descriptor);
    return status == ERROR_SUCCESS ? true : win32::Fail(status);
}

}  // namespace platform
