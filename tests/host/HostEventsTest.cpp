#include "framework/host/HostEvents.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "framework/binding/BuiltinTypes.h"
#include "framework/codec/Json.h"
#include "framework/host/DelayedCalls.h"
#include "framework/host/HostValueConversion.h"

namespace Orvan::Framework {
namespace {

using Strings = std::vector<std::string>;

// Host entries that only record what the services ask of them.
class RecordingEntries final : public HostEntries {
public:
    RecordingEntries() { SetPluginHandle(9); }

    Maybe<> Subscribe(std::string_view) override { return Maybe<>::Success(); }
    Maybe<> Unsubscribe(std::string_view) override { return Maybe<>::Success(); }
    void Stop() override {}
    void CallHostRequest(HostResponse*, HostRequest*) override { calls.push_back("0"); }
    uint32_t CallHostEntry1(uint32_t, uint32_t) override { return 0; }
    void CallHostEmitEvent(HostEvent* event) override {
        calls.push_back(std::string("2 ") + event->name);
    }
    void CallHostRegisterEvent(const char* name, uint32_t pluginHandle, HostEventCallback callback,
                               void* context, uint32_t flags) override {
        calls.push_back("3 " + std::string(name) + " " + std::to_string(flags) + " " +
                        std::to_string(pluginHandle));
        callbacks.push_back(callback);
        contexts.push_back(context);
    }
    void CallHostUnregisterEvent(const char* name, uint32_t pluginHandle) override {
        calls.push_back("4 " + std::string(name) + " " + std::to_string(pluginHandle));
    }
    void CallHostScheduleCall(const char* label, HostDelayedCallback callback, void* context,
                              double delaySeconds, uint32_t flags) override {
        calls.push_back("5 " + std::string(label) + " " + std::to_string(delaySeconds > 0.0) + " " +
                        std::to_string(flags));
        scheduled.push_back({callback, context});
    }
    void CallHostServeOnce() override { calls.push_back("6"); }
    void CallHostBeginWait(const std::string& label, uint32_t value) override {
        calls.push_back("7 " + label + " " + std::to_string(value));
    }
    uint64_t CallHostEndWait() override {
        calls.push_back("8");
        return 0;
    }
    void RegisterEndpoints() override {}
    bool OnStart() override { return true; }

    Strings calls;
    std::vector<HostEventCallback> callbacks;
    std::vector<void*> contexts;
    std::vector<std::pair<HostDelayedCallback, void*>> scheduled;
};

void QEL_HOST_CALL ResourceDispatcher(HostEvent*) {}
void QEL_HOST_CALL ServiceProxyDispatcher(HostEvent*) {}

class HostEventsTest : public ::testing::Test {
protected:
    HostEventsTest() {
        RegisterBuiltinTypes(registry_);
        RegisterFrameworkTypes(registry_);
    }

    // Hands a payload, written as JSON ("" for none), to the resource or the
    // service-proxy delivery under `name`.
    void Deliver(bool resource, const char* name, std::string_view json) {
        HostValueArena arena;
        HostEvent event{};
        event.name = name;
        event.context = this;
        // An arena value points at the texts of its source: both live until
        // the delivery is over.
        Maybe<BindingProperty> value = BindingProperty();
        if (!json.empty()) {
            value = ReadJson(json);
            ASSERT_TRUE(value.HasValue()) << json;
            ASSERT_TRUE(ToHostValue(*value, event.payload, &registry_, arena, 0).HasValue());
        }
        if (resource) {
            events_.DeliverResource(&event);
        } else {
            events_.DeliverServiceProxy(&event);
        }
    }

