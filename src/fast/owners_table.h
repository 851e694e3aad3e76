#pragma once
// indexer::fast_ntfs_indexer::COwnersTable: the owners of one volume, from
// security id (as $STANDARD_INFORMATION holds it) to owner index (the row
// number in the owner table of the index).
//
// A new table holds, at index 0 under security id 0xFFFFFFFF, a placeholder
// SID (revision 1, all else zero), so files without a security id resolve to
// owner 0; the run driver writes owner row 0 itself. Equal SIDs (compared by
// text) share one index, in order of first appearance. Single-threaded.

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "fast/sid.h"

namespace indexer::fast_ntfs_indexer {

class COwnersTable {
public:
    static constexpr uint32_t kNoSecurityId = 0xFFFFFFFFu;

    COwnersTable();

    // Adds the SID at `sid` (within `available` bytes) under `securityId`;
    // true when it is a new owner (logged "    Sid: %1"). Throws what
    // util::CSid throws.
    bool Add(uint32_t securityId, const uint8_t* sid, size_t available);
    // Maps `securityId` to owner 0: its descriptor has no owner (legal).
    void AddWithoutOwner(uint32_t securityId) {
        m_Ids[securityId] = 0;
        ++m_WithoutOwner;
    }
    uint64_t GetWithoutOwnerCount() const { return m_WithoutOwner; }
    // True and the index, or false and all ones.
    bool Lookup(uint32_t securityId, uint32_t& index) const;
    // False when the index is past the end.
    bool Get(uint32_t index, std::shared_ptr<util::CSid>& sid) const;
    size_t GetSidCount() const { return m_Sids.size(); }
    size_t GetIdCount() const { return m_Ids.size(); }

private:
    std::map<uint32_t, uint32_t> m_Ids;
    std::vector<std::shared_ptr<util::CSid>> m_Sids;
    std::vector<std::u16string> m_Texts;  // the text of each SID, for the comparison
    bool m_Unused = false;
    uint64_t m_WithoutOwner = 0;
};

}  // namespace indexer::fast_ntfs_indexer
