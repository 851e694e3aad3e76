#pragma once
// The meta-file as a tree: dotted keys ("Volumes.0.Name=x") are paths of
// named nodes ending in an attribute name. Each attribute remembers the
// line that holds it, so setting it changes exactly that line (or adds one).
//
// Node names compare without regard to the case of A-Z (other letters
// exactly); attribute names compare exactly. A key is always written from
// the names as they stand in the nodes, not as the caller spelled them.
//
// Ownership: CMtfFile holds the node table and the file by shared pointer;
// CMtfTree is a light view (a node id and the table). Not thread-safe.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "metafile/mtf_file_rw.h"
#include "metafile/mtf_lines.h"

namespace metafile {

// Splits at each "."; empty components are dropped ("a..b", ".a.b." give
// "a", "b").
void SplitPath(std::u16string_view path, std::vector<std::u16string>& components);
// SplitPath, then the last component becomes the attribute name. Throws
// "The specified attribute's path (%1) is invalid." when nothing is left.
void SplitAttributePath(std::u16string_view path, std::vector<std::u16string>& components,
                        std::u16string& attributeName);

class CMtfTreeNode {
public:
    std::u16string m_Name;  // empty for the root
    int64_t m_ParentId = -1;
    std::vector<int64_t> m_Children;  // in order of creation
    // name -> (value, line index)
    std::map<std::u16string, std::pair<std::u16string, int64_t>> m_Attributes;

    // The line index of the attribute, or -1.
    int64_t FindAttribute(const std::u16string& name) const;
    void SetAttribute(const std::u16string& name, const std::u16string& value, int64_t lineIndex);
};

class CMtfNodesTab {
public:
    // Builds the tree from every attribute line; a key stated twice keeps
    // the later line. A key with no name in it (only dots, or empty) fails.
    CMtfNodesTab(std::shared_ptr<CMtfLinesTab> lines, std::u16string name);

    // Throws "Out of the meta-table boundary. Item ID: %1. Table size: %2."
    // or "Item with the specified ID (%1) is deleted.".
    CMtfTreeNode& GetNode(int64_t id);
    int64_t GetNodeCount() const { return static_cast<int64_t>(m_Nodes.size()); }
    // The first child with that name (A-Z without case), or -1.
    int64_t FindChild(int64_t parentId, std::u16string_view name);
    int64_t GetOrCreateChild(int64_t parentId, const std::u16string& name);
    int64_t GetOrCreatePath(int64_t fromId, const std::vector<std::u16string>& components);
    // Dotted names from the root (excluded) to the node; at most the nearest
    // 100 names.
    std::u16string GetNodePath(int64_t id);

    // Context: "Failed to create subtree  \"%1\" of the tree \"%2\".
    // Meta-file: \"%3\".".
    int64_t CreateSubtree(int64_t fromId, std::u16string_view path);
    // Sets "<path>" below the node: updates the attribute's line or adds
    // one. Context: "Failed to create attribute \"%1\" in the tree \"%2\".
    // Meta-file:\"%3\".".
    void SetAttribute(int64_t fromId, std::u16string_view path, std::u16string_view value);

    const std::shared_ptr<CMtfLinesTab>& GetLines() const { return m_Lines; }
    const std::u16string& GetName() const { return m_Name; }

private:
    // The tree's name for a context line: its path, or its id in decimal.
    std::u16string _TreeName(int64_t id);

    std::shared_ptr<CMtfLinesTab> m_Lines;
    std::vector<std::shared_ptr<CMtfTreeNode>> m_Nodes;
    std::u16string m_Name;
};

// A view of one subtree.
class CMtfTree {
public:
    CMtfTree(int64_t id, std::shared_ptr<CMtfNodesTab> nodes) : m_Id(id), m_Nodes(std::move(nodes)) {}
    CMtfTree CreateSubtree(std::u16string_view path);
    void SetAttribute(std::u16string_view path, std::u16string_view value);
    int64_t GetId() const { return m_Id; }

private:
    int64_t m_Id;
    std::shared_ptr<CMtfNodesTab> m_Nodes;
};

// What callers hold: open a meta-file, set attributes, save.
class CMtfFile {
public:
    // CMtfFileRw::Open, then the tree over its lines.
    static std::shared_ptr<CMtfFile> Open(std::u16string_view name, int32_t mode);

    CMtfTree GetRoot() { return CMtfTree(0, m_Nodes); }
    CMtfTree CreateSubtree(std::u16string_view path) { return GetRoot().CreateSubtree(path); }
    void SetAttribute(std::u16string_view path, std::u16string_view value) {
        m_Nodes->SetAttribute(0, path, value);
    }
    void Save() { m_File->Save(); }
    void Detach() { m_File->Detach(); }

    const std::shared_ptr<CMtfNodesTab>& GetNodes() const { return m_Nodes; }
    const std::shared_ptr<CMtfFileRw>& GetFile() const { return m_File; }

private:
    CMtfFile(std::shared_ptr<CMtfNodesTab> nodes, std::shared_ptr<CMtfFileRw> file)
        : m_Nodes(std::move(nodes)), m_File(std::move(file)) {}

    std::shared_ptr<CMtfNodesTab> m_Nodes;
    std::shared_ptr<CMtfFileRw> m_File;
};

}  // namespace metafile
