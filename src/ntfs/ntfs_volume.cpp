#include "ntfs/ntfs_volume.h"

#include <algorithm>
#include <cstring>

#include "base/format.h"
#include "diag/log.h"
#include "ntfs/mft_read_plan.h"
#include "platform/errors.h"
#include "platform/volume_io.h"

namespace indexer::fast_ntfs_indexer {

namespace {

constexpr std::u16string_view kFnReadMft = u"indexer::fast_ntfs_indexer::CNtfsVolume::_ReadMFTFileRecord";
constexpr std::u16string_view kFnFirstRecord = u"indexer::fast_ntfs_indexer::CNtfsVolume::_ProcessFirstMFTRecord";
constexpr std::u16string_view kFnMftData = u"indexer::fast_ntfs_indexer::CNtfsVolume::_ProcessAttributeMftData";
constexpr std::u16string_view kFnWithoutExist =
    u"indexer::fast_ntfs_indexer::CNtfsVolume::GetFileRecordWithoutExistTest";
constexpr std::u16string_view kFnGetRecord = u"indexer::fast_ntfs_indexer::CNtfsVolume::GetFileRecord";

constexpr uint32_t kBootSectorSize = 512;
constexpr uint32_t kCacheBlockShift = 18;
constexpr uint64_t kMaxMftLcn = uint64_t{1} << 40;

// Record and index block sizes from their signed byte: above 0 a count of
// clusters, else 2 to the power of its magnitude.
uint64_t SizeFromClustersByte(uint8_t raw, uint64_t bytesPerCluster) {
    const int8_t value = static_cast<int8_t>(raw);
    if (value > 0) return bytesPerCluster * static_cast<uint64_t>(value);
    const int magnitude = -static_cast<int>(value);
    return magnitude < 63 ? uint64_t{1} << magnitude : 0;
}

void CheckBlockSize(uint64_t size, std::u16string_view what, uint8_t raw) {
    if (size < kMinRecordSize || size > kMaxRecordSize)
        throw CExc(u"Boot sector: the %1 size %2 (byte 0x%3) is not usable.", what, util::ToStrU64(size),
                   HexDigits(raw, 2));
}

}  // namespace

void ParseBootSector(const uint8_t* sector, TVolumeGeometry& geometry, uint64_t& volumeSize) {
    TVolumeGeometry g;
    g.BytesPerSector = Le16(sector + 0x0B);
    const uint8_t spcRaw = sector[0x0D];
    const int8_t spcSigned = static_cast<int8_t>(spcRaw);
    uint64_t sectorsPerCluster = spcRaw;
    if (spcSigned < 0 && spcSigned != -128) {
        const int magnitude = -static_cast<int>(spcSigned);
        sectorsPerCluster = magnitude < 32 ? uint64_t{1} << magnitude : 0;
    }
    const uint64_t bytesPerCluster = uint64_t{g.BytesPerSector} * sectorsPerCluster;
    if (bytesPerCluster == 0 || bytesPerCluster > kMaxBytesPerCluster)
        throw CExc(u"Boot sector: %1 bytes per sector and sectors-per-cluster byte 0x%2 give no usable cluster size.",
                   util::ToStrU32(g.BytesPerSector), HexDigits(spcRaw, 2));
    g.BytesPerCluster = static_cast<uint32_t>(bytesPerCluster);

    const uint64_t mftLcn = Le64(sector + 0x30);
    if (mftLcn >= kMaxMftLcn)
        throw CExc(u"Boot sector: the $MFT cluster number 0x%1 is beyond any volume.", HexDigits(mftLcn, 16));
    g.MftOffset = mftLcn * bytesPerCluster;

    const uint64_t recordSize = SizeFromClustersByte(sector[0x40], bytesPerCluster);
    CheckBlockSize(recordSize, u"file record", sector[0x40]);
    g.FileRecordSize = static_cast<uint32_t>(recordSize);
    const uint64_t indexSize = SizeFromClustersByte(sector[0x44], bytesPerCluster);
    CheckBlockSize(indexSize, u"index block", sector[0x44]);
    g.IndexBlockSize = static_cast<uint32_t>(indexSize);

    uint64_t size = 0;
    if (__builtin_mul_overflow(Le64(sector + 0x28), uint64_t{g.BytesPerSector}, &size))
        throw CExc(u"Boot sector: the volume size passes 64 bits.");
    geometry = g;
    volumeSize = size;
}

uint64_t CNtfsVolume::InitMftInfo(platform::NativeHandle volume, uint32_t sectorSize) {
    CLogBlock block(GetLog(), u"Mft info initialize");
    m_Cache.SetCacheProps(kCacheBlockShift, 32);
    const uint32_t alignment = platform::GetReadAlignment(volume);
    m_Cache.SetReadAlignment(alignment != 0 ? alignment : sectorSize);
    m_Cache.OpenForReadByHandle(volume);
    m_Handle = volume;
    m_FileRecordCount = 0;
    m_MftDataSize = ~uint64_t{0};
    _ReadBootSector();
    m_Cache.SetReadMaxLimit(m_VolumeSize);
    _ProcessFirstMFTRecord();
    block.Complete();
    return m_FileRecordCount;
}

void CNtfsVolume::_ReadExact(uint64_t position, uint8_t* buffer, uint32_t size, std::u16string_view what) {
    const uint32_t done = m_Cache.ReadRandomly(position, buffer, size);
    if (done != size)
        throw CExc(FormatMessageArgs(u"Reading %1: only %2 of %3 bytes at volume offset 0x%4 could be read.",
                                     {what, util::ToStrU32(done), util::ToStrU32(size), util::Hex16(position)}));
}

void CNtfsVolume::_ReadBootSector() {
    uint8_t sector[kBootSectorSize];
    _ReadExact(0, sector, kBootSectorSize, u"the boot sector");
    ParseBootSector(sector, m_Geometry, m_VolumeSize);
    CLog& log = GetLog();
    log.Detail(u"BytesPerSector = 0x%1", HexDigits(m_Geometry.BytesPerSector, 4));
    log.Detail(u"SectorsPerCluster = 0x%1",
               HexDigits(m_Geometry.BytesPerCluster / m_Geometry.BytesPerSector, 8));
    log.Detail(u"    mtf offset      = 0x%1", HexDigits(m_Geometry.MftOffset, 16));
    log.Detail(u"    mtf record size = 0x%1", HexDigits(m_Geometry.FileRecordSize, 8));
    log.Detail(u"    mtf index size  = 0x%1", HexDigits(m_Geometry.IndexBlockSize, 8));
    log.Detail(u"    total size      = 0x%1", HexDigits(m_VolumeSize, 16));
}

void CNtfsVolume::_ReadMFTFileRecord(uint8_t* buffer) {
    const uint32_t size = m_Geometry.FileRecordSize;
    _ReadExact(m_Geometry.MftOffset, buffer, size, u"$MFT record 0");
    if (std::memcmp(buffer, "FILE", 4) != 0)
        throw CExc(u"%1 fail. INVALID MFT FILE RECORD signature!", kFnReadMft);
    const TFixupResult fix = ApplyFixups(buffer, size, Le16(buffer + kRecUsaOffset), Le16(buffer + kRecUsaCount));
    if (fix.Status == TFixupResult::OutOfBounds)
        ThrowCorrupt(0, u"the update sequence array (offset %1, %2 elements) lies outside the record",
                     HexOff(Le16(buffer + kRecUsaOffset)), util::ToStrU32(Le16(buffer + kRecUsaCount)));
    if (fix.Status == TFixupResult::Mismatch)
        throw CExc(u"Fail FILE RECORD! Sequence numbers of sector #%1 with seqN=%2. It`s not equal to %3\n",
                   util::ToStrU32(fix.Sector), HexDigits(fix.Found), HexDigits(fix.Expected));
}

void CNtfsVolume::_ProcessFirstMFTRecord() {
    std::vector<uint64_t> extensions;
    TBlockVector bitmapBlocks;
    const uint32_t size = m_Geometry.FileRecordSize;
    CBuf<uint8_t> record(size);
    _ReadMFTFileRecord(record.Get());
    const uint32_t bytesInUse = Le32(record.Get() + kRecBytesInUse);
    ForEachAttribute(record.Get(), size, 0, bytesInUse, [&](const CAttrHeader& attr) {
        switch (attr.Type()) {
            case kAttrAttributeList: _ProcessAttributeList(0, attr, extensions); break;
            case kAttrData: _ProcessAttributeMftData(attr); break;
            case kAttrBitmap: _ProcessAttributeMftBitmap(attr, bitmapBlocks); break;
            default: break;
        }
        return true;
    });

    if (!extensions.empty()) {
        CBuf<uint8_t> extension(size);
        for (uint64_t frn : extensions) {
            if (!GetFileRecordWithoutExistTest(frn, extension.Get()))
                throw CExc(u"%1. FileRecordCorrupted. FRN=0x%2", kFnFirstRecord, util::Hex16(frn));
            ForEachAttribute(extension.Get(), size, frn, kNoLimit, [&](const CAttrHeader& attr) {
                if (attr.Type() == kAttrData) _ProcessAttributeMftData(attr);
                else if (attr.Type() == kAttrBitmap) _ProcessAttributeMftBitmap(attr, bitmapBlocks);
                return true;
            });
        }
    }
    CLog& log = GetLog();
    log.Detail(u"$MFT $DATA block descriptions length %1 records", util::ToStrU64(m_MftBlocks.size()));
    log.Detail(u"$MFT $BITMAP block descriptions length %1 records", util::ToStrU64(bitmapBlocks.size()));
    SortBlocks(bitmapBlocks);
    SortBlocks(m_MftBlocks);
    // The runs are allocated ahead of the stream: the records behind the
    // stream's size are no records (whatever stale bytes or bitmap bits the
    // clusters there hold), so the table ends at the size when it ends first.
    m_FileRecordCount = std::min(m_FileRecordCount, m_MftDataSize / m_Geometry.FileRecordSize);

    if (m_Bitmap.Count() == 0) throw CExc(u"%1. $MFT %BITMAP empty!", kFnFirstRecord);
    log.Detail(u"Reading $MFT $BITMAP. Actual $BITMAP size=0x%1, Allocated size=0x%2.",
               util::Hex16(m_cbBitMapActual), util::Hex16(m_Bitmap.Count()));
    m_Bitmap.Zero();
    for (const TBlockDescription& b : bitmapBlocks) {
        const uint64_t at = b.FirstVcn * m_Geometry.BytesPerCluster;
        if (at > m_Bitmap.Count() || m_Bitmap.Count() - at < b.ByteLength)
            ThrowCorrupt(0, u"the $BITMAP runs pass its allocated length %1", HexOff(m_Bitmap.Count()));
        // A sparse run reads as zeros: no record in use there.
        if (!b.Sparse)
            _ReadExact(b.DiskOffset, m_Bitmap.Get() + at, static_cast<uint32_t>(b.ByteLength), u"the $MFT $BITMAP");
    }
}

void CNtfsVolume::_ProcessAttributeMftData(const CAttrHeader& attr) {
    const uint8_t flag = attr.NonResidentFlag();
    if (flag == 0) throw CWin32Exc(u"%1 fail. RESIDENT_FORM for $MFT.", kFnMftData);
    if (flag != 1) return;
    // The first extent holds the stream's size; later extents only add runs.
    if (attr.LowestVcn() == 0) m_MftDataSize = attr.FileSize();
    const uint64_t vcn = DecodeRunList(attr, m_Geometry.BytesPerCluster, m_MftBlocks);
    m_FileRecordCount = vcn * m_Geometry.BytesPerCluster / m_Geometry.FileRecordSize;
}

void CNtfsVolume::_ProcessAttributeMftBitmap(const CAttrHeader& attr, TBlockVector& blocks) {
    const uint8_t flag = attr.NonResidentFlag();
    if (flag == 0) {
        GetLog().Error(u"$MFT $BITMAP RESIDENT_FORM");
        throw CExc(u"$MFT $BITMAP RESIDENT_FORM parse not implemented!");
    }
    if (flag != 1) return;
    if (attr.LowestVcn() == 0) {
        // One bit a record: a bitmap far larger than the volume has records
        // is corrupt, and allocating it could exhaust memory. Windows
        // allocates the bitmap ahead (8 KiB on tiny volumes, a whole cluster): slack.
        const uint64_t allocated = attr.AllocatedLength();
        const uint64_t most =
            m_VolumeSize / m_Geometry.FileRecordSize / 8 + 2 * uint64_t{m_Geometry.BytesPerCluster} + (uint64_t{1} << 20);
        if (allocated > most)
            ThrowCorrupt(0, u"the $BITMAP's allocated length %1 is larger than the volume allows (%2)",
                         HexOff(allocated), HexOff(most));
        m_cbBitMapActual = attr.FileSize();
        m_Bitmap.Allocate(static_cast<size_t>(allocated));
    }
    DecodeRunList(attr, m_Geometry.BytesPerCluster, blocks);
}

bool CNtfsVolume::_ReadMftBytes(uint64_t offset, uint8_t* buffer, uint32_t size) {
    const uint32_t cluster = m_Geometry.BytesPerCluster;
    while (size) {
        const TBlockDescription* block = nullptr;
        if (!FindBlockByVcn(m_MftBlocks, offset / cluster, block)) return false;
        const uint64_t inBlock = offset - block->FirstVcn * cluster;
        if (inBlock >= block->ByteLength)  // a run shorter than its VCNs say: no progress to make
            ThrowCorrupt(0, u"the $MFT run at VCN %1 ends before its last VCN", HexOff(block->FirstVcn));
        const uint32_t n = static_cast<uint32_t>(std::min<uint64_t>(block->ByteLength - inBlock, size));
        if (block->Sparse) std::memset(buffer, 0, n);
        else _ReadExact(block->DiskOffset + inBlock, buffer, n, u"a $MFT file record");
        offset += n;
        buffer += n;
        size -= n;
    }
    return true;
}

int CNtfsVolume::GetFileRecordWithoutExistTest(uint64_t fileRef, uint8_t* buffer) {
    const uint32_t size = m_Geometry.FileRecordSize;
    // Records past the last run are not in the table; the test also keeps
    // fileRef * size inside 64 bits.
    if (fileRef >= m_FileRecordCount) return 0;
    if (!_ReadMftBytes(fileRef * size, buffer, size)) return 0;
    if (std::memcmp(buffer, "FILE", 4) != 0) {
        GetLog().Error(u"%1 fail. MFT FILE RECORD signature INVALID. FRN=0x%2", kFnWithoutExist,
                       util::Hex16(fileRef));
        return 0;
    }
    const TFixupResult fix = ApplyFixups(buffer, size, Le16(buffer + kRecUsaOffset), Le16(buffer + kRecUsaCount));
    if (fix.Status == TFixupResult::OutOfBounds) {
        GetLog().Error(u"%1 fail. Update sequence array of FRN=0x%2 lies outside the record.", kFnWithoutExist,
                       util::Hex16(fileRef));
        return 0;
    }
    // A mismatch leaves the record fixed up to that sector, and it is still
    // delivered: the lenient form of the file record path.
    return 1;
}

uint64_t CNtfsVolume::GetFileRecord(uint64_t fileRef, uint8_t* buffer, int mustExist, uint64_t* unreadable) {
    // Bits past the end of the buffer, or past the bitmap's real size plus
    // the one byte the comparison lets through, read as clear.
    const uint64_t bitBytes = m_cbBitMapActual < m_Bitmap.Count() ? m_cbBitMapActual + 1 : m_Bitmap.Count();
    for (;;) {
        const uint64_t byteIndex = fileRef / 8;
        if (byteIndex >= bitBytes) {
            if (byteIndex > m_cbBitMapActual)
                GetLog().Error(u"%1 fail! FRN=0x%2 too big! inxBitByte=0x%3, cbBitMapActual=0x%4.", kFnGetRecord,
                               util::Hex16(fileRef), util::Hex16(byteIndex), HexDigits(m_cbBitMapActual));
            if (mustExist)
                throw CExc(u"%1 fail. FileRecord=0x%2 is not actual.", kFnGetRecord, util::Hex16(fileRef));
            // Every further bit is clear as well: the scan ends here rather
            // than stepping (and logging) record by record to the count.
            return std::max(fileRef + 1, m_FileRecordCount);
        }
        // Past the table there is no record, whatever bit the bitmap's
        // allocated tail holds.
        if (fileRef >= m_FileRecordCount) {
            if (mustExist)
                throw CExc(u"%1 fail. FileRecord=0x%2 is not actual.", kFnGetRecord, util::Hex16(fileRef));
            return m_FileRecordCount;
        }
        const uint8_t bits = m_Bitmap[byteIndex];
        if (bits & (1u << (fileRef & 7))) break;
        if (mustExist)
            throw CExc(u"%1 fail. FileRecord=0x%2 is not actual.", kFnGetRecord, util::Hex16(fileRef));
        // A whole clear byte is passed in one step.
        if (bits == 0 && (fileRef & 7) == 0 && fileRef + 8 <= m_FileRecordCount) fileRef += 8;
        else ++fileRef;
    }
    if (GetFileRecordWithoutExistTest(fileRef, buffer)) return fileRef;
    GetLog().Error(u"%1 fail! FileRecord not found by FileReference! FileReferenceNumber=0x%2", kFnGetRecord,
                   util::Hex16(fileRef));
    if (mustExist)
        throw CExc(u"%1 fail. FileRecord not found by FileReference. FileReferenceNumber=0x%2", kFnGetRecord,
                   util::Hex16(fileRef));
    if (unreadable) *unreadable = fileRef;
    return ~uint64_t{0};
}

bool CNtfsVolume::IsRecordInUse(uint64_t fileRef) const {
    const uint64_t byteIndex = fileRef / 8;
    if (byteIndex >= m_Bitmap.Count() || byteIndex > m_cbBitMapActual) return false;
    return (m_Bitmap[byteIndex] & (1u << (fileRef & 7))) != 0;
}

void CNtfsVolume::StartReadAhead(uint64_t fromRecord, const CBlockReadAhead::TTuning& tuning) {
    if (tuning.depth == 0) return;
    const uint32_t blockSize = uint32_t{1} << kCacheBlockShift;
    const uint32_t alignment = m_Cache.GetReadAlignment();
    // A sector larger than a block's alignment cannot be read into it: the
    // cache's own reads report that.
    if (alignment > write_collector_types::kBlockAlignment) return;
    auto plan = PlanMftBlocks(m_MftBlocks, m_Geometry.BytesPerCluster, m_Geometry.FileRecordSize, fromRecord,
                              m_FileRecordCount, [this](uint64_t r) { return IsRecordInUse(r); }, blockSize,
                              m_VolumeSize);
    m_Cache.SetReadAhead(std::make_unique<CBlockReadAhead>(m_Handle, blockSize, alignment, std::move(plan), tuning));
}

uint64_t CNtfsVolume::ReadNonResidentAttribute(const CAttrHeader& attr, CBuf<uint8_t>& buffer) {
    TBlockVector blocks;
    DecodeRunList(attr, m_Geometry.BytesPerCluster, blocks);
    uint64_t total = 0;
    for (const TBlockDescription& b : blocks) total += b.ByteLength;
    if (total > kMaxNonResidentRead)
        ThrowCorrupt(attr.Frn(), u"the value of the attribute at offset %1 spans %2 bytes, too many to read whole",
                     HexOff(attr.OffsetInRecord()), util::ToStrU64(total));
    buffer.Resize(static_cast<size_t>(total));
    uint64_t at = 0;
    for (const TBlockDescription& b : blocks) {
        _ReadExact(b.DiskOffset, buffer.Get() + at, static_cast<uint32_t>(b.ByteLength), u"a non-resident attribute");
        at += b.ByteLength;
    }
    const uint64_t fileSize = attr.FileSize();
    if (fileSize <= total) return fileSize;
    GetLog().Error(u"    Attribute NONRESIDENT_FORM invalid file size! Nonresident.FileSize=%1, BufCount=%2",
                   util::ToStrU64(fileSize), util::ToStrU64(total));
    throw CExc(u"Attribute NONRESIDENT_FORM invalid file size!");
}

void CNtfsVolume::_ProcessAttributeList(uint64_t baseFileRef, const CAttrHeader& attr,
                                        std::vector<uint64_t>& records) {
    ForEachAttributeListEntry(baseFileRef, attr, [&](const TAttributeListEntry& entry) {
        if (entry.Record != baseFileRef && std::find(records.begin(), records.end(), entry.Record) == records.end())
            records.push_back(entry.Record);
    });
}

void CNtfsVolume::ForEachAttributeListEntry(uint64_t baseFileRef, const CAttrHeader& attr,
                                            const std::function<void(const TAttributeListEntry&)>& fn) {
    CBuf<uint8_t> local;
    const uint8_t* value;
    uint64_t length;
    if (attr.IsNonResident()) {
        length = ReadNonResidentAttribute(attr, local);
        value = local.Get();
    } else {
        value = attr.Value();
        length = attr.ValueLength();
    }
    uint64_t offset = 0;
    while (offset < length) {
        if (length - offset >= 4 && Le32(value + offset + kAlType) == kAttrEnd) break;
        if (length - offset < kAlEntryMinSize)
            ThrowCorrupt(baseFileRef, u"attribute list entry at offset %1 passes the list's end", HexOff(offset));
        const uint16_t entryLength = Le16(value + offset + kAlLength);
        if (entryLength < kAlEntryMinSize)
            ThrowCorrupt(baseFileRef, u"attribute list entry at offset %1 has length %2", HexOff(offset),
                         HexOff(entryLength));
        TAttributeListEntry entry;
        entry.Type = Le32(value + offset + kAlType);
        entry.LowestVcn = Le64(value + offset + kAlLowestVcn);
        entry.Record = Le64(value + offset + kAlReference) & kFrnMask;
        // The instance lies beyond the shortest entry that the walk accepts:
        // an entry too short for it names instance 0.
        if (entryLength >= kAlInstance + 2 && length - offset >= kAlInstance + 2)
            entry.Instance = Le16(value + offset + kAlInstance);
        entry.Offset = offset;
        fn(entry);
        offset += entryLength;
    }
}

}  // namespace indexer::fast_ntfs_indexer
