#pragma once
// catalogue::CTextOut: the tool's standard output and error, as UTF-8,
// collected in a buffer and written in large blocks (a listing of millions of
// lines must not cost a system call a line). Without a stream the text is
// kept, for tests. Not thread-safe.

#include <cstdio>
#include <string>
#include <string_view>

namespace catalogue {

class CTextOut {
public:
    // `stream` null: the text is kept and Text() returns it.
    explicit CTextOut(std::FILE* stream = nullptr) : m_Stream(stream) {}
    ~CTextOut() { Flush(); }
    CTextOut(const CTextOut&) = delete;
    CTextOut& operator=(const CTextOut&) = delete;

    CTextOut& operator<<(std::string_view text) {
        m_Buf.append(text);
        if (m_Stream && m_Buf.size() >= kFlushAt) Flush();
        return *this;
    }
    CTextOut& operator<<(char c) { return *this << std::string_view(&c, 1); }
    // UTF-16 as UTF-8 (a lone surrogate as U+FFFD).
    CTextOut& operator<<(std::u16string_view text);
    CTextOut& operator<<(const std::u16string& text) { return *this << std::u16string_view(text); }
    CTextOut& operator<<(const char16_t* text) { return *this << std::u16string_view(text); }
    CTextOut& operator<<(const char* text) { return *this << std::string_view(text); }
    CTextOut& operator<<(const std::string& text) { return *this << std::string_view(text); }
    CTextOut& operator<<(uint64_t value);

    // Writes what is kept. A failed write is remembered (Failed) and what
    // follows is dropped: the caller reports it once, at the end.
    void Flush();
    const std::string& Text() const { return m_Buf; }
    // The errno of the first failed write, or 0.
    int Failed() const { return m_Errno; }

private:
    static constexpr size_t kFlushAt = 1 << 16;
    std::FILE* m_Stream;
    std::string m_Buf;
    int m_Errno = 0;
};

// UTF-16 appended to `out` as UTF-8; lone surrogates become U+FFFD.
void AppendUtf8(std::string& out, std::u16string_view text);

}  // namespace catalogue
