// The fast pipeline on volumes built byte by byte: the edge cases of record
// processing that real images rarely show (record order, parent chains,
// cycles, damaged and odd records, the record count's lower bound).
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <functional>

#include "fast/fast_test_util.h"
#include "fast/fast_volume_builder.h"
#include "ntfs/ntfs_attributes.h"
#include "platform/errors.h"
#include "platform/volume_table.h"
#include "testing/log_capture.h"
#include "testing/temp_registry.h"

using namespace ngitest::fast;

namespace {

constexpr char kSettingsKey[] = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\n";
const std::string kNoOwners = std::string(kSettingsKey) + "\"IndexerSkipOwnersParsing\"=dword:00000001\n";
const std::string kNoReparse = std::string(kSettingsKey) + "\"IndexerSkipReparsePoints\"=dword:00000001\n";
// No $Secure and no $Extend on these volumes.
const std::string kPlain = kNoOwners + "\"IndexerSkipReparsePoints\"=dword:00000001\n";

// The volume table of the links' substitute names: C: alone.
platform::CVolumeTable DriveC() {
    std::vector<platform::TVolumeTableEntry> volumes(1);
    volumes[0].mountPoints = {u"C:"};
    volumes[0].volumeName = u"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}\\";
    return platform::CVolumeTable(volumes, {});
}

// Every lookup fails, as for accounts of a domain out of reach.
class CFailingAccounts : public platform::IAccounts {
public:
    bool LookupAccountSid(const uint8_t*, size_t, std::u16string&, std::u16string&, uint32_t&) override {
        platform::SetLastError(platform::kErrNoneMapped);
        return false;
    }
};

struct TRun {
    std::string Settings = kPlain;
    std::vector<std::u16string> Include = {}, Exclude = {};
    bool WithPaths = true;
    platform::IAccounts* Accounts = &platform::SystemAccounts();
};

class FastSynthetic : public ::testing::Test {
protected:
    // Indexes the image, the root included when Include is empty; the
    // failure text, or "" with the content read back.
    std::string Index(const TBytes& bytes, const TRun& run = {}) {
        ngitest::CTempRegistry registry(run.Settings);
        const fs::path image = m_Dir.Native() / "volume.img";
        ngitest::ntfs::WriteBytes(image, bytes);
        ngitest::CTempDir out;
        indexer::CIncExcNode root(run.Include, run.Exclude);
        try {
            m_Content = ReadIndex(RunPipeline(image, root, out, {.Accounts = run.Accounts, .Volumes = &m_Table}),
                                  run.WithPaths);
        } catch (const CExc& e) {
            return U8(e.GetDescription());
        }
        return "";
    }
    std::string Index(const CSynthVolume& volume, const TRun& run = {}) { return Index(volume.Build(), run); }
    std::set<std::string> FilePaths() const {
        std::set<std::string> paths;
        for (const auto& row : m_Content.Files) paths.insert(std::get<0>(row));
        return paths;
    }

