#pragma once
// The snapshot mapping: the XML file beside the program that names the
// shadow copy of each volume, and the input stage of an optimized run that
// joins it with the filter files into the run's list of volumes.
//
// The document (validated against its DTD when it has a DOCTYPE):
//   <ShadowsList>
//     <Shadow>
//       <OriginalVolumeGuidName>\\?\Volume{...}\</OriginalVolumeGuidName>
//       <ShadowMountPointName>...</ShadowMountPointName>
//       <IsClustered>false</IsClustered>          (optional)
//       <VolumeId>{...}</VolumeId>                (optional)
//     </Shadow>
//   </ShadowsList>
// Only the position of a child of ShadowsList counts, not its name.

#include <string>
#include <string_view>
#include <vector>

#include "inputs/filter_reader.h"
#include "inputs/guid.h"
#include "inputs/volume_info.h"
#include "platform/volume.h"
#include "platform/xml.h"

namespace indexer {

struct TShadowDescription {
    std::u16string OriginalVolumeGuidName;  // without trailing "\" or "/"
    std::u16string ShadowMountPointName;    // without trailing "\" or "/"
    bool IsClustered = false;
    TGuid VolumeId;
};

class CSnapshotMapping {
public:
    // Reads the file and appends its entries, checking in this order (each
    // failure ends the run): the document object ("Cannot create XML
    // document."), validation ("Cannot disable/enable validation of a XML
    // document against DTD schema."), the load ("Cannot load the specified
    // XML file: [%1]."), "ShadowsList" and each entry's two names ("There is
    // no child nodes with name [%1]."), each child an element ("The given XML
    // node does not support the IXMLDOMElement interface."), a VolumeId that
    // is a GUID ("Cannot convert string to GUID. String: [%1].").
    void LoadFromFile(std::u16string_view path);

    std::vector<TShadowDescription> m_Shadows;
};

// The IsClustered text, ignoring case: "false" and "0" are false, anything
// else true.
bool ParseClusteredFlag(std::u16string_view text);

// Throws the CComExc of a failed listing of ShadowsList's children, with the
// failure's code: "Cannot get a collection of child nodes for the given
// element." (the collection), "Cannot get the dimensions of a container with
// XML nodes." (its length), "Cannot get the children count for the
// specified element." (a length below zero), "Cannot retrieve  a XML element
// from the child nodes collection by the specified index [%1]." (an item).
// Nothing when no call failed.
void ThrowIfListFailed(const platform::TXmlListFailure& failure);

// The input stage of an optimized run: reads the filters and the mapping
// (a missing mapping file is no failure), builds the volume list, and gives
// each volume its shadow, cluster flag and identifier.
void BuildVolumeDescriptions(const CFilterReader& reader, std::vector<CIndexingVolumeInfo>& volumes,
                             platform::IVolumes& system = platform::SystemVolumes());

}  // namespace indexer
