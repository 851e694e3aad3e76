#include "platform/posix/native_path.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "platform/errors.h"
#include "platform/names.h"
#include "platform/posix/posix_errors.h"
#include "platform/posix/volume_table.h"

namespace platform::posix {

namespace {

bool IsSeparator(char16_t c) { return c == u'\\' || c == u'/'; }

}  // namespace

CFd::~CFd() {
    if (m_Fd >= 0) ::close(m_Fd);
}

CFd& CFd::operator=(CFd&& other) noexcept {
    if (this != &other) {
        if (m_Fd >= 0) ::close(m_Fd);
        m_Fd = other.Release();
    }
    return *this;
}

bool ConvertNamesToNative(std::u16string_view path, std::string& native) {
    const bool absolute = !path.empty() && IsSeparator(path[0]);
    // "." goes, ".." takes the name before it away, as Windows resolves them
    // from the spelling before the file system sees the path.
    std::vector<std::string> names;
    size_t i = 0;
    while (i < path.size()) {
        while (i < path.size() && IsSeparator(path[i])) ++i;
        size_t end = i;
        while (end < path.size() && !IsSeparator(path[end])) ++end;
        if (end == i) break;
        std::u16string_view name = path.substr(i, end - i);
        i = end;
        if (name == u".") continue;
        if (name == u"..") {
            if (!names.empty() && names.back() != "..") names.pop_back();
            else if (!absolute) names.push_back("..");
            continue;
        }
        auto bytes = NameToNative(name);
        if (!bytes) return Fail(kErrInvalidName);
        names.push_back(std::move(*bytes));
    }
    native.clear();
    if (absolute) native = "/";
    for (size_t k = 0; k < names.size(); ++k) {
        if (k > 0) native += '/';
        native += names[k];
    }
    if (native.empty()) native = ".";
    return true;
}

bool ToNativePath(std::u16string_view path, std::string& native) {
    if (path.size() > kMaxPathUnits) return Fail(kErrFilenameExcedRange);
    if (path.empty()) return Fail(kErrPathNotFound);
    if (auto resolved = ResolveVolumePath(path)) {
        native = std::move(*resolved);
        return true;
    }
    if (path[0] == u'/') return ConvertNamesToNative(path, native);
    // A Windows path the table does not know: a drive, UNC, device or
    // volume name, or a path from the root of the current drive.
    if (path[0] == u'\\' || (path.size() >= 2 && path[1] == u':')) return Fail(kErrPathNotFound);
    return ConvertNamesToNative(path, native);
}

std::string NativeParent(const std::string& native) {
    size_t end = native.size();
    while (end > 1 && native[end - 1] == '/') --end;
    const size_t slash = native.rfind('/', end - 1);
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return native.substr(0, slash);
}

bool OpenNativeAt(const std::string& native, TNativeAt& at) {
    at.dirHolder = CFd();
    at.dir = AT_FDCWD;
    if (native.size() < PATH_MAX) {
        at.name = native;
        return true;
    }
    // Split into names; open the folders in runs that each fit PATH_MAX.
    std::vector<std::string_view> names;
    const std::string_view text = native;
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && text[i] == '/') ++i;
        size_t end = i;
        while (end < text.size() && text[end] != '/') ++end;
        if (end > i) names.push_back(text.substr(i, end - i));
        i = end;
    }
    if (names.empty()) {
        at.name = native;
        return true;
    }
    CFd dir(::open(native[0] == '/' ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (dir.Get() < 0) return FailErrno();
    size_t k = 0;
    while (k + 1 < names.size()) {
        std::string run(names[k++]);
        while (k + 1 < names.size() && run.size() + 1 + names[k].size() < PATH_MAX) {
            run += '/';
            run += names[k++];
        }
        CFd next(::openat(dir.Get(), run.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (next.Get() < 0) {
            const int err = errno;
            return Fail(err == ENOENT || err == ENOTDIR ? kErrPathNotFound : Win32FromErrno(err));
        }
        dir = std::move(next);
    }
    at.name = std::string(names.back());
    at.dirHolder = std::move(dir);
    at.dir = at.dirHolder.Get();
    return true;
}

bool OpenPathAt(std::u16string_view path, TNativeAt& at) {
    std::string native;
    if (!ToNativePath(path, native)) return false;
    return OpenNativeAt(native, at);
}

uint32_t Win32FromErrnoAt(int err, const TNativeAt& at) {
    if (err != ENOENT) return Win32FromErrno(err);
    if (at.dir != AT_FDCWD) return kErrFileNotFound;  // the walk opened the folder itself
    struct stat st;
    if (::stat(NativeParent(at.name).c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        return kErrPathNotFound;
    return kErrFileNotFound;
}

bool FailErrnoAt(const TNativeAt& at) {
    const int err = errno;
    return Fail(Win32FromErrnoAt(err, at));
}

}  // namespace platform::posix
