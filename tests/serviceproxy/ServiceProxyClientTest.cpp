// The service-proxy client through the test host: the login plugin's three
// endpoints, answers matched to waiting callers in either order, errors
// delivered on a later host turn, conversions of answers and pushed
// messages, the plugin's counted calls, and waits during which the host
// keeps delivering answers, messages and delayed calls.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include "tests/serviceproxy/support/ServicesModule.h"

namespace Orvan::Testing {
namespace {

using namespace Orvan::Framework;
using Strings = std::vector<std::string>;
using RawResponse = AppModule::ServiceProxyRawResponse;

struct Unregistered {
    int32_t x = 0;
};

constexpr const char* kUuidRequests = "/qel-login/v1/service-proxy-uuid-requests";
constexpr const char* kMethodRequests = "/qel-login/v1/service-proxy-method-requests";
constexpr const char* kService = "teambuilder-draft";

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

class ServiceProxyClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        host_.LoadWith(&LoadServicesModule);
        ASSERT_TRUE(host_.Start(7));
        // The login plugin numbers uuid requests u1, u2, ...
        host_.OnRequest("POST", kUuidRequests, [this](const TestHost::Request&) {
            return TestHost::Reply::Body(BindingProperty("u" + std::to_string(++uuids_)));
        });
        host_.OnRequest("POST", kMethodRequests,
                        [](const TestHost::Request&) { return TestHost::Reply::Body({}); });
        host_.OnRequest("POST", "/qel-login/v1/service-proxy-async-requests/*",
                        [](const TestHost::Request&) { return TestHost::Reply::Body({}); });
        host_.ClearCalls();
    }
    ServicesModule& Module() { return ServicesModuleOf(host_); }
    Strings LogTexts() const {
        Strings texts;
        for (const TestHost::LogLine& line : host_.Logs()) {
            texts.push_back(std::to_string(line.level) + " " + line.text);
        }
        return texts;
    }
    void DeliverUuidAnswer(const BindingProperty& answer) {
        host_.Deliver("OnServiceProxyUuidEvent", answer);
    }

    TestHost host_;
    int uuids_ = 0;
};

TEST_F(ServiceProxyClientTest, UuidRequestPostsItsArgumentsAndMatchesTheAnswer) {
    std::future<Maybe<RawResponse>> future =
        Module().CallServiceProxyRaw(kService, "createDraftPremadeV1", int32_t{420});
    ASSERT_EQ(host_.Requests().size(), 1u);
    EXPECT_EQ(host_.CallTexts()[1],
              "0(POST, /qel-login/v1/service-proxy-uuid-requests, "
              "[\"teambuilder-draft\",\"createDraftPremadeV1\",7,\"420\"])");
    EXPECT_FALSE(IsReady(future));

    DeliverUuidAnswer(Answer("u1", "tbdGameDtoV1", R"({"counter": 3})"));
    ASSERT_TRUE(IsReady(future));
    Maybe<RawResponse> response = future.get();
    ASSERT_TRUE(response.HasValue());
    EXPECT_EQ(response->methodName, "tbdGameDtoV1");
    EXPECT_EQ(response->status, "OK");
    EXPECT_EQ(response->payload.Field("counter").GetUnsigned(), 3u);
    EXPECT_EQ(DescribeServiceProxyResponse(response), "methodName=tbdGameDtoV1, status=OK");
    EXPECT_EQ(LogTexts(),
              (Strings{"3 qel-lobby-team-builder: Preparing service proxy request: "
                       "teambuilder-draft.createDraftPremadeV1",
                       "3 qel-lobby-team-builder: Started service proxy request: "
                       "teambuilder-draft.createDraftPremadeV1 (u1)",
                       "3 qel-lobby-team-builder: Fulfilled service proxy request: u1"}));

    // A second answer for the same uuid finds nobody waiting.
    DeliverUuidAnswer(Answer("u1", "tbdGameDtoV1", "{}"));
    EXPECT_EQ(host_.Logs().size(), 3u);
}

