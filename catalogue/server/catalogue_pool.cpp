#include "catalogue/server/catalogue_pool.h"

namespace catalogue {

CCataloguePool::CCataloguePool(std::string location, std::chrono::seconds maxAge)
    : m_Location(std::move(location)), m_MaxAge(maxAge) {
    m_Free.push_back(_Open());
}

std::unique_ptr<CCataloguePool::TEntry> CCataloguePool::_Open() const {
    auto entry = std::make_unique<TEntry>();
    entry->db = OpenDatabaseReadOnly(m_Location);
    entry->catalogue = std::make_unique<CCatalogue>(*entry->db);
    entry->made = std::chrono::steady_clock::now();
    return entry;
}

CCataloguePool::CLease CCataloguePool::Take() {
    {
        std::lock_guard<std::mutex> lock(m_Lock);
        const auto oldest = std::chrono::steady_clock::now() - m_MaxAge;
        while (!m_Free.empty()) {
            std::unique_ptr<TEntry> entry = std::move(m_Free.back());
            m_Free.pop_back();
            if (entry->made >= oldest) return CLease(*this, std::move(entry));
        }
    }
    return CLease(*this, _Open());
}

CCataloguePool::CLease::~CLease() {
    if (!m_Entry) return;
    std::lock_guard<std::mutex> lock(m_Pool.m_Lock);
    m_Pool.m_Free.push_back(std::move(m_Entry));
}

}  // namespace catalogue
