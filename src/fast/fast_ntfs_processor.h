#pragma once
// indexer::fast_ntfs_indexer::CFastNtfsProcessor: turns the file records of
// one NTFS volume into rows of its index base, without ever composing a path.
//
// A row holds its own name and its parent's row number. Records arrive in
// on-disk order (ProcessFileRecord, from record 16 up); a record whose parent
// directory has no TDirInfo yet first pulls that parent, and through it every
// missing ancestor, so each directory is written once, before anything below
// it, root-most first; the root is row 0. The pull is not a recursion over
// the chain: the missing ancestors are found by reading their records
// upwards, then processed from the top down, so a chain as deep as the volume
// allows costs heap, not stack. With IndexerMaxNestedFolders N (not 0) a
// chain that nests more than N + 1 records deep fails with
// CRecursionBreakExc "Path too long".
//
// Phases, in the order CVolumeNTFSIndexer calls them:
//   ParseSecureMetafile, StoreOwners   owners from $Secure ($SII, $SDS)
//   ProcessIncludeExcludeFolders       filter tree names to record numbers
//   BuildReparsePointList              links from $Extend\$Reparse, checked
//                                      against the filter
//   ProcessFileRecord per record       rows
//   ProcessReparsePoints               reparse rows, copies of file rows
//   LogUnknownReparseTags
//
// Include and exclude: a directory's flags (IncExc bits) are decided when it
// is first met, from its parent's flags; only below a NODE parent is the
// filter tree consulted (by record numbers once resolved). Excluded
// directories keep a TDirInfo without a row, so their children inherit the
// decision; files get rows only in INC directories. Metafiles (records below
// 16 but the root) are excluded.
//
// Errors: every failure is a CExc that stops the volume; each record level
// adds "Cannot process file record #N.". Among them: a directory with two
// names (CWin32Exc 1359 "Can`t create hardlink for directory!"), a parent
// chain cycle ("... file already in process in current call stack"), a
// parent that is no directory ("Parent directory frn=%2 is not indexed"),
// a directory with an empty name (after its Error line: no reader of the
// index takes a nameless directory row), an unknown security id, damaged
// records (the NTFS reader's messages).
//
// Ownership: volume, base and filter tree belong to the caller and must
// outlive the object; it owns its directory table. Single-threaded.

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "fast/dir_info_table.h"
#include "fast/owners_table.h"
#include "fast/warning_limit.h"
#include "inputs/inc_exc_node.h"
#include "ntfs/ntfs_attributes.h"
#include "ntfs/ntfs_index.h"
#include "ntfs/ntfs_volume.h"
#include "platform/accounts.h"
#include "platform/volume.h"
#include "store/index_base.h"
#include "walk/ff_indexer.h"

namespace indexer::fast_ntfs_indexer {

inline constexpr uint64_t kRootFrn = 5;
inline constexpr uint64_t kSecureFrn = 9;
inline constexpr uint64_t kExtendFrn = 11;
inline constexpr uint64_t kFirstUserFrn = 16;

struct TReparsePoint {
    bool Included = false;
    uint64_t FRN = 0;
    uint64_t ParentFRN = 0;
    std::u16string FileName;
    uint32_t Tag = 0;
    std::u16string PrintName;
    std::u16string SubstituteName;
    bool IsDirectory = false;
};

// The outside services of the processor, replaceable in tests.
struct TProcessorServices {
    platform::IAccounts* Accounts = &platform::SystemAccounts();
    platform::IVolumes* Volumes = &platform::SystemVolumes();
};

// One entry of $SII: reads the $SDS record it points to through `content`
// and adds the descriptor's owner under the entry's security id. Throws
// "%1 fail. Attribute overflow. ValidDataLength=0x%2" for a record that
// reaches the end of $SDS or beyond, and a CExc for a record too short for
// its owner or whose owner lies outside it. A descriptor without an owner
// (offset 0) maps its security id to owner 0.
uint8_t ParseSII_cb(const TIndexEntryView& entry, CAttributeContent& content, COwnersTable& table);

class CFastNtfsProcessor {
public:
    static constexpr uint32_t kMaxLoggedSkips = 32;
    static constexpr uint32_t kMaxLoggedOwnerFailures = 5;

