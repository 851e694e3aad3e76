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
#include "platform/volume_table.h"
#include "testing/log_capture.h"
#include "testing/temp_registry.h"

using namespace ngitest::fast;

namespace {

constexpr char kSettingsKey[] = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\n";
// No $Secure and no $Extend on these volumes.
const std::string kPlain = std::string(kSettingsKey) +
                           "\"IndexerSkipOwnersParsing\"=dword:00000001\n"
                           "\"IndexerSkipReparsePoints\"=dword:00000001\n";

class FastSynthetic : public ::testing::Test {
protected:
    // Indexes an image given as bytes (see Index).
    std::string IndexImage(const TBytes& bytes, const std::string& settings = kPlain,
                           indexer::fast_ntfs_indexer::TProcessorServices services = {}) {
        ngitest::CTempRegistry registry(settings);
        const fs::path image = m_Dir.Native() / "volume.img";
        ngitest::ntfs::WriteBytes(image, bytes);
        ngitest::CTempDir out;
        indexer::CIncExcNode root(std::vector<std::u16string>{}, std::vector<std::u16string>{});
        try {
            m_Content = ReadIndex(RunPipeline(image, root, out, services));
        } catch (const CExc& e) {
            return U8(e.GetDescription());
        }
        return "";
    }

    // Indexes the volume with the filter (root included when empty); the
    // failure text, or "" with the content read back.
    std::string Index(const CSynthVolume& volume, const std::vector<std::u16string>& include = {},
                      const std::vector<std::u16string>& exclude = {}, const std::string& settings = kPlain,
                      bool withPaths = true) {
        ngitest::CTempRegistry registry(settings);
        const fs::path image = m_Dir.Native() / "volume.img";
        ngitest::ntfs::WriteBytes(image, volume.Build());
        ngitest::CTempDir out;
        indexer::CIncExcNode root(include, exclude);
        try {
            m_Content = ReadIndex(RunPipeline(image, root, out), withPaths);
        } catch (const CExc& e) {
            return U8(e.GetDescription());
        }
        return "";
    }

