#pragma once
// indexer::fast_ntfs_indexer::CNtfsIndex: walks the B-tree index of a file
// ($I30 of a folder, $SII of $Secure, $R of $Extend\$Reparse) and hands each
// entry, in ascending key order, to a callback.
//
// The walk gathers $INDEX_ROOT, $INDEX_ALLOCATION and $BITMAP of the named
// index over the base record and its extension records, reads the root,
// and descends into every child block whose bit is set in $BITMAP before the
// entry that points to it. A callback's zero result ends the loop of its own
// level only (a parent goes on with its next entry).
//
// Never trusting the disk: entries are checked against the node that holds
// them, the tree is descended at most kMaxDepth levels, and a block reached
// twice in one walk (a cycle of child pointers) fails; both with a CExc
// naming the file record. Other errors (CExc 0x80004005, %1 the operation's
// full name): "%1 fail. Can`t read all cluster." (short block),
// "%1 fail. INVALID INDEX_ALLOCATION_BUFFER signature!", "%1 fail.
// INDEX_ALLOCATION_BUFFER corrupted." (fix-up mismatch, logged at Error
// first). An entry with POINTER_FORM is logged at Warning and walked.
//
// Child pointers count clusters when an index block is at least a cluster
// long, and 512-byte units when it is shorter (see docs/ntfs-structures.md).
//
// Held by shared pointer, one per volume; keeps a pointer to the volume,
// which must outlive it. Single-threaded; callbacks run inside the walk and
// must not keep pointers into the entry.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_set>

#include "ntfs/attribute_content.h"
#include "ntfs/ntfs_format.h"

namespace indexer::fast_ntfs_indexer {

class CNtfsVolume;

// One index entry, checked to lie inside its node: Length bytes at Data.
struct TIndexEntryView {
    const uint8_t* Data = nullptr;
    uint32_t Length = 0;
    uint64_t Frn = 0;  // the indexed file's record, for messages

    uint64_t FileReference() const { return Le64(Data + kIeReference); }
    uint16_t KeyLength() const { return Le16(Data + kIeKeyLength); }
    uint16_t Flags() const { return Le16(Data + kIeFlags); }
    // The key, checked: 0x10 plus the key length inside the entry.
    const uint8_t* Key() const;
};

// Non-zero goes on, zero ends the loop of the calling level.
using TIndexCallback = std::function<uint8_t(const TIndexEntryView& entry, uint64_t context1, uint64_t context2)>;

class CNtfsIndex {
public:
    // NTFS trees of real volumes are a few levels deep; this bound only
    // stops a corrupt tree.
    static constexpr uint32_t kMaxDepth = 32;

    explicit CNtfsIndex(CNtfsVolume* volume) : m_Volume(volume) {}

    // The whole walk of index `indexName` of the file whose base record
    // (FileRecordSize bytes, fixed up) is `record`. A file without that
    // index returns silently.
    void ParseIndexFileRecord_Process(const uint8_t* record, uint64_t frn, std::u16string_view indexName,
                                      const TIndexCallback& callback, uint64_t context1, uint64_t context2);

    // The record number of the $I30 entry named `name` (compared as names
    // on the volume are, ignoring case), or 0.
    uint64_t FindFileInDirectory(const uint8_t* record, uint64_t frn, std::u16string_view name);

    // Checks the signature and applies the update sequence array (at its
    // fixed place 0x28) of an index block; `frn` is for messages.
    static void _IndexAllocationUpdateSequence(uint8_t* block, size_t size, uint64_t frn);

    // Runs the entry loop over entries at [begin, end) of `node` (for tests
    // and fuzzing of one node without a volume: children are not followed
    // when `descend` is empty).
    static void ParseEntries(const uint8_t* node, size_t begin, size_t end, uint64_t frn,
                             const std::function<void(uint64_t vcn)>& descend, const TIndexCallback& callback,
                             uint64_t context1, uint64_t context2, std::u16string_view operation);

private:
    struct TIndexAttributes {
        std::shared_ptr<CAttributeContent> Root, Allocation, Bitmap;
    };
    struct TWalk {
        TIndexAttributes Attributes;
        const TIndexCallback* Callback;
        uint64_t Context1, Context2;
        uint64_t Frn;
        std::unordered_set<uint64_t> Visited;
    };

    // Compares the $I30 entry's name with the name at context1 (a
    // std::u16string_view*); on a match stores the record number at context2
    // (a uint64_t*) and returns 0.
    static uint8_t _FindFileNameCallback(const TIndexEntryView& entry, uint64_t context1, uint64_t context2);
    void _ReadIndexAttributes(const uint8_t* record, uint64_t frn, std::u16string_view indexName,
                              TIndexAttributes& attributes);
    void _ParseIndexNode(TWalk& walk, uint64_t vcn, uint32_t depth);

    CNtfsVolume* m_Volume;
};

}  // namespace indexer::fast_ntfs_indexer
