#pragma once
// Opening a file to every local user, as the log files need it: on Windows
// an allow entry for BUILTIN\Users (S-1-5-32-545) with GENERIC_ALL and the
// inherit flags 3, added to the file's DACL through SetNamedSecurityInfoW.
// POSIX: read and write permission for owner, group and others (chmod a+rw);
// only the file's owner (or root) can do that.
//
// False with the last error set on failure (2 / 3 missing, 5 not permitted).

#include <string_view>

namespace platform {

bool AllowUsersFullAccess(std::u16string_view path);

}  // namespace platform
