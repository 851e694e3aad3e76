#include "metafile/mtf_lines.h"

#include <algorithm>

#include "base/buf.h"
#include "base/exc.h"
#include "base/format.h"
#include "metafile/mtf_binary_file.h"
#include "platform/codepage.h"

namespace metafile {

namespace {

// A growing block of bytes: grows by at least twice its capacity, in steps
// of 0x10000 bytes.
class CMtfMemStream {
public:
    explicit CMtfMemStream(size_t capacity) { m_Buf.Allocate(capacity); }

    void Write(const void* data, size_t size) {
        if (m_Size + size > m_Buf.Count()) {
            constexpr size_t kStep = 0x10000;
            const size_t needed = (m_Size + size + kStep - 1) / kStep * kStep;
            m_Buf.Resize(std::max(needed, m_Buf.Count() * 2));
        }
        std::copy_n(static_cast<const uint8_t*>(data), size, m_Buf.Get() + m_Size);
        m_Size += size;
    }
    // UTF-16LE code units.
    void WriteText(std::u16string_view text) {
        for (char16_t unit : text) {
            const uint8_t bytes[2] = {static_cast<uint8_t>(unit & 0xFF), static_cast<uint8_t>(unit >> 8)};
            Write(bytes, 2);
        }
    }
    void WriteLineBreak() { WriteText(u"\r\n"); }

