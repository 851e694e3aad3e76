// Arbitrary bytes as a file record (and their first 512 bytes as a boot
// sector): the fix-ups, the attribute walk and every decoder the main loop
// applies to a record must end with a CExc or a result, never a crash.
#include <cstdint>
#include <vector>

#include "ntfs/attribute_content.h"
#include "ntfs/ntfs_attributes.h"
#include "ntfs/ntfs_volume.h"

using namespace indexer::fast_ntfs_indexer;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size >= 512) {
        try {
            TVolumeGeometry g;
            uint64_t volumeSize;
            ParseBootSector(data, g, volumeSize);
        } catch (const CExc&) {
        }
    }
    // A record of 1024 bytes, or of the input's size when that is a size a
    // boot sector allows.
    const size_t recordSize = size >= kMinRecordSize && size <= 4096 && (size % 512) == 0 ? size : 1024;
    std::vector<uint8_t> record(recordSize, 0);
    std::copy(data, data + std::min(size, recordSize), record.begin());
    ApplyFixups(record.data(), record.size(), Le16(record.data() + kRecUsaOffset), Le16(record.data() + kRecUsaCount));

    // A volume that was never opened: the decoders below use only its
    // geometry (all zero), and nothing here reads through it.
    CNtfsVolume volume;
    CNtfsAttributes attributes(&volume);
    CAttributeContent content(&volume, 1, u"");
    try {
        TFileNamePropsList names;
        std::vector<uint64_t> extensions;
        uint64_t dataSize = 0;
        ForEachAttribute(record.data(), record.size(), 1, kNoLimit, [&](const CAttrHeader& a) {
            uint32_t id;
            uint64_t time;
            try {
                switch (a.Type()) {
                    case kAttrStandardInformation:
                        attributes.GetSecurityId(a, id);
                        attributes.GetLastWriteTime(a, time);
                        break;
                    case kAttrFileName:
                        if (!a.IsNonResident()) attributes.GetFileNameProps(a, names);
                        break;
                    case kAttrAttributeList:
                        if (!a.IsNonResident()) volume._ProcessAttributeList(1, a, extensions);
                        break;
                    case kAttrData:
                        attributes.GetUnnamedDataSize(a, dataSize);
                        content.ParseAttribute(a);
                        break;
                    default: {
                        a.Name();
                        if (a.IsNonResident()) {
                            TBlockVector blocks;
                            DecodeRunList(a, 4096, blocks);
                            SortBlocks(blocks);
                            const TBlockDescription* b;
                            FindBlockByVcn(blocks, a.LowestVcn(), b);
                        }
                    }
                }
            } catch (const CExc&) {
            }
            return true;
        });
        if (content.GetState() == Resident && content.GetSize()) {
            uint8_t byte;
            content.Read(content.GetSize() - 1, &byte, 1);
        }
    } catch (const CExc&) {
    }
    return 0;
}
