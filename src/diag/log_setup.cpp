#include "diag/log_setup.h"

#include <map>

#include "diag/log_file.h"
#include "diag/settings.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "platform/find.h"
#include "platform/process.h"
#include "platform/registry.h"

namespace diag {

uint32_t GetMaxLogsCount() {
    uint32_t value = 0;
    if (platform::RegReadDword(platform::kHkeyLocalMachine, u"SOFTWARE\\NorvA", u"MAX_LOGS_COUNT",
                               value))
        return value;
    if (platform::GetLastError() == platform::kErrInvalidData)
        settings::WarnUnusableValue(u"SOFTWARE\\NorvA", u"MAX_LOGS_COUNT", u"not a DWORD",
                                    util::ToStrU32(kDefaultMaxLogsCount));
    return kDefaultMaxLogsCount;
}

void CleanupOldLogs(std::u16string_view folder, std::u16string_view baseName) {
    using namespace platform;
    const uint32_t maxLogs = GetMaxLogsCount();
    std::multimap<uint64_t, std::u16string> byTime;  // equal times keep both files
    TFindData data;
    CFindHandle search = FindFirst(JoinLogPath(folder, std::u16string(baseName) + u"*.log"), data);
    if (!search.IsValid()) return;
    do {
        if (data.attributes & kAttrDirectory) continue;
        std::u16string path = JoinLogPath(folder, data.name);
        CHandle file = FileOpen(path, kGenericRead, kShareRead, kOpenExisting, kAttrNormal);
        uint64_t lastWrite = 0;
        if (!file.IsValid() || !FileGetTimes(file.Get(), nullptr, nullptr, &lastWrite)) continue;
        byTime.emplace(lastWrite, std::move(path));
    } while (FindNext(search, data));

    try {
        uint32_t rank = 0;
        for (auto it = byTime.rbegin(); it != byTime.rend(); ++it) {
            if (++rank < maxLogs) continue;
            if (!FileDelete(it->second)) throw CWin32Exc(u"Cannot delete old log [%1].", it->second);
        }
    } catch (const CExc&) {
        // The log is not set up yet; start-up goes on with what is left.
    }
}

void InitLog(CLog& log, std::u16string_view folder, std::u16string_view baseName,
             bool showThreadId, int32_t level, std::u16string_view headerName) {
    if (folder.empty() || baseName.empty()) return;
    CleanupOldLogs(folder, baseName);
    log.SetWriter(std::make_shared<CDailyFileLogWriter>(std::u16string(folder),
                                                        std::u16string(baseName), showThreadId));
    log.SetLevel(level);
    log.Info(std::u16string(96, u'='));
    // The cleanup read the limit before the log had a file: read it again
    // for the warning of an unusable value.
    if (&log == &GetLog()) GetMaxLogsCount();
    if (!headerName.empty()) WriteHeader(log, headerName);
}

void InitLog(std::u16string_view folder, std::u16string_view baseName, bool showThreadId,
             int32_t level, std::u16string_view headerName) {
    InitLog(GetLog(), folder, baseName, showThreadId, level, headerName);
}

void WriteHeader(CLog& log, std::u16string_view name) {
    log.Info(name);
    log.Info(u"{");
    log.IncDepth();
    std::u16string path;
    platform::GetModuleFileName(path);
    const size_t cut = path.find_last_of(u"\\/");
    const std::u16string moduleName = cut == std::u16string::npos ? path : path.substr(cut + 1);
    log.Info(u"Module name: [%1].", moduleName);
    log.Info(u"Module path: [%1].", path);
    log.Info(u"Build edition: [%1].", u"");
    uint16_t parts[4] = {};
    if (platform::GetFileVersion(path, parts))
        log.Info(u"Module version: [%1].", util::ToStrU32(parts[0]) + u"." + util::ToStrU32(parts[1]) +
                                               u"." + util::ToStrU32(parts[2]) + u"." +
                                               util::ToStrU32(parts[3]));
    log.DecDepth();
    log.Info(u"}");
}

}  // namespace diag
