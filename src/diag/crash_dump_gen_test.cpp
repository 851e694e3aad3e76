#include "diag/crash_dump_gen.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <cctype>

#include "base/utf.h"
#include "diag/crash_handler.h"
#include "diag/dump_recorder_image.h"
#include "diag/log.h"
#include "testing/temp_dir.h"

namespace crash {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

TEST(GetDumpTypeTest, MaskFirstThenModeName) {
    struct {
        uint32_t mask;
        std::u16string name;
        uint32_t expected;
    } cases[] = {
        {0, u"", 0},          {0, u"Normal", 0}, {0, u"Full", 0x21907}, {0, u"full", 0x21907},
        {0, u"Fast", 0},      {0, std::u16string(33, u'F'), 0},        {2, u"Full", 2},
        {0x21907, u"", 0x21907},
    };
    for (const auto& c : cases)
        EXPECT_EQ(GetDumpType(c.mask, c.name), c.expected) << util::Utf16ToUtf8(c.name);
}

class RecorderTest : public ::testing::Test {
protected:
    void SetUp() override { settings.tempFolder = dir.Path(u"tmp"); }
    void TearDown() override { GetLog().SetWriter(nullptr); }
    size_t TempFiles() const {
        return static_cast<size_t>(std::distance(fs::directory_iterator(dir.Native() / "tmp"), {}));
    }
    ngitest::CTempDir dir;
    TDumpSettings settings;
};

TEST_F(RecorderTest, CommandLineCarriesProcessInfoTypeLimitFolderAndName) {
    settings.miniDumpModeMask = 0;
    settings.dumpModeName = u"Full";
    win32::COutOfProcDumpGen gen(settings, DumpRecorderImage());
    platform::TCrashInfo info;
    info.threadId = 4321;
    const std::string recorder = util::Utf16ToUtf8(gen.GetRecorderPath());
    // "NorvaDumpRecorder{XXXXXXXX-XXXX-4XXX-XXXX-XXXXXXXXXXXX}": a version 4 GUID in upper-case hex.
    const size_t at = recorder.rfind("NorvaDumpRecorder{");
    ASSERT_NE(at, std::string::npos) << recorder;
    std::string shape = recorder.substr(at + 17);
    ASSERT_GT(shape.size(), 15u) << recorder;
    EXPECT_EQ(shape[15], '4') << recorder;
    for (char& c : shape)
        if (std::isxdigit(static_cast<unsigned char>(c)) && !std::islower(static_cast<unsigned char>(c))) c = 'X';
    EXPECT_EQ(shape, "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}") << recorder;
    EXPECT_EQ(util::Utf16ToUtf8(gen.BuildCommandLine(u"", u"Indexer", info)),
              "\"" + recorder + "\" " + std::to_string(platform::DuplicateCurrentProcess()) + " " +
                  std::to_string(reinterpret_cast<uintptr_t>(&info)) + " 4321 137479 20 \".\" \"Indexer_crash_\"");
}

TEST_F(RecorderTest, RecorderFileExistsOnlyWhileTheGeneratorLives) {
    {
        win32::COutOfProcDumpGen gen(settings, DumpRecorderImage());
        // POSIX removes the name at once and runs the program from the open
        // handle; either way nothing is left once the generator is gone.
        EXPECT_LE(TempFiles(), 1u);
    }
    EXPECT_EQ(TempFiles(), 0u);
    try {
        win32::COutOfProcDumpGen empty(settings, {});
        ADD_FAILURE() << "an empty image was written";
    } catch (const CExc& e) {
        EXPECT_THAT(util::Utf16ToUtf8(e.GetDescription()), HasSubstr("Failed to write dump recorder code to "));
    }
    EXPECT_EQ(TempFiles(), 0u);
}

TEST_F(RecorderTest, ExitCode106WhenTheDumpFileCannotBeCreated) {
    // A regular file where the dump folder should be: the folder "exists",
    // and no file can be made inside it.
    dir.WriteFile("file", "x");
    win32::COutOfProcDumpGen gen(settings, DumpRecorderImage());
    platform::TCrashInfo info;
    try {
        gen.GenerateDump(dir.Path(u"file"), u"Indexer", info);
        FAIL() << "no exception";
    } catch (const CExc& e) {
        EXPECT_EQ(util::Utf16ToUtf8(e.GetDescription()),
                  "Dump generator process failed with 106: cannot create dump file");
    }
}

TEST_F(RecorderTest, UnusableTempFolderFallsBackToTheInProcessGenerator) {
    dir.WriteFile("file", "x");
    settings.tempFolder = dir.Path(u"file/tmp");
    settings.outOfProcDumpGen = 1;
    auto gen = ChooseDumpGenerator(settings, DumpRecorderImage());
    EXPECT_NE(dynamic_cast<win32::minidump_gen_t*>(gen.get()), nullptr);

    settings.tempFolder = dir.Path(u"tmp");
    gen = ChooseDumpGenerator(settings, DumpRecorderImage());
    EXPECT_NE(dynamic_cast<win32::COutOfProcDumpGen*>(gen.get()), nullptr);
    settings.processDumpsSupported = false;
    gen = ChooseDumpGenerator(settings, DumpRecorderImage());
    EXPECT_NE(dynamic_cast<win32::legacy_dump_gen_t*>(gen.get()), nullptr);
}

}  // namespace
}  // namespace crash
