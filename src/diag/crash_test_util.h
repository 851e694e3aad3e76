#pragma once
// Tests only: a log writer that appends each line to a file, opened anew for
// every line, so that a parent process reads what a crashing child logged.

#include <string>

#include "base/utf.h"
#include "diag/log.h"
#include "platform/file.h"

namespace ngitest {

class CLogAppender : public CLogWriter {
public:
    explicit CLogAppender(std::u16string path) : m_Path(std::move(path)) {}
    void WriteLine(int32_t, const CLog&, int32_t, std::u16string_view text) override {
        platform::CHandle file = platform::FileOpen(m_Path, platform::kGenericWrite, platform::kShareRead,
                                                    platform::kOpenAlways, platform::kAttrNormal);
        const std::string line = util::Utf16ToUtf8(text) + "\n";
        uint32_t done = 0;
        if (file.IsValid() && platform::FileSeek(file.Get(), 0, nullptr, platform::kFileEnd))
            platform::FileWrite(file.Get(), line.data(), static_cast<uint32_t>(line.size()), &done);
    }

private:
    std::u16string m_Path;
};

}  // namespace ngitest