    ngitest::CTempDir m_Dir;
    platform::CVolumeTable m_Table = DriveC();
    TIndexContent m_Content;
};

// The record count comes from the $MFT runs: 20 records are enough, and the
// last one in use ends the loop by its own condition.
TEST_F(FastSynthetic, TwentyRecordsAreEnough) {
    CSynthVolume volume(20);
    for (uint64_t frn = 16; frn < 20; ++frn) volume.File(frn, 5, u"f" + std::u16string(1, u'0' + (frn - 16)), frn);
    ngitest::CLogCapture log;
    ASSERT_EQ(Index(volume), "");
    const int64_t time = 13200000000 - 11644473600;
    EXPECT_EQ(m_Content.Files, (std::set<TFileRow>{{"f0", 16, time}, {"f1", 17, time}, {"f2", 18, time}, {"f3", 19, time}}));
    EXPECT_FALSE(log.Contains(u"Found end of $MFT!"));
    EXPECT_TRUE(log.Contains(u"$MFT file records count: 20."));
}

TEST_F(FastSynthetic, NoNamedRecordLeavesNoDirectoryRowAtAll) {
    CSynthVolume volume(40);
    volume.File(16, 5, u"ext").StandardInformation = false;  // an extension record: dropped
    ASSERT_EQ(Index(volume), "");
    EXPECT_TRUE(m_Content.DirRows.empty());
}

// Volumes the pipeline must refuse, each failure naming what was wrong.
TEST_F(FastSynthetic, VolumesThatCannotBeIndexedStopNamingWhy) {
    const std::string nesting4 = kPlain + "\"IndexerMaxNestedFolders\"=dword:00000004\n";
    const struct {
        const char* what;
        std::function<void(CSynthVolume&)> build;
        std::string settings;
        std::vector<const char*> texts;
    } cases[] = {
        {"16 records", nullptr, kPlain, {"IndexVolume fail! Files too little. FileRecordCount=0x0000000000000010."}},
        {"parent cycle", [](CSynthVolume& v) { v.Dir(16, 18, u"a"), v.Dir(17, 5, u"fine"), v.Dir(18, 16, u"b"); },
         kPlain,
         {"parsing failed. File record #16.\r\nCannot process file record #16.\r\nCannot process file record #18.\r\n"
          "indexer::fast_ntfs_indexer::CFastNtfsProcessor::ProcessFileRecord fail. 16 file already in process"}},
        {"folder with two names", [](CSynthVolume& v) { v.Dir(16, 5, u"one").Names.push_back({5, u"two"}); }, kPlain,
         {"Can`t create hardlink for directory!"}},
        {"parent is a file", [](CSynthVolume& v) { v.File(16, 17, u"child"), v.File(17, 5, u"plain-file"); }, kPlain,
         {"Parent directory frn=17 is not indexed"}},
        {"parent not in use", [](CSynthVolume& v) { v.File(16, 19, u"orphan"); }, kPlain, {"is not actual"}},
        // Record 16 is five levels down: a chain of six records in process
        // when the root is pulled in; a limit of 5 lets it through.
        {"nesting limit 4",
         [](CSynthVolume& v) {
             for (uint64_t frn = 16; frn <= 20; ++frn) v.Dir(frn, frn == 20 ? 5 : frn + 1, u"n");
         },
         nesting4, {"Path too long", "parsing failed. File record #16."}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CSynthVolume volume(c.build ? 21 : 16);
        if (c.build) c.build(volume);
        const std::string failure = Index(volume, {.Settings = c.settings});
        for (const char* text : c.texts) EXPECT_NE(failure.find(text), std::string::npos) << failure;
    }
    CSynthVolume nested(21);
    for (uint64_t frn = 16; frn <= 20; ++frn) nested.Dir(frn, frn == 20 ? 5 : frn + 1, u"n");
    EXPECT_EQ(Index(nested, {.Settings = kPlain + "\"IndexerMaxNestedFolders\"=dword:00000005\n"}), "");
    // The first attribute of record 16 claiming a length of 3 bytes.
    CSynthVolume damaged(20);
    damaged.File(16, 5, u"a.txt");
    TBytes image = damaged.Build();
    const size_t record = CSynthVolume::kMftCluster * CSynthVolume::kCluster + 16 * CSynthVolume::kRecord;
    Put32(image, record + indexer::fast_ntfs_indexer::Le16(image.data() + record + 0x14) + 4, 3);
    const std::string failure = Index(image);
    EXPECT_EQ(failure.rfind("parsing failed. File record #16.\r\nCannot process file record #16.\r\n", 0), 0u) << failure;
    EXPECT_NE(failure.find("File record FRN=0x0000000000000010 is corrupted"), std::string::npos) << failure;
}

// A chain of folders whose deepest has the lowest record number: each record
// met first pulls all its ancestors, which must be written root-most first.
// Deep enough that a recursion along the chain would run out of stack.
TEST_F(FastSynthetic, DeepChainIsWrittenRootMostFirstWithoutRecursion) {
    constexpr uint64_t kDepth = 30000;
    CSynthVolume volume(16 + kDepth + 1);
    for (uint64_t level = 1; level <= kDepth; ++level) {
        const uint64_t frn = 16 + kDepth - level;  // level kDepth is record 16
        volume.Dir(frn, level == 1 ? 5 : frn + 1, u"d");
    }
    volume.File(16 + kDepth, 16, u"bottom.txt");
    ASSERT_EQ(Index(volume, {.WithPaths = false}), "");
    ASSERT_EQ(m_Content.DirRows.size(), kDepth + 1);
    for (uint64_t id = 1; id <= kDepth; ++id) ASSERT_EQ(m_Content.DirRows[id].second, id - 1) << id;
    ASSERT_EQ(m_Content.FileParents, (std::vector<uint64_t>{kDepth}));
}

TEST_F(FastSynthetic, NamesOfAFileGiveOneRowEachInIncludedFolders) {
    CSynthVolume volume(24);
    volume.Dir(16, 5, u"in").Names.push_back({5, u"IN~1", 2});  // with its DOS name: one name
    volume.Dir(17, 5, u"out");
    TSynthRecord& file = volume.File(18, 16, u"linked.txt", 99);
    file.Names.push_back({17, u"other.txt"});  // a hard link in the excluded folder
    file.Names.push_back({16, u"posix-name", 0});
    volume.Dir(11, 5, u"$Extend");
    volume.File(19, 11, u"in-extend.dat");  // parent $Extend: a metafile
    ngitest::CLogCapture log;
    ASSERT_EQ(Index(volume, {.Exclude = {u"out"}}), "");
    EXPECT_EQ(m_Content.Dirs, (std::set<std::string>{"", "in"}));
    EXPECT_EQ(FilePaths(), (std::set<std::string>{"in/linked.txt", "in/posix-name"}));
    EXPECT_TRUE(log.Contains(u"NTFS metafile. FRN=0x000000000000000b"));
}

// A bad record is one invalid record, logged once by its own number, and
// the scan goes on after it, also behind a long run of free records (it was
// once reported for every free record before it, each report scanning the
// bitmap again).
TEST_F(FastSynthetic, InvalidRecordsAreCountedOnceAndTheVolumeStillIndexes) {
    CSynthVolume volume(1000);
    volume.File(16, 5, u"a.txt");
    volume.File(700, 5, u"torn.txt").BadSignature = true;
    volume.File(701, 5, u"b.txt");
    ngitest::CLogCapture log;
    ASSERT_EQ(Index(volume), "");
    EXPECT_EQ(m_Content.Files.size(), 2u);
    EXPECT_EQ(log.Count(u"Can`t parse file record #"), 1u);
    EXPECT_TRUE(log.Contains(u"Can`t parse file record #700."));
    EXPECT_TRUE(log.Contains(u"Complete with fails, 1 invalid file records found!"));
}

// Each failure leaves no index behind that its readers would refuse, or that
// would hide the volume: the attempt fails, naming the record.
TEST_F(FastSynthetic, VolumesThatWouldGiveAnUnreadableOrEmptyIndexFail) {
    CSynthVolume emptyDir(20);
    emptyDir.Dir(16, 5, u"");
    emptyDir.File(17, 16, u"inside.txt");
    std::string failure = Index(emptyDir);
    EXPECT_NE(failure.find("Directory FRN=0x0000000000000010 has an empty name"), std::string::npos) << failure;
    // An empty file name stays a row: the readers take it.
    CSynthVolume emptyFile(20);
    emptyFile.File(16, 5, u"");
    EXPECT_EQ(Index(emptyFile), "");
    // A bitmap that frees one of records 0 to 15, whatever the settings skip.
    for (const uint64_t freed : {0u, 9u, 15u}) {
        CSynthVolume volume(20);
        volume.File(16, 5, u"a.txt");
        TBytes image = volume.Build();
        // The bitmap's cluster follows the $MFT's five.
        image[(CSynthVolume::kMftCluster + 5) * CSynthVolume::kCluster + freed / 8] &= ~(1u << (freed % 8));
        failure = Index(image);
        EXPECT_NE(failure.find("marks file record #" + std::to_string(freed) + " free"), std::string::npos) << failure;
    }
}

// Filters by record number: the decisions of the node flags.
TEST_F(FastSynthetic, FilterDecisionsFollowTheTree) {
    CSynthVolume volume(40);
    volume.Dir(30, 5, u"a").Indexed = true;  // high numbers: pulled by their children
    volume.Dir(31, 5, u"c");
    volume.Dir(16, 30, u"b").Indexed = true;
    volume.Dir(17, 30, u"sibling");
    volume.Dir(18, 16, u"deeper");
    volume.Dir(19, 16, u"skip");
    volume.File(20, 30, u"in-a.txt");
    volume.File(21, 16, u"in-b.txt");
    volume.File(22, 18, u"in-deeper.txt");
    volume.File(23, 17, u"in-sibling.txt");
    volume.File(24, 19, u"in-skip.txt");
    volume.File(25, 5, u"in-root.txt");

    struct Case {
        std::vector<std::u16string> Include, Exclude;
        std::set<std::string> Dirs, Files;
    } cases[] = {
        // Everything.
        {{}, {}, {"", "a", "c", "a/b", "a/sibling", "a/b/deeper", "a/b/skip"},
         {"in-root.txt", "a/in-a.txt", "a/b/in-b.txt", "a/b/deeper/in-deeper.txt", "a/sibling/in-sibling.txt",
          "a/b/skip/in-skip.txt"}},
        // Only a\b: a is a node (a row, no files), its other children out.
        {{u"a\\b"}, {}, {"", "a", "a/b", "a/b/deeper", "a/b/skip"},
         {"a/b/in-b.txt", "a/b/deeper/in-deeper.txt", "a/b/skip/in-skip.txt"}},
        // An exclude below the include.
        {{u"a\\b"}, {u"a\\b\\skip"}, {"", "a", "a/b", "a/b/deeper"}, {"a/b/in-b.txt", "a/b/deeper/in-deeper.txt"}},
        // A folder that doesn't exist leaves its sibling's decision intact.
        {{u"nothere", u"c"}, {}, {"", "c"}, {}},
        // Everything but a.
        {{}, {u"a"}, {"", "c"}, {"in-root.txt"}},
    };
    for (const Case& c : cases) {
        ASSERT_EQ(Index(volume, {.Include = c.Include, .Exclude = c.Exclude}), "");
        EXPECT_EQ(m_Content.Dirs, c.Dirs);
        EXPECT_EQ(FilePaths(), c.Files);
        for (size_t i = 1; i < m_Content.DirRows.size(); ++i)
            EXPECT_LT(m_Content.DirRows[i].second, m_Content.DirRows[i].first);
    }
}

// The value of a symbolic link's $REPARSE_POINT: tag, length, the four name
// fields (substitute name first), flags, then the name.
TBytes SymlinkValue(const std::u16string& substitute) {
    TBytes v(20, 0);
    Put32(v, 0, 0xA000000C);
    Put16(v, 10, static_cast<uint16_t>(substitute.size() * 2));
    Put16(v, 12, static_cast<uint16_t>(substitute.size() * 2));
    for (char16_t c : substitute) v.push_back(static_cast<uint8_t>(c)), v.push_back(static_cast<uint8_t>(c >> 8));
    Put16(v, 4, static_cast<uint16_t>(v.size() - 8));
    return v;
}

// $Extend\$Reparse (record reparseFrn) with a $R root naming the links.
void AddReparseIndex(CSynthVolume& volume, uint64_t reparseFrn, const std::vector<uint64_t>& links) {
    volume.Dir(11, 5, u"$Extend").Indexed = true;
    std::vector<TBytes> entries;
    for (uint64_t link : links) {
        TBytes key(12, 0);
        Put32(key, 0, 0xA000000C);
        Put64(key, 4, link);
        entries.push_back(IndexEntry(0, key, 0));
    }
    volume.File(reparseFrn, 11, u"$Reparse").Extra.push_back(ResidentAttr(0x90, IndexRootValue(entries), u"$R"));
}

TEST_F(FastSynthetic, DescriptorsWithoutOwnerGiveOwnerZeroAndOneWarning) {
    CSynthVolume volume(24);
    AddSecure(volume, SecureStreams({{0x100, true}, {0x101, false}, {0x102, false}}));
    volume.File(16, 5, u"owned.txt").SecurityId = 0x100;
    volume.File(17, 5, u"nobody.txt").SecurityId = 0x101;
    volume.File(18, 5, u"nobody-too.txt").SecurityId = 0x102;
    ngitest::CLogCapture log;
    ASSERT_EQ(Index(volume, {.Settings = kNoReparse}), "");
    EXPECT_EQ(m_Content.FileOwners,
              (std::map<std::string, uint32_t>{{"owned.txt", 1}, {"nobody.txt", 0}, {"nobody-too.txt", 0}}));
    ASSERT_EQ(m_Content.Owners.size(), 2u);
    EXPECT_EQ(std::get<0>(m_Content.Owners[1]), "S-1-5-32-256");
    EXPECT_EQ(log.Count(u"have no owner"), 1u);
    EXPECT_TRUE(log.Contains(u"2 security descriptors of $Secure have no owner; their files get owner 0."));
}

// Six owners whose accounts can't be found: five lines, then the count.
TEST_F(FastSynthetic, FailedLookupsAreLoggedFiveTimesAndCounted) {
    CSynthVolume volume(24);
    std::vector<std::pair<uint32_t, bool>> ids;
    for (uint32_t i = 0; i < 6; ++i) {
        ids.push_back({0x100 + i, true});
        volume.File(16 + i, 5, u"f" + std::u16string(1, u'0' + i)).SecurityId = 0x100 + i;
    }
    AddSecure(volume, SecureStreams(ids));
    CFailingAccounts accounts;
    ngitest::CLogCapture log;
    ASSERT_EQ(Index(volume, {.Settings = kNoReparse, .Accounts = &accounts}), "");
    EXPECT_EQ(m_Content.Owners.size(), 7u);
    EXPECT_EQ(log.Count(u"CFastNtfsProcessor::StoreOwners fail. SID=[S-1-5-32-"), 5u);
    EXPECT_TRUE(log.Contains(u"Failed to recognize 6 owners."));
}

// $Secure's $SDS split over record 9 and extension records 17 and 18
// (SplitAttribute), its three clusters behind the rest of the volume.
class SplitSecure : public FastSynthetic {
protected:
    static constexpr uint64_t kCluster = CSynthVolume::kCluster;

    TBytes Build(uint64_t vcnOf18 = 1, uint16_t instanceOf18 = 0) {
        CSynthVolume volume(24);
        volume.File(19, 5, u"a.txt").SecurityId = 0x100;
        volume.File(20, 5, u"b.txt").SecurityId = 0x101;
        volume.File(21, 5, u"c.txt").SecurityId = 0x102;
        TBytes image = volume.Build();
        const uint64_t data = image.size() / kCluster;
        const TSecure secure = SecureStreams({{0x100, true}, {0x101, true}, {0x102, true}}, kCluster);
        image.insert(image.end(), secure.Sds.begin(), secure.Sds.end());
        Put64(image, 0x28, (data + 3) * 8);
        const TSplitRecords split = SplitAttribute(9, 18, 17, FileNameValue(5, u"$Secure", 3), 0x80, u"$SDS", data,
                                                   {ResidentAttr(0x90, secure.SiiRoot, u"$SII")}, vcnOf18,
                                                   instanceOf18);
        for (const auto& [frn, record] : {std::pair{9, &split.Base}, std::pair{18, &split.First},
                                          std::pair{17, &split.Second}}) {
            std::copy(record->begin(), record->end(),
                      image.begin() + static_cast<std::ptrdiff_t>(CSynthVolume::kMftCluster * kCluster +
                                                                  frn * CSynthVolume::kRecord));
            image[(CSynthVolume::kMftCluster + 6) * kCluster + frn / 8] |= static_cast<uint8_t>(1u << (frn % 8));
        }
        return image;
    }
};

TEST_F(SplitSecure, ExtentsInSeveralRecordsAreReadInVcnOrder) {
    ASSERT_EQ(Index(Build(), {.Settings = kNoReparse}), "");
    EXPECT_EQ(m_Content.FileOwners, (std::map<std::string, uint32_t>{{"a.txt", 1}, {"b.txt", 2}, {"c.txt", 3}}));
    ASSERT_EQ(m_Content.Owners.size(), 4u);
    EXPECT_EQ(std::get<0>(m_Content.Owners[3]), "S-1-5-32-258");
}

TEST_F(SplitSecure, ExtentsThatDisagreeWithTheListFailNamingThem) {
    const struct {
        uint64_t Vcn;
        uint16_t Instance;
        const char* Failure;
    } cases[] = {
        {2, 0, "An extent of attribute [$SDS] in file record FRN=0x0000000000000012 starts at VCN "
               "0x0000000000000002, but the extents before it end at VCN 0x0000000000000001."},
        {1, 7, "File record FRN=0x0000000000000009 is corrupted: attribute list entry at offset 0x88 names "
               "attribute type 0x80 instance 7 of file record FRN=0x0000000000000012, which holds no such attribute"},
    };
    for (const auto& c : cases) {
        const std::string failure = Index(Build(c.Vcn, c.Instance), {.Settings = kNoReparse});
        EXPECT_NE(failure.find(c.Failure), std::string::npos) << failure;
    }
}

// The same split written into a volume made by mkntfs, which the Sleuth Kit
// reads: a file's named stream of three clusters, through the reader and
// through icat.
TEST(SplitAttribute, ReadsAsTheSleuthKitReadsIt) {
    const std::string mkntfs = fs::exists("/usr/sbin/mkntfs") ? "/usr/sbin/mkntfs" : "mkntfs";
    if (!ngitest::ntfs::HaveTool("icat") || !ngitest::ntfs::HaveTool(mkntfs)) GTEST_SKIP() << "no Sleuth Kit or mkntfs";
    ngitest::CTempDir dir;
    const fs::path path = dir.Native() / "split.img";
    std::ofstream(path).close();
    fs::resize_file(path, 8 << 20);
    ASSERT_EQ(std::system((mkntfs + " -F -q -Q -c 4096 " + ngitest::ntfs::Quote(path) + " >/dev/null 2>&1").c_str()), 0);
    const std::string istat = ngitest::ntfs::RunCommand("istat " + ngitest::ntfs::Quote(path) + " 0");
    const auto [mft, mftSize] = IstatRuns(istat, "$DATA (128-");
    const auto [bitmap, bitmapSize] = IstatRuns(istat, "$BITMAP (176-");
    ASSERT_GE(mftSize, 27u * 1024) << istat;
    ASSERT_FALSE(bitmap.empty());
    constexpr uint64_t kCluster = 4096, kLcn = 2040;  // near the end, where mkntfs puts nothing
    TBytes image = ngitest::ntfs::ReadBytes(path);
    for (uint64_t i = 0; i < 3 * kCluster; ++i) image[kLcn * kCluster + i] = static_cast<uint8_t>(i * 7 + i / kCluster);
    const TSplitRecords split = SplitAttribute(24, 26, 25, FileNameValue(5, u"split.bin", 3), 0x80, u"s", kLcn, {});
    for (const auto& [frn, record] : {std::pair{24, &split.Base}, std::pair{26, &split.First},
                                      std::pair{25, &split.Second}}) {
        std::copy(record->begin(), record->end(),
                  image.begin() + static_cast<std::ptrdiff_t>(mft[frn * 1024 / kCluster] * kCluster + frn * 1024 % kCluster));
        image[bitmap[0] * kCluster + frn / 8] |= static_cast<uint8_t>(1u << (frn % 8));
    }
    ngitest::ntfs::WriteBytes(path, image);
    ngitest::ntfs::CImageVolume v;
    v.Open(path);
    TBytes record(1024);
    v.Volume().GetFileRecord(24, record.data(), 1);
    indexer::fast_ntfs_indexer::CAttributeContent stream(&v.Volume(), 24, u"s");
    indexer::fast_ntfs_indexer::CNtfsAttributes(&v.Volume()).ReadAttributeContent(record.data(), 24, 0x80, u"s", stream);
    std::string bytes(3 * kCluster, '\0');
    ASSERT_EQ(stream.Read(0, bytes.data(), bytes.size()), bytes.size());
    EXPECT_EQ(std::memcmp(bytes.data(), image.data() + kLcn * kCluster, bytes.size()), 0);
    const std::string oracle = ngitest::ntfs::RunCommand("icat " + ngitest::ntfs::Quote(path) + " 24-128-3");
    EXPECT_TRUE(oracle == bytes) << "the reader and the Sleuth Kit read the stream differently";
}

// Damaged metadata that stops the volume, each failure naming it.
TEST_F(FastSynthetic, DamagedMetadataStopsTheVolumeNamingIt) {
    // A file, then a symbolic link 19 in folder 18; `damage` takes something
    // from the link's record or, with `folder`, from the folder's.
    auto link = [](const std::function<void(TSynthRecord&)>& damage, bool folder = false) {
        CSynthVolume volume(24);
        volume.File(16, 5, u"target.txt");
        TSynthRecord& links = volume.Dir(18, 5, u"links");
        TSynthRecord& record = volume.File(19, 18, u"shortcut");
        record.Extra.push_back(ResidentAttr(0xC0, SymlinkValue(u"\\??\\C:\\target.txt")));
        damage(folder ? links : record);
        AddReparseIndex(volume, 20, {19});
        return volume.Build();
    };
    CSynthVolume secure(20), listed(20);
    TSecure streams = SecureStreams({{0x100, true}});
    Put32(streams.SiiRoot, 0x20 + 36, 4096);  // the first descriptor's length
    AddSecure(secure, streams);
    // A non-resident $ATTRIBUTE_LIST claiming more bytes than its runs hold.
    listed.File(16, 5, u"listed.txt").Extra.push_back(NonResidentAttr(0x20, {0x11, 1, 1}, 0, 4096, 8192, 8192));
    // Record 0 with its $BITMAP resident.
    TBytes residentBitmap = CSynthVolume(20).Build();
    const TBytes record0 = FileRecord({ResidentAttr(0x10, TBytes(0x48, 0)),
                                       NonResidentAttr(0x80, {0x11, 5, CSynthVolume::kMftCluster}, 0, 5 * 4096,
                                                       20 * 1024, 20 * 1024),
                                       ResidentAttr(0xB0, TBytes(8, 0xFF))});
    std::copy(record0.begin(), record0.end(), residentBitmap.begin() + CSynthVolume::kMftCluster * CSynthVolume::kCluster);
    const struct {
        const char* What;
        TBytes Image;
        std::string Settings;
        const char* Failure;
    } cases[] = {
        {"resident $MFT bitmap", residentBitmap, kPlain, "$MFT $BITMAP RESIDENT_FORM parse not implemented!"},
        {"attribute list longer than its runs", listed.Build(), kPlain,
         "Attribute NONRESIDENT_FORM invalid file size!"},
        {"$SDS record passing the stream", secure.Build(), kNoReparse,
         "indexer::fast_ntfs_indexer::ParseSII_cb fail. Attribute overflow. ValidDataLength=0x0000000000000048"},
        {"link with an attribute list", link([](TSynthRecord& r) { r.Extra.push_back(ResidentAttr(0x20, {})); }),
         kNoOwners, "_FillReparsePointInfo fail. $ATTRIBUTE_LIST found!"},
        {"link in a folder that gives no row", link([](TSynthRecord& r) { r.StandardInformation = false; }, true),
         kNoOwners, "BuildReparsePointList fail."},
    };
    for (const auto& c : cases) {
        const std::string failure = Index(c.Image, {.Settings = c.Settings});
        EXPECT_NE(failure.find(c.Failure), std::string::npos) << c.What << ": " << failure;
    }
}

TEST_F(FastSynthetic, FileLinkCopiesItsTargetsRow) {
    CSynthVolume volume(32);
    volume.Dir(16, 5, u"data").Indexed = true;
    volume.File(17, 16, u"Target.txt", 1234).Time = 133000000000000000ull;
    volume.Dir(18, 5, u"links");
    volume.File(19, 18, u"shortcut").Extra.push_back(ResidentAttr(0xC0, SymlinkValue(u"\\??\\C:\\data\\target.txt")));
    AddReparseIndex(volume, 20, {19});
    ASSERT_EQ(Index(volume, {.Settings = kNoOwners}), "");
    // The link is no row of its own; the target's row is copied into the
    // link's folder under the target's name, size and time.
    const int64_t seconds = 13300000000 - 11644473600;
    EXPECT_EQ(m_Content.Files, (std::set<TFileRow>{{"data/Target.txt", 1234, seconds}, {"links/Target.txt", 1234, seconds}}));
}

}  // namespace
