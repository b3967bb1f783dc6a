// Clocks: the monotonic high-resolution clock of delayed calls and log lines
// (QueryPerformanceCounter/QueryPerformanceFrequency on Windows,
// std::chrono::steady_clock here), the local wall-clock time with
// milliseconds (GetLocalTime on Windows, localtime_r here) and the system
// time in 100-nanosecond ticks since 1970-01-01 UTC.
//
// A stand-in host that records or replays a session hands the plugin the
// readings it recorded, so that receipt times and timer deadlines come out
// the same in a replay. It does so by exporting kClockSeamSymbol from its own
// program: the monotonic clock of delayed calls and the system time ask that
// function, when the process has one, with the real reading, and take its
// answer. A real host exports no such function, so the plugin keeps the real
// clocks there, and the plugin itself exports nothing more than its entry.
//
// Ownership: stateless apart from the instant of the high-resolution clock's
// first use and the seam found on the first reading, kept for the life of the
// process.
// Threads: every function may be called from any thread.
#pragma once

#include <chrono>
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

// What the seam is asked for: its first argument.
enum class ClockReading : uint32_t {
    Monotonic = 0,  // nanoseconds of MonotonicClock
    System = 1,     // SystemTime100ns
};
// The seam's name in the host program and its signature: it answers the
// reading to use, given the real one.
inline constexpr const char* kClockSeamSymbol = "qel_host_clock_reading";
using ClockSeamFunction = int64_t (*)(uint32_t reading, int64_t real);

// The steady clock of delayed calls, through the seam.
struct MonotonicClock {
    using rep = int64_t;
    using period = std::nano;
    using duration = std::chrono::nanoseconds;
    using time_point = std::chrono::time_point<MonotonicClock>;
    static constexpr bool is_steady = true;
    static time_point now() noexcept;
};

}  // namespace Orvan::Framework::Platform
