#pragma once
// mftlib::CScanner: the older reader of a live NTFS volume. The file system
// hands out each file record (IMftVolume, the FSCTL_GET_NTFS_FILE_RECORD
// contract); the scanner makes two descending passes over the records, all
// directories first, then all files, and reports rows to callbacks. It knows
// nothing of tables.
//
// What it reports:
//   - a directory row only when a first file below the directory passes the
//     filter (and the rows of its ancestors before it), root row 0 first;
//   - a file row for each file record (one name: the last $FILE_NAME that is
//     not a DOS name alone), with the full path given to the filter;
//   - an owner row for each new owner SID, asked of the system once per
//     security id on the file's path; owner ids begin at 0;
//   - files below the target of a directory link (junction or directory
//     symbolic link) a second time, under the link, with directory rows
//     made for the link's path as needed.
// Records below 17 are never visited.
//
// Errors: a failed record read, a damaged record structure, or an exception
// from a callback leaves the pass (the caller ends the volume). An attribute
// list or a link that can't be read is logged at Warning for its file and
// the record goes on. Parent chains and attribute walks are bounded, so a
// damaged volume ends in a CExc, never in a loop.
//
// Not thread-safe; one scanner a volume.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/buf.h"
#include "legacy/mft_volume.h"
#include "platform/accounts.h"
#include "platform/file.h"

namespace mftlib {

// What the file callback gets.
struct TScanFileRow {
    uint32_t Attributes = 0;     // $STANDARD_INFORMATION offset 32
    uint64_t CreationTime = 0;   // offset 0
    uint64_t LastAccessTime = 0; // offset 24
    uint64_t MftChangeTime = 0;  // offset 16
    uint64_t LastWriteTime = 0;  // offset 8
    uint32_t OwnerId = 0;
    uint64_t DirRowId = 0;
    uint64_t Size = 0;
    std::u16string Name;
    std::u16string FullPath;
};

struct TScanDirRow {
    std::u16string Name;  // empty for the root
    uint64_t ParentRowId = 0;
    uint64_t Frn = 0;
};

struct TScanOwnerRow {
    std::u16string Sid;
    std::u16string Name;
    std::u16string Domain;
};

// Filled per record by ParseRecordAttributes.
struct TScanFileInfo {
    const uint8_t* StandardInformation = nullptr;  // the value, inside the record buffer
    uint32_t StandardInformationLength = 0;
    uint8_t NameSpace = 0;
    std::u16string Name;
    uint64_t ParentFrn = 0;
    bool IsDirectory = false;
    uint32_t Rank = 0;  // stays 0: each later name replaces the former
    uint64_t Size = 0;
    std::u16string Substitute;
};

// The owner of a path (GetNamedSecurityInfoW) and the account of a SID; the
// machine's by default, fakes in tests.
struct TOwnerSource {
    std::function<bool(std::u16string_view path, std::vector<uint8_t>& sid)> GetOwner;
    platform::IAccounts* Accounts = nullptr;
};
TOwnerSource SystemOwnerSource();

class CScanner {
public:
    using FileCallback = std::function<void(const TScanFileRow&)>;
    using DirCallback = std::function<void(const TScanDirRow&)>;
    using OwnerCallback = std::function<void(const TScanOwnerRow&)>;
    using FilterCallback = std::function<bool(const std::u16string& path)>;

    // Opens the volume of a mount point ("C:\") and reads its volume data.
    // Errors: CWin32Exc "Cannot GetVolumeNameForVolumeMountPoint: [%1].",
    // "Cannot open volume: [%1].", "Cannot get volume info.".
    CScanner(std::u16string_view volumePath, std::u16string pathPrefix);
    // Over a given volume (tests, and any other source of records).
    CScanner(std::unique_ptr<IMftVolume> volume, std::u16string pathPrefix,
             TOwnerSource owners = SystemOwnerSource());
    CScanner(const CScanner&) = delete;
    CScanner& operator=(const CScanner&) = delete;

    void SetFileCallback(FileCallback callback) { m_OnFile = std::move(callback); }
    void SetDirCallback(DirCallback callback) { m_OnDir = std::move(callback); }
    void SetOwnerCallback(OwnerCallback callback) { m_OnOwner = std::move(callback); }
    void SetFilter(FilterCallback filter) { m_Filter = std::move(filter); }

