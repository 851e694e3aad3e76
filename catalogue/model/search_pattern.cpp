#include "catalogue/model/search_pattern.h"

#include "base/case.h"

namespace catalogue {

namespace {

std::u16string Normalised(std::u16string_view pattern) {
    std::u16string text(pattern);
    for (auto& c : text)
        if (c == u'/') c = u'\\';
    return text;
}

bool Wild(std::u16string_view text) { return text.find_first_of(u"*?") != std::u16string_view::npos; }

std::u16string Glob(std::u16string_view pattern) {
    return Wild(pattern) ? std::u16string(pattern) : u"*" + std::u16string(pattern) + u"*";
}

// The longest run of `text` free of "*", "?", "\" and surrogates, folded.
std::u16string LongestLiteral(std::u16string_view text) {
    size_t bestAt = 0, bestLength = 0, at = 0;
    for (size_t i = 0; i <= text.size(); ++i) {
        const bool stop = i == text.size() || text[i] == u'*' || text[i] == u'?' || text[i] == u'\\' ||
                          (text[i] >= 0xD800 && text[i] <= 0xDFFF);
        if (!stop) continue;
        if (i - at > bestLength) {
            bestAt = at;
            bestLength = i - at;
        }
        at = i + 1;
    }
    return bestLength >= 3 ? util::ToUpper(text.substr(bestAt, bestLength)) : std::u16string();
}

// For a path pattern: the part that must lie within the entry's own name:
// the text after the last "*" (anchored at the path's end) and after the
// last separator in it. Without wildcards the path is only contained, and
// its last part may be the start of any name below it: nothing.
std::u16string_view NamePart(std::u16string_view pattern) {
    if (!Wild(pattern)) return {};
    const size_t star = pattern.rfind(u'*');
    std::u16string_view tail = star == std::u16string_view::npos ? pattern : pattern.substr(star + 1);
    const size_t sep = tail.rfind(u'\\');
    return sep == std::u16string_view::npos ? (star == std::u16string_view::npos ? std::u16string_view() : tail)
                                            : tail.substr(sep + 1);
}

}  // namespace

CSearchPattern::CSearchPattern(std::u16string_view pattern)
    : m_Path(Normalised(pattern).find(u'\\') != std::u16string::npos), m_Glob(Glob(Normalised(pattern))) {
    const std::u16string text = Normalised(pattern);
    m_Piece = LongestLiteral(m_Path ? NamePart(text) : std::u16string_view(text));
}

}  // namespace catalogue
