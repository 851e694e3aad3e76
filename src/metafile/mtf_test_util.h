#pragma once
// Tests only: a fresh folder for meta-files, and byte-level file helpers.

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/utf.h"
#include "metafile/mtf_lines.h"
#include "testing/temp_dir.h"

namespace metafile::testing {

class CMtfTestDir {
public:
    CMtfTestDir() : m_Path(m_Dir.Native().string()) {}
    // The program's spelling of a file in the folder.
    std::u16string Path(const std::string& name) const { return util::Utf8ToUtf16(m_Path + "\\" + name); }
    std::string Native(const std::string& name) const { return m_Path + "/" + name; }
    void Write(const std::string& name, const std::string& bytes) const {
        std::ofstream(Native(name), std::ios::binary) << bytes;
    }
    std::string Read(const std::string& name) const {
        std::ifstream in(Native(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    bool Exists(const std::string& name) const { return std::filesystem::exists(Native(name)); }

private:
    ngitest::CTempDir m_Dir;
    std::string m_Path;
};

// UTF-16LE bytes of ASCII text (tests write files in the meta-file's encoding).
inline std::string Le(std::string_view ascii) {
    std::string out;
    for (char c : ascii) {
        out += c;
        out += '\0';
    }
    return out;
}
inline const std::string kBom = "\xFF\xFE";

// The live lines of a table, in order.
inline std::vector<std::u16string> Lines(const CMtfLinesTab& tab) {
    std::vector<std::u16string> lines;
    std::u16string text;
    for (int64_t i = 0; i < tab.GetLineCount(); ++i)
        if (tab.GetLine(i, text)) lines.push_back(text);
    return lines;
}

}  // namespace metafile::testing
