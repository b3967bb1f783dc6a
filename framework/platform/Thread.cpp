#include "framework/platform/Thread.h"

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace Orvan::Framework::Platform {

uint64_t CurrentThreadId() {
#if defined(_WIN32)
    return GetCurrentThreadId();
#else
    // Cached per thread: the id never changes and the system call is not free.
    thread_local const uint64_t id = static_cast<uint64_t>(syscall(SYS_gettid));
    return id;
#endif
}

}  // namespace Orvan::Framework::Platform
