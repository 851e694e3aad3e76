#include "platform/file_acl.h"

#include <sys/stat.h>

#include "platform/posix/native_path.h"
#include "platform/posix/posix_errors.h"

namespace platform {

bool AllowUsersFullAccess(std::u16string_view path) {
    posix::TNativeAt at;
    if (!posix::OpenPathAt(path, at)) return false;
    struct stat st {};
    if (::fstatat(at.dir, at.name.c_str(), &st, 0) != 0) return posix::FailErrnoAt(at);
    const mode_t wanted = (st.st_mode & 07777) | 0666;
    if (wanted != (st.st_mode & 07777) && ::fchmodat(at.dir, at.name.c_str(), wanted, 0) != 0)
        return posix::FailErrnoAt(at);
    return true;
}

}  // namespace platform
