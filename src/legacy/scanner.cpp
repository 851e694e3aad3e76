#include "legacy/scanner.h"

#include <algorithm>

#include "base/case.h"
#include "base/format.h"
#include "diag/log.h"
#include "fast/sid.h"
#include "ntfs/ntfs_format.h"
#include "platform/errors.h"
#include "platform/time.h"
#include "platform/volume.h"
#include "platform/volume_io.h"

namespace mftlib {

namespace {

using namespace indexer::fast_ntfs_indexer;

constexpr uint64_t kFirstScannedRecord = 17;
constexpr uint64_t kFirstUserRecord = 16;
constexpr uint64_t kRootRecord = 5;
constexpr uint32_t kProgressInterval = 60000;
constexpr uint32_t kVolumeNameLength = 128;
constexpr std::u16string_view kFnProcessFile = u"mftlib::CScanner::ProcessFile";

uint64_t SiValue(const TScanFileInfo& info, size_t offset) {
    return offset + 8 <= info.StandardInformationLength ? Le64(info.StandardInformation + offset) : 0;
}
uint32_t SiValue32(const TScanFileInfo& info, size_t offset) {
    return offset + 4 <= info.StandardInformationLength ? Le32(info.StandardInformation + offset) : 0;
}

bool IsDosNameOnly(uint8_t nameSpace) { return !(nameSpace & 1) && (nameSpace & 2); }

}  // namespace

TOwnerSource SystemOwnerSource() {
    return {[](std::u16string_view path, std::vector<uint8_t>& sid) { return platform::GetFileOwnerSid(path, sid); },
            &platform::SystemAccounts()};
}

CScanner::CScanner(std::u16string_view volumePath, std::u16string pathPrefix)
    : m_PathPrefix(std::move(pathPrefix)), m_Owners(SystemOwnerSource()) {
    std::u16string mountPoint(volumePath);
    if (!mountPoint.empty() && mountPoint.back() == u'\\') mountPoint.pop_back();
    mountPoint += u'\\';
    std::u16string volumeName;
    if (!platform::GetVolumeNameForVolumeMountPoint(mountPoint, volumeName, kVolumeNameLength))
        throw CWin32Exc(u"Cannot GetVolumeNameForVolumeMountPoint: [%1].", mountPoint);
    if (!volumeName.empty() && volumeName.back() == u'\\') volumeName.pop_back();
    m_Handle = std::make_unique<platform::CHandle>(platform::OpenVolumeDevice(
        volumeName, platform::kGenericRead, platform::kShareRead | platform::kShareWrite,
        platform::kOpenExisting, platform::kFlagNoBuffering));
    if (!m_Handle->IsValid()) throw CWin32Exc(u"Cannot open volume: [%1].", volumeName);
    try {
        m_Volume = OpenMftVolume(m_Handle->Get());
    } catch (CExc& e) {
        e.AddContext(u"Cannot get volume info.");
        throw;
    }
    _Init();
}

CScanner::CScanner(std::unique_ptr<IMftVolume> volume, std::u16string pathPrefix, TOwnerSource owners)
    : m_Volume(std::move(volume)), m_PathPrefix(std::move(pathPrefix)), m_Owners(std::move(owners)) {
    _Init();
}

void CScanner::_Init() {
    platform::TNtfsVolumeData data;
    if (!m_Volume->GetVolumeData(data)) throw CWin32Exc(u"Cannot get volume info.");
    if (data.BytesPerFileRecordSegment < kRecMinHeaderSize || data.BytesPerFileRecordSegment > (1u << 16) ||
        data.BytesPerCluster == 0 || data.MftValidDataLength < 0)
        throw CExc(u"Cannot get volume info. The volume data is not usable: record size %1, cluster size %2.",
                   util::ToStrU32(data.BytesPerFileRecordSegment), util::ToStrU32(data.BytesPerCluster));
    m_RecordBufferSize = data.BytesPerFileRecordSegment + 15;
    const uint64_t records = static_cast<uint64_t>(data.MftValidDataLength) / data.BytesPerFileRecordSegment;
    m_HighestRecord = records == 0 ? 0 : records - 1;
    m_BytesPerCluster = data.BytesPerCluster;
    m_Record.Resize(m_RecordBufferSize);
    m_Extension.Resize(m_RecordBufferSize);
    m_LastProgressTick = platform::GetTickCount();
}

uint64_t CScanner::_ReadRecord(uint64_t frn, CBuf<uint8_t>& buffer, uint32_t& length) {
    uint32_t returned = 0;
    if (!m_Volume->GetFileRecord(frn, buffer.Get(), m_RecordBufferSize, returned) || returned > m_RecordBufferSize)
        throw CWin32Exc(u"Cannot read MFT record.");
    if (returned < platform::kNtfsFileRecordHeaderSize + kRecMinHeaderSize)
        throw CWin32Exc(u"Cannot read MFT record.", platform::kErrInvalidData);
    const uint64_t answered = Le64(buffer.Get()) & kFrnMask;
    length = std::min(Le32(buffer.Get() + 8), returned - platform::kNtfsFileRecordHeaderSize);
    if (length < kRecMinHeaderSize)
        throw CExc(u"MFT record %1 is damaged: its length %2 can't hold a record header.", util::Hex16(answered),
                   util::ToStrU32(length));
    return answered;
}

bool CScanner::_IsBaseRecord(const uint8_t* record, uint64_t frn) const {
    const uint64_t base = Le64(record + kRecBaseReference);
    return base == 0 || (base & kFrnMask) == frn;
}

void CScanner::_Progress(uint64_t frn) {
    const uint32_t now = platform::GetTickCount();
    if (now - m_LastProgressTick <= kProgressInterval) return;
    m_LastProgressTick = now;
    GetLog().Info(u"Processing [%1] item.", util::ToStrU64(frn));
}

void CScanner::_Pass(bool directories, const std::function<void(uint64_t, TScanFileInfo&)>& visit) {
    uint64_t frn = m_HighestRecord;
    while (frn >= kFirstScannedRecord) {
        uint32_t length = 0;
        const uint64_t answered = _ReadRecord(frn, m_Record, length);
        // The answer is at or below the number asked; a higher one would
        // never let the pass end.
        if (answered > frn)
            throw CExc(u"MFT record %1 was answered for record %2.", util::Hex16(answered), util::Hex16(frn));
        frn = answered;
        const uint8_t* record = m_Record.Get() + platform::kNtfsFileRecordHeaderSize;
        const bool isDirectory = (Le16(record + kRecFlags) & kRecFlagDirectory) != 0;
        if (frn >= kFirstScannedRecord && _IsBaseRecord(record, frn) && isDirectory == directories) {
            TScanFileInfo info;
            info.IsDirectory = isDirectory;
            _ParseRecordAttributes(record, length, info, frn);
            visit(frn, info);
            _Progress(frn);
        }
        if (frn == 0) break;
        --frn;
    }
}

void CScanner::ScanDirectories() {
    _ReportDir(u"", 0, 0);
    m_Dirs[0] = {u"", 0, 0, true};
    m_Dirs[kRootRecord] = {u"", 0, 0, true};
    _Pass(true, [this](uint64_t frn, TScanFileInfo& info) { _RegisterDirectory(frn, info); });
    for (auto& link : m_Links) link.Path = util::AsciiLower(m_PathPrefix + _DirectoryPath(link.Frn, nullptr));
}

void CScanner::ScanFiles() {
    _Pass(false, [this](uint64_t frn, TScanFileInfo& info) { _ProcessFile(frn, info); });
}

void CScanner::_RegisterDirectory(uint64_t frn, const TScanFileInfo& info) {
    if (!info.Substitute.empty()) {
        std::u16string target = info.Substitute;
        if (target.starts_with(u"\\??\\")) target.erase(0, 4);
        m_Links.push_back({frn, u"", util::AsciiLower(target)});
    }
    m_Dirs.try_emplace(frn, TDirEntry{info.Name, info.ParentFrn, 0, false});
}

std::u16string CScanner::_DirectoryPath(uint64_t frn, std::vector<uint64_t>* unregistered) {
    std::vector<const std::u16string*> names;
    std::u16string missing;
    // Each step goes to a parent; more steps than directories is a loop of
    // parents on a damaged volume.
    size_t steps = 0;
    while (frn > kRootRecord) {
        if (++steps > m_Dirs.size() + 1)
            throw CExc(u"The parents of directory %1 form a loop.", util::Hex16(frn));
        const auto it = m_Dirs.find(frn);
        if (it == m_Dirs.end()) {
            names.push_back(&missing);
            break;
        }
        names.push_back(&it->second.Name);
        if (unregistered && !it->second.Registered) unregistered->push_back(frn);
        frn = it->second.ParentFrn;
    }
    if (unregistered) std::reverse(unregistered->begin(), unregistered->end());
    std::u16string path;
    for (auto it = names.rbegin(); it != names.rend(); ++it) {
        path += **it;
        path += u'\\';
    }
    return path;
}

uint64_t CScanner::_RowIdOf(uint64_t frn) const {
    const auto it = m_Dirs.find(frn);
    return it == m_Dirs.end() ? 0 : it->second.RowId;
}

void CScanner::_ReportDir(const std::u16string& name, uint64_t parentRowId, uint64_t frn) {
    if (m_OnDir) m_OnDir({name, parentRowId, frn});
}

void CScanner::_ProcessFile(uint64_t, const TScanFileInfo& info) {
    if (IsDosNameOnly(info.NameSpace)) return;
    if (!info.StandardInformation || !m_OnFile || !m_Filter) return;
    if (info.Name.empty()) GetLog().Error(u"%1 fail. Empty file name found!", kFnProcessFile);

    std::vector<uint64_t> unregistered;
    TScanFileRow row;
    row.Attributes = SiValue32(info, kSiFileAttributes);
    row.CreationTime = SiValue(info, kSiCreationTime);
    row.LastAccessTime = SiValue(info, kSiLastAccessTime);
    row.MftChangeTime = SiValue(info, kSiMftChangeTime);
    row.LastWriteTime = SiValue(info, kSiLastWriteTime);
    row.Size = info.Size;
    row.Name = info.Name;
    row.FullPath = m_PathPrefix + _DirectoryPath(info.ParentFrn, &unregistered) + info.Name;

    const uint32_t securityId = SiValue32(info, kSiSecurityId);
    const auto known = m_SecurityIds.find(securityId);
    row.OwnerId = known != m_SecurityIds.end() ? known->second : _ProcessNewSecuriyId(row.FullPath, securityId);

    if (m_Filter(row.FullPath)) {
        for (const uint64_t dir : unregistered) {
            TDirEntry& entry = m_Dirs[dir];
            _ReportDir(entry.Name, _RowIdOf(entry.ParentFrn), dir);
            entry.RowId = ++m_DirRowCounter;
            entry.Registered = true;
        }
        row.DirRowId = _RowIdOf(info.ParentFrn);
        m_OnFile(row);
    }
    _ProcessLinks(row);
}

uint32_t CScanner::_ProcessNewSecuriyId(const std::u16string& path, uint32_t securityId) {
    std::vector<uint8_t> bytes;
    if (!m_Owners.GetOwner || !m_Owners.GetOwner(path, bytes) || bytes.empty()) return 0;
    const util::CSid sid(bytes.data(), bytes.size());
    std::u16string text;
    if (!platform::ConvertSidToStringSid(sid.GetBytes().data(), sid.GetBytes().size(), text))
        throw CWin32Exc(u"Cannot do ConvertSidToStringSid() in ProcessNewSecuriyId");
    const auto known = m_Sids.find(sid.GetBytes());
    if (known != m_Sids.end()) {
        m_SecurityIds[securityId] = known->second;
        return known->second;
    }
    std::u16string name, domain;
    uint32_t use = 0;
    if (m_Owners.Accounts &&
        m_Owners.Accounts->LookupAccountSid(sid.GetBytes().data(), sid.GetBytes().size(), name, domain, use)) {
        if (m_OnOwner) m_OnOwner({text, name, domain});
    } else {
        GetLog().Warning(u"Cannot do LookupAccountSid() for file [%1] in ProcessNewSecuriyId", path);
        if (m_OnOwner) m_OnOwner({text, text, u"-"});
    }
    const uint32_t id = m_NextOwnerId++;
    m_Sids[sid.GetBytes()] = id;
    m_SecurityIds[securityId] = id;
    return id;
}

void CScanner::_ProcessLinks(const TScanFileRow& row) {
    if (m_Links.empty()) return;
    const std::u16string lower = util::AsciiLower(row.FullPath);
    for (const TLink& link : m_Links) {
        if (!lower.starts_with(link.Target)) continue;
        const std::u16string rest = row.FullPath.substr(link.Target.size());
        const std::u16string restLower = lower.substr(link.Target.size());
        const std::u16string candidate = link.Path + restLower;
        if (!m_Filter(candidate)) continue;
        uint64_t rowId = _TryRegisterBaseDir(link.Frn);
        const size_t lastSeparator = candidate.rfind(u'\\');
        const auto known = m_LinkPaths.find(candidate.substr(0, lastSeparator + 1));
        if (known != m_LinkPaths.end()) {
            rowId = known->second;
        } else {
            // Down the folders of `rest` below the link, each made once.
            std::u16string path = link.Path;
            size_t start = 0;
            for (size_t end; (end = rest.find(u'\\', start)) != std::u16string::npos; start = end + 1) {
                path += restLower.substr(start, end - start);
                path += u'\\';
                const auto [it, isNew] = m_LinkPaths.try_emplace(path, 0);
                if (isNew) {
                    _ReportDir(rest.substr(start, end - start), rowId, 0);
                    it->second = ++m_DirRowCounter;
                }
                rowId = it->second;
            }
        }
        TScanFileRow copy = row;
        copy.DirRowId = rowId;
        m_OnFile(copy);
    }
}

uint64_t CScanner::_TryRegisterBaseDir(uint64_t frn) {
    // The chain of unregistered directories up to a registered one (or a
    // metafile, row 0), registered from the top down.
    std::vector<uint64_t> chain;
    while (frn >= kFirstUserRecord) {
        const auto it = m_Dirs.find(frn);
        if (it == m_Dirs.end()) throw CExc(u"Cannot find directory by id in TryRegisterBaseDir", kHrFail);
        if (it->second.Registered) break;
        if (chain.size() > m_Dirs.size())
            throw CExc(u"The parents of directory %1 form a loop.", util::Hex16(frn));
        chain.push_back(frn);
        frn = it->second.ParentFrn;
    }
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        TDirEntry& entry = m_Dirs[*it];
        _ReportDir(entry.Name, entry.ParentFrn < kFirstUserRecord ? 0 : _RowIdOf(entry.ParentFrn), *it);
        entry.RowId = ++m_DirRowCounter;
        entry.Registered = true;
    }
    if (chain.empty()) return frn < kFirstUserRecord ? 0 : _RowIdOf(frn);
    return m_Dirs[chain.front()].RowId;
}

}  // namespace mftlib
