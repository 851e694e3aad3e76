#pragma once
// Tests only: catches what the global log writes, in memory, for the life of
// the object (threshold 1); at the end the log has no writer again and its
// previous threshold.

#include <memory>
#include <string>
#include <vector>

#include "diag/log.h"

namespace ngitest {

struct TLogLine {
    int32_t level;
    int32_t depth;
    std::u16string text;
};

class CMemoryLogWriter : public CLogWriter {
public:
    void WriteLine(int32_t level, const CLog& log, int32_t depth, std::u16string_view text) override;
    std::vector<TLogLine> m_Lines;
};

class CLogCapture {
public:
    CLogCapture();
    ~CLogCapture();
    CLogCapture(const CLogCapture&) = delete;
    CLogCapture& operator=(const CLogCapture&) = delete;

    const std::vector<TLogLine>& Lines() const { return m_Writer->m_Lines; }
    // True when a line holds the text.
    bool Contains(std::u16string_view text) const;
    // The number of lines that hold the text.
    size_t Count(std::u16string_view text) const;
    // The level of the first line that holds the text; 0 when none does.
    int32_t LevelOf(std::u16string_view text) const;
    // Every line's text, each ended by "\n".
    std::u16string Text() const;

private:
    std::shared_ptr<CMemoryLogWriter> m_Writer;
};

}  // namespace ngitest
