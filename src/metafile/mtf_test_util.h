#pragma once
// Tests only: a fresh folder for meta-files, and the bytes of their text.

#include <filesystem>
#include <string>
#include <vector>

#include "base/utf.h"
#include "metafile/mtf_lines.h"
#include "testing/temp_dir.h"

namespace metafile::testing {

// Names of files in the folder are given in UTF-8.
class CMtfTestDir : public ngitest::CTempDir {
public:
    std::u16string Path(const std::string& name) const { return ngitest::CTempDir::Path(util::Utf8ToUtf16(name)); }
    std::filesystem::path Native(const std::string& name) const { return ngitest::CTempDir::Native() / name; }
    void Write(const std::string& name, const std::string& bytes) const { WriteFile(name, bytes); }
    std::string Read(const std::string& name) const { return ReadFile(name); }
    bool Exists(const std::string& name) const { return std::filesystem::exists(Native(name)); }
};

// UTF-16LE bytes of ASCII text (tests write files in the meta-file's encoding).
inline std::string Le(std::string_view ascii) {
    std::string out;
    for (char c : ascii) out += {c, '\0'};
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