    ngitest::CTempDir m_Dir;
    TIndexContent m_Content;
};

// The record count comes from the $MFT runs: 4 clusters of 4 records, or 5.
TEST_F(FastSynthetic, SixteenRecordsAreTooFewTwentyAreEnough) {
    CSynthVolume small(16);
    EXPECT_EQ(Index(small),
              "indexer::fast_ntfs_indexer::CVolumeNTFSIndexer::IndexVolume fail! Files too little. "
              "FileRecordCount=0x0000000000000010.");
    CSynthVolume enough(20);
    for (uint64_t frn = 16; frn < 20; ++frn) enough.File(frn, 5, u"f" + std::u16string(1, u'0' + (frn - 16)), frn);
    ngitest::CLogCapture log;
    ASSERT_EQ(Index(enough), "");
    EXPECT_EQ(m_Content.Dirs, (std::set<std::string>{""}));
    EXPECT_EQ(m_Content.Files, (std::set<TFileRow>{{"f0", 16, 13200000000 - 11644473600},
                                                   {"f1", 17, 13200000000 - 11644473600},
                                                   {"f2", 18, 13200000000 - 11644473600},
                                                   {"f3", 19, 13200000000 - 11644473600}}));
    // The last record is in use: the loop ends by its own condition.
    EXPECT_FALSE(log.Contains(u"Found end of $MFT!"));
    EXPECT_TRUE(log.Contains(u"$MFT file records count: 20."));
    EXPECT_TRUE(log.Contains(u"100%"));
}

TEST_F(FastSynthetic, NoNamedRecordLeavesNoDirectoryRowAtAll) {
    CSynthVolume volume(40);
    volume.File(16, 5, u"ext").StandardInformation = false;  // an extension record: dropped
    ngitest::CLogCapture log;
    ASSERT_EQ(Index(volume), "");
    EXPECT_TRUE(m_Content.DirRows.empty());
    EXPECT_TRUE(log.Contains(u"Found end of $MFT!"));
    EXPECT_TRUE(log.Contains(u"Main circle. Ok."));
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
    ASSERT_EQ(Index(volume, {}, {}, kPlain, false), "");
    ASSERT_EQ(m_Content.DirRows.size(), kDepth + 1);
    for (uint64_t id = 1; id <= kDepth; ++id) ASSERT_EQ(m_Content.DirRows[id].second, id - 1) << id;
    ASSERT_EQ(m_Content.FileParents, (std::vector<uint64_t>{kDepth}));
}

TEST_F(FastSynthetic, NestingLimitCountsTheWholeChain) {
    // Record 16 is five levels down: 16 -> 17 -> 18 -> 19 -> 20 -> root, a
    // chain of six records in process when the root is pulled in.
    CSynthVolume volume(21);
    for (uint64_t frn = 16; frn <= 20; ++frn) volume.Dir(frn, frn == 20 ? 5 : frn + 1, u"n");
    auto limit = [](int n) {
        return std::string(kSettingsKey) + "\"IndexerSkipOwnersParsing\"=dword:00000001\n" +
               "\"IndexerSkipReparsePoints\"=dword:00000001\n\"IndexerMaxNestedFolders\"=dword:0000000" +
               std::to_string(n) + "\n";
    };
    EXPECT_EQ(Index(volume, {}, {}, limit(5)), "");
    const std::string failure = Index(volume, {}, {}, limit(4));
    EXPECT_NE(failure.find("Path too long"), std::string::npos) << failure;
    EXPECT_NE(failure.find("parsing failed. File record #16."), std::string::npos) << failure;
}

TEST_F(FastSynthetic, ParentCycleStopsTheVolume) {
    CSynthVolume volume(20);
    volume.Dir(16, 18, u"a");
    volume.Dir(17, 5, u"fine");
    volume.Dir(18, 16, u"b");
    EXPECT_EQ(Index(volume),
              "parsing failed. File record #16.\r\n"
              "Cannot process file record #16.\r\n"
              "Cannot process file record #18.\r\n"
              "indexer::fast_ntfs_indexer::CFastNtfsProcessor::ProcessFileRecord fail. 16 file already in "
              "process in current call stack");
}

TEST_F(FastSynthetic, DirectoryWithTwoNamesStopsTheVolume) {
    CSynthVolume volume(20);
    volume.Dir(16, 5, u"one").Names.push_back({5, u"two"});
    const std::string failure = Index(volume);
    EXPECT_NE(failure.find("Can`t create hardlink for directory!"), std::string::npos) << failure;
    // A Win32 name with its DOS short name is one name.
    CSynthVolume dos(20);
    dos.Dir(16, 5, u"LongFolderName").Names.push_back({5, u"LONGFO~1", 2});
    EXPECT_EQ(Index(dos), "");
    EXPECT_EQ(m_Content.Dirs, (std::set<std::string>{"", "LongFolderName"}));
}

TEST_F(FastSynthetic, NamesOfAFileGiveOneRowEachInIncludedFolders) {
    CSynthVolume volume(24);
    volume.Dir(16, 5, u"in");
    volume.Dir(17, 5, u"out");
    TSynthRecord& file = volume.File(18, 16, u"linked.txt", 99);
    file.Names.push_back({17, u"other.txt"});  // a hard link in the excluded folder
    file.Names.push_back({16, u"posix-name", 0});
    volume.Dir(11, 5, u"$Extend");
    volume.File(19, 11, u"in-extend.dat");  // parent $Extend: a metafile
    ngitest::CLogCapture log;
    ASSERT_EQ(Index(volume, {}, {u"out"}), "");
    EXPECT_EQ(m_Content.Dirs, (std::set<std::string>{"", "in"}));
    std::set<std::string> paths;
    for (const auto& row : m_Content.Files) paths.insert(std::get<0>(row));
    EXPECT_EQ(paths, (std::set<std::string>{"in/linked.txt", "in/posix-name"}));
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
    EXPECT_TRUE(log.Contains(u"Main circle. Failed."));
    EXPECT_TRUE(log.Contains(u"Execute NTFS parsing algorithm. Ok."));
}

// Each failure leaves no index behind that its readers would refuse, or that
// would hide the volume: the attempt fails, naming the record.
TEST_F(FastSynthetic, VolumesThatWouldGiveAnUnreadableOrEmptyIndexFail) {
    CSynthVolume emptyDir(20);
    emptyDir.Dir(16, 5, u"");
    emptyDir.File(17, 16, u"inside.txt");
    ngitest::CLogCapture log;
    std::string failure = Index(emptyDir);
    EXPECT_NE(failure.find("Directory FRN=0x0000000000000010 has an empty name"), std::string::npos) << failure;
    EXPECT_NE(failure.find("Cannot process file record #16."), std::string::npos) << failure;
    EXPECT_TRUE(log.Contains(u"Found empty FileName for directory! FileRefNum=0x0000000000000010."));
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
        const size_t bitmap = (CSynthVolume::kMftCluster + 5) * CSynthVolume::kCluster;
        image[bitmap + freed / 8] &= static_cast<uint8_t>(~(1u << (freed % 8)));
        failure = IndexImage(image);
        EXPECT_NE(failure.find("marks file record #" + std::to_string(freed) + " free"), std::string::npos)
            << failure;
    }
}

