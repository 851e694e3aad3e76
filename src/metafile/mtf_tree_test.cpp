#include "metafile/mtf_tree.h"

#include <gtest/gtest.h>

#include "base/exc.h"
#include "base/format.h"
#include "metafile/mtf_test_util.h"

namespace metafile {
namespace {

using testing::Lines;

struct TTreeFixture {
    std::shared_ptr<CMtfLinesTab> lines = std::make_shared<CMtfLinesTab>(u"s.txt");
    std::shared_ptr<CMtfNodesTab> nodes;
    explicit TTreeFixture(std::vector<std::u16string> fileLines = {}) {
        for (const auto& l : fileLines) lines->AddLine(l, MtfLineUnchanged);
        nodes = std::make_shared<CMtfNodesTab>(lines, u"s.txt");
    }
};

TEST(MtfPath, Split) {
    using V = std::vector<std::u16string>;
    std::vector<std::u16string> parts;
    for (const auto& [path, expected] : std::vector<std::pair<std::u16string, V>>{
             {u"a.b.c", {u"a", u"b", u"c"}}, {u".a..b.", {u"a", u"b"}}, {u"...", {}}}) {
        SplitPath(path, parts);
        EXPECT_EQ(parts, expected) << util::Utf16ToUtf8(path);
    }
    std::u16string attribute;
    SplitAttributePath(u"a.b.c", parts, attribute);
    EXPECT_EQ(parts, (V{u"a", u"b"}));
    EXPECT_EQ(attribute, u"c");
    EXPECT_THROW(SplitAttributePath(u"..", parts, attribute), CExc);
}

TEST(MtfTree, SettingAttributesWritesKeysFromTheTree) {
    TTreeFixture f;
    CMtfTree root(0, f.nodes);
    root.SetAttribute(u"type", u"ifd");
    root.SetAttribute(u"a.b.c", u"1");
    CMtfTree volumes = root.CreateSubtree(u"Volumes");
    volumes.CreateSubtree(u"0").SetAttribute(u"Name", u"x");
    // The node's own spelling wins over the caller's.
    root.SetAttribute(u"VOLUMES.0.Size", u"5");
    EXPECT_EQ(Lines(*f.lines),
              (std::vector<std::u16string>{u"type=ifd", u"a.b.c=1", u"Volumes.0.Name=x", u"Volumes.0.Size=5"}));
    EXPECT_EQ(f.nodes->GetNodeCount(), 5);  // root, a, a.b, Volumes, Volumes.0
}

TEST(MtfTree, Refusals) {
    TTreeFixture f;
    EXPECT_THROW(CMtfTree(0, f.nodes).CreateSubtree(u"Volumes.0").SetAttribute(u"...", u"x"), CExc);
    EXPECT_THROW(TTreeFixture({u"..=1"}), CExc);  // a loaded key without a name
}

TEST(MtfTree, LoadedKeysNodesWithoutCaseAttributesExact) {
    TTreeFixture f({u"a=1", u"A=2", u"z.a=1", u"Z.a=2", u"# z.b=3", u"plain"});
    const CMtfTreeNode& root = f.nodes->GetNode(0);
    EXPECT_EQ(root.m_Attributes.size(), 2u);
    EXPECT_EQ(root.m_Children.size(), 1u);
    const CMtfTreeNode& z = f.nodes->GetNode(f.nodes->FindChild(0, u"z"));
    EXPECT_EQ(z.m_Attributes.size(), 1u);
    EXPECT_EQ(z.m_Attributes.at(u"a"), (std::pair<std::u16string, int64_t>{u"2", 3}));
    EXPECT_EQ(f.nodes->FindChild(0, u"\u00C9"), -1);
    // Setting it again replaces the later line; the earlier stays unseen.
    CMtfTree(0, f.nodes).SetAttribute(u"z.a", u"9");
    EXPECT_EQ(Lines(*f.lines)[2], u"z.a=1");
    EXPECT_EQ(Lines(*f.lines)[3], u"z.a=9");
}

}  // namespace
}  // namespace metafile