TEST_F(ServiceProxyClientTest, AnAnswerArrivingBeforeItsUuidIsKnownIsDeliveredOnRegistration) {
    host_.OnRequest("POST", kUuidRequests, [this](const TestHost::Request&) {
        // The service answers while the POST has not returned yet.
        DeliverUuidAnswer(Answer("early", "pickSkinV2", "[1]"));
        DeliverUuidAnswer(Answer("other", "pickSkinV2", "[2]"));
        return TestHost::Reply::Body(BindingProperty("early"));
    });
    std::future<Maybe<RawResponse>> future =
        Module().CallServiceProxyRaw(kService, "pickSkinV2", BindingProperty());
    ASSERT_TRUE(IsReady(future));
    Maybe<RawResponse> response = future.get();
    ASSERT_TRUE(response.HasValue());
    EXPECT_EQ(response->payload.Element(0).GetUnsigned(), 1u);

    // The other answer waits for its own caller.
    host_.OnRequest("POST", kUuidRequests, [](const TestHost::Request&) {
        return TestHost::Reply::Body(BindingProperty("other"));
    });
    std::future<Maybe<RawResponse>> second =
        Module().CallServiceProxyRaw(kService, "pickSkinV2", BindingProperty());
    ASSERT_TRUE(IsReady(second));
    EXPECT_EQ(second.get()->payload.Element(0).GetUnsigned(), 2u);
}

TEST_F(ServiceProxyClientTest, MethodRequestsWaitUnderTheirResponseKeyOneAtATime) {
    std::future<Maybe<RawResponse>> first = Module().CallServiceProxyRaw(
        kService, "retrieveFeatureToggles", BindingProperty(), "featureTogglesRetrieved", "extra");
    EXPECT_EQ(host_.CallTexts()[1],
              "0(POST, /qel-login/v1/service-proxy-method-requests, "
              "[\"teambuilder-draft\",\"retrieveFeatureToggles\",\"featureTogglesRetrieved\","
              "\"extra\",7,\"\"])");
    std::future<Maybe<RawResponse>> second = Module().CallServiceProxyRaw(
        kService, "retrieveFeatureToggles", BindingProperty(), "featureTogglesRetrieved", "");
    EXPECT_EQ(host_.Requests().size(), 1u);
    EXPECT_EQ(LogTexts().back(),
              "2 qel-lobby-team-builder: Could not invoke service proxy as request is already "
              "in flight");
    // The refusal comes on a later host turn, never from inside the call.
    EXPECT_FALSE(IsReady(second));
    EXPECT_EQ(host_.CallsTo(5).back().Text(), "5(teambuilder-draft.retrieveFeatureToggles, 0, 0)");
    host_.Pump();
    ASSERT_TRUE(IsReady(second));
    Maybe<RawResponse> refused = second.get();
    ASSERT_FALSE(refused.HasValue());
    EXPECT_EQ(refused.GetFailure().message, "Request already in flight");
    EXPECT_EQ(refused.GetFailure().code, 0u);

    host_.Deliver("OnServiceProxyMethodEvent",
                  Answer("", "featureTogglesRetrieved", R"({"enabled": true})"));
    ASSERT_TRUE(IsReady(first));
    EXPECT_TRUE(first.get()->payload.Field("enabled").GetBool());

    // uuid-based requests of one method never collide.
    auto a = Module().CallServiceProxyRaw(kService, "quitV2", BindingProperty());
    auto b = Module().CallServiceProxyRaw(kService, "quitV2", BindingProperty());
    host_.Pump();
    EXPECT_FALSE(IsReady(a));
    EXPECT_FALSE(IsReady(b));
    EXPECT_EQ(host_.Requests().size(), 3u);
}