    // Reads the settings IndexerSkipReparsePoints, IndexerSkipReparsePointUNC,
    // IndexerSkipOwnersParsing and IndexerMaxNestedFolders.
    CFastNtfsProcessor(CNtfsVolume* volume, std::shared_ptr<CNtfsAttributes> attributes,
                       std::shared_ptr<CNtfsIndex> index, CIndexBase* base, CIncExcNode* filterRoot,
                       std::u16string volumeName, TProcessorServices services = {});
    CFastNtfsProcessor(const CFastNtfsProcessor&) = delete;
    CFastNtfsProcessor& operator=(const CFastNtfsProcessor&) = delete;

    // Owners (owners.cpp).
    void ParseSecureMetafile();
    void StoreOwners();
    // Node flags (node_flags.cpp).
    void ProcessIncludeExcludeFolders();
    // Reparse points (reparse_points.cpp).
    void BuildReparsePointList();
    void ProcessReparsePoints();
    void LogUnknownReparseTags();
    // At the volume's end: how many per-record warnings were not written.
    void LogSuppressedWarnings() const { m_RecordWarnings.LogSuppressed(); }

    // One in-use, fixed-up record (FileRecordSize bytes).
    void ProcessFileRecord(uint64_t frn, const uint8_t* record);

    // For tests and the pipeline.
    const CDirInfoTable& GetDirs() const { return m_Dirs; }
    const COwnersTable& GetOwners() const { return m_Owners; }
    const std::vector<TReparsePoint>& GetReparsePoints() const { return m_ReparsePoints; }
    uint64_t GetUnparsedReparseCount() const { return m_UnparsedReparseCount; }
    // Settings, as read by the constructor; tests may change them.
    void SetSkipReparsePoints(bool skip) { m_SkipReparsePoints = skip; }
    void SetSkipReparsePointUNC(bool skip) { m_SkipReparsePointUNC = skip; }
    void SetSkipOwnersParsing(bool skip) { m_SkipOwnersParsing = skip; }

    // Node flags, also used by the reparse stage.
    TDirInfo* _GetDirectoryInfo(uint64_t frn);
    uint32_t _GetNodeFlagForDir(uint64_t parentFrn, uint64_t frn, std::u16string_view name);
    uint32_t _GetNodeFlagForDirByFRN(uint64_t frn);
    bool _IsEntryIncluded(uint64_t parentFrn, std::u16string_view name);

    // Decodes one $REPARSE_POINT: true with the names for a mount point or
    // symbolic link; false (tag reported) for any other tag or when reparse
    // points are skipped.
    bool _ProcessAttributeReparsePoint(const CAttrHeader& attr, std::u16string& printName,
                                       std::u16string& substituteName, uint32_t& tag);
    static bool _IsValidSubstitute(std::u16string_view text);

private:
    // Record processing (fast_ntfs_processor.cpp).
    void __ProcessFileRecord(uint64_t frn, const uint8_t* record);
    void _EnterRecord(uint64_t frn);
    void _LeaveRecord();
    void _ProcessParentRecord(uint64_t frn);
    // The parent of the record's first kept name, or false when the record
    // would give no row (no $STANDARD_INFORMATION or no name).
    bool _PeekParent(uint64_t frn, const uint8_t* record, uint64_t& parentFrn);
    void _ProcessFile(TDirInfo& parent, std::u16string_view name, uint32_t owner, uint64_t lastWriteTime,
                      uint64_t size);
    void _ProcessDirectory(uint64_t frn, TDirInfo& parent, uint64_t parentFrn, std::u16string_view name);
    void _ProcessReparseRecord(uint64_t frn, TDirInfo& parent, uint64_t parentFrn, std::u16string_view name,
                               bool isDirectory);
    void _ProcessRootDirectory();
    void _ProcessMetafile(uint64_t frn);
    bool _IsParentIncluded(uint64_t parentFrn);
    // The entry of `frn`; a new one, owned by `created` until the caller
    // stores it, when there is none.
    TDirInfo* _EntryFor(uint64_t frn, std::unique_ptr<TDirInfo>& created);
    // Adds a row for a directory whose flags say INC or NODE.
    void _AddDirRow(TDirInfo& info, TDirInfo& parent, std::u16string_view name, uint64_t tag);
    uint8_t* _RecordBuffer(CBuf<uint8_t>& buffer);
    void _WarnAboutRecord(std::u16string_view format, uint64_t frn);

