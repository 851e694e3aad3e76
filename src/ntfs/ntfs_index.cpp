#include "ntfs/ntfs_index.h"

#include "base/format.h"
#include "diag/log.h"
#include "inputs/path_utils.h"
#include "ntfs/ntfs_attributes.h"
#include "ntfs/ntfs_volume.h"

namespace indexer::fast_ntfs_indexer {

namespace {

constexpr std::u16string_view kFnProcess = u"indexer::fast_ntfs_indexer::CNtfsIndex::ParseIndexFileRecord_Process";
constexpr std::u16string_view kFnNode = u"indexer::fast_ntfs_indexer::CNtfsIndex::_ParseIndexNode";
constexpr std::u16string_view kFnUpdate = u"indexer::fast_ntfs_indexer::CNtfsIndex::_IndexAllocationUpdateSequence";
constexpr uint64_t kMaxVcn = uint64_t{1} << 40;

}  // namespace

const uint8_t* TIndexEntryView::Key() const {
    if (Length - kIeKey < KeyLength())
        ThrowCorrupt(Frn, u"index entry key of %1 bytes passes its entry of %2", HexOff(KeyLength()), HexOff(Length));
    return Data + kIeKey;
}

void CNtfsIndex::ParseEntries(const uint8_t* node, size_t begin, size_t end, uint64_t frn,
                              const std::function<void(uint64_t vcn)>& descend, const TIndexCallback& callback,
                              uint64_t context1, uint64_t context2, std::u16string_view operation) {
    size_t position = begin;
    for (;;) {
        if (position > end || end - position < kIeKey)
            ThrowCorrupt(frn, u"index entry at offset %1 passes its node's end %2", HexOff(position), HexOff(end));
        const uint8_t* entry = node + position;
        const uint16_t length = Le16(entry + kIeLength);
        if (length < 17) return;
        if (length > end - position)
            ThrowCorrupt(frn, u"index entry at offset %1 of length %2 passes its node's end", HexOff(position),
                         HexOff(length));
        const uint16_t flags = Le16(entry + kIeFlags);
        if (flags & kIePointerForm) GetLog().Warning(u"%1 fail. IndexEntry POINTER_FORM!", operation);
        if (flags & kIeHasChild) {
            if (length < kIeKey + 8)
                ThrowCorrupt(frn, u"index entry at offset %1 is too short for its child pointer", HexOff(position));
            if (descend) descend(Le64(entry + length - 8));
        }
        if (flags & kIeLast) return;
        if ((callback(TIndexEntryView{entry, length, frn}, context1, context2) & 0xFF) == 0) return;
        position += length;
    }
}

void CNtfsIndex::_ReadIndexAttributes(const uint8_t* record, uint64_t frn, std::u16string_view indexName,
                                      TIndexAttributes& attributes) {
    CNtfsAttributes(m_Volume).ForEachAttributeOfFile(record, frn, [&](const CAttrHeader& attr) {
        const uint32_t type = attr.Type();
        if (type != kAttrIndexRoot && type != kAttrIndexAllocation && type != kAttrBitmap) return;
        if (!CNtfsAttributes::_IsAttributeName(attr, indexName)) return;
        if (type == kAttrIndexRoot) attributes.Root->ParseAttribute(attr);
        else if (type == kAttrIndexAllocation) attributes.Allocation->ParseAttribute(attr);
        else attributes.Bitmap->ParseAttribute(attr);
    });
}

void CNtfsIndex::ParseIndexFileRecord_Process(const uint8_t* record, uint64_t frn, std::u16string_view indexName,
                                              const TIndexCallback& callback, uint64_t context1,
                                              uint64_t context2) {
    TWalk walk{{}, &callback, context1, context2, frn, {}};
    std::u16string name(indexName);
    walk.Attributes.Root = std::make_shared<CAttributeContent>(m_Volume, frn, name);
    walk.Attributes.Allocation = std::make_shared<CAttributeContent>(m_Volume, frn, name);
    walk.Attributes.Bitmap = std::make_shared<CAttributeContent>(m_Volume, frn, name);
    _ReadIndexAttributes(record, frn, indexName, walk.Attributes);
    const uint64_t rootSize = walk.Attributes.Root->GetSize();
    if (rootSize == 0) return;
    // A root value lives in one file record.
    if (rootSize > kMaxRecordSize) ThrowCorrupt(frn, u"$INDEX_ROOT of %1 bytes is larger than a record", HexOff(rootSize));
    CBuf<uint8_t> root(static_cast<size_t>(rootSize));
    walk.Attributes.Root->Read(0, root.Get(), rootSize);
    if (rootSize < kIrEntriesOffset + 8) ThrowCorrupt(frn, u"$INDEX_ROOT of %1 bytes is too short", HexOff(rootSize));
    const uint64_t begin = kIrEntriesOffset + uint64_t{Le32(root.Get() + kIrEntriesOffset)};
    ParseEntries(
        root.Get(), begin > rootSize ? rootSize + 1 : static_cast<size_t>(begin), static_cast<size_t>(rootSize), frn,
        [&](uint64_t vcn) { _ParseIndexNode(walk, vcn, 1); }, callback, context1, context2, kFnProcess);
}

void CNtfsIndex::_ParseIndexNode(TWalk& walk, uint64_t vcn, uint32_t depth) {
    const TVolumeGeometry& g = m_Volume->GetVolumeGeometry();
    if (depth > kMaxDepth)
        ThrowCorrupt(walk.Frn, u"index is deeper than %1 levels", util::ToStrU32(kMaxDepth));
    if (vcn >= kMaxVcn) ThrowCorrupt(walk.Frn, u"index child VCN %1 is beyond any index", HexOff(vcn));
    // Child pointers count clusters, or 512-byte units where an index block
    // is shorter than a cluster.
    const uint64_t unit = g.IndexBlockSize >= g.BytesPerCluster ? g.BytesPerCluster : 512;
    const uint64_t offset = vcn * unit;
    const uint64_t blockNumber = offset / g.IndexBlockSize;
    uint8_t bits = 0;
    if (walk.Attributes.Bitmap->Read(blockNumber / 8, &bits, 1) != 1 || !(bits & (1u << (blockNumber & 7)))) return;
    if (!walk.Visited.insert(blockNumber).second)
        ThrowCorrupt(walk.Frn, u"index block at VCN %1 is reached twice: its child pointers form a cycle", HexOff(vcn));

    CBuf<uint8_t> block(g.IndexBlockSize);
    try {
        if (walk.Attributes.Allocation->Read(offset, block.Get(), g.IndexBlockSize) < g.IndexBlockSize)
            throw CExc(u"%1 fail. Can`t read all cluster.", kFnNode);
        _IndexAllocationUpdateSequence(block.Get(), g.IndexBlockSize, walk.Frn);
    } catch (CExc& e) {
        // Says which block of which directory could not be used.
        e.AddContext(u"Index block at VCN %1 of file record FRN=0x%2.", HexOff(vcn), util::Hex16(walk.Frn));
        throw;
    }
    const uint64_t begin = kIbEntriesOffset + uint64_t{Le32(block.Get() + kIbEntriesOffset)};
    ParseEntries(
        block.Get(), begin > g.IndexBlockSize ? g.IndexBlockSize + 1 : static_cast<size_t>(begin), g.IndexBlockSize,
        walk.Frn, [&](uint64_t child) { _ParseIndexNode(walk, child, depth + 1); }, *walk.Callback, walk.Context1,
        walk.Context2, kFnNode);
}

void CNtfsIndex::_IndexAllocationUpdateSequence(uint8_t* block, size_t size, uint64_t frn) {
    if (size < kIbUsaOffset || std::memcmp(block, "INDX", 4) != 0)
        throw CExc(u"%1 fail. INVALID INDEX_ALLOCATION_BUFFER signature!", kFnUpdate);
    const TFixupResult fix = ApplyFixups(block, size, kIbUsaOffset, Le16(block + kIbUsaCount));
    if (fix.Status == TFixupResult::OutOfBounds)
        ThrowCorrupt(frn, u"the update sequence array of an index block (%1 elements) lies outside the block",
                     util::ToStrU32(Le16(block + kIbUsaCount)));
    if (fix.Status == TFixupResult::Mismatch) {
        GetLog().Write(LogError,
                       u"%1 fail. INDEX_ALLOCATION_BUFFER corrupted. Sequence numbers of sector #%2 with "
                       u"seqN=0x%3. It`s not equal 0x%4",
                       kFnUpdate, util::ToStrU32(fix.Sector), HexDigits(fix.Found, 4), HexDigits(fix.Expected, 4));
        throw CExc(u"%1 fail. INDEX_ALLOCATION_BUFFER corrupted.", kFnUpdate);
    }
}

uint8_t CNtfsIndex::_FindFileNameCallback(const TIndexEntryView& entry, uint64_t context1, uint64_t context2) {
    const std::u16string_view& name = *reinterpret_cast<const std::u16string_view*>(context1);
    uint64_t& out = *reinterpret_cast<uint64_t*>(context2);
    const uint8_t* key = entry.Key();
    if (entry.KeyLength() < kFnName) ThrowCorrupt(entry.Frn, u"$I30 key of %1 bytes is too short", HexOff(entry.KeyLength()));
    const size_t length = key[kFnNameLength];
    if ((entry.KeyLength() - kFnName) / 2 < length)
        ThrowCorrupt(entry.Frn, u"$I30 key name of %1 characters passes its key", util::ToStrU64(length));
    if (length != name.size()) return 1;
    char16_t onDisk[256];  // a name length is one byte
    for (size_t i = 0; i < length; ++i) onDisk[i] = static_cast<char16_t>(Le16(key + kFnName + 2 * i));
    if (!IsEqualNames(name, onDisk, length)) return 1;
    out = entry.FileReference() & kFrnMask;
    return 0;
}

uint64_t CNtfsIndex::FindFileInDirectory(const uint8_t* record, uint64_t frn, std::u16string_view name) {
    uint64_t out = 0;
    ParseIndexFileRecord_Process(record, frn, u"$I30", _FindFileNameCallback,
                                 reinterpret_cast<uint64_t>(&name), reinterpret_cast<uint64_t>(&out));
    return out;
}

}  // namespace indexer::fast_ntfs_indexer
