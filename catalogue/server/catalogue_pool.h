#pragma once
// catalogue::CCataloguePool: read-only catalogues for the server's threads,
// one connection each (a connection serves one thread at a time). A request
// takes one and gives it back; one older than `maxAge` is opened afresh, so
// that restore points ingested meanwhile appear within that time.

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "catalogue/db/catalogue_db.h"

namespace catalogue {

class CCataloguePool {
public:
    struct TEntry {
        std::unique_ptr<IConnection> db;
        std::unique_ptr<CCatalogue> catalogue;
        std::chrono::steady_clock::time_point made;
    };

    // Opens one at once, so that a database that cannot be read is known
    // before the server listens (throws CExc).
    CCataloguePool(std::string location, std::chrono::seconds maxAge);

    // A catalogue for one request; given back unless Drop()ped (after a
    // database error, when its connection may be broken).
    class CLease {
    public:
        CLease(CCataloguePool& pool, std::unique_ptr<TEntry> entry) : m_Pool(pool), m_Entry(std::move(entry)) {}
        ~CLease();
        CLease(const CLease&) = delete;
        CLease& operator=(const CLease&) = delete;
        CCatalogue& operator*() const { return *m_Entry->catalogue; }
        void Drop() { m_Entry.reset(); }

    private:
        CCataloguePool& m_Pool;
        std::unique_ptr<TEntry> m_Entry;
    };
    CLease Take();

private:
    std::unique_ptr<TEntry> _Open() const;

    std::string m_Location;
    std::chrono::seconds m_MaxAge;
    std::mutex m_Lock;
    std::vector<std::unique_ptr<TEntry>> m_Free;
};

}  // namespace catalogue