TEST_F(FastSynthetic, ParentThatIsNoDirectoryStopsTheVolume) {
    CSynthVolume volume(20);
    volume.File(16, 17, u"child");
    volume.File(17, 5, u"plain-file");
    const std::string failure = Index(volume);
    EXPECT_NE(failure.find("Parent directory frn=17 is not indexed"), std::string::npos) << failure;
    // A parent record that is not in use: the reader's failure.
    CSynthVolume missing(20);
    missing.File(16, 19, u"orphan");
    EXPECT_NE(Index(missing).find("is not actual"), std::string::npos);
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
        ASSERT_EQ(Index(volume, c.Include, c.Exclude), "");
        EXPECT_EQ(m_Content.Dirs, c.Dirs);
        std::set<std::string> files;
        for (const auto& row : m_Content.Files) files.insert(std::get<0>(row));
        EXPECT_EQ(files, c.Files);
        for (size_t i = 1; i < m_Content.DirRows.size(); ++i)
            EXPECT_LT(m_Content.DirRows[i].second, m_Content.DirRows[i].first);
    }
}

TEST_F(FastSynthetic, DamagedRecordStopsTheVolumeWithWhatWasWrong) {
    CSynthVolume volume(20);
    volume.File(16, 5, u"a.txt");
    TBytes image = volume.Build();
    // The first attribute of record 16 claims a length of 3 bytes.
    const size_t record = CSynthVolume::kMftCluster * CSynthVolume::kCluster + 16 * CSynthVolume::kRecord;
    Put32(image, record + indexer::fast_ntfs_indexer::Le16(image.data() + record + 0x14) + 4, 3);
    const std::string failure = IndexImage(image);
    EXPECT_EQ(failure.rfind("parsing failed. File record #16.\r\nCannot process file record #16.\r\n", 0), 0u)
        << failure;
    EXPECT_NE(failure.find("File record FRN=0x0000000000000010 is corrupted"), std::string::npos) << failure;
}

// The volume table of the links' substitute names: C: alone.
platform::CVolumeTable DriveC() {
    std::vector<platform::TVolumeTableEntry> volumes(1);
    volumes[0].mountPoints = {u"C:"};
    volumes[0].volumeName = u"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}\\";
    return platform::CVolumeTable(volumes, {});
}

// The value of a symbolic link's $REPARSE_POINT: tag, length, the four name
// fields, flags, then the names.
TBytes SymlinkValue(const std::u16string& substitute) {
    TBytes v(20, 0);
    Put32(v, 0, 0xA000000C);
    Put16(v, 8, 0);
    Put16(v, 10, static_cast<uint16_t>(substitute.size() * 2));
    Put16(v, 12, static_cast<uint16_t>(substitute.size() * 2));
    Put16(v, 14, 0);
    for (char16_t c : substitute) {
        v.push_back(static_cast<uint8_t>(c));
        v.push_back(static_cast<uint8_t>(c >> 8));
    }
    Put16(v, 4, static_cast<uint16_t>(v.size() - 8));
    return v;
}

// $Extend\$Reparse with a $R root naming the links.
void AddReparseIndex(CSynthVolume& volume, uint64_t reparseFrn, const std::vector<uint64_t>& links) {
    volume.Dir(11, 5, u"$Extend").Indexed = true;
    TBytes entries;
    for (uint64_t link : links) {
        TBytes key(12, 0);
        Put32(key, 0, 0xA000000C);
        Put64(key, 4, link);
        const TBytes e = IndexEntry(0, key, 0);
        entries.insert(entries.end(), e.begin(), e.end());
    }
    const TBytes last = IndexEntry(0, {}, 2);
    entries.insert(entries.end(), last.begin(), last.end());
    TBytes root(0x20, 0);
    Put32(root, 0x10, 0x10);
    Put32(root, 0x14, static_cast<uint32_t>(0x10 + entries.size()));
    Put32(root, 0x18, static_cast<uint32_t>(0x10 + entries.size()));
    root.insert(root.end(), entries.begin(), entries.end());
    volume.File(reparseFrn, 11, u"$Reparse").Extra.push_back(ResidentAttr(0x90, root, u"$R"));
}

// $Secure (record 9) with a resident $SDS and $SII.
void AddSecure(CSynthVolume& volume, const std::vector<std::pair<uint32_t, bool>>& ids) {
    const TSecure secure = SecureStreams(ids);
    TSynthRecord& record = volume.File(9, 5, u"$Secure", 0);
    record.Extra = {ResidentAttr(0x80, secure.Sds, u"$SDS"), ResidentAttr(0x90, secure.SiiRoot, u"$SII")};
}

