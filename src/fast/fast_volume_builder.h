#pragma once
// Tests only: NTFS volumes built byte by byte for the fast pipeline's edge
// cases (records in any order, parent chains of any depth, damaged records).
//
// Layout: 4 KiB clusters, 1 KiB records; $MFT from cluster 16, its $BITMAP
// right behind it. Records from 16 on not placed are free (below 16 an empty
// record in use stands in); record 5 (the root) is always there. Directories
// that the filter must search carry a resident $I30 root of their children.

#include <map>
#include <string>
#include <vector>

#include "ntfs/ntfs_record_builder.h"

namespace ngitest::fast {

using ngitest::ntfs::TBytes;
using namespace ngitest::ntfs;

struct TSynthName {
    uint64_t Parent;
    std::u16string Name;
    uint8_t NameSpace = 1;  // Win32
};

struct TSynthRecord {
    bool Directory = false;
    std::vector<TSynthName> Names;
    uint64_t Size = 0;
    uint64_t Time = 132000000000000000ull;
    uint32_t SecurityId = 0x100;
    bool StandardInformation = true;
    bool BadSignature = false;
    bool Indexed = false;       // a directory with a $I30 root of its children
    std::vector<TBytes> Extra;  // further attributes
};

class CSynthVolume {
public:
    static constexpr size_t kCluster = 4096, kRecord = 1024, kMftCluster = 16;

    explicit CSynthVolume(uint64_t recordCount) : m_Count(recordCount) {
        TSynthRecord root;
        root.Directory = true;
        root.Names = {{5, u".", 3}};
        root.Indexed = true;
        m_Records[5] = root;
    }
    // Record with one name.
    TSynthRecord& Dir(uint64_t frn, uint64_t parent, std::u16string name) {
        TSynthRecord& r = m_Records[frn];
        r.Directory = true;
        r.Names = {{parent, std::move(name)}};
        return r;
    }
    TSynthRecord& File(uint64_t frn, uint64_t parent, std::u16string name, uint64_t size = 10) {
        TSynthRecord& r = m_Records[frn];
        r.Names = {{parent, std::move(name)}};
        r.Size = size;
        return r;
    }

    TBytes Build() const {
        const uint64_t mftBytes = m_Count * kRecord;
        const uint64_t mftClusters = (mftBytes + kCluster - 1) / kCluster;
        const uint64_t bitmapCluster = kMftCluster + mftClusters;
        const uint64_t bitmapBytes = ((m_Count + 63) / 64) * 8;
        const uint64_t bitmapClusters = (bitmapBytes + kCluster - 1) / kCluster;
        const uint64_t clusters = bitmapCluster + bitmapClusters + 1;
        TBytes image = BootSector(512, 8, 0xF6, 1, clusters * 8, kMftCluster);
        image.resize(clusters * kCluster);

        const TBytes record0 = FileRecord(
            {ResidentAttr(0x10, StandardInformation(0, 0x100)),
             NonResidentAttr(0x80, Run(mftClusters, kMftCluster), 0, mftClusters * kCluster, mftBytes, mftBytes),
             NonResidentAttr(0xB0, Run(bitmapClusters, bitmapCluster), 0, bitmapClusters * kCluster, bitmapBytes,
                             bitmapBytes)},
            kRecord, 1);
        auto place = [&](uint64_t frn, const TBytes& record) {
            std::copy(record.begin(), record.end(), image.begin() + static_cast<std::ptrdiff_t>(kMftCluster * kCluster + frn * kRecord));
            image[bitmapCluster * kCluster + frn / 8] |= static_cast<uint8_t>(1u << (frn % 8));
        };
        place(0, record0);
        // The volume's own records are always in use: empty ones stand in
        // for those a test does not give.
        for (uint64_t frn = 1; frn < 16; ++frn)
            if (!m_Records.count(frn)) place(frn, FileRecord({}, kRecord, 1));
        for (const auto& [frn, r] : m_Records) {
            if (frn >= m_Count) continue;
            std::vector<TBytes> attributes;
            if (r.StandardInformation) attributes.push_back(ResidentAttr(0x10, StandardInformation(r.Time, r.SecurityId)));
            for (const TSynthName& n : r.Names)
                attributes.push_back(ResidentAttr(0x30, FileNameValue(n.Parent, n.Name, n.NameSpace)));
            if (!r.Directory)
                attributes.push_back(NonResidentAttr(0x80, {}, 0, 0, r.Size, r.Size));
            else if (r.Indexed)
                attributes.push_back(IndexRoot(frn));
            for (const TBytes& a : r.Extra) attributes.push_back(a);
            TBytes record = FileRecord(attributes, kRecord, r.Directory ? 3 : 1);
            if (r.BadSignature) record[0] = 'B';
            place(frn, record);
        }
        return image;
    }

private:
    static TBytes Run(uint64_t length, uint64_t offset) {
        TBytes run = {0x44};
        for (int i = 0; i < 4; ++i) run.push_back(static_cast<uint8_t>(length >> (8 * i)));
        for (int i = 0; i < 4; ++i) run.push_back(static_cast<uint8_t>(offset >> (8 * i)));
        return run;
    }
    static TBytes StandardInformation(uint64_t time, uint32_t securityId) {
        TBytes v(0x48, 0);
        Put64(v, 0, time);
        Put64(v, 8, time);
        Put32(v, 0x34, securityId);
        return v;
    }
    // A resident $I30 root listing the children (first names only).
    TBytes IndexRoot(uint64_t frn) const {
        std::vector<TBytes> entries;
        size_t bytes = 0;
        for (const auto& [child, r] : m_Records) {
            if (child == frn || child >= m_Count || bytes > 500) continue;  // a root must fit its record
            for (const TSynthName& n : r.Names)
                if (n.Parent == frn) {
                    entries.push_back(IndexEntry(child, FileNameValue(n.Parent, n.Name, n.NameSpace), 0));
                    bytes += entries.back().size();
                }
        }
        return ResidentAttr(0x90, IndexRootValue(entries, 0x30), u"$I30");
    }

