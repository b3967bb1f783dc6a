// HostClock: the host's clock for delayed calls and timelines, in seconds
// since the run began. At speed 1 it follows the steady clock; at speed N it
// runs N times faster; in instant mode (speed 0) it stands still while there
// is work and jumps to the next due point when the host is idle, so a run
// takes as long as its work, not as its timers.
//
// Ownership: plain value. Threads: the host's thread.
#pragma once

#include <chrono>

namespace Orvan::Host {

class HostClock {
public:
    // speed <= 0 makes the clock instant.
    explicit HostClock(double speed = 1.0);
    // A clock that stands where MoveTo puts it and nowhere else: idle turns
    // leave it alone (tests, whose time passes only when they say so).
    static HostClock Held();

    double Now() const;
    bool Instant() const { return instant_; }
    double Speed() const { return speed_; }

    // Lets time pass until `seconds` (never backwards). Real clocks sleep,
    // at most `maxRealSleep` seconds of real time per call; the instant
    // clock jumps.
    void AdvanceTo(double seconds, double maxRealSleep = 0.1);
    // Moves an instant or held clock forward to `seconds`.
    void MoveTo(double seconds);

private:
    using Steady = std::chrono::steady_clock;
    bool instant_;
    double speed_;
    Steady::time_point start_;
    double virtualNow_ = 0.0;
    bool held_ = false;
};

}  // namespace Orvan::Host