    // Node flags.
    void _ResolveFilterNode(uint64_t frn, CIncExcNode& node);

    // Reparse points.
    void _FillReparsePointInfo(const uint8_t* record, TReparsePoint& entry);
    void _CheckReparsePoints();
    bool _CheckReparsePoint(TReparsePoint& entry);
    bool _GetVolumePathNames(const std::u16string& volumeName, std::vector<std::u16string>& paths);
    void _CheckReparsePointIncluded(TReparsePoint& entry);
    bool _IsPathIncluded(std::u16string_view path, bool& included);
    void _ResolveReparsePoint(TReparsePoint& entry, uint8_t* buffer);
    void _FindAndCopyBaseReparseFile(const TReparsePoint& entry, uint64_t targetParentFrn);
    // Counts one given-up reparse point; true while its lines are still logged.
    bool _CountUnparsed();
    // Counts and logs a link that ends the check: the title, then the link.
    void _LogUnparsedLink(std::u16string_view title, const TReparsePoint& entry);

    CNtfsVolume* m_Volume;
    std::shared_ptr<CNtfsAttributes> m_Attributes;
    std::shared_ptr<CNtfsIndex> m_Index;
    CIndexBase* m_Base;
    CIncExcNode* m_FilterRoot;
    bool m_FilterResolved = false;
    CDirInfoTable m_Dirs;
    std::vector<TReparsePoint> m_ReparsePoints;
    COwnersTable m_Owners;
    std::u16string m_VolumeName;
    bool m_Found_TAG_HSM = false, m_Found_TAG_HSM2 = false, m_Found_TAG_SIS = false, m_Found_TAG_WIM = false,
         m_Found_TAG_CSV = false, m_Found_TAG_DFS = false, m_Found_TAG_DFSR = false, m_Found_TAG_DEDUP = false,
         m_Found_TAG_NFS = false;
    bool m_SkipReparsePoints = false;
    bool m_SkipReparsePointUNC = true;
    uint64_t m_UnparsedReparseCount = 0;
    bool m_SkipOwnersParsing = false;
    std::map<uint32_t, uint64_t> m_UnknownTags;
    std::vector<uint64_t> m_RecordsInProcess;
    std::unordered_set<uint64_t> m_InProcess;  // the same records but the first, for the lookup
    std::shared_ptr<CRecursionCounter> m_Counter;
    uint32_t m_PullDepth = 0;
    // The names of the record in process at each level of parent pulls,
    // kept from record to record so that names cost no allocation; a deque,
    // so that a deeper level added never moves a shallower one.
    struct TRecordNames {
        std::vector<TFileNameProps> Items;
        size_t Count = 0;
        void Add(CNtfsAttributes& attributes, const CAttrHeader& attr) {
            if (Count == Items.size()) Items.emplace_back();
            if (attributes._GetFileNamePropsFromAttributeFileName(attr, Items[Count])) ++Count;
        }
    };
    std::deque<TRecordNames> m_NameSlots;
    TProcessorServices m_Services;
    CWarningLimit m_RecordWarnings;
};

}  // namespace indexer::fast_ntfs_indexer
