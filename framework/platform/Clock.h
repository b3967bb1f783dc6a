// Clocks: the monotonic high-resolution clock of delayed calls and log lines
// (QueryPerformanceCounter/QueryPerformanceFrequency on Windows,
// std::chrono::steady_clock here), the local wall-clock time with
// milliseconds (GetLocalTime on Windows, localtime_r here) and the system
// time in 100-nanosecond ticks since 1970-01-01 UTC.
//
// Ownership: stateless apart from the instant of the high-resolution clock's
// first use, kept for the life of the process.
// Threads: every function may be called from any thread.
#pragma once

#include <cstdint>

namespace Orvan::Framework::Platform {

// The current value of the monotonic clock, in its own ticks.
uint64_t HighResolutionTicks();
// Ticks of HighResolutionTicks per second.
uint64_t HighResolutionFrequency();
// Nanoseconds since this function was first called in the process (0 on that
// first call); the logger calls it when it is created.
uint64_t NanosecondsSinceFirstUse();

// A broken-down local time, as the operating system reports it.
struct LocalTime {
    int year = 0;    // e.g. 2024
    int month = 0;   // 1..12
    int day = 0;     // 1..31
    int hour = 0;    // 0..23
    int minute = 0;  // 0..59
    int second = 0;  // 0..60
    int millisecond = 0;
};

LocalTime CurrentLocalTime();

// The system clock in 100-nanosecond ticks since 1970-01-01 UTC.
int64_t SystemTime100ns();

}  // namespace Orvan::Framework::Platform
