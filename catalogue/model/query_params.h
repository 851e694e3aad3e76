#pragma once
// catalogue::CQueryParams: the parameters of a question (search, versions,
// ls, changes, points) read into the catalogue's values, one way for the
// command line (--min-size 1K) and the web API (min_size=1K). Names are
// looked up as the command line spells them without dashes ("min-size",
// "taken-after"); messages spell them as the caller's user wrote them.
// A bad or missing value throws CBadParameter with a message for people.

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "catalogue/model/catalogue_types.h"

namespace catalogue {

class CBadParameter : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class CQueryParams {
public:
    // The value given for a name, or null.
    using TGet = std::function<const std::string*(const std::string& name)>;
    // A name as the user writes it: "--min-size", "min_size".
    using TSpell = std::function<std::string(const std::string& name)>;

    CQueryParams(TGet get, TSpell spell) : m_Get(std::move(get)), m_Spell(std::move(spell)) {}

    bool Has(const std::string& name) const { return m_Get(name) != nullptr; }
    // A restore point id (a positive integer); required.
    int64_t Point(const std::string& name) const;
    std::optional<std::u16string> Text(const std::string& name) const;
    std::optional<uint64_t> Time(const std::string& name) const;
    std::optional<uint64_t> Size(const std::string& name) const;
    // machine, volume, owner, type (f, d, l), at | from, to, taken-after,
    // taken-before, min-size, max-size, newer, older.
    TSearchFilter Filter() const;

private:
    // The value `parse` makes of the text, or null when not given.
    std::optional<uint64_t> _Parsed(const std::string& name, std::optional<uint64_t> (*parse)(std::string_view),
                                    const char* what) const;

    TGet m_Get;
    TSpell m_Spell;
};

}  // namespace catalogue
