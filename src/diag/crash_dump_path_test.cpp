#include "diag/crash_dump_path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "base/utf.h"
#include "diag/log.h"
#include "platform/errors.h"

namespace crash {
namespace {

using ::testing::HasSubstr;

// A folder in memory: names with times, some of them undeletable.
class CFakeDumpFolder : public IDumpFolder {
public:
    std::vector<TFile> files;
    std::set<std::u16string> undeletable;
    std::vector<std::u16string> deleted;
    bool failListing = false;

    std::vector<TFile> List(const std::u16string&, const std::u16string& mask) override {
        if (failListing) {
            platform::SetLastError(platform::kErrReadFault);
            throw CWin32Exc();
        }
        lastMask = mask;
        return files;
    }
    bool Delete(const std::u16string& path) override {
        const std::u16string name = path.substr(path.find_last_of(u"\\/") + 1);
        if (undeletable.count(name)) {
            platform::SetLastError(platform::kErrAccessDenied);
            return false;
        }
        deleted.push_back(path);
        std::erase_if(files, [&](const TFile& f) { return f.name == name; });
        return true;
    }
    std::u16string lastMask;
};

// Collects log lines in memory.
class CLines : public CLogWriter {
public:
    std::vector<std::string> lines;
    void WriteLine(int32_t, const CLog&, int32_t, std::u16string_view text) override {
        lines.push_back(util::Utf16ToUtf8(text));
    }
    bool Has(const std::string& part) const {
        for (const auto& l : lines)
            if (l.find(part) != std::string::npos) return true;
        return false;
    }
};

class NextDumpPathTest : public ::testing::Test {
protected:
    void SetUp() override { GetLog().SetWriter(log); }
    void TearDown() override { GetLog().SetWriter(nullptr); }

    // Dumps with ids `ids`, the first the oldest.
    void AddDumps(std::initializer_list<int> ids, std::u16string_view ext = u"mdmp") {
        for (int id : ids)
            folder.files.push_back({1000 + folder.files.size(),
                                    u"Indexer_crash_" + util::Utf8ToUtf16(std::to_string(id)) +
                                        u"." + std::u16string(ext)});
    }
    std::string Next() {
        return util::Utf16ToUtf8(NextDumpPath(u"C:\\dumps", u"Indexer", u"mdmp", folder));
    }

    CFakeDumpFolder folder;
    std::shared_ptr<CLines> log = std::make_shared<CLines>();
};

TEST_F(NextDumpPathTest, EmptyFolderGivesIdZeroAndSearchesByNameAndExtension) {
    EXPECT_EQ(Next(), "C:\\dumps\\Indexer_crash_0.mdmp");
    EXPECT_EQ(util::Utf16ToUtf8(folder.lastMask), "Indexer_crash_*.mdmp");
}

TEST_F(NextDumpPathTest, TakesTheLowestFreeId) {
    AddDumps({0, 1, 3, 4});
    EXPECT_EQ(Next(), "C:\\dumps\\Indexer_crash_2.mdmp");
    EXPECT_TRUE(folder.deleted.empty());
}

TEST_F(NextDumpPathTest, NineteenDumpsStayTwentiethRemovesTheOldest) {
    AddDumps({7, 0, 1, 2, 3, 4, 5, 6, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18});
    EXPECT_EQ(Next(), "C:\\dumps\\Indexer_crash_19.mdmp");
    EXPECT_TRUE(folder.deleted.empty());

    AddDumps({19});  // now 20: the oldest (id 7) goes and its id is reused
    EXPECT_EQ(Next(), "C:\\dumps\\Indexer_crash_7.mdmp");
    ASSERT_EQ(folder.deleted.size(), 1u);
    EXPECT_EQ(util::Utf16ToUtf8(folder.deleted[0]), "C:\\dumps\\Indexer_crash_7.mdmp");
    EXPECT_TRUE(log->Has("Dump [C:\\dumps\\Indexer_crash_7.mdmp] deleted."));
}

TEST_F(NextDumpPathTest, ManyOldDumpsAreCutDownToNineteen) {
    for (int id = 0; id < 25; ++id) AddDumps({id});
    EXPECT_EQ(Next(), "C:\\dumps\\Indexer_crash_0.mdmp");
    EXPECT_EQ(folder.deleted.size(), 6u);  // ids 0..5; 19 remain
    EXPECT_EQ(folder.files.size(), 19u);
}

TEST_F(NextDumpPathTest, AnUndeletableOldestIsPassedOverForTheNextInAge) {
    for (int id = 0; id < 20; ++id) AddDumps({id});
    folder.undeletable = {u"Indexer_crash_0.mdmp"};
    EXPECT_EQ(Next(), "C:\\dumps\\Indexer_crash_1.mdmp");
    EXPECT_TRUE(log->Has("Old dump cannot be removed. Dump path: [C:\\dumps\\Indexer_crash_0.mdmp]."));
    EXPECT_TRUE(log->Has(" Code: 5"));  // the system error goes with it
}

TEST_F(NextDumpPathTest, UndeletableDumpsEndTheSearchWithTheCount) {
    for (int id = 0; id < 21; ++id) {
        AddDumps({id});
        folder.undeletable.insert(folder.files.back().name);
    }
    try {
        Next();
        FAIL() << "no exception";
    } catch (const CExc& e) {
        const std::string text = util::Utf16ToUtf8(e.GetDescription());
        EXPECT_THAT(text, HasSubstr("Cannot define the name of the next crash dump. Dumps folder: "
                                    "[C:\\dumps]."));
        EXPECT_THAT(text, HasSubstr("Cannot cleanup out of date dumps. There are [21] dumps "
                                    "stored. Maximum allowed dumps number: [20]."));
    }
}

TEST_F(NextDumpPathTest, DumpsOfOtherNamesOrExtensionsDoNotTakeIds) {
    // The fake lists whatever it holds; a ".log" of id 0 must not block id 0
    // of ".mdmp" since the whole name is compared.
    AddDumps({0}, u"log");
    EXPECT_EQ(Next(), "C:\\dumps\\Indexer_crash_0.mdmp");
}

TEST_F(NextDumpPathTest, ListingFailureIsWrapped) {
    folder.failListing = true;
    try {
        Next();
        FAIL() << "no exception";
    } catch (const CExc& e) {
        const std::string text = util::Utf16ToUtf8(e.GetDescription());
        EXPECT_THAT(text, HasSubstr("Unable to enumerate dumps stored in a folder. Folder: "
                                    "[C:\\dumps]. Dump extension: [mdmp]."));
        EXPECT_THAT(text, HasSubstr("Cannot define the name of the next crash dump."));
    }
}

TEST(JoinDumpPathTest, AddsOneSeparator) {
    EXPECT_EQ(JoinDumpPath(u"C:\\d", u"x"), u"C:\\d\\x");
    EXPECT_EQ(JoinDumpPath(u"C:\\d\\", u"x"), u"C:\\d\\x");
    EXPECT_EQ(JoinDumpPath(u"/tmp/d/", u"x"), u"/tmp/d/x");
    EXPECT_EQ(JoinDumpPath(u"", u"x"), u"x");
}

}  // namespace
}  // namespace crash
