#include "legacy/legacy_indexers.h"

#include "base/case.h"
#include "base/format.h"
#include "diag/log.h"
#include "legacy/scanner.h"
#include "platform/console.h"
#include "platform/errors.h"
#include "platform/find.h"

namespace indexer::legacy {

namespace {

std::u16string WithoutTrailingSeparator(std::u16string_view text) {
    if (!text.empty() && (text.back() == u'\\' || text.back() == u'/')) text.remove_suffix(1);
    return std::u16string(text);
}

// The three row sinks.
void WriteFileRow(idxdata::CSeqTableWriter& table, const std::u16string& name, uint64_t dirRowId,
                  uint32_t ownerId, uint64_t lastWriteTime, uint64_t size) {
    rec::CFileRecord row;
    row.m_Name = name;
    row.m_ParentId = dirRowId;
    row.m_Owner = ownerId;
    row.m_ModificationTime = lastWriteTime;
    row.m_Size = size;
    table.WriteRecord(row);
}

void WriteDirRow(idxdata::CSeqTableWriter& table, const std::u16string& name, uint64_t parentRowId) {
    rec::CDirRecord row;
    row.m_Name = name;
    row.m_ParentId = parentRowId;
    table.WriteRecord(row);
}

void WriteOwnerRow(idxdata::CSeqTableWriter& table, const std::u16string& sid, const std::u16string& name,
                   const std::u16string& domain) {
    rec::COwnerRecord row;
    row.m_Sid = sid;
    row.m_Second = name;
    row.m_Third = domain;
    table.WriteRecord(row);
}

bool IsDirectory(const platform::TFindData& data) { return (data.attributes & platform::kAttrDirectory) != 0; }

}  // namespace

CLegacyTables::CLegacyTables(std::u16string_view outputDirectory)
    : m_Files(outputDirectory, rec::CFileRecord::kTableId, std::make_shared<rec::CFileRecord>()),
      m_Dirs(outputDirectory, rec::CDirRecord::kTableId, std::make_shared<rec::CDirRecord>()),
      m_Owners(outputDirectory, rec::COwnerRecord::kTableId, std::make_shared<rec::COwnerRecord>()) {}

void CLegacyTables::Discard() {
    for (idxdata::CSeqTableWriter* table : {&m_Files, &m_Dirs, &m_Owners}) {
        try {
            table->Close();
        } catch (const CExc& e) {
            GetLog().LogException(e);
        }
        platform::FileDelete(table->GetFileName());
    }
}

bool CLegacyFilter::IsFileAllowedByFilter(std::u16string_view path) const {
    const std::u16string lower = util::AsciiLower(path);
    const auto isPrefix = [&](const std::u16string& line) { return lower.starts_with(line); };
    if (std::none_of(m_Include.begin(), m_Include.end(), isPrefix)) return false;
    return std::none_of(m_Exclude.begin(), m_Exclude.end(), isPrefix);
}

bool CLegacyFilter::IsVolumeAllowedByFilter(std::u16string_view mountPoint) const {
    const std::u16string volume = util::AsciiLower(WithoutTrailingSeparator(mountPoint));
    const bool included = std::any_of(m_Include.begin(), m_Include.end(), [&](const std::u16string& line) {
        return line.compare(0, volume.size(), volume) == 0;
    });
    if (!included) return false;
    return std::none_of(m_Exclude.begin(), m_Exclude.end(),
                        [&](const std::u16string& line) { return WithoutTrailingSeparator(line) == volume; });
}

void IndexVolumeByMft(CLegacyTables& tables, std::u16string_view mountPoint, const CLegacyFilter& filter) {
    const std::u16string volume = WithoutTrailingSeparator(mountPoint);
    GetLog().Info(u"Volume path: [%1].", u"\\\\.\\" + volume);
    platform::WriteStdOut(u"Gathering MFT from disk: [" + volume + u"].\n");
    mftlib::CScanner scanner(volume, volume + u"\\");
    scanner.SetFileCallback([&](const mftlib::TScanFileRow& row) {
        if (row.Name.empty()) return;
        WriteFileRow(tables.Files(), row.Name, row.DirRowId, row.OwnerId, row.LastWriteTime, row.Size);
    });
    scanner.SetDirCallback(
        [&](const mftlib::TScanDirRow& row) { WriteDirRow(tables.Dirs(), row.Name, row.ParentRowId); });
    scanner.SetOwnerCallback([&](const mftlib::TScanOwnerRow& row) {
        WriteOwnerRow(tables.Owners(), row.Sid, row.Name, row.Domain);
    });
    scanner.SetFilter([&](const std::u16string& path) { return filter.IsFileAllowedByFilter(path); });
    scanner.ScanDirectories();
    scanner.ScanFiles();
}

void IndexVolumeByWalk(CLegacyTables& tables, std::u16string_view mountPoint, const CLegacyFilter& filter) {
    const std::u16string root = WithoutTrailingSeparator(mountPoint);
    GetLog().Info(u"Volume: [%1].", root);
    WriteOwnerRow(tables.Owners(), u"S-1-0-0", u"Nobody", u"");
    uint64_t dirCount = 0, fileCount = 0;

    // One open search a level, deepest last: the walk of a recursive
    // listing, without recursion, so a deep tree can't exhaust the stack.
    struct TLevel {
        std::u16string path;
        uint64_t rowId = 0;
        platform::CFindHandle find;
        platform::TFindData entry;
        bool hasEntry = false;
    };
    std::vector<TLevel> levels;
    const auto enter = [&](const std::u16string& name, const std::u16string& parentPath, uint64_t parentRow) {
        TLevel level;
        level.rowId = dirCount;
        WriteDirRow(tables.Dirs(), name, parentRow);
        level.path = dirCount == 0 ? parentPath : parentPath + u"\\" + name;
        ++dirCount;
        level.find = platform::FindFirst(level.path + u"\\*", level.entry);
        if (!level.find.IsValid()) {
            const uint32_t error = platform::GetLastError();
            if (error != platform::kErrFileNotFound && error != platform::kErrPathNotFound)
                GetLog().LogException(CWin32Exc(u"Failed to index directory [%1]", level.path, error));
            return;
        }
        level.hasEntry = true;
        levels.push_back(std::move(level));
    };

    enter(u"", root, 0);
    while (!levels.empty()) {
        TLevel& level = levels.back();
        if (!level.hasEntry) {
            levels.pop_back();
            continue;
        }
        const platform::TFindData entry = level.entry;
        level.hasEntry = platform::FindNext(level.find, level.entry);
        if (IsDirectory(entry)) {
            if (entry.name.starts_with(u".")) continue;
            if (entry.attributes & platform::kAttrReparsePoint) {
                WriteDirRow(tables.Dirs(), entry.name, level.rowId);
                ++dirCount;
                continue;
            }
            const std::u16string parentPath = level.path;
            const uint64_t parentRow = level.rowId;
            enter(entry.name, parentPath, parentRow);  // may move `levels`
            continue;
        }
        ++fileCount;
        if (filter.IsFileAllowedByFilter(level.path + u"\\" + entry.name))
            WriteFileRow(tables.Files(), entry.name, level.rowId, 0, entry.lastWriteTime, entry.size);
    }
    GetLog().Info(u"Processed %1 dirs, %2 files", util::ToStrU64(dirCount), util::ToStrU64(fileCount));
}

}  // namespace indexer::legacy
