#include "diag/log.h"

#include "diag/log_file.h"
#include "diag/log_lock.h"

CLog::CLog()
    : m_State(std::make_shared<CSharedState>()), m_Alignment(std::make_shared<CMsgAligment>()) {
    m_State->m_Lock = std::make_shared<CLogLock>();
    m_State->m_Alignment = m_Alignment;
    m_Alignment->m_Lock = m_State->m_Lock;
}

bool CLog::IsEnabled(int32_t level) const {
    diag::TLogLockGuard lock(m_State->m_Lock->m_Mutex);
    return m_State->m_Writer != nullptr && m_State->m_Threshold <= level;
}

void CLog::WriteText(int32_t level, std::u16string_view text) {
    diag::TLogLockGuard lock(m_State->m_Lock->m_Mutex);
    if (!m_State->m_Writer || m_State->m_Threshold > level) return;
    const int32_t depth = m_Alignment->m_Depth;
    size_t start = 0;
    while (true) {
        size_t end = text.find_first_of(u"\r\n", start);
        std::u16string_view line = text.substr(start, end == std::u16string_view::npos
                                                          ? std::u16string_view::npos
                                                          : end - start);
        m_State->m_Writer->WriteLine(level, *this, depth, line);
        if (end == std::u16string_view::npos) break;
        start = end + 1;
        if (text[end] == u'\r' && start < text.size() && text[start] == u'\n') ++start;
        if (start >= text.size()) break;
    }
}

void CLog::LogException(const CExc& e) {
    if (!IsEnabled(LogError)) return;
    IncDepth();
    for (const auto& message : e.GetMessages()) WriteText(LogError, message);
    DecDepth();
}

void CLog::LogException(std::u16string_view message, const CExc& e) {
    if (!IsEnabled(LogError)) return;
    WriteText(LogError, message);
    LogException(e);
}

void CLog::SetWriter(std::shared_ptr<CLogWriter> writer) {
    diag::TLogLockGuard lock(m_State->m_Lock->m_Mutex);
    m_State->m_Writer = std::move(writer);
    m_State->m_FileName.clear();
    if (auto* file = dynamic_cast<CFileLogWriter*>(m_State->m_Writer.get()))
        m_State->m_FileName = file->GetCurrentFileName();
}

void CLog::SetLevel(int32_t level) {
    diag::TLogLockGuard lock(m_State->m_Lock->m_Mutex);
    m_SavedLevel = m_State->m_Threshold;
    m_State->m_Threshold = level;
}

void CLog::SuspendLogging() { SetLevel(LogOff); }

void CLog::RestoreLogging() {
    diag::TLogLockGuard lock(m_State->m_Lock->m_Mutex);
    m_State->m_Threshold = m_SavedLevel;
}

int32_t CLog::GetLevel() const {
    diag::TLogLockGuard lock(m_State->m_Lock->m_Mutex);
    return m_State->m_Threshold;
}

void CLog::GetLogFileName(std::u16string& name) const {
    diag::TLogLockGuard lock(m_State->m_Lock->m_Mutex);
    // A file writer opens its file at the first line and changes it at
    // midnight: ask it for the file it writes now.
    if (auto* file = dynamic_cast<CFileLogWriter*>(m_State->m_Writer.get())) {
        std::u16string current = file->GetCurrentFileName();
        if (!current.empty()) m_State->m_FileName = std::move(current);
    }
    name = m_State->m_FileName;
}

void CLog::IncDepth() {
    diag::TLogLockGuard lock(m_State->m_Lock->m_Mutex);
    ++m_Alignment->m_Depth;
}

void CLog::DecDepth() {
    diag::TLogLockGuard lock(m_State->m_Lock->m_Mutex);
    if (--m_Alignment->m_Depth < 0) m_Alignment->m_Depth = 0;
}

int32_t CLog::GetDepth() const {
    diag::TLogLockGuard lock(m_State->m_Lock->m_Mutex);
    return m_Alignment->m_Depth;
}

CLog& GetLog() {
    static CLog log;
    return log;
}

void CLogBlock::Open(std::u16string text) {
    m_Done = false;
    m_Title = std::move(text);
    m_Log.IncDepth();
    m_Log.WriteText(m_Level, m_Title);
    m_Log.IncDepth();
}

void CLogBlock::Complete() { Complete(m_Title); }

void CLogBlock::Complete(std::u16string_view text) {
    if (!m_Log.IsEnabled(m_Level) || m_Done) return;
    m_Done = true;
    m_Log.DecDepth();
    m_Log.WriteText(m_Level, std::u16string(text) + u". Ok.");
    m_Log.DecDepth();
}

CLogBlock::~CLogBlock() {
    if (!m_Log.IsEnabled(m_Level) || m_Done) return;
    m_Log.DecDepth();
    m_Log.WriteText(m_Level, m_Title + u". Failed.");
    m_Log.DecDepth();
}
