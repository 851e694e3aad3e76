#pragma once
// The locks of the log, and what becomes of them once the process crashes.
//
// In normal running a TLogLockGuard is a lock_guard. After EnterCrashMode()
// (the crash handler calls it first thing) a guard waits at most
// kCrashLockWait for its mutex, and once any such wait has failed no guard
// waits at all: it takes the mutex if it is free and otherwise goes on
// without it. The crashed code may hold any lock of the log (a fault inside
// the writer's write(), a thread stopped for good in the middle of a line),
// and the crash path must not wait for it: the dump and the end of the
// process come before tidy log lines.
//
// Thread-safety: all of it may be used from any thread.

#include <atomic>
#include <chrono>
#include <mutex>

namespace diag {

constexpr std::chrono::milliseconds kCrashLockWait{500};

// One way: from now on the log's locks are taken as described above.
void EnterCrashMode();
bool InCrashMode();

namespace detail {
// True when a guard may wait no longer (crash mode, after a failed wait).
bool CrashLockGivenUp();
void GiveUpCrashLocks();
}  // namespace detail

// REQUIRES: M is a timed mutex; a recursive one when its owner may crash in
// it and log again (the owner then takes it again instead of waiting).
template <class M>
class TLogLockGuard {
public:
    explicit TLogLockGuard(M& mutex) : m_Mutex(mutex) {
        if (!InCrashMode()) {
            m_Mutex.lock();
            m_Owns = true;
        } else if (detail::CrashLockGivenUp()) {
            m_Owns = m_Mutex.try_lock();
        } else {
            m_Owns = m_Mutex.try_lock_for(kCrashLockWait);
            if (!m_Owns) detail::GiveUpCrashLocks();
        }
    }
    ~TLogLockGuard() {
        if (m_Owns) m_Mutex.unlock();
    }
    TLogLockGuard(const TLogLockGuard&) = delete;
    TLogLockGuard& operator=(const TLogLockGuard&) = delete;

    // False when the guard went on without the mutex (crash mode only).
    bool OwnsLock() const { return m_Owns; }

private:
    M& m_Mutex;
    bool m_Owns = false;
};

}  // namespace diag
