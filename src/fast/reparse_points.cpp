// Reparse points: the links of $Extend\$Reparse before the main loop, how a
// record with a reparse attribute counts in it, and the links resolved into
// rows after it.
//
// Reparse data (the $REPARSE_POINT value): tag (4), data length (2),
// reserved (2); for mount points and symbolic links then substitute name
// offset, substitute name length, print name offset, print name length (2
// each, bytes) at 8; the names follow at 16 (mount point) or, behind a
// 32-bit flags word, at 20 (symbolic link), offsets counting from there.
#include "base/format.h"
#include "diag/log.h"
#include "fast/fast_ntfs_processor.h"
#include "inputs/path_utils.h"
#include "platform/errors.h"
#include "walk/reparse_processor.h"

namespace indexer::fast_ntfs_indexer {

namespace {

constexpr char16_t kProcessAttributeReparsePoint[] =
    u"indexer::fast_ntfs_indexer::CFastNtfsProcessor::_ProcessAttributeReparsePoint";
constexpr char16_t kBuildReparsePointList[] =
    u"indexer::fast_ntfs_indexer::CFastNtfsProcessor::BuildReparsePointList";
constexpr char16_t kFillReparsePointInfo[] =
    u"indexer::fast_ntfs_indexer::CFastNtfsProcessor::_FillReparsePointInfo";
constexpr char16_t kFindAndCopyBaseReparseFile[] =
    u"indexer::fast_ntfs_indexer::CFastNtfsProcessor::_FindAndCopyBaseReparseFile";

constexpr uint32_t kTagHsm = 0xC0000004, kTagHsm2 = 0x80000006, kTagSis = 0x80000007, kTagWim = 0x80000008,
                   kTagCsv = 0x80000009, kTagDfs = 0x8000000A, kTagDfsr = 0x80000012, kTagDedup = 0x80000013,
                   kTagNfs = 0x80000014;

bool Contains(std::u16string_view text, std::u16string_view part) { return text.find(part) != text.npos; }

// Copies `length` bytes of name at `offset` from `base` within `value`.
std::u16string NameAt(const uint8_t* value, size_t size, size_t base, uint16_t offset, uint16_t length,
                      uint64_t frn) {
    if (base + offset + length > size)
        ThrowCorrupt(frn, u"a reparse point name lies outside its data (offset %1, length %2)",
                     util::ToStrU32(offset), util::ToStrU32(length));
    std::u16string name(length / 2, u'\0');
    for (size_t i = 0; i < name.size(); ++i) name[i] = static_cast<char16_t>(Le16(value + base + offset + 2 * i));
    return name;
}

// The entries of the $R index: after the 16-byte header, at 16 the tag and
// at 20 the file reference.
constexpr size_t kRTag = 16, kRReference = 20, kREntrySize = 28;

}  // namespace

bool CFastNtfsProcessor::_ProcessAttributeReparsePoint(const CAttrHeader& attr, std::u16string& printName,
                                                       std::u16string& substituteName, uint32_t& tag) {
    if (m_SkipReparsePoints) return false;
    CBuf<uint8_t> nonResident;
    const uint8_t* value;
    size_t size;
    if (attr.IsNonResident()) {
        size = static_cast<size_t>(m_Volume->ReadNonResidentAttribute(attr, nonResident));
        if (size > nonResident.Count()) size = nonResident.Count();
        value = nonResident.Get();
    } else {
        value = attr.Value();
        size = attr.ValueLength();
    }
    if (size < 4) ThrowCorrupt(attr.Frn(), u"the reparse point data is shorter than its tag");
    tag = Le32(value);
    if (!(tag & 0x80000000u) || !(tag & 0x20000000u)) {
        struct TKnown {
            uint32_t Tag;
            bool* Found;
            const char16_t* Line;
        } const known[] = {
            {kTagHsm, &m_Found_TAG_HSM, u"ReparseTag IO_REPARSE_TAG_HSM found."},
            {kTagHsm2, &m_Found_TAG_HSM2, u"ReparseTag m_Found_TAG_HSM2 found."},
            {kTagSis, &m_Found_TAG_SIS, u"ReparseTag m_Found_TAG_SIS found."},
            {kTagWim, &m_Found_TAG_WIM, u"ReparseTag m_Found_TAG_WIM found."},
            {kTagCsv, &m_Found_TAG_CSV, u"ReparseTag IO_REPARSE_TAG_CSV found."},
            {kTagDfs, &m_Found_TAG_DFS, u"ReparseTag IO_REPARSE_TAG_DFS found."},
            {kTagDfsr, &m_Found_TAG_DFSR, u"ReparseTag IO_REPARSE_TAG_DFSR found."},
            {kTagDedup, &m_Found_TAG_DEDUP, u"ReparseTag IO_REPARSE_TAG_DEDUP found."},
            {kTagNfs, &m_Found_TAG_NFS, u"ReparseTag IO_REPARSE_TAG_NFS found."},
        };
        for (const TKnown& k : known) {
            if (k.Tag != tag) continue;
            if (!*k.Found) {
                GetLog().Warning(k.Line);
                *k.Found = true;
            }
            return false;
        }
        const auto it = m_UnknownTags.find(tag);
        if (it == m_UnknownTags.end()) {
            m_UnknownTags[tag] = 1;
            GetLog().Warning(u"Unknown reparse tag found 0x%1", util::Hex8(tag));
        } else {
            ++it->second;
        }
        return false;
    }
    if (tag != kReparseTagMountPoint && tag != kReparseTagSymlink) {
        GetLog().Warning(u"%1. Invalid ReparseType 0x%2 is found!", kProcessAttributeReparsePoint, util::Hex8(tag));
        return false;
    }
    const size_t base = tag == kReparseTagMountPoint ? 16 : 20;
    if (size < base) ThrowCorrupt(attr.Frn(), u"the reparse point data is shorter than its header");
    substituteName = NameAt(value, size, base, Le16(value + 8), Le16(value + 10), attr.Frn());
    printName = NameAt(value, size, base, Le16(value + 12), Le16(value + 14), attr.Frn());
    return true;
}

bool CFastNtfsProcessor::_IsValidSubstitute(std::u16string_view text) {
    const size_t n = text.size();
    if (n > 4 && (Contains(text, u"\\??\\") || Contains(text, u"\\\\?\\") || Contains(text, u"\\\\.\\"))) return true;
    if (n > 3 && Contains(text, u"..\\")) return true;
    if (n > 2 && Contains(text, u".\\")) return true;
    return n >= 2 && text[1] == u':';
}

void CFastNtfsProcessor::BuildReparsePointList() {
    if (m_SkipReparsePoints) return;
    CBuf<uint8_t> buffer;
    uint8_t* record = _RecordBuffer(buffer);
    CLogBlock block(GetLog(), u"Enumerate all ReparsePoints from $Reparse.");
    m_Volume->GetFileRecord(kExtendFrn, record, 1);
    if (!(Le16(record + kRecFlags) & kRecFlagDirectory))
        throw CExc(u"%1 fail. '.\\$Extend' is not a directory!", kBuildReparsePointList);
    const uint64_t reparseFrn = m_Index->FindFileInDirectory(record, kExtendFrn, u"$Reparse") & kFrnMask;
    if (reparseFrn != 0) {
        m_Volume->GetFileRecord(reparseFrn, record, 1);
        m_Index->ParseIndexFileRecord_Process(
            record, reparseFrn, u"$R",
            [this](const TIndexEntryView& entry, uint64_t, uint64_t) -> uint8_t {
                if (entry.Length < kREntrySize)
                    ThrowCorrupt(entry.Frn, u"a $R entry of %1 bytes is too short", util::ToStrU32(entry.Length));
                const uint32_t tag = Le32(entry.Data + kRTag);
                if (tag != kReparseTagMountPoint && tag != kReparseTagSymlink) return 1;
                TReparsePoint point;
                point.Tag = tag;
                point.FRN = Le64(entry.Data + kRReference) & kFrnMask;
                m_ReparsePoints.push_back(std::move(point));
                return 1;
            },
            0, 0);
    }
    if (m_ReparsePoints.empty()) {
        GetLog().Info(u"ReparsePointsList: list is empty!");
    } else {
        for (TReparsePoint& entry : m_ReparsePoints) {
            try {
                m_Volume->GetFileRecord(entry.FRN, record, 1);
                _FillReparsePointInfo(record, entry);
            } catch (const CExc& e) {
                GetLog().Error(u"Error: %1.", e.GetDescription());
                GetLog().Error(u"FRN: 0x%1.", util::Hex16(entry.FRN));
                CExc failure = e;
                failure.AddContext(u"Reparse point list building fail.");
                throw failure;
            }
        }
        _CheckReparsePoints();
    }
    if (m_UnparsedReparseCount != 0)
        GetLog().Info(u"%1 unparsed reparse points was skipped", util::ToStrU64(m_UnparsedReparseCount));
    block.Complete();
}

void CFastNtfsProcessor::_FillReparsePointInfo(const uint8_t* record, TReparsePoint& entry) {
    const uint32_t size = m_Volume->GetVolumeGeometry().FileRecordSize;
    CheckRecordHeader(record, size, entry.FRN);
    entry.IsDirectory = (Le16(record + kRecFlags) & kRecFlagDirectory) != 0;
    bool hasStandardInformation = false, hasReparse = false;
    TFileNamePropsList names;
    ForEachAttribute(record, size, entry.FRN, kNoLimit, [&](const CAttrHeader& attr) {
        switch (attr.Type()) {
            case kAttrStandardInformation: hasStandardInformation = true; break;
            case kAttrAttributeList: throw CExc(u"%1 fail. $ATTRIBUTE_LIST found!\n", kFillReparsePointInfo);
            case kAttrFileName:
                m_Attributes->GetFileNameProps(attr, names);
                if (!names.empty()) {
                    entry.FileName = names.front()->FileName;
                    entry.ParentFRN = names.front()->ParentFileRef & kFrnMask;
                }
                break;
            case kAttrReparsePoint:
                hasReparse = _ProcessAttributeReparsePoint(attr, entry.PrintName, entry.SubstituteName, entry.Tag);
                break;
            default: break;
        }
        return true;
    });
    if (names.empty()) throw CExc(u"%1 fail. Attribute FILE_NAME is not found for ReparsePoint!", kFillReparsePointInfo);
    if (!hasReparse) throw CExc(u"%1 fail. Attribute REPARSE_POINT is not found!", kFillReparsePointInfo);
    if (!hasStandardInformation)
        throw CExc(u"%1 fail. Attribute STANDART_INFORMATION is not found!", kFillReparsePointInfo);
}

bool CFastNtfsProcessor::_CountUnparsed() { return m_UnparsedReparseCount++ < kMaxLoggedSkips; }

void CFastNtfsProcessor::_LogUnparsedLink(std::u16string_view title, const TReparsePoint& entry) {
    if (!_CountUnparsed()) return;
    CLog& log = GetLog();
    log.Error(title);
    log.Error(u"    FileRef=0x%1.", util::Hex16(entry.FRN));
    log.Error(u"    FileName is [%1].", entry.FileName);
    log.Error(u"    SubstituteName is [%1].", entry.SubstituteName);
}

void CFastNtfsProcessor::_CheckReparsePoints() {
    GetLog().Info(u"Check ReparsePoints on include tree.");
    for (TReparsePoint& entry : m_ReparsePoints) {
        try {
            if (!_CheckReparsePoint(entry)) return;
        } catch (const CExc& e) {
            GetLog().Error(u"Error: %1.", e.GetDescription());
            GetLog().Error(u"! FRN: 0x%1.", util::Hex16(entry.FRN));
            throw CExc(u"%1 fail.", kBuildReparsePointList);
        }
    }
}

// One link of the list; false when the check of all later links is to stop.
bool CFastNtfsProcessor::_CheckReparsePoint(TReparsePoint& entry) {
    CLog& log = GetLog();
    const std::u16string& substitute = entry.SubstituteName;
    std::u16string volumeName;
    const size_t brace = substitute.find(u"}\\");
    if (Contains(substitute, u"\\??\\Volume{") && brace != std::u16string::npos && brace >= 2)
        volumeName = u"\\\\?\\" + substitute.substr(4, brace - 2);

    if (volumeName.empty()) {
        if (!_IsValidSubstitute(substitute)) {
            _LogUnparsedLink(u"Invalid symbolic link:", entry);
            return false;
        }
        if (m_SkipReparsePointUNC && Contains(substitute, u"\\??\\UNC\\")) {
            if (_CountUnparsed())
                log.Error(u"Found prefix '\\??\\UNC\\' in substitute [%1] of reparse point [%2].", substitute,
                          entry.FileName);
            return true;
        }
        std::u16string path;
        if (Contains(substitute, u"\\??\\") || Contains(substitute, u"\\\\?\\") || Contains(substitute, u"\\\\.\\")) {
            path = substitute.size() > 4 ? substitute.substr(4) : std::u16string();
        } else if (!Contains(substitute, u"..\\") && !Contains(substitute, u".\\")) {
            path = substitute;
        } else {
            _LogUnparsedLink(u"Relative substitute path was detected. It`s not supported yet.", entry);
            return false;
        }
        std::u16string mountPoint;
        if (!m_Services.Volumes->GetVolumePathName(u"\\\\?\\" + path, mountPoint, 261)) {
            if (_CountUnparsed())
                log.Error(u"%1 fail. GetVolumePathName fail! SubstituteName is[%2]!", kBuildReparsePointList, path);
        } else {
            const std::u16string plain = mountPoint.size() > 4 ? mountPoint.substr(4) : mountPoint;
            if (!m_Services.Volumes->GetVolumeNameForVolumeMountPoint(plain, volumeName, 260)) {
                volumeName.clear();
                if (_CountUnparsed())
                    log.Error(u"%1 fail. GetVolumeNameForVolumeMountPointW fail! MountPointNamePtr is [%2]!",
                              kBuildReparsePointList, plain);
            }
        }
    }
    std::vector<std::u16string> mountPaths;
    if (!volumeName.empty() && !_GetVolumePathNames(volumeName, mountPaths))
        log.Error(u"Failed to process reparse point [%1] FRN=%2", entry.FileName, util::Hex16(entry.FRN));
    if (mountPaths.empty()) {
        log.Error(u"Invalid SubstituteName path [%1]. Volume name not found.", substitute);
        return true;
    }
    for (const std::u16string& mountPath : mountPaths)
        if (IsEqualNames(mountPath, m_VolumeName.data(), m_VolumeName.size())) _CheckReparsePointIncluded(entry);
    return true;
}

bool CFastNtfsProcessor::_GetVolumePathNames(const std::u16string& volumeName, std::vector<std::u16string>& paths) {
    std::vector<std::u16string> names;
    uint32_t length = 0;
    if (!m_Services.Volumes->GetVolumePathNamesForVolumeName(volumeName, names, 261, &length)) {
        if (platform::GetLastError() != platform::kErrMoreData ||
            !m_Services.Volumes->GetVolumePathNamesForVolumeName(volumeName, names, length, &length)) {
            GetLog().Error(u"Fail to get volume path names for volume by name [%1]", volumeName);
            return false;
        }
    }
    for (const std::u16string& name : names) {
        if (name.empty()) break;
        paths.push_back(name.substr(0, name.size() - 1));
    }
    return !paths.empty();
}

void CFastNtfsProcessor::_CheckReparsePointIncluded(TReparsePoint& entry) {
    std::u16string linkName;
    uint64_t logParent = entry.ParentFRN;
    if (entry.IsDirectory)
        linkName = entry.FileName;
    else
        logParent = _GetDirectoryInfo(entry.ParentFRN)->ParentFRN;
    if (!_IsEntryIncluded(entry.ParentFRN, linkName)) {
        GetLog().Info(u"Link is EXCLUDE. [%2], parent FRN=0x%1\n", util::Hex16(logParent), linkName);
        entry.Included = false;
        return;
    }
    std::u16string target = entry.SubstituteName;
    if (!entry.IsDirectory) {
        std::u16string directory;
        GetDirectoryName(entry.SubstituteName, directory);
        target = directory;
    }
    bool included = false;
    if (!_IsPathIncluded(target, included)) {
        GetLog().Warning(u"SubstituteName [%1] is invalid!", target);
        return;
    }
    entry.Included = included;
    const std::u16string parentText = util::ToStrU64(logParent);
    if (included) {
        if (linkName.empty())
            GetLog().Info(u"ReparsePoint parent FRN=%1 SubstituteName [%2] is included.", parentText, entry.SubstituteName);
        else
            GetLog().Info(u"ReparsePoint [%1] SubstituteName [%2] is included.", linkName, entry.SubstituteName);
    } else if (linkName.empty()) {
        GetLog().Warning(u"ReparsePoint parent FRN=%1 SubstituteName [%2] is NOT included.", parentText,
                         entry.SubstituteName);
    } else {
        GetLog().Warning(u"ReparsePoint [%1] SubstituteName [%2] is NOT included.", linkName, entry.SubstituteName);
    }
}

bool CFastNtfsProcessor::_IsPathIncluded(std::u16string_view path, bool& included) {
    std::vector<TPathPart> parts;
    SeparatePathAndVolume(path, parts, *m_Services.Volumes);
    if (parts.empty()) return false;
    if (!IsEqualNames(parts[0], m_VolumeName)) {
        GetLog().Warning(u"Volume name [%1] is not equal to [%2]! Path from another volume! Indexing is not implemented!",
                         parts[0].View(), m_VolumeName);
        return false;
    }
    included = IsPathIncluded(parts, *m_FilterRoot);
    return true;
}

void CFastNtfsProcessor::ProcessReparsePoints() {
    CBuf<uint8_t> buffer;
    uint8_t* record = _RecordBuffer(buffer);
    for (TReparsePoint& entry : m_ReparsePoints)
        if (entry.Included) _ResolveReparsePoint(entry, record);
}

void CFastNtfsProcessor::_ResolveReparsePoint(TReparsePoint& entry, uint8_t* record) {
    CLog& log = GetLog();
    auto describe = [&](std::u16string_view refLine) {
        log.Info(refLine, util::Hex16(entry.FRN));
        log.Info(u"    FileName %1", entry.FileName);
        log.Info(u"    SubstituteName %1", entry.SubstituteName);
    };
    std::vector<TPathPart> parts;
    SeparatePathAndVolume(entry.SubstituteName, parts, *m_Services.Volumes);
    uint64_t current = kRootFrn, parent = 0;
    for (size_t i = 1; i < parts.size(); ++i) {
        m_Volume->GetFileRecord(current, record, 1);
        parent = current;
        current = m_Index->FindFileInDirectory(record, current, parts[i].View()) & kFrnMask;
        if (current == 0) {
            log.Warning(u"Can`t parse reparse point. Substitute path not found.");
            log.Warning(u"    FileRef 0x%1", util::Hex16(entry.FRN));
            log.Warning(u"    FileName %1", entry.FileName);
            log.Warning(u"    SubstituteName %1", entry.SubstituteName);
            return;
        }
    }
    log.Info(u"ReparsePoint FRN=0x%1, substitute='%2'.", util::Hex16(current), entry.SubstituteName);
    if (!entry.IsDirectory) {
        _FindAndCopyBaseReparseFile(entry, parent);
        return;
    }
    if (!m_Dirs.Get(entry.FRN)) {
        log.Info(u"ReparsePoint is not indexing!");
        describe(u"    FileRef 0x%1");
        return;
    }
    const TDirInfo* target = m_Dirs.Get(current);
    if (!target || !(target->Flags & (kIncExcInc | kIncExcNode))) {
        log.Info(u"ReparsePoint is exclude!");
        describe(u"    FileRef 0x%1");
        return;
    }
    std::u16string joined;
    for (size_t i = 1; i < parts.size(); ++i) {
        if (i > 1) joined += u'\\';
        joined += parts[i].View();
    }
    m_Base->AddReparse(_GetDirectoryInfo(entry.ParentFRN)->DirId, entry.FileName, joined, nullptr);
}

void CFastNtfsProcessor::_FindAndCopyBaseReparseFile(const TReparsePoint& entry, uint64_t targetParentFrn) {
    std::u16string name;
    GetFileName(entry.SubstituteName, name);
    TDirInfo* linkParent = _GetDirectoryInfo(entry.ParentFRN);
    TDirInfo* targetDir = m_Dirs.Get(targetParentFrn);
    if (!targetDir) {
        GetLog().Error(u"%1 fail! pDirInfo is NULL!", kFindAndCopyBaseReparseFile);
        return;
    }
    if (targetDir->Flags & kIncExcInc) {
        if (!targetDir->Content) return;
        rec::CFileRecord row;
        // Copies of rows are added to the link's folder, never to this list.
        const std::vector<uint64_t> files = targetDir->Content->Files;
        for (uint64_t tagged : files) {
            m_Base->ReadFileRecord(tagged & kTagPositionMask, row);
            if (IsEqualNames(row.m_Name, name.data(), name.size()))
                m_Base->AddFile(row.m_Name, row.m_Owner, linkParent->DirId, row.m_Size, row.m_ModificationTime,
                                nullptr);
        }
        return;
    }
    GetLog().Info(u"ReparsePoint is exclude!");
    GetLog().Info(u"    SubstituteParentFileRefNum #0x%1", util::Hex16(targetParentFrn));
    GetLog().Info(u"    pDirInfo->NodeFlag 0x%1", IncExcFlagText(targetDir->Flags));
    GetLog().Info(u"    FileRef #0x%1", util::Hex16(entry.FRN));
    GetLog().Info(u"    FileName %1", entry.FileName);
    GetLog().Info(u"    SubstituteName %1", entry.SubstituteName);
}

void CFastNtfsProcessor::LogUnknownReparseTags() {
    for (const auto& [tag, count] : m_UnknownTags)
        GetLog().Warning(u"Unknown reparse tag 0x%1 found %2 times.", util::Hex8(tag), util::ToStrU64(count));
}

}  // namespace indexer::fast_ntfs_indexer
