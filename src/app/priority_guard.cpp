#include "app/priority_guard.h"

#include <vector>

#include "base/case.h"
#include "base/format.h"
#include "diag/log.h"
#include "diag/settings.h"
#include "platform/errors.h"
#include "platform/process.h"
#include "platform/registry.h"

namespace indexer {

namespace {

struct TPriorityName {
    const char16_t* name;
    uint32_t value;
};
constexpr TPriorityName kPriorities[] = {
    {u"BACKGROUND", platform::kProcessModeBackgroundBegin},
    {u"ABOVE_NORMAL", platform::kAboveNormalPriorityClass},
    {u"BELOW_NORMAL", platform::kBelowNormalPriorityClass},
    {u"HIGH", platform::kHighPriorityClass},
    {u"IDLE", platform::kIdlePriorityClass},
    {u"NORMAL", platform::kNormalPriorityClass},
    {u"REALTIME", platform::kRealtimePriorityClass},
};

class CProcessPriorityControl : public IPriorityControl {
public:
    uint32_t GetPriorityClass() override { return platform::GetPriorityClass(); }
    bool SetPriorityClass(uint32_t value) override { return platform::SetPriorityClass(value); }
};

}  // namespace

std::shared_ptr<IPriorityControl> GetProcessPriorityControl() {
    return std::make_shared<CProcessPriorityControl>();
}

uint32_t PriorityFromName(std::u16string_view name) {
    const std::u16string upper = util::ToUpper(name);
    for (const auto& p : kPriorities)
        if (upper == p.name) return p.value;
    return 0;
}

std::u16string PriorityName(uint32_t value) {
    for (const auto& p : kPriorities)
        if (p.value == value) return p.name;
    return util::Hex8(value);
}

CPriorityGuard::CPriorityGuard(std::u16string_view valueName, std::u16string_view defaultName,
                               std::shared_ptr<IPriorityControl> control)
    : m_Control(std::move(control)) {
    const std::u16string name = util::ToUpper(_ReadName(valueName, defaultName));
    const uint32_t value = PriorityFromName(name);
    if (value == 0) {
        GetLog().Error(u"Invalid priority name [%1]", name);
        return;
    }
    if (value == platform::kProcessModeBackgroundBegin)
        _SetBackground();
    else
        _SetClass(value);
}

CPriorityGuard::~CPriorityGuard() { Restore(); }

std::u16string CPriorityGuard::_ReadName(std::u16string_view valueName,
                                         std::u16string_view defaultName) {
    std::u16string name(defaultName);
    try {
        platform::CRegKey key;
        if (!platform::RegOpenKey(platform::kHkeyLocalMachine, settings::kPriorityKey,
                                  platform::kKeyRead, key)) {
            if (platform::GetLastError() == platform::kErrFileNotFound) return name;
            throw CWin32Exc(u"Cannot open registry key [%1].", settings::kPriorityKey);
        }
        uint32_t type = 0;
        std::vector<uint8_t> data;
        if (!platform::RegQueryValue(key, valueName, type, data)) {
            if (platform::GetLastError() == platform::kErrFileNotFound) return name;
            throw CWin32Exc(u"Cannot read registry value [%1].", valueName);
        }
        if (type != platform::kRegSz && type != platform::kRegExpandSz) {
            settings::WarnUnusableValue(settings::kPriorityKey, valueName, u"not a string", name);
            throw CExc(u"Unexpected registry type: [%1].", util::ToStrU32(type));
        }
        name = platform::RegDataToString(data);
    } catch (const CExc& e) {
        GetLog().Info(u"%1", e.GetDescription());
    }
    return name;
}

void CPriorityGuard::_SetBackground() {
    const uint32_t before = m_Control->GetPriorityClass();
    if (m_Control->SetPriorityClass(platform::kProcessModeBackgroundBegin)) {
        m_RestoreValue = platform::kProcessModeBackgroundEnd;
        m_Active = true;
        GetLog().Info(u"Background priority set.");
        return;
    }
    if (platform::GetLastError() == platform::kErrProcessModeAlreadyBackground) {
        GetLog().Info(u"Process already have background priority.");
        return;
    }
    GetLog().LogException(CWin32Exc(u"Cannot set background priority."));
    if (m_Control->SetPriorityClass(platform::kBelowNormalPriorityClass)) {
        m_RestoreValue = before;
        m_Active = true;
        return;
    }
    GetLog().LogException(CWin32Exc(u"Cannot set below normal priority."));
}

void CPriorityGuard::_SetClass(uint32_t value) {
    const uint32_t before = m_Control->GetPriorityClass();
    const std::u16string name = PriorityName(value);
    if (before == value) {
        GetLog().Info(u"Process already have [%1] priority.", name);
        return;
    }
    if (!m_Control->SetPriorityClass(value)) {
        GetLog().LogException(CWin32Exc(u"Failed to set [%1] priority.", name));
        return;
    }
    GetLog().Info(u"Process take [%1] priority.", name);
    m_RestoreValue = before;
    m_Active = true;
}

void CPriorityGuard::Restore() {
    if (!m_Active) return;
    m_Active = false;
    if (m_Control->SetPriorityClass(m_RestoreValue))
        GetLog().Info(u"Process priority restored.");
    else
        GetLog().LogException(CWin32Exc(u"Failed to restore priority."));
}

}  // namespace indexer
