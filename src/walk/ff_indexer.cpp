#include "walk/ff_indexer.h"

#include "base/format.h"
#include "diag/log.h"
#include "diag/settings.h"
#include "inputs/path_utils.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "platform/volume_io.h"

namespace indexer {

namespace {

constexpr char16_t kBackupPrivilege[] = u"SeBackupPrivilege";

// The node that stands for "no node below the tree's last one": with it the
// flags come from the caller and the tree is not consulted.
const CIncExcNode& NoNode() {
    static const CIncExcNode node(u"", kIncExcInc);
    return node;
}

}  // namespace

void CRecursionCounter::Enter() {
    if (m_Limit != 0 && m_Depth > m_Limit) throw CRecursionBreakExc(m_Message, kHrAbort);
    ++m_Depth;
}

CRecursionGuard::CRecursionGuard(std::shared_ptr<CRecursionCounter> counter)
    : m_Counter(std::move(counter)) {
    if (m_Counter) m_Counter->Enter();
}

CRecursionGuard::~CRecursionGuard() {
    if (m_Counter) m_Counter->Leave();
}

bool CFileFinder::FindFirst(std::u16string_view pattern, platform::TFindData& data) {
    m_Handle = platform::CFindHandle();
    m_Handle = platform::FindFirst(pattern, data);
    if (m_Handle.IsValid()) {
        m_FirstError = 0;
        return true;
    }
    m_FirstError = platform::GetLastError();
    if (m_FirstError != platform::kErrFileNotFound && m_FirstError != platform::kErrPathNotFound)
        GetLog().LogException(CWin32Exc(u"Failed to find file", m_FirstError));
    return false;
}

bool CFileFinder::FindNext(platform::TFindData& data) {
    if (!m_Handle.IsValid())
        throw CExc(u"%1 fail. Previous FindFirstFile call was unsuccessful.", u"CFileFinder::FindNext");
    return platform::FindNext(m_Handle, data);
}

CFfIndexer::CFfIndexer()
    : m_SkipReparse(settings::IsSkipReparsePoints()), m_SkipUnc(settings::IsSkipReparsePointUNC()) {}

void CFfIndexer::IndexVolumeFF(std::u16string_view volumePath, std::u16string_view realPath,
                               const CIncExcNode* filterRoot, CIndexBase* indexBase) {
    try {
        GetLog().Detail(u"Execute FindFirst/FindNext algorithm!");
        GetLog().Detail(u"+++++++++++++++++++++++++++++++++++++++++++++++++++++");
        m_RealRootPath = realPath;
        m_LogicalVolumePath = volumePath;
        m_FilterRoot = filterRoot;
        m_IndexBase = indexBase;
        m_FollowedReparsePoints.clear();
        m_SkippedReparseCount = 0;
        m_RecursionCounter.reset();
        if (const uint32_t limit = settings::GetMaxNestedFolders(); limit != 0) {
            GetLog().Detail(u"Maximum nested path set [%1].", util::ToStrU32(limit));
            m_RecursionCounter = std::make_shared<CRecursionCounter>(limit, u"Path too long");
        }
        if (!platform::EnableProcessPrivilege(kBackupPrivilege))
            throw CWin32Exc(u"Cannot enable the privilege [%1].", kBackupPrivilege);
        uint64_t rootId = 0;
        m_IndexBase->AddDir(u"", 0, &rootId);
        _IndexPath(u".", m_LogicalVolumePath, m_RealRootPath, rootId, m_FilterRoot, true);
    } catch (CExc& e) {
        e.AddContext(u"Failed to execute FindFirst/FindNext algorithm for volume [%1]", realPath);
        throw;
    }
}

void CFfIndexer::_IndexPath(std::u16string_view, const std::u16string& logicalPath,
                            const std::u16string& realPath, uint64_t parentId,
                            const CIncExcNode* filterNode, bool isRoot) {
    try {
        CRecursionGuard guard(m_RecursionCounter);
        const uint32_t flags = filterNode ? filterNode->m_IncExcFlag : kIncExcInc;
        const CIncExcNode& node = filterNode ? *filterNode : NoNode();

        // One block of find data for each open level, as the walk goes deep.
        auto entry = std::make_shared<platform::TFindData>();
        CFileFinder finder;
        if (!finder.FindFirst(realPath + u"\\*", *entry)) {
            // An unreadable subfolder ends quietly with the row it has. The
            // root is different: an index that silently holds nothing
            // would look like an empty volume.
            if (isRoot && finder.GetFirstError() != platform::kErrFileNotFound)
                throw CWin32Exc(u"Cannot list the root folder [%1] of the tree to index.", realPath,
                                finder.GetFirstError());
            return;
        }
        do {
            const platform::TFindData& e = *entry;
            SReparsePointInfo info;
            if (e.attributes & platform::kAttrReparsePoint) {
                if (CheckReparsePoint(logicalPath, e.name, info)) {
                    _AddReparseEntry(e, info, flags, node, logicalPath, parentId);
                    continue;
                }
                // A link whose data can't be read on the live volume (gone
                // there since the shadow was taken) is not walked through:
                // the search would follow it, and a link to an ancestor
                // would repeat the tree until paths grow too long.
                if (e.reparseTag == kReparseTagSymlink || e.reparseTag == kReparseTagMountPoint) {
                    _AddSkippedEntry(e, info, logicalPath, parentId);
                    continue;
                }
            }
            if (!(e.attributes & platform::kAttrDirectory)) {
                if (flags & kIncExcInc) _AddFileRow(e, parentId);
                continue;
            }
            if (e.name == u"." || e.name == u"..") continue;
            const CIncExcNode* child = nullptr;
            if (!IsItemIncluded(flags, node, logicalPath, e.name, child)) continue;
            uint64_t id = 0;
            m_IndexBase->AddDir(e.name, parentId, &id);
            _IndexPath(e.name, logicalPath + u"\\" + e.name, realPath + u"\\" + e.name, id, child, false);
        } while (finder.FindNext(*entry));
    } catch (CRecursionBreakExc& e) {
        GetLog().LogException(FormatMessageArgs(u"Cannot index path [%1]. Path too long", {realPath}), e);
    } catch (CExc& e) {
        e.AddContext(u"Failed to index path [%1]", realPath);
        throw;
    }
}

void CFfIndexer::_AddFileRow(const platform::TFindData& entry, uint64_t parentId) {
    m_IndexBase->AddFile(entry.name, 0, parentId, entry.size, entry.lastWriteTime, nullptr);
}

void CFfIndexer::_AddReparseEntry(const platform::TFindData& entry, const SReparsePointInfo& info,
                                  uint32_t flags, const CIncExcNode& node,
                                  const std::u16string& logicalPath, uint64_t parentId) {
    const std::u16string& name = entry.name;
    const EReparseClass kind = m_SkipReparse ? ReparseSkippedUnc : ClassifySymlink(info);
    const CIncExcNode* child = nullptr;
    uint64_t id = 0;
    switch (kind) {
        case ReparseFollow: {
            GetLog().Detail(u"Symlink found: [%1\\%2]. Substitute: [%3].", logicalPath, name,
                            info.substitute);
            const std::u16string target = ConvertNamespaceNTtoWin32(info.substitute);
            const uint32_t attributes = platform::GetAttributes(target);
            if (attributes == platform::kInvalidFileAttributes) {
                const uint32_t error = platform::GetLastError();
                // A link to nothing is dropped without a word.
                if (error != platform::kErrFileNotFound && error != platform::kErrPathNotFound)
                    GetLog().Detail(u"Skipped. Getting attributes from substitute '%1' fail.",
                                    info.substitute);
                return;
            }
            if (!(attributes & platform::kAttrDirectory)) {
                if (flags & kIncExcInc) _AddFileRow(entry, parentId);
                return;
            }
            if (!IsItemIncluded(flags, node, logicalPath, name, child)) return;
            m_IndexBase->AddDir(name, parentId, &id);
            // The target is not walked here: the reparse row leads to it.
            std::vector<TPathPart> parts;
            SeparatePathAndVolume(target, parts);
            std::u16string joined;
            for (const auto& part : parts) {
                if (!joined.empty()) joined += u'\\';
                joined += part.View();
            }
            m_IndexBase->AddReparse(parentId, name, joined, nullptr);
            return;
        }
        case ReparseOtherVolume:
            GetLog().Detail(u"Reparse point [%1\\%2] added as empty directory. Substitute [%3].",
                            logicalPath, name, info.substitute);
            if (IsItemIncluded(flags, node, logicalPath, name, child))
                m_IndexBase->AddDir(name, parentId, &id);
            return;
        case ReparseSkipped:
        case ReparseSkippedUnc:
        default:
            _AddSkippedEntry(entry, info, logicalPath, parentId);
            return;
    }
}

void CFfIndexer::_AddSkippedEntry(const platform::TFindData& entry, const SReparsePointInfo& info,
                                  const std::u16string& logicalPath, uint64_t parentId) {
    // Listed whatever the filter says, so that the link is seen.
    const bool logged = m_SkippedReparseCount++ < kMaxLoggedSkips;
    if (logged)
        GetLog().Detail(u"Reparse point skipped: [%1\\%2]. Substitute: [%3].", logicalPath, entry.name,
                        info.substitute);
    if (!(entry.attributes & platform::kAttrDirectory)) {
        _AddFileRow(entry, parentId);
        if (logged) GetLog().Detail(u"Was added as an empty file.");
    } else {
        m_IndexBase->AddDir(entry.name, parentId, nullptr);
        if (logged) GetLog().Detail(u"Was added as an empty directory.");
    }
}

bool CFfIndexer::CheckReparsePoint(std::u16string_view logicalPath, std::u16string_view name,
                                   SReparsePointInfo& info) {
    info.fullPath.assign(logicalPath);
    info.fullPath += u'\\';
    info.fullPath += name;
    try {
        // Opened through the logical path: the data comes from the live
        // volume even when the tree is read from a shadow copy.
        CPeparsePointProcessor processor(info.fullPath);
        if (!processor.Parse(info.substitute, info.tag)) return false;
        if (info.tag != kReparseTagSymlink && info.tag != kReparseTagMountPoint) {
            GetLog().Detail(u"Unsupportable reparse point. Tag=0x%1.", util::Hex8(info.tag));
            return false;
        }
        return true;
    } catch (CWin32Exc& e) {
        const uint32_t error = e.GetWin32Error();
        if (error != platform::kErrFileNotFound && error != platform::kErrPathNotFound)
            GetLog().LogException(e);
    } catch (CExc& e) {
        GetLog().LogException(e);
    }
    return false;
}

EReparseClass CFfIndexer::ClassifySymlink(const SReparsePointInfo& info) {
    const std::u16string& substitute = info.substitute;
    if (!StartsWith(substitute, u"\\??\\")) return ReparseSkipped;
    if (m_SkipUnc && StartsWith(substitute, u"\\??\\UNC\\")) return ReparseSkippedUnc;
    std::u16string volume;
    if (GetVolumeMountPointName(substitute, volume) != 1) {
        GetLog().Detail(u"Symlink [%1] haven`t volume name. Substitute [%2].", info.fullPath,
                        substitute);
        return ReparseSkipped;
    }
    if (!IsEqualNames(volume, m_LogicalVolumePath.data(), m_LogicalVolumePath.size()))
        return ReparseOtherVolume;
    // A link that leads back into itself shows up again with a deeper path
    // that holds the path where it was first met.
    for (const auto& followed : m_FollowedReparsePoints) {
        if (IsEqualNames(followed.substitute, substitute.data(), substitute.size()) &&
            info.fullPath.find(followed.fullPath) != std::u16string::npos) {
            GetLog().Detail(u"Recursive symlink is found. [%1].", info.fullPath);
            return ReparseSkipped;
        }
    }
    m_FollowedReparsePoints.push_back(info);
    return ReparseFollow;
}

}  // namespace indexer
