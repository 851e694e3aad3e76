// Directory node flags: the filter tree resolved to record numbers, and the
// include/exclude decision of each directory from its parent's.
#include <algorithm>

#include "base/format.h"
#include "diag/log.h"
#include "fast/fast_ntfs_processor.h"

namespace indexer::fast_ntfs_indexer {

namespace {

constexpr char16_t kGetNodeFlagForDir[] = u"indexer::fast_ntfs_indexer::CFastNtfsProcessor::_GetNodeFlagForDir";
constexpr char16_t kGetNodeFlagForDirByFrn[] =
    u"indexer::fast_ntfs_indexer::CFastNtfsProcessor::_GetNodeFlagForDirByFRN";
constexpr char16_t kGetDirectoryInfo[] = u"indexer::fast_ntfs_indexer::CFastNtfsProcessor::_GetDirectoryInfo";

}  // namespace

void CFastNtfsProcessor::ProcessIncludeExcludeFolders() {
    _ResolveFilterNode(kRootFrn, *m_FilterRoot);
    m_FilterResolved = true;
}

// The tree is at most kMaxFilterDepth levels deep (its reader refuses deeper
// lines), so this recursion is bounded.
void CFastNtfsProcessor::_ResolveFilterNode(uint64_t frn, CIncExcNode& node) {
    node.m_Reference = frn;
    if (node.m_Children.empty()) return;
    CBuf<uint8_t> buffer;
    uint8_t* record = _RecordBuffer(buffer);
    m_Volume->GetFileRecord(frn, record, 1);
    for (size_t i = 0; i < node.m_Children.size();) {
        CIncExcNode& child = node.m_Children[i];
        const uint64_t found = m_Index->FindFileInDirectory(record, frn, child.m_Name) & kFrnMask;
        if (found != 0) {
            _ResolveFilterNode(found, child);
            ++i;
        } else {
            GetLog().Info(u"Folder [%1] not found.", child.m_Name);
            node.m_Children.erase(node.m_Children.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
}

TDirInfo* CFastNtfsProcessor::_GetDirectoryInfo(uint64_t frn) {
    TDirInfo* info = m_Dirs.Get(frn);
    if (info) return info;
    _ProcessParentRecord(frn);
    info = m_Dirs.Get(frn);
    if (!info) throw CExc(u"%1 fail. _GetDirInfo() return NULL!", kGetDirectoryInfo);
    return info;
}

uint32_t CFastNtfsProcessor::_GetNodeFlagForDirByFRN(uint64_t frn) {
    const TDirInfo* info = _GetDirectoryInfo(frn);
    if (info->Flags == 0) throw CExc(u"%1 fail. Not initialized value pDirInfo->Flags!", kGetNodeFlagForDirByFrn);
    return info->Flags;
}

uint32_t CFastNtfsProcessor::_GetNodeFlagForDir(uint64_t parentFrn, uint64_t frn, std::u16string_view name) {
    const TDirInfo* parent = _GetDirectoryInfo(parentFrn);
    if (parent->Flags == 0) throw CExc(u"%1 fail. Not initialized value pDirInfo->Flags!", kGetNodeFlagForDir);
    if (parent->Flags == kIncExcInc || parent->Flags == kIncExcExc) return parent->Flags;

    // The ancestors' record numbers, root-most first, the root left out. The
    // walk is bounded: each step moves to an entry already in the table,
    // and a chain that returned to itself would have failed when pulled.
    std::vector<uint64_t> ancestors;
    if (parentFrn != kRootFrn) {
        ancestors.push_back(parentFrn);
        const uint64_t limit = m_Volume->GetFileRecordCount();
        for (const TDirInfo* current = parent; current->ParentFRN != kRootFrn;) {
            if (ancestors.size() > limit)
                throw CExc(u"%1 fail. The parents of directory #%2 lead in a circle.", kGetNodeFlagForDir,
                           util::ToStrU64(parentFrn));
            ancestors.push_back(current->ParentFRN);
            current = _GetDirectoryInfo(current->ParentFRN);
        }
        std::reverse(ancestors.begin(), ancestors.end());
    }
    const uint32_t flags = frn != kNoDirId && m_FilterResolved
                               ? GetFlagsByReferences(ancestors, frn, *m_FilterRoot)
                               : GetFlagsByReferencesAndName(ancestors, name, *m_FilterRoot);
    if (flags == 0) GetLog().Error(u"%1 fail. return IncExcFlag = 0!", kGetNodeFlagForDir);
    return flags;
}

bool CFastNtfsProcessor::_IsEntryIncluded(uint64_t parentFrn, std::u16string_view name) {
    if (parentFrn < kFirstUserFrn && parentFrn != kRootFrn) return false;
    if (name.empty()) return (_GetNodeFlagForDirByFRN(parentFrn) & kIncExcInc) != 0;
    return (_GetNodeFlagForDir(parentFrn, kNoDirId, name) & kIncExcInc) != 0;
}

}  // namespace indexer::fast_ntfs_indexer
