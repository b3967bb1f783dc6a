// HostEntries: the nine host entries 0 to 8 as the services above the host
// link call them, plus the plugin handle they pass back. The module
// implements it by forwarding to its virtual slots, so a module that
// overrides a slot sees every call the services make.
//
// Waits on the entries: Yield gives the host one turn (entries 7, 6, 8);
// AwaitOn returns a future's value, giving the host turns until it is ready.
//
// Ownership: the services hold a reference; the module outlives them.
// Threads: the host's thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <future>
#include <string>

#include "framework/binding/MessageFormat.h"
#include "framework/binding/StaticType.h"
#include "framework/host/HostAbi.h"

namespace Orvan::Framework {

class HostEntries {
public:
    virtual void Request(HostResponse* reply, HostRequest* request) = 0;
    virtual void EmitEvent(HostEvent* event) = 0;
    virtual void RegisterEvent(const char* name, HostEventCallback callback, void* context,
                               uint32_t flags) = 0;
    virtual void UnregisterEvent(const char* name) = 0;
    virtual void ScheduleCall(const char* label, HostDelayedCallback callback, void* context,
                              double delaySeconds) = 0;
    virtual void ServeOnce() = 0;
    virtual void BeginWait(const std::string& label) = 0;
    virtual uint64_t EndWait() = 0;
    virtual uint32_t PluginHandle() const = 0;

protected:
    ~HostEntries() = default;
};

// One turn of the host: entries 7 ("Wait: yield"), 6 and 8; entry 8's result.
uint64_t Yield(HostEntries& host);

// A broken future: the fatal report of the module's Await.
[[noreturn]] void FailAwait(int code, const char* text);

// Entry 7 once ("Wait: future<T>"), entry 6 per turn, entry 8 once; no host
// call when the future is ready at once.
template <class T>
T AwaitOn(HostEntries& host, std::future<T> future) {
    try {
        bool waiting = false;
        // A deferred future runs in get(); only a pending one needs turns.
        while (future.wait_for(std::chrono::seconds(0)) == std::future_status::timeout) {
            if (!waiting) {
                waiting = true;
                host.BeginWait(Format("Wait: future<%1>", StaticType::Of<T>().name));
            }
            host.ServeOnce();
        }
        if (waiting) {
            host.EndWait();
        }
        return future.get();
    } catch (const std::future_error& error) {
        FailAwait(error.code().value(), error.what());
    }
}

}  // namespace Orvan::Framework
