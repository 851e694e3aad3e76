#include "inputs/inc_exc_node.h"

#include <algorithm>

#include "base/case.h"
#include "base/exc.h"
#include "base/format.h"
#include "diag/log.h"
#include "inputs/path_utils.h"

namespace indexer {

CIncExcNode::CIncExcNode(const std::vector<std::u16string>& include,
                         const std::vector<std::u16string>& exclude) {
    m_IncExcFlag = include.empty() ? kIncExcInc : kIncExcNode;
    for (const auto& path : include) AddSubdirectory(*this, path, m_IncExcFlag, kIncExcKindInclude);
    for (const auto& path : exclude) AddSubdirectory(*this, path, m_IncExcFlag, kIncExcKindExclude);
}

void AddSubdirectory(CIncExcNode& node, std::u16string_view path, uint32_t parentFlags, uint32_t kind) {
    const size_t depth = static_cast<size_t>(std::count(path.begin(), path.end(), u'\\')) + 1;
    if (depth > kMaxFilterDepth)
        throw CExc(u"Filter path is nested too deeply (%1 levels): %2", util::ToStrU64(depth), path);
    GetLog().Detail(u"Add subdirectory '%1' to filter tree.", path);
    const size_t sep = path.find(u'\\');
    const std::u16string_view first = path.substr(0, sep);
    const std::u16string_view rest = sep == std::u16string_view::npos ? std::u16string_view{}
                                                                      : path.substr(sep + 1);
    if (CIncExcNode* child = FindChild(first, node)) {
        if (rest.empty()) {
            GetLog().Warning(u"Directory '%1' already exist. Subdirs is empty.", first);
            child->m_IncExcFlag = (child->m_IncExcFlag & ~(kIncExcInc | kIncExcExc)) | kind;
            return;
        }
        if (child->m_IncExcFlag & kIncExcExc) {
            if (kind == kIncExcKindExclude) {
                GetLog().Warning(u"Parent directory [%1] already excluded.", first);
                return;
            }
            child->m_IncExcFlag = kIncExcNode;
        } else if (!(child->m_IncExcFlag & kIncExcNode)) {
            child->m_IncExcFlag |= parentFlags | kIncExcNode;
        }
        AddSubdirectory(*child, rest, child->m_IncExcFlag, kind);
        return;
    }
    CIncExcNode added{std::u16string(first), kind};
    if (!rest.empty()) {
        GetLog().Detail(u"    Add new node directory '%1' and subdir path '%2'", first, rest);
        added.m_IncExcFlag = parentFlags;
        AddSubdirectory(added, rest, added.m_IncExcFlag, kind);
    }
    node.AddChild(std::move(added));
    node.m_IncExcFlag = (node.m_IncExcFlag | kIncExcNode) & ~kIncExcExc;
}

CIncExcNode* CIncExcNode::ChildByName(std::u16string_view name) {
    if (m_Children.empty()) return nullptr;
    if (m_ByNameCount != m_Children.size()) {
        m_ByName.clear();
        m_ByName.reserve(m_Children.size());
        for (size_t i = 0; i < m_Children.size(); ++i) m_ByName.emplace(util::ToUpper(m_Children[i].m_Name), i);
        m_ByNameCount = m_Children.size();
    }
    const auto it = m_ByName.find(util::ToUpper(name));
    return it == m_ByName.end() ? nullptr : &m_Children[it->second];
}

void CIncExcNode::_IndexReferences() {
    m_ByReference.clear();
    m_ByReference.reserve(m_Children.size());
    m_ByReferenceHasZero = false;
    for (size_t i = 0; i < m_Children.size(); ++i) {
        m_ByReference.emplace(m_Children[i].m_Reference, i);
        m_ByReferenceHasZero = m_ByReferenceHasZero || m_Children[i].m_Reference == 0;
    }
    m_ByReferenceCount = m_Children.size();
}

CIncExcNode* CIncExcNode::ChildByReference(uint64_t reference) {
    if (m_Children.empty()) return nullptr;
    if (m_ByReferenceCount != m_Children.size()) _IndexReferences();
    auto it = m_ByReference.find(reference);
    const bool stale = it == m_ByReference.end() ? m_ByReferenceHasZero
                                                 : m_Children[it->second].m_Reference != reference;
    if (stale) {
        _IndexReferences();
        it = m_ByReference.find(reference);
    }
    return it == m_ByReference.end() ? nullptr : &m_Children[it->second];
}

void CIncExcNode::AddChild(CIncExcNode child) {
    const size_t at = m_Children.size();
    if (m_ByNameCount == at) {
        m_ByName.emplace(util::ToUpper(child.m_Name), at);
        ++m_ByNameCount;
    }
    if (m_ByReferenceCount == at) {
        m_ByReference.emplace(child.m_Reference, at);
        m_ByReferenceHasZero = m_ByReferenceHasZero || child.m_Reference == 0;
        ++m_ByReferenceCount;
    }
    m_Children.push_back(std::move(child));
}

CIncExcNode* FindChild(std::u16string_view name, CIncExcNode& node) { return node.ChildByName(name); }

const CIncExcNode* FindChild(std::u16string_view name, const CIncExcNode& node) {
    return FindChild(name, const_cast<CIncExcNode&>(node));
}

bool IsItemIncluded(uint32_t flags, const CIncExcNode& node, std::u16string_view path,
                    std::u16string_view name, const CIncExcNode*& child) {
    child = nullptr;
    if (!(flags & kIncExcNode)) return true;
    child = FindChild(name, node);
    if (child) {
        if (child->m_IncExcFlag & kIncExcExc) {
            GetLog().Detail(u"Directory '%1\\%2' is excluded!", path, name);
            return false;
        }
        return true;
    }
    return (node.m_IncExcFlag & kIncExcInc) != 0;
}

bool IsPathIncluded(const std::vector<TPathPart>& parts, const CIncExcNode& root) {
    const CIncExcNode* node = &root;
    uint32_t flags = root.m_IncExcFlag;
    for (size_t i = 1; i < parts.size(); ++i) {
        const CIncExcNode* child = FindChild(parts[i].View(), *node);
        if (!child) break;
        flags = child->m_IncExcFlag;
        if (child->m_Children.empty()) break;
        node = child;
    }
    return (flags & kIncExcInc) != 0;
}

namespace {

// The child whose reference matches; children with reference 0 are skipped
// with an error line, as they were never resolved. Those lines name every
// unresolved child before the match, in order, so a node that has such
// children is scanned; a resolved one is looked up.
const CIncExcNode* FindChildByReference(const CIncExcNode& node, uint64_t reference) {
    CIncExcNode& lookup = const_cast<CIncExcNode&>(node);
    const CIncExcNode* zero = lookup.ChildByReference(0);
    if (!zero) return reference == 0 ? nullptr : lookup.ChildByReference(reference);
    for (const auto& child : node.m_Children) {
        if (child.m_Reference == 0) {
            GetLog().Error(u"Zero reference for [%1].", child.m_Name);
            continue;
        }
        if (child.m_Reference == reference) return &child;
    }
    return nullptr;
}

// The walk shared by both lookups; `findFinal` looks for the item itself
// among the children of its parent's node.
template <class FindFinal>
uint32_t WalkByReferences(const std::vector<uint64_t>& references, const CIncExcNode& root,
                          FindFinal findFinal) {
    const CIncExcNode* node = &root;
    uint32_t flags = root.m_IncExcFlag;
    bool found = true;
    for (uint64_t reference : references) {
        if (node->m_Children.empty()) break;
        const CIncExcNode* child = FindChildByReference(*node, reference);
        found = child != nullptr;
        if (!found) break;
        node = child;
        flags = child->m_IncExcFlag == kIncExcNode ? kIncExcExc : (child->m_IncExcFlag & ~kIncExcNode);
    }
    if (found) {
        const CIncExcNode* item = findFinal(*node);
        if (item)
            flags = item->m_IncExcFlag;
        else
            found = false;
    }
    if (!found && flags == kIncExcNode) return kIncExcExc;
    return flags;
}

}  // namespace

uint32_t GetFlagsByReferences(const std::vector<uint64_t>& references, uint64_t finalReference,
                              const CIncExcNode& root) {
    return WalkByReferences(references, root, [finalReference](const CIncExcNode& node) {
        return FindChildByReference(node, finalReference);
    });
}

uint32_t GetFlagsByReferencesAndName(const std::vector<uint64_t>& references,
                                     std::u16string_view finalName, const CIncExcNode& root) {
    return WalkByReferences(references, root, [finalName](const CIncExcNode& node) {
        return FindChild(finalName, node);
    });
}

std::u16string IncExcFlagText(uint32_t flags) {
    std::u16string text;
    if (flags & kIncExcNode) text += u"NODE ";
    if (flags & kIncExcExc) text += u"EXC ";
    if (flags & kIncExcInc) text += u"INC ";
    return text;
}

void DumpTree(const CIncExcNode& node, int depth) {
    std::u16string format(static_cast<size_t>(depth < 0 ? 0 : depth) * 4, u' ');
    format += u"%1 - %2";
    GetLog().Detail(format, node.m_Name, IncExcFlagText(node.m_IncExcFlag));
    for (const auto& child : node.m_Children) DumpTree(child, depth + 1);
}

}  // namespace indexer
