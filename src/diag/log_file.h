#pragma once
// The file writers of the log.
//
// CFileLogWriter keeps one file open and writes each line with one
// FileWrite, as UTF-16LE, never buffered. A line reads, with the thread id
// off:
//
//   <date> <time>    <label>    <tags><indentation><text>\r\n
//
// date and time as the user's locale shows them (platform/time.h), two
// blanks, the thread id in five columns when shown, two blanks, the level
// label of four characters ("    ", "INFO", "WARN", "ERR "), four blanks,
// each tag as "[tag]" and one blank behind them all, and four blanks per
// depth step less the width of the tags.
//
// A new file (one that could not be opened as existing) is created with its
// folders, opened to every local user, and begins with the byte order mark
// FF FE; an existing file is appended to. A failure to open drops the line
// without a word: logging never fails the caller.
//
// Thread-safety: WriteLine may come from any thread; each writer has its own
// lock, taken after the log's. Once the process crashes (diag/log_lock.h)
// the lines take the system's clock, not the one set here, and a line whose
// lock can't be had goes to the open file without it, never to a new one.

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "diag/log.h"
#include "platform/file.h"
#include "platform/time.h"

namespace diag {

// The clock of the lines and of the day change; local time by default.
using TLogClock = std::function<void(platform::TSystemTime&)>;

// One line as CFileLogWriter writes it, with its "\r\n".
std::u16string FormatLogLine(const platform::TSystemTime& time, bool showThreadId,
                             uint32_t threadId, int32_t level,
                             const std::vector<std::u16string>& tags, int32_t depth,
                             std::u16string_view text);

// "Name" + "\\" + file, with no separator doubled; the name alone for an
// empty folder.
std::u16string JoinLogPath(std::u16string_view folder, std::u16string_view file);

// Creates the folder and every missing parent. False (last error set) when
// it can't; an existing folder is success.
bool CreateFolderTree(std::u16string_view folder);

}  // namespace diag

class CFileLogWriter : public CLogWriter {
public:
    explicit CFileLogWriter(bool showThreadId);
    ~CFileLogWriter() override;

    void WriteLine(int32_t level, const CLog& log, int32_t depth,
                   std::u16string_view text) override;
    // The file the next line belongs in.
    virtual void GetFileName(std::u16string& name) = 0;
    // True when the next line needs another file than the open one.
    virtual bool IsNewFileNeeded() = 0;

    // The open file's name; empty before the first line.
    std::u16string GetCurrentFileName() const;
    // Replaces the clock (tests).
    void SetClock(diag::TLogClock clock);

protected:
    void Now(platform::TSystemTime& time) const;

private:
    void _OpenFile();

    platform::CHandle m_File;
    std::u16string m_FileName;
    mutable std::recursive_timed_mutex m_Lock;  // recursive: a crash inside a line logs again
    bool m_ShowThreadId;
    uint32_t m_ShareMode = platform::kShareRead | platform::kShareWrite;
    diag::TLogClock m_Clock;
};

// One file a calendar day: "<folder>\<baseName>_DDMMYYYY.log". The day
// changes when the local date (with its day of the week) differs from the
// stored one, so the first line opens the file.
class CDailyFileLogWriter : public CFileLogWriter {
public:
    CDailyFileLogWriter(std::u16string folder, std::u16string baseName, bool showThreadId);
    void GetFileName(std::u16string& name) override;
    bool IsNewFileNeeded() override;

private:
    platform::TSystemTime m_Day{};
    std::u16string m_Folder;
    std::u16string m_BaseName;
};
