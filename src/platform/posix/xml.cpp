#include "platform/xml.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "base/utf.h"
#include "platform/posix/native_path.h"

namespace platform {

namespace {

const xmlNode* AsNode(const void* node) { return static_cast<const xmlNode*>(node); }

std::u16string FromXml(const xmlChar* text) {
    return text ? util::Utf8ToUtf16(reinterpret_cast<const char*>(text)) : std::u16string();
}

bool IsBlank(std::u16string_view text) {
    return text.find_first_not_of(u" \t\r\n") == std::u16string_view::npos;
}

std::u16string Trimmed(std::u16string text) {
    const size_t first = text.find_first_not_of(u" \t\r\n");
    if (first == std::u16string::npos) return {};
    const size_t last = text.find_last_not_of(u" \t\r\n");
    return text.substr(first, last - first + 1);
}

// Collects libxml2's messages of one load.
void CollectError(void* context, const char* format, ...) {
    auto* text = static_cast<std::string*>(context);
    char buffer[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    *text += buffer;
}

}  // namespace

struct CXmlDocument::TImpl {
    xmlDocPtr document = nullptr;
    bool validate = false;
    ~TImpl() {
        if (document) xmlFreeDoc(document);
    }
};

bool CXmlNode::IsElement() const { return m_Node && AsNode(m_Node)->type == XML_ELEMENT_NODE; }

std::u16string CXmlNode::GetName() const {
    if (!m_Node) return {};
    if (AsNode(m_Node)->type == XML_DOCUMENT_NODE) return u"#document";
    if (AsNode(m_Node)->type == XML_TEXT_NODE) return u"#text";
    if (AsNode(m_Node)->type == XML_COMMENT_NODE) return u"#comment";
    return FromXml(AsNode(m_Node)->name);
}

std::u16string CXmlNode::GetText() const {
    if (!m_Node) return {};
    xmlChar* content = xmlNodeGetContent(AsNode(m_Node));
    std::u16string text = FromXml(content);
    xmlFree(content);
    return Trimmed(std::move(text));
}

std::vector<CXmlNode> CXmlNode::GetChildren(TXmlListFailure* failure) const {
    if (failure) *failure = {};
    std::vector<CXmlNode> children;
    if (!m_Node) return children;
    for (const xmlNode* child = AsNode(m_Node)->children; child; child = child->next) {
        switch (child->type) {
            case XML_ELEMENT_NODE:
            case XML_COMMENT_NODE:
            case XML_PI_NODE:
                children.emplace_back(child);
                break;
            case XML_TEXT_NODE:
            case XML_CDATA_SECTION_NODE:
                if (!IsBlank(FromXml(child->content))) children.emplace_back(child);
                break;
            default:
                break;  // the DOCTYPE and entity declarations are no children here
        }
    }
    return children;
}

CXmlNode CXmlNode::FindChild(std::u16string_view name) const {
    if (!m_Node) return {};
    const std::string wanted = util::Utf16ToUtf8(name);
    for (const xmlNode* child = AsNode(m_Node)->children; child; child = child->next)
        if (child->type == XML_ELEMENT_NODE && wanted == reinterpret_cast<const char*>(child->name))
            return CXmlNode(child);
    return {};
}

CXmlDocument::CXmlDocument() = default;
CXmlDocument::~CXmlDocument() = default;

int32_t CXmlDocument::Create() {
    LIBXML_TEST_VERSION
    m_Impl = std::make_unique<TImpl>();
    return kXmlOk;
}

int32_t CXmlDocument::SetValidateOnParse(bool validate) {
    if (!m_Impl) return static_cast<int32_t>(0x80004003);  // E_POINTER: not created
    m_Impl->validate = validate;
    return kXmlOk;
}

int32_t CXmlDocument::Load(std::u16string_view path) {
    if (!m_Impl) return static_cast<int32_t>(0x80004003);
    m_ErrorText.clear();
    if (m_Impl->document) {
        xmlFreeDoc(m_Impl->document);
        m_Impl->document = nullptr;
    }
    std::string native;
    if (!posix::ToNativePath(path, native)) {
        m_ErrorText = u"The file can't be found.";
        return kXmlFalse;
    }
    std::string errors;
    xmlParserCtxtPtr context = xmlNewParserCtxt();
    if (!context) return static_cast<int32_t>(0x8007000E);  // E_OUTOFMEMORY
    xmlSetGenericErrorFunc(&errors, CollectError);
    // No network; the DTD is read only when validation is on, and a document
    // without DOCTYPE has nothing to be validated against.
    int options = XML_PARSE_NONET | XML_PARSE_NOBLANKS;
    if (m_Impl->validate) options |= XML_PARSE_DTDLOAD;
    xmlDocPtr document = xmlCtxtReadFile(context, native.c_str(), nullptr, options);
    bool valid = document != nullptr;
    if (valid && m_Impl->validate && (document->intSubset || document->extSubset)) {
        xmlValidCtxtPtr validation = xmlNewValidCtxt();
        if (validation) {
            validation->userData = &errors;
            validation->error = CollectError;
            validation->warning = nullptr;
            valid = xmlValidateDocument(validation, document) == 1;
            xmlFreeValidCtxt(validation);
        } else {
            valid = false;
        }
    }
    xmlSetGenericErrorFunc(nullptr, nullptr);
    xmlFreeParserCtxt(context);
    if (!valid) {
        if (document) xmlFreeDoc(document);
        // The first line says where and why; the lines after it quote the source.
        errors = errors.substr(0, errors.find('\n'));
        m_ErrorText = errors.empty() ? u"The document is not valid." : util::Utf8ToUtf16(errors);
        return kXmlFalse;
    }
    m_Impl->document = document;
    return kXmlOk;
}

CXmlNode CXmlDocument::GetDocument() const {
    if (!m_Impl || !m_Impl->document) return {};
    return CXmlNode(reinterpret_cast<const xmlNode*>(m_Impl->document));
}

}  // namespace platform
