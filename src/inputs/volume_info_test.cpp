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
        // The system's mount point enumeration wants the root with its "\\": a
        // folder mount is indexed only when a line names it.
        {"a root include means the whole volume, not its folder mounts", {u"c:"}, {}, {{u"c:", {}, {}}}},
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

}  // namespace
}  // namespace indexer
