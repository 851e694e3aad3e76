#pragma once
// CPriorityGuard: the process priority of a run, named by a registry string
// (HKLM\Software\Norva\Norva Archive And Mirror, the value given) and put
// back at the end. Names, upper-cased before the lookup: BACKGROUND,
// ABOVE_NORMAL, BELOW_NORMAL, HIGH, IDLE, NORMAL, REALTIME.
//
// BACKGROUND begins the background mode (CPU and I/O priority lowered);
// where that fails for another reason than the process being in it already,
// BELOW_NORMAL is tried. Any other name sets that class unless the process
// has it. Restore ends the background mode or sets the class the process had;
// it runs once, from Restore or from the destructor, and only when the guard
// changed something. Nothing here throws: every failure is logged and the
// run goes on.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace indexer {

// The priority calls the guard makes, as platform/process.h has them; tests
// give their own.
class IPriorityControl {
public:
    virtual ~IPriorityControl() = default;
    virtual uint32_t GetPriorityClass() = 0;
    // False with the thread's last error set, as SetPriorityClass.
    virtual bool SetPriorityClass(uint32_t value) = 0;
};

std::shared_ptr<IPriorityControl> GetProcessPriorityControl();

// The value of a priority name (any case); 0 when it is no name of the table.
uint32_t PriorityFromName(std::u16string_view name);
// The table's name of a value, or the value as eight hexadecimal digits.
std::u16string PriorityName(uint32_t value);

class CPriorityGuard {
public:
    CPriorityGuard(std::u16string_view valueName, std::u16string_view defaultName,
                   std::shared_ptr<IPriorityControl> control = GetProcessPriorityControl());
    ~CPriorityGuard();
    CPriorityGuard(const CPriorityGuard&) = delete;
    CPriorityGuard& operator=(const CPriorityGuard&) = delete;

    void Restore();


private:
    std::u16string _ReadName(std::u16string_view valueName, std::u16string_view defaultName);
    void _SetBackground();
    void _SetClass(uint32_t value);

    bool m_Active = false;
    uint32_t m_RestoreValue = 0;
    std::shared_ptr<IPriorityControl> m_Control;
};

}  // namespace indexer
