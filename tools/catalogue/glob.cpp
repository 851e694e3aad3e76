#include "catalogue/glob.h"

#include "base/case.h"

namespace catalogue {

CGlob::CGlob(std::u16string_view pattern) : m_Folded(util::ToUpper(pattern)) {
    m_MatchAll = m_Folded.find_first_not_of(u'*') == std::u16string::npos && !m_Folded.empty();
}

// The classic greedy match with one back-tracking point: the last "*" seen
// and where the name stood when it was met.
bool CGlob::Match(std::u16string_view name) const {
    if (m_MatchAll) return true;
    const std::u16string_view p = m_Folded;
    size_t pi = 0, ni = 0;
    size_t starP = std::u16string_view::npos, starN = 0;
    while (ni < name.size()) {
        if (pi < p.size() && p[pi] == u'*') {
            starP = pi++;
            starN = ni;
        } else if (pi < p.size() && (p[pi] == u'?' || p[pi] == util::ToUpperChar(name[ni]))) {
            ++pi;
            ++ni;
        } else if (starP != std::u16string_view::npos) {
            pi = starP + 1;
            ni = ++starN;
        } else {
            return false;
        }
    }
    while (pi < p.size() && p[pi] == u'*') ++pi;
    return pi == p.size();
}

}  // namespace catalogue
