#pragma once
// POSIX side only: paths in the program's spelling to Linux paths, and the
// directory-relative access that keeps long paths working.
//
// A path in the program's spelling uses "\" (or "/") as separator. It
// resolves, in this order:
//   1. through the volume table (ResolveVolumePath): drive letters, folder
//      mounts, volume GUID names, shadow names;
//   2. a native absolute path ("/tmp/out\sub") converts name by name;
//   3. a relative path ("out\sub", no drive, no leading separator) is taken
//      from the current directory, as Windows does;
//   anything else fails with error 3.
// Names convert through platform/names.h. A path of more than 32,767 UTF-16
// units fails with 206; a name that no POSIX name can spell fails with 123.

#include <string>
#include <string_view>

namespace platform::posix {

inline constexpr size_t kMaxPathUnits = 32767;

// Sets the last error and returns false on failure.
bool ToNativePath(std::u16string_view path, std::string& native);

// Converts a native path that has no volume part (a relative or absolute
// Linux path in the program's spelling) name by name: separators become "/".
bool ConvertNamesToNative(std::u16string_view path, std::string& native);

// A file descriptor owned for the scope.
class CFd {
public:
    CFd() = default;
    explicit CFd(int fd) : m_Fd(fd) {}
    ~CFd();
    CFd(CFd&& other) noexcept : m_Fd(other.Release()) {}
    CFd& operator=(CFd&& other) noexcept;
    CFd(const CFd&) = delete;
    CFd& operator=(const CFd&) = delete;
    int Get() const { return m_Fd; }
    int Release() { int fd = m_Fd; m_Fd = -1; return fd; }

private:
    int m_Fd = -1;
};

// A place to name in *at() calls: a directory and a name relative to it.
// For a path that fits PATH_MAX the directory is AT_FDCWD and the name the
// whole path; a longer one is reached by opening its folders one by one
// (openat), so no call ever sees a string longer than PATH_MAX.
struct TNativeAt {
    CFd dirHolder;        // owns dir when the walk opened one
    int dir = -100;       // AT_FDCWD or dirHolder.Get()
    std::string name;     // relative to dir (may be absolute when dir is AT_FDCWD)
};

// Prepares `at` for the native path. Fails (last error set) when a folder on
// the way can't be opened: 3 missing or not a folder, 5 access denied.
bool OpenNativeAt(const std::string& native, TNativeAt& at);

// Both steps: the program's path to a directory and a name.
bool OpenPathAt(std::u16string_view path, TNativeAt& at);

// The Win32 error for errno after a failed call on `at`: ENOENT gives 3
// instead of 2 when the folder that should hold the name is missing.
uint32_t Win32FromErrnoAt(int err, const TNativeAt& at);
bool FailErrnoAt(const TNativeAt& at);

// The part of a native path before its last "/" ("/" for "/x", "." for "x").
std::string NativeParent(const std::string& native);

}  // namespace platform::posix