    BindingTypeRegistry registry_;
    std::string shortName_ = "qel-test";
    RecordingEntries entries_;
    HostEvents events_{
        entries_, registry_, shortName_, {this, &ResourceDispatcher, &ServiceProxyDispatcher}};
};

TEST_F(HostEventsTest, RegisteringPicksTheDispatcherOfTheHandlersKind) {
    events_.Register("OnJsonApiEvent_a", ResourceHandler([](const Resource&) {}), 0);
    events_.Register("OnServiceProxyUuidEvent",
                     ServiceProxyHandler([](const PluginServiceProxyResponse&) {}), 1);
    EXPECT_EQ(entries_.calls, (Strings{"3 OnJsonApiEvent_a 0 9", "3 OnServiceProxyUuidEvent 1 9"}));
    EXPECT_EQ(entries_.callbacks,
              (std::vector<HostEventCallback>{&ResourceDispatcher, &ServiceProxyDispatcher}));
    EXPECT_EQ(entries_.contexts, (std::vector<void*>{this, this}));

    entries_.calls.clear();
    events_.Unregister("OnJsonApiEvent_a");
    events_.UnregisterAll();
    EXPECT_EQ(entries_.calls, (Strings{"4 OnJsonApiEvent_a 9", "4 OnServiceProxyUuidEvent 9"}));
    // Nothing left to reach.
    entries_.calls.clear();
    events_.UnregisterAll();
    EXPECT_TRUE(entries_.calls.empty());
}

TEST_F(HostEventsTest, BothKindsDeliverOnlyWhatConvertsIntoTheirRecord) {
    struct Case {
        const char* what;
        bool resource;       // delivered as a resource event, else as a service-proxy one
        const char* name;    // the event's name
        const char* json;    // its payload; "" for none
        const char* expect;  // what the handler saw; "" when it was not called
    };
    const Case cases[] = {
        {"a resource event", true, "resource", R"({"uri":"/a/b","eventType":"Delete","data":3})",
         "/a/b 2 3"},
        {"a resource payload of another shape", true, "resource", "5", ""},
        {"no payload", true, "resource", "", ""},
        {"a name nobody handles", true, "other", R"({"uri":"/a"})", ""},
        {"a service-proxy name through the resource dispatcher", true, "answer", R"({"uri":"/a"})",
         ""},
        {"a service-proxy answer of texts", false, "answer",
         R"({"uuid":"u1","status":"OK","payload":"{}"})", "u1 OK {}"},
        {"a service-proxy answer that is no object", false, "answer", R"("u1")", ""},
        {"a resource name through the service-proxy dispatcher", false, "resource",
         R"({"uuid":"u1"})", ""},
    };
    Strings seen;
    events_.Register("resource", ResourceHandler([&seen](const Resource& resource) {
                         seen.push_back(resource.uri + " " +
                                        std::to_string(static_cast<int>(resource.eventType)) + " " +
                                        WriteJson(resource.data));
                     }),
                     0);
    events_.Register("answer",
                     ServiceProxyHandler([&seen](const PluginServiceProxyResponse& answer) {
                         seen.push_back(answer.uuid + " " + answer.status + " " + answer.payload);
                     }),
                     1);
    for (const Case& c : cases) {
        seen.clear();
        Deliver(c.resource, c.name, c.json);
        EXPECT_EQ(seen, *c.expect ? Strings{c.expect} : Strings{}) << c.what;
    }
}

TEST(DelayedCallsTest, CallsAreNumberedAndEachRemovesOnlyItself) {
    RecordingEntries entries;
    DelayedCalls calls(entries);
    Strings ran;
    calls.ScheduleAt("first", DelayedCalls::Clock::now() - std::chrono::seconds(1),
                     [&ran] { ran.push_back("first"); });
    calls.ScheduleAt("second", DelayedCalls::Clock::now() + std::chrono::hours(1),
                     [&ran] { ran.push_back("second"); });
    EXPECT_EQ(entries.calls, (Strings{"5 first 0 0", "5 second 1 0"}));
    ASSERT_EQ(calls.Pending(), 2u);
    entries.scheduled[1].first(entries.scheduled[1].second);
    EXPECT_EQ(ran, Strings{"second"});
    EXPECT_EQ(calls.Pending(), 1u);
    calls.Clear();
    EXPECT_EQ(calls.Pending(), 0u);
}

}  // namespace
}  // namespace Orvan::Framework
