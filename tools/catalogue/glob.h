#pragma once
// catalogue::CGlob: a name pattern as a Windows user types it: "*" any run
// of units (also none), "?" exactly one unit, everything else itself, all
// compared without regard to case as Windows compares names
// (util::ToUpperChar, no locale). The pattern is folded once; a name is
// folded unit by unit while it is matched. Matching takes time linear in
// name times pattern at worst, with no recursion.

#include <string>
#include <string_view>

namespace catalogue {

class CGlob {
public:
    explicit CGlob(std::u16string_view pattern);
    bool Match(std::u16string_view name) const;

private:
    std::u16string m_Folded;
    bool m_MatchAll = false;  // "*" alone
};

}  // namespace catalogue
