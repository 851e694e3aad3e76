#include "inputs/snapshot_mapping.h"

#include <gtest/gtest.h>

#include "base/utf.h"
#include "platform/errors.h"
#include "platform/volume_table.h"
#include "testing/com_apartment.h"
#include "testing/log_capture.h"
#include "testing/temp_dir.h"

namespace indexer {
namespace {

const std::string kVolCText = "\\\\?\\Volume{0000000c-0000-0000-0000-000000000001}";
const std::string kVolDText = "\\\\?\\Volume{0000000d-0000-0000-0000-000000000002}";
const std::u16string kVolC = util::Utf8ToUtf16(kVolCText);

platform::CVolumeTable MakeTable() {
    std::vector<platform::TVolumeTableEntry> volumes(2);
    volumes[0].mountPoints = {u"C:"};
    volumes[0].volumeName = kVolC;
    volumes[1].mountPoints = {u"D:"};
    volumes[1].volumeName = util::Utf8ToUtf16(kVolDText);
    return platform::CVolumeTable(std::move(volumes), {});
}

std::string Utf16File(std::u16string_view text) {
    std::string bytes = "\xFF\xFE";
    for (char16_t c : text) bytes += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
    return bytes;
}

std::string Shadow(const std::string& volume, const std::string& shadow, const std::string& extra = "") {
    return "<Shadow><OriginalVolumeGuidName>" + volume + "</OriginalVolumeGuidName><ShadowMountPointName>" +
           shadow + "</ShadowMountPointName>" + extra + "</Shadow>\n";
}

std::string Document(const std::string& shadows) {
    return "<?xml version=\"1.0\"?>\n<ShadowsList>\n" + shadows + "</ShadowsList>\n";
}

// A run's input folder: both filters and, unless empty, the mapping.
class CInputs {
public:
    explicit CInputs(const std::string& mapping) {
        m_Dir.WriteFile("NorvaGuestIndexer.inc.filter", Utf16File(u"C:\\Data\r\nD:\\"));
        m_Dir.WriteFile("NorvaGuestIndexer.exc.filter", Utf16File(u""));
        if (!mapping.empty()) m_Dir.WriteFile("NorvaGuestIndexer.SnapshotMapping.xml", mapping);
    }
    std::vector<CIndexingVolumeInfo> Build() {
        CFilterReader reader(m_Dir.Path(), {});
        std::vector<CIndexingVolumeInfo> volumes;
        BuildVolumeDescriptions(reader, volumes, m_Table);
        return volumes;
    }

private:
    ngitest::CComApartment m_Com;
    ngitest::CTempDir m_Dir;
    platform::CVolumeTable m_Table = MakeTable();
};

TEST(SnapshotMappingTest, TheLaterOfTwoEntriesForOneVolumeWins) {
    CInputs inputs(Document(Shadow(kVolCText + "\\", "/snap/one") +
                            Shadow(kVolCText, "/snap/two/", "<IsClustered>1</IsClustered>"
                                                            "<VolumeId>{A1B2C3D4-0000-1111-2222-333344445555}</VolumeId>") +
                            Shadow(kVolDText, "/snap/d", "<VolumeId>00000000-0000-0000-0000-000000000001</VolumeId>")));
    const auto volumes = inputs.Build();
    ASSERT_EQ(volumes.size(), 2u);
    EXPECT_EQ(volumes[0].m_Name, u"c:");
    EXPECT_EQ(volumes[0].m_Include, std::vector<std::u16string>{u"data"});
    EXPECT_EQ(volumes[0].m_Shadow, u"/snap/two");
    EXPECT_TRUE(volumes[0].m_IsCluster);
    EXPECT_EQ(GuidToString(volumes[0].m_VolumeId), u"a1b2c3d4-0000-1111-2222-333344445555");
    EXPECT_EQ(volumes[1].m_Shadow, u"/snap/d");
    EXPECT_FALSE(volumes[1].m_IsCluster);
}

TEST(SnapshotMappingTest, GuidNameInAnotherCaseDoesNotMatch) {
    std::string upper = kVolCText;
    upper.replace(upper.find("Volume{0000000c"), 15, "Volume{0000000C");
    CInputs inputs(Document(Shadow(upper, "/snap/c")));
    ngitest::CLogCapture log;
    const auto volumes = inputs.Build();
    EXPECT_EQ(volumes.at(0).m_Shadow, u"");
    EXPECT_EQ(log.LevelOf(u"Can`t find snapshot for volume: [c:][" + kVolC + u"]."), LogError);
}

TEST(SnapshotMappingTest, MissingFileLeavesEveryVolumeLive) {
    CInputs inputs("");
    const auto volumes = inputs.Build();
    ASSERT_EQ(volumes.size(), 2u);
    for (const auto& volume : volumes) EXPECT_EQ(volume.m_Shadow, u"");
}

TEST(SnapshotMappingTest, ClusteredTextIsTrueUnlessFalseOrZero) {
    for (const char16_t* yes : {u"1", u"no", u"True", u""}) EXPECT_TRUE(ParseClusteredFlag(yes));
    for (const char16_t* no : {u"0", u"FALSE"}) EXPECT_FALSE(ParseClusteredFlag(no));
}

TEST(SnapshotMappingTest, DamagedFilesEndTheRun) {
    ngitest::CComApartment com;
    const std::string dtd =
        "<?xml version=\"1.0\"?>\n<!DOCTYPE ShadowsList [\n"
        "<!ELEMENT ShadowsList (Shadow*)>\n"
        "<!ELEMENT Shadow (OriginalVolumeGuidName, ShadowMountPointName, IsClustered?, VolumeId?)>\n"
        "<!ELEMENT OriginalVolumeGuidName (#PCDATA)>\n<!ELEMENT ShadowMountPointName (#PCDATA)>\n"
        "<!ELEMENT IsClustered (#PCDATA)>\n<!ELEMENT VolumeId (#PCDATA)>\n]>\n";
    struct {
        std::string content;
        std::u16string message;
    } cases[] = {
        {"<ShadowsList><Shadow>", u"Cannot load the specified XML file: [%1]."},
        // Well-formed but not valid against its own DTD.
        {dtd + "<ShadowsList><Shadow><ShadowMountPointName>x</ShadowMountPointName></Shadow></ShadowsList>",
         u"Cannot load the specified XML file: [%1]."},
        {"<Other/>", u"There is no child nodes with name [ShadowsList]."},
        {Document("<!-- a note -->" + Shadow(kVolCText, "/s")),
         u"The given XML node does not support the IXMLDOMElement interface."},
        {Document("<Shadow><OriginalVolumeGuidName>x</OriginalVolumeGuidName></Shadow>"),
         u"There is no child nodes with name [ShadowMountPointName]."},
        {Document(Shadow(kVolCText, "/s", "<VolumeId>{not-a-guid}</VolumeId>")),
         u"Cannot convert string to GUID. String: [{not-a-guid}]."},
    };
    for (const auto& c : cases) {
        ngitest::CTempDir dir;
        dir.WriteFile("m.xml", c.content);
        CSnapshotMapping mapping;
        try {
            mapping.LoadFromFile(dir.Path(u"m.xml"));
            ADD_FAILURE() << "loaded: " << c.content;
        } catch (const CExc& e) {
            std::u16string expected = c.message;
            if (size_t at = expected.find(u"%1"); at != std::u16string::npos)
                expected.replace(at, 2, dir.Path(u"m.xml"));
            EXPECT_EQ(e.GetMessages().front(), expected) << c.content;
        }
    }
    // The same DTD with a valid document loads; the DOCTYPE is no child.
    ngitest::CTempDir dir;
    dir.WriteFile("m.xml", dtd + "<ShadowsList>" + Shadow(kVolCText, "/s", "<IsClustered>no</IsClustered>") +
                               "</ShadowsList>");
    CSnapshotMapping mapping;
    mapping.LoadFromFile(dir.Path(u"m.xml"));
    ASSERT_EQ(mapping.m_Shadows.size(), 1u);
    EXPECT_TRUE(mapping.m_Shadows[0].IsClustered);
}

}  // namespace
}  // namespace indexer