    const uint8_t* Data() const { return m_Buf.Get(); }
    size_t Size() const { return m_Size; }

private:
    CBuf<uint8_t> m_Buf;
    size_t m_Size = 0;
};

// Calls onLine with each line of text, a line ending at the first of `crlf`
// or `lf` searched byte by byte. The end of the text ends the last line; a
// terminator at the very end gives no further line.
template <class F>
void SplitLines(std::string_view text, std::string_view crlf, std::string_view lf, F&& onLine) {
    constexpr size_t npos = std::string_view::npos;
    size_t nextCrlf = text.find(crlf), nextLf = text.find(lf);
    size_t pos = 0;
    while (pos < text.size()) {
        // Search again only for a separator that lies behind us, so a file
        // of LF alone is not rescanned for CR LF at every line.
        if (nextCrlf != npos && nextCrlf < pos) nextCrlf = text.find(crlf, pos);
        if (nextLf != npos && nextLf < pos) nextLf = text.find(lf, pos);
        size_t end = text.size(), terminator = 0;
        if (nextCrlf != npos && (nextLf == npos || nextCrlf < nextLf)) {
            end = nextCrlf;
            terminator = crlf.size();
        } else if (nextLf != npos) {
            end = nextLf;
            terminator = lf.size();
        }
        onLine(text.substr(pos, end - pos));
        if (terminator == 0) break;
        pos = end + terminator;
    }
}

std::u16string_view Trim(std::u16string_view text) {
    auto blank = [](char16_t c) { return c == u' ' || c == u'\t'; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return text;
}

}  // namespace

const SMtfRawLine* CMtfLinesTab::_Live(int64_t index) const {
    if (index < 0 || index >= GetLineCount()) return nullptr;
    const SMtfRawLine* line = m_Lines[static_cast<size_t>(index)].get();
    return line && line->m_State != MtfLineDeleted ? line : nullptr;
}

int64_t CMtfLinesTab::AddLine(std::u16string_view text, EMtfLineState state) {
    m_Lines.push_back(std::make_shared<SMtfRawLine>(SMtfRawLine{std::u16string(text), state}));
    return GetLineCount() - 1;
}

void CMtfLinesTab::ReplaceLine(int64_t index, std::u16string_view text) {
    if (index < 0 || index >= GetLineCount())
        throw CExc(u"There is no line %1 in meta-file %2", util::Ascii(std::to_string(index)), m_Name);
    auto& slot = m_Lines[static_cast<size_t>(index)];
    const EMtfLineState state = slot && slot->m_State == MtfLineAdded ? MtfLineAdded : MtfLineUpdated;
    slot = std::make_shared<SMtfRawLine>(SMtfRawLine{std::u16string(text), state});
}

bool CMtfLinesTab::DeleteLine(int64_t index) {
    if (!_Live(index)) return false;
    auto& slot = m_Lines[static_cast<size_t>(index)];
    if (slot->m_State == MtfLineAdded) slot.reset();  // never reached the file
    else slot->m_State = MtfLineDeleted;
    return true;
}

bool CMtfLinesTab::GetLine(int64_t index, std::u16string& text) const {
    const SMtfRawLine* line = _Live(index);
    if (!line) return false;
    text = line->m_Text;
    return true;
}

EMtfLineState CMtfLinesTab::GetLineState(int64_t index) const {
    const SMtfRawLine* line = _Live(index);
    return line ? line->m_State : MtfLineDeleted;
}

bool CMtfLinesTab::ParseLine(int64_t index, std::u16string& key, std::u16string& value) const {
    const SMtfRawLine* line = _Live(index);
    if (!line) return false;
    const std::u16string_view text = line->m_Text;
    if (text.empty() || text[0] == u'#') return false;
    const size_t eq = text.find(u'=');
    if (eq == std::u16string_view::npos) return false;
    key = Trim(text.substr(0, eq));
    value = Trim(text.substr(eq + 1));
    return true;
}

int64_t CMtfLinesTab::_FirstChange() const {
    for (size_t i = 0; i < m_Lines.size(); ++i)
        if (m_Lines[i] && m_Lines[i]->m_State != MtfLineUnchanged) return static_cast<int64_t>(i);
    return -1;
}

EMtfChangeKind CMtfLinesTab::GetChangeKind() const {
    const int64_t first = _FirstChange();
    if (first < 0) return MtfNoChange;
    return m_Lines[static_cast<size_t>(first)]->m_State == MtfLineAdded ? MtfChangeAppend
                                                                         : MtfChangeRewrite;
}

void CMtfLinesTab::_Commit() {
    for (auto& slot : m_Lines) {
        if (!slot) continue;
        if (slot->m_State == MtfLineDeleted) slot.reset();
        else slot->m_State = MtfLineUnchanged;
    }
}

void CMtfLinesTab::WriteIncrementally(CMtfBinaryFile& file) {
    try {
        CMtfMemStream stream(0);
        const int64_t first = _FirstChange();
        if (first < 0) return;
        if (m_Lines[static_cast<size_t>(first)]->m_State != MtfLineAdded)
            throw CExc(u"There are one or more lines updated at the beginning of the file.");
        // Lines before the first change are all in the file already.
        size_t written = static_cast<size_t>(
            std::count_if(m_Lines.begin(), m_Lines.begin() + first, [](const auto& l) { return l != nullptr; }));
        for (size_t i = static_cast<size_t>(first); i < m_Lines.size(); ++i) {
            const SMtfRawLine* line = m_Lines[i].get();
            if (!line || line->m_State == MtfLineDeleted) continue;
            // The break goes with the line behind it: the file never ends in one.
            if (written != 0) stream.WriteLineBreak();
            stream.WriteText(line->m_Text);
            ++written;
        }
        if (stream.Size() == 0) return;
        file.SeekToEnd();
        file.Write(stream.Data(), stream.Size());
        _Commit();
    } catch (CExc& e) {
        e.AddContext(u"Meta-file [%1] cannot be updated incrementally.", m_Name);
        throw;
    }
}

void CMtfLinesTab::Rewrite(CMtfBinaryFile& file) {
    try {
        CMtfMemStream stream(160 * m_Lines.size());
        stream.Write("\xFF\xFE", 2);
        bool first = true;
        for (const auto& slot : m_Lines) {
            if (!slot || slot->m_State == MtfLineDeleted) continue;
            if (!first) stream.WriteLineBreak();
            stream.WriteText(slot->m_Text);
            first = false;
        }
        file.SetSize(0);
        file.Write(stream.Data(), stream.Size());
        _Commit();
    } catch (CExc& e) {
        e.AddContext(u"Meta-file [%1] cannot be rewritten.", m_Name);
        throw;
    }
}

std::shared_ptr<CMtfLinesTab> CMtfLinesTab::Load(CMtfBinaryFile& file, std::u16string_view name,
                                                 uint64_t sizeLimit) {
    try {
        const uint64_t size = file.GetSize();
        if (size >= sizeLimit)
            throw CExc(u"Size of the meta-file  \"%1\" is too big (%2 bytes)", name, util::ToStrU64(size));
        file.SeekToBegin();
        CBuf<uint8_t> block(static_cast<size_t>(size));
        if (size > 0) file.Read(block.Get(), static_cast<uint32_t>(size));
        std::string_view bytes(reinterpret_cast<const char*>(block.Get()), static_cast<size_t>(size));

        auto tab = std::make_shared<CMtfLinesTab>(std::u16string(name));
        if (bytes.starts_with("\xFF\xFE")) {
            SplitLines(bytes.substr(2), std::string_view("\r\0\n\0", 4), std::string_view("\n\0", 2),
                       [&](std::string_view line) {
                           if (line.size() % 2 != 0)
                               throw CExc(u"Unicode meta-file \"%1\" contains non-unicode lines.", name);
                           std::u16string text(line.size() / 2, u'\0');
                           for (size_t i = 0; i < text.size(); ++i)
                               text[i] = static_cast<char16_t>(static_cast<uint8_t>(line[2 * i]) |
                                                               static_cast<uint8_t>(line[2 * i + 1]) << 8);
                           tab->AddLine(text, MtfLineUnchanged);
                       });
        } else {
            SplitLines(bytes, "\r\n", "\n", [&](std::string_view line) {
                tab->AddLine(platform::AnsiToUtf16(line), MtfLineUnchanged);
            });
        }
        return tab;
    } catch (CExc& e) {
        e.AddContext(u"Parsing of the meta-file \"%1\" has been failed.", name);
        throw;
    }
}

}  // namespace metafile
