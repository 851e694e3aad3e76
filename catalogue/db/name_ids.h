#pragma once
// catalogue::CNameIds: the ids of the names an ingest has met, in memory.
// Every name's units are kept in one buffer and found through an
// open-addressing table of (hash, place, id): no allocation a name, and
// mostly one probe. An ingest asks it once an entry, a million times for a
// million files.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace catalogue {

class CNameIds {
public:
    static uint64_t Hash(std::u16string_view name) { return std::hash<std::u16string_view>()(name); }

    void Reserve(size_t names);
    // The id of `name` (whose Hash is `hash`), or 0 when it has none yet.
    int64_t Find(std::u16string_view name, uint64_t hash) const;
    // Gives `name` an id, unless it has one already.
    void Add(std::u16string_view name, uint64_t hash, int64_t id);

private:
    struct TSlot {
        uint64_t hash = 0;
        uint64_t at = 0;  // where its units start in m_Units
        uint32_t length = 0;
        int64_t id = 0;  // 0: an empty slot
    };
    size_t _Probe(std::u16string_view name, uint64_t hash) const;
    void _Grow(size_t slots);

    std::vector<TSlot> m_Slots;  // a power of two, at most half full
    size_t m_Count = 0;
    std::u16string m_Units;
};

}  // namespace catalogue
