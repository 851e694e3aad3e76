#pragma once
// Win32 side only: the edge between the program's UTF-16 strings and the
// wide-character API, and the handle and error conventions.
//
// <windows.h> is included lean, without min/max macros. Most of its A/W
// macros (CreateFile, DeleteFile, FindFirstFile, ...) do not clash with the
// platform layer's names; those that do are undefined below, so that a
// Win32 source defines and calls the platform's own functions. Include this
// header before any other Windows header, and call the W forms by name.

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#undef GetModuleFileName
#undef GetEnvironmentStrings
#undef RegOpenKey
#undef RegQueryValue
#undef RegEnumKey
#undef RegEnumValue
#undef GetVolumePathName
#undef GetVolumeNameForVolumeMountPoint
#undef GetVolumePathNamesForVolumeName
#undef FindFirstVolume
#undef FindNextVolume
#undef FindFirstVolumeMountPoint
#undef FindNextVolumeMountPoint
#undef GetDriveType
#undef GetVolumeInformation
#undef QueryDosDevice
#undef GetDiskFreeSpaceEx

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/file.h"

static_assert(sizeof(wchar_t) == sizeof(char16_t), "Windows wide characters are UTF-16 units");

namespace platform::win32 {

// A terminated copy for the API (a string_view need not be terminated).
inline std::wstring ToWide(std::u16string_view text) {
    return std::wstring(reinterpret_cast<const wchar_t*>(text.data()), text.size());
}

inline std::u16string FromWide(const wchar_t* text, size_t length) {
    return std::u16string(reinterpret_cast<const char16_t*>(text), length);
}

// Up to the terminator.
inline std::u16string FromWide(const wchar_t* text) {
    return FromWide(text, std::char_traits<wchar_t>::length(text));
}

inline HANDLE ToHandle(NativeHandle h) { return reinterpret_cast<HANDLE>(h); }
inline NativeHandle FromHandle(HANDLE h) { return reinterpret_cast<NativeHandle>(h); }

// FILETIME as one 64-bit count of 100 ns ticks.
inline uint64_t FromFileTime(const FILETIME& t) {
    return (static_cast<uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime;
}

// Wine names its volumes "\\?\Volume{GUID}\" but gives no file access
// through those names: a call on such a path fails with 66 (bad device
// type) at the volume's root and with 3 below it. For a path of that form,
// the same path through the volume's first mount point ("C:\dir" for
// "\\?\Volume{...}\dir"), which reaches the same file on the same
// volume; empty for any other path or a volume without a mount point.
// Path calls try it only after such a failure: on Windows the second try
// finds what the first found (nothing), at the cost of one more call.
std::wstring PathThroughMountPoint(std::u16string_view path);

// True when the last call failed as a volume GUID path does under Wine.
inline bool FailedOnVolumeName() {
    const DWORD error = ::GetLastError();
    return error == ERROR_BAD_DEV_TYPE || error == ERROR_PATH_NOT_FOUND ||
           error == ERROR_FILE_NOT_FOUND;
}

// Sets the thread's last error and returns false, for `return Fail(e);`.
inline bool Fail(uint32_t win32Error) {
    ::SetLastError(win32Error);
    return false;
}

}  // namespace platform::win32
