// The fast pipeline on real NTFS images (the reader's fixtures and the shared
// samples) against two readers written apart from ours:
// - the Sleuth Kit's listing (fls): the same directory paths and the same
//   (file path, size, last-write time) rows, on every image it opens;
// - libfsntfs (fsntfsinfo -E all): the same rows built from its records,
//   on every image, the one with 2 MiB clusters (which the Sleuth Kit cannot
//   open) included;
// - owners: each file row's owner SID against the owner SID istat shows
//   beside the record's security id (the descriptor in $Secure that the id
//   names), istat run once per security id;
// - reparse points processed: the rows against the listing without the
//   decoded links, and each reparse row's target against the substitute name
//   of the link's $REPARSE_POINT, as icat (the Sleuth Kit) gives its bytes
//   and as libfsntfs decodes it.
//
// Differences on purpose, and how this test handles them:
// - Metafiles (records below 16, $Extend and below) have no rows; they are
//   taken out of the listings.
// - RowsMatch runs with IndexerSkipReparsePoints, so a link is an ordinary
//   file or folder, as the listings show it.
// - The listings give times in whole seconds; the rows are cut to that.
// - This libfsntfs decodes characters beyond the BMP wrongly; they are
//   compared only as being there (BlurAstral).
#include <gtest/gtest.h>

#include <algorithm>

#include "fast/fast_test_util.h"
#include "testing/log_capture.h"
#include "platform/volume_table.h"
#include "testing/temp_registry.h"

using namespace ngitest::fast;

