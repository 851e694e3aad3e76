// A crash test that holds on every platform: the test program starts itself
// again with a disabled victim test that installs the crash handler and
// crashes, then looks at the dump the victim left.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "base/utf.h"
#include "diag/crash_handler.h"
#include "diag/crash_test_util.h"
#include "diag/dump_recorder_image.h"
#include "diag/log.h"
#include "platform/crash.h"
#include "platform/errors.h"
#include "platform/file.h"
#include "platform/process.h"
#include "testing/temp_dir.h"

namespace {

namespace fs = std::filesystem;

constexpr char16_t kVictimFolder[] = u"NGI_CRASH_VICTIM_FOLDER";
constexpr char16_t kVictimOutOfProc[] = u"NGI_CRASH_VICTIM_OUT_OF_PROC";

int* volatile g_Invalid = reinterpret_cast<int*>(uintptr_t{16});

__attribute__((noinline)) void CrashTheVictim() { *g_Invalid = 7; }

// Run only by the test below, in a process of its own.
TEST(CrashVictim, DISABLED_CrashesWhenAsked) {
    std::u16string folder, outOfProc;
    if (!platform::GetEnvVar(kVictimFolder, folder)) GTEST_SKIP() << "not started as a victim";
    platform::GetEnvVar(kVictimOutOfProc, outOfProc);
    GetLog().SetWriter(std::make_shared<ngitest::CLogAppender>(folder + u"/victim.log"));
    CCrashHandler::Install(crash::DumpRecorderImage());
    CCrashHandler::SetDumpLocation(folder, u"Indexer");
    crash::TDumpSettings settings = crash::ReadDumpSettings();
    settings.outOfProcDumpGen = outOfProc == u"1" ? 1 : 0;
    settings.tempFolder = folder;
    CCrashHandler::Instance().SetSettingsReader([settings] { return settings; });
    CrashTheVictim();
}

class CrashRerunTest : public ::testing::TestWithParam<bool> {};

TEST_P(CrashRerunTest, AStartedProgramThatCrashesLeavesItsDump) {
    if (!platform::ProcessDumpsSupported()) GTEST_SKIP() << "process dumps are switched off";
    const bool outOfProc = GetParam();
    ngitest::CTempDir dir;
    std::u16string self;
    ASSERT_TRUE(platform::GetModuleFileName(self));
    ASSERT_TRUE(platform::SetEnvVar(kVictimFolder, dir.Path()));
    ASSERT_TRUE(platform::SetEnvVar(kVictimOutOfProc, outOfProc ? u"1" : u"0"));
    platform::TChildProcess victim;
    const bool started = platform::ProcessStart(
        self, platform::kInvalidHandle,
        u"\"" + self + u"\" --gtest_also_run_disabled_tests --gtest_filter=CrashVictim.*", victim);
    platform::UnsetEnvVar(kVictimFolder);
    platform::UnsetEnvVar(kVictimOutOfProc);
    ASSERT_TRUE(started);
    ASSERT_TRUE(platform::ProcessWait(victim));
    uint32_t code = 0;
    ASSERT_TRUE(platform::ProcessGetExitCode(victim, &code));
    EXPECT_NE(code, 0u) << "the victim must end by its crash";

    const std::string log = dir.ReadFile("victim.log");
    if (log.find("MiniDumpWriteDump() function call has failed.") != std::string::npos ||
        log.find("Dump generator process failed with 107") != std::string::npos)
        GTEST_SKIP() << "the system refused the dump (ptrace not permitted?):\n" << log;
    std::vector<std::string> dumps;
    for (const auto& entry : fs::directory_iterator(dir.Native()))
        if (entry.path().extension() == ".mdmp" && fs::file_size(entry.path()) > 0)
            dumps.push_back(entry.path().filename().string());
    ASSERT_EQ(dumps.size(), 1u) << log;
    EXPECT_EQ(dumps[0].rfind(outOfProc ? "Indexer_crash__" : "Indexer_crash_0.mdmp", 0), 0u) << dumps[0];
}

INSTANTIATE_TEST_SUITE_P(InProcessAndRecorder, CrashRerunTest, ::testing::Values(false, true));

}  // namespace