TEST_F(FastSynthetic, DescriptorsWithoutOwnerGiveOwnerZeroAndOneWarning) {
    CSynthVolume volume(24);
    AddSecure(volume, {{0x100, true}, {0x101, false}, {0x102, false}});
    volume.File(16, 5, u"owned.txt").SecurityId = 0x100;
    volume.File(17, 5, u"nobody.txt").SecurityId = 0x101;
    volume.File(18, 5, u"nobody-too.txt").SecurityId = 0x102;
    const std::string settings = std::string(kSettingsKey) + "\"IndexerSkipReparsePoints\"=dword:00000001\n";
    ngitest::CLogCapture log;
    ASSERT_EQ(IndexImage(volume.Build(), settings), "");
    EXPECT_EQ(m_Content.FileOwners,
              (std::map<std::string, uint32_t>{{"owned.txt", 1}, {"nobody.txt", 0}, {"nobody-too.txt", 0}}));
    ASSERT_EQ(m_Content.Owners.size(), 2u);
    EXPECT_EQ(std::get<0>(m_Content.Owners[1]), "S-1-5-32-256");
    EXPECT_EQ(log.Count(u"have no owner"), 1u);
    EXPECT_TRUE(log.Contains(u"2 security descriptors of $Secure have no owner; their files get owner 0."));
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
    const std::string kOwners = std::string(kSettingsKey) + "\"IndexerSkipReparsePoints\"=dword:00000001\n";
};

TEST_F(SplitSecure, ExtentsInSeveralRecordsAreReadInVcnOrder) {
    const TBytes image = Build();
    ASSERT_EQ(IndexImage(image, kOwners), "");
    EXPECT_EQ(m_Content.FileOwners, (std::map<std::string, uint32_t>{{"a.txt", 1}, {"b.txt", 2}, {"c.txt", 3}}));
    ASSERT_EQ(m_Content.Owners.size(), 4u);
    EXPECT_EQ(std::get<0>(m_Content.Owners[3]), "S-1-5-32-258");
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
    EXPECT_EQ(oracle.size(), bytes.size());
    EXPECT_TRUE(oracle == bytes) << "the reader and the Sleuth Kit read the stream differently";
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
        const std::string failure = IndexImage(Build(c.Vcn, c.Instance), kOwners);
        EXPECT_NE(failure.find(c.Failure), std::string::npos) << failure;
    }
}

