#pragma once
// indexer::fast_ntfs_indexer::CNtfsVolume: raw, read-only access to the
// master file table of one NTFS volume, without the file system driver.
//
// InitMftInfo reads the boot sector, reads record 0 ($MFT) with its
// extension records to learn where the table lies ($DATA runs) and which
// records are in use ($BITMAP), and from then on GetFileRecord serves single
// file records by number. Every byte is read through one
// CFileWriteCollectorReadCache opened for reading on the caller's handle
// (blocks of 256 KiB, 32 kept, reads limited to the volume's size). On a
// handle that reads whole sectors only (unbuffered), every read is aligned
// to the sector size the platform names (platform::GetReadAlignment).
//
// Nothing on the volume is trusted: a boot sector whose geometry cannot
// work, a record 0 that does not fit its buffer, runs outside the volume or
// an update sequence array outside its record fail with a CExc that says
// what was wrong (the messages of the individual operations are below).
//
// Ownership: the handle belongs to the caller and must outlive the object;
// the object owns its buffers. Not thread-safe: every read changes the
// cache. A failed InitMftInfo leaves the object unusable.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "base/buf.h"
#include "ntfs/ntfs_format.h"
#include "ntfs/run_list.h"
#include "platform/file.h"
#include "store/block_read_ahead.h"
#include "store/write_collector.h"

namespace indexer::fast_ntfs_indexer {

struct TVolumeGeometry {
    uint16_t BytesPerSector = 0;
    uint32_t BytesPerCluster = 0;
    uint64_t MftOffset = 0;       // byte offset of record 0
    uint32_t FileRecordSize = 0;  // bytes
    uint32_t IndexBlockSize = 0;  // bytes
};

// The bounds within which a geometry can be served. Record and index block
// sizes below the minimum cannot hold their headers; larger ones than the
// maximum exist on no volume and would only make buffers huge.
inline constexpr uint32_t kMinRecordSize = 256;
inline constexpr uint32_t kMaxRecordSize = 1u << 16;

// Decodes the boot sector (512 bytes). Sectors per cluster: 0x81..0xFF mean
// 2 to the power of the negated byte, else the byte unsigned (0x80 = 128).
// Clusters per record and per index block: above 0 a cluster count, else 2
// to the power of the negated byte. Fails with a CExc when a value cannot
// work: no bytes per sector, a cluster above kMaxBytesPerCluster, a record
// or index block size outside [kMinRecordSize, kMaxRecordSize], or a product
// that passes 64 bits. The OEM identifier is not looked at.
void ParseBootSector(const uint8_t* sector, TVolumeGeometry& geometry, uint64_t& volumeSize);

class CNtfsVolume {
public:
    CNtfsVolume() = default;
    CNtfsVolume(const CNtfsVolume&) = delete;
    CNtfsVolume& operator=(const CNtfsVolume&) = delete;

    // Reads the boot sector and record 0; returns the number of file records:
    // the $MFT $DATA stream's size in records, or the VCN behind its last run
    // in records when the runs end first. Log block "Mft
    // info initialize". REQUIRES: called once, first.
    // Every read keeps to the handle's sector size (platform::
    // GetReadAlignment), or where the system names none to `sectorSize`
    // (0: no rule).
    uint64_t InitMftInfo(platform::NativeHandle volume, uint32_t sectorSize = 0);

    const TVolumeGeometry& GetVolumeGeometry() const { return m_Geometry; }
    uint64_t GetFileRecordCount() const { return m_FileRecordCount; }
    uint64_t GetVolumeSize() const { return m_VolumeSize; }
    const TBlockVector& GetMftBlocks() const { return m_MftBlocks; }

    // Delivers a record into `buffer` (at least FileRecordSize bytes, owned
    // by the caller) and returns its number.
    // mustExist != 0: record `fileRef` or an exception ("%1 fail. FileRecord=0x%2
    //   is not actual." when its bitmap bit is clear, "%1 fail. FileRecord not
    //   found by FileReference. FileReferenceNumber=0x%2" when unreadable).
    // mustExist == 0: the first record in use at or after `fileRef`; the
    //   record count (buffer untouched) when there is none; all-ones when the
    //   record in use could not be read, its number then in `*unreadable`
    //   (when given), so that the caller goes on after it.
    uint64_t GetFileRecord(uint64_t fileRef, uint8_t* buffer, int mustExist, uint64_t* unreadable = nullptr);

