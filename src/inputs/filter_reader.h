#pragma once
// Reading of the include and exclude filter files.
//
// A filter file is UTF-16 little-endian text, with or without the mark
// 0xFEFF, one absolute folder path a line, lines ended by CR LF. It lies in
// the folder of the executable and must be smaller than 10 MiB. Each line is
// normalised (quotes dropped, A-Z lower-cased, %name% tokens expanded from
// the environment, "/" made "\", a trailing "\" ensured).
//
// Failures throw CExc (code 0x80004005): "Cannot find file: %1" when a file
// can't be opened, "Size of NorvaGuestIndexer.filter is too big (%1 bytes)",
// "Unicode filter file contains non-unicode lines." for an odd byte count.

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace indexer {

inline constexpr std::u16string_view kIncludeFilterFileName = u"NorvaGuestIndexer.inc.filter";
inline constexpr std::u16string_view kExcludeFilterFileName = u"NorvaGuestIndexer.exc.filter";
inline constexpr std::u16string_view kSnapshotMappingFileName =
    u"NorvaGuestIndexer.SnapshotMapping.xml";
inline constexpr uint64_t kMaxFilterFileSize = 0xA00000;

class CFilterReader {
public:
    // moduleFolder: the folder of the executable, where the input files lie.
    // environment: the entries of the environment block, "name=value" each.
    // Each entry is lower-cased whole (A-Z) and split at its first "="; an
    // entry without "=" throws "Cannot find = in environment variables
    // string". A later entry of the same name wins.
    CFilterReader(std::u16string moduleFolder, const std::vector<std::u16string>& environment);
    // The reader of this process: the executable's folder and the process's
    // environment. Throws CWin32Exc when the executable's path is unknown.
    static CFilterReader FromProcess();

    // Reads the include file and then the exclude file into the two lists.
    void ReadFilters(std::vector<std::u16string>& include,
                     std::vector<std::u16string>& exclude) const;
    // Reads one filter file of the module folder, appending its lines.
    void ReadFilterFile(std::u16string_view name, std::vector<std::u16string>& lines) const;
    // Splits the bytes of a filter file into normalised lines, appended.
    // Only CR LF ends a line; a line feed at index 1 ends an empty first line
    // (the first character is lost), a lone CR or LF stays in its line.
    void ParseFilterText(const uint8_t* data, size_t size,
                         std::vector<std::u16string>& lines) const;
    std::u16string NormaliseFilterLine(std::u16string_view line) const;
    // Replaces each %name% whose lower-cased name is in the environment map by
    // its value; unknown tokens stay as they are, "%" signs included.
    std::u16string ExpandEnvironmentTokens(std::u16string_view text) const;

    const std::u16string& GetSnapshotMappingFileName() const { return m_SnapshotMappingFileName; }
    void SetSnapshotMappingFileName(std::u16string name) { m_SnapshotMappingFileName = std::move(name); }
    // The module folder joined with a file name.
    std::u16string GetModuleFilePath(std::u16string_view name) const;

private:
    std::u16string m_ModuleFolder;
    std::u16string m_SnapshotMappingFileName{kSnapshotMappingFileName};
    std::u16string m_IncludeFileName{kIncludeFilterFileName};
    std::u16string m_ExcludeFileName{kExcludeFilterFileName};
    std::map<std::u16string, std::u16string> m_Environment;
};

}  // namespace indexer
