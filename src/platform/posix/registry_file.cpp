#include "platform/posix/registry_file.h"

#include "base/case.h"
#include "base/format.h"
#include "base/utf.h"
#include "platform/registry.h"

namespace platform::posix {

namespace {

struct TRootName {
    uint32_t root;
    const char16_t* name;
    const char16_t* shortName;
};
constexpr TRootName kRoots[] = {
    {kHkeyClassesRoot, u"HKEY_CLASSES_ROOT", u"HKCR"},
    {kHkeyCurrentUser, u"HKEY_CURRENT_USER", u"HKCU"},
    {kHkeyLocalMachine, u"HKEY_LOCAL_MACHINE", u"HKLM"},
    {kHkeyUsers, u"HKEY_USERS", u"HKU"},
    {kHkeyCurrentConfig, u"HKEY_CURRENT_CONFIG", u"HKCC"},
};

const char16_t* RootName(uint32_t root) {
    for (const auto& r : kRoots)
        if (r.root == root) return r.name;
    return nullptr;
}

const char16_t* RootNameFromText(std::u16string_view text) {
    for (const auto& r : kRoots)
        if (util::EqualNoCase(text, r.name) || util::EqualNoCase(text, r.shortName)) return r.name;
    return nullptr;
}

// Splits at "\", dropping empty components.
std::vector<std::u16string> SplitPath(std::u16string_view path) {
    std::vector<std::u16string> parts;
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find(u'\\', start);
        if (end == std::u16string_view::npos) end = path.size();
        if (end > start) parts.emplace_back(path.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

std::u16string FoldedKey(const std::vector<std::u16string>& components, size_t count) {
    std::u16string key;
    for (size_t i = 0; i < count; ++i) {
        if (i) key += u'\\';
        key += util::ToUpper(components[i]);
    }
    return key;
}

std::u16string DecodeBytes(std::string_view bytes) {
    if (bytes.size() >= 2 && static_cast<uint8_t>(bytes[0]) == 0xFF &&
        static_cast<uint8_t>(bytes[1]) == 0xFE) {
        std::u16string text;
        text.reserve(bytes.size() / 2);
        for (size_t i = 2; i + 1 < bytes.size(); i += 2)
            text += static_cast<char16_t>(static_cast<uint8_t>(bytes[i]) |
                                          (static_cast<uint8_t>(bytes[i + 1]) << 8));
        return text;
    }
    if (bytes.size() >= 3 && bytes.substr(0, 3) == "\xEF\xBB\xBF") bytes.remove_prefix(3);
    return util::Utf8ToUtf16(bytes);
}

bool IsBlank(char16_t c) { return c == u' ' || c == u'\t'; }

std::u16string_view Trim(std::u16string_view s) {
    while (!s.empty() && (IsBlank(s.front()) || s.front() == u'\r')) s.remove_prefix(1);
    while (!s.empty() && (IsBlank(s.back()) || s.back() == u'\r')) s.remove_suffix(1);
    return s;
}

int HexDigit(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
}

// A quoted text from s[0] == '"'; `used` is set behind the closing quote.
bool ParseQuoted(std::u16string_view s, std::u16string& out, size_t& used) {
    out.clear();
    for (size_t i = 1; i < s.size(); ++i) {
        if (s[i] == u'"') {
            used = i + 1;
            return true;
        }
        if (s[i] == u'\\' && i + 1 < s.size() && (s[i + 1] == u'\\' || s[i + 1] == u'"')) ++i;
        out += s[i];
    }
    return false;
}

void AppendUtf16(std::vector<uint8_t>& data, std::u16string_view text) {
    for (char16_t c : text) {
        data.push_back(static_cast<uint8_t>(c & 0xFF));
        data.push_back(static_cast<uint8_t>(c >> 8));
    }
}

// The data behind "=": false with a reason when it doesn't parse.
bool ParseData(std::u16string_view s, TRegValue& value, std::u16string& reason) {
    value.data.clear();
    if (!s.empty() && s[0] == u'"') {
        std::u16string text;
        size_t used = 0;
        if (!ParseQuoted(s, text, used) || !Trim(s.substr(used)).empty()) {
            reason = u"bad string data";
            return false;
        }
        value.type = kRegSz;
        AppendUtf16(value.data, text);
        AppendUtf16(value.data, std::u16string_view(u"\0", 1));
        return true;
    }
    if (util::StartsWithNoCase(s, u"dword:")) {
        std::u16string_view digits = s.substr(6);
        if (digits.empty() || digits.size() > 8) {
            reason = u"bad dword data";
            return false;
        }
        uint32_t v = 0;
        for (char16_t c : digits) {
            int d = HexDigit(c);
            if (d < 0) {
                reason = u"bad dword data";
                return false;
            }
            v = (v << 4) | static_cast<uint32_t>(d);
        }
        value.type = kRegDword;
        for (int i = 0; i < 4; ++i) value.data.push_back(static_cast<uint8_t>(v >> (8 * i)));
        return true;
    }
    if (util::StartsWithNoCase(s, u"hex")) {
        size_t p = 3;
        value.type = kRegBinary;
        if (p < s.size() && s[p] == u'(') {
            size_t close = s.find(u')', p);
            if (close == std::u16string_view::npos || close == p + 1 || close - p - 1 > 8) {
                reason = u"bad hex type";
                return false;
            }
            uint32_t t = 0;
            for (size_t i = p + 1; i < close; ++i) {
                int d = HexDigit(s[i]);
                if (d < 0) {
                    reason = u"bad hex type";
                    return false;
                }
                t = (t << 4) | static_cast<uint32_t>(d);
            }
            value.type = t;
            p = close + 1;
        }
        if (p >= s.size() || s[p] != u':') {
            reason = u"bad hex data";
            return false;
        }
        ++p;
        // Pairs of hex digits separated by commas; blanks between them pass.
        int pending = -1;  // the first digit of a byte
        bool needComma = false;
        for (; p < s.size(); ++p) {
            char16_t c = s[p];
            if (IsBlank(c)) continue;
            if (c == u',') {
                if (pending >= 0 || !needComma) {
                    reason = u"bad hex data";
                    return false;
                }
                needComma = false;
                continue;
            }
            int d = HexDigit(c);
            if (d < 0 || needComma) {
                reason = u"bad hex data";
                return false;
            }
            if (pending < 0) {
                pending = d;
            } else {
                value.data.push_back(static_cast<uint8_t>(pending * 16 + d));
                pending = -1;
                needComma = true;
            }
        }
        if (pending >= 0) {
            reason = u"bad hex data";
            return false;
        }
        return true;
    }
    reason = u"unknown data form";
    return false;
}

// Logical lines: a line whose end is "\" continues with the next one.
struct TLine {
    size_t number;  // of its first physical line, from 1
    std::u16string text;
};

std::vector<TLine> SplitLines(std::u16string_view text) {
    std::vector<TLine> lines;
    size_t number = 0;
    size_t start = 0;
    bool continuing = false;
    while (start < text.size()) {
        size_t end = text.find(u'\n', start);
        if (end == std::u16string_view::npos) end = text.size();
        std::u16string_view line = Trim(text.substr(start, end - start));
        ++number;
        start = end + 1;
        bool goesOn = !line.empty() && line.back() == u'\\' && line.front() != u'[';
        if (goesOn) line.remove_suffix(1);
        if (continuing)
            lines.back().text += line;
        else
            lines.push_back({number, std::u16string(line)});
        continuing = goesOn;
    }
    return lines;
}

}  // namespace

CRegistryData::CRegistryData() = default;

TRegKeyNode& CRegistryData::_Create(const std::vector<std::u16string>& components) {
    TRegKeyNode* node = nullptr;
    for (size_t i = 1; i <= components.size(); ++i) {
        TRegKeyNode& current = m_Keys[FoldedKey(components, i)];
        if (node) node->children.emplace(util::ToUpper(components[i - 1]), components[i - 1]);
        node = &current;
    }
    return *node;
}

void CRegistryData::_Delete(const std::vector<std::u16string>& components) {
    const std::u16string key = FoldedKey(components, components.size());
    const std::u16string prefix = key + u'\\';
    for (auto it = m_Keys.begin(); it != m_Keys.end();) {
        if (it->first == key || it->first.compare(0, prefix.size(), prefix) == 0)
            it = m_Keys.erase(it);
        else
            ++it;
    }
    if (components.size() > 1) {
        auto parent = m_Keys.find(FoldedKey(components, components.size() - 1));
        if (parent != m_Keys.end()) parent->second.children.erase(util::ToUpper(components.back()));
    }
}

bool CRegistryData::Parse(std::string_view bytes, std::u16string& problem) {
    m_Keys.clear();
    for (const auto& r : kRoots) m_Keys[util::ToUpper(r.name)];
    TRegKeyNode* current = nullptr;
    bool first = true;
    for (const TLine& line : SplitLines(DecodeBytes(bytes))) {
        std::u16string_view s = line.text;
        std::u16string reason;
        if (s.empty() || s[0] == u';') continue;
        if (first && (s == u"Windows Registry Editor Version 5.00" || s == u"REGEDIT4")) {
            first = false;
            continue;
        }
        first = false;
        if (s[0] == u'[') {
            if (s.back() != u']') {
                reason = u"unclosed key name";
            } else {
                std::u16string_view path = s.substr(1, s.size() - 2);
                bool remove = !path.empty() && path[0] == u'-';
                if (remove) path.remove_prefix(1);
                std::vector<std::u16string> components = SplitPath(path);
                const char16_t* root = components.empty() ? nullptr : RootNameFromText(components[0]);
                if (!root) {
                    reason = u"unknown root key";
                } else {
                    components[0] = root;
                    if (remove) {
                        if (components.size() == 1)
                            reason = u"a root key cannot be deleted";
                        else
                            _Delete(components);
                        current = nullptr;
                    } else {
                        current = &_Create(components);
                    }
                }
            }
        } else if (s[0] == u'"' || s[0] == u'@') {
            TRegValue value;
            size_t used = 1;
            if (s[0] == u'"' && !ParseQuoted(s, value.name, used)) {
                reason = u"unclosed value name";
            } else {
                std::u16string_view rest = Trim(s.substr(used));
                if (rest.empty() || rest[0] != u'=') {
                    reason = u"\"=\" expected after the value name";
                } else if (!current) {
                    reason = u"value outside of a key";
                } else {
                    rest = Trim(rest.substr(1));
                    auto& values = current->values;
                    auto it = values.begin();
                    while (it != values.end() && !util::EqualNoCase(it->name, value.name)) ++it;
                    if (rest == u"-") {
                        if (it != values.end()) values.erase(it);
                    } else if (ParseData(rest, value, reason)) {
                        if (it != values.end()) {
                            it->type = value.type;
                            it->data = std::move(value.data);
                        } else {
                            values.push_back(std::move(value));
                        }
                    }
                }
            }
        } else {
            reason = u"neither a key nor a value";
        }
        if (!reason.empty()) {
            problem = u"line " + util::ToStrU64(line.number) + u": " + reason;
            m_Keys.clear();
            return false;
        }
    }
    return true;
}

const TRegKeyNode* CRegistryData::Find(uint32_t root, std::u16string_view path) const {
    const char16_t* rootName = RootName(root);
    if (!rootName) return nullptr;
    std::vector<std::u16string> components = SplitPath(path);
    components.insert(components.begin(), rootName);
    auto it = m_Keys.find(FoldedKey(components, components.size()));
    return it == m_Keys.end() ? nullptr : &it->second;
}

}  // namespace platform::posix
