#pragma once
// Tests only (POSIX): a volume table of the test's own over temporary
// folders, and an index file decoded into plain lines that a test compares
// with what it built on disk.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "base/utf.h"
#include "platform/posix/volume_table.h"
#include "platform/volume_table.h"
#include "store/index_base_reader.h"

namespace walktest {

inline constexpr char16_t kVolC[] = u"\\\\?\\Volume{0000000c-0000-0000-0000-00000000000c}\\";
inline constexpr char16_t kVolD[] = u"\\\\?\\Volume{0000000d-0000-0000-0000-00000000000d}\\";

// Makes the machine's volume table the given one for the object's life.
class CTestVolumes {
public:
    explicit CTestVolumes(std::vector<platform::TVolumeTableEntry> volumes,
                          std::vector<platform::TShadowTableEntry> shadows = {}) {
        platform::posix::SetSystemVolumeTable(
            std::make_shared<platform::CVolumeTable>(std::move(volumes), std::move(shadows)));
    }
    ~CTestVolumes() { platform::posix::SetSystemVolumeTable(nullptr); }
    CTestVolumes(const CTestVolumes&) = delete;
    CTestVolumes& operator=(const CTestVolumes&) = delete;
};

inline platform::TVolumeTableEntry Volume(std::u16string mountPoint, std::u16string volumeName,
                                          const std::filesystem::path& folder) {
    platform::TVolumeTableEntry entry;
    entry.mountPoints = {std::move(mountPoint)};
    entry.volumeName = std::move(volumeName);
    entry.folder = folder.string();
    return entry;
}

// "\\?\Volume{...}" without its trailing "\": the name the live walk reads.
inline std::u16string DeviceName(std::u16string_view volumeName) {
    return std::u16string(volumeName.substr(0, volumeName.size() - 1));
}

inline std::string U8(std::u16string_view text) { return util::Utf16ToUtf8(text); }

// Every row of an index file as a line, paths from the root joined by "\":
//   "D <path>"                         a directory (the root is "D ")
//   "F <path> <size>"                  a file
//   "R <parent path>|<name>|<substitute>" a reparse point
inline std::set<std::string> DecodeIndex(std::u16string_view file) {
    indexer::CIndexBaseReader reader;
    reader.Open(file);
    reader.PrepareIdIndexes();
    std::set<std::string> lines;
    for (uint64_t id = 0; id < reader.GetDirCount(); ++id)
        lines.insert("D " + U8(reader.GetDirPath(id)));
    reader.ForEachFile([&](uint64_t, uint64_t, const rec::CFileRecord& f) {
        std::u16string parent = reader.GetDirPath(f.m_ParentId);
        lines.insert("F " + U8(parent.empty() ? f.m_Name : parent + u"\\" + f.m_Name) + " " + std::to_string(f.m_Size));
    });
    reader.ForEachReparse([&](uint64_t, const rec::CReparseRecord& r) {
        lines.insert("R " + U8(reader.GetDirPath(r.m_ParentId)) + "|" + U8(r.m_Name) + "|" +
                     U8(r.m_Substitute));
    });
    return lines;
}

inline void WriteFile(const std::filesystem::path& path, size_t size) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary);
    out << std::string(size, 'x');
}

}  // namespace walktest
