// REST calls to other plugins: arguments as the host sees them, inline and
// streamed replies, the four failures, the release of every reply, telemetry.
#include <chrono>
#include <functional>
#include <future>

#include "tests/serviceproxy/support/ServicesModule.h"

namespace Orvan::Testing {
namespace {

using RestCallsTest = ServicesTest;

TEST_F(RestCallsTest, ArgumentsGoPositionallyAndNamedOnesAsOneObject) {
    host_.OnRequest("POST", "/qel-gameflow/v1/session/event",
                    [](const TestHost::Request&) { return TestHost::Reply::Body({}); });
    const std::string text = "second";
    ASSERT_TRUE(Module()
                    .Request(HttpMethod::Post, "/qel-gameflow/v1/session/event", "first", text,
                             uint32_t{7}, int32_t{-3}, TestSession{"Game", 4})
                    .HasValue());
    (void)Module().Request(static_cast<HttpMethod>(9), "/x");  // no such method: code 0
    // Telemetry is a named-argument POST, answered by a finished future.
    auto refused =
        Module().PostTelemetryEvent("draft-started", {{"queueId", BindingProperty(int64_t{420})}});
    ASSERT_EQ(refused.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    EXPECT_EQ(refused.get().GetFailure().message,
              "Error response for POST /telemetry/v1/events/draft-started: Not found");
    EXPECT_EQ(host_.CallTexts(),
              (Strings{"0(POST, /qel-gameflow/v1/session/event, "
                       "[\"first\",\"second\",7,-3,{\"counter\":4,\"phase\":\"Game\"}])",
                       "0(, /x, [])",
                       "0(POST, /telemetry/v1/events/draft-started, [{\"queueId\":420}])"}));
    EXPECT_EQ(host_.Requests()[1].method, 0u);
    EXPECT_EQ(host_.Requests()[0].pluginHandle, 7u);
    EXPECT_EQ(host_.Requests()[0].argumentNames, Strings(5, ""));
    EXPECT_EQ(host_.RepliesReleased(), 3u);
}

TEST_F(RestCallsTest, StreamsAreReadInFullChunksAndYieldOnlyWhenAShortReadWantsMore) {
    const std::string big = "\"" + std::string(4096 * 2 + 8, 'a') + "\"";  // 4096 + 4096 + 10
    host_.OnRequest("GET", "/big",
                    [&](const TestHost::Request&) { return TestHost::Reply::Stream(big); });
    Maybe<std::string> value = Module().RequestValue<std::string>(HttpMethod::Get, "/big");
    ASSERT_TRUE(value.HasValue());
    EXPECT_EQ(value->size(), 4096u * 2 + 8);
    EXPECT_EQ(host_.Streams()[0]->reads, 3u);
    EXPECT_EQ(host_.CallTexts(), (Strings{"0(GET, /big, [])"}));

    // The host's turns deliver events to the module in the middle of a read.
    Strings seen;
    Module().SetExactResourceHandler("/qel-login/v1/session",
                                     [&](const Resource& r) { seen.push_back(r.uri); });
    (void)Module().Subscribe("/qel-login/v1/session");
    host_.OnRequest("GET", "/trickle", [&](const TestHost::Request&) {
        host_.EmitResource("/qel-login/v1/session", "Update", SessionValue("x", 1));
        return TestHost::Reply::Stream(R"({"phase":"Game","counter":9})", {12});  // 12, 12, 5
    });
    host_.ClearCalls();
    Maybe<TestSession> session = Module().RequestValue<TestSession>(HttpMethod::Get, "/trickle");
    ASSERT_TRUE(session.HasValue());
    EXPECT_EQ(session->counter, 9);
    EXPECT_EQ(seen, (Strings{"/qel-login/v1/session"}));
    EXPECT_EQ(host_.CallTexts(), (Strings{"0(GET, /trickle, [])", "7(Wait: yield, 0)", "6()", "8()",
                                          "7(Wait: yield, 0)", "6()", "8()"}));
    EXPECT_TRUE(host_.Streams()[1]->closed);
    EXPECT_EQ(host_.RepliesReleased(), 2u);
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
    auto get = [&](auto value, const char* url) -> Maybe<> {
        auto result = Module().RequestValue<decltype(value)>(HttpMethod::Get, url);
        return result ? Maybe<>::Success() : Maybe<>(std::move(result).GetFailure());
    };
    const struct {
        std::function<Maybe<>()> call;
        uint32_t code;
        std::string error, message;
    } cases[] = {
        {[&] { return Module().Request(HttpMethod::Post, "/x", "a", Unregistered{}); }, 400,
         "Couldn't convert native value because it's an unregistered structure.",
         "Request not sent: Error converting parameters for POST /x: Couldn't convert native value "
         "because it's an unregistered structure."},
        {[&] { return Module().Request(HttpMethod::Get, "/qel-gameflow/v1/session"); }, 404,
         "Not found", "Error response for GET /qel-gameflow/v1/session: Not found"},
        {[&] { return get(BindingProperty(), "/broken"); }, 0, "Stream read error",
         "Error reading streamed response for GET /broken: Stream read error"},
        {[&] { return get(BindingProperty(), "/garbled"); }, 0,
         "Error: Invalid value. at offset 5.",
         "Error reading streamed response for GET /garbled: Error: Invalid value. at offset 5."},
        {[&] { return get(int32_t{}, "/word"); }, 0,
         "Value abc for '<result>' of type int32 is in an incorrect format",
         "Error converting response for GET /word: Value abc for '<result>' of type int32 is in "
         "an incorrect format"},
    };
    for (const auto& c : cases) {
        const Maybe<> result = c.call();
        ASSERT_FALSE(result.HasValue()) << c.message;
        EXPECT_EQ(result.GetFailure().message, c.message);
        EXPECT_EQ(result.GetFailure().code, c.code);
        EXPECT_EQ(result.GetFailure().parameters.Field("error_str").GetString(), c.error);
    }
    const Maybe<> notFound = cases[1].call();
    const BindingProperty& parameters = notFound.GetFailure().parameters;
    EXPECT_EQ(parameters.Field("method_str").GetString(), "GET");
    EXPECT_EQ(parameters.Field("url_str").GetString(), "/qel-gameflow/v1/session");
    EXPECT_EQ(host_.Requests().size(), 5u);  // all but the one never sent
    EXPECT_EQ(host_.RepliesReleased(), 5u);
    EXPECT_TRUE(host_.Streams()[0]->closed && host_.Streams()[1]->closed);
}

}  // namespace
}  // namespace Orvan::Testing
