#include "host/ClockSeam.h"

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#define QEL_HOST_PROGRAM_EXPORT __declspec(dllexport)
#else
#include <dlfcn.h>
#define QEL_HOST_PROGRAM_EXPORT __attribute__((visibility("default")))
#endif

namespace {

Orvan::Host::ClockSeamHandler* g_handler = nullptr;

}  // namespace

// The name and signature are fixed by Platform::kClockSeamSymbol and
// Platform::ClockSeamFunction.
extern "C" QEL_HOST_PROGRAM_EXPORT int64_t qel_host_clock_reading(uint32_t reading, int64_t real) {
    if (g_handler == nullptr) {
        return real;
    }
    return g_handler->Reading(static_cast<Orvan::Framework::Platform::ClockReading>(reading), real);
}

namespace Orvan::Host {

void SetClockSeamHandler(ClockSeamHandler* handler) {
    g_handler = handler;
}

bool ClockSeamExported() {
    // Looked up the way the plugin looks it up, which also keeps the
    // function in programs that link the host library.
#if defined(_WIN32)
    return GetProcAddress(GetModuleHandleW(nullptr), Framework::Platform::kClockSeamSymbol) !=
           nullptr;
#else
    return dlsym(RTLD_DEFAULT, Framework::Platform::kClockSeamSymbol) != nullptr;
#endif
}

}  // namespace Orvan::Host
