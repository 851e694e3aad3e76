#include "inputs/snapshot_mapping.h"

#include "base/case.h"
#include "diag/log.h"
#include "inputs/path_utils.h"
#include "inputs/setup_checks.h"
#include "inputs/volume.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "platform/xml.h"

namespace indexer {

namespace {

constexpr int32_t kHrNoInterface = static_cast<int32_t>(0x80004002);

platform::CXmlNode RequireChild(const platform::CXmlNode& parent, std::u16string_view name) {
    platform::CXmlNode child = parent.FindChild(name);
    if (child.IsNull()) throw CExc(u"There is no child nodes with name [%1].", name);
    return child;
}

}  // namespace

void ThrowIfListFailed(const platform::TXmlListFailure& failure) {
    switch (failure.Step) {
        case platform::TXmlListStep::None: return;
        case platform::TXmlListStep::Collection:
            throw CComExc(u"Cannot get a collection of child nodes for the given element.", failure.Hr);
        case platform::TXmlListStep::Length:
            throw CComExc(u"Cannot get the dimensions of a container with XML nodes.", failure.Hr);
        case platform::TXmlListStep::Count:
            throw CComExc(u"Cannot get the children count for the specified element.", failure.Hr);
        case platform::TXmlListStep::Item:
            throw CComExc(u"Cannot retrieve  a XML element  from the child nodes collection by the specified index "
                          u"[%1].",
                          util::ToStr(static_cast<int32_t>(failure.Index)), failure.Hr);
    }
}

bool ParseClusteredFlag(std::u16string_view text) {
    if (util::EqualNoCase(text, u"true")) return true;
    if (util::EqualNoCase(text, u"false") || text == u"0") return false;
    return true;
}

void CSnapshotMapping::LoadFromFile(std::u16string_view path) {
    platform::CXmlDocument document;
    if (const int32_t hr = document.Create(); hr != platform::kXmlOk)
        throw CComExc(u"Cannot create XML document.", hr);
    if (const int32_t hr = document.SetValidateOnParse(true); hr != platform::kXmlOk)
        throw CComExc(u"Cannot disable/enable validation of a XML document against DTD schema.", hr);
    if (const int32_t hr = document.Load(path); hr != platform::kXmlOk) {
        GetLog().Error(u"XML parser: %1", document.GetErrorText());
        throw CComExc(u"Cannot load the specified XML file: [%1].", path, hr < 0 ? hr : kHrFail);
    }
    const platform::CXmlNode list = RequireChild(document.GetDocument(), u"ShadowsList");
    platform::TXmlListFailure failure;
    const std::vector<platform::CXmlNode> children = list.GetChildren(&failure);
    ThrowIfListFailed(failure);
    for (const auto& child : children) {
        if (!child.IsElement())
            throw CComExc(u"The given XML node does not support the IXMLDOMElement interface.",
                          kHrNoInterface);
        TShadowDescription shadow;
        shadow.OriginalVolumeGuidName =
            TrimTrailingSeparators(RequireChild(child, u"OriginalVolumeGuidName").GetText());
        shadow.ShadowMountPointName =
            TrimTrailingSeparators(RequireChild(child, u"ShadowMountPointName").GetText());
        const platform::CXmlNode clustered = child.FindChild(u"IsClustered");
        if (clustered.IsNull())
            GetLog().Detail(u"IsClustered parameter was not found");
        else
            shadow.IsClustered = ParseClusteredFlag(clustered.GetText());
        const platform::CXmlNode volumeId = child.FindChild(u"VolumeId");
        if (!volumeId.IsNull()) {
            const std::u16string text = volumeId.GetText();
            std::u16string_view guid = text;
            if (guid.size() >= 2) {
                if (guid.front() == u'{') guid.remove_prefix(1);
                if (guid.back() == u'}') guid.remove_suffix(1);
            }
            if (!ParseGuid(guid, shadow.VolumeId))
                throw CWin32Exc(u"Cannot convert string to GUID. String: [%1].", text,
                                kErrInvalidStringUuid);
        }
        m_Shadows.push_back(std::move(shadow));
    }
}

void BuildVolumeDescriptions(const CFilterReader& reader, std::vector<CIndexingVolumeInfo>& volumes,
                             platform::IVolumes& system) {
    std::vector<std::u16string> include, exclude;
    reader.ReadFilters(include, exclude);

    CSnapshotMapping mapping;
    if (reader.GetSnapshotMappingFileName().empty()) {
        GetLog().Detail(u"Snapshot mapping file isn`t set.");
    } else {
        const std::u16string path = reader.GetModuleFilePath(reader.GetSnapshotMappingFileName());
        if (platform::GetAttributes(path) != platform::kInvalidFileAttributes) {
            GetLog().Detail(u"Snapshot mapping file [%1] found successfully.", path);
            mapping.LoadFromFile(path);
        } else {
            GetLog().Detail(u"Snapshot mapping file [%1] not found.", path);
        }
    }

    for (auto& line : include) line = TrimTrailingBackslashes(line);
    for (auto& line : exclude) line = TrimTrailingBackslashes(line);
    CreateIndexingVolumeInfo(include, exclude, volumes, system);

    for (auto& volume : volumes) {
        const std::u16string device = TrimTrailingSeparators(GetVolumeDeviceName(volume.m_Name, system));
        bool found = false;
        for (const auto& shadow : mapping.m_Shadows) {
            if (shadow.OriginalVolumeGuidName != device) continue;  // exact, case included
            found = true;
            volume.m_Shadow = shadow.ShadowMountPointName;
            volume.m_IsCluster = shadow.IsClustered;
            volume.m_VolumeId = shadow.VolumeId;
            GetLog().Detail(u"Snapshot found.");
            GetLog().Detail(u"    Volume: [%1][%2].", volume.m_Name, device);
            GetLog().Detail(u"    Snapshot: [%1].", volume.m_Shadow);
            if (volume.m_IsCluster) {
                GetLog().Detail(u"    Volume is clustered.");
                GetLog().Detail(u"    Volume identifier: [%1].", u"{" + GuidToString(volume.m_VolumeId) + u"}");
            }
        }
        if (found) continue;
        if (mapping.m_Shadows.empty()) {
            GetLog().Detail(u"Shadow description empty.");
            continue;
        }
        GetLog().Error(u"Invalid shadow description.");
        GetLog().Error(u"Can`t find snapshot for volume: [%1][%2].", volume.m_Name, device);
        GetLog().Detail(u"Shadow description:");
        for (const auto& shadow : mapping.m_Shadows) {
            GetLog().Detail(u"    Volume: [%1].", shadow.OriginalVolumeGuidName);
            GetLog().Detail(u"    Snapshot: [%1].", shadow.ShadowMountPointName);
        }
    }
    WarnOfSetupMistakes(volumes, system);
}

}  // namespace indexer
