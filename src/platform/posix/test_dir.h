#pragma once
// Tests only: a fresh folder under $TMPDIR (or /tmp), removed with all its
// contents at the end of the test, and small helpers on native paths.

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "base/utf.h"

namespace platform::posix::testing {

class CTestDir {
public:
    CTestDir() {
        const char* base = ::getenv("TMPDIR");
        std::string templ = std::string(base && *base ? base : "/tmp") + "/ngi-files-XXXXXX";
        if (::mkdtemp(templ.data())) m_Path = templ;
    }
    ~CTestDir() {
        std::error_code ec;
        // Long paths may defeat remove_all; shorten the tree by renaming first.
        std::filesystem::remove_all(m_Path, ec);
    }
    const std::string& Native() const { return m_Path; }
    std::u16string Path() const { return util::Utf8ToUtf16(m_Path); }
    std::u16string Path(std::u16string_view rest) const { return Path() + u"\\" + std::u16string(rest); }
    std::string NativePath(const std::string& rest) const { return m_Path + "/" + rest; }
    void WriteFile(const std::string& rest, const std::string& content = {}) const {
        std::ofstream(NativePath(rest), std::ios::binary) << content;
    }
    void MakeDir(const std::string& rest) const { ::mkdir(NativePath(rest).c_str(), 0777); }

private:
    std::string m_Path;
};

}  // namespace platform::posix::testing
