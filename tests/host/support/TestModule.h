// A module class linked into the test itself, for tests that need the C++
// side of AppModule next to the host's view. Load it with
//   host.LoadWith(&LoadTestModule);
// and reach the object with TestModuleOf(host).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framework/module/AppModule.h"
#include "framework/module/PluginEntry.h"
#include "tests/support/TestHost.h"

namespace Orvan::Testing {

class TestModule : public Framework::AppModule {
public:
    // What the next started module's start hook answers.
    static inline bool startResult = true;
    static inline int starts = 0;

    // The host entries (0 to 8) that reached the host-entry slots, in order.
    static inline std::vector<uint32_t> slotEntries;

    bool OnStart() override {
        ++starts;
        return startResult;
    }

    // Every slot records its entry and does what the base slot does.
    void CallHostRequest(HostResponse* reply, HostRequest* request) override {
        slotEntries.push_back(0);
        AppModule::CallHostRequest(reply, request);
    }
    void CallHostEmitEvent(HostEvent* event) override {
        slotEntries.push_back(2);
        AppModule::CallHostEmitEvent(event);
    }
    void CallHostRegisterEvent(const char* name, uint32_t pluginHandle, HostEventCallback callback,
                               void* context, uint32_t flags) override {
        slotEntries.push_back(3);
        AppModule::CallHostRegisterEvent(name, pluginHandle, callback, context, flags);
    }
    void CallHostUnregisterEvent(const char* name, uint32_t pluginHandle) override {
        slotEntries.push_back(4);
        AppModule::CallHostUnregisterEvent(name, pluginHandle);
    }
    void CallHostScheduleCall(const char* label, HostDelayedCallback callback, void* context,
                              double delaySeconds, uint32_t flags) override {
        slotEntries.push_back(5);
        AppModule::CallHostScheduleCall(label, callback, context, delaySeconds, flags);
    }
    void CallHostServeOnce() override {
        slotEntries.push_back(6);
        AppModule::CallHostServeOnce();
    }
    void CallHostBeginWait(const std::string& label, uint32_t value) override {
        slotEntries.push_back(7);
        AppModule::CallHostBeginWait(label, value);
    }
    uint64_t CallHostEndWait() override {
        slotEntries.push_back(8);
        return AppModule::CallHostEndWait();
    }
};

inline void QEL_HOST_CALL LoadTestModule(PluginLoadRecord* record) {
    Framework::LoadPluginModule<TestModule>(record, "qel-test-module");
}

inline TestModule& TestModuleOf(const TestHost& host) {
    return *static_cast<TestModule*>(static_cast<Framework::AppModule*>(host.Module()));
}

}  // namespace Orvan::Testing
