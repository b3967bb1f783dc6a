// A module class linked into the test itself, for tests that need the C++
// side of AppModule next to the host's view. Load it with
//   host.LoadWith(&LoadTestModule);
// and reach the object with TestModuleOf(host).
#pragma once

#include "framework/module/AppModule.h"
#include "framework/module/PluginEntry.h"
#include "tests/support/TestHost.h"

namespace Orvan::Testing {

class TestModule : public Framework::AppModule {
public:
    // What the next started module's start hook answers.
    static inline bool startResult = true;
    static inline int starts = 0;

    bool OnStart() override {
        ++starts;
        return startResult;
    }
};

inline void QEL_HOST_CALL LoadTestModule(PluginLoadRecord* record) {
    Framework::LoadPluginModule<TestModule>(record, "qel-test-module");
}

inline TestModule& TestModuleOf(const TestHost& host) {
    return *static_cast<TestModule*>(static_cast<Framework::AppModule*>(host.Module()));
}

}  // namespace Orvan::Testing
