#include "host/HostClock.h"

#include <algorithm>
#include <thread>

namespace Orvan::Host {

HostClock::HostClock(double speed)
    : instant_(speed <= 0.0), speed_(speed <= 0.0 ? 0.0 : speed), start_(Steady::now()) {}

double HostClock::Now() const {
    if (instant_) {
        return virtualNow_;
    }
    const std::chrono::duration<double> elapsed = Steady::now() - start_;
    return elapsed.count() * speed_;
}

HostClock HostClock::Held() {
    HostClock clock(0.0);
    clock.held_ = true;
    return clock;
}

void HostClock::MoveTo(double seconds) {
    virtualNow_ = std::max(virtualNow_, seconds);
}

void HostClock::AdvanceTo(double seconds, double maxRealSleep) {
    if (held_) {
        return;
    }
    if (instant_) {
        virtualNow_ = std::max(virtualNow_, seconds);
        return;
    }
    const double wait = (seconds - Now()) / speed_;
    if (wait > 0.0) {
        std::this_thread::sleep_for(std::chrono::duration<double>(std::min(wait, maxRealSleep)));
    }
}

}  // namespace Orvan::Host
