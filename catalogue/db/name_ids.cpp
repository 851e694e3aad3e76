#include "catalogue/db/name_ids.h"

namespace catalogue {

void CNameIds::Reserve(size_t names) {
    size_t slots = 1024;
    while (slots < names * 2) slots *= 2;
    if (slots > m_Slots.size()) _Grow(slots);
}

// The slot that holds `name`, or the empty one where it would go.
size_t CNameIds::_Probe(std::u16string_view name, uint64_t hash) const {
    const size_t mask = m_Slots.size() - 1;
    for (size_t i = hash & mask;; i = (i + 1) & mask) {
        const TSlot& slot = m_Slots[i];
        if (slot.id == 0) return i;
        if (slot.hash == hash && std::u16string_view(m_Units).substr(slot.at, slot.length) == name) return i;
    }
}

int64_t CNameIds::Find(std::u16string_view name, uint64_t hash) const {
    return m_Slots.empty() ? 0 : m_Slots[_Probe(name, hash)].id;
}

void CNameIds::Add(std::u16string_view name, uint64_t hash, int64_t id) {
    if ((m_Count + 1) * 2 > m_Slots.size()) _Grow(m_Slots.empty() ? 1024 : m_Slots.size() * 2);
    TSlot& slot = m_Slots[_Probe(name, hash)];
    if (slot.id != 0) return;
    slot = {hash, m_Units.size(), static_cast<uint32_t>(name.size()), id};
    m_Units.append(name);
    ++m_Count;
}

void CNameIds::_Grow(size_t slots) {
    std::vector<TSlot> old = std::move(m_Slots);
    m_Slots.assign(slots, TSlot{});
    const size_t mask = slots - 1;
    for (const TSlot& slot : old) {
        if (slot.id == 0) continue;
        size_t i = slot.hash & mask;
        while (m_Slots[i].id != 0) i = (i + 1) & mask;
        m_Slots[i] = slot;
    }
}

}  // namespace catalogue
