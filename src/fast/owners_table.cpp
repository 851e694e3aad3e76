#include "fast/owners_table.h"

#include "diag/log.h"

namespace indexer::fast_ntfs_indexer {

COwnersTable::COwnersTable() {
    static const uint8_t kPlaceholder[12] = {1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    (void)m_Unused;
    auto sid = std::make_shared<util::CSid>(kPlaceholder, sizeof kPlaceholder);
    m_Texts.push_back(sid->GetString());
    m_Sids.push_back(std::move(sid));
    m_Ids[kNoSecurityId] = 0;
}

bool COwnersTable::Add(uint32_t securityId, const uint8_t* sidBytes, size_t available) {
    auto sid = std::make_shared<util::CSid>(sidBytes, available);
    std::u16string text = sid->GetString();
    // A volume has few distinct owners: a linear scan by text is enough.
    for (size_t i = 0; i < m_Texts.size(); ++i) {
        if (m_Texts[i] == text) {
            m_Ids[securityId] = static_cast<uint32_t>(i);
            return false;
        }
    }
    m_Ids[securityId] = static_cast<uint32_t>(m_Sids.size());
    m_Sids.push_back(std::move(sid));
    GetLog().Info(u"    Sid: %1", text);
    m_Texts.push_back(std::move(text));
    return true;
}

bool COwnersTable::Lookup(uint32_t securityId, uint32_t& index) const {
    const auto it = m_Ids.find(securityId);
    if (it == m_Ids.end()) {
        index = 0xFFFFFFFFu;
        return false;
    }
    index = it->second;
    return true;
}

bool COwnersTable::Get(uint32_t index, std::shared_ptr<util::CSid>& sid) const {
    if (index >= m_Sids.size()) return false;
    sid = m_Sids[index];
    return true;
}

}  // namespace indexer::fast_ntfs_indexer
