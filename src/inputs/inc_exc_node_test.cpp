#include "inputs/inc_exc_node.h"

#include <gtest/gtest.h>

#include "base/format.h"
#include "base/utf.h"
#include "inputs/path_utils.h"
#include "testing/log_capture.h"

namespace indexer {
namespace {

using Paths = std::vector<std::u16string>;

// The tree as DumpTree logs it, one line each.
std::u16string Dump(const CIncExcNode& root) {
    ngitest::CLogCapture log;
    DumpTree(root, 0);
    return log.Text();
}

TEST(IncExcNodeTest, TreesOfTheEdgeCases) {
    struct {
        Paths include, exclude;
        std::u16string dump;
        const char16_t* warning;
    } cases[] = {
        // No include line includes the root.
        {{}, {u"tmp"}, u". - NODE INC \n    tmp - EXC \n", nullptr},
        {{}, {}, u". - INC \n", nullptr},
        // Nested include and exclude, to any depth.
        {{u"data", u"users\\ann"}, {u"data\\tmp", u"users\\ann\\cache\\x"},
         u". - NODE \n    data - NODE INC \n        tmp - EXC \n    users - NODE \n"
         u"        ann - NODE INC \n            cache - NODE INC \n                x - EXC \n",
         nullptr},
        // Excluding a folder and then its subfolder changes nothing.
        {{}, {u"data", u"data\\sub"}, u". - NODE INC \n    data - EXC \n",
         u"Parent directory [data] already excluded."},
        // The later of two lines for one folder wins; case is ignored.
        {{u"data"}, {u"DATA"}, u". - NODE \n    data - EXC \n",
         u"Directory 'DATA' already exist. Subdirs is empty."},
    };
    for (const auto& c : cases) {
        ngitest::CLogCapture log;
        const CIncExcNode root(c.include, c.exclude);
        EXPECT_EQ(Dump(root), c.dump);
        if (c.warning) {
            EXPECT_EQ(log.LevelOf(c.warning), LogWarning) << util::Utf16ToUtf8(log.Text());
        }
    }
}

TEST(IncExcNodeTest, DirectoryWalkAsksByName) {
    const CIncExcNode root(Paths{u"data"}, Paths{u"data\\tmp"});
    const CIncExcNode* child = nullptr;
    EXPECT_FALSE(IsItemIncluded(root.m_IncExcFlag, root, u"C:", u"windows", child));
    EXPECT_EQ(child, nullptr);
    ASSERT_TRUE(IsItemIncluded(root.m_IncExcFlag, root, u"C:", u"Data", child));
    ASSERT_NE(child, nullptr);
    const CIncExcNode* data = child;
    EXPECT_FALSE(IsItemIncluded(data->m_IncExcFlag, *data, u"C:\\data", u"TMP", child));
    EXPECT_TRUE(IsItemIncluded(data->m_IncExcFlag, *data, u"C:\\data", u"other", child));
    EXPECT_EQ(child, nullptr);
    // Below a folder without NODE the tree says nothing more.
    EXPECT_TRUE(IsItemIncluded(kIncExcInc, *data, u"C:\\data\\x", u"tmp", child));
}

TEST(IncExcNodeTest, PathIsDecidedByItsDeepestNode) {
    const CIncExcNode root(Paths{u"data"}, Paths{u"data\\tmp"});
    auto included = [&root](std::u16string_view path) {
        std::vector<TPathPart> parts;
        SplitPath(path, parts);
        return IsPathIncluded(parts, root);
    };
    EXPECT_TRUE(included(u"C:\\data\\x\\y"));
    EXPECT_TRUE(included(u"C:\\data"));        // the deepest part decides, even when it is a node
    EXPECT_FALSE(included(u"C:\\data\\tmp"));
    EXPECT_FALSE(included(u"C:\\data\\tmp\\y"));
    EXPECT_FALSE(included(u"C:\\windows"));
    EXPECT_FALSE(included(u"C:"));  // the root alone is a pure node
}

TEST(IncExcNodeTest, FlagsByReferencesTreatAPureNodeAsExcluding) {
    CIncExcNode root(Paths{u"users\\ann", u"data"}, Paths{u"data\\tmp"});
    // File references as the NTFS pipeline fills them in.
    root.m_Children[0].m_Reference = 100;                 // users (pure node)
    root.m_Children[0].m_Children[0].m_Reference = 101;   // ann
    root.m_Children[1].m_Reference = 200;                 // data
    root.m_Children[1].m_Children[0].m_Reference = 201;   // tmp
    struct {
        std::vector<uint64_t> ancestors;
        uint64_t item;
        uint32_t flags;
    } cases[] = {
        {{}, 100, kIncExcNode},             // users itself: as it stands
        {{}, 300, kIncExcExc},              // a folder the root does not name
        {{100}, 101, kIncExcInc},           // users\ann
        {{100}, 102, kIncExcExc},           // users\bob: below a pure node
        {{100, 101}, 500, kIncExcInc},      // a file of ann
        {{100, 101, 500}, 501, kIncExcInc}, // deeper: ann has no children
        {{200}, 201, kIncExcExc},           // data\tmp
        {{200, 201}, 700, kIncExcExc},      // a file in data\tmp
        {{200}, 202, kIncExcInc},           // another folder of data
        {{999}, 5, kIncExcExc},             // an ancestor the tree doesn't know
    };
    for (const auto& c : cases)
        EXPECT_EQ(GetFlagsByReferences(c.ancestors, c.item, root), c.flags) << c.item;
    EXPECT_EQ(GetFlagsByReferencesAndName({100}, u"ANN", root), kIncExcInc);
    EXPECT_EQ(GetFlagsByReferencesAndName({100}, u"bob", root), kIncExcExc);
    EXPECT_EQ(GetFlagsByReferencesAndName({}, u"Data", root), kIncExcNode | kIncExcInc);

    // A node never resolved is skipped with an error line by the lookup by
    // references, but not by the lookup of the last step by name.
    CIncExcNode unresolved(Paths{u"users\\ann", u"data"}, Paths{u"data\\tmp"});
    unresolved.m_Children[1].m_Reference = 200;
    ngitest::CLogCapture log;
    EXPECT_EQ(GetFlagsByReferences({}, 200, unresolved), kIncExcNode | kIncExcInc);
    EXPECT_EQ(log.LevelOf(u"Zero reference for [users]."), LogError);
    EXPECT_EQ(GetFlagsByReferencesAndName({}, u"users", unresolved), kIncExcNode);
    EXPECT_EQ(GetFlagsByReferencesAndName({200}, u"TMP", unresolved), kIncExcExc);
}

// Many siblings go through the node's indexes: the same tree and warnings as
// a search of the siblings gives, also after the pipeline erases a child and
// after it fills in references that were asked for while still 0.
TEST(IncExcNodeTest, ManySiblingsAreFoundThroughTheIndexes) {
    Paths exclude;
    for (int i = 0; i < 1000; ++i) exclude.push_back(u"big\\F" + util::ToStrU32(i));
    exclude.push_back(u"BIG\\f7");
    exclude.push_back(u"big\\f7\\below");
    exclude.push_back(u"big\\F3");
    ngitest::CLogCapture log;
    CIncExcNode root(Paths{}, exclude);
    EXPECT_EQ(log.LevelOf(u"Parent directory [f7] already excluded."), LogWarning);
    EXPECT_EQ(log.LevelOf(u"Directory 'F3' already exist. Subdirs is empty."), LogWarning);
    CIncExcNode& big = root.m_Children.at(0);
    ASSERT_EQ(big.m_Children.size(), 1000u);
    EXPECT_EQ(FindChild(u"f999", big), &big.m_Children[999]);
    EXPECT_EQ(FindChild(u"f1000", big), nullptr);

    EXPECT_EQ(big.ChildByReference(0), &big.m_Children[0]);  // asked while all are 0
    big.m_Children.erase(big.m_Children.begin() + 5);            // F5 not found on the volume
    EXPECT_EQ(FindChild(u"F6", big), &big.m_Children[5]);
    EXPECT_EQ(FindChild(u"F5", big), nullptr);
    big.m_Reference = 9;
    for (size_t i = 0; i < big.m_Children.size(); ++i) big.m_Children[i].m_Reference = 100 + i;
    EXPECT_EQ(GetFlagsByReferences({9}, 100 + 998, root), kIncExcExc);  // F999
    EXPECT_EQ(GetFlagsByReferences({9}, 5000, root), kIncExcInc);      // a folder the lines don't name
}

TEST(IncExcNodeTest, OverlyDeepLineIsRefusedNotRecursedInto) {
    std::u16string deep = u"a";
    for (size_t i = 1; i < kMaxFilterDepth; ++i) deep += u"\\a";
    EXPECT_NO_THROW(CIncExcNode(Paths{deep}, Paths{}));
    EXPECT_THROW(CIncExcNode(Paths{deep + u"\\b"}, Paths{}), CExc);
}

}  // namespace
}  // namespace indexer
