#pragma once
// Setting the log up at start: old files pruned, the daily writer installed,
// the separator line, and the optional header.
//
// The key and value of the number of log files kept: MAX_LOGS_COUNT, a
// DWORD under HKEY_LOCAL_MACHINE\SOFTWARE\NorvA; 30 when missing or
// unreadable. See docs/settings.md.
//
// Not built, as nothing in this program asks for them: the default log
// folder (the common application data folder joined with "Norva\Backup")
// and the default base name; the backup-style writers (docs/log.md).

#include <cstdint>
#include <string_view>

#include "diag/log.h"

namespace diag {

inline constexpr uint32_t kDefaultMaxLogsCount = 30;

// The number of log files a folder keeps, today's included.
uint32_t GetMaxLogsCount();

// Deletes old files "<baseName>*.log" of the folder so that, with the file
// of today, at most GetMaxLogsCount() remain: the files are ranked by last
// write time, newest first, and the one ranked GetMaxLogsCount() and every
// older one go. A file that can't be opened for reading is never deleted. A
// failed delete ends the cleanup quietly; nothing here throws.
void CleanupOldLogs(std::u16string_view folder, std::u16string_view baseName);

// With an empty folder or base name: nothing. Otherwise CleanupOldLogs, a
// CDailyFileLogWriter on (folder, baseName, showThreadId) installed in the
// log, SetLevel(level), a line of 96 "=" at level Info, and, when headerName
// is not empty, WriteHeader.
void InitLog(CLog& log, std::u16string_view folder, std::u16string_view baseName,
             bool showThreadId, int32_t level, std::u16string_view headerName);
// The same on the global log.
void InitLog(std::u16string_view folder, std::u16string_view baseName, bool showThreadId,
             int32_t level, std::u16string_view headerName);

// At level Info: the name, "{", the running module's name, path, build
// edition and (where it has one) file version one step in, "}".
void WriteHeader(CLog& log, std::u16string_view name);

}  // namespace diag