    uint64_t m_Count;
    std::map<uint64_t, TSynthRecord> m_Records;
};

// The $SDS stream and $SII root of $Secure: a descriptor for each security
// id, `stride` bytes apart, owned by S-1-5-32-<id>, or by no one (owner
// offset 0, legal).
struct TSecure {
    TBytes Sds, SiiRoot;
};
inline TSecure SecureStreams(const std::vector<std::pair<uint32_t, bool>>& ids, uint32_t stride = 56) {
    TSecure out;
    std::vector<TBytes> entries;
    for (const auto& [id, owned] : ids) {
        const uint32_t offset = static_cast<uint32_t>(out.Sds.size());
        TBytes record(56, 0);
        Put32(record, 4, id);
        Put64(record, 8, offset);
        Put32(record, 16, 56);
        record[20] = 1;             // revision
        Put16(record, 22, 0x8004);  // self-relative, DACL present
        Put32(record, 24, owned ? 20 : 0);
        const uint8_t sid[12] = {1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0};
        std::copy(sid, sid + 12, record.begin() + 40);
        Put32(record, 52, id);
        record.resize(stride, 0);
        out.Sds.insert(out.Sds.end(), record.begin(), record.end());
        TBytes entry(40, 0);  // the $SII entry: key the id, data the descriptor's place
        Put16(entry, 0, 20);
        Put16(entry, 2, 20);
        Put16(entry, 8, 40);
        Put16(entry, 10, 4);
        Put32(entry, 16, id);
        Put32(entry, 24, id);
        Put64(entry, 28, offset);
        Put32(entry, 36, 56);
        entries.push_back(entry);
    }
    if (stride == 56) out.Sds.resize(out.Sds.size() + 16);  // no record may end where the stream ends
    out.SiiRoot = IndexRootValue(entries);
    return out;
}

// $Secure (record 9) with the streams resident; a folder without
// $STANDARD_INFORMATION, so that six descriptors fit the record.
inline void AddSecure(CSynthVolume& volume, const TSecure& secure) {
    TSynthRecord& record = volume.Dir(9, 5, u"$Secure");
    record.StandardInformation = false;
    record.Extra = {ResidentAttr(0x80, secure.Sds, u"$SDS"), ResidentAttr(0x90, secure.SiiRoot, u"$SII")};
}

}  // namespace ngitest::fast
