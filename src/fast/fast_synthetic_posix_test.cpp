// The fast pipeline on volumes built byte by byte: the edge cases of record
// processing that real images rarely show (record order, parent chains,
// cycles, damaged and odd records, the record count's lower bound).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "fast/fast_test_util.h"
#include "fast/fast_volume_builder.h"
#include "ntfs/ntfs_attributes.h"
#include "platform/errors.h"
#include "testing/log_capture.h"
#include "testing/temp_registry.h"

using namespace ngitest::fast;
using ::testing::HasSubstr;

namespace {

const std::string kNoOwners = std::string(kSettingsKey) + kSkipOwners;
const std::string kNoReparse = std::string(kSettingsKey) + kSkipReparse;
const std::string kPlain = kNoOwners + kSkipReparse;  // no $Secure and no $Extend on these volumes

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
        for (const char* text : c.texts) EXPECT_THAT(failure, HasSubstr(text));
    }
    CSynthVolume nested(21);
    for (uint64_t frn = 16; frn <= 20; ++frn) nested.Dir(frn, frn == 20 ? 5 : frn + 1, u"n");
    EXPECT_EQ(Index(nested, {.Settings = kPlain + "\"IndexerMaxNestedFolders\"=dword:00000005\n"}), "");
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
    EXPECT_THAT(Index(emptyDir), HasSubstr("Directory FRN=0x0000000000000010 has an empty name"));
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
        EXPECT_THAT(Index(image), HasSubstr("marks file record #" + std::to_string(freed) + " free"));
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

// Descriptors without an owner give owner 0 and one warning; owners whose
// accounts can't be found give five lines, then the count.
TEST_F(FastSynthetic, DescriptorsWithoutOwnerGiveOwnerZeroAndFailedLookupsAreCounted) {
    CSynthVolume volume(32);
    std::vector<std::pair<uint32_t, bool>> ids = {{0x101, false}};
    for (uint32_t i = 0; i < 6; ++i) ids.push_back({0x110 + i, true});
    AddSecure(volume, SecureStreams(ids));
    for (uint32_t i = 0; i < 7; ++i) volume.File(16 + i, 5, u"f" + std::u16string(1, u'0' + i)).SecurityId = ids[i].first;
    CFailingAccounts accounts;
    ngitest::CLogCapture log;
    ASSERT_EQ(Index(volume, {.Settings = kNoReparse, .Accounts = &accounts}), "");
    EXPECT_EQ(m_Content.FileOwners.at("f0"), 0u);
    EXPECT_EQ(std::get<0>(m_Content.Owners.at(m_Content.FileOwners.at("f6"))), "S-1-5-32-277");
    EXPECT_EQ(m_Content.Owners.size(), 7u);
    EXPECT_EQ(log.Count(u"have no owner"), 1u);
    EXPECT_TRUE(log.Contains(u"1 security descriptors of $Secure have no owner; their files get owner 0."));
    EXPECT_EQ(log.Count(u"CFastNtfsProcessor::StoreOwners fail. SID=[S-1-5-32-"), 5u);
    EXPECT_TRUE(log.Contains(u"Failed to recognize 6 owners."));
}

// $Secure's $SDS of three one-cluster extents behind the rest of the volume,
// split as Windows splits a large $SDS, $I30 or $R: VCN 0 in record 9
// (instance 3), VCN 1 in extension record 18 and VCN 2 in 17 (both instance
// 0; 17 named first in the list for its unnamed $DATA, so that extents placed
// by record would be misplaced). `vcnOf18` and `instanceOf18` damage the
// extent in 18 or the list entry naming it.
class SplitSecure : public FastSynthetic {
protected:
    static constexpr uint64_t kCluster = CSynthVolume::kCluster, kSeq = uint64_t{1} << 48;

