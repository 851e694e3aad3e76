#pragma once
// Path and namespace utilities: NT-namespace paths to Win32 paths, the
// mount point of a path, cutting a path into components, and comparing names
// as the file system does.
//
// The separator is "\"; GetFileName's search also accepts "/". A prefix
// comparison (StartsWith) is exact; names compare ignoring case by the
// simple Unicode upper case (base/case.h), as Windows compares file names.
// Only SeparatePathAndVolume throws; the others report by their result and
// the log, with an empty text on failure.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/volume.h"

namespace indexer {

// One component of a path, a view into a string that must outlive it. The
// layout of UNICODE_STRING, but lengths count characters.
struct TPathPart {
    uint16_t Length = 0;
    uint16_t MaximumLength = 0;
    const char16_t* Buffer = nullptr;

    std::u16string_view View() const { return {Buffer, Length}; }
};

// "\??\Volume{...}" and "\\?\Volume{...}" become the volume's first mount
// point and the rest; "\??\", "\..\", "\DosDevice\" are stripped; a
// "\Device\" path can't be converted (an Error line, empty result). Any
// other path comes back unchanged. Never throws.
std::u16string ConvertNamespaceNTtoWin32(std::u16string_view path,
                                         platform::IVolumes& volumes = platform::SystemVolumes());

// The mount point of the path without trailing separator ("C:",
// "C:\mount\point"); 1 on success, 0 (with an Error line) on failure.
int GetVolumeMountPointName(std::u16string_view path, std::u16string& name,
                            platform::IVolumes& volumes = platform::SystemVolumes());

// First part the mount point, then each component. Throws CWin32Exc
// "SeparatePathAndVolume fail! Path is [%1]" when the mount point can't be found.
void SeparatePathAndVolume(std::u16string_view path, std::vector<TPathPart>& parts,
                           platform::IVolumes& volumes = platform::SystemVolumes());
// The components only, after a leading "\??\", "\\?\" or "\\.\".
void SplitPath(std::u16string_view path, std::vector<TPathPart>& parts);

// 0 with the position of the last "\" or "/" after index 0; -1 for an empty
// path; -2 (position 0) when there is none after index 0.
int FindLastSeparator(std::u16string_view path, size_t& position);
// 0 with what follows the last separator; the codes of FindLastSeparator;
// -3 (with a Warning) when the path ends in a separator.
int GetFileName(std::u16string_view path, std::u16string& name);
// 0 with what precedes the last separator, or the codes of FindLastSeparator.
int GetDirectoryName(std::u16string_view path, std::u16string& name);

// The text without its trailing "\" characters; the second form also
// drops trailing "/".
std::u16string TrimTrailingBackslashes(std::u16string_view text);
std::u16string TrimTrailingSeparators(std::u16string_view text);

// Exact and case-sensitive; false when the path is shorter.
bool StartsWith(std::u16string_view path, std::u16string_view prefix);

// Equal lengths and equal ignoring case.
bool IsEqualNames(const TPathPart& a, const TPathPart& b);
bool IsEqualNames(const TPathPart& a, const char16_t* b, size_t length);
bool IsEqualNames(std::u16string_view a, const char16_t* b, size_t length);
bool IsEqualNames(const TPathPart& a, std::u16string_view b);

}  // namespace indexer
