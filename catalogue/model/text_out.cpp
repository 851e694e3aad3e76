#include "catalogue/model/text_out.h"

#include <cerrno>
#include <charconv>

namespace catalogue {

void AppendUtf8(std::string& out, std::u16string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        uint32_t c = text[i];
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
            continue;
        }
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = 0xFFFD;
        }
        if (c < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        } else if (c < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (c >> 12)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (c >> 18)));
            out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        }
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

CTextOut& CTextOut::operator<<(std::u16string_view text) {
    AppendUtf8(m_Buf, text);
    if (m_Stream && m_Buf.size() >= kFlushAt) Flush();
    return *this;
}

CTextOut& CTextOut::operator<<(uint64_t value) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    return *this << std::string_view(digits, static_cast<size_t>(end - digits));
}

void CTextOut::Flush() {
    if (!m_Stream || m_Buf.empty()) return;
    if (!m_Errno) {
        errno = 0;
        if (std::fwrite(m_Buf.data(), 1, m_Buf.size(), m_Stream) != m_Buf.size() || std::fflush(m_Stream) != 0)
            m_Errno = errno ? errno : EIO;
    }
    m_Buf.clear();
}

}  // namespace catalogue
