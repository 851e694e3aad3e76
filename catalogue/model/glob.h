#pragma once
// catalogue::CGlob: a name pattern as a Windows user types it: "*" any run
// of units (also none), "?" exactly one unit, everything else itself, all
// compared without regard to case as Windows compares names
// (util::ToUpperChar, no locale).
//
// The pattern is folded once and cut at its stars into literal pieces: the
// first is anchored at the name's start, the last at its end, the ones
// between are found left to right (the leftmost place of each is the right
// one). So most names are refused after a unit or two of their end, and
// matching takes at most name times pattern steps, without recursion.

#include <string>
#include <string_view>
#include <vector>

#include "base/case.h"

namespace catalogue {

class CGlob {
public:
    explicit CGlob(std::u16string_view pattern);
    bool Match(std::u16string_view name) const {
        if (name.size() < m_MinLength) return false;
        if (!m_Star) return name.size() == m_MinLength && PieceAt(m_Pieces[0], name, 0);
        // The end first: most names differ there ("*.log").
        const std::u16string& last = m_Pieces.back();
        if (!PieceAt(last, name, name.size() - last.size())) return false;
        return _MatchFrontAndMiddle(name);
    }

private:
    // Folds like util::ToUpperChar, with the ASCII letters inline.
    static char16_t Fold(char16_t c) {
        if (c < 0x80) return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 0x20) : c;
        return util::ToUpperChar(c);
    }
    // The piece matches `name` at `at` (REQUIRES: room for it).
    static bool PieceAt(std::u16string_view piece, std::u16string_view name, size_t at) {
        for (size_t i = piece.size(); i-- > 0;)
            if (piece[i] != u'?' && piece[i] != Fold(name[at + i])) return false;
        return true;
    }
    bool _MatchFrontAndMiddle(std::u16string_view name) const;

    std::vector<std::u16string> m_Pieces;  // folded literal runs between stars
    bool m_Star = false;                   // at least one star: first and last pieces are anchors
    size_t m_MinLength = 0;                // units the pieces need
};

}  // namespace catalogue