namespace {

fs::path ImageFile(const TImage& image) {
    static ngitest::CTempDir dir;
    const fs::path out = dir.Native() / (image.Name + ".img");
    if (!fs::exists(out) && !ngitest::ntfs::Decompress(image.Gz, out)) return {};
    return out;
}

constexpr char kSkipReparse[] =
    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\n"
    "\"IndexerSkipReparsePoints\"=dword:00000001\n";

class FastOracle : public ::testing::TestWithParam<TImage> {};

TIndexContent Index(const fs::path& file, const std::string& settings,
                    indexer::fast_ntfs_indexer::TProcessorServices services = {}) {
    ngitest::CTempRegistry registry(settings);
    ngitest::CTempDir out;
    indexer::CIncExcNode root(std::vector<std::u16string>{}, std::vector<std::u16string>{});
    return ReadIndex(RunPipeline(file, root, out, services));
}

template <class T>
void ExpectSame(const std::set<T>& ours, const std::set<T>& theirs, const std::string& oracle) {
    auto show = [](const auto& x) {
        if constexpr (std::is_same_v<T, TFileRow>)
            return ShowRow(x);
        else
            return std::string(x);
    };
    EXPECT_EQ(ours, theirs) << "only in the index:\n"
                            << Missing(ours, theirs, show) << "only in " << oracle << ":\n"
                            << Missing(theirs, ours, show);
}

TEST_P(FastOracle, RowsMatchTheSleuthKitAndLibfsntfs) {
    const TImage& image = GetParam();
    const fs::path file = ImageFile(image);
    ASSERT_FALSE(file.empty());
    TIndexContent ours;
    try {
        ours = Index(file, kSkipReparse);
    } catch (const CExc& e) {
        FAIL() << U8(e.GetDescription());
    }
    // Row order: the root is row 0; every directory comes after its parent.
    ASSERT_FALSE(ours.DirRows.empty());
    EXPECT_EQ(ours.DirNames[0], "");
    for (size_t i = 1; i < ours.DirRows.size(); ++i) EXPECT_LT(ours.DirRows[i].second, ours.DirRows[i].first);

    if (ngitest::ntfs::HaveTool("fls")) {
        const TFlsContent fls = RunFls(file);
        // The image with 2 MiB clusters has no listing: libfsntfs below.
        if (fls.Read) {
            ExpectSame(ours.Dirs, fls.Dirs, "the Sleuth Kit's listing");
            ExpectSame(ours.Files, fls.Files, "the Sleuth Kit's listing");
        } else {
            EXPECT_EQ(image.Name, "ntfs-2m") << "fls cannot read this image";
        }
    }
    if (!ngitest::ntfs::HaveTool("fsntfsinfo")) GTEST_SKIP() << "no fsntfsinfo";
    const auto records = ngitest::ntfs::RunFsntfsinfo(file);
    ASSERT_FALSE(records.empty());
    const TFsntfsContent theirs = RowsFromFsntfs(records);
    ExpectSame(BlurAstral(ours.Dirs), BlurAstral(theirs.Dirs), "libfsntfs");
    ExpectSame(BlurAstral(ours.Files), BlurAstral(theirs.Files), "libfsntfs");

    // Owners: each file row's SID against the owner of the record's
    // security id, as istat shows it, or where istat shows none (it cannot
    // open the 2 MiB-cluster image, and leaves the SID out on the 64 KiB one)
    // as ntfs-3g's ntfssecaudit shows it for that file. A record without an
    // id (the early 48-byte $STANDARD_INFORMATION) has owner row 0, "S-1-0-0".
    std::map<uint32_t, std::string> ownerOfId;
    std::map<std::string, uint64_t> blurred;
    for (const auto& [path, number] : theirs.Records) blurred[BlurAstral(path)] = number;
    size_t checked = 0, withId = 0;
    for (const auto& [path, ownerRow] : ours.FileOwners) {
        const auto it = blurred.find(BlurAstral(path));
        ASSERT_NE(it, blurred.end()) << path;
        const std::optional<uint32_t> id = records.at(it->second).SecurityId;
        ASSERT_LT(ownerRow, ours.Owners.size()) << path;
        const std::string& sid = std::get<0>(ours.Owners[ownerRow]);
        if (!id) {
            EXPECT_EQ(sid, "S-1-0-0") << path;
            continue;
        }
        ++withId;
        if (!ownerOfId.count(*id)) {
            ngitest::ntfs::TIstatSecurity oracle;
            if (ngitest::ntfs::HaveTool("istat")) oracle = ngitest::ntfs::IstatSecurity(file, it->second);
            if (oracle.Owner.empty() && ngitest::ntfs::HaveTool("ntfssecaudit"))
                oracle = ngitest::ntfs::SecauditSecurity(file, "/" + path);
            if (oracle.Owner.empty()) continue;  // another file with this id may do
            EXPECT_EQ(oracle.Id, id) << path;
            ownerOfId[*id] = oracle.Owner;
        }
        EXPECT_EQ(sid, ownerOfId[*id]) << path << " (security id " << *id << ")";
        ++checked;
    }
    if (withId != 0) {
        EXPECT_GT(checked, 0u) << "no owner could be checked";
    }
    ::testing::Test::RecordProperty("owners_checked", static_cast<int>(checked));
}

// The reparse data of a record as the Sleuth Kit gives its bytes (icat of
// attribute type 192): the tag, and for a mount point or a symbolic link the
// substitute name (ASCII names only; none other on these images).
std::pair<uint32_t, std::string> IcatReparse(const fs::path& file, uint64_t record) {
    const std::string bytes =
        ngitest::ntfs::RunCommand("icat " + ngitest::ntfs::Quote(file) + " " + std::to_string(record) + "-192");
    if (bytes.size() < 8) return {0, ""};
    auto le16 = [&](size_t at) { return static_cast<uint16_t>(uint8_t(bytes[at]) | uint8_t(bytes[at + 1]) << 8); };
    const uint32_t tag = le16(0) | static_cast<uint32_t>(le16(2)) << 16;
    if ((tag != 0xA0000003 && tag != 0xA000000C) || bytes.size() < 16) return {tag, ""};
    const size_t base = tag == 0xA0000003 ? 16 : 20, offset = le16(8), length = le16(10);
    std::string name;
    for (size_t i = 0; base + offset + i + 1 < bytes.size() && i < length; i += 2)
        name += static_cast<char>(le16(base + offset + i));
    return {tag, name};
}

// Reparse points processed, with the volume mounted as C: under the GUID the
// fixtures' links name. Every reparse row must be a folder link whose
// $REPARSE_POINT substitute is "\??\C:\" and the row's target, a folder of
// the volume; every junction of that form must have its row. (Symbolic links
// are checked in $R order and the check stops at the first relative one, so
// not every absolute symbolic link is reached: the rows' soundness covers
// them.) Decoded links to files have no row of their own: the rows are the
// listing without them (no fixture link names an existing file).
TEST_P(FastOracle, ReparseRowsMatchTheLinksOnTheVolume) {
    const TImage& image = GetParam();
    if (!ngitest::ntfs::HaveTool("fsntfsinfo") || !ngitest::ntfs::HaveTool("icat")) GTEST_SKIP() << "no oracle";
    const fs::path file = ImageFile(image);
    ASSERT_FALSE(file.empty());
    const auto records = ngitest::ntfs::RunFsntfsinfo(file);
    std::map<uint64_t, std::pair<uint32_t, std::string>> links;  // record to tag and substitute
    for (const auto& [number, r] : records) {
        if (!r.ReparseTag || !ngitest::ntfs::IsUserRecord(number, r)) continue;
        const auto icat = IcatReparse(file, number);
        // This libfsntfs shows a non-resident $REPARSE_POINT (a long target)
        // with tag 0 and no names; there icat alone speaks.
        if (*r.ReparseTag != 0) {
            EXPECT_EQ(icat.first, *r.ReparseTag) << "tag of record " << number;
            if (icat.first == 0xA0000003 || icat.first == 0xA000000C) {
                EXPECT_EQ(icat.second, r.SubstituteName) << "substitute of record " << number;
            }
        }
        if (icat.first == 0xA0000003 || icat.first == 0xA000000C) links[number] = icat;
    }
    if (links.empty()) GTEST_SKIP() << image.Name << " has no links";
    const TFsntfsContent listing = RowsFromFsntfs(records);

    std::vector<platform::TVolumeTableEntry> volumes(1);
    volumes[0].mountPoints = {u"C:"};
    volumes[0].volumeName = u"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}\\";
    platform::CVolumeTable table(volumes, {});
    TIndexContent ours;
    try {
        ours = Index(file, "", {.Volumes = &table});
    } catch (const CExc& e) {
        FAIL() << U8(e.GetDescription());
    }
    std::set<TFileRow> files;
    for (const TFileRow& row : listing.Files)
        if (!links.count(listing.Records.at(std::get<0>(row)))) files.insert(row);
    ExpectSame(BlurAstral(ours.Dirs), BlurAstral(listing.Dirs), "libfsntfs");
    ExpectSame(BlurAstral(ours.Files), BlurAstral(files), "libfsntfs without the links");

    std::set<uint64_t> rowed;
    for (const auto& [parent, name, target] : ours.Reparses) {
        const std::string path = (parent.empty() ? "" : parent + "/") + name;
        ASSERT_TRUE(listing.Records.count(path)) << "reparse row of no record: " << path;
        const uint64_t record = listing.Records.at(path);
        ASSERT_TRUE(links.count(record)) << "reparse row of a record without a link: " << path;
        EXPECT_TRUE(records.at(record).Directory) << path;
        EXPECT_EQ("\\??\\C:\\" + target, links.at(record).second) << path;
        std::string slashed = target;
        std::replace(slashed.begin(), slashed.end(), '\\', '/');
        EXPECT_TRUE(listing.Dirs.count(slashed)) << path << " names a target that is no folder: " << target;
        EXPECT_TRUE(rowed.insert(record).second) << path << " has two rows";
    }
    for (const auto& [record, link] : links) {
        const std::string prefix = "\\??\\C:\\";
        if (link.first != 0xA0000003 || !records.at(record).Directory || link.second.rfind(prefix, 0) != 0) continue;
        std::string target = link.second.substr(prefix.size());
        std::replace(target.begin(), target.end(), '\\', '/');
        if (listing.Dirs.count(target)) {
            EXPECT_TRUE(rowed.count(record)) << "junction " << record << " has no row";
        }
    }
    ::testing::Test::RecordProperty("reparse_rows", static_cast<int>(ours.Reparses.size()));
}

INSTANTIATE_TEST_SUITE_P(Images, FastOracle, ::testing::ValuesIn(AllImages()),
                         [](const ::testing::TestParamInfo<TImage>& info) {
                             std::string name = info.param.Name;
                             for (char& c : name)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return name;
                         });

// With a filter: two folders included, one excluded below them. The listing
// is cut by path the same way; the root is a node (a row, no files).
TEST(FastOracleFiltered, IncludedFoldersMatchTheSleuthKit) {
    if (!ngitest::ntfs::HaveTool("fls")) GTEST_SKIP() << "no Sleuth Kit";
    const fs::path file = ImageFile({"ntfs-4k", ngitest::ntfs::SourceDir() / "fixtures/ntfs/ntfs-4k.img.gz"});
    ASSERT_FALSE(file.empty());
    auto under = [](const std::string& path, const std::string& folder) {
        return path == folder || path.rfind(folder + "/", 0) == 0;
    };
    auto included = [&](const std::string& dir) {
        return (under(dir, "deep") || under(dir, "links")) && !under(dir, "deep/l1/l2/l3");
    };
    const TFlsContent oracle = RunFls(file);
    ASSERT_TRUE(oracle.Read);
    std::set<std::string> dirs{""};
    std::set<TFileRow> files;
    for (const std::string& d : oracle.Dirs)
        if (included(d)) dirs.insert(d);
    for (const TFileRow& f : oracle.Files) {
        const std::string& path = std::get<0>(f);
        const size_t slash = path.rfind('/');
        if (slash != std::string::npos && included(path.substr(0, slash))) files.insert(f);
    }

    ngitest::CTempRegistry registry(kSkipReparse);
    ngitest::CTempDir out;
    indexer::CIncExcNode root(std::vector<std::u16string>{u"deep", u"links"},
                              std::vector<std::u16string>{u"deep\\l1\\l2\\l3"});
    TIndexContent ours;
    try {
        ours = ReadIndex(RunPipeline(file, root, out));
    } catch (const CExc& e) {
        FAIL() << U8(e.GetDescription());
    }
    EXPECT_EQ(ours.Dirs, dirs) << "only in the index:\n"
                               << Missing(ours.Dirs, dirs, [](auto& x) { return x; }) << "only in the listing:\n"
                               << Missing(dirs, ours.Dirs, [](auto& x) { return x; });
    EXPECT_EQ(ours.Files, files) << "only in the index:\n"
                                 << Missing(ours.Files, files, ShowRow) << "only in the listing:\n"
                                 << Missing(files, ours.Files, ShowRow);
    EXPECT_TRUE(ours.Dirs.count("deep/l1/l2"));
    EXPECT_FALSE(ours.Dirs.count("deep/l1/l2/l3"));
}

}  // namespace
