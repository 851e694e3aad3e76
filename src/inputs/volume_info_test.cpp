#include "inputs/volume_info.h"

#include <gtest/gtest.h>

#include "platform/errors.h"
#include "platform/volume_table.h"

namespace indexer {
namespace {

using Paths = std::vector<std::u16string>;

// C: and D: drives, a folder mount C:\mnt\data.
std::vector<platform::TVolumeTableEntry> Entries() {
    std::vector<platform::TVolumeTableEntry> volumes(3);
    volumes[0].mountPoints = {u"C:"};
    volumes[1].mountPoints = {u"D:"};
    volumes[2].mountPoints = {u"C:\\mnt\\data"};
    return volumes;
}

// A table whose mount point enumeration also answers a root without "\",
// so that the nested mount point step can be seen at work.
class CLenientTable : public platform::CVolumeTable {
public:
    CLenientTable() : CVolumeTable(Entries(), {}) {}
    platform::CVolumeFindHandle FindFirstVolumeMountPoint(std::u16string_view root, std::u16string& name,
                                                          uint32_t length) override {
        return CVolumeTable::FindFirstVolumeMountPoint(std::u16string(root) + u"\\", name, length);
    }
};

struct TExpected {
    std::u16string name;
    Paths include, exclude;
};

void ExpectVolumes(const std::vector<CIndexingVolumeInfo>& volumes, const std::vector<TExpected>& expected) {
    ASSERT_EQ(volumes.size(), expected.size());
    for (size_t i = 0; i < volumes.size(); ++i) {
        EXPECT_EQ(volumes[i].m_Name, expected[i].name);
        EXPECT_EQ(volumes[i].m_Include, expected[i].include) << i;
        EXPECT_EQ(volumes[i].m_Exclude, expected[i].exclude) << i;
    }
}

TEST(VolumeInfoTest, VolumeListOfAnOptimizedRun) {
    struct {
        const char* what;
        Paths include, exclude;
        std::vector<TExpected> volumes;
    } cases[] = {
        {"a root include means the whole volume", {u"c:"}, {}, {{u"c:", {}, {}}}},
        {"a folder after the root narrows the volume to the folder", {u"c:", u"c:\\data"}, {},
         {{u"c:", {u"data"}, {}}}},
        {"folder then subfolder keeps the first", {u"c:\\data", u"c:\\DATA\\sub"}, {}, {{u"c:", {u"data"}, {}}}},
        {"subfolder then folder keeps both", {u"c:\\data\\sub", u"c:\\data"}, {},
         {{u"c:", {u"data\\sub", u"data"}, {}}}},
        {"a sibling whose name extends a folder's is kept", {u"c:\\data", u"c:\\database"}, {},
         {{u"c:", {u"data", u"database"}, {}}}},
        {"an exclude of a volume's root removes it", {u"c:\\data", u"d:\\x"}, {u"c:"}, {{u"d:", {u"x"}, {}}}},
        {"only include lines create volumes", {u"c:\\data"}, {u"d:\\x", u"c:\\data\\tmp", u"q:\\y"},
         {{u"c:", {u"data"}, {u"data\\tmp"}}}},
        {"a folder mount is a volume of its own", {u"c:\\mnt\\data\\x", u"c:\\mnt"}, {},
         {{u"c:\\mnt\\data", {u"x"}, {}}, {u"c:", {u"mnt"}, {}}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        platform::CVolumeTable table(Entries(), {});
        std::vector<CIndexingVolumeInfo> volumes;
        CreateIndexingVolumeInfo(c.include, c.exclude, volumes, table);
        ExpectVolumes(volumes, c.volumes);
    }
    platform::CVolumeTable table(Entries(), {});
    std::vector<CIndexingVolumeInfo> volumes;
    EXPECT_THROW(CreateIndexingVolumeInfo({u"q:\\x"}, {}, volumes, table), CWin32Exc);  // on no volume
}

TEST(VolumeInfoTest, NestedMountPointsWithATableThatAnswersThem) {
    struct {
        Paths include;
        std::vector<TExpected> volumes;
    } cases[] = {
        // The name is the volume's followed directly by the relative mount point.
        {{u"c:"}, {{u"c:", {}, {}}, {u"c:mnt\\data\\", {}, {}}}},
        {{u"c:\\mnt"}, {{u"c:", {u"mnt"}, {}}, {u"c:mnt\\data\\", {}, {}}}},
        {{u"c:\\users"}, {{u"c:", {u"users"}, {}}}},  // no include leads to the mount point
    };
    for (const auto& c : cases) {
        CLenientTable table;
        std::vector<CIndexingVolumeInfo> volumes;
        CreateIndexingVolumeInfo(c.include, {}, volumes, table);
        ExpectVolumes(volumes, c.volumes);
    }
    // The real call wants the root with its "\": a run gathers no nested
    // mount points, and a folder mount is indexed only when a line names it.
    platform::CVolumeTable strict(Entries(), {});
    std::vector<CIndexingVolumeInfo> volumes;
    CreateIndexingVolumeInfo({u"c:"}, {}, volumes, strict);
    ExpectVolumes(volumes, {{u"c:", {}, {}}});
}

}  // namespace
}  // namespace indexer
