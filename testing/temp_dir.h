#pragma once
// Tests only: a fresh folder under the system's temporary folder, removed
// with everything in it when the object goes.

#include <filesystem>
#include <string>
#include <string_view>

namespace ngitest {

class CTempDir {
public:
    CTempDir();
    ~CTempDir();
    CTempDir(const CTempDir&) = delete;
    CTempDir& operator=(const CTempDir&) = delete;

    const std::filesystem::path& Native() const { return m_Path; }
    // The folder (or a path below it, "/" or "\" separated) in the program's
    // spelling.
    std::u16string Path(std::u16string_view rest = {}) const;
    // Writes a file below the folder, its parents made.
    void WriteFile(const std::filesystem::path& rest, std::string_view content) const;
    std::string ReadFile(const std::filesystem::path& rest) const;

private:
    std::filesystem::path m_Path;
};

}  // namespace ngitest
