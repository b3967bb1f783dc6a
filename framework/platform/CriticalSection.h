// CriticalSection: the lock of the logger and of each log target. On Windows
// it is a Win32 critical section, which is re-entrant on the owning thread;
// elsewhere a recursive mutex, so the two behave alike.
//
// The system's record is kept as opaque storage so that this header, which
// the logger spreads to most of the framework, never pulls in <windows.h>
// and its macros (Yield, min, max, ...).
//
// Ownership: owned by the object it guards; neither copyable nor movable.
// Threads: any thread; lock and unlock pair on the same thread. Usable with
// std::lock_guard / std::unique_lock (lock, unlock, try_lock).
#pragma once

#if !defined(_WIN32)
#include <mutex>
#endif

namespace Orvan::Framework::Platform {

class CriticalSection {
public:
    CriticalSection();
    // Not defaulted here: the Win32 branch deletes its critical section.
    ~CriticalSection();  // NOLINT(performance-trivially-destructible)

    void lock();
    void unlock();
    bool try_lock();

    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

private:
#if defined(_WIN32)
    // Six address-wide words hold a CRITICAL_SECTION on i386 (24 bytes) and
    // on x86-64 (40 bytes); the source file checks it.
    static constexpr unsigned kStorageSize = sizeof(void*) * 6;
    alignas(void*) unsigned char storage_[kStorageSize];
#else
    std::recursive_mutex mutex_;
#endif
};

}  // namespace Orvan::Framework::Platform
