#pragma once
// A small XML document reader: load a file (validating it against its
// DOCTYPE when asked), walk elements and read their text. Documents here hold
// elements with text; attributes are not offered.
//
// POSIX: libxml2. Windows: the platform's XML document object. Either way a
// failure answers an HRESULT (0 is success, S_OK) and leaves a description in
// GetErrorText().
//
// Text of a node: the concatenated text of all its descendants, without the
// white space at its start and end (as the Windows document object gives it
// when it does not preserve white space). The children of a node are its
// elements, comments, processing instructions and the text nodes that hold
// more than white space, in document order.
//
// Nodes are views into their document and must not outlive it. A document is
// used by one thread at a time.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

inline constexpr int32_t kXmlOk = 0;
inline constexpr int32_t kXmlFalse = 1;  // S_FALSE: the document did not load

// Which call failed while the children of a node were listed (on Windows the
// document object's child collection, its length, one of its items).
enum class TXmlListStep { None, Collection, Length, Count, Item };
struct TXmlListFailure {
    TXmlListStep Step = TXmlListStep::None;
    int32_t Hr = kXmlOk;  // a failure code (never kXmlOk or kXmlFalse when Step is set)
    long Index = 0;       // Item: the index asked for
};

class CXmlNode {
public:
    CXmlNode() = default;
    explicit CXmlNode(const void* node) : m_Node(node) {}

    bool IsNull() const { return m_Node == nullptr; }
    bool IsElement() const;
    std::u16string GetName() const;
    std::u16string GetText() const;
    // The children. When a call that lists them fails, the listing stops:
    // the children before the failure are returned and, when `failure` is
    // given, it says which call failed (Step None when none did). POSIX
    // never fails here; Count is a length below zero.
    std::vector<CXmlNode> GetChildren(TXmlListFailure* failure = nullptr) const;
    // The first child element of the name (exact); a null node when none.
    CXmlNode FindChild(std::u16string_view name) const;

private:
    const void* m_Node = nullptr;
};

class CXmlDocument {
public:
    CXmlDocument();
    ~CXmlDocument();
    CXmlDocument(const CXmlDocument&) = delete;
    CXmlDocument& operator=(const CXmlDocument&) = delete;

    // Creates the document object (on Windows of one class, then of the
    // other); an HRESULT.
    int32_t Create();
    // Validation against the document's DTD while loading, when it has one.
    int32_t SetValidateOnParse(bool validate);
    // Loads the file. kXmlOk when it loaded, kXmlFalse when it could not be
    // read, is not well-formed or is not valid (GetErrorText says where and
    // why), another failure code when the call itself failed.
    int32_t Load(std::u16string_view path);
    // The document node; null before a successful Load.
    CXmlNode GetDocument() const;
    const std::u16string& GetErrorText() const { return m_ErrorText; }

private:
    struct TImpl;
    std::unique_ptr<TImpl> m_Impl;
    std::u16string m_ErrorText;
};

}  // namespace platform
