#include "testing/temp_dir.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>

namespace ngitest {

CTempDir::CTempDir() {
    static std::atomic<unsigned> counter{0};
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    for (int attempt = 0; attempt < 100; ++attempt) {
        const auto p = std::filesystem::temp_directory_path() /
                       ("ngi-test-" + std::to_string(now) + "-" + std::to_string(counter++));
        std::error_code ec;
        if (std::filesystem::create_directory(p, ec)) {
            m_Path = p;
            return;
        }
    }
}

CTempDir::~CTempDir() {
    std::error_code ec;
    if (!m_Path.empty()) std::filesystem::remove_all(m_Path, ec);
}

std::u16string CTempDir::Path(std::u16string_view rest) const {
    std::u16string path = m_Path.u16string();
    if (!rest.empty()) {
        path += u'/';
        path += rest;
    }
    return path;
}

void CTempDir::WriteFile(const std::filesystem::path& rest, std::string_view content) const {
    const auto p = m_Path / rest;
    std::filesystem::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
}

std::string CTempDir::ReadFile(const std::filesystem::path& rest) const {
    std::ifstream in(m_Path / rest, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

}  // namespace ngitest
