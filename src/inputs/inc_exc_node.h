#pragma once
// The include/exclude filter tree of one volume.
//
// Each node names one path component below the volume's root (the root is
// "."); its flags say how the folder and what lies below it count:
// kIncExcInc included, kIncExcExc excluded, kIncExcNode "has children that
// must be consulted"; 0 means not yet decided. The directory walk asks the
// tree by name, the NTFS pipeline by file reference (filled in per attempt).
//
// Names compare as the Windows file system does, ignoring case
// (base/case.h). The tree is built and read on one thread.
//
// A node finds a child by name, and by reference, through an index of its
// children that it builds on first use and rebuilds when the number of
// children changed since, so that a folder with 100,000 filter lines below
// it costs no scan of its siblings per line or per lookup.
// REQUIRES: m_Children changes only through AddChild or by erasing; a
// child's name doesn't change, nor its reference once that is not 0.

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace indexer {

struct TPathPart;

inline constexpr uint32_t kIncExcInc = 1;
inline constexpr uint32_t kIncExcExc = 2;
inline constexpr uint32_t kIncExcNode = 4;
inline constexpr uint32_t kIncExcKindInclude = kIncExcInc;
inline constexpr uint32_t kIncExcKindExclude = kIncExcExc;
// The deepest folder a filter line may name, in components below the volume.
// Windows paths of 32,767 characters can't nest much deeper; a line beyond it
// is damaged input and would only exhaust the stack of the recursive walks.
inline constexpr size_t kMaxFilterDepth = 1024;

class CIncExcNode {
public:
    CIncExcNode() = default;
    CIncExcNode(std::u16string name, uint32_t flags) : m_Name(std::move(name)), m_IncExcFlag(flags) {}
    // The root of a volume's tree from its relative include and exclude
    // folders (no trailing "\"): with includes the root is a node (4) and each
    // include is added, without any the root is included (1); then each
    // exclude is added.
    CIncExcNode(const std::vector<std::u16string>& include, const std::vector<std::u16string>& exclude);

    std::u16string m_Name{u"."};
    std::vector<CIncExcNode> m_Children;
    uint64_t m_Reference = 0;
    uint32_t m_IncExcFlag = 0;

    // The first child of the name (ignoring case), or of the reference;
    // nullptr when none.
    CIncExcNode* ChildByName(std::u16string_view name);
    CIncExcNode* ChildByReference(uint64_t reference);
    // Appends a child, keeping the indexes.
    void AddChild(CIncExcNode child);

private:
    void _IndexReferences();

    // Upper-cased name, or reference, to the position of the first child
    // with it; valid while the count equals the children's. References of
    // 0 may be resolved later: while the index holds some, a miss or a
    // changed entry rebuilds it.
    std::unordered_map<std::u16string, size_t> m_ByName;
    size_t m_ByNameCount = 0;
    std::unordered_map<uint64_t, size_t> m_ByReference;
    size_t m_ByReferenceCount = 0;
    bool m_ByReferenceHasZero = false;
};

// Adds the relative path below node with kind kIncExcKindInclude or
// kIncExcKindExclude; parentFlags are the node's current flags. A later line
// for the same folder overrides an earlier one; an exclude below an excluded
// folder is dropped with a warning. Throws CExc "Filter path is nested too
// deeply (%1 levels): %2" beyond kMaxFilterDepth.
void AddSubdirectory(CIncExcNode& node, std::u16string_view path, uint32_t parentFlags, uint32_t kind);

// The first child of the name, ignoring case; nullptr when none.
CIncExcNode* FindChild(std::u16string_view name, CIncExcNode& node);
const CIncExcNode* FindChild(std::u16string_view name, const CIncExcNode& node);

// The directory walk's test of one entry `name` of the folder `path` whose
// flags and node are given. `child` receives the entry's node, or nullptr
// when the tree says nothing more below it.
bool IsItemIncluded(uint32_t flags, const CIncExcNode& node, std::u16string_view path,
                    std::u16string_view name, const CIncExcNode*& child);

// A split path whose first part (the volume) is skipped: the deepest node on
// the path decides; true when its flags include kIncExcInc.
bool IsPathIncluded(const std::vector<TPathPart>& parts, const CIncExcNode& root);

// Flags of a file or folder whose ancestors' file references (root
// downwards) and own reference are given; a pure node (flags exactly 4)
// excludes what its children do not name.
uint32_t GetFlagsByReferences(const std::vector<uint64_t>& references, uint64_t finalReference,
                              const CIncExcNode& root);
// The same with the item's name in place of its own reference.
uint32_t GetFlagsByReferencesAndName(const std::vector<uint64_t>& references,
                                     std::u16string_view finalName, const CIncExcNode& root);

// "NODE ", "EXC ", "INC " for the bits set, in this order.
std::u16string IncExcFlagText(uint32_t flags);
// Logs the tree at level Detail, four blanks of indent per depth:
// "<indent><name> - <flags>".
void DumpTree(const CIncExcNode& node, int depth);

}  // namespace indexer
