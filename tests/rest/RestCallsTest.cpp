// REST calls to other plugins through the test host: arguments as the host
// sees them, inline and streamed replies, the four failures with their codes
// and parameters, the single release of every reply, and telemetry posts.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "framework/log/Log.h"
#include "framework/rest/TelemetryAdapter.h"
#include "tests/serviceproxy/support/ServicesModule.h"

namespace Orvan::Testing {
namespace {

using namespace Orvan::Framework;
using Strings = std::vector<std::string>;

// A record nobody registered: it cannot become a value.
struct Unregistered {
    int32_t x = 0;
};

class RestCallsTest : public ::testing::Test {
protected:
    void SetUp() override {
        host_.LoadWith(&LoadServicesModule);
        ASSERT_TRUE(host_.Start(7));
        host_.ClearCalls();
    }
    ServicesModule& Module() { return ServicesModuleOf(host_); }
    size_t Yields() const {
        size_t count = 0;
        for (const std::string& text : host_.CallTexts()) {
            count += text == "7(Wait: yield, 0)" ? 1 : 0;
        }
        return count;
    }

    TestHost host_;
};

TEST_F(RestCallsTest, PositionalArgumentsReachTheHostInOrder) {
    host_.OnRequest("POST", "/qel-gameflow/v1/session/event",
                    [](const TestHost::Request&) { return TestHost::Reply::Body({}); });
    const std::string text = "second";
    const Maybe<> sent = Module().Request(HttpMethod::Post, "/qel-gameflow/v1/session/event",
                                          "first", text, uint32_t{7}, int32_t{-3},
                                          SessionValue("Lobby", 2), TestSession{"Game", 4});
    ASSERT_TRUE(sent.HasValue());
    ASSERT_EQ(host_.Requests().size(), 1u);
    const TestHost::Request& request = host_.Requests()[0];
    EXPECT_EQ(request.method, 6u);
    EXPECT_EQ(request.pluginHandle, 7u);
    EXPECT_EQ(request.argumentNames, Strings(6, ""));
    EXPECT_EQ(host_.CallTexts()[0],
              "0(POST, /qel-gameflow/v1/session/event, "
              "[\"first\",\"second\",7,-3,{\"counter\":2,\"phase\":\"Lobby\"},"
              "{\"counter\":4,\"phase\":\"Game\"}])");
    EXPECT_EQ(host_.RepliesReleased(), 1u);
}

TEST_F(RestCallsTest, MethodCodesPassThroughAndNamedArgumentsTravelAsOneObject) {
    host_.OnRequest("*", "*", [](const TestHost::Request&) { return TestHost::Reply::Body({}); });
    for (uint32_t code : {1u, 2u, 7u, 8u, 9u, 0u}) {
        (void)Module().Request(static_cast<HttpMethod>(code), "/x");
    }
    ASSERT_TRUE(Module()
                    .RequestNamed(HttpMethod::Put, "/named",
                                  {{"b", BindingProperty(int64_t{1})}, {"a", BindingProperty("t")}})
                    .HasValue());
    std::vector<uint32_t> codes;
    for (const TestHost::Request& request : host_.Requests()) {
        codes.push_back(request.method);
    }
    EXPECT_EQ(codes, (std::vector<uint32_t>{1, 2, 7, 8, 0, 0, 7}));
    const TestHost::Request& named = host_.Requests().back();
    ASSERT_EQ(named.arguments.size(), 1u);
    EXPECT_EQ(named.argumentNames[0], "");
    EXPECT_EQ(named.arguments[0].Field("a").GetString(), "t");
    EXPECT_EQ(named.arguments[0].Field("b").GetSigned(), 1);
}

TEST_F(RestCallsTest, ValuesComeFromInlineAndStreamedBodies) {
    host_.OnRequest("GET", "/inline", [](const TestHost::Request&) {
        return TestHost::Reply::Body(SessionValue("Lobby", 3));
    });
    host_.OnRequest("GET", "/text", [](const TestHost::Request&) {
        return TestHost::Reply::Body(BindingProperty("uuid-1"));
    });
    host_.OnRequest("GET", "/streamed", [](const TestHost::Request&) {
        return TestHost::Reply::Stream(R"({"phase":"Game","counter":9})", {7});
    });
    Maybe<TestSession> inlined = Module().RequestValue<TestSession>(HttpMethod::Get, "/inline");
    ASSERT_TRUE(inlined.HasValue());
    EXPECT_EQ(inlined->phase, "Lobby");
    EXPECT_EQ(inlined->counter, 3);
    Maybe<std::string> text = Module().RequestValue<std::string>(HttpMethod::Get, "/text");
    ASSERT_TRUE(text.HasValue());
    EXPECT_EQ(*text, "uuid-1");
    Maybe<BindingProperty> streamed =
        Module().RequestValue<BindingProperty>(HttpMethod::Get, "/streamed");
    ASSERT_TRUE(streamed.HasValue());
    EXPECT_EQ(streamed->Field("counter").GetUnsigned(), 9u);
    EXPECT_TRUE(host_.Streams()[0]->closed);
    EXPECT_EQ(host_.RepliesReleased(), 3u);
}

TEST_F(RestCallsTest, FullReadsFollowEachOtherAndShortReadsWithMoreDataYieldOnce) {
    const std::string big = "\"" + std::string(4096 * 2 + 8, 'a') + "\"";  // 8202 bytes
    ASSERT_EQ(big.size(), 4096u * 2 + 10);
    host_.OnRequest("GET", "/big",
                    [&](const TestHost::Request&) { return TestHost::Reply::Stream(big); });
    host_.OnRequest("GET", "/trickle", [](const TestHost::Request&) {
        return TestHost::Reply::Stream("[" + std::string(198, ' ') + "1]", {100});  // 100, 100, 1
    });

    Maybe<std::string> value = Module().RequestValue<std::string>(HttpMethod::Get, "/big");
    ASSERT_TRUE(value.HasValue());
    EXPECT_EQ(value->size(), 4096u * 2 + 8);
    EXPECT_EQ(host_.Streams()[0]->reads, 3u);
    EXPECT_EQ(Yields(), 0u);

    host_.ClearCalls();
    Maybe<BindingProperty> list =
        Module().RequestValue<BindingProperty>(HttpMethod::Get, "/trickle");
    ASSERT_TRUE(list.HasValue());
    EXPECT_EQ(host_.Streams()[1]->reads, 3u);
    EXPECT_EQ(Yields(), 2u);
    EXPECT_EQ(host_.CallTexts(), (Strings{"0(GET, /trickle, [])", "7(Wait: yield, 0)", "6()", "8()",
                                          "7(Wait: yield, 0)", "6()", "8()"}));
}

TEST_F(RestCallsTest, EventsDeliveredDuringAStreamedReadReachTheModule) {
    Strings seen;
    Module().SetExactResourceHandler("/qel-login/v1/session",
                                     [&](const Resource& r) { seen.push_back(r.uri); });
    (void)Module().Subscribe("/qel-login/v1/session");
    host_.OnRequest("GET", "/slow", [&](const TestHost::Request&) {
        host_.EmitResource("/qel-login/v1/session", "Update", SessionValue("x", 1));
        return TestHost::Reply::Stream("[1, 2, 3]", {2});
    });
    Maybe<BindingProperty> list = Module().RequestValue<BindingProperty>(HttpMethod::Get, "/slow");
    ASSERT_TRUE(list.HasValue());
    EXPECT_EQ(list->Size(), 3u);
    EXPECT_EQ(seen, (Strings{"/qel-login/v1/session"}));
}

TEST_F(RestCallsTest, EveryFailureHasItsTextCodeAndParameters) {
    host_.OnRequest("GET", "/broken", [](const TestHost::Request&) {
        TestHost::Reply reply = TestHost::Reply::Stream(std::string(5000, ' ') + "1");
        reply.failAtRead = 2;
        return reply;
    });
    host_.OnRequest("GET", "/garbled",
                    [](const TestHost::Request&) { return TestHost::Reply::Stream("{\"a\":"); });
    host_.OnRequest("GET", "/word", [](const TestHost::Request&) {
        return TestHost::Reply::Body(BindingProperty("abc"));
    });

    struct Case {
        std::function<Maybe<>()> call;
        bool reachesHost;
        uint32_t code;
        std::string method, url, error;
        std::string message;
    };
    auto asVoid = [](auto maybe) -> Maybe<> {
        if (maybe) {
            return Maybe<>::Success();
        }
        return std::move(maybe).GetFailure();
    };
    const Case cases[] = {
        {[&] { return Module().Request(HttpMethod::Post, "/x", "a", Unregistered{}); }, false, 400,
         "POST", "/x", "Couldn't convert native value because it's an unregistered structure.",
         "Request not sent: Error converting parameters for POST /x: Couldn't convert native value "
         "because it's an unregistered structure."},
        {[&] { return Module().Request(HttpMethod::Get, "/qel-gameflow/v1/session"); }, true, 404,
         "GET", "/qel-gameflow/v1/session", "Not found",
         "Error response for GET /qel-gameflow/v1/session: Not found"},
        {[&] { return asVoid(Module().RequestValue<BindingProperty>(HttpMethod::Get, "/broken")); },
         true, 0, "GET", "/broken", "Stream read error",
         "Error reading streamed response for GET /broken: Stream read error"},
        {[&] {
             return asVoid(Module().RequestValue<BindingProperty>(HttpMethod::Get, "/garbled"));
         },
         true, 0, "GET", "/garbled", "Error: Invalid value. at offset 5.",
         "Error reading streamed response for GET /garbled: Error: Invalid value. at offset 5."},
        {[&] { return asVoid(Module().RequestValue<int32_t>(HttpMethod::Get, "/word")); }, true, 0,
         "GET", "/word", "Value abc for '<result>' of type int32 is in an incorrect format",
         "Error converting response for GET /word: Value abc for '<result>' of type int32 is in "
         "an incorrect format"},
        {[&] { return asVoid(Module().RequestValue<int32_t>(static_cast<HttpMethod>(8), "/f")); },
         true, 404, "", "/f", "Not found", "Error response for  /f: Not found"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        const size_t before = host_.Requests().size();
        const Maybe<> result = c.call();
        ASSERT_FALSE(result.HasValue());
        const Failure& failure = result.GetFailure();
        EXPECT_EQ(failure.message, c.message);
        EXPECT_EQ(failure.code, c.code);
        EXPECT_EQ(failure.parameters.Field("method_str").GetString(), c.method);
        EXPECT_EQ(failure.parameters.Field("url_str").GetString(), c.url);
        EXPECT_EQ(failure.parameters.Field("error_str").GetString(), c.error);
        EXPECT_EQ(failure.parameters.HasField("errorCode_int"), c.code != 0);
        EXPECT_EQ(host_.Requests().size() - before, c.reachesHost ? 1u : 0u);
        EXPECT_EQ(host_.RepliesReleased(), host_.RepliesGiven());
    }
    for (const auto& stream : host_.Streams()) {
        EXPECT_TRUE(stream->closed);
    }
}

TEST_F(RestCallsTest, TelemetryPostsTheNamedValuesAndHandsBackAFinishedFuture) {
    host_.OnRequest("POST", "/telemetry/v1/events/draft-started",
                    [](const TestHost::Request&) { return TestHost::Reply::Body({}); });
    std::future<Maybe<>> posted =
        Module().PostTelemetryEvent("draft-started", {{"queueId", BindingProperty(int64_t{420})}});
    ASSERT_EQ(posted.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    EXPECT_TRUE(posted.get().HasValue());
    ASSERT_EQ(host_.Requests().size(), 1u);
    EXPECT_EQ(host_.CallTexts()[0],
              "0(POST, /telemetry/v1/events/draft-started, [{\"queueId\":420}])");

    std::future<Maybe<>> refused = Module().PostTelemetryEvent("unknown", {});
    ASSERT_EQ(refused.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    Maybe<> outcome = refused.get();
    ASSERT_FALSE(outcome.HasValue());
    EXPECT_EQ(outcome.GetFailure().message,
              "Error response for POST /telemetry/v1/events/unknown: Not found");
}

}  // namespace
}  // namespace Orvan::Testing
