#include "inputs/volume_info.h"

#include <algorithm>

#include "base/case.h"
#include "diag/log.h"
#include "inputs/path_utils.h"
#include "platform/errors.h"

namespace indexer {

namespace {

constexpr uint32_t kIncludePathBuffer = 260;
constexpr uint32_t kExcludePathBuffer = 261;
constexpr uint32_t kMountPointBuffer = 261;

CIndexingVolumeInfo* FindVolume(std::vector<CIndexingVolumeInfo>& volumes, std::u16string_view name) {
    for (auto& volume : volumes)
        if (util::EqualNoCase(volume.m_Name, name)) return &volume;
    return nullptr;
}

// Keeps the log one level deeper for the scope.
class CLogIndent {
public:
    CLogIndent() { GetLog().IncDepth(); }
    ~CLogIndent() { GetLog().DecDepth(); }
    CLogIndent(const CLogIndent&) = delete;
    CLogIndent& operator=(const CLogIndent&) = delete;
};

struct TNestedMountPoint {
    std::u16string mountPoint;  // relative to the volume, with trailing "\"
    std::u16string volumeName;  // the record it was found in
};

}  // namespace

bool IsPathPrefix(std::u16string_view prefix, std::u16string_view path) {
    return util::StartsWithNoCase(path, prefix) &&
           (path.size() == prefix.size() || prefix.empty() || prefix.back() == u'\\' ||
            path[prefix.size()] == u'\\');
}

void CreateIndexingVolumeInfo(const std::vector<std::u16string>& include,
                              const std::vector<std::u16string>& exclude,
                              std::vector<CIndexingVolumeInfo>& volumes, platform::IVolumes& system) {
    GetLog().Detail(u"Indexing volume information create.");
    CLogIndent indent;
    std::vector<TNestedMountPoint> nested;

    GetLog().Detail(u"    enumerate include folders:");
    for (const auto& line : include) {
        GetLog().Detail(u"        %1", line);
        std::u16string answer;
        if (!system.GetVolumePathName(u"\\\\?\\" + line, answer, kIncludePathBuffer))
            throw CWin32Exc(u"GetVolumePathName fail! path is '%1'", line);
        const std::u16string name =
            TrimTrailingBackslashes(answer.size() > 4 ? std::u16string_view(answer).substr(4) : u"");
        const size_t length = name.size();
        const std::u16string rest = line.size() > length + 1 ? line.substr(length + 1) : u"";
        if (CIndexingVolumeInfo* volume = FindVolume(volumes, name)) {
            // A folder below one already included adds nothing; a folder above
            // one is added all the same.
            const bool covered = std::any_of(volume->m_Include.begin(), volume->m_Include.end(),
                                             [&](const auto& known) { return IsPathPrefix(known, rest); });
            if (!rest.empty() && !covered) volume->m_Include.push_back(rest);
            continue;
        }
        CIndexingVolumeInfo added;
        added.m_Name = name;
        if (!rest.empty()) added.m_Include.push_back(rest);
        volumes.push_back(std::move(added));
        // The volume's name goes as it stands, without "\"; see
        // docs/platform.md for what the real call answers to that.
        std::u16string mountPoint;
        platform::CVolumeFindHandle find = system.FindFirstVolumeMountPoint(name, mountPoint, kMountPointBuffer);
        if (!find.IsValid()) continue;
        do {
            const bool known = std::any_of(nested.begin(), nested.end(), [&](const auto& n) {
                return n.mountPoint == mountPoint;
            });
            if (!known) nested.push_back({mountPoint, name});
        } while (system.FindNextVolumeMountPoint(find, mountPoint, kMountPointBuffer));
    }

    GetLog().Detail(u"    enumerate exclude folders:");
    for (const auto& line : exclude) {
        GetLog().Detail(u"        %1", line);
        std::u16string answer;
        if (!system.GetVolumePathName(line, answer, kExcludePathBuffer)) continue;
        const std::u16string name = TrimTrailingBackslashes(answer);
        CIndexingVolumeInfo* volume = FindVolume(volumes, name);
        if (!volume) continue;  // a folder that isn't being indexed needs no exclusion
        if (line.size() > name.size() + 1) {
            volume->m_Exclude.push_back(line.substr(name.size() + 1));
        } else {
            volumes.erase(volumes.begin() + (volume - volumes.data()));
        }
    }

    for (const auto& entry : nested) {
        const CIndexingVolumeInfo* volume = FindVolume(volumes, entry.volumeName);
        if (!volume) continue;
        const bool wanted = volume->m_Include.empty() ||
                            std::any_of(volume->m_Include.begin(), volume->m_Include.end(),
                                        [&](const auto& folder) { return IsPathPrefix(folder, entry.mountPoint); });
        if (!wanted) continue;
        CIndexingVolumeInfo added;
        added.m_Name = volume->m_Name + entry.mountPoint;
        volumes.push_back(std::move(added));
    }
}

}  // namespace indexer
