// The file writers, the log set-up and the cleanup of old files.

#include "diag/log_file.h"

#include <gtest/gtest.h>

#include <chrono>

#include "base/utf.h"
#include "diag/log_setup.h"
#include "platform/time.h"
#include "testing/temp_dir.h"
#include "testing/temp_registry.h"

namespace {

using platform::TSystemTime;
namespace fs = std::filesystem;

std::u16string FromUtf16Le(const std::string& bytes) {
    std::u16string text;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2)
        text += static_cast<char16_t>(static_cast<uint8_t>(bytes[i]) |
                                      (static_cast<uint8_t>(bytes[i + 1]) << 8));
    return text;
}

std::u16string Prefix(const TSystemTime& t) {
    return platform::FormatDate(t) + u" " + platform::FormatTime(t);
}

TEST(FormatLogLine, Layout) {
    const TSystemTime t{2026, 11, 6, 21, 9, 5, 7, 0};
    const std::u16string p = Prefix(t);
    struct Case {
        bool showThreadId;
        uint32_t threadId;
        int32_t level;
        std::vector<std::u16string> tags;
        int32_t depth;
        std::u16string expected;
    } cases[] = {
        {false, 0, LogDetail, {}, 0, p + u"            msg\r\n"},
        {false, 0, LogInfo, {}, 2, p + u"    INFO            msg\r\n"},
        {false, 0, LogWarning, {}, 1, p + u"    WARN        msg\r\n"},
        {false, 0, LogError, {}, 0, p + u"    ERR     msg\r\n"},
        {true, 123456, LogInfo, {}, 0, p + u"  123456  INFO    msg\r\n"},
        // Tags take their width from the indentation: "[ab] " is five wide.
        {false, 0, LogInfo, {u"ab"}, 2, p + u"    INFO    [ab]    msg\r\n"},
        {false, 0, LogInfo, {u"a", u"b"}, 0, p + u"    INFO    [a][b] msg\r\n"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(diag::FormatLogLine(t, c.showThreadId, c.threadId, c.level, c.tags, c.depth, u"msg"), c.expected)
            << util::Utf16ToUtf8(c.expected);
}

TEST(LogPaths, FolderTree) {
    ngitest::CTempDir dir;
    EXPECT_TRUE(diag::CreateFolderTree(dir.Path(u"a/b\\c")));
    EXPECT_TRUE(fs::is_directory(dir.Native() / "a" / "b" / "c"));
    EXPECT_TRUE(diag::CreateFolderTree(dir.Path(u"a/b\\c\\")));  // exists: success
    dir.WriteFile("file", "x");
    EXPECT_FALSE(diag::CreateFolderTree(dir.Path(u"file/sub")));
}

// A daily writer on a clock the test moves.
struct CDailyFixture : ::testing::Test {
    ngitest::CTempDir dir;
    TSystemTime now{2026, 11, 6, 21, 23, 59, 58, 0};
    CLog log;
    std::shared_ptr<CDailyFileLogWriter> writer;

    void Open(std::u16string folder) {
        writer = std::make_shared<CDailyFileLogWriter>(folder, u"NorvaGuestIndexer", false);
        writer->SetClock([this](TSystemTime& t) { t = now; });
        log.SetWriter(writer);
    }
    std::u16string Read(const char* name) { return FromUtf16Le(dir.ReadFile(name)); }
};

TEST_F(CDailyFixture, FileWithMarkLinesAndDayChange) {
    Open(dir.Path(u"new/logs"));  // made with its parents
    std::u16string name;
    log.GetLogFileName(name);
    EXPECT_EQ(name, u"");  // nothing opened yet
    log.Info(u"first");
    log.GetLogFileName(name);
    EXPECT_EQ(name, dir.Path(u"new/logs") + u"\\NorvaGuestIndexer_21112026.log");

    // Past midnight: a new file with its own mark; the old one keeps its lines.
    const TSystemTime before = now;
    now = TSystemTime{2026, 11, 0, 22, 0, 0, 1, 0};
    log.Detail(u"second");
    EXPECT_EQ(Read("new/logs/NorvaGuestIndexer_21112026.log"),
              u"\uFEFF" + Prefix(before) + u"    INFO    first\r\n");
    EXPECT_EQ(Read("new/logs/NorvaGuestIndexer_22112026.log"),
              u"\uFEFF" + Prefix(now) + u"            second\r\n");
}

TEST_F(CDailyFixture, SecondRunAppendsWithoutSecondMark) {
    Open(dir.Path());
    log.Info(u"one");
    Open(dir.Path());  // a new writer, as a second run of the day
    log.Info(u"two");
    writer.reset();
    log.SetWriter(nullptr);
    EXPECT_EQ(Read("NorvaGuestIndexer_21112026.log"),
              u"\uFEFF" + Prefix(now) + u"    INFO    one\r\n" + Prefix(now) + u"    INFO    two\r\n");
}

// Old files with last write times one apart, oldest first.
void MakeOldLogs(const ngitest::CTempDir& dir, int count) {
    const auto base = fs::file_time_type::clock::now() - std::chrono::hours(24 * 365);
    for (int i = 0; i < count; ++i) {
        const std::string name = "NorvaGuestIndexer_old" + std::to_string(100 + i) + ".log";
        dir.WriteFile(name, "x");
        fs::last_write_time(dir.Native() / name, base + std::chrono::minutes(i));
    }
}

size_t CountLogs(const ngitest::CTempDir& dir) {
    size_t n = 0;
    for (const auto& e : fs::directory_iterator(dir.Native()))
        n += e.path().extension() == ".log";
    return n;
}

TEST(CleanupOldLogs, KeepsTheNewestAndSparesOthers) {
    ngitest::CTempRegistry registry;  // no MAX_LOGS_COUNT: 30
    ngitest::CTempDir dir;
    MakeOldLogs(dir, 31);
    dir.WriteFile("Other.log", "x");           // another base name
    dir.WriteFile("NorvaGuestIndexer.txt", "x");  // another extension
    fs::create_directory(dir.Native() / "NorvaGuestIndexer_dir.log");
    diag::CleanupOldLogs(dir.Path(), u"NorvaGuestIndexer");
    EXPECT_EQ(CountLogs(dir), 29u + 2u);  // 29 old ones, Other.log and the folder
    EXPECT_FALSE(fs::exists(dir.Native() / "NorvaGuestIndexer_old100.log"));  // the oldest
    EXPECT_FALSE(fs::exists(dir.Native() / "NorvaGuestIndexer_old101.log"));
    EXPECT_TRUE(fs::exists(dir.Native() / "NorvaGuestIndexer_old102.log"));
    EXPECT_TRUE(fs::exists(dir.Native() / "NorvaGuestIndexer.txt"));
    diag::CleanupOldLogs(dir.Path(u"missing"), u"NorvaGuestIndexer");  // no failure

    // With today's file the folder holds MAX_LOGS_COUNT logs.
    CLog log;
    diag::InitLog(log, dir.Path(), u"NorvaGuestIndexer", false, LogDetail, u"");
    log.SetWriter(nullptr);
    EXPECT_EQ(CountLogs(dir), 30u + 2u);
}

TEST(CleanupOldLogs, CountFromTheRegistry) {
    struct Case {
        const char* value;
        size_t left;
    } cases[] = {{"dword:00000000", 0}, {"dword:00000001", 0}, {"dword:00000003", 2},
                 {"\"3\"", 5} /* not a DWORD: the default */};
    for (const auto& c : cases) {
        ngitest::CTempRegistry registry(std::string("[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA]\n\"MAX_LOGS_COUNT\"=") +
                                        c.value + "\n");
        ngitest::CTempDir dir;
        MakeOldLogs(dir, 5);
        diag::CleanupOldLogs(dir.Path(), u"NorvaGuestIndexer");
        EXPECT_EQ(CountLogs(dir), c.left) << c.value;
    }
}

TEST(InitLog, SeparatorLineAndEmptyArguments) {
    ngitest::CTempRegistry registry;
    ngitest::CTempDir dir;
    CLog log;
    diag::InitLog(log, u"", u"NorvaGuestIndexer", false, LogDetail, u"");
    diag::InitLog(log, dir.Path(), u"", false, LogDetail, u"");
    EXPECT_FALSE(log.IsEnabled(LogError));  // no writer
    EXPECT_TRUE(fs::is_empty(dir.Native()));

    diag::InitLog(log, dir.Path(), u"NorvaGuestIndexer", false, LogDetail, u"Header");
    log.SetWriter(nullptr);
    ASSERT_EQ(CountLogs(dir), 1u);
    const std::u16string text =
        FromUtf16Le(dir.ReadFile(fs::directory_iterator(dir.Native())->path().filename()));
    EXPECT_NE(text.find(u"    INFO    " + std::u16string(96, u'=') + u"\r\n"), std::u16string::npos);
    EXPECT_EQ(text.find(std::u16string(97, u'=')), std::u16string::npos);
    // The header, the module lines one step in, the closing brace.
    EXPECT_NE(text.find(u"    INFO    Header\r\n"), std::u16string::npos);
    EXPECT_NE(text.find(u"    INFO        Module name: [diag_tests"), std::u16string::npos);
    EXPECT_NE(text.find(u"    INFO    }\r\n"), std::u16string::npos);
}

}  // namespace
