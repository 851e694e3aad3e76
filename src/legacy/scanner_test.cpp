// The MFT scanner over a volume of synthetic file records: which rows it
// reports, in which order, and how it fails on damaged records.

#include "legacy/scanner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "base/case.h"
#include "base/utf.h"
#include "ntfs/ntfs_record_builder.h"
#include "platform/errors.h"

namespace {

using namespace ngitest::ntfs;
using mftlib::CScanner;

constexpr uint32_t kRecordSize = 1024;
constexpr uint32_t kCluster = 4096;
constexpr uint16_t kInUse = 1, kDirectory = 3;

// Records by number, answered as the device control does: the highest in
// use at or below the number asked; clusters of data for non-resident values.
class CFakeVolume : public mftlib::IMftVolume {
public:
    std::map<uint64_t, TBytes> Records;
    TBytes Disk = TBytes(64 * kCluster, 0);
    uint64_t RecordCount = 64;
    uint64_t Position = 0;
    int Reads = 0;

    bool GetVolumeData(platform::TNtfsVolumeData& data) override {
        data.BytesPerFileRecordSegment = kRecordSize;
        data.BytesPerCluster = kCluster;
        data.MftValidDataLength = static_cast<int64_t>(RecordCount * kRecordSize);
        return true;
    }
    bool GetFileRecord(uint64_t frn, uint8_t* out, uint32_t size, uint32_t& returned) override {
        ++Reads;
        auto it = Records.upper_bound(frn);
        if (it == Records.begin()) {
            platform::SetLastError(platform::kErrInvalidParameter);
            return false;
        }
        --it;
        returned = static_cast<uint32_t>(12 + it->second.size());
        if (returned > size) return true;  // the scanner must notice
        for (int i = 0; i < 8; ++i) out[i] = static_cast<uint8_t>(it->first >> (8 * i));
        for (int i = 0; i < 4; ++i) out[8 + i] = static_cast<uint8_t>(it->second.size() >> (8 * i));
        std::copy(it->second.begin(), it->second.end(), out + 12);
        return true;
    }
    bool Seek(int64_t position) override {
        Position = static_cast<uint64_t>(position);
        return position >= 0;
    }
    bool Read(uint8_t* buffer, uint32_t size, uint32_t& done) override {
        done = 0;
        if (Position + size > Disk.size()) return true;
        std::copy(Disk.begin() + static_cast<std::ptrdiff_t>(Position),
                  Disk.begin() + static_cast<std::ptrdiff_t>(Position + size), buffer);
        done = size;
        return true;
    }
};

TBytes StandardInformation(uint64_t lastWrite, uint32_t securityId) {
    TBytes v(72, 0);
    Put64(v, 8, lastWrite);
    Put32(v, 0x34, securityId);
    return v;
}

TBytes Name(uint64_t parent, const std::u16string& name, uint8_t nameSpace = 1) {
    return ResidentAttr(0x30, FileNameValue(parent, name, nameSpace));
}

TBytes Data(size_t size) { return ResidentAttr(0x80, TBytes(size, 'x')); }

TBytes Junction(const std::u16string& target) {
    TBytes v(16, 0);
    Put32(v, 0, 0xA0000003);
    Put16(v, 10, static_cast<uint16_t>(target.size() * 2));
    v.resize(16 + target.size() * 2);
    for (size_t i = 0; i < target.size(); ++i) Put16(v, 16 + 2 * i, target[i]);
    return v;
}

struct TRows {
    std::vector<std::string> Dirs;   // "name<parent row>"
    std::vector<std::string> Files;  // "name@dir row#owner"
    std::vector<std::string> Owners;
    std::vector<uint64_t> Sizes;     // of each file row
    std::vector<uint64_t> Accessed;  // the last access time of each file row
};

std::string U8(const std::u16string& s) { return util::Utf16ToUtf8(s); }

class CScan {
public:
    CFakeVolume* Volume = new CFakeVolume;
    std::unique_ptr<mftlib::IMftVolume> Owned{Volume};
    std::vector<std::string> Include = {"c:\\"};
    std::map<std::string, uint32_t> OwnerOf;  // path to the last part of S-1-5-n (0 fails)
    std::vector<std::string> OwnerQueries;
    int Reads = 0;

