#include "fast/dir_info_table.h"

namespace indexer::fast_ntfs_indexer {

struct CDirInfoTable::TNode {
    uint64_t Level = 0;
    void* Slots[32] = {};
};

CDirInfoTable::CDirInfoTable(uint64_t lowKey, uint64_t range) : m_LowKey(lowKey), m_Range(range) {
    for (uint64_t r = range; r >= 32; r >>= 5) ++m_RootLevel;
}

CDirInfoTable::~CDirInfoTable() { _Free(m_Root); }

// The tree is at most 13 levels deep (64-bit keys), so recursion is bounded.
void CDirInfoTable::_Free(TNode* node) {
    if (!node) return;
    for (void* slot : node->Slots) {
        if (!slot) continue;
        if (node->Level == 0)
            delete static_cast<TDirInfo*>(slot);
        else
            _Free(static_cast<TNode*>(slot));
    }
    delete node;
}

TDirInfo* CDirInfoTable::Get(uint64_t key) const {
    if (key < m_LowKey || key - m_LowKey > m_Range) return nullptr;
    const uint64_t k = key - m_LowKey;
    // Rows of one folder come together: their parent keys repeat, and the
    // leaf of the last lookup answers without a walk. Nodes live as long as
    // the table, and the slot is read now, so the shortcut never goes stale.
    if (m_LastLeaf && (k >> 5) == m_LastGroup) return static_cast<TDirInfo*>(m_LastLeaf->Slots[k & 31]);
    const TNode* node = m_Root;
    while (node) {
        void* slot = node->Slots[(k >> (5 * node->Level)) & 31];
        if (node->Level == 0) {
            m_LastLeaf = node;
            m_LastGroup = k >> 5;
            return static_cast<TDirInfo*>(slot);
        }
        node = static_cast<const TNode*>(slot);
    }
    return nullptr;
}

bool CDirInfoTable::Set(uint64_t key, std::unique_ptr<TDirInfo> info) {
    if (key < m_LowKey || key - m_LowKey > m_Range) return false;
    const uint64_t k = key - m_LowKey;
    if (!m_Root) {
        m_Root = new TNode;
        m_Root->Level = m_RootLevel;
    }
    TNode* node = m_Root;
    while (node->Level > 0) {
        void*& slot = node->Slots[(k >> (5 * node->Level)) & 31];
        if (!slot) {
            auto* child = new TNode;
            child->Level = node->Level - 1;
            slot = child;
        }
        node = static_cast<TNode*>(slot);
    }
    void*& slot = node->Slots[k & 31];
    TDirInfo* old = static_cast<TDirInfo*>(slot);
    slot = info.release();
    if (old != slot) delete old;
    return true;
}

uint64_t CDirInfoTable::GetLevels() const { return m_RootLevel; }

}  // namespace indexer::fast_ntfs_indexer
