#include "diag/log_file.h"

#include <cstring>

#include "base/format.h"
#include "diag/log_lock.h"
#include "platform/errors.h"
#include "platform/file_acl.h"
#include "platform/process.h"

namespace diag {

namespace {

const char16_t* LevelLabel(int32_t level) {
    switch (level) {
        case LogInfo: return u"INFO";
        case LogWarning: return u"WARN";
        case LogError: return u"ERR ";
        default: return u"    ";
    }
}

bool IsSeparator(char16_t c) { return c == u'\\' || c == u'/'; }

}  // namespace

std::u16string FormatLogLine(const platform::TSystemTime& time, bool showThreadId,
                             uint32_t threadId, int32_t level,
                             const std::vector<std::u16string>& tags, int32_t depth,
                             std::u16string_view text) {
    std::u16string line = platform::FormatDate(time);
    line += u' ';
    line += platform::FormatTime(time);
    line += u"  ";
    if (showThreadId) {
        std::u16string id = util::ToStrU32(threadId);
        if (id.size() < 5) line.append(5 - id.size(), u' ');
        line += id;
    }
    line += u"  ";
    line += LevelLabel(level);
    line += u"    ";
    size_t tagsWidth = 0;
    for (const auto& tag : tags) {
        line += u'[';
        line += tag;
        line += u']';
        tagsWidth += tag.size() + 2;
    }
    if (!tags.empty()) {
        line += u' ';
        ++tagsWidth;
    }
    const size_t indent = depth > 0 ? static_cast<size_t>(depth) * 4 : 0;
    if (indent > tagsWidth) line.append(indent - tagsWidth, u' ');
    line += text;
    line += u"\r\n";
    return line;
}

std::u16string JoinLogPath(std::u16string_view folder, std::u16string_view file) {
    std::u16string path(folder);
    if (!path.empty() && !IsSeparator(path.back())) path += u'\\';
    path += file;
    return path;
}

bool CreateFolderTree(std::u16string_view folder) {
    while (!folder.empty() && IsSeparator(folder.back()) && folder.size() > 1)
        folder.remove_suffix(1);
    if (folder.empty()) return true;
    if (platform::DirCreate(folder) || platform::GetLastError() == platform::kErrAlreadyExists)
        return true;
    if (platform::GetLastError() != platform::kErrPathNotFound) return false;
    size_t cut = folder.find_last_of(u"\\/");
    if (cut == std::u16string_view::npos || cut == 0) return false;  // no parent to make
    if (!CreateFolderTree(folder.substr(0, cut))) return false;
    return platform::DirCreate(folder) || platform::GetLastError() == platform::kErrAlreadyExists;
}

}  // namespace diag

CFileLogWriter::CFileLogWriter(bool showThreadId)
    : m_ShowThreadId(showThreadId), m_Clock([](platform::TSystemTime& t) { platform::GetLocalTime(t); }) {}

CFileLogWriter::~CFileLogWriter() = default;

std::u16string CFileLogWriter::GetCurrentFileName() const {
    diag::TLogLockGuard lock(m_Lock);
    return m_FileName;
}

void CFileLogWriter::SetClock(diag::TLogClock clock) {
    diag::TLogLockGuard lock(m_Lock);
    m_Clock = std::move(clock);
}

void CFileLogWriter::Now(platform::TSystemTime& time) const {
    // A crash may have happened inside the clock.
    if (diag::InCrashMode())
        platform::GetLocalTime(time);
    else
        m_Clock(time);
}

void CFileLogWriter::_OpenFile() {
    using namespace platform;
    std::u16string name;
    GetFileName(name);
    const uint32_t access = kGenericWrite;
    CHandle file = FileOpen(name, access, m_ShareMode, kOpenExisting, kAttrNormal);
    if (!file.IsValid()) {
        size_t cut = name.find_last_of(u"\\/");
        if (cut != std::u16string::npos && cut > 0) diag::CreateFolderTree(name.substr(0, cut));
        file = FileOpen(name, access, m_ShareMode, kOpenAlways, kAttrNormal);
        if (!file.IsValid()) throw CWin32Exc(u"Cannot open log file [%1].", name);
        // Users who run the program later append to the same file. A failure
        // here costs nothing that a reader of the log could see.
        AllowUsersFullAccess(name);
        int64_t size = 0;
        if (FileGetSize(file.Get(), &size) && size == 0) {
            static const uint8_t kBom[] = {0xFF, 0xFE};
            uint32_t done = 0;
            if (!FileWrite(file.Get(), kBom, sizeof kBom, &done))
                throw CWin32Exc(u"Cannot write log file [%1].", name);
        }
    }
    if (!FileSeek(file.Get(), 0, nullptr, kFileEnd))
        throw CWin32Exc(u"Cannot seek log file [%1].", name);
    m_File = std::move(file);
    m_FileName = std::move(name);
}

void CFileLogWriter::WriteLine(int32_t level, const CLog& log, int32_t depth,
                               std::u16string_view text) {
    diag::TLogLockGuard lock(m_Lock);
    try {
        if (lock.OwnsLock() && (IsNewFileNeeded() || !m_File.IsValid())) _OpenFile();
        if (!m_File.IsValid()) return;
        platform::TSystemTime now;
        Now(now);
        const std::u16string line =
            diag::FormatLogLine(now, m_ShowThreadId, platform::GetCurrentThreadId(), level,
                                log.GetTags(), depth, text);
        std::vector<uint8_t> bytes(line.size() * 2);
        for (size_t i = 0; i < line.size(); ++i) {
            bytes[2 * i] = static_cast<uint8_t>(line[i] & 0xFF);
            bytes[2 * i + 1] = static_cast<uint8_t>(line[i] >> 8);
        }
        uint32_t done = 0;
        platform::FileWrite(m_File.Get(), bytes.data(), static_cast<uint32_t>(bytes.size()), &done);
    } catch (const CExc&) {
        // Logging never fails the caller.
    }
}

CDailyFileLogWriter::CDailyFileLogWriter(std::u16string folder, std::u16string baseName,
                                         bool showThreadId)
    : CFileLogWriter(showThreadId), m_Folder(std::move(folder)), m_BaseName(std::move(baseName)) {}

bool CDailyFileLogWriter::IsNewFileNeeded() {
    platform::TSystemTime day;
    Now(day);
    day.hour = day.minute = day.second = day.milliseconds = 0;
    if (std::memcmp(&day, &m_Day, sizeof day) == 0) return false;
    m_Day = day;
    return true;
}

void CDailyFileLogWriter::GetFileName(std::u16string& name) {
    auto twoDigits = [](unsigned v) {
        return std::u16string{static_cast<char16_t>(u'0' + v / 10 % 10),
                              static_cast<char16_t>(u'0' + v % 10)};
    };
    std::u16string year = util::ToStrU32(m_Day.year);
    if (year.size() < 4) year.insert(0, 4 - year.size(), u'0');
    name = diag::JoinLogPath(m_Folder, m_BaseName + u"_" + twoDigits(m_Day.day) +
                                           twoDigits(m_Day.month) + year + u".log");
}
