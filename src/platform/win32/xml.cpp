// The XML reader on the platform's COM document object (MSXML): the class
// {F6D90F11-9C73-11D3-B32E-00C04F990BB4} (the version-independent document
// of MSXML 3), or {88D96A05-F192-11D4-A65F-0040963251E5} (MSXML 6) when the
// first cannot be created. The caller has COM initialised on the thread.
//
// Nodes are COM objects. CXmlNode is a plain view, so the document keeps a
// reference to every node it has handed out and releases them all when it
// is destroyed or loads again.

#include "platform/win32/win32_util.h"

#include <msxml2.h>
#include <oleauto.h>

#include <deque>

#include "base/format.h"
#include "platform/xml.h"

namespace platform {

namespace {

// {F6D90F11-9C73-11D3-B32E-00C04F990BB4}
const CLSID kClsidDocument = {0xF6D90F11, 0x9C73, 0x11D3, {0xB3, 0x2E, 0x00, 0xC0, 0x4F, 0x99, 0x0B, 0xB4}};
// {88D96A05-F192-11D4-A65F-0040963251E5}
const CLSID kClsidDocument60 = {0x88D96A05, 0xF192, 0x11D4, {0xA6, 0x5F, 0x00, 0x40, 0x96, 0x32, 0x51, 0xE5}};
// IXMLDOMDocument2, {2933BF95-7B36-11D2-B20E-00C04F983E60} (MinGW's import
// libraries lack it).
const IID kIidDocument2 = {0x2933BF95, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};

// Owns one BSTR.
class CBstr {
public:
    CBstr() = default;
    explicit CBstr(std::u16string_view text)
        : m_Text(::SysAllocStringLen(reinterpret_cast<const OLECHAR*>(text.data()),
                                     static_cast<UINT>(text.size()))) {}
    ~CBstr() { ::SysFreeString(m_Text); }
    CBstr(const CBstr&) = delete;
    CBstr& operator=(const CBstr&) = delete;
    BSTR* Out() { return &m_Text; }
    BSTR Get() const { return m_Text; }
    std::u16string Text() const {
        return m_Text ? win32::FromWide(m_Text, ::SysStringLen(m_Text)) : std::u16string();
    }

private:
    BSTR m_Text = nullptr;
};

template <class T>
void SafeRelease(T*& p) {
    if (p) p->Release();
    p = nullptr;
}

// What a CXmlNode points at: a node and the document's store of them.
struct TNodeRef {
    IXMLDOMNode* node;
    std::deque<TNodeRef>* store;  // stable addresses
};

// Takes over the caller's reference to the node.
const TNodeRef* Track(std::deque<TNodeRef>& store, IXMLDOMNode* node) {
    store.push_back({node, &store});
    return &store.back();
}

const TNodeRef* NodeOf(const void* p) { return static_cast<const TNodeRef*>(p); }

}  // namespace

struct CXmlDocument::TImpl {
    IXMLDOMDocument* document = nullptr;
    std::deque<TNodeRef> nodes;

