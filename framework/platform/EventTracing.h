// TraceProvider: one provider of the operating system's event tracing
// (EventRegister/EventWrite/EventUnregister of Advapi32 on Windows, looked up
// at run time so a system without them still loads the library). This
// platform has no such facility: registration reports false and nothing is
// ever written.
//
// Ownership: the provider owns its registration and drops it when destroyed.
// Threads: Register and Unregister on one thread; Write and IsEnabled from any.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Orvan::Framework::Platform {

// A provider identifier in the layout of a Windows GUID.
struct TraceGuid {
    uint32_t data1;
    uint16_t data2;
    uint16_t data3;
    uint8_t data4[8];
};

// One field of an event: a byte range copied by the system when writing.
struct TraceField {
    const void* data;
    uint32_t size;
};

class TraceProvider {
public:
    explicit TraceProvider(const TraceGuid& id) : id_(id) {}
    ~TraceProvider() { Unregister(); }

    TraceProvider(const TraceProvider&) = delete;
    TraceProvider& operator=(const TraceProvider&) = delete;

    // Registers the provider; false when event tracing is unavailable.
    bool Register();
    void Unregister();
    bool IsRegistered() const { return handle_ != 0; }
    // Whether a trace session currently has this provider enabled.
    bool IsEnabled() const { return enabled_.load(std::memory_order_relaxed); }

    // Writes one event with the given id and level; false when not written.
    bool Write(uint16_t eventId, uint8_t level, const TraceField* fields, size_t count);

    const TraceGuid& Id() const { return id_; }

private:
    // The system's enable callback, whose signature needs the system's types,
    // so it lives in the source file.
    friend struct TraceProviderCallbacks;

    TraceGuid id_;
    uint64_t handle_ = 0;
    std::atomic<bool> enabled_{false};
};

}  // namespace Orvan::Framework::Platform
