#include "framework/platform/Clock.h"

#include <chrono>
#include <ctime>

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace Orvan::Framework::Platform {

namespace {

// The first reading, taken on the first call of NanosecondsSinceFirstUse.
uint64_t FirstTicks() {
    static const uint64_t first = HighResolutionTicks();
    return first;
}

// The host program's seam, looked up once; null in a host without one.
ClockSeamFunction Seam() {
    static const ClockSeamFunction seam = []() -> ClockSeamFunction {
#if defined(_WIN32)
        return reinterpret_cast<ClockSeamFunction>(reinterpret_cast<void (*)()>(
            GetProcAddress(GetModuleHandleW(nullptr), kClockSeamSymbol)));
#else
        return reinterpret_cast<ClockSeamFunction>(dlsym(RTLD_DEFAULT, kClockSeamSymbol));
#endif
    }();
    return seam;
}

int64_t ThroughSeam(ClockReading reading, int64_t real) {
    const ClockSeamFunction seam = Seam();
    return seam != nullptr ? seam(static_cast<uint32_t>(reading), real) : real;
}

}  // namespace

#if defined(_WIN32)

uint64_t HighResolutionTicks() {
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    return static_cast<uint64_t>(now.QuadPart);
}

uint64_t HighResolutionFrequency() {
    static const uint64_t frequency = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return static_cast<uint64_t>(f.QuadPart);
    }();
    return frequency;
}

LocalTime CurrentLocalTime() {
    SYSTEMTIME st;
    GetLocalTime(&st);
    return LocalTime{st.wYear,   st.wMonth,  st.wDay,         st.wHour,
                     st.wMinute, st.wSecond, st.wMilliseconds};
}

#else

uint64_t HighResolutionTicks() {
    auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

uint64_t HighResolutionFrequency() {
    return 1'000'000'000ull;
}

LocalTime CurrentLocalTime() {
    auto now = std::chrono::system_clock::now();
    auto sinceEpoch = now.time_since_epoch();
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count() % 1000;
    if (ms < 0) {
        ms += 1000;
    }
    std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    std::tm tm{};
    localtime_r(&seconds, &tm);
    return LocalTime{tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,          tm.tm_hour,
                     tm.tm_min,         tm.tm_sec,     static_cast<int>(ms)};
}

#endif

uint64_t NanosecondsSinceFirstUse() {
    uint64_t first = FirstTicks();
    uint64_t elapsed = HighResolutionTicks() - first;
    uint64_t frequency = HighResolutionFrequency();
    // Split to keep the multiplication from overflowing on long runs.
    return elapsed / frequency * 1'000'000'000ull +
           elapsed % frequency * 1'000'000'000ull / frequency;
}

int64_t SystemTime100ns() {
    auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return ThroughSeam(
        ClockReading::System,
        std::chrono::duration_cast<std::chrono::duration<int64_t, std::ratio<1, 10'000'000>>>(
            sinceEpoch)
            .count());
}

MonotonicClock::time_point MonotonicClock::now() noexcept {
    const auto real = std::chrono::duration_cast<std::chrono::nanoseconds>(
                          std::chrono::steady_clock::now().time_since_epoch())
                          .count();
    return time_point(duration(ThroughSeam(ClockReading::Monotonic, real)));
}

}  // namespace Orvan::Framework::Platform
