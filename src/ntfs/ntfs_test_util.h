#pragma once
// Tests only: the NTFS images the tests run on, opened volumes, and the
// Sleuth Kit as an oracle.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/utf.h"
#include "ntfs/ntfs_index.h"
#include "ntfs/ntfs_volume.h"
#include "platform/file.h"
#include "testing/temp_dir.h"

namespace ngitest::ntfs {

inline std::filesystem::path SourceDir() {
    const char* dir = std::getenv("NGI_SOURCE_DIR");
    return dir ? dir : ".";
}

// The shared folder of volumes made by others (absent on some machines).
inline std::filesystem::path SamplesDir() {
    const char* dir = std::getenv("NGI_NTFS_SAMPLES");
    return dir ? std::filesystem::path(dir) : SourceDir() / ".." / "shared" / "ntfs-samples";
}

inline std::string Quote(const std::filesystem::path& p) { return "'" + p.string() + "'"; }

// Runs a shell command and returns its standard output.
inline std::string RunCommand(const std::string& command) {
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return out;
    char buffer[65536];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    pclose(pipe);
    return out;
}

inline bool HaveTool(const std::string& tool) {
    return std::system(("command -v " + tool + " >/dev/null 2>&1").c_str()) == 0;
}

// A gzipped NTFS image of the tests: a fixture or a shared sample.
struct TImage {
    std::string Name;
    std::filesystem::path Gz;
};

inline void PrintTo(const TImage& image, std::ostream* os) { *os << image.Name; }

// Every fixture image and shared sample, by name.
inline std::vector<TImage> AllImages() {
    std::vector<TImage> images;
    for (const std::filesystem::path& folder : {SourceDir() / "fixtures" / "ntfs", SamplesDir()}) {
        std::error_code ec;
        for (const auto& e : std::filesystem::directory_iterator(folder, ec))
            if (e.path().extension() == ".gz") images.push_back({e.path().stem().stem().string(), e.path()});
    }
    std::sort(images.begin(), images.end(), [](const TImage& a, const TImage& b) { return a.Name < b.Name; });
    return images;
}

// The name of a test instance over an image (INSTANTIATE_TEST_SUITE_P).
struct TImageTestName {
    template <class TInfo>
    std::string operator()(const TInfo& info) const {
        std::string name = info.param.Name;
        for (char& c : name)
            if (!isalnum(static_cast<unsigned char>(c))) c = '_';
        return name;
    }
};

// One line of `fls -r -u -p -m /` without orphans: the path ("/a/b"), with a
// stream name and " ($FILE_NAME)" cut off and flagged.
struct TFlsLine {
    std::string Path;
    uint64_t Inode = 0;
    bool Directory = false, Stream = false, FileNameLine = false;
    uint64_t Size = 0;
    int64_t Mtime = 0;
};

inline std::vector<TFlsLine> ListFls(const std::filesystem::path& image) {
    std::vector<TFlsLine> lines;
    std::istringstream in(RunCommand("fls -r -u -p -m / " + Quote(image) + " 2>/dev/null"));
    std::string line;
    while (std::getline(in, line)) {
        std::vector<std::string> f;
        std::stringstream ss(line);
        for (std::string part; std::getline(ss, part, '|');) f.push_back(part);
        if (f.size() < 11 || f[1].rfind("/$OrphanFiles", 0) == 0) continue;
        TFlsLine e{f[1], std::stoull(f[2])};
        const std::string suffix = " ($FILE_NAME)";
        if (e.Path.size() > suffix.size() && e.Path.compare(e.Path.size() - suffix.size(), suffix.size(), suffix) == 0)
            e.Path.resize(e.Path.size() - suffix.size()), e.FileNameLine = true;
        const size_t colon = e.Path.find(':', e.Path.rfind('/'));
        if (colon != std::string::npos) e.Path.resize(colon), e.Stream = true;
        e.Directory = f[3].rfind("d/", 0) == 0;
        e.Size = std::stoull(f[6]);
        e.Mtime = std::stoll(f[8]);
        lines.push_back(e);
    }
    return lines;
}

// What istat says of a record's $STANDARD_INFORMATION security: the id, and
// in brackets the owner SID of the descriptor $Secure holds for it. Id
// nullopt when istat shows none (the early 48-byte form, or no record);
// Owner empty when istat gives no SID.
struct TIstatSecurity {
    std::optional<uint32_t> Id;
    std::string Owner;
};

inline TIstatSecurity IstatSecurity(const std::filesystem::path& image, uint64_t record) {
    TIstatSecurity s;
    const std::string out = RunCommand("istat " + Quote(image) + " " + std::to_string(record) + " 2>/dev/null");
    const size_t at = out.find("Security ID: ");
    if (at == std::string::npos ||
        out.find("$STANDARD_INFORMATION (16-0)   Name: N/A   Resident   size: 48") != std::string::npos)
        return s;
    s.Id = static_cast<uint32_t>(std::stoul(out.substr(at + 13)));
    const size_t open = out.find('(', at), end = out.find('\n', at);
    const size_t close = out.find(')', open == std::string::npos ? at : open);
    if (open != std::string::npos && open < end && close < end) s.Owner = out.substr(open + 1, close - open - 1);
    return s;
}

// Decompresses a .gz image into a sparse file; false when that failed.
// Where the build unpacked the fixtures already (NGI_FIXTURE_IMAGES, a
// folder: the Windows build, which has no gzip to call), the image is copied
// from there.
inline bool Decompress(const std::filesystem::path& gz, const std::filesystem::path& out) {
    if (const char* unpacked = std::getenv("NGI_FIXTURE_IMAGES"); unpacked && *unpacked) {
        const std::filesystem::path image = std::filesystem::path(unpacked) / gz.stem();
        std::error_code ec;
        if (std::filesystem::exists(image, ec)) {
            std::filesystem::remove(out, ec);
            return std::filesystem::copy_file(image, out, ec);
        }
    }
    const std::string command =
        "gzip -dc " + Quote(gz) + " | cp --sparse=always /dev/stdin " + Quote(out) + " 2>/dev/null";
    return std::system(command.c_str()) == 0 && std::filesystem::exists(out);
}

// The image decompressed, once per test program; empty when that failed.
inline std::filesystem::path UnpackedImage(const TImage& image) {
    static ngitest::CTempDir dir;
    const std::filesystem::path out = dir.Native() / (image.Name + ".img");
    if (!std::filesystem::exists(out) && !Decompress(image.Gz, out)) return {};
    return out;
}

inline std::vector<uint8_t> ReadBytes(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline void WriteBytes(const std::filesystem::path& p, const std::vector<uint8_t>& bytes) {
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// An image file opened as a volume. Open throws what InitMftInfo throws.
class CImageVolume {
public:
    void Open(const std::filesystem::path& image) {
        m_Handle = platform::FileOpen(util::Utf8ToUtf16(image.string()), platform::kGenericRead,
                                      platform::kShareRead, platform::kOpenExisting, 0);
        if (!m_Handle.IsValid()) throw CExc(u"cannot open the image");
        m_Volume = std::make_unique<indexer::fast_ntfs_indexer::CNtfsVolume>();
        m_Volume->InitMftInfo(m_Handle.Get());
    }
    indexer::fast_ntfs_indexer::CNtfsVolume& Volume() { return *m_Volume; }

private:
    platform::CHandle m_Handle;
    std::unique_ptr<indexer::fast_ntfs_indexer::CNtfsVolume> m_Volume;
};

// Expects `f` to throw a CExc whose text holds `part`.
template <class F>
void ExpectExc(F&& f, const std::string& part) {
    try {
        f();
        ADD_FAILURE() << "no exception, expected one with: " << part;
    } catch (const CExc& e) {
        const std::string text = util::Utf16ToUtf8(e.GetDescription());
        EXPECT_NE(text.find(part), std::string::npos) << text;
    }
}

// Every $I30 entry of a folder but DOS-only names, in walk order: (name, record).
inline std::vector<std::pair<std::u16string, uint64_t>> FolderEntries(
    indexer::fast_ntfs_indexer::CNtfsVolume& volume, uint64_t frn) {
    using namespace indexer::fast_ntfs_indexer;
    std::vector<uint8_t> record(volume.GetVolumeGeometry().FileRecordSize);
    volume.GetFileRecord(frn, record.data(), 1);
    std::vector<std::pair<std::u16string, uint64_t>> entries;
    CNtfsIndex(&volume).ParseIndexFileRecord_Process(
        record.data(), frn, u"$I30",
        [&](const TIndexEntryView& e, uint64_t, uint64_t) -> uint8_t {
            const uint8_t* key = e.Key();
            if ((key[kFnNamespace] & 3) == 2) return 1;
            std::u16string name(key[kFnNameLength], u'\0');
            for (size_t i = 0; i < name.size(); ++i) name[i] = static_cast<char16_t>(Le16(key + kFnName + 2 * i));
            entries.push_back({name, e.FileReference() & kFrnMask});
            return 1;
        },
        0, 0);
    return entries;
}

}  // namespace ngitest::ntfs
