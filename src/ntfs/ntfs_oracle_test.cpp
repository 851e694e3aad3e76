// Differential tests: what the reader finds on real NTFS images (fixtures and
// shared samples) against two readers written apart from it:
// - the Sleuth Kit, on every image it opens: fls for names, parents, sizes,
//   last-write times and folders (and each folder's $I30 walk and lookups);
//   istat for security ids, one record of each id plus an even spread (one
//   istat per record would take minutes);
// - libfsntfs (fsntfsinfo -E all), on every image, the 2 MiB-cluster one
//   included: every base record in use with its names, folder or file,
//   size, last-write time to the 100 ns and security id; and the folder tree
//   of the 2 MiB-cluster image by path.
//
// Differences that the reader has on purpose, and how they are handled here:
// - DOS-only short names are refused by the reader; fls does not list them
//   either, so the name sets compare equal.
// - fls lists names reachable from the root only; records in use that no
//   folder names (none on these images) would be reported as extra.
// - fls gives times in whole seconds: the reader's FILETIME is cut to that.
// - This libfsntfs decodes surrogate pairs into the wrong character (fls
//   agrees with the reader): characters beyond the BMP count only as there.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include "base/utf.h"
#include "ntfs/fsntfsinfo_listing.h"
#include "ntfs/ntfs_attributes.h"
#include "ntfs/ntfs_index.h"
#include "ntfs/ntfs_test_util.h"
#include "testing/temp_dir.h"

using namespace indexer::fast_ntfs_indexer;
namespace fs = std::filesystem;

