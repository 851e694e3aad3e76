// The reader on real NTFS images (the fixtures and the shared samples)
// against the Sleuth Kit: every base record fls names, with its names and
// parents, size and last-write time; the security ids of a spread of records
// against istat; every folder's $I30 walk against the children fls lists, in
// key order, and the lookup of a spread of them in swapped case. fls cannot
// open the 2 MiB-cluster sample: its folder tree is compared with the one
// libfsntfs gives (fsntfsinfo -H).
//
// On purpose: DOS-only names are refused by the reader and not listed by fls;
// fls gives whole seconds, so the reader's time is cut to that.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "ntfs/ntfs_attributes.h"
#include "ntfs/ntfs_index.h"
#include "ntfs/ntfs_test_util.h"

using namespace indexer::fast_ntfs_indexer;
using namespace ngitest::ntfs;
namespace fs = std::filesystem;

namespace {

using TNames = std::set<std::pair<std::string, uint64_t>>;  // (name, parent record)

// What the reader finds in one base record, or what fls says of it.
struct TFound {
    TNames Names;
    uint64_t Size = 0;
    int64_t Time = 0;  // seconds since 1970
    uint32_t SecurityId = 0xFFFFFFFF;
    bool Listed = false;  // fls has a line of the record itself, not only of a stream or name
};

constexpr uint64_t kEpochDelta = 116444736000000000ull;  // 1601 to 1970 in 100 ns ticks

std::map<uint64_t, TFound> ReadAllRecords(CNtfsVolume& volume, std::set<uint64_t>& folders) {
    std::map<uint64_t, TFound> found;
    CNtfsAttributes attributes(&volume);
    std::vector<uint8_t> record(volume.GetVolumeGeometry().FileRecordSize);
    for (uint64_t ref = 16; ref < volume.GetFileRecordCount();) {
        const uint64_t got = volume.GetFileRecord(ref, record.data(), 0);
        ref = got == ~uint64_t{0} ? ref + 1 : got + 1;
        if (got >= volume.GetFileRecordCount() || !(Le16(record.data() + kRecFlags) & 1) ||
            (Le64(record.data() + 0x20) & kFrnMask) != 0)
            continue;
        TFound& f = found[got];
        if (Le16(record.data() + kRecFlags) & kRecFlagDirectory) folders.insert(got);
        TFileNamePropsList names;
        uint64_t time = 0;
        attributes.ForEachAttributeOfFile(record.data(), got, [&](const CAttrHeader& a) {
            if (a.Type() == kAttrFileName) attributes.GetFileNameProps(a, names);
            if (a.Type() == kAttrData && !folders.count(got)) attributes.GetUnnamedDataSize(a, f.Size);
            if (a.Type() == kAttrStandardInformation) {
                attributes.GetSecurityId(a, f.SecurityId);
                attributes.GetLastWriteTime(a, time);
            }
        });
        f.Time = static_cast<int64_t>((time - kEpochDelta) / 10000000);
        for (const auto& n : names) f.Names.insert({util::Utf16ToUtf8(n->FileName), n->ParentFileRef});
    }
    return found;
}

// fls's view of the same records: names by the parent folder's record.
std::map<uint64_t, TFound> FromFls(const std::vector<TFlsLine>& lines, std::set<uint64_t>& folders) {
    std::map<uint64_t, TFound> out;
    std::map<std::string, uint64_t> dirs = {{"", 5}};
    for (const TFlsLine& e : lines)
        if (e.Directory && !e.Stream) dirs[e.Path] = e.Inode, folders.insert(e.Inode);
    for (const TFlsLine& e : lines) {
        const auto parent = dirs.find(e.Path.substr(0, e.Path.rfind('/')));
        if (e.Inode < 16 || parent == dirs.end()) continue;
        TFound& f = out[e.Inode];
        f.Names.insert({e.Path.substr(e.Path.rfind('/') + 1), parent->second});
        if (e.FileNameLine || e.Stream) continue;
        if (e.Type == 128 && !e.Directory) f.Size = e.Size;
        f.Time = e.Mtime;
        f.Listed = true;
    }
    return out;
}

std::string Describe(const TNames& names) {
    std::string s;
    for (const auto& [n, p] : names) s += "[" + n + " in " + std::to_string(p) + "] ";
    return s;
}

// Every $I30 entry of a folder but DOS-only names, in walk order.
std::vector<std::pair<std::u16string, uint64_t>> WalkFolder(CNtfsVolume& volume, uint64_t frn) {
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

// Upper case for ASCII letters, or swapped case; nullopt for other names.
std::optional<std::u16string> AsciiCase(std::u16string s, bool swap) {
    for (char16_t& c : s) {
        if (c >= 0x80) return std::nullopt;
        if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
        else if (swap && c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
    }
    return s;
}

class NtfsOracle : public ::testing::TestWithParam<TImage> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(NtfsOracle);

TEST_P(NtfsOracle, RecordsAndFoldersMatchTheSleuthKit) try {
    const TImage& image = GetParam();
    if (image.Name == "ntfs-2m") GTEST_SKIP() << "the Sleuth Kit cannot open 2 MiB clusters";
    if (!HaveTool("fls") || !HaveTool("istat")) GTEST_SKIP() << "no Sleuth Kit";
    const fs::path file = UnpackedImage(image);
    ASSERT_FALSE(file.empty());
    CImageVolume v;
    v.Open(file);
    std::set<uint64_t> ourFolders, theirFolders;
    const std::map<uint64_t, TFound> found = ReadAllRecords(v.Volume(), ourFolders);
    const std::map<uint64_t, TFound> oracle = FromFls(ListFls(file), theirFolders);
    ASSERT_FALSE(oracle.empty());
    for (const auto& [inode, theirs] : oracle) {
        ASSERT_TRUE(found.count(inode)) << image.Name << ": record " << inode << " not found by the reader";
        const TFound& ours = found.at(inode);
        EXPECT_EQ(ours.Names, theirs.Names) << image.Name << ": record " << inode << " ours " << Describe(ours.Names)
                                            << " fls " << Describe(theirs.Names);
        if (theirs.Listed) {
            EXPECT_EQ(ours.Size, theirs.Size) << image.Name << ": size of record " << inode;
            EXPECT_EQ(ours.Time, theirs.Time) << image.Name << ": time of record " << inode;
        }
    }
    for (const auto& [frn, f] : found)
        EXPECT_TRUE(f.Names.empty() || oracle.count(frn)) << image.Name << ": extra record " << Describe(f.Names);

    // Security ids: one record of each id the reader finds and an even
    // spread (one istat costs tens of milliseconds).
    std::map<uint32_t, uint64_t> byId;
    size_t i = 0;
    for (const auto& [inode, theirs] : oracle) {
        if (byId.emplace(found.at(inode).SecurityId, inode).second || i++ % (oracle.size() / 24 + 1) == 0) {
            EXPECT_EQ(found.at(inode).SecurityId, IstatSecurity(file, inode).Id.value_or(0xFFFFFFFFu))
                << image.Name << ": security id of " << inode;
        }
    }

    // Folders: the $I30 walk gives fls's children in ascending order, and
    // the lookup finds each of a spread of them whatever the case.
    std::map<uint64_t, std::set<std::string>> children;
    for (const auto& [inode, theirs] : oracle)
        for (const auto& [name, parent] : theirs.Names) children[parent].insert(name);
    CNtfsIndex index(&v.Volume());
    std::vector<uint8_t> record(v.Volume().GetVolumeGeometry().FileRecordSize);
    for (uint64_t dir : theirFolders) {
        if (dir < 16 && dir != 5) continue;
        const auto entries = WalkFolder(v.Volume(), dir);
        std::set<std::string> walked;
        for (const auto& e : entries) walked.insert(util::Utf16ToUtf8(e.first));
        EXPECT_EQ(walked, children[dir]) << image.Name << ": folder " << dir;
        for (size_t k = 1; k < entries.size(); ++k) {
            const auto a = AsciiCase(entries[k - 1].first, false), b = AsciiCase(entries[k].first, false);
            EXPECT_TRUE(!a || !b || *a <= *b) << image.Name << ": order in folder " << dir;
        }
        v.Volume().GetFileRecord(dir, record.data(), 1);
        for (size_t k = 0; k < entries.size(); k += entries.size() / 16 + 1) {
            EXPECT_EQ(index.FindFileInDirectory(record.data(), dir, entries[k].first), entries[k].second);
            if (const auto swapped = AsciiCase(entries[k].first, true)) {
                EXPECT_EQ(index.FindFileInDirectory(record.data(), dir, *swapped), entries[k].second);
            }
        }
        EXPECT_EQ(index.FindFileInDirectory(record.data(), dir, u"no such name \u00e9"), 0u);
    }
} catch (const CExc& e) {
    FAIL() << "CExc: " << util::Utf16ToUtf8(e.GetDescription());
}

INSTANTIATE_TEST_SUITE_P(Images, NtfsOracle, ::testing::ValuesIn(AllImages()), TImageTestName());

// The image with 2 MiB clusters: its folder tree by path.
TEST(NtfsOracleLibfsntfs, FolderTreeMatchesOnTwoMegabyteClusters) try {
    const TImage image{"ntfs-2m", SamplesDir() / "ntfs-2m.raw.gz"};
    if (!fs::exists(image.Gz) || !HaveTool("fsntfsinfo")) GTEST_SKIP() << "no shared samples or no fsntfsinfo";
    const fs::path file = UnpackedImage(image);
    std::set<std::string> expected;
    std::istringstream in(RunCommand("fsntfsinfo -H " + Quote(file) + " 2>/dev/null"));
    for (std::string line; std::getline(in, line);)
        if (!line.empty() && line[0] == '\\') expected.insert(line.substr(0, line.find(':', line.rfind('\\'))));
    ASSERT_FALSE(expected.empty());
    CImageVolume v;
    v.Open(file);
    EXPECT_EQ(v.Volume().GetVolumeGeometry().BytesPerCluster, 2u << 20);
    std::set<std::string> walked;
    std::vector<std::pair<uint64_t, std::string>> pending = {{5, ""}};
    std::vector<uint8_t> record(v.Volume().GetVolumeGeometry().FileRecordSize);
    while (!pending.empty()) {
        const auto [frn, path] = pending.back();
        pending.pop_back();
        for (const auto& [name, child] : WalkFolder(v.Volume(), frn)) {
            const std::string childPath = path + "\\" + util::Utf16ToUtf8(name);
            if (name == u"." || !walked.insert(childPath).second) continue;
            v.Volume().GetFileRecord(child, record.data(), 1);
            if (Le16(record.data() + kRecFlags) & kRecFlagDirectory) pending.push_back({child, childPath});
        }
    }
    EXPECT_EQ(walked, expected);
} catch (const CExc& e) {
    FAIL() << "CExc: " << util::Utf16ToUtf8(e.GetDescription());
}

}  // namespace