    void ReleaseNodes() {
        for (TNodeRef& n : nodes) SafeRelease(n.node);
        nodes.clear();
    }
    ~TImpl() {
        ReleaseNodes();
        SafeRelease(document);
    }
};

bool CXmlNode::IsElement() const {
    if (!m_Node) return false;
    DOMNodeType type = NODE_INVALID;
    return SUCCEEDED(NodeOf(m_Node)->node->get_nodeType(&type)) && type == NODE_ELEMENT;
}

std::u16string CXmlNode::GetName() const {
    if (!m_Node) return {};
    CBstr name;
    if (FAILED(NodeOf(m_Node)->node->get_nodeName(name.Out()))) return {};
    return name.Text();
}

std::u16string CXmlNode::GetText() const {
    if (!m_Node) return {};
    CBstr text;
    if (FAILED(NodeOf(m_Node)->node->get_text(text.Out()))) return {};
    return text.Text();
}

std::vector<CXmlNode> CXmlNode::GetChildren(TXmlListFailure* failure) const {
    TXmlListFailure local;
    TXmlListFailure& failed = failure ? *failure : local;
    failed = {};
    // A call that answers success without a result counts as failed.
    auto fail = [&](TXmlListStep step, HRESULT hr, long index = 0) {
        failed = {step, FAILED(hr) ? static_cast<int32_t>(hr) : static_cast<int32_t>(E_FAIL), index};
    };
    std::vector<CXmlNode> children;
    if (!m_Node) return children;
    const TNodeRef* self = NodeOf(m_Node);
    IXMLDOMNodeList* list = nullptr;
    HRESULT hr = self->node->get_childNodes(&list);
    if (FAILED(hr) || !list) {
        fail(TXmlListStep::Collection, hr);
        return children;
    }
    long count = 0;
    hr = list->get_length(&count);
    if (FAILED(hr)) {
        fail(TXmlListStep::Length, hr);
    } else if (count < 0) {
        fail(TXmlListStep::Count, E_UNEXPECTED);
    } else {
        for (long i = 0; i < count; ++i) {
            IXMLDOMNode* child = nullptr;
            hr = list->get_item(i, &child);
            if (hr != S_OK || !child) {
                SafeRelease(child);
                fail(TXmlListStep::Item, hr, i);
                break;
            }
            children.emplace_back(Track(*self->store, child));
        }
    }
    list->Release();
    return children;
}

CXmlNode CXmlNode::FindChild(std::u16string_view name) const {
    for (const CXmlNode& child : GetChildren())
        if (child.IsElement() && child.GetName() == name) return child;
    return CXmlNode();
}

CXmlDocument::CXmlDocument() : m_Impl(std::make_unique<TImpl>()) {}
CXmlDocument::~CXmlDocument() = default;

int32_t CXmlDocument::Create() {
    SafeRelease(m_Impl->document);
    HRESULT hr = ::CoCreateInstance(kClsidDocument, nullptr, CLSCTX_INPROC_SERVER,
                                    IID_IXMLDOMDocument, reinterpret_cast<void**>(&m_Impl->document));
    if (FAILED(hr)) {
        hr = ::CoCreateInstance(kClsidDocument60, nullptr, CLSCTX_INPROC_SERVER, IID_IXMLDOMDocument,
                                reinterpret_cast<void**>(&m_Impl->document));
        if (FAILED(hr)) return hr;
        // MSXML 6 refuses documents with a DOCTYPE and does not read external
        // DTDs unless told to; the mapping file has one.
        IXMLDOMDocument2* document2 = nullptr;
        if (SUCCEEDED(m_Impl->document->QueryInterface(kIidDocument2,
                                                        reinterpret_cast<void**>(&document2)))) {
            CBstr property(u"ProhibitDTD");
            VARIANT no;
            ::VariantInit(&no);
            no.vt = VT_BOOL;
            no.boolVal = VARIANT_FALSE;
            document2->setProperty(property.Get(), no);
            document2->Release();
        }
        m_Impl->document->put_resolveExternals(VARIANT_TRUE);
    }
    // Load must finish before it returns.
    return m_Impl->document->put_async(VARIANT_FALSE);
}

int32_t CXmlDocument::SetValidateOnParse(bool validate) {
    if (!m_Impl->document) return E_POINTER;
    return m_Impl->document->put_validateOnParse(validate ? VARIANT_TRUE : VARIANT_FALSE);
}

int32_t CXmlDocument::Load(std::u16string_view path) {
    m_ErrorText.clear();
    m_Impl->ReleaseNodes();
    if (!m_Impl->document) return E_POINTER;
    VARIANT source;
    ::VariantInit(&source);
    source.vt = VT_BSTR;
    CBstr pathText(path);
    source.bstrVal = pathText.Get();  // still owned by pathText
    VARIANT_BOOL loaded = VARIANT_FALSE;
    HRESULT hr = m_Impl->document->load(source, &loaded);
    if (FAILED(hr)) return hr;
    if (hr == S_OK && loaded == VARIANT_TRUE) return kXmlOk;

    // Where and why, from the document's parse error object.
    IXMLDOMParseError* error = nullptr;
    if (SUCCEEDED(m_Impl->document->get_parseError(&error)) && error) {
        CBstr reason;
        long line = 0, position = 0;
        error->get_reason(reason.Out());
        error->get_line(&line);
        error->get_linepos(&position);
        error->Release();
        m_ErrorText = reason.Text();
        while (!m_ErrorText.empty() && (m_ErrorText.back() == u'\n' || m_ErrorText.back() == u'\r' ||
                                        m_ErrorText.back() == u' '))
            m_ErrorText.pop_back();
        if (line > 0)
            m_ErrorText += FormatMessageArgs(u" Line %1, position %2.",
                                             {util::ToStr(line), util::ToStr(position)});
    }
    if (m_ErrorText.empty()) m_ErrorText = u"The document did not load.";
    return kXmlFalse;
}

CXmlNode CXmlDocument::GetDocument() const {
    if (!m_Impl->document) return CXmlNode();
    IXMLDOMElement* root = nullptr;
    // Before a successful load the document has no element.
    if (m_Impl->document->get_documentElement(&root) != S_OK || !root) return CXmlNode();
    root->Release();
    IXMLDOMNode* node = nullptr;
    if (FAILED(m_Impl->document->QueryInterface(IID_IXMLDOMNode, reinterpret_cast<void**>(&node))))
        return CXmlNode();
    return CXmlNode(Track(m_Impl->nodes, node));
}

}  // namespace platform
