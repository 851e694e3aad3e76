#include "metafile/mtf_tree.h"

#include <gtest/gtest.h>

#include "base/exc.h"
#include "base/format.h"
#include "metafile/mtf_test_util.h"

namespace metafile {
namespace {

using testing::CMtfTestDir;
using testing::kBom;
using testing::Le;
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
             {u"a.b.c", {u"a", u"b", u"c"}},
             {u"a..b", {u"a", u"b"}},
             {u".a.b.", {u"a", u"b"}},
             {u"...", {}},
             {u"", {}},
             {u"x", {u"x"}}}) {
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
    EXPECT_EQ(f.nodes->GetNodePath(f.nodes->CreateSubtree(0, u"a.b")), u"a.b");
    EXPECT_EQ(f.nodes->GetNodeCount(), 5);  // root, a, a.b, Volumes, Volumes.0
}

TEST(MtfTree, SettingTwiceUpdatesTheLine) {
    TTreeFixture f({u"old=1"});
    CMtfTree root(0, f.nodes);
    root.SetAttribute(u"new", u"1");
    root.SetAttribute(u"new", u"2");
    EXPECT_EQ(f.lines->GetLineCount(), 2);
    EXPECT_EQ(f.lines->GetChangeKind(), MtfChangeAppend);  // a new line: appended
    root.SetAttribute(u"old", u"2");
    EXPECT_EQ(f.lines->GetLineCount(), 2);
    EXPECT_EQ(f.lines->GetChangeKind(), MtfChangeRewrite);  // a line of the file: rewrite
    EXPECT_EQ(Lines(*f.lines), (std::vector<std::u16string>{u"old=2", u"new=2"}));
}

TEST(MtfTree, Refusals) {
    TTreeFixture f;
    EXPECT_THROW(CMtfTree(0, f.nodes).CreateSubtree(u"Volumes.0").SetAttribute(u"...", u"x"), CExc);
    EXPECT_THROW(f.nodes->CreateSubtree(42, u"x"), CExc);
    EXPECT_THROW(f.nodes->GetNode(-1), CExc);
    auto lines = std::make_shared<CMtfLinesTab>(u"s.txt");
    lines->AddLine(u"..=1", MtfLineUnchanged);  // a key without a name
    EXPECT_THROW(CMtfNodesTab(lines, u"s.txt"), CExc);
}

TEST(MtfTree, KeysKeepTheNearestHundredNames) {
    TTreeFixture f;
    std::u16string path, expected;
    for (int i = 1; i <= 101; ++i) {
        const std::u16string name = u"n" + util::Ascii(std::to_string(i));
        path += name + u".";
        if (i > 1) expected += name + u".";
    }
    CMtfTree(0, f.nodes).SetAttribute(path + u"a", u"v");
    EXPECT_EQ(Lines(*f.lines), (std::vector<std::u16string>{expected + u"a=v"}));
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

// The run's use: summary.txt in mode 2, then read back.
TEST(MtfFile, SummaryRoundTrip) {
    CMtfTestDir dir;
    dir.Write("summary.txt", kBom + Le("stale=1"));
    {
        auto file = CMtfFile::Open(dir.Path("summary.txt"), EMtfCreateNewDetached);
        file->SetAttribute(u"type", u"ifd");
        CMtfTree volume = file->CreateSubtree(u"Volumes").CreateSubtree(u"0");
        volume.SetAttribute(u"Name", u"C:\\");
        volume.SetAttribute(u"File", u"volume.C_.ifd");
        file->Save();
    }
    EXPECT_EQ(dir.Read("summary.txt"),
              kBom + Le("type=ifd\r\nVolumes.0.Name=C:\\\r\nVolumes.0.File=volume.C_.ifd"));
    auto loaded = CMtfFile::Open(dir.Path("summary.txt"), EMtfLoad);
    const auto& nodes = loaded->GetNodes();
    const int64_t zero = nodes->FindChild(nodes->FindChild(0, u"volumes"), u"0");
    EXPECT_EQ(nodes->GetNode(zero).m_Attributes.at(u"Name").first, u"C:\\");
    EXPECT_EQ(nodes->GetNode(0).m_Attributes.at(u"type").first, u"ifd");
}

}  // namespace
}  // namespace metafile