    // True when the $MFT bitmap marks record `fileRef` in use; records past
    // the bitmap are not.
    bool IsRecordInUse(uint64_t fileRef) const;

    // Reads record `fileRef` without looking at the bitmap: 1 when a record
    // with the "FILE" signature now stands in the buffer, with its fix-ups
    // applied up to the first mismatch (lenient); 0 when the record lies
    // outside the table, lacks the signature or its update sequence array
    // lies outside the record.
    int GetFileRecordWithoutExistTest(uint64_t fileRef, uint8_t* buffer);

    // Reads the whole value of a non-resident attribute into `buffer` and
    // returns its file size. Sparse runs are read from disk like others.
    // Fails when the runs pass the volume, hold more than kMaxNonResidentRead
    // bytes, or the file size is larger than the runs.
    uint64_t ReadNonResidentAttribute(const CAttrHeader& attr, CBuf<uint8_t>& buffer);

    // Adds to `records`, each once and in order of first mention, the record
    // numbers other than baseFileRef that an $ATTRIBUTE_LIST names.
    void _ProcessAttributeList(uint64_t baseFileRef, const CAttrHeader& attr,
                               std::vector<uint64_t>& records);

    // One entry of an $ATTRIBUTE_LIST: which attribute, from which VCN, is
    // held by which record under which instance number.
    struct TAttributeListEntry {
        uint32_t Type = 0;
        uint64_t LowestVcn = 0;
        uint64_t Record = 0;  // without the sequence number
        uint16_t Instance = 0;
        uint64_t Offset = 0;  // of the entry in the list, for messages
    };
    // Calls fn for each entry of the list (resident or not) in list order:
    // by type, name and lowest VCN, as NTFS keeps it. Fails as corrupt when
    // an entry passes the list's end or is shorter than an entry can be.
    void ForEachAttributeListEntry(uint64_t baseFileRef, const CAttrHeader& attr,
                                   const std::function<void(const TAttributeListEntry&)>& fn);

    // Reads ahead, from here on, the blocks that hold the records in use
    // from `fromRecord` on (CBlockReadAhead; the cache asks it first), for a
    // scan in ascending order such as the main loop's. A depth of 0 reads
    // nothing ahead. Bytes, errors and log lines stay those of reading
    // without it. StopReadAhead ends it and waits for the reads in flight.
    void StartReadAhead(uint64_t fromRecord, const CBlockReadAhead::TTuning& tuning);
    void StopReadAhead() { m_Cache.SetReadAhead(nullptr); }

    // The volume's byte reader.
    CFileWriteCollectorReadCache& GetCache() { return m_Cache; }

    // The most a non-resident value read whole may hold (attribute lists,
    // names); larger values are read through CAttributeContent.
    static constexpr uint64_t kMaxNonResidentRead = uint64_t{16} << 20;

private:
    void _ReadBootSector();
    void _ReadMFTFileRecord(uint8_t* buffer);
    void _ProcessFirstMFTRecord();
    void _ProcessAttributeMftData(const CAttrHeader& attr);
    void _ProcessAttributeMftBitmap(const CAttrHeader& attr, TBlockVector& blocks);
    // Reads `size` bytes at byte `offset` of the $MFT stream; false when a
    // part of it lies outside the runs.
    bool _ReadMftBytes(uint64_t offset, uint8_t* buffer, uint32_t size);
    // ReadRandomly, failing on a short read.
    void _ReadExact(uint64_t position, uint8_t* buffer, uint32_t size, std::u16string_view what);

    uint64_t m_FileRecordCount = 0;
    uint64_t m_MftDataSize = ~uint64_t{0};  // bytes, from the first $DATA extent
    TVolumeGeometry m_Geometry;
    TBlockVector m_MftBlocks;
    CBuf<uint8_t> m_Bitmap;
    uint64_t m_cbBitMapActual = 0;
    uint64_t m_VolumeSize = 0;
    platform::NativeHandle m_Handle = platform::kInvalidHandle;
    CFileWriteCollectorReadCache m_Cache;
};

}  // namespace indexer::fast_ntfs_indexer
