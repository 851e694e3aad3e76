#include "diag/crash_dump_path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "base/utf.h"
#include "platform/errors.h"
#include "testing/log_capture.h"

namespace crash {
namespace {

using ::testing::HasSubstr;

// A folder in memory: names with times, some of them undeletable.
class CFakeDumpFolder : public IDumpFolder {
public:
    std::vector<TFile> files;
    std::set<std::u16string> undeletable;
    std::vector<std::u16string> deleted;
    std::u16string lastMask;
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
};

// Dumps with ids `ids` in `folder`, the first the oldest.
void AddDumps(CFakeDumpFolder& folder, std::initializer_list<int> ids, std::u16string_view ext = u"mdmp") {
    for (int id : ids)
        folder.files.push_back({1000 + folder.files.size(), u"Indexer_crash_" +
                                                                util::Utf8ToUtf16(std::to_string(id)) + u"." +
                                                                std::u16string(ext)});
}

std::string Next(CFakeDumpFolder& folder) {
    return util::Utf16ToUtf8(NextDumpPath(u"C:\\dumps", u"Indexer", u"mdmp", folder));
}

TEST(NextDumpPathTest, LowestFreeIdAndOldestRemovedAtTwenty) {
    const struct {
        const char* what;
        std::vector<int> ids;  // oldest first
        const char* next;
        size_t deleted;
    } cases[] = {
        {"empty folder", {}, "Indexer_crash_0.mdmp", 0},
        {"a gap", {0, 1, 3, 4}, "Indexer_crash_2.mdmp", 0},
        {"nineteen stay", {7, 0, 1, 2, 3, 4, 5, 6, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18},
         "Indexer_crash_19.mdmp", 0},
        // Twenty: the oldest (id 7) goes and its id is reused.
        {"twenty", {7, 0, 1, 2, 3, 4, 5, 6, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19},
         "Indexer_crash_7.mdmp", 1},
        {"twenty-five cut down to nineteen",
         {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24},
         "Indexer_crash_0.mdmp", 6},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ngitest::CLogCapture log;
        CFakeDumpFolder folder;
        for (int id : c.ids) AddDumps(folder, {id});
        EXPECT_EQ(Next(folder), std::string("C:\\dumps\\") + c.next);
        EXPECT_EQ(util::Utf16ToUtf8(folder.lastMask), "Indexer_crash_*.mdmp");
        EXPECT_EQ(folder.deleted.size(), c.deleted);
        if (c.deleted == 1) {
            EXPECT_TRUE(log.Contains(u"Dump [C:\\dumps\\Indexer_crash_7.mdmp] deleted."));
        }
    }
    // The whole name is compared: a ".log" of id 0 does not take id 0.
    CFakeDumpFolder folder;
    AddDumps(folder, {0}, u"log");
    EXPECT_EQ(Next(folder), "C:\\dumps\\Indexer_crash_0.mdmp");
}

TEST(NextDumpPathTest, AnUndeletableOldestIsPassedOverForTheNextInAge) {
    ngitest::CLogCapture log;
    CFakeDumpFolder folder;
    for (int id = 0; id < 20; ++id) AddDumps(folder, {id});
    folder.undeletable = {u"Indexer_crash_0.mdmp"};
    EXPECT_EQ(Next(folder), "C:\\dumps\\Indexer_crash_1.mdmp");
    EXPECT_TRUE(log.Contains(u"Old dump cannot be removed. Dump path: [C:\\dumps\\Indexer_crash_0.mdmp]."));
    EXPECT_TRUE(log.Contains(u" Code: 5"));  // the system error goes with it
}

TEST(NextDumpPathTest, FailuresEndTheSearchNamingTheFolder) {
    CFakeDumpFolder undeletable, unlisted;
    for (int id = 0; id < 21; ++id) {
        AddDumps(undeletable, {id});
        undeletable.undeletable.insert(undeletable.files.back().name);
    }
    unlisted.failListing = true;
    for (CFakeDumpFolder* folder : {&undeletable, &unlisted}) {
        try {
            Next(*folder);
            ADD_FAILURE() << "no exception";
        } catch (const CExc& e) {
            EXPECT_THAT(util::Utf16ToUtf8(e.GetDescription()),
                        HasSubstr("Cannot define the name of the next crash dump. Dumps folder: [C:\\dumps]."));
        }
    }
}

}  // namespace
}  // namespace crash
