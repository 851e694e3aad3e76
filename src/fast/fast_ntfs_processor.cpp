// File record processing: records to directory and file rows, parents
// pulled in top-down.
#include "fast/fast_ntfs_processor.h"

#include <algorithm>

#include "base/format.h"
#include "diag/log.h"
#include "diag/settings.h"
#include "platform/errors.h"

namespace indexer::fast_ntfs_indexer {

namespace {

constexpr char16_t kProcessFileRecord[] = u"indexer::fast_ntfs_indexer::CFastNtfsProcessor::ProcessFileRecord";
constexpr char16_t kProcessRecordImpl[] = u"indexer::fast_ntfs_indexer::CFastNtfsProcessor::__ProcessFileRecord";
constexpr char16_t kProcessParentRecord[] =
    u"indexer::fast_ntfs_indexer::CFastNtfsProcessor::_ProcessParentRecord";

// Pulls of parents nest only when a record in a parent's place is no
// directory and has names in several folders, which no sound volume has.
constexpr uint32_t kMaxPullNesting = 64;

// A directory row without a name makes the whole index unreadable (its
// readers refuse it): the attempt fails, rather than finish an index that
// no one can open.
[[noreturn]] void ThrowEmptyDirectoryName(uint64_t frn) {
    throw CExc(u"%1 fail. Directory FRN=0x%2 has an empty name; an index with a nameless directory could not "
               u"be read.",
               kProcessRecordImpl, util::Hex16(frn));
}

void AddRecordContext(CExc& e, uint64_t frn) {
    e.AddContext(u"Cannot process file record #%1.", util::ToStrU64(frn));
}

}  // namespace

CFastNtfsProcessor::CFastNtfsProcessor(CNtfsVolume* volume, std::shared_ptr<CNtfsAttributes> attributes,
                                       std::shared_ptr<CNtfsIndex> index, CIndexBase* base,
                                       CIncExcNode* filterRoot, std::u16string volumeName,
                                       TProcessorServices services)
    : m_Volume(volume),
      m_Attributes(std::move(attributes)),
      m_Index(std::move(index)),
      m_Base(base),
      m_FilterRoot(filterRoot),
      m_Dirs(0, volume->GetFileRecordCount()),
      m_VolumeName(std::move(volumeName)),
      m_Services(services) {
    m_SkipReparsePoints = settings::IsSkipReparsePoints();
    m_SkipReparsePointUNC = settings::IsSkipReparsePointUNC();
    m_SkipOwnersParsing = settings::IsSkipOwnersParsing();
    if (const uint32_t limit = settings::GetMaxNestedFolders(); limit != 0)
        m_Counter = std::make_shared<CRecursionCounter>(limit, u"Path too long");
}

// A warning that names the record. Volumes made by some tools give every
// record the short $STANDARD_INFORMATION: each format is written a bounded
// number of times, and the number is formatted only when it is written.
void CFastNtfsProcessor::_WarnAboutRecord(std::u16string_view format, uint64_t frn) {
    CLog& log = GetLog();
    if (log.IsEnabled(LogWarning) && m_RecordWarnings.Admit(format))
        log.Warning(format, kProcessRecordImpl, util::Hex16(frn));
}

uint8_t* CFastNtfsProcessor::_RecordBuffer(CBuf<uint8_t>& buffer) {
    buffer.Allocate(m_Volume->GetVolumeGeometry().FileRecordSize);
    return buffer.Get();
}

// A record already on the stack of records in process is its own ancestor.
// The bottom of the stack (the record the main loop passed in) is not kept
// in the set: most records pull no parent, and they then cost no hashing.
void CFastNtfsProcessor::_EnterRecord(uint64_t frn) {
    if (!m_RecordsInProcess.empty() && (frn == m_RecordsInProcess.front() || !m_InProcess.insert(frn).second))
        throw CExc(u"%1 fail. %2 file already in process in current call stack", kProcessFileRecord,
                   util::ToStrU64(frn), kHrInvalidArg);
    m_RecordsInProcess.push_back(frn);
}

void CFastNtfsProcessor::_LeaveRecord() {
    if (m_RecordsInProcess.size() > 1) m_InProcess.erase(m_RecordsInProcess.back());
    m_RecordsInProcess.pop_back();
}

void CFastNtfsProcessor::ProcessFileRecord(uint64_t frn, const uint8_t* record) {
    _EnterRecord(frn);
    try {
        CRecursionGuard guard(m_Counter);
        __ProcessFileRecord(frn, record);
    } catch (CExc& e) {
        _LeaveRecord();
        AddRecordContext(e, frn);
        throw;
    }
    _LeaveRecord();
}

// The parent and every missing ancestor above it, without recursing along
// the chain: read upwards until a record whose parent is known (or a
// metafile, or a record that gives no row), then process top-down. While the
// chain is processed, the records below the one at work stay "in process"
// and counted by the nesting limit, exactly as a recursion would hold them,
// so cycles, the limit and the error contexts come out the same.
void CFastNtfsProcessor::_ProcessParentRecord(uint64_t frn) {
    if (m_PullDepth >= kMaxPullNesting)
        throw CExc(u"%1 fail. Parents of file record #%2 are pulled in more than %3 levels deep.",
                   kProcessParentRecord, util::ToStrU64(frn), util::ToStrU32(kMaxPullNesting));
    ++m_PullDepth;
    CBuf<uint8_t> buffer;
    uint8_t* record = _RecordBuffer(buffer);
    const size_t outer = m_RecordsInProcess.size();
    std::vector<std::unique_ptr<CRecursionGuard>> levels;
    try {
        // Upwards: the chain is m_RecordsInProcess[outer...], nearest first.
        for (uint64_t current = frn;;) {
            m_Volume->GetFileRecord(current, record, 1);
            _EnterRecord(current);
            levels.push_back(std::make_unique<CRecursionGuard>(m_Counter));
            uint64_t parent = 0;
            if (current < kFirstUserFrn || !_PeekParent(current, record, parent) || m_Dirs.Get(parent)) break;
            current = parent;
        }
        // Downwards: each record leaves the chain and is processed in full.
        while (m_RecordsInProcess.size() > outer) {
            const uint64_t current = m_RecordsInProcess.back();
            _LeaveRecord();
            levels.pop_back();
            m_Volume->GetFileRecord(current, record, 1);
            ProcessFileRecord(current, record);
        }
    } catch (CExc& e) {
        // The records still waiting were "in process" around the failure.
        while (m_RecordsInProcess.size() > outer) {
            AddRecordContext(e, m_RecordsInProcess.back());
            _LeaveRecord();
        }
        levels.clear();
        --m_PullDepth;
        throw;
    }
    --m_PullDepth;
}

bool CFastNtfsProcessor::_PeekParent(uint64_t frn, const uint8_t* record, uint64_t& parentFrn) {
    const uint32_t size = m_Volume->GetVolumeGeometry().FileRecordSize;
    TFileNamePropsList names;
    std::vector<uint64_t> extensions;
    bool hasStandardInformation = false;
    ForEachAttribute(record, size, frn, kNoLimit, [&](const CAttrHeader& attr) {
        switch (attr.Type()) {
            case kAttrStandardInformation: hasStandardInformation = true; break;
            case kAttrAttributeList: m_Volume->_ProcessAttributeList(frn, attr, extensions); break;
            case kAttrFileName: m_Attributes->GetFileNameProps(attr, names); break;
            default: break;
        }
        return true;
    });
    if (!hasStandardInformation) return false;
    if (names.empty() && !extensions.empty()) {
        CBuf<uint8_t> buffer;
        uint8_t* extension = _RecordBuffer(buffer);
        for (uint64_t number : extensions) {
            m_Volume->GetFileRecord(number, extension, 1);
            ForEachAttribute(extension, size, number, kNoLimit, [&](const CAttrHeader& attr) {
                if (attr.Type() == kAttrFileName) m_Attributes->GetFileNameProps(attr, names);
                return names.empty();
            });
            if (!names.empty()) break;
        }
    }
    if (names.empty()) return false;
    parentFrn = names.front()->ParentFileRef & kFrnMask;
    return true;
}

void CFastNtfsProcessor::__ProcessFileRecord(uint64_t frn, const uint8_t* record) {
    const uint32_t size = m_Volume->GetVolumeGeometry().FileRecordSize;
    // This level's names; their memory serves the next record of the level.
    const size_t level = m_RecordsInProcess.size();
    if (m_NameSlots.size() <= level) m_NameSlots.resize(level + 1);
    TRecordNames& names = m_NameSlots[level];
    names.Count = 0;
    std::vector<uint64_t> extensions;
    uint32_t securityId = 0;
    uint64_t lastWriteTime = 0;
    uint64_t dataSize = 0;
    bool hasStandardInformation = false;
    bool isReparse = false;
    uint32_t tag = 0;
    std::u16string printName, substituteName;
    CheckRecordHeader(record, size, frn);
    const bool isDirectory = (Le16(record + kRecFlags) & kRecFlagDirectory) != 0;

    auto common = [&](const CAttrHeader& attr) {
        switch (attr.Type()) {
            case kAttrFileName: names.Add(*m_Attributes, attr); break;
            case kAttrData: m_Attributes->GetUnnamedDataSize(attr, dataSize); break;
            case kAttrReparsePoint: isReparse = _ProcessAttributeReparsePoint(attr, printName, substituteName, tag); break;
            default: break;
        }
    };
    ForEachAttribute(record, size, frn, kNoLimit, [&](const CAttrHeader& attr) {
        switch (attr.Type()) {
            case kAttrAttributeList: m_Volume->_ProcessAttributeList(frn, attr, extensions); break;
            case kAttrStandardInformation:
                if (!m_Attributes->GetSecurityId(attr, securityId))
                    _WarnAboutRecord(u"%1. File #0x%2. $STANDART_ATTRIBUTE havn`t SecurityId.", frn);
                if (!m_Attributes->GetLastWriteTime(attr, lastWriteTime))
                    _WarnAboutRecord(u"%1. File #0x%2. $STANDART_ATTRIBUTE havn`t LastModificationTime.", frn);
                hasStandardInformation = true;
                break;
            default: common(attr); break;
        }
        return true;
    });
    // Extension records, met by the main loop in their own right, end here.
    if (!hasStandardInformation) return;
    if (!extensions.empty()) {
        CBuf<uint8_t> buffer;
        uint8_t* extension = _RecordBuffer(buffer);
        for (uint64_t number : extensions) {
            m_Volume->GetFileRecord(number, extension, 1);
            ForEachAttribute(extension, size, number, kNoLimit, [&](const CAttrHeader& attr) {
                common(attr);
                return true;
            });
        }
    }
    if (names.Count == 0) return;
    if (frn < kFirstUserFrn) {
        if (frn == kRootFrn)
            _ProcessRootDirectory();
        else
            _ProcessMetafile(frn);
        return;
    }
    if (isDirectory && names.Count > 1)
        throw CWin32Exc(u"Can`t create hardlink for directory!", CIndexBase::kErrInternalError);

    for (size_t i = 0; i < names.Count; ++i) {
        const uint64_t parentFrn = names.Items[i].ParentFileRef & kFrnMask;
        const std::u16string& name = names.Items[i].FileName;
        TDirInfo* parent = m_Dirs.Get(parentFrn);
        if (!parent) {
            _ProcessParentRecord(parentFrn);
            parent = m_Dirs.Get(parentFrn);
            if (!parent)
                throw CExc(u"%1 fail. Parent directory frn=%2 is not indexed", kProcessRecordImpl,
                           util::ToStrU64(parentFrn));
        }
        if (isReparse) {
            if (name.empty()) {
                GetLog().Error(u"%1. Found empty FileName for reparse point! FileRefNum=0x%2.", kProcessRecordImpl,
                               util::Hex16(frn));
                if (isDirectory) ThrowEmptyDirectoryName(frn);
            }
            _ProcessReparseRecord(frn, *parent, parentFrn, name, isDirectory);
        } else if (isDirectory) {
            if (name.empty()) {
                GetLog().Error(u"%1. Found empty FileName for directory! FileRefNum=0x%2.", kProcessRecordImpl,
                               util::Hex16(frn));
                ThrowEmptyDirectoryName(frn);
            }
            _ProcessDirectory(frn, *parent, parentFrn, name);
        } else {
            if (!_IsParentIncluded(parentFrn)) continue;
            uint32_t owner = 0;
            if (!m_SkipOwnersParsing && !m_Owners.Lookup(securityId, owner))
                throw CExc(u"%1 fail. Can`t find ownerID by securityID=0x%2. FileRefNum=0x%3", kProcessRecordImpl,
                           util::Hex8(securityId), util::Hex16(frn));
            if (name.empty())
                GetLog().Error(u"%1. Found empty FileName for file! FileRefNum=0x%2.", kProcessRecordImpl,
                               util::Hex16(frn));
            _ProcessFile(*parent, name, owner, lastWriteTime, dataSize);
        }
    }
}

bool CFastNtfsProcessor::_IsParentIncluded(uint64_t parentFrn) {
    if (parentFrn < kFirstUserFrn && parentFrn != kRootFrn) return false;
    return (_GetDirectoryInfo(parentFrn)->Flags & kIncExcInc) != 0;
}

void CFastNtfsProcessor::_ProcessFile(TDirInfo& parent, std::u16string_view name, uint32_t owner,
                                      uint64_t lastWriteTime, uint64_t size) {
    const uint64_t position = m_Base->AddFile(name, owner, parent.DirId, size, lastWriteTime, nullptr);
    if (parent.Content) {
        // A folder's first file makes room for a few: most folders that
        // hold files hold several, and growing from one reallocates often.
        // Eight, not more: a volume of folders with one file each must not
        // pay much memory for it.
        std::vector<uint64_t>& files = parent.Content->Files;
        if (files.empty()) files.reserve(8);
        files.push_back((position & kTagPositionMask) | kTagFile);
    }
}

TDirInfo* CFastNtfsProcessor::_EntryFor(uint64_t frn, std::unique_ptr<TDirInfo>& created) {
    if (TDirInfo* info = m_Dirs.Get(frn)) return info;
    created = std::make_unique<TDirInfo>();
    return created.get();
}

void CFastNtfsProcessor::_AddDirRow(TDirInfo& info, TDirInfo& parent, std::u16string_view name, uint64_t tag) {
    const uint64_t position = m_Base->AddDir(name, parent.DirId, &info.DirId);
    info.Content = std::make_unique<TDirContent>();
    info.Content->Self = (position & kTagPositionMask) | tag;
    if (parent.Content) parent.Content->SubDirs.push_back(info.Content.get());
}

void CFastNtfsProcessor::_ProcessDirectory(uint64_t frn, TDirInfo& parent, uint64_t parentFrn,
                                           std::u16string_view name) {
    std::unique_ptr<TDirInfo> created;
    TDirInfo* info = _EntryFor(frn, created);
    if (info->DirId != kNoDirId) return;
    if (info->Flags == 0) info->Flags = _GetNodeFlagForDir(parentFrn, frn, name);
    if (info->Flags & (kIncExcInc | kIncExcNode)) _AddDirRow(*info, parent, name, kTagDirectory);
    info->ParentFRN = parentFrn;
    if (created) m_Dirs.Set(frn, std::move(created));
}

void CFastNtfsProcessor::_ProcessReparseRecord(uint64_t frn, TDirInfo& parent, uint64_t parentFrn,
                                               std::u16string_view name, bool isDirectory) {
    if (!isDirectory || m_Dirs.Get(frn)) return;
    auto info = std::make_unique<TDirInfo>();
    info->Flags = _GetNodeFlagForDir(parentFrn, kNoDirId, name);
    if (info->Flags & (kIncExcInc | kIncExcNode)) _AddDirRow(*info, parent, name, kTagReparseDirectory);
    info->ParentFRN = parentFrn;
    m_Dirs.Set(frn, std::move(info));
}

void CFastNtfsProcessor::_ProcessRootDirectory() {
    std::unique_ptr<TDirInfo> created;
    TDirInfo* info = _EntryFor(kRootFrn, created);
    if (info->DirId != kNoDirId) return;
    info->Flags = m_FilterRoot->m_IncExcFlag;
    const uint64_t position = m_Base->AddDir(std::u16string_view(), 0, &info->DirId);
    info->ParentFRN = 0;
    info->Content = std::make_unique<TDirContent>();
    info->Content->Self = (position & kTagPositionMask) | kTagDirectory;
    if (created) m_Dirs.Set(kRootFrn, std::move(created));
}

void CFastNtfsProcessor::_ProcessMetafile(uint64_t frn) {
    GetLog().Info(u"NTFS metafile. FRN=0x%1", util::Hex16(frn));
    std::unique_ptr<TDirInfo> created;
    TDirInfo* info = _EntryFor(frn, created);
    info->DirId = kNoDirId;
    info->ParentFRN = 0;
    info->Content.reset();
    info->Flags = kIncExcExc;
    if (created) m_Dirs.Set(frn, std::move(created));
}

}  // namespace indexer::fast_ntfs_indexer
