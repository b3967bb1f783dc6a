// AppModule against the test host, with a module class linked into the test:
// start and stop, waits, delayed calls, event dispatch, subscriptions and log
// lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "framework/host/HostValueConversion.h"
#include "framework/log/Log.h"
#include "framework/resources/ResourceEventKey.h"
#include "tests/host/support/TestModule.h"

namespace Orvan::Testing {
namespace {

using namespace Orvan::Framework;
using Strings = std::vector<std::string>;

class AppModuleTest : public ::testing::Test {
protected:
    void SetUp() override {
        TestModule::startResult = true;
        host_.LoadWith(&LoadTestModule);
    }
    TestModule& Module() { return TestModuleOf(host_); }

    TestHost host_;
};

// The three registrations of a start are checked through the plugin's shared
// object; a refused start still keeps its handle and registrations.
TEST_F(AppModuleTest, DestroyAfterARefusedStartStillUnregistersEveryEvent) {
    TestModule::startResult = false;
    EXPECT_FALSE(host_.Start(42));
    EXPECT_EQ(Module().PluginHandle(), 42u);
    ASSERT_TRUE(Module().Subscribe("/qel-gameflow/v1/session").HasValue());
    host_.ClearCalls();
    host_.Destroy();
    Strings unregistered;
    for (const TestHost::HostCall& call : host_.CallsTo(4)) {
        EXPECT_EQ(call.arguments[1], "42");
        unregistered.push_back(call.arguments[0]);
    }
    std::sort(unregistered.begin(), unregistered.end());
    EXPECT_EQ(unregistered,
              (Strings{"OnJsonApiEvent_qel-gameflow_v1_session", "OnServiceProxyAsyncEvent",
                       "OnServiceProxyMethodEvent", "OnServiceProxyUuidEvent"}));
    EXPECT_EQ(host_.Calls().size(), 4u);
}

TEST_F(AppModuleTest, AwaitOnAReadyFutureMakesNoHostCall) {
    ASSERT_TRUE(host_.Start());
    host_.ClearCalls();
    std::promise<Maybe<int>> promise;
    promise.set_value(5);
    Maybe<int> value = Module().Await(promise.get_future());
    ASSERT_TRUE(value.HasValue());
    EXPECT_EQ(*value, 5);
    EXPECT_TRUE(host_.Calls().empty());
}

TEST_F(AppModuleTest, AwaitGivesTheHostTurnsUntilTheFutureIsReady) {
    ASSERT_TRUE(host_.Start());
    host_.ClearCalls();
    std::promise<Maybe<int>> promise;
    int turns = 0;
    host_.OnTurn([&] {
        if (++turns == 2) {
            promise.set_value(Failure("late", 500));
        }
    });
    Maybe<int> value = Module().Await(promise.get_future());
    ASSERT_FALSE(value.HasValue());
    EXPECT_EQ(value.GetFailure().code, 500u);
    const std::string label =
        std::string("Wait: future<") + StaticType::Of<Maybe<int>>().name + ">";
    EXPECT_NE(label.find("MaybeType"), std::string::npos);
    EXPECT_EQ(host_.CallTexts(), (Strings{"7(" + label + ", 0)", "6()", "6()", "8()"}));
}

TEST_F(AppModuleTest, YieldIsOneHostTurn) {
    ASSERT_TRUE(host_.Start());
    host_.ClearCalls();
    EXPECT_EQ(Module().Yield(), 0u);
    EXPECT_EQ(host_.CallTexts(), (Strings{"7(Wait: yield, 0)", "6()", "8()"}));
}

// Every host call the services make goes through the module's host-entry
// slots, so a module that overrides a slot sees each one: the entries the
// slots saw are the entries the host received, in order.
TEST_F(AppModuleTest, EveryHostCallOfTheServicesPassesTheSlots) {
    ASSERT_TRUE(host_.Start());
    struct Action {
        const char* name;
        std::function<void(TestModule&)> run;
        std::vector<uint32_t> entries;
    };
    const Action actions[] = {
        {"publish",
         [](TestModule& m) {
             m.PublishResourceValue("/qel-test/v1/thing", PluginResourceEventType::Update,
                                    BindingProperty(int64_t{1}));
         },
         {2, 2}},
        {"delete", [](TestModule& m) { m.DeleteResource("/qel-test/v1/thing"); }, {2, 2}},
        {"subscribe", [](TestModule& m) { (void)m.Subscribe("/qel-test/v1/other"); }, {3}},
        {"unsubscribe", [](TestModule& m) { (void)m.Unsubscribe("/qel-test/v1/other"); }, {4}},
        {"yield", [](TestModule& m) { m.Yield(); }, {7, 6, 8}},
        {"schedule",
         [](TestModule& m) { m.ScheduleAt("later", AppModule::Clock::now(), [] {}); },
         {5}},
        {"request",
         [](TestModule& m) { (void)m.Request(HttpMethod::Get, "/qel-test/v1/thing"); },
         {0}},
    };
    for (const Action& action : actions) {
        SCOPED_TRACE(action.name);
        host_.ClearCalls();
        TestModule::slotEntries.clear();
        action.run(Module());
        std::vector<uint32_t> received;
        for (const TestHost::HostCall& call : host_.Calls()) {
            if (call.entry <= 8) {
                received.push_back(call.entry);
            }
        }
        EXPECT_EQ(received, action.entries);
        EXPECT_EQ(TestModule::slotEntries, action.entries);
    }
}

using AppModuleDeathTest = AppModuleTest;

TEST_F(AppModuleDeathTest, AwaitOnABrokenFutureEndsTheProcessWithTheReport) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ASSERT_TRUE(host_.Start());
    host_.EchoLogs(true);
    EXPECT_DEATH((void)Module().Await(std::future<Maybe<int>>()),
                 "Expression: ALE-6D828C10\n\nDescription: Caught std::future_error in "
                 "AppModule::Await: \\(3\\)");
    EXPECT_DEATH(
        {
            std::future<Maybe<int>> future;
            { future = std::promise<Maybe<int>>().get_future(); }
            (void)Module().Await(std::move(future));
        },
        "Expression: ALE-6D828C10\n\nDescription: Caught std::future_error in "
        "AppModule::Await: \\(4\\)");
}

TEST_F(AppModuleTest, ScheduleAtPassesTheDelayAndRunsEachCallOnce) {
    ASSERT_TRUE(host_.Start());
    host_.ClearCalls();
    Strings ran;
    const auto now = AppModule::Clock::now();
    Module().ScheduleAt("late", now + std::chrono::seconds(2), [&] { ran.push_back("late"); });
    Module().ScheduleAt("past", now - std::chrono::seconds(1), [&] { ran.push_back("past"); });
    ASSERT_EQ(host_.CallsTo(5).size(), 2u);
    const TestHost::HostCall late = host_.CallsTo(5)[0];
    EXPECT_EQ(late.arguments[0], "late");
    EXPECT_NEAR(std::stod(late.arguments[1]), 2.0, 0.1);
    EXPECT_EQ(late.arguments[2], "0");
    EXPECT_EQ(host_.CallsTo(5)[1].Text(), "5(past, 0, 0)");
    EXPECT_EQ(Module().PendingDelayedCalls(), 2u);

    host_.Pump();
    EXPECT_EQ(ran, (Strings{"past"}));
    EXPECT_EQ(Module().PendingDelayedCalls(), 1u);
    host_.AdvanceSeconds(2.5);
    EXPECT_EQ(ran, (Strings{"past", "late"}));
    EXPECT_EQ(Module().PendingDelayedCalls(), 0u);
}

TEST_F(AppModuleTest, LogLinesReachTheHostWithTheirLevelsAfterStart) {
    Log(kOkay, kGroupGen, "before start");
    ASSERT_TRUE(host_.Start());
    Log(kOkay, kGroupGen, "okay %d", 0);
    Log(kWarn, kGroupDbg, "warn");
    Log(kError, kGroupDbg, "error");
    Log(kAlways, kGroupDbg, "always");
    Log(kAlways, kGroupXtr, "extra");
    std::vector<std::pair<uint32_t, std::string>> lines;
    for (const TestHost::LogLine& line : host_.Logs()) {
        lines.emplace_back(line.level, line.text);
    }
    EXPECT_EQ(lines, (std::vector<std::pair<uint32_t, std::string>>{
                         {0, "okay 0"}, {1, "warn"}, {2, "error"}, {3, "always"}}));
}

BindingProperty ResourcePayload(std::string_view uri, std::string_view eventType) {
    BindingProperty payload;
    payload.MutableField("uri").SetString(uri);
    payload.MutableField("eventType").SetString(eventType);
    payload.MutableField("data").MutableField("phase").SetString("Lobby");
    return payload;
}

TEST_F(AppModuleTest, SubscriptionsAreCountedPerKeyAndDispatchExactThenPatterns) {
    ASSERT_TRUE(host_.Start());
    host_.ClearCalls();
    Strings seen;
    Module().SetExactResourceHandler("/qel-gameflow/v1/session", [&](const Resource& r) {
        seen.push_back("exact " + r.uri + " " + std::to_string(static_cast<int>(r.eventType)) +
                       " " + std::string(r.data.Field("phase").GetString()));
    });
    Module().SetPatternResourceHandler(
        "/qel-gameflow/*/session", [&](const Resource& r) { seen.push_back("pattern " + r.uri); });
    ASSERT_TRUE(Module().Subscribe("/qel-gameflow/v1/session").HasValue());
    ASSERT_TRUE(Module().Subscribe("/qel-gameflow/v1/session/x").HasValue());
    EXPECT_EQ(host_.CallTexts(), (Strings{"3(OnJsonApiEvent_qel-gameflow_v1_session, 7, 0)"}));

    // No leading slash on the wire still reaches the handler of the path.
    host_.Deliver("OnJsonApiEvent_qel-gameflow_v1_session",
                  ResourcePayload("qel-gameflow/v1/session", "Update"));
    EXPECT_EQ(seen, (Strings{"exact /qel-gameflow/v1/session 1 Lobby",
                             "pattern /qel-gameflow/v1/session"}));

    ASSERT_TRUE(Module().Unsubscribe("/qel-gameflow/v1/session").HasValue());
    EXPECT_TRUE(host_.CallsTo(4).empty());
    ASSERT_TRUE(Module().Unsubscribe("/qel-gameflow/v1/session").HasValue());
    EXPECT_EQ(host_.CallsTo(4)[0].Text(), "4(OnJsonApiEvent_qel-gameflow_v1_session, 7)");
    EXPECT_FALSE(host_.IsRegistered("OnJsonApiEvent_qel-gameflow_v1_session"));
}

TEST_F(AppModuleTest, UnconvertibleOrMisaddressedEventsNeverReachTheHandler) {
    ASSERT_TRUE(host_.Start());
    int calls = 0;
    Module().RegisterEventHandler("OnJsonApiEvent_a",
                                  AppModule::ResourceHandler([&](const Resource&) { ++calls; }), 0);
    host_.Deliver("OnJsonApiEvent_a", ResourcePayload("/a", "Update"));
    ASSERT_EQ(calls, 1);

    HostValue badCode{};
    badCode.type = 99;
    host_.DeliverRaw("OnJsonApiEvent_a", badCode);
    host_.Deliver("OnJsonApiEvent_a", ResourcePayload("/a", "Renamed"));  // not an enumerator
    host_.Deliver("OnJsonApiEvent_a", BindingProperty("just text"));
    host_.DeliverRaw("OnJsonApiEvent_a", HostValue{});  // null payload

    OwnedHostValue good;
    ASSERT_TRUE(ToHostValue(ResourcePayload("/a", "Update"), good.Get()).HasValue());
    for (const char* name : {static_cast<const char*>(nullptr), "", "OnJsonApiEvent_b"}) {
        HostEvent event{};
        event.name = name;
        event.payload = good.Get();
        host_.DeliverThrough("OnJsonApiEvent_a", event);
    }
    EXPECT_EQ(calls, 1);
}

TEST(ResourceEventKeyTest, KeysKeepTheLeadingPiecesOfTheUri) {
    const struct {
        const char* uri;
        const char* key;
    } cases[] = {
        {"/qel-gameflow/v1/session", "OnJsonApiEvent_qel-gameflow_v1_session"},
        {"/qel-gameflow/v1/session/extra", "OnJsonApiEvent_qel-gameflow_v1_session"},
        {"//qel-login//v1/session/", "OnJsonApiEvent_qel-login_v1_session"},
        {"/qel-platform-config/v1/namespaces/ChatDomain/ChampSelectDomainName",
         "OnJsonApiEvent_qel-platform-config_v1_namespaces_ChatDomain_ChampSelectDomainName"},
        {"/", "OnJsonApiEvent"},
        {"/a/*", "OnJsonApiEvent_a_*"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ResourceEventKey(c.uri), c.key) << c.uri;
    }
}

TEST(ResourceEventKeyTest, StarsMatchUpToTheNextSlash) {
    const struct {
        const char* pattern;
        const char* uri;
        bool matches;
    } cases[] = {
        {"/a/*/c", "/a/b/c", true}, {"/a/*/c", "/a//c", true}, {"/a/*/c", "/a/b/d", false},
        {"/a/*", "/a/b", true},     {"/a/*", "/a/", false},    {"/a/*", "/a/b/c", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ResourcePatternMatches(c.pattern, c.uri), c.matches) << c.pattern << " " << c.uri;
    }
}

}  // namespace
}  // namespace Orvan::Testing
