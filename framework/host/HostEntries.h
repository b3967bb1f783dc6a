// HostEntries: the module's virtual operations in the order of its slots
// (1 to 15), as the services above the host link reach them. AppModule is
// the implementation; the services hold this interface and call the
// host-entry slots (5 to 13) through the non-virtual forms below, which pass
// the plugin handle where an entry takes it. A call is one virtual dispatch
// to the module's slot, so a module that overrides a slot sees every call
// the services make, and the slot order is the one the module declares.
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
#include <string_view>

#include "framework/binding/Failure.h"
#include "framework/binding/MessageFormat.h"
#include "framework/binding/StaticType.h"
#include "framework/host/HostAbi.h"

namespace Orvan::Framework {

class HostEntries {
public:
    // Slots 1 and 2: follow a resource's event key, and stop following it.
    virtual Maybe<> Subscribe(std::string_view uri) = 0;
    virtual Maybe<> Unsubscribe(std::string_view uri) = 0;
    // Slot 3.
    virtual ~HostEntries() = default;
    // Slot 4.
    virtual void Stop() = 0;
    // Slots 5 to 13: host entries 0 to 8.
    virtual void CallHostRequest(HostResponse* reply, HostRequest* request) = 0;
    virtual uint32_t CallHostEntry1(uint32_t first, uint32_t second) = 0;
    virtual void CallHostEmitEvent(HostEvent* event) = 0;
    virtual void CallHostRegisterEvent(const char* name, uint32_t pluginHandle,
                                       HostEventCallback callback, void* context,
                                       uint32_t flags) = 0;
    virtual void CallHostUnregisterEvent(const char* name, uint32_t pluginHandle) = 0;
    virtual void CallHostScheduleCall(const char* label, HostDelayedCallback callback,
                                      void* context, double delaySeconds, uint32_t flags) = 0;
    virtual void CallHostServeOnce() = 0;
    virtual void CallHostBeginWait(const std::string& label, uint32_t value) = 0;
    virtual uint64_t CallHostEndWait() = 0;
    // Slots 14 and 15.
    virtual void RegisterEndpoints() = 0;
    virtual bool OnStart() = 0;

    // The entries as the services call them.
    void Request(HostResponse* reply, HostRequest* request) { CallHostRequest(reply, request); }
    void EmitEvent(HostEvent* event) { CallHostEmitEvent(event); }
    void RegisterEvent(const char* name, HostEventCallback callback, void* context,
                       uint32_t flags) {
        CallHostRegisterEvent(name, pluginHandle_, callback, context, flags);
    }
    void UnregisterEvent(const char* name) { CallHostUnregisterEvent(name, pluginHandle_); }
    void ScheduleCall(const char* label, HostDelayedCallback callback, void* context,
                      double delaySeconds) {
        CallHostScheduleCall(label, callback, context, delaySeconds, 0);
    }
    void ServeOnce() { CallHostServeOnce(); }
    void BeginWait(const std::string& label) { CallHostBeginWait(label, 0); }
    uint64_t EndWait() { return CallHostEndWait(); }
    // The token the host knows the module by (0 before the module starts).
    uint32_t PluginHandle() const { return pluginHandle_; }

protected:
    void SetPluginHandle(uint32_t handle) { pluginHandle_ = handle; }

private:
    uint32_t pluginHandle_ = 0;
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