    TBytes Build(uint64_t vcnOf18 = 1, uint16_t instanceOf18 = 0) {
        CSynthVolume volume(24);
        volume.File(19, 5, u"a.txt").SecurityId = 0x100;
        volume.File(20, 5, u"b.txt").SecurityId = 0x101;
        volume.File(21, 5, u"c.txt").SecurityId = 0x102;
        TBytes image = volume.Build();
        const uint64_t lcn = image.size() / kCluster;
        const TSecure secure = SecureStreams({{0x100, true}, {0x101, true}, {0x102, true}}, kCluster);
        image.insert(image.end(), secure.Sds.begin(), secure.Sds.end());
        Put64(image, 0x28, (lcn + 3) * 8);
        auto extent = [&](uint64_t vcn, uint64_t at, uint16_t instance) {
            const uint64_t size = vcn ? 0 : 3 * kCluster;
            TBytes a = NonResidentAttr(0x80, {0x21, 1, static_cast<uint8_t>(at), static_cast<uint8_t>(at >> 8)}, vcn,
                                       size, size, size, u"$SDS", instance);
            Put64(a, 0x18, vcn);  // highest VCN: one cluster each
            return a;
        };
        const TBytes list = Cat({ListEntry(0x10, 9 | kSeq), ListEntry(0x30, 9 | kSeq, u"", 0, 2),
                                 ListEntry(0x80, 17 | kSeq, u"", 0, 1), ListEntry(0x80, 9 | kSeq, u"$SDS", 0, 3),
                                 ListEntry(0x80, 18 | kSeq, u"$SDS", 1, instanceOf18),
                                 ListEntry(0x80, 17 | kSeq, u"$SDS", 2, 0), ListEntry(0x90, 9 | kSeq, u"", 0, 4)});
        TBytes si(0x48, 0);
        Put32(si, 0x34, 0x100);
        TBytes base = FileRecord({ResidentAttr(0x10, si), ResidentAttr(0x20, list, u"", 1),
                                  ResidentAttr(0x30, FileNameValue(5, u"$Secure", 3), u"", 2), extent(0, lcn, 3),
                                  ResidentAttr(0x90, secure.SiiRoot, u"$SII", 4)});
        TBytes first = FileRecord({extent(vcnOf18, lcn + 1, 0)});
        TBytes second = FileRecord({ResidentAttr(0x80, {'x'}, u"", 1), extent(2, lcn + 2, 0)});
        for (TBytes* r : {&base, &first, &second}) Put16(*r, 0x10, 1);  // sequence number 1
        Put64(first, 0x20, 9 | kSeq);
        Put64(second, 0x20, 9 | kSeq);
        for (const auto& [frn, record] : {std::pair{9, &base}, std::pair{18, &first}, std::pair{17, &second}}) {
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
    EXPECT_THAT(Index(Build(2, 0), {.Settings = kNoReparse}),
                HasSubstr("An extent of attribute [$SDS] in file record FRN=0x0000000000000012 starts at VCN "
                          "0x0000000000000002, but the extents before it end at VCN 0x0000000000000001."));
    EXPECT_THAT(Index(Build(1, 7), {.Settings = kNoReparse}),
                HasSubstr("attribute list entry at offset 0x88 names attribute type 0x80 instance 7 of file record "
                          "FRN=0x0000000000000012, which holds no such attribute"));
}

// Damaged metadata that stops the volume, each failure naming it: a
// non-resident $ATTRIBUTE_LIST claiming more bytes than its runs hold, a
// $SDS record passing the stream.
TEST_F(FastSynthetic, DamagedMetadataStopsTheVolumeNamingIt) {
    CSynthVolume secure(20), listed(20);
    TSecure streams = SecureStreams({{0x100, true}});
    Put32(streams.SiiRoot, 0x20 + 36, 4096);  // the first descriptor's length
    AddSecure(secure, streams);
    listed.File(16, 5, u"listed.txt").Extra.push_back(NonResidentAttr(0x20, {0x11, 1, 1}, 0, 4096, 8192, 8192));
    EXPECT_THAT(Index(listed), HasSubstr("Attribute NONRESIDENT_FORM invalid file size!"));
    EXPECT_THAT(Index(secure, {.Settings = kNoReparse}),
                HasSubstr("ParseSII_cb fail. Attribute overflow. ValidDataLength=0x0000000000000048"));
}

TEST_F(FastSynthetic, FileLinkCopiesItsTargetsRow) {
    CSynthVolume volume(32);
    volume.Dir(16, 5, u"data").Indexed = true;
    volume.File(17, 16, u"Target.txt", 1234).Time = 133000000000000000ull;
    volume.Dir(18, 5, u"links");
    volume.File(19, 18, u"shortcut").Extra.push_back(ResidentAttr(0xC0, SymlinkValue(u"\\??\\C:\\data\\target.txt")));
    // $Extend\$Reparse with a $R root naming the link.
    volume.Dir(11, 5, u"$Extend").Indexed = true;
    TBytes key(12, 0);
    Put32(key, 0, 0xA000000C);
    Put64(key, 4, 19);
    volume.File(20, 11, u"$Reparse").Extra.push_back(ResidentAttr(0x90, IndexRootValue({IndexEntry(0, key, 0)}), u"$R"));
    ASSERT_EQ(Index(volume, {.Settings = kNoOwners}), "");
    // The link is no row of its own; the target's row is copied into the
    // link's folder under the target's name, size and time.
    const int64_t seconds = 13300000000 - 11644473600;
    EXPECT_EQ(m_Content.Files, (std::set<TFileRow>{{"data/Target.txt", 1234, seconds}, {"links/Target.txt", 1234, seconds}}));
}

}  // namespace
