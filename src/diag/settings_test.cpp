#include "diag/settings.h"

#include <gtest/gtest.h>

#include "testing/log_capture.h"
#include "testing/temp_registry.h"

namespace {

TEST(Settings, DefaultsWithoutKeyOrValues) {
    ngitest::CTempRegistry registry;
    EXPECT_EQ(settings::GetMaxNestedFolders(), 0u);
    EXPECT_FALSE(settings::IsSkipReparsePoints());
    EXPECT_TRUE(settings::IsSkipReparsePointUNC());
    EXPECT_FALSE(settings::IsSkipOwnersParsing());
    EXPECT_FALSE(settings::IsOutOfProcDumpGen());
    EXPECT_EQ(settings::GetMiniDumpModeMask(), 0u);
    EXPECT_EQ(settings::GetSqlTempLogPath(), u"");
}

TEST(Settings, ValuesReadInAnyCase) {
    ngitest::CTempRegistry registry(
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NORVA\\NORVA ARCHIVE AND MIRROR]\n"
        "\"indexermaxnestedfolders\"=dword:00000020\n"
        "\"IndexerSkipReparsePoints\"=dword:00000002\n"  // any non-zero is true
        "\"IndexerSkipReparsePointUNC\"=dword:00000000\n"
        "\"IndexerSkipOwnersParsing\"=dword:00000001\n"
        "\"OutOfProcDumpGen\"=dword:00000001\n"
        "\"MiniDumpModeMask\"=dword:00001006\n"
        "\"SqlTempLogPath\"=\"Full\"\n");
    EXPECT_EQ(settings::GetMaxNestedFolders(), 32u);
    EXPECT_TRUE(settings::IsSkipReparsePoints());
    EXPECT_FALSE(settings::IsSkipReparsePointUNC());
    EXPECT_TRUE(settings::IsSkipOwnersParsing());
    EXPECT_TRUE(settings::IsOutOfProcDumpGen());
    EXPECT_EQ(settings::GetMiniDumpModeMask(), 0x1006u);
    EXPECT_EQ(settings::GetSqlTempLogPath(), u"Full");
}

TEST(Settings, WrongTypesAndDamagedFilesGiveDefaults) {
    ngitest::CTempRegistry registry(
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\n"
        "\"IndexerMaxNestedFolders\"=\"12\"\n"
        "\"IndexerSkipReparsePointUNC\"=hex:00,00,00,00\n"
        "\"SqlTempLogPath\"=dword:00000001\n");
    EXPECT_EQ(settings::GetMaxNestedFolders(), 0u);
    EXPECT_TRUE(settings::IsSkipReparsePointUNC());
    EXPECT_EQ(settings::GetSqlTempLogPath(), u"");

    registry.Set("[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\n"
                 "\"SqlTempLogPath\"=\"" + std::string(32, 'x') + "\"\n");
    EXPECT_EQ(settings::GetSqlTempLogPath(), std::u16string(32, u'x'));
    registry.Set("[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\n"
                 "\"SqlTempLogPath\"=\"" + std::string(33, 'x') + "\"\n");
    EXPECT_EQ(settings::GetSqlTempLogPath(), u"");

    registry.Set("[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\n"
                 "\"IndexerMaxNestedFolders\"=dword:00000005\n"
                 "damaged line\n");
    EXPECT_EQ(settings::GetMaxNestedFolders(), 0u);
}

// Read-ahead values out of their range are named and replaced by the
// default, not clamped to a bound the operator did not choose.
TEST(Settings, ReadAheadValuesOutOfRangeGiveDefaults) {
    struct {
        const char* depth;
        const char* kib;
        uint32_t wantDepth, wantKiB;
        bool warned;
    } cases[] = {
        {"00000000", "00000100", 0, 256, false},       // the bounds themselves
        {"00000040", "00004000", 64, 16384, false},
        {"00000041", "00000080", settings::kDefaultReadAheadDepth, settings::kDefaultReadAheadKiB, true},
    };
    for (const auto& c : cases) {
        ngitest::CTempRegistry registry(std::string("[HKEY_LOCAL_MACHINE\\SOFTWARE\\NorvA\\Norva Archive and Mirror]\n") +
                                        "\"IndexerReadAheadDepth\"=dword:" + c.depth + "\n" +
                                        "\"IndexerReadAheadKiB\"=dword:" + c.kib + "\n");
        ngitest::CLogCapture log;
        EXPECT_EQ(settings::GetReadAheadDepth(), c.wantDepth) << c.depth;
        EXPECT_EQ(settings::GetReadAheadKiB(), c.wantKiB) << c.kib;
        EXPECT_EQ(log.Contains(u"65, outside 0 to 64; the default [8] is used instead."), c.warned);
        EXPECT_EQ(log.Contains(u"128, outside 256 to 16384; the default [1024] is used instead."), c.warned);
    }
}

}  // namespace
