// The wildcard rule of FindFirstFileW for code that matches names itself.
// Windows has no public call for it (ntdll's RtlIsNameInExpression is what
// the file systems use, and Wine lacks it), so the rule is written here over
// the same case folding the program uses for names (base/case.h).
//
// FindFirstFileW first rewrites the mask: "*.*" is "*"; every '?' becomes
// DOS_QM; a '.' followed by '?', '*' or the end becomes DOS_DOT; a '*'
// followed by '.' becomes DOS_STAR. Then, over the name:
//   '*'      any run of characters, the empty one too;
//   DOS_STAR any run that does not reach past the name's last '.';
//   DOS_QM   one character other than '.', or nothing before a '.' or at the end;
//   DOS_DOT  a '.', or nothing at the end;
//   other    the same character, case folded.

#include <algorithm>
#include <vector>

#include "base/case.h"
#include "platform/find.h"

namespace platform {

namespace {

enum class EMaskItem { Char, Star, DosStar, DosQm, DosDot };

struct TMaskItem {
    EMaskItem kind;
    char16_t c;  // folded, for Char
};

std::vector<TMaskItem> ParseMask(std::u16string_view mask) {
    if (mask == u"*.*") mask = u"*";
    std::vector<TMaskItem> items;
    items.reserve(mask.size());
    for (size_t i = 0; i < mask.size(); ++i) {
        const char16_t next = i + 1 < mask.size() ? mask[i + 1] : u'\0';
        const bool nextIsWild = next == u'\0' || next == u'?' || next == u'*';
        switch (mask[i]) {
            case u'?': items.push_back({EMaskItem::DosQm, 0}); break;
            case u'*': items.push_back({next == u'.' ? EMaskItem::DosStar : EMaskItem::Star, 0}); break;
            case u'.':
                if (nextIsWild) {
                    items.push_back({EMaskItem::DosDot, 0});
                    break;
                }
                [[fallthrough]];
            default: items.push_back({EMaskItem::Char, util::ToUpperChar(mask[i])}); break;
        }
    }
    return items;
}

}  // namespace

bool MatchesWildcard(std::u16string_view mask, std::u16string_view name) {
    const std::vector<TMaskItem> items = ParseMask(mask);
    const size_t n = name.size();
    const size_t lastDot = name.rfind(u'.');  // npos when none
    // reach[j]: the mask items taken so far can have consumed name[0, j).
    std::vector<bool> reach(n + 1, false), next(n + 1, false);
    reach[0] = true;
    for (const TMaskItem& item : items) {
        std::fill(next.begin(), next.end(), false);
        bool any = false;
        auto mark = [&](size_t k) { next[k] = true; any = true; };
        if (item.kind == EMaskItem::Star || item.kind == EMaskItem::DosStar) {
            // One sweep: from each reachable position the run may end
            // anywhere up to its limit, so keep the farthest limit seen.
            bool open = false;
            size_t until = 0;
            for (size_t j = 0; j <= n; ++j) {
                if (reach[j]) {
                    size_t limit = n;
                    if (item.kind == EMaskItem::DosStar && lastDot != std::u16string_view::npos &&
                        lastDot >= j)
                        limit = lastDot;
                    until = open ? std::max(until, limit) : limit;
                    open = true;
                }
                if (open && j <= until) mark(j);
            }
        } else {
            for (size_t j = 0; j <= n; ++j) {
                if (!reach[j]) continue;
                const bool atEnd = j == n;
                if (item.kind == EMaskItem::DosQm) {
                    if (!atEnd && name[j] != u'.') mark(j + 1);
                    else mark(j);
                } else if (item.kind == EMaskItem::DosDot) {
                    if (!atEnd && name[j] == u'.') mark(j + 1);
                    else if (atEnd) mark(j);
                } else if (!atEnd && util::ToUpperChar(name[j]) == item.c) {
                    mark(j + 1);
                }
            }
        }
        if (!any) return false;
        reach.swap(next);
    }
    return reach[n];
}

}  // namespace platform