namespace {

struct TImage {
    std::string Name;
    fs::path Gz;
};

void PrintTo(const TImage& image, std::ostream* os) { *os << image.Name; }

// Runs a test body, turning a CExc into a failure that shows its text.
template <class F>
void ReportingExc(F&& body) {
    try {
        body();
    } catch (const CExc& e) {
        FAIL() << "CExc: " << util::Utf16ToUtf8(e.GetDescription());
    }
}

std::vector<TImage> AllImages() {
    std::vector<TImage> images;
    std::vector<fs::path> folders = {ngitest::ntfs::SourceDir() / "fixtures" / "ntfs", ngitest::ntfs::SamplesDir()};
    if (const char* extra = std::getenv("NGI_NTFS_EXTRA")) folders.emplace_back(extra);
    for (const fs::path& folder : folders) {
        std::error_code ec;
        for (const auto& e : fs::directory_iterator(folder, ec))
            if (e.path().extension() == ".gz") images.push_back({e.path().stem().stem().string(), e.path()});
    }
    std::sort(images.begin(), images.end(), [](const TImage& a, const TImage& b) { return a.Name < b.Name; });
    return images;
}

// Each image is decompressed once per test program, into one folder.
fs::path ImageFile(const TImage& image) {
    static ngitest::CTempDir dir;
    const fs::path out = dir.Native() / (image.Name + ".img");
    if (!fs::exists(out) && !ngitest::ntfs::Decompress(image.Gz, out)) return {};
    return out;
}

std::string U8(const std::u16string& s) { return util::Utf16ToUtf8(s); }

constexpr uint64_t kEpochDelta = 116444736000000000ull;  // 1601 to 1970 in 100 ns ticks

// What the reader finds in one base record.
struct TFound {
    std::set<std::pair<std::string, uint64_t>> Names;
    uint64_t Size = 0;
    uint64_t Time = 0;
    uint32_t SecurityId = 0xFFFFFFFF;
    bool Directory = false;
};

std::map<uint64_t, TFound> ReadAllRecords(CNtfsVolume& volume) {
    std::map<uint64_t, TFound> found;
    CNtfsAttributes attributes(&volume);
    const uint64_t count = volume.GetFileRecordCount();
    std::vector<uint8_t> record(volume.GetVolumeGeometry().FileRecordSize);
    for (uint64_t ref = 16; ref < count;) {
        const uint64_t got = volume.GetFileRecord(ref, record.data(), 0);
        if (got == ~uint64_t{0}) {
            ++ref;
            continue;
        }
        if (got >= count) break;
        ref = got + 1;
        const uint16_t flags = Le16(record.data() + kRecFlags);
        if (!(flags & 1) || (Le64(record.data() + 0x20) & kFrnMask) != 0) continue;
        TFound& f = found[got];
        f.Directory = (flags & kRecFlagDirectory) != 0;
        TFileNamePropsList names;
        attributes.ForEachAttributeOfFile(record.data(), got, [&](const CAttrHeader& a) {
            switch (a.Type()) {
                case kAttrFileName: attributes.GetFileNameProps(a, names); break;
                case kAttrStandardInformation:
                    attributes.GetSecurityId(a, f.SecurityId);
                    attributes.GetLastWriteTime(a, f.Time);
                    break;
                case kAttrData: attributes.GetUnnamedDataSize(a, f.Size); break;
                default: break;
            }
        });
        for (const auto& n : names) f.Names.insert({U8(n->FileName), n->ParentFileRef});
    }
    return found;
}

// One name line of `fls -r -p -m /` (file name lines and streams folded in).
struct TFlsEntry {
    std::string Path;  // without stream and without " ($FILE_NAME)"
    uint64_t Inode = 0;
    uint32_t Type = 0;
    bool Stream = false, FileNameLine = false, Directory = false;
    uint64_t Size = 0;
    int64_t Mtime = 0;
};

std::vector<TFlsEntry> RunFls(const fs::path& image) {
    std::vector<TFlsEntry> entries;
    std::istringstream in(ngitest::ntfs::RunCommand("fls -r -u -p -m / " + ngitest::ntfs::Quote(image) + " 2>/dev/null"));
    std::string line;
    while (std::getline(in, line)) {
        std::vector<std::string> f;
        std::stringstream ss(line);
        std::string part;
        while (std::getline(ss, part, '|')) f.push_back(part);
        if (f.size() < 11) continue;
        TFlsEntry e;
        e.Path = f[1];
        const std::string suffix = " ($FILE_NAME)";
        if (e.Path.size() > suffix.size() && e.Path.compare(e.Path.size() - suffix.size(), suffix.size(), suffix) == 0) {
            e.Path.resize(e.Path.size() - suffix.size());
            e.FileNameLine = true;
        }
        const size_t slash = e.Path.rfind('/');
        const size_t colon = e.Path.find(':', slash == std::string::npos ? 0 : slash);
        if (colon != std::string::npos) {
            e.Path.resize(colon);
            e.Stream = true;
        }
        e.Inode = std::stoull(f[2]);
        const size_t dash = f[2].find('-');
        e.Type = dash == std::string::npos ? 0 : static_cast<uint32_t>(std::stoul(f[2].substr(dash + 1)));
        e.Directory = f[3].rfind("d/", 0) == 0;
        e.Size = std::stoull(f[6]);
        e.Mtime = std::stoll(f[8]);
        if (e.Path.rfind("/$OrphanFiles", 0) == 0) continue;
        entries.push_back(e);
    }
    return entries;
}

struct TOracle {
    std::map<uint64_t, std::set<std::pair<std::string, uint64_t>>> Names;
    std::map<uint64_t, uint64_t> Sizes;  // unnamed $DATA of files
    std::map<uint64_t, int64_t> Times;
    std::set<uint64_t> Directories;
};

TOracle BuildOracle(const std::vector<TFlsEntry>& entries) {
    TOracle o;
    std::map<std::string, uint64_t> dirs = {{"", 5}, {"/", 5}};
    for (const TFlsEntry& e : entries)
        if (e.Directory && !e.Stream) dirs[e.Path] = e.Inode;
    for (const TFlsEntry& e : entries) {
        const size_t slash = e.Path.rfind('/');
        if (slash == std::string::npos) continue;
        const auto parent = dirs.find(e.Path.substr(0, slash));
        if (parent == dirs.end()) continue;
        o.Names[e.Inode].insert({e.Path.substr(slash + 1), parent->second});
        if (e.Directory) o.Directories.insert(e.Inode);
        if (e.FileNameLine || e.Stream) continue;
        if (e.Type == 128) o.Sizes[e.Inode] = e.Size;
        o.Times[e.Inode] = e.Mtime;
    }
    return o;
}

std::string Describe(const std::set<std::pair<std::string, uint64_t>>& names) {
    std::string s;
    for (const auto& [n, p] : names) s += "[" + n + " in " + std::to_string(p) + "] ";
    return s;
}

// Every $I30 entry of a folder, DOS-only names left out, in walk order.
std::vector<std::pair<std::u16string, uint64_t>> WalkFolder(CNtfsVolume& volume, uint64_t frn) {
    std::vector<uint8_t> record(volume.GetVolumeGeometry().FileRecordSize);
    volume.GetFileRecord(frn, record.data(), 1);
    std::vector<std::pair<std::u16string, uint64_t>> entries;
    CNtfsIndex index(&volume);
    index.ParseIndexFileRecord_Process(
        record.data(), frn, u"$I30",
        [&](const TIndexEntryView& e, uint64_t, uint64_t) -> uint8_t {
            const uint8_t* key = e.Key();
            if (e.KeyLength() < kFnName) throw CExc(u"short key");
            const uint8_t flags = key[kFnNamespace];
            if ((flags & 3) == 2) return 1;
            std::u16string name(key[kFnNameLength], u'\0');
            if (kFnName + 2 * name.size() > e.KeyLength()) throw CExc(u"name passes key");
            for (size_t i = 0; i < name.size(); ++i) name[i] = static_cast<char16_t>(Le16(key + kFnName + 2 * i));
            entries.push_back({name, e.FileReference() & kFrnMask});
            return 1;
        },
        0, 0);
    return entries;
}

std::u16string SwapAsciiCase(std::u16string s) {
    for (char16_t& c : s) {
        if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
        else if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
    }
    return s;
}

bool IsAscii(const std::u16string& s) {
    return std::all_of(s.begin(), s.end(), [](char16_t c) { return c < 0x80; });
}

std::u16string AsciiUpper(std::u16string s) {
    for (char16_t& c : s)
        if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
    return s;
}

class NtfsOracle : public ::testing::TestWithParam<TImage> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(NtfsOracle);

void CompareWithSleuthKit(const TImage& image);

TEST_P(NtfsOracle, RecordsAndFoldersMatchTheSleuthKit) {
    ReportingExc([&] { CompareWithSleuthKit(GetParam()); });
}

void CompareWithSleuthKit(const TImage& image) {
    if (image.Name == "ntfs-2m") GTEST_SKIP() << "the Sleuth Kit cannot open 2 MiB clusters; see Libfsntfs test";
    if (!ngitest::ntfs::HaveTool("fls") || !ngitest::ntfs::HaveTool("istat")) GTEST_SKIP() << "no Sleuth Kit";
    const fs::path file = ImageFile(image);
    ASSERT_FALSE(file.empty());
    ngitest::ntfs::CImageVolume v;
    v.Open(file);
    CNtfsVolume& volume = v.Volume();
    const std::map<uint64_t, TFound> found = ReadAllRecords(volume);
    const TOracle oracle = BuildOracle(RunFls(file));
    ASSERT_FALSE(oracle.Names.empty());

    size_t compared = 0;
    for (const auto& [inode, names] : oracle.Names) {
        if (inode < 16) continue;
        const auto it = found.find(inode);
        ASSERT_NE(it, found.end()) << image.Name << ": record " << inode << " not found by the reader";
        const TFound& f = it->second;
        EXPECT_EQ(f.Names, names) << image.Name << ": record " << inode << " ours " << Describe(f.Names)
                                  << " fls " << Describe(names);
        if (!f.Directory && oracle.Sizes.count(inode)) {
            EXPECT_EQ(f.Size, oracle.Sizes.at(inode)) << image.Name << ": size of record " << inode;
        }
        if (oracle.Times.count(inode)) {
            const int64_t seconds = static_cast<int64_t>((f.Time - kEpochDelta) / 10000000);
            EXPECT_EQ(seconds, oracle.Times.at(inode)) << image.Name << ": time of record " << inode;
        }
        ++compared;
    }
    // Every named base record the reader finds is one that fls lists.
    for (const auto& [frn, f] : found) {
        if (!f.Names.empty()) {
            EXPECT_TRUE(oracle.Names.count(frn)) << image.Name << ": extra record " << frn << " " << Describe(f.Names);
        }
    }

    // Security ids against istat: one record of each id the reader finds,
    // and an even spread over the rest. One istat costs tens of
    // milliseconds, so not every record goes through it; every record's id
    // is compared with libfsntfs in RecordsMatchLibfsntfs.
    std::map<uint32_t, uint64_t> byId;
    std::set<uint64_t> probe;
    for (const auto& [inode, names] : oracle.Names)
        if (inode >= 16 && byId.emplace(found.at(inode).SecurityId, inode).second) probe.insert(inode);
    std::vector<uint64_t> inodes;
    for (const auto& [inode, names] : oracle.Names)
        if (inode >= 16) inodes.push_back(inode);
    const size_t step = std::max<size_t>(1, inodes.size() / 24);
    for (size_t i = 0; i < inodes.size(); i += step) probe.insert(inodes[i]);
    for (uint64_t inode : probe) {
        const ngitest::ntfs::TIstatSecurity istat = ngitest::ntfs::IstatSecurity(file, inode);
        // The early 48-byte form has no security id: the reader says all-ones.
        EXPECT_EQ(found.at(inode).SecurityId, istat.Id.value_or(0xFFFFFFFFu))
            << image.Name << ": security id of " << inode;
    }

    // Folders: the full $I30 walk gives the children fls lists, in ascending
    // order, and the lookup finds each of them whatever the case.
    std::map<uint64_t, std::set<std::string>> children;
    for (const auto& [inode, names] : oracle.Names)
        for (const auto& [name, parent] : names) children[parent].insert(name);
    CNtfsIndex index(&volume);
    std::vector<uint8_t> record(volume.GetVolumeGeometry().FileRecordSize);
    for (uint64_t dir : oracle.Directories) {
        if (dir < 16 && dir != 5) continue;
        const auto entries = WalkFolder(volume, dir);
        std::set<std::string> walked;
        for (const auto& e : entries) walked.insert(U8(e.first));
        EXPECT_EQ(walked, children[dir]) << image.Name << ": folder " << dir;
        for (size_t i = 1; i < entries.size(); ++i) {
            if (IsAscii(entries[i - 1].first) && IsAscii(entries[i].first)) {
                EXPECT_LE(AsciiUpper(entries[i - 1].first), AsciiUpper(entries[i].first))
                    << image.Name << ": order in folder " << dir;
            }
        }
        volume.GetFileRecord(dir, record.data(), 1);
        const size_t lookStep = std::max<size_t>(1, entries.size() / 16);
        for (size_t i = 0; i < entries.size(); i += lookStep) {
            EXPECT_EQ(index.FindFileInDirectory(record.data(), dir, entries[i].first), entries[i].second);
            EXPECT_EQ(index.FindFileInDirectory(record.data(), dir, SwapAsciiCase(entries[i].first)),
                      entries[i].second);
        }
        EXPECT_EQ(index.FindFileInDirectory(record.data(), dir, u"no such name \u00e9"), 0u);
    }

    // $SII of $Secure and $R of $Extend\$Reparse walk to completion.
    volume.GetFileRecord(9, record.data(), 1);
    size_t sii = 0;
    index.ParseIndexFileRecord_Process(record.data(), 9, u"$SII",
                                       [&](const TIndexEntryView&, uint64_t, uint64_t) -> uint8_t { return ++sii, 1; },
                                       0, 0);
    EXPECT_GT(sii, 0u) << image.Name;
    std::vector<uint8_t> ext(record.size());
    const uint64_t extend = 11;
    volume.GetFileRecord(extend, ext.data(), 1);
    const uint64_t reparse = index.FindFileInDirectory(ext.data(), extend, u"$Reparse");
    if (reparse) {
        volume.GetFileRecord(reparse, record.data(), 1);
        size_t r = 0;
        index.ParseIndexFileRecord_Process(record.data(), reparse, u"$R",
                                           [&](const TIndexEntryView&, uint64_t, uint64_t) -> uint8_t { return ++r, 1; },
                                           0, 0);
        if (fs::exists(ngitest::ntfs::SourceDir() / "fixtures" / "ntfs" / (image.Name + ".img.gz"))) {
            // The legacy volume has its three links; the others the common set.
            EXPECT_EQ(r, image.Name == "ntfs-legacy" ? 3u : 11u)
                << image.Name << ": the reparse points the fixture script made";
        }
    }
    ::testing::Test::RecordProperty("compared", static_cast<int>(compared));
}

// Every base record in use, against libfsntfs: the same records, and for
// each the same names (with parents), folder or file, unnamed $DATA size,
// last-write time to the 100 ns and security id. This is the full
// comparison for the image the Sleuth Kit cannot open (2 MiB clusters) and
// the one that covers every security id of every image.
void CompareRecordsWithLibfsntfs(const TImage& image);

TEST_P(NtfsOracle, RecordsMatchLibfsntfs) {
    ReportingExc([&] { CompareRecordsWithLibfsntfs(GetParam()); });
}

void CompareRecordsWithLibfsntfs(const TImage& image) {
    if (!ngitest::ntfs::HaveTool("fsntfsinfo")) GTEST_SKIP() << "no fsntfsinfo";
    const fs::path file = ImageFile(image);
    ASSERT_FALSE(file.empty());
    const auto oracle = ngitest::ntfs::RunFsntfsinfo(file);
    ASSERT_FALSE(oracle.empty()) << image.Name;
    ngitest::ntfs::CImageVolume v;
    v.Open(file);
    const std::map<uint64_t, TFound> found = ReadAllRecords(v.Volume());

    std::set<uint64_t> ours, theirs;
    for (const auto& [frn, f] : found) ours.insert(frn);
    for (const auto& [frn, r] : oracle)
        if (r.Allocated && !r.Extension && frn >= 16) theirs.insert(frn);
    EXPECT_EQ(ours, theirs) << image.Name << ": base records in use";
    // This libfsntfs decodes a surrogate pair into the wrong character
    // (U+1F600 comes out as U+1F201; fls agrees with the reader), so
    // characters beyond the BMP are compared only as being there.
    auto blurred = [](const std::set<std::pair<std::string, uint64_t>>& names) {
        std::set<std::pair<std::string, uint64_t>> out;
        for (auto [name, parent] : names) {
            for (size_t i = 0; i < name.size(); ++i)
                if ((static_cast<unsigned char>(name[i]) & 0xF8) == 0xF0) name.replace(i, 4, "?");
            out.insert({name, parent});
        }
        return out;
    };
    size_t ids = 0;
    for (const auto& [frn, f] : found) {
        const auto it = oracle.find(frn);
        if (it == oracle.end()) continue;
        const ngitest::ntfs::TFsntfsRecord& r = it->second;
        std::set<std::pair<std::string, uint64_t>> names;
        for (const auto& n : r.Names)
            if (n.Namespace != 2) names.insert({n.Name, n.Parent});
        EXPECT_EQ(blurred(f.Names), blurred(names)) << image.Name << ": record " << frn << " ours " << Describe(f.Names)
                                  << " libfsntfs " << Describe(names);
        EXPECT_EQ(f.Directory, r.Directory) << image.Name << ": folder or file, record " << frn;
        if (!r.Directory) {
            EXPECT_EQ(f.Size, r.DataSize.value_or(0)) << image.Name << ": size of record " << frn;
        }
        if (r.HasStandardInformation) {
            EXPECT_EQ(f.Time, r.ModificationTime) << image.Name << ": time of record " << frn;
            EXPECT_EQ(f.SecurityId, r.SecurityId.value_or(0xFFFFFFFFu)) << image.Name << ": security id of " << frn;
            ids += r.SecurityId.has_value();
        }
    }
    ::testing::Test::RecordProperty("security_ids", static_cast<int>(ids));
}

// The image with 2 MiB clusters, against the folder tree libfsntfs gives.
void CompareWithLibfsntfs();

TEST(NtfsOracleLibfsntfs, FolderTreeMatchesOnTwoMegabyteClusters) { ReportingExc(CompareWithLibfsntfs); }

void CompareWithLibfsntfs() {
    TImage image{"ntfs-2m", ngitest::ntfs::SamplesDir() / "ntfs-2m.raw.gz"};
    if (!fs::exists(image.Gz)) GTEST_SKIP() << "no shared samples";
    if (!ngitest::ntfs::HaveTool("fsntfsinfo")) GTEST_SKIP() << "no fsntfsinfo";
    const fs::path file = ImageFile(image);
    ASSERT_FALSE(file.empty());
    std::set<std::string> expected;
    std::istringstream in(ngitest::ntfs::RunCommand("fsntfsinfo -H " + ngitest::ntfs::Quote(file) + " 2>/dev/null"));
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] != '\\') continue;
        const size_t slash = line.rfind('\\');
        const size_t colon = line.find(':', slash);
        expected.insert(colon == std::string::npos ? line : line.substr(0, colon));  // a stream names its file
    }
    ASSERT_FALSE(expected.empty());

    ngitest::ntfs::CImageVolume v;
    v.Open(file);
    EXPECT_EQ(v.Volume().GetVolumeGeometry().BytesPerCluster, 2u << 20);
    std::set<std::string> walked;
    std::set<uint64_t> seen;
    std::vector<std::pair<uint64_t, std::string>> pending = {{5, ""}};
    std::vector<uint8_t> record(v.Volume().GetVolumeGeometry().FileRecordSize);
    while (!pending.empty()) {
        auto [frn, path] = pending.back();
        pending.pop_back();
        if (!seen.insert(frn).second) continue;
        for (const auto& [name, child] : WalkFolder(v.Volume(), frn)) {
            if (name == u".") continue;
            const std::string childPath = path + "\\" + U8(name);
            walked.insert(childPath);
            v.Volume().GetFileRecord(child, record.data(), 1);
            if (Le16(record.data() + kRecFlags) & kRecFlagDirectory) pending.push_back({child, childPath});
        }
    }
    EXPECT_EQ(walked, expected);
}

INSTANTIATE_TEST_SUITE_P(Images, NtfsOracle, ::testing::ValuesIn(AllImages()),
                         [](const ::testing::TestParamInfo<TImage>& info) {
                             std::string n = info.param.Name;
                             for (char& c : n)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return n;
                         });

}  // namespace