TEST_F(ServiceProxyClientTest, AnswersAndPayloadsThatDoNotConvertBecomeTheSpecifiedFailures) {
    const std::string rawType = StaticType::Of<BindingProperty>().name;
    const std::string sessionType = StaticType::Of<TestSession>().name;
    struct Case {
        BindingProperty answer;
        bool typed;
        std::string message;
    };
    const Case cases[] = {
        {Answer("", "m", ""), false, "Failed to deserialize response payload \"\" to a " + rawType},
        {Answer("", "m", " \n"), true,
         "Failed to deserialize response payload \" \n\" to a " + sessionType},
        {Answer("", "m", "{\"phase\":"), false,
         "Failed to deserialize response payload \"{\"phase\":\" to a " + rawType},
        {Answer("", "m", R"({"phase": 5})"), true,
         "Failed to deserialize response payload \"{\"phase\": 5}\" to a " + sessionType},
        {Answer("", "m", "[]"), true,
         "Failed to deserialize response payload \"[]\" to a " + sessionType},
        {Answer("", "m", "{}", "Service unavailable"), false, "Service unavailable"},
        {Answer("", "m", "{}", "Timed out"), true, "Timed out"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        Maybe<> result = Maybe<>::Success();
        if (c.typed) {
            auto future = Module().CallServiceProxy<TestSession>(kService, "m", BindingProperty());
            DeliverUuidAnswer([&] {
                BindingProperty answer = c.answer;
                answer.MutableField("uuid").SetString("u" + std::to_string(uuids_));
                return answer;
            }());
            ASSERT_TRUE(IsReady(future));
            Maybe<TestSession> value = future.get();
            ASSERT_FALSE(value.HasValue());
            result = std::move(value).GetFailure();
        } else {
            auto future = Module().CallServiceProxyRaw(kService, "m", BindingProperty());
            BindingProperty answer = c.answer;
            answer.MutableField("uuid").SetString("u" + std::to_string(uuids_));
            DeliverUuidAnswer(answer);
            ASSERT_TRUE(IsReady(future));
            Maybe<RawResponse> value = future.get();
            ASSERT_FALSE(value.HasValue());
            result = std::move(value).GetFailure();
        }
        EXPECT_EQ(result.GetFailure().message, c.message);
        EXPECT_EQ(result.GetFailure().code, 0u);
    }
}

TEST_F(ServiceProxyClientTest, SendFailuresReachTheCallerOnALaterTurn) {
    const std::string typeName = StaticType::Of<Unregistered>().name;
    auto unconvertible = Module().CallServiceProxyRaw(kService, "m", Unregistered{});
    host_.OnRequest("POST", kUuidRequests, [](const TestHost::Request&) {
        return TestHost::Reply::Error(503, "login down");
    });
    auto refused = Module().CallServiceProxy<TestSession>(kService, "m", BindingProperty());
    std::string sent = Module().SendServiceProxyRequest(
        kService, "m", BindingProperty(), "", "",
        [](const PluginServiceProxyResponse&) { ADD_FAILURE() << "never called"; });
    EXPECT_EQ(sent,
              "Error response for POST /qel-login/v1/service-proxy-uuid-requests: login down");
    EXPECT_FALSE(IsReady(unconvertible));
    EXPECT_FALSE(IsReady(refused));

    host_.Pump();
    ASSERT_TRUE(IsReady(unconvertible));
    EXPECT_EQ(unconvertible.get().GetFailure().message,
              "Failed to convert type " + typeName + " to BindingProperty for serialization");
    ASSERT_TRUE(IsReady(refused));
    EXPECT_EQ(refused.get().GetFailure().message,
              "Error response for POST /qel-login/v1/service-proxy-uuid-requests: login down");
}

TEST_F(ServiceProxyClientTest, PushedMessagesReachTheirHandlersOrAreDropped) {
    std::vector<int32_t> counters;
    Strings raw;
    Module().RegisterServiceProxyHandler<TestSession>(
        kService, "tbdGameDtoV1", [&](const TestSession& dto) { counters.push_back(dto.counter); });
    Module().RegisterServiceProxyHandler(
        kService, "gameStartFailedV1",
        [&](const PluginServiceProxyResponse& message) { raw.push_back(message.payload); });
    EXPECT_EQ(host_.CallTexts()[0],
              "0(POST, /qel-login/v1/service-proxy-async-requests/teambuilder-draft/tbdGameDtoV1, "
              "[7])");

    host_.ClearCalls();
    host_.Emit("OnServiceProxyAsyncEvent", Answer("", "tbdGameDtoV1", R"({"counter": 4})"));
    host_.Emit("OnServiceProxyAsyncEvent", Answer("", "tbdGameDtoV1", R"({"counter": "x"})"));
    host_.Emit("OnServiceProxyAsyncEvent", Answer("", "tbdGameDtoV1", "not json"));
    host_.Emit("OnServiceProxyAsyncEvent", Answer("", "tbdGameDtoV1", ""));
    host_.Emit("OnServiceProxyAsyncEvent", Answer("", "gameStartFailedV1", ""));
    host_.Emit("OnServiceProxyAsyncEvent", Answer("", "unknownV1", "{}"));
    BindingProperty missingFields;
    missingFields.MutableField("methodName").SetString("tbdGameDtoV1");
    host_.Emit("OnServiceProxyAsyncEvent", missingFields);
    host_.Emit("OnServiceProxyAsyncEvent", BindingProperty("no record"));
    host_.Pump();
    EXPECT_EQ(counters, (std::vector<int32_t>{4}));
    EXPECT_EQ(raw, (Strings{""}));
    EXPECT_EQ(LogTexts(),
              (Strings{"2 qel-lobby-team-builder: Could not find registered handler for async "
                       "service proxy event teambuilder-draft.unknownV1",
                       "2 qel-lobby-team-builder: Could not find registered handler for async "
                       "service proxy event .tbdGameDtoV1"}));
}

TEST_F(ServiceProxyClientTest, StrayAnswersNeverAnswerAWaitingCallerTwice) {
    int calls = 0;
    ASSERT_EQ(Module().SendServiceProxyRequest(kService, "m", BindingProperty(), "reply", "",
                                               [&](const PluginServiceProxyResponse&) { ++calls; }),
              "");
    BindingProperty noService;
    noService.MutableField("methodName").SetString("reply");
    host_.Deliver("OnServiceProxyMethodEvent", noService);        // key ".reply"
    host_.Deliver("OnServiceProxyUuidEvent", BindingProperty());  // not a record
    host_.Deliver("OnServiceProxyUuidEvent", Answer("", "reply", "{}"));
    EXPECT_EQ(calls, 0);
    host_.Deliver("OnServiceProxyMethodEvent", Answer("", "reply", "{}"));
    host_.Deliver("OnServiceProxyMethodEvent", Answer("", "reply", "{}"));
    EXPECT_EQ(calls, 1);
}

TEST_F(ServiceProxyClientTest, ConcurrentPluginCallsCountUpAndDownInCompletionOrder) {
    bool nested = false;
    Maybe<TestSession> inner = Failure("not run");
    host_.OnTurn([&] {
        if (nested) {
            return;
        }
        nested = true;
        // While the first call waits: its answer and the second call's come
        // in, a pushed message whose handler sends a request of its own, and
        // a delayed call.
        host_.Emit("OnServiceProxyUuidEvent", Answer("u1", "tbdGameDtoV1", R"({"counter": 1})"));
        host_.Emit("OnServiceProxyUuidEvent", Answer("u2", "tbdGameDtoV1", R"({"counter": 2})"));
        host_.Emit("OnServiceProxyAsyncEvent", Answer("", "tbdGameDtoV1", R"({"counter": 3})"));
        inner = Module().teamBuilder.Call<TestSession>("updateActionV1", TestSession{"a", 1});
    });
    Strings pushed;
    Module().RegisterServiceProxyHandler<TestSession>(
        kService, "tbdGameDtoV1", [&](const TestSession&) {
            pushed.push_back(Module().SendServiceProxyRequest(kService, "ack", BindingProperty(),
                                                              "", "", [](const auto&) {}));
        });
    bool delayedRan = false;
    Module().ScheduleAt("later", AppModule::Clock::now(), [&] { delayedRan = true; });
    host_.ClearCalls();

    EXPECT_EQ(Module().teamBuilder.CallsInProgress(), 0u);
    Maybe<AppModule::ServiceProxyRawResponse> outer =
        Module().teamBuilder.CallRaw("createDraftPremadeV1", int32_t{420});
    ASSERT_TRUE(outer.HasValue());
    EXPECT_EQ(outer->payload.Field("counter").GetUnsigned(), 1u);
    ASSERT_TRUE(inner.HasValue());
    EXPECT_EQ(inner->counter, 2);
    EXPECT_EQ(pushed, (Strings{""}));
    EXPECT_TRUE(delayedRan);
    EXPECT_EQ(Module().teamBuilder.CallsInProgress(), 0u);

    Strings counts;
    for (const std::string& line : LogTexts()) {
        if (line.find("Concurrent requests") != std::string::npos) {
            counts.push_back(line);
        }
    }
    EXPECT_EQ(counts, (Strings{"3 qel-lobby-team-builder: Concurrent requests: 1",
                               "3 qel-lobby-team-builder: Concurrent requests: 2",
                               "3 qel-lobby-team-builder: Concurrent requests: 1",
                               "3 qel-lobby-team-builder: Concurrent requests: 0"}));
}

TEST(ServiceProxyFinalizingTest, RequestsOfAModuleBeingDestroyedFailWithFinalizing) {
    TestHost host;
    host.LoadWith(&LoadServicesModule);
    ASSERT_TRUE(host.Start(7));
    std::string sent = "not run";
    ServicesModuleOf(host).onDestroy = [&](ServicesModule& module) {
        sent = module.SendServiceProxyRequest(
            kService, "quitV2", BindingProperty(), "", "",
            [](const PluginServiceProxyResponse&) { ADD_FAILURE() << "never called"; });
        module.InvokeServiceProxy(kService, "quitV2", BindingProperty(), "", "",
                                  [](const PluginServiceProxyResponse&) {});
    };
    host.ClearCalls();
    host.Destroy();
    EXPECT_EQ(sent, "Finalizing");
    EXPECT_TRUE(host.Requests().empty());
    ASSERT_EQ(host.CallsTo(5).size(), 1u);
    EXPECT_EQ(host.CallsTo(5)[0].Text(), "5(teambuilder-draft.quitV2, 0, 0)");
}

}  // namespace
}  // namespace Orvan::Testing
