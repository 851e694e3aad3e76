#include "inputs/path_utils.h"

#include "base/case.h"
#include "base/exc.h"
#include "diag/log.h"
#include "inputs/volume.h"
#include "platform/errors.h"
#include "platform/file.h"

namespace indexer {

namespace {

constexpr std::u16string_view kNtVolumePrefix = u"\\??\\Volume";
constexpr std::u16string_view kWin32VolumePrefix = u"\\\\?\\Volume";
constexpr std::u16string_view kVolumeNameTemplate = u"\\\\?\\Volume{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}";
constexpr std::u16string_view kDosDevicePrefix = u"\\DosDevice\\";
constexpr std::u16string_view kDevicePrefix = u"\\Device\\";
constexpr uint32_t kMountPointBuffer = 261;

bool IsSeparator(char16_t c) { return c == u'\\' || c == u'/'; }

size_t SkipLongPrefix(std::u16string_view path) {
    return StartsWith(path, u"\\??\\") || StartsWith(path, u"\\\\?\\") || StartsWith(path, u"\\\\.\\")
               ? 4
               : 0;
}

TPathPart MakePart(std::u16string_view text) {
    // A path holds at most 32,767 units, so a component always fits; a text
    // that does not is damaged input.
    if (text.size() > 0xFFFF) throw CExc(u"Path component is longer than 65535 characters.");
    const auto length = static_cast<uint16_t>(text.size());
    return TPathPart{length, length, text.data()};
}

// Runs of "\" separate; no empty component is made.
void SplitComponents(std::u16string_view path, std::vector<TPathPart>& parts) {
    size_t i = 0;
    while (i < path.size()) {
        while (i < path.size() && path[i] == u'\\') ++i;
        size_t end = i;
        while (end < path.size() && path[end] != u'\\') ++end;
        if (end > i) parts.push_back(MakePart(path.substr(i, end - i)));
        i = end;
    }
}

}  // namespace

std::u16string ConvertNamespaceNTtoWin32(std::u16string_view path, platform::IVolumes& volumes) {
    if (StartsWith(path, kNtVolumePrefix) || StartsWith(path, kWin32VolumePrefix)) {
        std::u16string volumeName(path.substr(0, kVolumeNameTemplate.size()));
        const std::u16string_view rest = path.substr(volumeName.size());
        if (volumeName.size() > 1 && volumeName[1] == u'?') volumeName[1] = u'\\';
        try {
            diskmgmt::CVolume volume(volumeName, volumes);
            const auto& mountPoints = volume.GetMountPoints();
            if (mountPoints.empty()) return {};
            // The mount point ends in "\" and the rest begins with one: keep one.
            std::u16string result = mountPoints.front();
            if (!rest.empty() && IsSeparator(rest.front()) && !result.empty() &&
                IsSeparator(result.back()))
                result.pop_back();
            return result + std::u16string(rest);
        } catch (const CExc& e) {
            GetLog().LogException(e);
            return {};
        }
    }
    if (StartsWith(path, u"\\??\\") || StartsWith(path, u"\\..\\")) return std::u16string(path.substr(4));
    if (StartsWith(path, kDosDevicePrefix)) return std::u16string(path.substr(kDosDevicePrefix.size()));
    if (StartsWith(path, kDevicePrefix)) {
        GetLog().Error(u"%1 can`t convert path [%2]", u"indexer::ConvertNamespaceNTtoWin32", path);
        return {};
    }
    return std::u16string(path);
}

int GetVolumeMountPointName(std::u16string_view path, std::u16string& name,
                            platform::IVolumes& volumes) {
    const std::u16string local = ConvertNamespaceNTtoWin32(path, volumes);
    std::u16string answer;
    if (!volumes.GetVolumePathName(u"\\\\?\\" + local, answer, kMountPointBuffer)) {
        GetLog().Error(u"%1 fail. Error in GetVolumePathName. PathName [%2], localPathName [%3].",
                       u"indexer::GetVolumeMountPointName", path, local);
        return 0;
    }
    name = answer.size() > 4 ? answer.substr(4) : std::u16string();
    if (!name.empty() && IsSeparator(name.back())) name.pop_back();
    return 1;
}

void SeparatePathAndVolume(std::u16string_view path, std::vector<TPathPart>& parts,
                           platform::IVolumes& volumes) {
    parts.clear();
    std::u16string_view rest = path.substr(SkipLongPrefix(path));
    std::u16string mountPoint;
    if (!GetVolumeMountPointName(rest, mountPoint, volumes))
        throw CWin32Exc(u"SeparatePathAndVolume fail! Path is [%1]", path);
    const size_t volumeLength = std::min(mountPoint.size(), rest.size());
    parts.push_back(MakePart(rest.substr(0, volumeLength)));
    rest.remove_prefix(volumeLength);
    if (!rest.empty()) rest.remove_prefix(1);
    SplitComponents(rest, parts);
}

void SplitPath(std::u16string_view path, std::vector<TPathPart>& parts) {
    parts.clear();
    SplitComponents(path.substr(SkipLongPrefix(path)), parts);
}

int FindLastSeparator(std::u16string_view path, size_t& position) {
    if (path.empty()) return -1;
    for (size_t i = path.size() - 1; i >= 1; --i) {
        if (IsSeparator(path[i])) {
            position = i;
            return 0;
        }
    }
    position = 0;
    return -2;
}

int GetFileName(std::u16string_view path, std::u16string& name) {
    size_t position = 0;
    if (const int result = FindLastSeparator(path, position)) return result;
    if (position + 1 == path.size()) {
        GetLog().Warning(u"GetFileName! wFilePath haven`t file name after directory separator!");
        return -3;
    }
    name = path.substr(position + 1);
    return 0;
}

int GetDirectoryName(std::u16string_view path, std::u16string& name) {
    size_t position = 0;
    if (const int result = FindLastSeparator(path, position)) return result;
    name = path.substr(0, position);
    return 0;
}

std::u16string TrimTrailingBackslashes(std::u16string_view text) {
    while (!text.empty() && text.back() == u'\\') text.remove_suffix(1);
    return std::u16string(text);
}

std::u16string TrimTrailingSeparators(std::u16string_view text) {
    while (!text.empty() && IsSeparator(text.back())) text.remove_suffix(1);
    return std::u16string(text);
}

bool StartsWith(std::u16string_view path, std::u16string_view prefix) {
    return path.size() >= prefix.size() && path.substr(0, prefix.size()) == prefix;
}

bool IsEqualNames(const TPathPart& a, const TPathPart& b) { return util::EqualNoCase(a.View(), b.View()); }

bool IsEqualNames(const TPathPart& a, const char16_t* b, size_t length) {
    return util::EqualNoCase(a.View(), std::u16string_view(b, length));
}

bool IsEqualNames(std::u16string_view a, const char16_t* b, size_t length) {
    return util::EqualNoCase(a, std::u16string_view(b, length));
}

bool IsEqualNames(const TPathPart& a, std::u16string_view b) { return util::EqualNoCase(a.View(), b); }

}  // namespace indexer
