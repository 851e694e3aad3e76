#include "inputs/filter_reader.h"

#include "base/buf.h"
#include "base/case.h"
#include "base/exc.h"
#include "base/format.h"
#include "diag/log.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "platform/process.h"

namespace indexer {

CFilterReader::CFilterReader(std::u16string moduleFolder,
                             const std::vector<std::u16string>& environment)
    : m_ModuleFolder(std::move(moduleFolder)) {
    for (const auto& entry : environment) {
        const std::u16string lower = util::AsciiLower(entry);
        const size_t eq = lower.find(u'=');
        if (eq == std::u16string::npos) throw CExc(u"Cannot find = in environment variables string");
        m_Environment[lower.substr(0, eq)] = lower.substr(eq + 1);
    }
}

CFilterReader CFilterReader::FromProcess() {
    std::u16string module;
    if (!platform::GetModuleFileName(module)) throw CWin32Exc(u"Cannot get the executable's path.");
    const size_t separator = module.find_last_of(u"\\/");
    module.resize(separator == std::u16string::npos ? 0 : separator);
    return CFilterReader(std::move(module), platform::GetEnvironmentStrings());
}

std::u16string CFilterReader::GetModuleFilePath(std::u16string_view name) const {
    std::u16string path = m_ModuleFolder;
    if (!path.empty() && path.back() != u'\\' && path.back() != u'/') path += u'\\';
    path += name;
    return path;
}

void CFilterReader::ReadFilters(std::vector<std::u16string>& include,
                                std::vector<std::u16string>& exclude) const {
    GetLog().Detail(u"Reading include filter.");
    ReadFilterFile(m_IncludeFileName, include);
    GetLog().Detail(u"Reading exclude filter.");
    ReadFilterFile(m_ExcludeFileName, exclude);
}

void CFilterReader::ReadFilterFile(std::u16string_view name,
                                   std::vector<std::u16string>& lines) const {
    const std::u16string path = GetModuleFilePath(name);
    platform::CHandle file = platform::FileOpen(path, platform::kGenericRead, platform::kShareRead,
                                                platform::kOpenExisting, platform::kAttrNormal);
    if (!file.IsValid()) throw CExc(u"Cannot find file: %1", path);
    int64_t size = 0;
    if (!platform::FileGetSize(file.Get(), &size)) throw CWin32Exc(u"Cannot get size of file: %1", path);
    if (size < 0 || static_cast<uint64_t>(size) >= kMaxFilterFileSize)
        throw CExc(u"Size of NorvaGuestIndexer.filter is too big (%1 bytes)",
                   util::ToStrU64(static_cast<uint64_t>(size)));
    CBuf<uint8_t> data(static_cast<size_t>(size));
    uint32_t done = 0;
    if (size > 0) {
        if (!platform::FileSeek(file.Get(), 0, nullptr, platform::kFileBegin) ||
            !platform::FileRead(file.Get(), data.Get(), static_cast<uint32_t>(size), &done))
            throw CWin32Exc(u"Cannot read file: %1", path);
        if (done != static_cast<uint32_t>(size))
            throw CExc(u"Cannot read file: %1", path);
    }
    const size_t first = lines.size();
    ParseFilterText(data.Get(), done, lines);
    // A file saved with other line ends than CR LF reads as one long line.
    for (size_t i = first; i < lines.size(); ++i) {
        const std::u16string& line = lines[i];
        const size_t brk = line.find_first_of(u"\r\n");
        if (brk == std::u16string::npos) continue;
        GetLog().Warning(u"Filter file [%1] has a line with a lone LF or CR, beginning [%2]; lines must "
                         u"end with CR LF. The line is kept whole, as one path, and matches no folder.",
                         path, line.substr(0, brk));
    }
}

void CFilterReader::ParseFilterText(const uint8_t* data, size_t size,
                                    std::vector<std::u16string>& lines) const {
    if (size % 2 != 0) throw CExc(u"Unicode filter file contains non-unicode lines.");
    const size_t count = size / 2;
    if (count < 2) return;
    auto unit = [data](size_t i) {
        return static_cast<char16_t>(data[2 * i] | (data[2 * i + 1] << 8));
    };
    auto addLine = [&](size_t from, size_t to) {
        if (to <= from) return;
        std::u16string raw(to - from, u'\0');
        for (size_t k = from; k < to; ++k) raw[k - from] = unit(k);
        lines.push_back(NormaliseFilterLine(raw));
        GetLog().Detail(u"Filter string: [%1].", lines.back());
    };
    size_t start = 0;
    size_t lastCr = 0;  // starts at 0 on purpose: a LF at index 1 ends an empty line
    for (size_t i = 0; i < count; ++i) {
        const char16_t c = unit(i);
        if (i == 0 && c == 0xFEFF) {
            start = 1;
            continue;
        }
        if (c == u'\r') {
            lastCr = i;
        } else if (c == u'\n' && i >= 1 && lastCr == i - 1) {
            addLine(start, lastCr);
            start = i + 1;
        }
    }
    addLine(start, count);
}

std::u16string CFilterReader::NormaliseFilterLine(std::u16string_view line) const {
    std::u16string text;
    text.reserve(line.size() + 1);
    for (char16_t c : line)
        if (c != u'"') text += c;
    text = ExpandEnvironmentTokens(util::AsciiLower(text));
    for (auto& c : text)
        if (c == u'/') c = u'\\';
    if (!text.empty() && text.back() != u'\\') text += u'\\';
    return text;
}

std::u16string CFilterReader::ExpandEnvironmentTokens(std::u16string_view text) const {
    std::u16string result;
    size_t pos = 0;
    while (pos < text.size()) {
        const size_t open = text.find(u'%', pos);
        const size_t close = open == std::u16string_view::npos ? open : text.find(u'%', open + 1);
        if (close == std::u16string_view::npos) break;
        result += text.substr(pos, open - pos);
        auto it = m_Environment.find(util::AsciiLower(text.substr(open + 1, close - open - 1)));
        if (it != m_Environment.end())
            result += it->second;
        else
            result += text.substr(open, close - open + 1);
        pos = close + 1;
    }
    if (pos < text.size()) result += text.substr(pos);
    return result;
}

}  // namespace indexer
