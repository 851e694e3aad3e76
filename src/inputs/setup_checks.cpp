#include "inputs/setup_checks.h"

#include "base/case.h"
#include "base/exc.h"
#include "diag/log.h"
#include "inputs/path_utils.h"
#include "inputs/volume.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "platform/find.h"
#include "platform/volume_io.h"

namespace indexer {

namespace {

bool IsFolder(const std::u16string& path) {
    const uint32_t attributes = platform::GetAttributes(path);
    return attributes != platform::kInvalidFileAttributes && (attributes & platform::kAttrDirectory);
}

// True when `folder` (relative, "\\" separated) is not below `root`. Each
// name is looked for in its parent's listing, ignoring case as the walk and
// the NTFS pipeline compare names, also where the file system doesn't. A
// listing that fails for another reason than a missing folder counts as
// found: only a sure absence is named.
bool IsMissing(const std::u16string& root, std::u16string_view folder) {
    std::u16string path = root;
    while (!folder.empty()) {
        const size_t cut = folder.find(u'\\');
        const std::u16string_view name = folder.substr(0, cut);
        folder = cut == std::u16string_view::npos ? std::u16string_view{} : folder.substr(cut + 1);
        if (name.empty()) continue;
        platform::TFindData data;
        platform::CFindHandle search = platform::FindFirst(path + u"\\*", data);
        if (!search.IsValid()) {
            const uint32_t error = platform::GetLastError();
            return error == platform::kErrFileNotFound || error == platform::kErrPathNotFound;
        }
        bool found = false;
        do {
            found = (data.attributes & platform::kAttrDirectory) && util::EqualNoCase(data.name, name);
        } while (!found && platform::FindNext(search, data));
        if (!found) return true;
        path += u"\\" + data.name;
    }
    return false;
}

// The place the volume's files are read from: its shadow, else the live
// volume; empty when it can't be named.
std::u16string ReadRoot(const CIndexingVolumeInfo& volume, platform::IVolumes& system) {
    if (!volume.m_Shadow.empty()) return TrimTrailingSeparators(volume.m_Shadow);
    try {
        return TrimTrailingSeparators(GetVolumeDeviceName(volume.m_Name, system));
    } catch (const CExc&) {
        return {};  // the run reports this volume itself
    }
}

}  // namespace

void WarnOfSetupMistakes(const std::vector<CIndexingVolumeInfo>& volumes, platform::IVolumes& system) {
    if (volumes.empty()) GetLog().Warning(u"The filters cover no volume; nothing is indexed.");
    for (const auto& volume : volumes) {
        if (volume.m_Shadow.empty()) {
            GetLog().Warning(u"Volume [%1] has no shadow in the snapshot mapping; the live volume is "
                             u"walked instead.",
                             volume.m_Name);
        } else {
            const std::u16string shadow = TrimTrailingSeparators(volume.m_Shadow);
            const platform::CHandle handle = platform::OpenVolumeDevice(
                shadow, platform::kGenericRead, platform::kShareRead | platform::kShareWrite,
                platform::kOpenExisting, platform::kAttrNormal);
            if (!handle.IsValid()) {
                std::u16string reason = platform::GetErrorText(platform::GetLastError());
                while (!reason.empty() && (reason.back() == u'\r' || reason.back() == u'\n' ||
                                           reason.back() == u' ' || reason.back() == u'.'))
                    reason.pop_back();
                GetLog().Warning(u"Shadow [%1] of volume [%2] cannot be opened (%3); the volume's "
                                 u"indexing fails.",
                                 shadow, volume.m_Name, reason);
                continue;
            }
        }
        const std::u16string root = ReadRoot(volume, system);
        if (root.empty() || !IsFolder(root + u"\\")) continue;
        for (const auto& folder : volume.m_Include)
            // A folder name with a line break was named at reading already.
            if (folder.find_first_of(u"\r\n") == std::u16string::npos && IsMissing(root, folder))
                GetLog().Warning(u"Include folder [%1] does not exist; nothing under it is indexed.",
                                 volume.m_Name + u"\\" + folder);
    }
}

}  // namespace indexer