// The reader's and the pipeline's own texts, each on a volume made to give
// it: the failure (empty when the volume is indexed) and a line with its level.
TEST_F(FastSynthetic, MessagesOfTheReaderAndThePipeline) {
    const std::string owners = std::string(kSettingsKey) + "\"IndexerSkipReparsePoints\"=dword:00000001\n";
    const std::string reparse = std::string(kSettingsKey) + "\"IndexerSkipOwnersParsing\"=dword:00000001\n";
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
    auto withSecure = [](uint32_t sdsLengthOfFirst) {
        CSynthVolume volume(20);
        volume.File(16, 5, u"a.txt");
        TSecure secure = SecureStreams({{0x100, true}});
        Put32(secure.SiiRoot, 0x20 + 36, sdsLengthOfFirst);
        volume.File(9, 5, u"$Secure", 0).Extra = {ResidentAttr(0x80, secure.Sds, u"$SDS"),
                                                   ResidentAttr(0x90, secure.SiiRoot, u"$SII")};
        return volume.Build();
    };
    auto shortStandardInformation = [](size_t length) {
        CSynthVolume volume(20);
        TSynthRecord& file = volume.File(16, 5, u"old.txt");
        file.StandardInformation = false;
        file.Extra.push_back(ResidentAttr(0x10, TBytes(length, 0)));
        return volume.Build();
    };
    // Record 0 with its $BITMAP resident; a file whose non-resident
    // $ATTRIBUTE_LIST claims more bytes than its runs hold.
    auto residentBitmap = [] {
        TBytes image = CSynthVolume(20).Build();
        const TBytes run = {0x11, 5, CSynthVolume::kMftCluster};
        const TBytes record0 = FileRecord({ResidentAttr(0x10, TBytes(0x48, 0)),
                                           NonResidentAttr(0x80, run, 0, 5 * 4096, 20 * 1024, 20 * 1024),
                                           ResidentAttr(0xB0, TBytes(8, 0xFF))});
        std::copy(record0.begin(), record0.end(), image.begin() + CSynthVolume::kMftCluster * CSynthVolume::kCluster);
        return image;
    };
    auto longList = [] {
        CSynthVolume volume(20);
        volume.File(16, 5, u"listed.txt").Extra.push_back(NonResidentAttr(0x20, {0x11, 1, 1}, 0, 4096, 8192, 8192));
        return volume.Build();
    };
    const struct {
        const char* What;
        TBytes Image;
        std::string Settings;
        const char* Failure;
        const char16_t* Line;
        int32_t Level;
    } cases[] = {
        {"48-byte $STANDARD_INFORMATION", shortStandardInformation(48), kPlain, "",
         u"File #0x0000000000000010. $STANDART_ATTRIBUTE havn`t SecurityId.", LogWarning},
        {"8-byte $STANDARD_INFORMATION", shortStandardInformation(8), kPlain, "",
         u"File #0x0000000000000010. $STANDART_ATTRIBUTE havn`t LastModificationTime.", LogWarning},
        {"resident $MFT bitmap", residentBitmap(), kPlain, "$MFT $BITMAP RESIDENT_FORM parse not implemented!",
         u"$MFT $BITMAP RESIDENT_FORM", LogError},
        {"attribute list longer than its runs", longList(), kPlain, "Attribute NONRESIDENT_FORM invalid file size!",
         u"    Attribute NONRESIDENT_FORM invalid file size! Nonresident.FileSize=8192, BufCount=4096", LogError},
        {"$SDS record passing the stream", withSecure(4096), owners,
         "indexer::fast_ntfs_indexer::ParseSII_cb fail. Attribute overflow. ValidDataLength=0x0000000000000048", nullptr,
         0},
        {"link with an attribute list", link([](TSynthRecord& r) { r.Extra.push_back(ResidentAttr(0x20, {})); }),
         reparse, "_FillReparsePointInfo fail. $ATTRIBUTE_LIST found!", u"FRN: 0x0000000000000013.", LogError},
        {"link without a name", link([](TSynthRecord& r) { r.Names.clear(); }), reparse,
         "_FillReparsePointInfo fail. Attribute FILE_NAME is not found for ReparsePoint!", nullptr, 0},
        {"link without $STANDARD_INFORMATION", link([](TSynthRecord& r) { r.StandardInformation = false; }), reparse,
         "_FillReparsePointInfo fail. Attribute STANDART_INFORMATION is not found!", nullptr, 0},
        {"link whose reparse point is gone", link([](TSynthRecord& r) { r.Extra.clear(); }), reparse,
         "_FillReparsePointInfo fail. Attribute REPARSE_POINT is not found!", u"Error: ", LogError},
        {"link in a folder that gives no row", link([](TSynthRecord& r) { r.StandardInformation = false; }, true),
         reparse, "BuildReparsePointList fail.", u"_GetDirectoryInfo fail. _GetDirInfo() return NULL!", LogError},
    };
    platform::CVolumeTable table = DriveC();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.What);
        ngitest::CLogCapture log;
        const std::string failure = IndexImage(c.Image, c.Settings, {.Volumes = &table});
        if (*c.Failure == 0)
            EXPECT_EQ(failure, "");
        else
            EXPECT_NE(failure.find(c.Failure), std::string::npos) << failure;
        if (c.Line) {
            EXPECT_EQ(log.LevelOf(c.Line), c.Level) << U8(log.Text());
        }
    }
}

TEST_F(FastSynthetic, FileLinkCopiesItsTargetsRow) {
    CSynthVolume volume(32);
    volume.Dir(16, 5, u"data").Indexed = true;
    volume.File(17, 16, u"Target.txt", 1234).Time = 133000000000000000ull;
    volume.Dir(18, 5, u"links");
    volume.File(19, 18, u"shortcut").Extra.push_back(ResidentAttr(0xC0, SymlinkValue(u"\\??\\C:\\data\\target.txt")));
    AddReparseIndex(volume, 20, {19});
    platform::CVolumeTable table = DriveC();
    const std::string settings = std::string(kSettingsKey) + "\"IndexerSkipOwnersParsing\"=dword:00000001\n";
    ngitest::CLogCapture log;
    ASSERT_EQ(IndexImage(volume.Build(), settings, {.Volumes = &table}), "");
    // The link is no row of its own; the target's row is copied into the
    // link's folder under the target's name, size and time.
    const int64_t seconds = 13300000000 - 11644473600;
    EXPECT_EQ(m_Content.Files, (std::set<TFileRow>{{"data/Target.txt", 1234, seconds}, {"links/Target.txt", 1234, seconds}}));
    EXPECT_TRUE(log.Contains(u"ReparsePoint parent FRN=5 SubstituteName [\\??\\C:\\data\\target.txt] is included."));
}

}  // namespace
