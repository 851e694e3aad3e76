#pragma once
// The directories of one volume as the fast pipeline meets them: TDirInfo,
// one per directory, TDirContent for one that has a row, and CDirInfoTable,
// the map from record number to TDirInfo.
//
// CDirInfoTable is a 32-way radix tree over the record number, without
// hashing and without a node per entry: a node is a level and 32 slots,
// made zeroed on first use. At a level L above 0 slot (key >> 5L) & 31 holds
// the child of level L-1; at level 0 slot key & 31 holds the value. The root's
// level is the number of times the key range can be shifted right by 5 while
// it is at least 32. Keys outside [low, low + range] (both ends inside) are
// not stored: Get gives null, Set false. A lookup costs at most
// ceil(log32(range)) + 1 array steps; a volume of a million records has five
// levels. A lookup in the same group of 32 keys as the one before reads the
// remembered leaf directly (the rows of one folder ask for one parent).
//
// The table owns every TDirInfo stored in it (and through it the content);
// storing a second TDirInfo under a key deletes the first. Single-threaded.

#include <cstdint>
#include <memory>
#include <vector>

namespace indexer::fast_ntfs_indexer {

// Kinds in the top byte of a tagged position; the byte position of a row in
// its table lies in the low 56 bits.
inline constexpr uint64_t kTagFile = 0x01ull << 56;
inline constexpr uint64_t kTagDirectory = 0x02ull << 56;
inline constexpr uint64_t kTagReparseDirectory = 0x08ull << 56;
inline constexpr uint64_t kTagPositionMask = (1ull << 56) - 1;

inline constexpr uint64_t kNoDirId = ~0ull;

struct TDirContent {
    uint64_t Self = 0;                 // tagged position of the directory's row
    std::vector<TDirContent*> SubDirs; // subdirectories with rows, not owned
    std::vector<uint64_t> Files;       // tagged positions of the file rows
    uint64_t Reserved = 0;
};

struct TDirInfo {
    uint64_t DirId = kNoDirId;  // row number in the directory table, or kNoDirId
    uint64_t ParentFRN = 0;     // 0 for the root and the metafiles
    std::unique_ptr<TDirContent> Content;  // only with a row
    uint32_t Flags = 0;         // IncExc flags; 0 while undecided
};

class CDirInfoTable {
public:
    CDirInfoTable(uint64_t lowKey, uint64_t range);
    ~CDirInfoTable();
    CDirInfoTable(const CDirInfoTable&) = delete;
    CDirInfoTable& operator=(const CDirInfoTable&) = delete;

    TDirInfo* Get(uint64_t key) const;
    // Takes ownership; false (and the entry deleted) for a key out of range.
    bool Set(uint64_t key, std::unique_ptr<TDirInfo> info);
    uint64_t GetLevels() const;

private:
    struct TNode;
    static void _Free(TNode* node);

    uint64_t m_LowKey;
    uint64_t m_Range;
    TNode* m_Root = nullptr;
    uint64_t m_RootLevel = 0;
    // The leaf node of the last Get and its key group (key >> 5).
    mutable const TNode* m_LastLeaf = nullptr;
    mutable uint64_t m_LastGroup = 0;
};

}  // namespace indexer::fast_ntfs_indexer
