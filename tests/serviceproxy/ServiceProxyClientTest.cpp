// The service-proxy client: the login plugin's endpoints, answers matched to
// waiting callers in either order, errors delivered on a later host turn,
// conversions of answers and pushed messages, and the plugin's counted calls
// while the host keeps delivering answers, messages and delayed calls.
#include <chrono>
#include <cstdint>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include "framework/host/HostValueConversion.h"

#include "tests/serviceproxy/support/ServicesModule.h"

namespace Orvan::Testing {
namespace {

using RawResponse = AppModule::ServiceProxyRawResponse;

constexpr const char* kService = "teambuilder-draft";
constexpr const char* kUuidRequests = "/qel-login/v1/service-proxy-uuid-requests";

BindingProperty Answer(std::string_view uuid, std::string_view method, std::string_view payload,
                       std::string_view error = {}) {
    BindingProperty answer;
    answer.MutableField("uuid").SetString(uuid);
    answer.MutableField("serviceName").SetString(kService);
    answer.MutableField("methodName").SetString(method);
    answer.MutableField("payload").SetString(payload);
    answer.MutableField("status").SetString("OK");
    answer.MutableField("error").SetString(error);
    return answer;
}

template <class T>
bool IsReady(const std::future<T>& future) {
    return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

class ServiceProxyClientTest : public ServicesTest {
protected:
    void SetUp() override {
        ServicesTest::SetUp();
        // The login plugin numbers uuid requests u1, u2, ...
        host_.OnRequest("POST", "/qel-login/v1/service-proxy-*",
                        [](const TestHost::Request&) { return TestHost::Reply::Body({}); });
        host_.OnRequest("POST", kUuidRequests, [this](const TestHost::Request&) {
            return TestHost::Reply::Body(BindingProperty("u" + std::to_string(++uuids_)));
        });
    }

    int uuids_ = 0;
};

TEST_F(ServiceProxyClientTest, UuidRequestsMatchAnswersThatComeBeforeOrAfterTheirUuid) {
    auto future = Module().CallServiceProxyRaw(kService, "createDraftPremadeV1", int32_t{420});
    EXPECT_EQ(host_.CallTexts()[1],
              "0(POST, /qel-login/v1/service-proxy-uuid-requests, "
              "[\"teambuilder-draft\",\"createDraftPremadeV1\",7,\"420\"])");
    EXPECT_FALSE(IsReady(future));
    host_.Deliver("OnServiceProxyUuidEvent", Answer("u1", "tbdGameDtoV1", R"({"counter": 3})"));
    ASSERT_TRUE(IsReady(future));
    Maybe<RawResponse> response = future.get();
    EXPECT_EQ(response->payload.Field("counter").GetUnsigned(), 3u);
    EXPECT_EQ(DescribeServiceProxyResponse(response), "methodName=tbdGameDtoV1, status=OK");
    EXPECT_EQ(Logs(), (Strings{"3 qel-lobby-team-builder: Preparing service proxy request: "
                               "teambuilder-draft.createDraftPremadeV1",
                               "3 qel-lobby-team-builder: Started service proxy request: "
                               "teambuilder-draft.createDraftPremadeV1 (u1)",
                               "3 qel-lobby-team-builder: Fulfilled service proxy request: u1"}));

    // The answer arrives while the POST that names its uuid is still running.
    host_.OnRequest("POST", kUuidRequests, [this](const TestHost::Request&) {
        host_.Deliver("OnServiceProxyUuidEvent", Answer("early", "pickSkinV2", "[1]"));
        return TestHost::Reply::Body(BindingProperty("early"));
    });
    auto early = Module().CallServiceProxy<std::vector<int32_t>>(kService, "pickSkinV2", "x");
    ASSERT_TRUE(IsReady(early));
    EXPECT_EQ(early.get().Value(), (std::vector<int32_t>{1}));
}

TEST_F(ServiceProxyClientTest, MethodRequestsWaitUnderTheirResponseKeyOneAtATime) {
    auto call = [&] {
        return Module().CallServiceProxyRaw(kService, "retrieveFeatureToggles", BindingProperty(),
                                            "featureTogglesRetrieved", "extra");
    };
    auto first = call();
    auto second = call();
    EXPECT_EQ(host_.CallTexts()[1],
              "0(POST, /qel-login/v1/service-proxy-method-requests, "
              "[\"teambuilder-draft\",\"retrieveFeatureToggles\",\"featureTogglesRetrieved\","
              "\"extra\",7,\"\"])");
    EXPECT_EQ(host_.Requests().size(), 1u);
    EXPECT_EQ(Logs("in flight"), (Strings{"2 qel-lobby-team-builder: Could not invoke service "
                                          "proxy as request is already in flight"}));
    // The refusal comes on a later host turn, never from inside the call.
    EXPECT_FALSE(IsReady(second));
    EXPECT_EQ(host_.CallsTo(5).back().Text(), "5(teambuilder-draft.retrieveFeatureToggles, 0, 0)");
    host_.Pump();
    EXPECT_EQ(second.get().GetFailure().message, "Request already in flight");
    host_.Deliver("OnServiceProxyMethodEvent", Answer("", "featureTogglesRetrieved", "{}"));
    EXPECT_TRUE(IsReady(first));

    // uuid-based requests of one method never collide.
    auto a = Module().CallServiceProxyRaw(kService, "quitV2", BindingProperty());
    auto b = Module().CallServiceProxyRaw(kService, "quitV2", BindingProperty());
    host_.Pump();
    EXPECT_FALSE(IsReady(a) || IsReady(b));
    EXPECT_EQ(host_.Requests().size(), 3u);
}

TEST_F(ServiceProxyClientTest, FailuresOfSendingAndOfAnswersHaveTheirTexts) {
    const std::string raw = StaticType::Of<BindingProperty>().name;
    const std::string session = StaticType::Of<TestSession>().name;
    auto answered = [&](bool typed, BindingProperty answer) -> std::string {
        auto rawFuture = Module().CallServiceProxyRaw(kService, "m", BindingProperty());
        auto typedFuture = Module().CallServiceProxy<TestSession>(kService, "m", "");
        answer.MutableField("uuid").SetString("u" + std::to_string(typed ? uuids_ : uuids_ - 1));
        host_.Deliver("OnServiceProxyUuidEvent", answer);
        return typed ? typedFuture.get().GetFailure().message
                     : rawFuture.get().GetFailure().message;
    };
    EXPECT_EQ(answered(false, Answer("", "m", "")),
              "Failed to deserialize response payload \"\" to a " + raw);
    EXPECT_EQ(answered(true, Answer("", "m", R"({"phase": 5})")),
              "Failed to deserialize response payload \"{\"phase\": 5}\" to a " + session);
    EXPECT_EQ(answered(true, Answer("", "m", "{}", "Timed out")), "Timed out");

    auto unconvertible = Module().CallServiceProxyRaw(kService, "m", Unregistered{});
    host_.OnRequest("POST", kUuidRequests,
                    [](const TestHost::Request&) { return TestHost::Reply::Error(503, "down"); });
    auto refused = Module().CallServiceProxy<TestSession>(kService, "m", BindingProperty());
    host_.Pump();
    EXPECT_EQ(unconvertible.get().GetFailure().message,
              "Failed to convert type " + std::string(StaticType::Of<Unregistered>().name) +
                  " to BindingProperty for serialization");
    EXPECT_EQ(refused.get().GetFailure().message,
              "Error response for POST /qel-login/v1/service-proxy-uuid-requests: down");
}

TEST_F(ServiceProxyClientTest, PushedMessagesAndStrayAnswersAreDeliveredOnceOrDropped) {
    Strings seen;
    Module().RegisterServiceProxyHandler<TestSession>(
        kService, "tbdGameDtoV1",
        [&](const TestSession& dto) { seen.push_back(std::to_string(dto.counter)); });
    Module().RegisterServiceProxyHandler(kService, "gameStartFailedV1",
                                         [&](const PluginServiceProxyResponse& message) {
                                             seen.push_back("raw " + message.payload);
                                         });
    EXPECT_EQ(host_.CallTexts()[0],
              "0(POST, /qel-login/v1/service-proxy-async-requests/teambuilder-draft/tbdGameDtoV1, "
              "[7])");
    ASSERT_EQ(Module().SendServiceProxyRequest(
                  kService, "m", BindingProperty(), "reply", "",
                  [&](const PluginServiceProxyResponse&) { seen.push_back("answered"); }),
              "");

    BindingProperty onlyMethod;
    onlyMethod.MutableField("methodName").SetString("tbdGameDtoV1");
    const std::pair<const char*, BindingProperty> events[] = {
        {"OnServiceProxyAsyncEvent", Answer("", "tbdGameDtoV1", R"({"counter": 4})")},
        {"OnServiceProxyAsyncEvent", Answer("", "tbdGameDtoV1", R"({"counter": "x"})")},
        {"OnServiceProxyAsyncEvent", Answer("", "gameStartFailedV1", "")},
        {"OnServiceProxyAsyncEvent", Answer("", "unknownV1", "{}")},
        {"OnServiceProxyAsyncEvent", onlyMethod},
        {"OnServiceProxyAsyncEvent", BindingProperty("no record")},
        {"OnServiceProxyMethodEvent", onlyMethod},
        {"OnServiceProxyUuidEvent", Answer("", "reply", "{}")},
        {"OnServiceProxyMethodEvent", Answer("", "reply", "{}")},
        {"OnServiceProxyMethodEvent", Answer("", "reply", "{}")},  // nobody waits any more
    };
    for (const auto& [name, payload] : events) {
        host_.Emit(name, payload);
    }
    host_.Pump();
    EXPECT_EQ(seen, (Strings{"4", "raw ", "answered"}));
    EXPECT_EQ(Logs("Could not find"),
              (Strings{"2 qel-lobby-team-builder: Could not find registered handler for async "
                       "service proxy event teambuilder-draft.unknownV1",
                       "2 qel-lobby-team-builder: Could not find registered handler for async "
                       "service proxy event .tbdGameDtoV1"}));
}

// Messages as a host may lay them out: unowned and owned texts, repeated,
// unknown and null members, values of other kinds, broken entries. Each is
// handled exactly when the general conversion takes it, with its record.
TEST_F(ServiceProxyClientTest, RawMessagesGiveTheRecordTheRegistryGives) {
    PluginServiceProxyResponse received;
    int calls = 0;
    Module().RegisterServiceProxyHandler(kService, "probe",
                                         [&](const PluginServiceProxyResponse& message) {
                                             received = message;
                                             ++calls;
                                         });
    auto text = [](const char* value) {
        HostValue v{};
        v.type = kHostValueTextUnowned;
        v.payload.span.address = const_cast<char*>(value);
        return v;
    };
    auto owned = [](const char* value, uint32_t length) {
        HostValue v{};
        v.type = kHostValueTextOwned;
        v.payload.span.address = const_cast<char*>(value);
        v.payload.span.length = length;
        return v;
    };
    HostValue number{};
    number.type = kHostValueSigned;
    number.payload.signedValue = 3;
    const HostValue null{};
    const HostValue noAddress = owned(nullptr, 2);

    using Entries = std::vector<std::pair<const char*, HostValue>>;
    const Entries routed = {{"serviceName", text(kService)}, {"methodName", owned("probe", 5)}};
    auto with = [&](Entries extra) {
        Entries all = routed;
        all.insert(all.end(), extra.begin(), extra.end());
        return all;
    };
    const Entries cases[] = {
        // NOLINTNEXTLINE(bugprone-string-literal-with-embedded-nul): a NUL inside the payload
        with({{"uuid", text("u1")}, {"payload", owned("{\"a\":\0}", 7)}, {"status", text("OK")}}),
        with({{"payload", text("first")}, {"payload", text("last")}, {"error", owned(nullptr, 0)}}),
        with({{"payload", text("dropped")}, {"payload", null}, {"status", null}}),
        with({{"extra", number}, {"payload", text("{}")}}),
        with({{"status", number}}),
        with({{"extra", noAddress}}),
        with({{nullptr, text("keyless")}}),
    };
    for (const Entries& entries : cases) {
        std::vector<HostObjectEntry> objectEntries;
        for (const auto& [key, value] : entries) {
            HostObjectEntry entry{};
            entry.key = key;
            entry.value = value;
            objectEntries.push_back(entry);
        }
        HostValue object{};
        object.type = kHostValueObject;
        object.payload.span.address = objectEntries.data();
        object.payload.span.length = static_cast<uint32_t>(objectEntries.size());

        Maybe<PluginServiceProxyResponse> expected = Failure("not a value");
        if (Maybe<BindingProperty> value = FromHostValue(object, "<result>")) {
            expected = ConvertFromProperty<PluginServiceProxyResponse>(Module().Registry(), *value,
                                                                       "<result>");
        }
        received = PluginServiceProxyResponse{};
        calls = 0;
        host_.DeliverRaw("OnServiceProxyAsyncEvent", object);
        const std::string label = std::to_string(&entries - cases);
        ASSERT_EQ(calls, expected ? 1 : 0) << label;
        if (expected) {
            EXPECT_EQ((Strings{received.uuid, received.serviceName, received.methodName,
                               received.payload, received.status, received.error}),
                      (Strings{expected->uuid, expected->serviceName, expected->methodName,
                               expected->payload, expected->status, expected->error}))
                << label;
        }
    }
}

TEST_F(ServiceProxyClientTest, ConcurrentPluginCallsCountUpAndDownInCompletionOrder) {
    Maybe<TestSession> inner = Failure("not run");
    bool started = false;  // the host copies its hooks: the flag lives out here
    host_.OnTurn([&] {
        if (!std::exchange(started, true)) {
            // While the first call waits: both answers, a pushed message
            // whose handler sends a request of its own, and the second call.
            host_.Emit("OnServiceProxyUuidEvent", Answer("u1", "r", R"({"counter": 1})"));
            host_.Emit("OnServiceProxyUuidEvent", Answer("u2", "r", R"({"counter": 2})"));
            host_.Emit("OnServiceProxyAsyncEvent", Answer("", "tbdGameDtoV1", "{}"));
            inner = Module().teamBuilder.Call<TestSession>("updateActionV1", TestSession{"a", 1});
        }
    });
    Strings sentFromHandler;
    Module().RegisterServiceProxyHandler<TestSession>(
        kService, "tbdGameDtoV1", [&](const TestSession&) {
            sentFromHandler.push_back(Module().SendServiceProxyRequest(
                kService, "ack", BindingProperty(), "", "", [](const auto&) {}));
        });
    bool delayedRan = false;
    Module().ScheduleAt("later", AppModule::Clock::now(), [&] { delayedRan = true; });

    Maybe<RawResponse> outer = Module().teamBuilder.CallRaw("createDraftPremadeV1", int32_t{420});
    EXPECT_EQ(outer->payload.Field("counter").GetUnsigned(), 1u);
    EXPECT_EQ(inner->counter, 2);
    EXPECT_EQ(sentFromHandler, (Strings{""}));
    EXPECT_TRUE(delayedRan);
    EXPECT_EQ(Module().teamBuilder.CallsInProgress(), 0u);
    EXPECT_EQ(Logs("Concurrent"), (Strings{"3 qel-lobby-team-builder: Concurrent requests: 1",
                                           "3 qel-lobby-team-builder: Concurrent requests: 2",
                                           "3 qel-lobby-team-builder: Concurrent requests: 1",
                                           "3 qel-lobby-team-builder: Concurrent requests: 0"}));
}

TEST_F(ServiceProxyClientTest, RequestsOfAModuleBeingDestroyedFailWithFinalizing) {
    std::string sent = "not run";
    Module().onDestroy = [&](ServicesModule& module) {
        sent = module.SendServiceProxyRequest(
            kService, "quitV2", BindingProperty(), "", "",
            [](const PluginServiceProxyResponse&) { ADD_FAILURE() << "never called"; });
        module.InvokeServiceProxy(kService, "quitV2", BindingProperty(), "", "",
                                  [](const PluginServiceProxyResponse&) {});
    };
    host_.ClearCalls();
    host_.Destroy();
    EXPECT_EQ(sent, "Finalizing");
    EXPECT_TRUE(host_.Requests().empty());
    EXPECT_EQ(host_.CallsTo(5).at(0).Text(), "5(teambuilder-draft.quitV2, 0, 0)");
}

}  // namespace
}  // namespace Orvan::Testing
