#include "base/case.h"

#include "base/case_table.h"

namespace util {

char16_t ToUpperChar(char16_t c) {
    const unsigned page = case_table::kPageIndex[c >> 8];
    return static_cast<char16_t>(c + case_table::kPageDeltas[page][c & 0xFF]);
}

std::u16string ToUpper(std::u16string_view text) {
    std::u16string result(text);
    for (auto& c : result) c = ToUpperChar(c);
    return result;
}

bool EqualNoCase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (a[i] != b[i] && ToUpperChar(a[i]) != ToUpperChar(b[i])) return false;
    return true;
}

int CompareNoCase(std::u16string_view a, std::u16string_view b) {
    const size_t n = a.size() < b.size() ? a.size() : b.size();
    for (size_t i = 0; i < n; ++i) {
        const char16_t x = ToUpperChar(a[i]), y = ToUpperChar(b[i]);
        if (x != y) return x < y ? -1 : 1;
    }
    if (a.size() == b.size()) return 0;
    return a.size() < b.size() ? -1 : 1;
}

bool StartsWithNoCase(std::u16string_view a, std::u16string_view prefix) {
    return a.size() >= prefix.size() && EqualNoCase(a.substr(0, prefix.size()), prefix);
}

std::u16string AsciiLower(std::u16string_view text) {
    std::u16string result(text);
    for (auto& c : result)
        if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
    return result;
}

}  // namespace util
