// DelayedCalls: callables run on the host's thread once their deadline has
// passed, through host entry 5. Calls are numbered from 1 in scheduling
// order; each is kept under its number until it has run.
//
// Ownership: owns the pending calls; destroying it (or Clear) drops them, so
// the host must not run a call after its owner is gone.
// Threads: the mutex guards the map and the counter; a call runs without it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <unordered_map>

#include "framework/host/HostEntries.h"
#include "framework/platform/Clock.h"

namespace Orvan::Framework {

class DelayedCalls {
public:
    using Clock = Platform::MonotonicClock;

    explicit DelayedCalls(HostEntries& host) : host_(host) {}
    DelayedCalls(const DelayedCalls&) = delete;
    DelayedCalls& operator=(const DelayedCalls&) = delete;

    void ScheduleAt(std::string_view label, Clock::time_point deadline,
                    std::function<void()> callable);
    size_t Pending() const;
    void Clear();

private:
    struct Call {
        DelayedCalls* owner = nullptr;
        uint64_t id = 0;
        std::function<void()> callable;
    };

    static void QEL_HOST_CALL Run(void* context);

    HostEntries& host_;
    std::unordered_map<uint64_t, std::unique_ptr<Call>> calls_;
    uint64_t nextId_ = 1;
    mutable std::mutex mutex_;
};

}  // namespace Orvan::Framework
