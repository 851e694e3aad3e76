#pragma once
// CFfIndexer: the directory-walk indexer. It walks a volume's tree depth
// first with FindFirstFileW / FindNextFileW, applies the volume's
// include/exclude filter tree, and writes directory, file and reparse rows
// through the volume's CIndexBase. It reads no owners: every file row has
// owner 0. Used where the fast NTFS pipeline can't be: no shadow copy,
// another file system, a forced walk or a retry.
//
// Two paths name the tree. The logical path is the volume's mount name
// ("C:", "C:\mnt\data"): messages and reparse points use it (reparse data is
// read from the live volume). The real path is where the tree is read from:
// the shadow copy's name, or the live volume's device name.
//
// Rows: the root directory first (empty name, parent 0, id 0), then in
// pre-order: a directory's row comes before everything below it, and a
// subdirectory is walked as soon as it is met, in the order the system lists
// entries.
//
// Settings (registry, diag/settings.h): IndexerMaxNestedFolders (0: no
// limit) cuts the walk below that many levels with "Cannot index path [%1].
// Path too long" in the log; IndexerSkipReparsePoints lists every link as a
// plain row; IndexerSkipReparsePointUNC (default on) does not follow links
// to UNC paths. The first 32 skipped reparse points of a volume are logged,
// the rest only counted.
//
// Errors: a root that can't be listed at all (missing, not a folder, no
// access) throws CWin32Exc "Cannot list the root folder [%1] of the tree to
// index."; a subfolder that can't be listed keeps its row and no content.
// Any CExc below (a failed write of the CIndexBase, a full disk) ends the
// volume: each folder level adds "Failed to index path [%1]", the top
// "Failed to execute FindFirst/FindNext algorithm for volume [%1]".
// One thread; the indexer holds no lock.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/exc.h"
#include "inputs/inc_exc_node.h"
#include "platform/find.h"
#include "store/index_base.h"
#include "walk/reparse_processor.h"

namespace indexer {

// The nesting limit of the walk: Enter throws CRecursionBreakExc (code
// 0x80004004) with the message when the limit is not 0 and the depth is
// already above it, else counts one level in.
class CRecursionCounter {
public:
    static constexpr int32_t kHrAbort = static_cast<int32_t>(0x80004004);

    CRecursionCounter(uint64_t limit, std::u16string message)
        : m_Limit(limit), m_Message(std::move(message)) {}
    void Enter();
    void Leave() { --m_Depth; }

private:
    uint64_t m_Limit;
    std::u16string m_Message;
    uint64_t m_Depth = 0;
};

// Enters the counter (when there is one) for its scope.
class CRecursionGuard {
public:
    explicit CRecursionGuard(std::shared_ptr<CRecursionCounter> counter);
    ~CRecursionGuard();
    CRecursionGuard(const CRecursionGuard&) = delete;
    CRecursionGuard& operator=(const CRecursionGuard&) = delete;

private:
    std::shared_ptr<CRecursionCounter> m_Counter;
};

// One directory search, closed at destruction.
class CFileFinder {
public:
    // Closes an earlier search and starts one. False when nothing can be
    // listed: quietly for errors 2 and 3, with a logged CWin32Exc "Failed to
    // find file" for any other. Never throws.
    bool FindFirst(std::u16string_view pattern, platform::TFindData& data);
    // The next entry; false at the end (or on any failure). Throws CExc
    // "CFileFinder::FindNext fail. Previous FindFirstFile call was
    // unsuccessful." without an open search.
    bool FindNext(platform::TFindData& data);
    // The Win32 error of the last FindFirst that failed (0 after success).
    uint32_t GetFirstError() const { return m_FirstError; }

private:
    platform::CFindHandle m_Handle;
    uint32_t m_FirstError = 0;
};

class CFfIndexer {
public:
    static constexpr uint32_t kMaxLoggedSkips = 32;

    // Reads the two reparse settings.
    CFfIndexer();

    // Walks the volume `volumePath` from `realPath` into `indexBase` (open,
    // its owner 0 registered), filtered by `filterRoot` (not owned; must
    // outlive the call). Throws as told above.
    void IndexVolumeFF(std::u16string_view volumePath, std::u16string_view realPath,
                       const CIncExcNode* filterRoot, CIndexBase* indexBase);

    // The reparse data of the entry `name` of the folder `logicalPath`, into
    // `info`: true for a symbolic link or mount point. Never throws: a
    // failure (logged unless the entry has vanished) gives false.
    bool CheckReparsePoint(std::u16string_view logicalPath, std::u16string_view name,
                           SReparsePointInfo& info);
    // What the link in `info` means; a followed link is remembered for the
    // loop test of later ones.
    EReparseClass ClassifySymlink(const SReparsePointInfo& info);

    uint64_t GetSkippedReparseCount() const { return m_SkippedReparseCount; }
    // For tests: the settings as if read from the registry.
    void SetSkipReparse(bool skip) { m_SkipReparse = skip; }
    void SetSkipUnc(bool skip) { m_SkipUnc = skip; }
    void SetLogicalVolumePath(std::u16string_view path) { m_LogicalVolumePath = path; }

private:
    void _IndexPath(std::u16string_view name, const std::u16string& logicalPath,
                    const std::u16string& realPath, uint64_t parentId, const CIncExcNode* filterNode,
                    bool isRoot);
    // The rows of a reparse point entry, by what ClassifySymlink makes of it.
    void _AddReparseEntry(const platform::TFindData& entry, const SReparsePointInfo& info,
                          uint32_t flags, const CIncExcNode& node, const std::u16string& logicalPath,
                          uint64_t parentId);
    // A link not followed: a file row or an empty directory row, without
    // a filter test; the first kMaxLoggedSkips of a volume are logged.
    void _AddSkippedEntry(const platform::TFindData& entry, const SReparsePointInfo& info,
                          const std::u16string& logicalPath, uint64_t parentId);
    void _AddFileRow(const platform::TFindData& entry, uint64_t parentId);

    std::vector<SReparsePointInfo> m_FollowedReparsePoints;
    std::u16string m_RealRootPath;
    std::u16string m_LogicalVolumePath;
    const CIncExcNode* m_FilterRoot = nullptr;
    CIndexBase* m_IndexBase = nullptr;
    bool m_SkipReparse = false;
    bool m_SkipUnc = true;
    uint64_t m_SkippedReparseCount = 0;
    std::shared_ptr<CRecursionCounter> m_RecursionCounter;
};

}  // namespace indexer
