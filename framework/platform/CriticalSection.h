// CriticalSection: the lock of the logger and of each log target; stands in
// for a Win32 critical section (CRITICAL_SECTION), which is re-entrant on the
// owning thread, so this one is too.
//
// Ownership: owned by the object it guards; neither copyable nor movable.
// Threads: any thread; Lock and Unlock pair on the same thread. Usable with
// std::lock_guard / std::unique_lock (lock, unlock, try_lock).
#pragma once

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <mutex>
#endif

namespace Orvan::Framework::Platform {

class CriticalSection {
public:
#if defined(_WIN32)
    CriticalSection() {
        InitializeCriticalSection(&section_);
    }
    ~CriticalSection() {
        DeleteCriticalSection(&section_);
    }
    void lock() {
        EnterCriticalSection(&section_);
    }
    void unlock() {
        LeaveCriticalSection(&section_);
    }
    bool try_lock() {
        return TryEnterCriticalSection(&section_) != 0;
    }
#else
    CriticalSection() = default;
    ~CriticalSection() = default;
    void lock() {
        mutex_.lock();
    }
    void unlock() {
        mutex_.unlock();
    }
    bool try_lock() {
        return mutex_.try_lock();
    }
#endif

    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

private:
#if defined(_WIN32)
    CRITICAL_SECTION section_;
#else
    std::recursive_mutex mutex_;
#endif
};

}  // namespace Orvan::Framework::Platform