    // Records 0 to 16 are in use on every volume (the metafiles).
    CScan() {
        for (uint64_t frn = 0; frn <= 16; ++frn) Volume->Records[frn] = FileRecord({}, kRecordSize, kInUse);
    }

    void Dir(uint64_t frn, uint64_t parent, const std::u16string& name, std::vector<TBytes> more = {}) {
        std::vector<TBytes> a = {ResidentAttr(0x10, StandardInformation(0, 0)), Name(parent, name)};
        a.insert(a.end(), more.begin(), more.end());
        Volume->Records[frn] = FileRecord(a, kRecordSize, kDirectory);
    }
    void File(uint64_t frn, uint64_t parent, const std::u16string& name, uint32_t securityId = 0x100) {
        Volume->Records[frn] = FileRecord(
            {ResidentAttr(0x10, StandardInformation(1000 + frn, securityId)), Name(parent, name), Data(3)},
            kRecordSize, kInUse);
    }

    TRows Run() {
        mftlib::TOwnerSource owners;
        owners.GetOwner = [this](std::u16string_view path, std::vector<uint8_t>& sid) {
            const std::string p = U8(std::u16string(path));
            OwnerQueries.push_back(p);
            const auto it = OwnerOf.find(p);
            if (it == OwnerOf.end() || it->second == 0) return false;
            sid = {1, 1, 0, 0, 0, 0, 0, 5};
            for (int i = 0; i < 4; ++i) sid.push_back(static_cast<uint8_t>(it->second >> (8 * i)));
            return true;
        };
        owners.Accounts = nullptr;  // every lookup fails: name = SID, domain "-"
        CScanner scanner(std::move(Owned), u"C:\\", owners);
        TRows rows;
        scanner.SetDirCallback([&](const mftlib::TScanDirRow& r) {
            rows.Dirs.push_back(U8(r.Name) + "<" + std::to_string(r.ParentRowId));
        });
        scanner.SetFileCallback([&](const mftlib::TScanFileRow& r) {
            rows.Files.push_back(U8(r.Name) + "@" + std::to_string(r.DirRowId) + "#" + std::to_string(r.OwnerId));
            rows.Sizes.push_back(r.Size);
            rows.Accessed.push_back(r.LastAccessTime);
        });
        scanner.SetOwnerCallback([&](const mftlib::TScanOwnerRow& r) {
            rows.Owners.push_back(U8(r.Sid) + "|" + U8(r.Name) + "|" + U8(r.Domain));
        });
        scanner.SetFilter([this](const std::u16string& path) {
            const std::string lower = U8(util::AsciiLower(path));
            for (const auto& line : Include)
                if (lower.rfind(line, 0) == 0) return true;
            return false;
        });
        scanner.ScanDirectories();
        scanner.ScanFiles();
        Reads = Volume->Reads;  // the scanner owns the volume: gone with it
        return rows;
    }
};

using ::testing::ElementsAre;

TEST(Scanner, DirectoriesAreReportedOnDemandAndRecordsBelow17NeverVisited) {
    CScan s;
    s.Dir(16, 5, u"reserved16");
    s.File(15, 5, u"meta15.txt");
    s.Dir(20, 5, u"docs");
    s.Dir(21, 20, u"inner");
    s.Dir(22, 5, u"empty");       // nothing below it: no row
    s.Dir(23, 5, u"filtered");    // its only file is refused: no row
    s.File(30, 21, u"deep.txt");
    s.File(63, 5, u"top.txt");  // the last record of the $MFT
    s.File(32, 23, u"refused.txt");
    s.Include = {"c:\\docs\\", "c:\\top.txt"};
    const TRows rows = s.Run();
    // Files come in descending record order; the ancestors of a file are
    // reported root-most first, before it.
    EXPECT_THAT(rows.Dirs, ElementsAre("<0", "docs<0", "inner<1"));
    EXPECT_THAT(rows.Files, ElementsAre("top.txt@0#0", "deep.txt@2#0"));
}

TEST(Scanner, OneRowPerRecordUnderTheLastNameAndDosNamesPassedOver) {
    CScan s;
    s.Dir(20, 5, u"a");
    s.Dir(21, 5, u"b");
    s.Volume->Records[30] = FileRecord({ResidentAttr(0x10, StandardInformation(1, 0)), Name(20, u"first.txt", 1),
                                        Name(21, u"LAST~1.TXT", 2), Name(21, u"last.txt", 0), Data(5)},
                                       kRecordSize, kInUse);
    // A DOS name alone is no name: an empty one (logged), dropped by the table sink.
    s.Volume->Records[31] = FileRecord({ResidentAttr(0x10, StandardInformation(1, 0)), Name(5, u"DOS~1.TXT", 2)},
                                       kRecordSize, kInUse);
    const TRows rows = s.Run();
    EXPECT_THAT(rows.Files, ElementsAre("@0#0", "last.txt@1#0"));
    EXPECT_THAT(rows.Dirs, ElementsAre("<0", "b<0"));
}

TEST(Scanner, FilesBelowALinksTargetAreReportedAgainUnderTheLink) {
    const std::tuple<std::string, bool, std::vector<std::string>> cases[] = {
        // Both paths pass: the file twice, the second time under the link's
        // own folders, made as the link's path goes down.
        {"c:\\", false, {"x.txt@2#0", "x.txt@4#0"}},
        {"c:\\", true, {"x.txt@2#0", "x.txt@4#0"}},  // the link's data read from its runs
        // Only the link's path passes: once, under the link.
        {"c:\\link\\", false, {"x.txt@2#0"}},
        // Only the target passes: once, where it lies.
        {"c:\\target\\", false, {"x.txt@2#0"}},
    };
    for (const auto& [include, nonResident, files] : cases) {
        CScan s;
        s.Dir(20, 5, u"target");
        s.Dir(21, 20, u"Sub");
        const TBytes data = Junction(u"\\??\\C:\\Target");
        std::copy(data.begin(), data.end(), s.Volume->Disk.begin() + 5 * kCluster);
        s.Dir(22, 5, u"link",
              {nonResident ? NonResidentAttr(0xC0, {0x11, 0x01, 0x05}, 0, 4096, data.size(), data.size())
                           : ResidentAttr(0xC0, data)});
        s.File(30, 21, u"x.txt");
        s.Include = {include};
        EXPECT_EQ(s.Run().Files, files) << include;
    }
}

TEST(Scanner, OwnersAreAskedPerSecurityIdAndAFailureIsAskedAgain) {
    CScan s;
    s.Dir(20, 5, u"d");
    s.File(40, 20, u"a.txt", 0x100);  // the query fails: owner 0, nothing kept
    s.File(39, 20, u"b.txt", 0x100);  // asked again
    s.File(38, 20, u"c.txt", 0x100);  // known now
    s.File(37, 20, u"d.txt", 0x101);  // another id, the same SID: no new row
    s.File(36, 20, u"e.txt", 0x102);
    s.OwnerOf = {{"C:\\d\\a.txt", 0}, {"C:\\d\\b.txt", 18}, {"C:\\d\\d.txt", 18}, {"C:\\d\\e.txt", 32}};
    const TRows rows = s.Run();
    EXPECT_THAT(rows.Files, ElementsAre("a.txt@1#0", "b.txt@1#0", "c.txt@1#0", "d.txt@1#0", "e.txt@1#1"));
    EXPECT_THAT(rows.Owners, ElementsAre("S-1-5-18|S-1-5-18|-", "S-1-5-32|S-1-5-32|-"));
    EXPECT_THAT(s.OwnerQueries, ElementsAre("C:\\d\\a.txt", "C:\\d\\b.txt", "C:\\d\\d.txt", "C:\\d\\e.txt"));
}

TEST(Scanner, TimesAreReadToTheEndOfAShortStandardInformation) {
    CScan s;
    TBytes v(32, 0);  // the four times alone, the last access ending the value
    Put64(v, 24, 4);
    s.Volume->Records[30] = FileRecord({ResidentAttr(0x10, v), Name(5, u"short.txt"), Data(1)}, kRecordSize, kInUse);
    s.Volume->RecordCount = 100000;  // a stale high count: the answers skip the free records
    EXPECT_THAT(s.Run().Accessed, ElementsAre(4u));
    EXPECT_LE(s.Reads, 6);  // one read per record in use and pass
}

TEST(Scanner, AttributeListLeadsToTheDataOfAnExtensionRecord) {
    for (const bool namedFirst : {false, true}) {
        CScan s;
        // Base record 30: its $DATA lies in extension record 31 (instance 7).
        TBytes list;
        const auto entry = [&](uint8_t nameLength, uint16_t instance) {  // $DATA in record 31
            TBytes e(0x20, 0);
            Put32(e, 0, 0x80);
            Put16(e, 4, 0x20);
            e[6] = nameLength;
            Put64(e, 0x10, 31);
            Put16(e, 0x18, instance);
            list.insert(list.end(), e.begin(), e.end());
        };
        if (namedFirst) entry(3, 9);
        entry(0, 7);
        s.Volume->Records[30] = FileRecord({ResidentAttr(0x10, StandardInformation(1, 0)), ResidentAttr(0x20, list),
                                            Name(5, u"big.bin")},
                                           kRecordSize, kInUse);
        TBytes ext = FileRecord({NonResidentAttr(0x80, {0x11, 0x01, 0x05}, 0, 4096, 3000, 3000, u"", 7)},
                                kRecordSize, kInUse);
        Put64(ext, 0x20, 30);  // base reference: an extension record, not scanned itself
        s.Volume->Records[31] = ext;
        const TRows rows = s.Run();
        EXPECT_THAT(rows.Files, ElementsAre("big.bin@0#0"));
        // A named stream listed first hides the unnamed one: size 0.
        EXPECT_THAT(rows.Sizes, ElementsAre(namedFirst ? 0u : 3000u));
    }
}

TEST(Scanner, DamagedVolumesEndInAnExceptionNotALoop) {
    const std::pair<std::function<void(CScan&)>, const char*> cases[] = {
        {[](CScan& s) { Put32(s.Volume->Records[30], 0x38 + 4, 5000); }, "is damaged"},  // attribute too long
        {[](CScan& s) {  // a file name past the end of its value
             TBytes v = FileNameValue(5, u"abc", 1);
             v[0x40] = 200;
             s.Volume->Records[30] = FileRecord({ResidentAttr(0x30, v)}, kRecordSize, kInUse);
         },
         "is damaged"},
        {[](CScan& s) {
             s.Dir(20, 21, u"a");
             s.Dir(21, 20, u"b");
             s.File(30, 20, u"x.txt");
         },
         "form a loop"},
        {[](CScan& s) { s.Volume->Records[30].resize(kRecordSize + 100); }, "Cannot read MFT record."},
    };
    for (const auto& [damage, message] : cases) {
        CScan s;
        s.File(30, 5, u"x.txt");
        damage(s);
        std::string failure = "no exception";
        try {
            s.Run();
        } catch (const CExc& e) {
            failure = U8(e.GetDescription());
        }
        EXPECT_THAT(failure, ::testing::HasSubstr(message));
    }
}

}  // namespace
