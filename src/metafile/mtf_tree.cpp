#include "metafile/mtf_tree.h"

#include "base/exc.h"
#include "base/format.h"

namespace metafile {

namespace {

constexpr size_t kMaxPathDepth = 100;

std::u16string I64(int64_t value) { return util::Ascii(std::to_string(value)); }

// As _wcsicmp in the C locale: only A-Z and a-z fold.
bool EqualsAsciiNoCase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    auto fold = [](char16_t c) { return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c; };
    for (size_t i = 0; i < a.size(); ++i)
        if (fold(a[i]) != fold(b[i])) return false;
    return true;
}

}  // namespace

void SplitPath(std::u16string_view path, std::vector<std::u16string>& components) {
    components.clear();
    size_t start = 0;
    while (start <= path.size()) {
        size_t dot = path.find(u'.', start);
        if (dot == std::u16string_view::npos) dot = path.size();
        if (dot > start) components.emplace_back(path.substr(start, dot - start));
        start = dot + 1;
    }
}

void SplitAttributePath(std::u16string_view path, std::vector<std::u16string>& components,
                        std::u16string& attributeName) {
    SplitPath(path, components);
    if (components.empty()) throw CExc(u"The specified attribute's path (%1) is invalid.", path);
    attributeName = std::move(components.back());
    components.pop_back();
}

int64_t CMtfTreeNode::FindAttribute(const std::u16string& name) const {
    auto it = m_Attributes.find(name);
    return it == m_Attributes.end() ? -1 : it->second.second;
}

void CMtfTreeNode::SetAttribute(const std::u16string& name, const std::u16string& value,
                                int64_t lineIndex) {
    m_Attributes[name] = {value, lineIndex};
}

CMtfNodesTab::CMtfNodesTab(std::shared_ptr<CMtfLinesTab> lines, std::u16string name)
    : m_Lines(std::move(lines)), m_Name(std::move(name)) {
    m_Nodes.push_back(std::make_shared<CMtfTreeNode>());
    std::u16string key, value, attribute;
    std::vector<std::u16string> components;
    for (int64_t i = 0; i < m_Lines->GetLineCount(); ++i) {
        if (!m_Lines->ParseLine(i, key, value)) continue;
        SplitAttributePath(key, components, attribute);
        GetNode(GetOrCreatePath(0, components)).SetAttribute(attribute, value, i);
    }
}

CMtfTreeNode& CMtfNodesTab::GetNode(int64_t id) {
    if (id < 0 || id >= GetNodeCount())
        throw CExc(u"Out of the meta-table boundary. Item ID: %1. Table size: %2.", I64(id),
                   I64(GetNodeCount()));
    CMtfTreeNode* node = m_Nodes[static_cast<size_t>(id)].get();
    if (!node) throw CExc(u"Item with the specified ID (%1) is deleted.", I64(id));
    return *node;
}

int64_t CMtfNodesTab::FindChild(int64_t parentId, std::u16string_view name) {
    for (int64_t child : GetNode(parentId).m_Children)
        if (EqualsAsciiNoCase(GetNode(child).m_Name, name)) return child;
    return -1;
}

int64_t CMtfNodesTab::GetOrCreateChild(int64_t parentId, const std::u16string& name) {
    const int64_t found = FindChild(parentId, name);
    if (found >= 0) return found;
    auto node = std::make_shared<CMtfTreeNode>();
    node->m_Name = name;
    node->m_ParentId = parentId;
    const int64_t id = GetNodeCount();
    m_Nodes.push_back(std::move(node));
    GetNode(parentId).m_Children.push_back(id);
    return id;
}

int64_t CMtfNodesTab::GetOrCreatePath(int64_t fromId, const std::vector<std::u16string>& components) {
    int64_t id = fromId;
    for (const auto& name : components) id = GetOrCreateChild(id, name);
    return id;
}

std::u16string CMtfNodesTab::GetNodePath(int64_t id) {
    std::u16string path;
    for (size_t steps = 0; steps < kMaxPathDepth && id != 0 && id != -1; ++steps) {
        const CMtfTreeNode& node = GetNode(id);
        path = path.empty() ? node.m_Name : node.m_Name + u"." + path;
        id = node.m_ParentId;
    }
    return path;
}

std::u16string CMtfNodesTab::_TreeName(int64_t id) {
    try {
        return GetNodePath(id);
    } catch (const CExc&) {
        return I64(id);
    }
}

int64_t CMtfNodesTab::CreateSubtree(int64_t fromId, std::u16string_view path) {
    try {
        std::vector<std::u16string> components;
        SplitPath(path, components);
        return GetOrCreatePath(fromId, components);
    } catch (CExc& e) {
        e.AddContext(u"Failed to create subtree  \"%1\" of the tree \"%2\". Meta-file: \"%3\".", path,
                     _TreeName(fromId), m_Name);
        throw;
    }
}

void CMtfNodesTab::SetAttribute(int64_t fromId, std::u16string_view path, std::u16string_view value) {
    try {
        std::vector<std::u16string> components;
        std::u16string attribute;
        SplitAttributePath(path, components, attribute);
        const int64_t id = GetOrCreatePath(fromId, components);
        const std::u16string nodePath = GetNodePath(id);
        const std::u16string line =
            (nodePath.empty() ? attribute : nodePath + u"." + attribute) + u"=" + std::u16string(value);
        CMtfTreeNode& node = GetNode(id);
        int64_t index = node.FindAttribute(attribute);
        if (index >= 0) m_Lines->ReplaceLine(index, line);
        else index = m_Lines->AddLine(line, MtfLineAdded);
        node.SetAttribute(attribute, std::u16string(value), index);
    } catch (CExc& e) {
        e.AddContext(u"Failed to create attribute \"%1\" in the tree \"%2\". Meta-file:\"%3\".", path,
                     _TreeName(fromId), m_Name);
        throw;
    }
}

CMtfTree CMtfTree::CreateSubtree(std::u16string_view path) {
    return CMtfTree(m_Nodes->CreateSubtree(m_Id, path), m_Nodes);
}

void CMtfTree::SetAttribute(std::u16string_view path, std::u16string_view value) {
    m_Nodes->SetAttribute(m_Id, path, value);
}

std::shared_ptr<CMtfFile> CMtfFile::Open(std::u16string_view name, int32_t mode) {
    auto file = CMtfFileRw::Open(name, mode);
    auto nodes = std::make_shared<CMtfNodesTab>(file->GetLines(), file->GetName());
    return std::shared_ptr<CMtfFile>(new CMtfFile(std::move(nodes), std::move(file)));
}

}  // namespace metafile
