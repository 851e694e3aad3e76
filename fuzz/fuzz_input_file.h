#pragma once
// Fuzz targets only: the input written to a temporary file of this process,
// for readers that take a file name. The file is rewritten for each input
// and removed at exit.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/utf.h"

namespace ngifuzz {

class CInputFile {
public:
    explicit CInputFile(const char* suffix) {
        const char* dir = std::getenv("TMPDIR");
        m_Path = std::string(dir && *dir ? dir : "/tmp") + "/ngi-fuzz-" + std::to_string(::getpid()) + suffix;
    }
    ~CInputFile() { std::remove(m_Path.c_str()); }

    // Writes the bytes; the file's name as the program spells it.
    std::u16string Write(const uint8_t* data, size_t size) {
        FILE* f = std::fopen(m_Path.c_str(), "wb");
        if (!f) std::abort();
        if (size && std::fwrite(data, 1, size, f) != size) std::abort();
        std::fclose(f);
        return util::Utf8ToUtf16(m_Path);
    }

private:
    std::string m_Path;
};

}  // namespace ngifuzz
