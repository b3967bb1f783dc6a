// The fixture of the tests of REST calls, resources and the service proxy: a
// module class linked into the test, loaded into the test host under the team
// builder's short name (so its log lines read as the plugin's) and started
// with plugin handle 7. The module registers one record type, TestSession,
// holds a ServiceCaller for "teambuilder-draft" and runs `onDestroy` from its
// destructor.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "framework/binding/TypeRegistration.h"
#include "framework/log/LogRecord.h"
#include "framework/module/PluginEntry.h"
#include "framework/module/ServiceCaller.h"
#include "framework/resources/ResourceEvents.h"
#include "framework/rest/RestCalls.h"
#include "framework/serviceproxy/ServiceProxyClient.h"
#include "tests/support/TestHost.h"

namespace Orvan::Testing {

using namespace Orvan::Framework;
using Strings = std::vector<std::string>;

struct TestSession {
    std::string phase;
    int32_t counter = 0;
};

// A record nobody registers.
struct Unregistered {
    int32_t x = 0;
};

class ServicesModule : public AppModule {
public:
    ~ServicesModule() override {
        if (onDestroy) {
            onDestroy(*this);
        }
    }
    void RegisterEndpoints() override {
        RegisterStruct<TestSession>(Registry(), "TestSession")
            .Field("phase", &TestSession::phase)
            .Field("counter", &TestSession::counter);
    }

    ServiceCaller teamBuilder{*this, "teambuilder-draft"};
    std::function<void(ServicesModule&)> onDestroy;
};

inline void QEL_HOST_CALL LoadServicesModule(PluginLoadRecord* record) {
    LoadPluginModule<ServicesModule>(record, "qel-lobby-team-builder");
}

inline BindingProperty SessionValue(std::string_view phase, int64_t counter) {
    BindingProperty value;
    value.MutableField("phase").SetString(phase);
    value.MutableField("counter").SetSigned(counter);
    return value;
}

class ServicesTest : public ::testing::Test {
protected:
    void SetUp() override {
        host_.LoadWith(&LoadServicesModule);
        ASSERT_TRUE(host_.Start(7));
        host_.ClearCalls();
    }
    ServicesModule& Module() {
        return *static_cast<ServicesModule*>(static_cast<AppModule*>(host_.Module()));
    }
    // "<level> <text>" of the log lines holding `part`.
    Strings Logs(std::string_view part = {}) const {
        Strings lines;
        for (const TestHost::LogLine& line : host_.Logs()) {
            if (line.text.find(part) != std::string::npos) {
                lines.push_back(std::to_string(line.level) + " " + line.text);
            }
        }
        return lines;
    }

    TestHost host_;
};

}  // namespace Orvan::Testing
