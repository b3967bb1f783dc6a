#include "framework/host/DelayedCalls.h"

#include <chrono>
#include <string>

namespace Orvan::Framework {

void DelayedCalls::ScheduleAt(std::string_view label, Clock::time_point deadline,
                              std::function<void()> callable) {
    const int64_t remaining =
        std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - Clock::now()).count();
    const double delaySeconds = remaining > 0 ? static_cast<double>(remaining) * 1e-9 : 0.0;

    Call* call = nullptr;
    {
        std::lock_guard lock(mutex_);
        auto entry = std::make_unique<Call>();
        entry->owner = this;
        entry->id = nextId_++;
        entry->callable = std::move(callable);
        call = entry.get();
        calls_.emplace(call->id, std::move(entry));
    }
    const std::string text(label);
    host_.ScheduleCall(text.c_str(), &DelayedCalls::Run, call, delaySeconds);
}

void QEL_HOST_CALL DelayedCalls::Run(void* context) {
    auto* call = static_cast<Call*>(context);
    if (call == nullptr) {
        return;
    }
    DelayedCalls* owner = call->owner;
    const uint64_t id = call->id;
    if (call->callable) {
        call->callable();
    }
    // Destroyed outside the lock: the callable's captures may run anything.
    std::unique_ptr<Call> finished;
    {
        std::lock_guard lock(owner->mutex_);
        auto found = owner->calls_.find(id);
        if (found != owner->calls_.end()) {
            finished = std::move(found->second);
            owner->calls_.erase(found);
        }
    }
}

size_t DelayedCalls::Pending() const {
    std::lock_guard lock(mutex_);
    return calls_.size();
}

void DelayedCalls::Clear() {
    std::lock_guard lock(mutex_);
    calls_.clear();
}

}  // namespace Orvan::Framework
