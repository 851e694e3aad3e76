#include "inputs/setup_checks.h"

#include "base/exc.h"
#include "diag/log.h"
#include "inputs/path_utils.h"
#include "inputs/volume.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "platform/volume_io.h"

namespace indexer {

namespace {

bool IsFolder(const std::u16string& path) {
    const uint32_t attributes = platform::GetAttributes(path);
    return attributes != platform::kInvalidFileAttributes && (attributes & platform::kAttrDirectory);
}

bool IsMissing(const std::u16string& path) {
    if (platform::GetAttributes(path) != platform::kInvalidFileAttributes) return false;
    const uint32_t error = platform::GetLastError();
    return error == platform::kErrFileNotFound || error == platform::kErrPathNotFound;
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
            if (folder.find_first_of(u"\r\n") == std::u16string::npos && IsMissing(root + u"\\" + folder))
                GetLog().Warning(u"Include folder [%1] does not exist; nothing under it is indexed.",
                                 volume.m_Name + u"\\" + folder);
    }
}

}  // namespace indexer
