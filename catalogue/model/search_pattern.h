#pragma once
// catalogue::CSearchPattern: what `search PATTERN` looks for, and the piece
// of text a name index can narrow it with.
//
//   - no "*" or "?" and no separator: the names that contain PATTERN, as a
//     desktop search finds them ("budget" finds "Budget-2026.xlsx");
//   - "*" or "?" without a separator: the whole name matches, as `find`
//     matches it ("*.xlsx");
//   - a separator ("\" or "/"): the path from the volume's root instead,
//     contained ("alice\Documents") or, with "*" or "?", matched whole
//     ("\Users\*\budget*.xlsx"; "*" also crosses separators).
// Case is compared as Windows compares names.
//
// Piece(): the longest run of the pattern, folded, that every matching
// entry's own name must contain, of at least 3 units and without
// surrogates (a name index works on trigrams of characters); empty when
// there is none (then every name, or every path, must be looked at).

#include <string>
#include <string_view>

#include "catalogue/model/glob.h"

namespace catalogue {

class CSearchPattern {
public:
    explicit CSearchPattern(std::u16string_view pattern);

    bool MatchesPath() const { return m_Path; }
    // The name (or, for MatchesPath, the path) matches.
    bool Match(std::u16string_view text) const { return m_Glob.Match(text); }
    const std::u16string& Piece() const { return m_Piece; }

private:
    bool m_Path = false;
    CGlob m_Glob;
    std::u16string m_Piece;
};

}  // namespace catalogue
