#include "testing/log_capture.h"

namespace ngitest {

void CMemoryLogWriter::WriteLine(int32_t level, const CLog&, int32_t depth, std::u16string_view text) {
    m_Lines.push_back({level, depth, std::u16string(text)});
}

CLogCapture::CLogCapture() : m_Writer(std::make_shared<CMemoryLogWriter>()) {
    GetLog().SetWriter(m_Writer);
    GetLog().SetLevel(LogDetail);
}

CLogCapture::~CLogCapture() {
    GetLog().SetWriter(nullptr);
    GetLog().RestoreLogging();
}

bool CLogCapture::Contains(std::u16string_view text) const { return Count(text) > 0; }

size_t CLogCapture::Count(std::u16string_view text) const {
    size_t count = 0;
    for (const auto& line : m_Writer->m_Lines) count += line.text.find(text) != std::u16string::npos;
    return count;
}

int32_t CLogCapture::LevelOf(std::u16string_view text) const {
    for (const auto& line : m_Writer->m_Lines)
        if (line.text.find(text) != std::u16string::npos) return line.level;
    return 0;
}

std::u16string CLogCapture::Text() const {
    std::u16string all;
    for (const auto& line : m_Writer->m_Lines) all += line.text + u"\n";
    return all;
}

}  // namespace ngitest
