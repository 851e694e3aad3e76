#pragma once
// Tests only: builds file records, attributes and index nodes byte by byte,
// for the unit tests and the fuzz seeds.

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace ngitest::ntfs {

using TBytes = std::vector<uint8_t>;

inline void Put16(TBytes& b, size_t at, uint16_t v) {
    if (b.size() < at + 2) b.resize(at + 2);
    b[at] = static_cast<uint8_t>(v);
    b[at + 1] = static_cast<uint8_t>(v >> 8);
}
inline void Put32(TBytes& b, size_t at, uint32_t v) {
    Put16(b, at, static_cast<uint16_t>(v));
    Put16(b, at + 2, static_cast<uint16_t>(v >> 16));
}
inline void Put64(TBytes& b, size_t at, uint64_t v) {
    Put32(b, at, static_cast<uint32_t>(v));
    Put32(b, at + 4, static_cast<uint32_t>(v >> 32));
}

// The parts one after another.
inline TBytes Cat(const std::vector<TBytes>& parts) {
    TBytes all;
    for (const TBytes& p : parts) all.insert(all.end(), p.begin(), p.end());
    return all;
}

// A boot sector: the geometry bytes and the $MFT's first cluster.
inline TBytes BootSector(uint16_t bytesPerSector, uint8_t sectorsPerCluster, uint8_t recordByte, uint8_t indexByte,
                         uint64_t totalSectors, uint64_t mftLcn) {
    TBytes s(512, 0);
    std::copy_n("NTFS    ", 8, s.begin() + 3);
    Put16(s, 0x0B, bytesPerSector);
    s[0x0D] = sectorsPerCluster;
    Put64(s, 0x28, totalSectors);
    Put64(s, 0x30, mftLcn);
    s[0x40] = recordByte;
    s[0x44] = indexByte;
    s[510] = 0x55;
    s[511] = 0xAA;
    return s;
}

// A resident attribute: header (name right behind it), then the value, the
// whole padded to 8 bytes.
inline TBytes ResidentAttr(uint32_t type, const TBytes& value, std::u16string name = {}, uint16_t instance = 0) {
    TBytes a(0x18);
    const size_t nameOffset = 0x18;
    const size_t valueOffset = (nameOffset + name.size() * 2 + 7) & ~size_t{7};
    Put32(a, 0, type);
    a[8] = 0;
    a[9] = static_cast<uint8_t>(name.size());
    Put16(a, 0x0A, static_cast<uint16_t>(nameOffset));
    Put16(a, 0x0E, instance);
    Put32(a, 0x10, static_cast<uint32_t>(value.size()));
    Put16(a, 0x14, static_cast<uint16_t>(valueOffset));
    for (size_t i = 0; i < name.size(); ++i) Put16(a, nameOffset + 2 * i, name[i]);
    a.resize(valueOffset);
    a.insert(a.end(), value.begin(), value.end());
    a.resize((a.size() + 7) & ~size_t{7});
    Put32(a, 4, static_cast<uint32_t>(a.size()));
    return a;
}

// A non-resident attribute with the given mapping pairs.
inline TBytes NonResidentAttr(uint32_t type, const TBytes& runs, uint64_t lowestVcn, uint64_t allocated,
                              uint64_t fileSize, uint64_t validLength, std::u16string name = {},
                              uint16_t instance = 0) {
    TBytes a(0x40);
    const size_t nameOffset = 0x40;
    const size_t runsOffset = (nameOffset + name.size() * 2 + 7) & ~size_t{7};
    Put32(a, 0, type);
    a[8] = 1;
    a[9] = static_cast<uint8_t>(name.size());
    Put16(a, 0x0A, static_cast<uint16_t>(nameOffset));
    Put16(a, 0x0E, instance);
    Put64(a, 0x10, lowestVcn);
    Put16(a, 0x20, static_cast<uint16_t>(runsOffset));
    Put64(a, 0x28, allocated);
    Put64(a, 0x30, fileSize);
    Put64(a, 0x38, validLength);
    for (size_t i = 0; i < name.size(); ++i) Put16(a, nameOffset + 2 * i, name[i]);
    a.resize(runsOffset);
    a.insert(a.end(), runs.begin(), runs.end());
    a.push_back(0);
    a.resize((a.size() + 7) & ~size_t{7});
    Put32(a, 4, static_cast<uint32_t>(a.size()));
    return a;
}

// A $FILE_NAME value.
inline TBytes FileNameValue(uint64_t parent, const std::u16string& name, uint8_t nameSpace) {
    TBytes v(0x42 + name.size() * 2);
    Put64(v, 0, parent);
    v[0x40] = static_cast<uint8_t>(name.size());
    v[0x41] = nameSpace;
    for (size_t i = 0; i < name.size(); ++i) Put16(v, 0x42 + 2 * i, name[i]);
    return v;
}

// One $ATTRIBUTE_LIST entry.
inline TBytes ListEntry(uint32_t type, uint64_t record, const std::u16string& name = {}, uint64_t vcn = 0,
                       uint16_t instance = 0) {
    TBytes e((0x1A + 2 * name.size() + 7) & ~size_t{7}, 0);
    Put32(e, 0, type);
    Put16(e, 4, static_cast<uint16_t>(e.size()));
    e[6] = static_cast<uint8_t>(name.size());
    e[7] = 0x1A;
    Put64(e, 8, vcn);
    Put64(e, 0x10, record);
    Put16(e, 0x18, instance);
    for (size_t i = 0; i < name.size(); ++i) Put16(e, 0x1A + 2 * i, name[i]);
    return e;
}

// A file record of `size` bytes with the attributes in order and the end
// marker; an update sequence array of size / 512 + 1 elements (check word
// 0x0001) already applied, as on disk.
inline TBytes FileRecord(const std::vector<TBytes>& attributes, uint32_t size = 1024, uint16_t flags = 1) {
    TBytes r(size, 0);
    r[0] = 'F', r[1] = 'I', r[2] = 'L', r[3] = 'E';
    const uint16_t count = static_cast<uint16_t>(size / 512 + 1);
    Put16(r, 4, 0x30);
    Put16(r, 6, count);
    const size_t first = (0x30 + 2 * count + 7) & ~size_t{7};
    Put16(r, 0x14, static_cast<uint16_t>(first));
    Put16(r, 0x16, flags);
    size_t at = first;
    for (const TBytes& a : attributes) {
        if (at + a.size() + 8 > size) throw std::length_error("the attributes do not fit the record");
        std::copy(a.begin(), a.end(), r.begin() + static_cast<std::ptrdiff_t>(at));
        at += a.size();
    }
    Put32(r, at, 0xFFFFFFFF);
    Put32(r, 0x18, static_cast<uint32_t>(at + 8));
    Put32(r, 0x1C, size);
    // Fix-ups: the array holds the real last words; the sectors end in 0x0001.
    Put16(r, 0x30, 0x0001);
    for (uint16_t i = 1; i < count; ++i) {
        const size_t place = i * 512 - 2;
        r[0x30 + 2 * i] = r[place];
        r[0x30 + 2 * i + 1] = r[place + 1];
        Put16(r, place, 0x0001);
    }
    return r;
}

// One index entry: reference, key, flags; the child VCN when given.
inline TBytes IndexEntry(uint64_t reference, const TBytes& key, uint16_t flags, uint64_t childVcn = 0) {
    size_t length = (0x10 + key.size() + 7) & ~size_t{7};
    if (flags & 1) length += 8;
    TBytes e(length, 0);
    Put64(e, 0, reference);
    Put16(e, 8, static_cast<uint16_t>(length));
    Put16(e, 0x0A, static_cast<uint16_t>(key.size()));
    Put16(e, 0x0C, flags);
    std::copy(key.begin(), key.end(), e.begin() + 0x10);
    if (flags & 1) Put64(e, length - 8, childVcn);
    return e;
}

// An $INDEX_ROOT value: the entries and the last entry behind them, keys of
// attribute type `keyType` (0x30 for $I30, 0 for a view index).
inline TBytes IndexRootValue(const std::vector<TBytes>& entries, uint32_t keyType = 0) {
    TBytes v(0x20, 0);
    Put32(v, 0, keyType);
    Put32(v, 4, keyType ? 1 : 0);  // collation: file names
    Put32(v, 8, 4096);
    v[12] = 1;
    for (const TBytes& e : entries) v.insert(v.end(), e.begin(), e.end());
    const TBytes last = IndexEntry(0, {}, 2);
    v.insert(v.end(), last.begin(), last.end());
    Put32(v, 0x10, 0x10);
    Put32(v, 0x14, static_cast<uint32_t>(v.size() - 0x10));
    Put32(v, 0x18, static_cast<uint32_t>(v.size() - 0x10));
    return v;
}

}  // namespace ngitest::ntfs
