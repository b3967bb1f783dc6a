// A module class linked into the tests of REST calls, resources and the
// service proxy, loaded into the test host under the team builder's short
// name (so its log lines read as the plugin's):
//   host.LoadWith(&LoadServicesModule);
//   ServicesModule& module = ServicesModuleOf(host);
// It registers one small record type, TestSession, holds a ServiceCaller
// for "teambuilder-draft" and runs `onDestroy` from its destructor.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "framework/binding/TypeRegistration.h"
#include "framework/host/AppModule.h"
#include "framework/host/PluginEntry.h"
#include "framework/resources/ResourceEvents.h"
#include "framework/rest/RestCalls.h"
#include "framework/serviceproxy/ServiceCaller.h"
#include "framework/serviceproxy/ServiceProxyClient.h"
#include "tests/support/TestHost.h"

namespace Orvan::Testing {

struct TestSession {
    std::string phase;
    int32_t counter = 0;
};

class ServicesModule : public Framework::AppModule {
public:
    // Runs while the host destroys the module (it is finalizing by then).
    std::function<void(ServicesModule&)> onDestroy;

    ~ServicesModule() override {
        if (onDestroy) {
            onDestroy(*this);
        }
    }

    void RegisterEndpoints() override {
        Framework::RegisterStruct<TestSession>(Registry(), "TestSession")
            .Field("phase", &TestSession::phase)
            .Field("counter", &TestSession::counter);
    }

    Framework::ServiceCaller teamBuilder{*this, "teambuilder-draft"};
};

inline void QEL_HOST_CALL LoadServicesModule(PluginLoadRecord* record) {
    Framework::LoadPluginModule<ServicesModule>(record, "qel-lobby-team-builder");
}

inline ServicesModule& ServicesModuleOf(const TestHost& host) {
    return *static_cast<ServicesModule*>(static_cast<Framework::AppModule*>(host.Module()));
}

// {"phase": phase, "counter": counter}
inline BindingProperty SessionValue(std::string_view phase, int64_t counter) {
    BindingProperty value;
    value.MutableField("phase").SetString(phase);
    value.MutableField("counter").SetSigned(counter);
    return value;
}

}  // namespace Orvan::Testing
