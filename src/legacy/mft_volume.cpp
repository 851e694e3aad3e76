#include "legacy/mft_volume.h"

#include <algorithm>
#include <cstring>

#include "base/buf.h"
#include "ntfs/ntfs_volume.h"
#include "platform/errors.h"

namespace mftlib {

namespace {

using indexer::fast_ntfs_indexer::CNtfsVolume;

// Seek and read on the handle, shared by both kinds.
class CHandleVolume : public IMftVolume {
public:
    explicit CHandleVolume(platform::NativeHandle volume) : m_Volume(volume) {}
    bool Seek(int64_t position) override {
        return platform::FileSeek(m_Volume, position, nullptr, platform::kFileBegin);
    }
    bool Read(uint8_t* buffer, uint32_t size, uint32_t& done) override {
        return platform::FileRead(m_Volume, buffer, size, &done);
    }

protected:
    platform::NativeHandle m_Volume;
};

// The system's own device controls.
class CControlVolume : public CHandleVolume {
public:
    CControlVolume(platform::NativeHandle volume, const platform::TNtfsVolumeData& data)
        : CHandleVolume(volume), m_Data(data) {}
    bool GetVolumeData(platform::TNtfsVolumeData& data) override {
        data = m_Data;
        return true;
    }
    bool GetFileRecord(uint64_t fileReference, uint8_t* output, uint32_t outputSize,
                       uint32_t& returned) override {
        return platform::GetNtfsFileRecord(m_Volume, fileReference, output, outputSize, returned);
    }

private:
    platform::TNtfsVolumeData m_Data;
};

// The same contracts from the raw reader. Records past the table or clear
// in its bitmap are passed over; a record in use that cannot be read (no
// "FILE", a broken update sequence array) fails with 1392, as the file
// system reports a record it finds corrupt.
class CRawVolume : public CHandleVolume {
public:
    explicit CRawVolume(platform::NativeHandle volume) : CHandleVolume(volume) {
        m_Reader.InitMftInfo(volume);
        const auto& g = m_Reader.GetVolumeGeometry();
        m_Data.BytesPerSector = g.BytesPerSector;
        m_Data.BytesPerCluster = g.BytesPerCluster;
        m_Data.BytesPerFileRecordSegment = g.FileRecordSize;
        m_Data.ClustersPerFileRecordSegment = g.FileRecordSize / g.BytesPerCluster;
        m_Data.NumberSectors = static_cast<int64_t>(m_Reader.GetVolumeSize() / g.BytesPerSector);
        m_Data.TotalClusters = static_cast<int64_t>(m_Reader.GetVolumeSize() / g.BytesPerCluster);
        m_Data.MftStartLcn = static_cast<int64_t>(g.MftOffset / g.BytesPerCluster);
        m_Data.MftValidDataLength = static_cast<int64_t>(m_Reader.GetFileRecordCount() * g.FileRecordSize);
        m_Record.Resize(g.FileRecordSize);
    }
    bool GetVolumeData(platform::TNtfsVolumeData& data) override {
        data = m_Data;
        return true;
    }
    bool GetFileRecord(uint64_t fileReference, uint8_t* output, uint32_t outputSize,
                       uint32_t& returned) override {
        returned = 0;
        const uint32_t size = m_Data.BytesPerFileRecordSegment;
        if (outputSize < platform::kNtfsFileRecordHeaderSize + size) {
            platform::SetLastError(platform::kErrInsufficientBuffer);
            return false;
        }
        const uint64_t count = m_Reader.GetFileRecordCount();
        if (count == 0) {
            platform::SetLastError(platform::kErrInvalidParameter);
            return false;
        }
        uint64_t frn = std::min(fileReference, count - 1);
        while (!m_Reader.IsRecordInUse(frn)) {
            if (frn == 0) {
                platform::SetLastError(platform::kErrInvalidParameter);
                return false;
            }
            --frn;
        }
        if (!m_Reader.GetFileRecordWithoutExistTest(frn, m_Record.Get())) {
            platform::SetLastError(platform::kErrFileCorrupt);
            return false;
        }
        for (int i = 0; i < 8; ++i) output[i] = static_cast<uint8_t>(frn >> (8 * i));
        for (int i = 0; i < 4; ++i) output[8 + i] = static_cast<uint8_t>(size >> (8 * i));
        std::memcpy(output + platform::kNtfsFileRecordHeaderSize, m_Record.Get(), size);
        returned = platform::kNtfsFileRecordHeaderSize + size;
        return true;
    }

private:
    CNtfsVolume m_Reader;
    platform::TNtfsVolumeData m_Data;
    CBuf<uint8_t> m_Record;
};

}  // namespace

std::unique_ptr<IMftVolume> OpenMftVolume(platform::NativeHandle volume) {
    platform::TNtfsVolumeData data;
    if (platform::GetNtfsVolumeData(volume, data)) return std::make_unique<CControlVolume>(volume, data);
    const uint32_t error = platform::GetLastError();
    if (error != platform::kErrInvalidFunction && error != platform::kErrNotSupported) {
        // The system knows the control and refused it: the scanner reports that.
        struct CFailedVolume : CHandleVolume {
            CFailedVolume(platform::NativeHandle h, uint32_t e) : CHandleVolume(h), m_Error(e) {}
            bool GetVolumeData(platform::TNtfsVolumeData&) override {
                platform::SetLastError(m_Error);
                return false;
            }
            bool GetFileRecord(uint64_t, uint8_t*, uint32_t, uint32_t& returned) override {
                returned = 0;
                platform::SetLastError(m_Error);
                return false;
            }
            uint32_t m_Error;
        };
        return std::make_unique<CFailedVolume>(volume, error);
    }
    return std::make_unique<CRawVolume>(volume);
}

}  // namespace mftlib
