#include "app/priority_guard.h"

#include <gtest/gtest.h>

#include <map>

#include "platform/errors.h"
#include "platform/process.h"
#include "testing/log_capture.h"
#include "testing/temp_registry.h"

namespace {

using indexer::CPriorityGuard;
using platform::kBelowNormalPriorityClass;
using platform::kNormalPriorityClass;
using platform::kProcessModeBackgroundBegin;
using platform::kProcessModeBackgroundEnd;

// Records the calls; a value listed in m_Fail fails with that error.
class CFakePriority : public indexer::IPriorityControl {
public:
    uint32_t GetPriorityClass() override { return m_Class; }
    bool SetPriorityClass(uint32_t value) override {
        m_Calls.push_back(value);
        auto it = m_Fail.find(value);
        if (it != m_Fail.end()) {
            platform::SetLastError(it->second);
            return false;
        }
        return true;
    }
    uint32_t m_Class = kNormalPriorityClass;
    std::map<uint32_t, uint32_t> m_Fail;
    std::vector<uint32_t> m_Calls;
};

std::string PriorityValue(const std::string& data) {
    return "[HKEY_LOCAL_MACHINE\\Software\\Norva\\Norva Archive And Mirror]\n"
           "\"NorvaGuestIndexerPriority\"=" + data + "\n";
}

struct CGuardFixture : ::testing::Test {
    ngitest::CTempRegistry registry;
    ngitest::CLogCapture log;
    std::shared_ptr<CFakePriority> fake = std::make_shared<CFakePriority>();
};

TEST_F(CGuardFixture, DefaultBackgroundAndItsEnd) {
    {
        CPriorityGuard guard(u"NorvaGuestIndexerPriority", u"BACKGROUND", fake);
        EXPECT_TRUE(guard.IsActive());
        EXPECT_EQ(guard.GetRestoreValue(), kProcessModeBackgroundEnd);
        guard.Restore();
        guard.Restore();  // once only
    }
    EXPECT_EQ(fake->m_Calls, (std::vector<uint32_t>{kProcessModeBackgroundBegin, kProcessModeBackgroundEnd}));
    EXPECT_TRUE(log.Contains(u"Background priority set."));
    EXPECT_TRUE(log.Contains(u"Process priority restored."));
}

TEST_F(CGuardFixture, AlreadyInBackgroundIsNotEnded) {
    fake->m_Fail[kProcessModeBackgroundBegin] = platform::kErrProcessModeAlreadyBackground;
    { CPriorityGuard guard(u"NorvaGuestIndexerPriority", u"BACKGROUND", fake); }
    EXPECT_EQ(fake->m_Calls, (std::vector<uint32_t>{kProcessModeBackgroundBegin}));
    EXPECT_TRUE(log.Contains(u"Process already have background priority."));
}

TEST_F(CGuardFixture, BackgroundRefusedFallsBackOnBelowNormal) {
    fake->m_Fail[kProcessModeBackgroundBegin] = platform::kErrAccessDenied;
    fake->m_Class = platform::kHighPriorityClass;
    { CPriorityGuard guard(u"NorvaGuestIndexerPriority", u"BACKGROUND", fake); }
    EXPECT_EQ(fake->m_Calls, (std::vector<uint32_t>{kProcessModeBackgroundBegin, kBelowNormalPriorityClass,
                                                    platform::kHighPriorityClass}));
    EXPECT_TRUE(log.Contains(u"Cannot set background priority."));
    // The system's own text (Wine's differs from Windows').
    std::u16string denied = platform::GetErrorText(platform::kErrAccessDenied);
    while (!denied.empty() && (denied.back() == u'\n' || denied.back() == u'\r')) denied.pop_back();
    EXPECT_TRUE(log.Contains(u"Win32 error:" + denied));

    fake->m_Calls.clear();
    fake->m_Fail[kBelowNormalPriorityClass] = platform::kErrAccessDenied;
    { CPriorityGuard guard(u"NorvaGuestIndexerPriority", u"BACKGROUND", fake); }
    EXPECT_EQ(fake->m_Calls, (std::vector<uint32_t>{kProcessModeBackgroundBegin, kBelowNormalPriorityClass}));
    EXPECT_TRUE(log.Contains(u"Cannot set below normal priority."));
}

TEST_F(CGuardFixture, NameFromTheRegistryInAnyCase) {
    registry.Set(PriorityValue("\"below_normal\""));
    { CPriorityGuard guard(u"NorvaGuestIndexerPriority", u"BACKGROUND", fake); }
    EXPECT_EQ(fake->m_Calls, (std::vector<uint32_t>{kBelowNormalPriorityClass, kNormalPriorityClass}));
    EXPECT_TRUE(log.Contains(u"Process take [BELOW_NORMAL] priority."));
    EXPECT_TRUE(log.Contains(u"Process priority restored."));

    // An expandable string is a string too; the class the process has already.
    fake->m_Calls.clear();
    registry.Set(PriorityValue("hex(2):4e,00,6f,00,72,00,6d,00,61,00,6c,00,00,00"));  // "Normal"
    { CPriorityGuard guard(u"NorvaGuestIndexerPriority", u"BACKGROUND", fake); }
    EXPECT_TRUE(fake->m_Calls.empty());
    EXPECT_TRUE(log.Contains(u"Process already have [NORMAL] priority."));
}

TEST_F(CGuardFixture, InvalidNameChangesNothing) {
    registry.Set(PriorityValue("\"FAST\""));
    { CPriorityGuard guard(u"NorvaGuestIndexerPriority", u"BACKGROUND", fake); }
    EXPECT_TRUE(fake->m_Calls.empty());
    ASSERT_FALSE(log.Lines().empty());
    EXPECT_EQ(log.Lines().back().text, u"Invalid priority name [FAST]");
    EXPECT_EQ(log.Lines().back().level, LogError);
}

TEST_F(CGuardFixture, WrongTypeIsLoggedAndTheDefaultUsed) {
    registry.Set(PriorityValue("dword:00000020"));
    { CPriorityGuard guard(u"NorvaGuestIndexerPriority", u"HIGH", fake); }
    // The setup warning names the value, then the line of old at Info.
    ASSERT_GE(log.Lines().size(), 2u);
    EXPECT_EQ(log.Lines()[0].level, LogWarning);
    EXPECT_EQ(log.Lines()[0].text, u"Registry value [HKLM\\Software\\Norva\\Norva Archive And Mirror\\"
                                   u"NorvaGuestIndexerPriority] is not a string; the default [HIGH] is used instead.");
    EXPECT_EQ(log.Lines()[1].text, u"Unexpected registry type: [4].");
    EXPECT_EQ(log.Lines()[1].level, LogInfo);
    EXPECT_EQ(fake->m_Calls, (std::vector<uint32_t>{platform::kHighPriorityClass, kNormalPriorityClass}));
}

TEST_F(CGuardFixture, FailuresAreLoggedOnly) {
    fake->m_Fail[platform::kHighPriorityClass] = platform::kErrAccessDenied;
    {
        CPriorityGuard guard(u"NorvaGuestIndexerPriority", u"HIGH", fake);
        EXPECT_FALSE(guard.IsActive());
    }
    EXPECT_TRUE(log.Contains(u"Failed to set [HIGH] priority."));
    EXPECT_EQ(fake->m_Calls.size(), 1u);

    fake->m_Fail.clear();
    fake->m_Fail[kProcessModeBackgroundEnd] = platform::kErrProcessModeNotBackground;
    { CPriorityGuard guard(u"NorvaGuestIndexerPriority", u"BACKGROUND", fake); }
    EXPECT_TRUE(log.Contains(u"Failed to restore priority."));
}

TEST(PriorityNames, Table) {
    EXPECT_EQ(indexer::PriorityFromName(u"realtime"), platform::kRealtimePriorityClass);
    EXPECT_EQ(indexer::PriorityFromName(u"Idle"), platform::kIdlePriorityClass);
    EXPECT_EQ(indexer::PriorityFromName(u"FAST"), 0u);
    EXPECT_EQ(indexer::PriorityName(platform::kAboveNormalPriorityClass), u"ABOVE_NORMAL");
    EXPECT_EQ(indexer::PriorityName(0x12345), u"00012345");
}

}  // namespace
