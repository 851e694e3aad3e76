#include "catalogue/model/glob.h"

namespace catalogue {

CGlob::CGlob(std::u16string_view pattern) {
    std::u16string piece;
    for (char16_t c : pattern) {
        if (c == u'*') {
            m_Pieces.push_back(piece);
            piece.clear();
            m_Star = true;
        } else {
            piece.push_back(util::ToUpperChar(c));
        }
    }
    m_Pieces.push_back(piece);
    for (const auto& p : m_Pieces) m_MinLength += p.size();
}

// The first piece at the start, then each middle piece at its leftmost
// place after the one before, all before the last piece.
bool CGlob::_MatchFrontAndMiddle(std::u16string_view name) const {
    const std::u16string& first = m_Pieces.front();
    if (!PieceAt(first, name, 0)) return false;
    size_t at = first.size();
    const size_t end = name.size() - m_Pieces.back().size();
    for (size_t i = 1; i + 1 < m_Pieces.size(); ++i) {
        const std::u16string& piece = m_Pieces[i];
        while (at + piece.size() <= end && !PieceAt(piece, name, at)) ++at;
        if (at + piece.size() > end) return false;
        at += piece.size();
    }
    return true;
}

}  // namespace catalogue
