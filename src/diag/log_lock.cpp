#include "diag/log_lock.h"

namespace diag {

namespace {
std::atomic<bool> g_CrashMode{false};
std::atomic<bool> g_GivenUp{false};
}  // namespace

void EnterCrashMode() { g_CrashMode.store(true); }

bool InCrashMode() { return g_CrashMode.load(std::memory_order_relaxed); }

namespace detail {
bool CrashLockGivenUp() { return g_GivenUp.load(); }
void GiveUpCrashLocks() { g_GivenUp.store(true); }
}  // namespace detail

}  // namespace diag