    // REQUIRES: ScanDirectories first, then ScanFiles, once each.
    void ScanDirectories();
    void ScanFiles();

    uint64_t GetHighestRecord() const { return m_HighestRecord; }

private:
    struct TDirEntry {
        std::u16string Name;
        uint64_t ParentFrn = 0;
        uint64_t RowId = 0;
        bool Registered = false;
    };
    struct TLink {
        uint64_t Frn = 0;
        std::u16string Path;    // lower case, ends in "\"
        std::u16string Target;  // lower case, ends in "\"
    };

    void _Init();
    // One descending pass; `visit` gets each base record at or above 17
    // whose directory bit equals `directories`.
    void _Pass(bool directories, const std::function<void(uint64_t, TScanFileInfo&)>& visit);
    // The record at or below `frn` into `buffer`, behind the 12-byte header;
    // returns the number answered and sets `length` to the record's bytes.
    uint64_t _ReadRecord(uint64_t frn, CBuf<uint8_t>& buffer, uint32_t& length);
    bool _IsBaseRecord(const uint8_t* record, uint64_t frn) const;
    void _Progress(uint64_t frn);

    // scanner_records.cpp: the attributes of one record.
    void _ParseRecordAttributes(const uint8_t* record, uint32_t length, TScanFileInfo& info, uint64_t frn);
    void _ProcessAttribute(const uint8_t* record, uint32_t length, uint32_t at, TScanFileInfo& info,
                           uint64_t frn, std::u16string& listError, std::u16string& linkError);
    void _ParseAttributeList(const uint8_t* value, uint32_t length, TScanFileInfo& info, uint64_t frn,
                             std::u16string& linkError);
    // Record `frn` itself into `buffer` (after the 12-byte header); its length.
    uint32_t _ReadExtensionRecord(uint64_t frn, CBuf<uint8_t>& buffer);
    // The value of a non-resident attribute from its runs, into `buffer`
    // (at least realSize bytes).
    void _ReadNonResident(const uint8_t* attribute, uint32_t attributeLength, CBuf<uint8_t>& buffer,
                          uint64_t realSize);
    bool _ReadAligned(uint8_t* target, uint32_t size, uint32_t& done);
    void _ReadReparseSubstitute(const uint8_t* value, uint32_t length, TScanFileInfo& info, uint64_t frn);

    // scanner.cpp: directories, files, owners, links.
    void _RegisterDirectory(uint64_t frn, const TScanFileInfo& info);
    // The directory path of `frn` ("a\b\", from the root down, "" for the
    // root) and the entries on the way not yet registered, root-most first.
    std::u16string _DirectoryPath(uint64_t frn, std::vector<uint64_t>* unregistered);
    void _ProcessFile(uint64_t frn, const TScanFileInfo& info);
    uint32_t _ProcessNewSecuriyId(const std::u16string& path, uint32_t securityId);
    void _ProcessLinks(const TScanFileRow& row);
    uint64_t _TryRegisterBaseDir(uint64_t frn);
    uint64_t _RowIdOf(uint64_t frn) const;
    void _ReportDir(const std::u16string& name, uint64_t parentRowId, uint64_t frn);

    std::unique_ptr<platform::CHandle> m_Handle;
    std::unique_ptr<IMftVolume> m_Volume;
    uint32_t m_RecordBufferSize = 0;
    uint64_t m_HighestRecord = 0;
    uint32_t m_BytesPerCluster = 0;
    std::u16string m_PathPrefix;
    std::unordered_map<uint64_t, TDirEntry> m_Dirs;
    FileCallback m_OnFile;
    DirCallback m_OnDir;
    OwnerCallback m_OnOwner;
    FilterCallback m_Filter;
    TOwnerSource m_Owners;
    uint32_t m_NextOwnerId = 0;
    uint64_t m_DirRowCounter = 0;
    std::unordered_map<uint32_t, uint32_t> m_SecurityIds;
    std::map<std::vector<uint8_t>, uint32_t> m_Sids;
    std::vector<TLink> m_Links;
    std::unordered_map<std::u16string, uint64_t> m_LinkPaths;
    uint32_t m_LastProgressTick = 0;
    CBuf<uint8_t> m_Record;
    CBuf<uint8_t> m_Extension;
    CBuf<uint8_t> m_Aligned;
};

}  // namespace mftlib
