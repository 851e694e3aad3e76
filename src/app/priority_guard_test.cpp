// The priority guard over a fake of the priority calls: the calls made for
// each registry value and each failure, and the line that says so.
#include "app/priority_guard.h"

#include <gtest/gtest.h>

#include <map>

#include "platform/errors.h"
#include "platform/process.h"
#include "testing/log_capture.h"
#include "testing/temp_registry.h"

namespace {

using namespace platform;

// Records the calls; a value listed in m_Fail fails with that error.
class CFakePriority : public indexer::IPriorityControl {
public:
    uint32_t GetPriorityClass() override { return m_Class; }
    bool SetPriorityClass(uint32_t value) override {
        m_Calls.push_back(value);
        if (const auto it = m_Fail.find(value); it != m_Fail.end()) {
            platform::SetLastError(it->second);
            return false;
        }
        return true;
    }
    uint32_t m_Class = kNormalPriorityClass;
    std::map<uint32_t, uint32_t> m_Fail;
    std::vector<uint32_t> m_Calls;
};

// Each case: the registry value (none when empty), the default name, the
// fake's failures and class; the calls made and a log line with its level.
struct TCase {
    std::string value;
    std::u16string defaultName;
    std::map<uint32_t, uint32_t> fail;
    uint32_t current;
    std::vector<uint32_t> calls;
    std::u16string line;
    int32_t level;
};

void RunCases(const std::vector<TCase>& cases) {
    ngitest::CTempRegistry registry;
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.line.begin(), c.line.end()));
        registry.Set(c.value.empty() ? "" : "[HKEY_LOCAL_MACHINE\\Software\\Norva\\Norva Archive And Mirror]\n"
                                            "\"NorvaGuestIndexerPriority\"=" + c.value + "\n");
        ngitest::CLogCapture log;
        auto fake = std::make_shared<CFakePriority>();
        fake->m_Fail = c.fail;
        fake->m_Class = c.current;
        {
            indexer::CPriorityGuard guard(u"NorvaGuestIndexerPriority", c.defaultName, fake);
            guard.Restore();  // and once more in the destructor: a second Restore does nothing
        }
        EXPECT_EQ(fake->m_Calls, c.calls);
        EXPECT_EQ(log.LevelOf(c.line), c.level) << std::string(log.Text().begin(), log.Text().end());
    }
}

TEST(CGuardFixture, BackgroundAndItsFallBack) {
    const uint32_t begin = kProcessModeBackgroundBegin, end = kProcessModeBackgroundEnd;
    const uint32_t below = kBelowNormalPriorityClass;
    RunCases({
        {"", u"BACKGROUND", {}, kNormalPriorityClass, {begin, end}, u"Process priority restored.", LogInfo},
        {"", u"BACKGROUND", {{begin, kErrProcessModeAlreadyBackground}}, kNormalPriorityClass, {begin},
         u"Process already have background priority.", LogInfo},
        {"", u"BACKGROUND", {{begin, kErrAccessDenied}}, kHighPriorityClass, {begin, below, kHighPriorityClass},
         u"Cannot set background priority.", LogError},
        {"", u"BACKGROUND", {{begin, kErrAccessDenied}, {below, kErrAccessDenied}}, kNormalPriorityClass,
         {begin, below}, u"Cannot set below normal priority.", LogError},
        {"", u"BACKGROUND", {{end, kErrProcessModeNotBackground}}, kNormalPriorityClass, {begin, end},
         u"Failed to restore priority.", LogError},
        {"", u"HIGH", {{kHighPriorityClass, kErrAccessDenied}}, kNormalPriorityClass, {kHighPriorityClass},
         u"Failed to set [HIGH] priority.", LogError},
    });
}

TEST(CGuardFixture, NameFromTheRegistryInAnyCase) {
    RunCases({
        {"\"below_normal\"", u"BACKGROUND", {}, kNormalPriorityClass, {kBelowNormalPriorityClass, kNormalPriorityClass},
         u"Process take [BELOW_NORMAL] priority.", LogInfo},
        // An expandable string is a string too; the class the process has already.
        {"hex(2):4e,00,6f,00,72,00,6d,00,61,00,6c,00,00,00", u"BACKGROUND", {}, kNormalPriorityClass, {},
         u"Process already have [NORMAL] priority.", LogInfo},
        {"\"FAST\"", u"BACKGROUND", {}, kNormalPriorityClass, {}, u"Invalid priority name [FAST]", LogError},
        {"dword:00000020", u"HIGH", {}, kNormalPriorityClass, {kHighPriorityClass, kNormalPriorityClass},
         u"Registry value [HKLM\\Software\\Norva\\Norva Archive And Mirror\\NorvaGuestIndexerPriority] is not a "
         u"string; the default [HIGH] is used instead.",
         LogWarning},
    });
}

}  // namespace
