#pragma once
// CLog: the program's logger. One global instance (GetLog()) serves the whole
// program; lines go to a CLogWriter, in this program a CDailyFileLogWriter.
// Without a writer every call is a cheap no-op: the level test comes first,
// before any argument is formatted.
//
// Messages use the %1 formatter (base/format.h) with up to five arguments.
// Thread-safety: every call may come from any thread (one lock per log,
// then the writer's own lock). Once the process crashes neither lock is
// waited for long (diag/log_lock.h).

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "base/exc.h"
#include "base/format.h"

enum ELogLevel : int32_t {
    LogDetail = 1,   // label: four blanks
    LogInfo = 2,     // "INFO"
    LogWarning = 3,  // "WARN"
    LogError = 4,    // "ERR "
    LogOff = 5,      // threshold only
};

class CLog;

// Receives finished lines (one line of text, no line end).
class CLogWriter {
public:
    virtual ~CLogWriter() = default;
    virtual void WriteLine(int32_t level, const CLog& log, int32_t depth,
                           std::u16string_view text) = 0;
};

class CLog {
public:
    class CLogLock {
    public:
        std::recursive_timed_mutex m_Mutex;
    };
    class CMsgAligment {
    public:
        std::shared_ptr<CLogLock> m_Lock;
        int32_t m_Depth = 0;  // never below 0
    };
    class CSharedState {
    public:
        std::shared_ptr<CLogLock> m_Lock;
        std::shared_ptr<CMsgAligment> m_Alignment;
        std::shared_ptr<CLogWriter> m_Writer;
        int32_t m_Threshold = LogDetail;
        std::u16string m_FileName;
    };

    CLog();

    bool IsEnabled(int32_t level) const;

    template <class... A>
    void Detail(std::u16string_view format, const A&... args) { Write(LogDetail, format, args...); }
    template <class... A>
    void Info(std::u16string_view format, const A&... args) { Write(LogInfo, format, args...); }
    template <class... A>
    void Warning(std::u16string_view format, const A&... args) { Write(LogWarning, format, args...); }
    template <class... A>
    void Error(std::u16string_view format, const A&... args) { Write(LogError, format, args...); }

    template <class... A>
    void Write(int32_t level, std::u16string_view format, const A&... args) {
        static_assert(sizeof...(A) <= 5, "at most five arguments");
        if (!IsEnabled(level)) return;
        WriteText(level, FormatMessageArgs(format, {std::u16string_view(args)...}));
    }

    // Level 4: each line of the exception's description, one step deeper
    // than the current depth; the second form writes `message` first.
    void LogException(const CExc& e);
    void LogException(std::u16string_view message, const CExc& e);

    // Cuts the text at line ends and hands each line to the writer.
    void WriteText(int32_t level, std::u16string_view text);

    void SetWriter(std::shared_ptr<CLogWriter> writer);
    void SetLevel(int32_t level);     // saves the current threshold first
    void SuspendLogging();            // save the threshold and set 5
    void RestoreLogging();            // back to the saved threshold
    int32_t GetLevel() const;
    void GetLogFileName(std::u16string& name) const;

    // Indentation, one per log (not per thread).
    void IncDepth();
    void DecDepth();
    int32_t GetDepth() const;

    const std::vector<std::u16string>& GetTags() const { return m_Tags; }

private:
    std::vector<std::u16string> m_Tags;
    std::shared_ptr<CSharedState> m_State;
    std::shared_ptr<CMsgAligment> m_Alignment;
    [[maybe_unused]] bool m_Unused = false;
    int32_t m_SavedLevel = LogInfo;
};

// The global log, constructed before main and living to process exit.
CLog& GetLog();

// A titled unit of work: the title one step in, its content two; closes with
// the title and ". Ok." (Complete) or ". Failed." (destroyed without Complete).
class CLogBlock {
public:
    template <class... A>
    CLogBlock(CLog& log, std::u16string_view format, const A&... args)
        : m_Log(log), m_Level(LogDetail) {
        if (m_Log.IsEnabled(m_Level)) Open(FormatMessageArgs(format, {std::u16string_view(args)...}));
    }
    ~CLogBlock();
    CLogBlock(const CLogBlock&) = delete;
    CLogBlock& operator=(const CLogBlock&) = delete;

    void Complete();
    void Complete(std::u16string_view text);

protected:
    struct InfoLevel {};
    template <class... A>
    CLogBlock(InfoLevel, CLog& log, std::u16string_view format, const A&... args)
        : m_Log(log), m_Level(LogInfo) {
        if (m_Log.IsEnabled(m_Level)) Open(FormatMessageArgs(format, {std::u16string_view(args)...}));
    }

private:
    void Open(std::u16string text);
    bool m_Done = true;
    CLog& m_Log;
    int32_t m_Level;
    std::u16string m_Title;
};

// The same at level Info.
class CLogBlockInfo : public CLogBlock {
public:
    template <class... A>
    CLogBlockInfo(CLog& log, std::u16string_view format, const A&... args)
        : CLogBlock(InfoLevel{}, log, format, args...) {}
};
