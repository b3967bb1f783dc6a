// The host's ten entries, routing, event delivery, delayed calls and nested
// turns, driven through a small plugin linked into the test; the value
// conversion and URL templates on their own.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "host/Faults.h"
#include "host/HostJson.h"
#include "host/HostRuntime.h"
#include "host/PluginLibrary.h"
#include "host/UrlTemplate.h"

namespace Orvan::Host {
namespace {

// ---- A plugin linked into the test ----------------------------------------------------

struct FakeModule {
    ModuleCallbacks callbacks{};
    PluginApiDescriptor descriptor{};
    EndpointRecord endpoints[3]{};
    int contexts[3] = {0, 1, 2};
    HostApi* api = nullptr;
    uint32_t handle = 0;
    std::vector<std::string> events;  // "name payload"
    std::vector<std::string> delayedRuns;
    int releases = 0;
    bool destroyed = false;
    bool readyFlag = false;
    std::function<void(FakeModule&)> onStart;
};

FakeModule* gModule = nullptr;

std::string Json(const HostValue& value) {
    std::string json, error;
    EXPECT_TRUE(HostValueToJson(value, json, error)) << error;
    return json;
}

void QEL_HOST_CALL OnEvent(HostEvent* event) {
    auto* module = static_cast<FakeModule*>(event->context);
    module->events.push_back(std::string(event->name) + " " + Json(event->payload));
    if (std::string(event->name) == "Ready") {
        module->readyFlag = true;
    }
}

void QEL_HOST_CALL ReleaseFake(HostResponse* reply) {
    ++gModule->releases;
    FreeHostValue(reply->body);
    std::free(const_cast<char*>(reply->errorText));
}

void Reply(HostResponse* reply, const std::string& json) {
    std::string error;
    ASSERT_TRUE(JsonToHostValue(json, reply->body, error)) << error;
    reply->status = 200;
    reply->release = &ReleaseFake;
}

void QEL_HOST_CALL Dispatch(HostResponse* reply, HostRequest* request) {
    FakeModule& module = *gModule;
    const int which = *static_cast<int*>(request->dispatchContext);
    if (which == 0) {
        // Echo what arrived.
        std::string header = request->headerCount > 0 ? request->headers[0].value : "";
        const bool terminated =
            request->body == nullptr || request->body[request->bodyLength] == '\0';
        Reply(reply,
              "{\"uri\":" + QuoteJson(request->uri) + ",\"body\":" +
                  QuoteJson(request->body != nullptr
                                ? std::string(reinterpret_cast<const char*>(request->body),
                                              request->bodyLength)
                                : "") +
                  ",\"type\":" + QuoteJson(request->contentType ? request->contentType : "") +
                  ",\"terminated\":" + (terminated ? "true" : "false") +
                  ",\"arguments\":" + std::to_string(request->argumentCount) +
                  ",\"header\":" + QuoteJson(header) + "}");
        return;
    }
    if (which == 1) {
        // Ask a stand-in, then wait for the event it sends later.
        HostArgument argument{};
        std::string error;
        JsonToHostValue("\"hello\"", argument.value, error);
        HostRequest call{};
        call.method = kHostMethodPost;
        call.uri = "/stand/echo";
        call.arguments = &argument;
        call.argumentCount = 1;
        call.pluginHandle = module.handle;
        HostResponse answer{};
        module.api->Request(module.api, &answer, &call);
        const std::string echoed = Json(answer.body);
        answer.release(&answer);
        FreeHostValue(argument.value);
        module.api->BeginWait(module.api, "Wait: test", 0);
        for (int i = 0; i < 1000 && !module.readyFlag; ++i) {
            module.api->ServeOnce(module.api);
        }
        const uint64_t turns = module.api->EndWait(module.api);
        Reply(reply, "{\"echoed\":" + echoed +
                         ",\"ready\":" + (module.readyFlag ? "true" : "false") +
                         ",\"turns\":" + std::to_string(turns) + "}");
        return;
    }
    Reply(reply, "\"help text\"");
}

uint8_t QEL_HOST_CALL StartFake(void* module, HostLink* link) {
    auto* fake = static_cast<FakeModule*>(module);
    fake->api = link->api;
    fake->handle = link->pluginHandle;
    if (fake->onStart) {
        fake->onStart(*fake);
    }
    return 1;
}

void QEL_HOST_CALL DestroyFake(void* module) {
    static_cast<FakeModule*>(module)->destroyed = true;
}

void QEL_HOST_CALL MemoryFake(void*, uint32_t* out) {
    for (uint32_t i = 0; i < kMemoryStatisticsWords; ++i) {
        out[i] = i < 12 ? i + 1 : 0;
    }
}

void QEL_HOST_CALL FakeEntry(PluginLoadRecord* record) {
    FakeModule& module = *gModule;
    module.callbacks = ModuleCallbacks{&StartFake, &DestroyFake, &MemoryFake};
    const char* templates[3] = {"/fake/v1/items/{id}", "/fake/v1/wait", ""};
    const uint32_t methods[3] = {kHostMethodGet, kHostMethodPost, kHostMethodDirectCall};
    const char* names[3] = {"GetFakeV1ItemsById", "PostFakeV1Wait", "Help"};
    for (int i = 0; i < 3; ++i) {
        EndpointRecord& endpoint = module.endpoints[i];
        endpoint.function.name = names[i];
        endpoint.function.dispatchContext = &module.contexts[i];
        endpoint.dispatch = &Dispatch;
        endpoint.urlTemplate = templates[i];
        endpoint.method = methods[i];
    }
    module.descriptor.endpoints = module.endpoints;
    module.descriptor.endpointCount = 3;
    record->callbacks = &module.callbacks;
    record->module = &module;
    record->shortName = "fake";
    record->apiDescriptor = &module.descriptor;
}

class HostRuntimeTest : public ::testing::Test {
protected:
    void SetUp() override { gModule = &module_; }
    void TearDown() override { gModule = nullptr; }

    uint32_t Load() {
        std::string error;
        library_ = PluginLibrary::FromEntry(&FakeEntry, "fake", PluginLoadOptions{}, error);
        EXPECT_NE(library_, nullptr) << error;
        plugin_ = runtime_.Attach(*library_);
        EXPECT_TRUE(runtime_.Start(plugin_));
        return plugin_;
    }

    FakeModule module_;
    // The library outlives the runtime, which destroys the module it started.
    std::unique_ptr<PluginLibrary> library_;
    HostClock clock_{0.0};
    HostRuntime runtime_{clock_};
    uint32_t plugin_ = 0;
};

TEST_F(HostRuntimeTest, DeliversEventsOnTheNextTurnToMatchingNamesWithTheirContext) {
    module_.onStart = [](FakeModule& m) {
        m.api->RegisterEvent(m.api, "OnJsonApiEvent_qel-gameflow_*", m.handle, &OnEvent, &m, 0);
        m.api->RegisterEvent(m.api, "Exact", m.handle, &OnEvent, &m, 1);
    };
    Load();
    EXPECT_EQ(runtime_.Registrations(plugin_).at("Exact"), 1u);
    runtime_.Emit("Exact", "{\"a\":[1,-2,2.5,\"x\",null,true]}");
    runtime_.Emit("OnJsonApiEvent_qel-gameflow_v1_session", "7");
    runtime_.Emit("Other", "1");
    EXPECT_TRUE(module_.events.empty()) << "nothing before a turn";
    EXPECT_TRUE(runtime_.Turn());
    ASSERT_EQ(module_.events.size(), 2u);
    EXPECT_EQ(module_.events[0], "Exact {\"a\":[1,-2,2.5,\"x\",null,true]}");
    EXPECT_EQ(module_.events[1], "OnJsonApiEvent_qel-gameflow_v1_session 7");

    module_.api->UnregisterEvent(module_.api, "Exact", plugin_);
    runtime_.Emit("Exact", "1");
    runtime_.Turn();
    EXPECT_EQ(module_.events.size(), 2u);
}

TEST_F(HostRuntimeTest, ResourcesOfStandInsAnnounceCreateUpdateAndDelete) {
    module_.onStart = [](FakeModule& m) {
        m.api->RegisterEvent(m.api, "OnJsonApiEvent_qel-login_v1_session", m.handle, &OnEvent, &m,
                             0);
    };
    Load();
    runtime_.PutResource("login", "/qel-login/v1/session", "{\"connected\":false}");
    runtime_.PutResource("login", "/qel-login/v1/session", "{\"connected\":true}");
    runtime_.DeleteResource("/qel-login/v1/session");
    runtime_.Turn();
    ASSERT_EQ(module_.events.size(), 3u);
    EXPECT_NE(module_.events[0].find("\"eventType\":\"Create\""), std::string::npos);
    EXPECT_NE(module_.events[1].find("\"eventType\":\"Update\",\"data\":{\"connected\":true}"),
              std::string::npos);
    EXPECT_NE(module_.events[2].find("\"eventType\":\"Delete\",\"data\":null"), std::string::npos);
    EXPECT_FALSE(runtime_.Resource("/qel-login/v1/session").has_value());
}

TEST_F(HostRuntimeTest, DelayedCallsRunInDueOrderAndNeverInTheTurnThatScheduledThem) {
    static std::vector<std::string>* runs = nullptr;
    runs = &module_.delayedRuns;
    module_.onStart = [](FakeModule& m) {
        auto call = [](void* label) { runs->push_back(static_cast<const char*>(label)); };
        m.api->ScheduleCall(m.api, "late", call, const_cast<char*>("late"), 2.0, 0);
        m.api->ScheduleCall(m.api, "first", call, const_cast<char*>("first"), 1.0, 0);
        m.api->ScheduleCall(m.api, "second", call, const_cast<char*>("second"), 1.0, 0);
        m.api->ScheduleCall(m.api, "negative", call, const_cast<char*>("now"), -5.0, 0);
    };
    Load();
    runtime_.Turn();
    EXPECT_EQ(module_.delayedRuns, std::vector<std::string>{"now"});
    runtime_.RunFor(1.5);
    EXPECT_EQ(module_.delayedRuns, (std::vector<std::string>{"now", "first", "second"}));
    // A task that schedules another at once leaves it to the next turn.
    int depth = 0;
    runtime_.After(0.0, "outer", [&] { runtime_.After(0.0, "inner", [&] { depth = 2; }); });
    runtime_.Turn();
    EXPECT_EQ(depth, 0);
    runtime_.Turn();
    EXPECT_EQ(depth, 2);
    runtime_.RunFor(5.0);
    EXPECT_EQ(module_.delayedRuns.back(), "late");
    EXPECT_EQ(runtime_.Counters(plugin_)->delayedCalls, 4u);
}

TEST_F(HostRuntimeTest, AWaitingEndpointLetsTheWorldRunThroughNestedTurns) {
    module_.onStart = [](FakeModule& m) {
        m.api->RegisterEvent(m.api, "Ready", m.handle, &OnEvent, &m, 0);
    };
    Load();
    runtime_.AddRoute("stand", kHostMethodPost, "/stand/echo",
                      [this](const RestRequest& request, const PathParameters&) {
                          EXPECT_EQ(request.caller, plugin_);
                          runtime_.After(2.0, "ready", [this] { runtime_.Emit("Ready", "{}"); });
                          return RestReply::Json("{\"said\":" + request.Argument(0) + "}");
                      });
    RestRequest request;
    request.method = kHostMethodPost;
    request.uri = "/fake/v1/wait";
    const RestReply reply = runtime_.Route(request);
    ASSERT_TRUE(reply.Ok()) << reply.error;
    EXPECT_EQ(reply.answeredBy, "fake");
    EXPECT_NE(reply.body.find("\"echoed\":{\"said\":\"hello\"}"), std::string::npos);
    EXPECT_NE(reply.body.find("\"ready\":true"), std::string::npos);
    EXPECT_GE(runtime_.Now(), 2.0) << "the idle host moved its clock to the due event";
    EXPECT_EQ(module_.releases, 1);
}

TEST_F(HostRuntimeTest, OutsideRequestsReachEndpointsWithBodyHeadersAndPathTemplates) {
    Load();
    RestRequest request;
    request.method = kHostMethodGet;
    request.uri = "/fake/v1/items/a%20b?x=1";
    request.hasBody = true;
    request.body = "{\"k\":1}";
    request.contentType = "application/json";
    request.headers = {{"x-test", "yes"}};
    request.arguments = {{"", "5"}, {"named", "\"v\""}};
    RestReply reply = runtime_.Route(request);
    ASSERT_TRUE(reply.Ok()) << reply.error;
    EXPECT_EQ(reply.body,
              "{\"uri\":\"/fake/v1/items/a%20b?x=1\",\"body\":\"{\\\"k\\\":1}\",\"type\":"
              "\"application/json\",\"terminated\":true,\"arguments\":2,\"header\":\"yes\"}");

    request = RestRequest{};
    request.method = kHostMethodDirectCall;
    request.functionName = "Help";
    EXPECT_EQ(runtime_.Route(request).body, "\"help text\"");
    EXPECT_EQ(module_.releases, 2);

    struct Case {
        uint32_t method;
        const char* uri;
        const char* error;
    };
    for (const Case& c :
         {Case{kHostMethodGet, "/fake/v1/items/1/2", "No endpoint for GET /fake/v1/items/1/2"},
          Case{kHostMethodPost, "/fake/v1/items/1", "No endpoint for POST /fake/v1/items/1"},
          Case{kHostMethodGet, "/elsewhere", "No endpoint for GET /elsewhere"}}) {
        request = RestRequest{};
        request.method = c.method;
        request.uri = c.uri;
        reply = runtime_.Route(request);
        EXPECT_EQ(reply.status, 404) << c.uri;
        EXPECT_EQ(reply.error, c.error);
    }
    request = RestRequest{};
    request.method = kHostMethodGet;
    request.uri = "/fake/v1/items/1";
    request.arguments = {{"", "{broken"}};
    reply = runtime_.Route(request);
    EXPECT_EQ(reply.status, 400);
    EXPECT_EQ(module_.releases, 2) << "a request whose argument is not JSON never reaches it";
}

TEST_F(HostRuntimeTest, PluginRequestsGetRepliesTheyRelease) {
    Load();
    runtime_.AddRoute(
        "stand", kHostMethodGet, "/stand/{what}",
        [](const RestRequest&, const PathParameters& parameters) {
            return RestReply::Json("{\"what\":" + QuoteJson(parameters.at("what")) + "}");
        });
    HostRequest call{};
    call.method = kHostMethodGet;
    call.uri = "/stand/thing";
    HostResponse reply{};
    module_.api->Request(module_.api, &reply, &call);
    // Packed fields are read through copies: no references to them.
    const char* replyError = reply.errorText;
    EXPECT_EQ(replyError, nullptr);
    EXPECT_EQ(Json(reply.body), "{\"what\":\"thing\"}");
    const HostResponseReleaseFunction release = reply.release;
    ASSERT_NE(release, nullptr);
    release(&reply);
    EXPECT_EQ(reply.body.type, static_cast<uint32_t>(kHostValueNull));

    call.uri = "/nowhere/at/all";
    HostResponse missing{};
    module_.api->Request(module_.api, &missing, &call);
    const uint16_t status = missing.status;
    EXPECT_EQ(status, 404);
    EXPECT_EQ(missing.failed, 1);
    EXPECT_STREQ(missing.errorText, "No endpoint for GET /nowhere/at/all");
    missing.release(&missing);
    const char* cleared = missing.errorText;
    EXPECT_EQ(cleared, nullptr);
}

TEST_F(HostRuntimeTest, DestroyDropsTheModulesCallsAndRegistrations) {
    static int ran = 0;
    module_.onStart = [](FakeModule& m) {
        m.api->RegisterEvent(m.api, "Any", m.handle, &OnEvent, &m, 0);
        m.api->ScheduleCall(
            m.api, "later", [](void*) { ++ran; }, nullptr, 1.0, 0);
    };
    Load();
    auto memory = runtime_.Memory(plugin_);
    ASSERT_TRUE(memory.has_value());
    EXPECT_EQ(memory->peakLiveBytes, 1u | (2ull << 32));
    EXPECT_EQ(memory->frees, 11u | (12ull << 32));
    runtime_.Destroy(plugin_);
    EXPECT_TRUE(module_.destroyed);
    EXPECT_TRUE(runtime_.Registrations(plugin_).empty());
    EXPECT_EQ(runtime_.ScheduledCalls(), 0u);
    runtime_.RunFor(2.0);
    EXPECT_EQ(ran, 0);
    EXPECT_FALSE(runtime_.Memory(plugin_).has_value());
}

TEST_F(HostRuntimeTest, AWaitWithNothingLeftToHappenIsReportedAsAStall) {
    Load();
    std::string stalled;
    runtime_.SetStallHandler([&](const std::string& why) { stalled = why; });
    module_.api->BeginWait(module_.api, "Wait: future<Nothing>", 0);
    module_.api->ServeOnce(module_.api);
    module_.api->EndWait(module_.api);
    EXPECT_NE(stalled.find("Wait: future<Nothing>"), std::string::npos) << stalled;
    EXPECT_NE(stalled.find("can never come"), std::string::npos) << stalled;

    // A yield only asks for a turn (a streamed read does it between short
    // reads); an idle world does not make it a stall.
    stalled.clear();
    module_.api->BeginWait(module_.api, "Wait: yield", 0);
    module_.api->ServeOnce(module_.api);
    module_.api->EndWait(module_.api);
    EXPECT_EQ(stalled, "");
}

// The plugin's requests fail, its replies break off, its events come twice
// or late and its delayed calls fire late, each as the plan asks.
TEST_F(HostRuntimeTest, FaultsReachThePluginThroughItsEntries) {
    Load();
    runtime_.AddRoute("stand", kHostMethodGet, "/stand",
                      [](const RestRequest&, const PathParameters&) {
                          return RestReply::Json(R"({"what":"a long enough answer to break off"})");
                      });
    FaultPlan plan;
    plan.share.fill(1.0);
    FaultInjector faults(plan, 1);
    runtime_.SetFaults(&faults);

    HostRequest call{};
    call.method = kHostMethodGet;
    call.uri = "/stand";
    HostResponse failed{};
    module_.api->Request(module_.api, &failed, &call);
    const uint16_t status = failed.status;
    EXPECT_EQ(status, 503);
    EXPECT_STREQ(failed.errorText, "The host could not complete the request (injected fault)");
    failed.release(&failed);

    plan.share[static_cast<size_t>(FaultKind::RequestFail)] = 0.0;
    FaultInjector streams(plan, 1);
    runtime_.SetFaults(&streams);
    HostResponse broken{};
    module_.api->Request(module_.api, &broken, &call);
    EXPECT_TRUE(broken.read != nullptr);
    EXPECT_TRUE(broken.errorText == nullptr);
    broken.release(&broken);

    // Every event twice, both late; the host's own subscribers hear them.
    std::vector<double> heard;
    runtime_.Subscribe(
        "OnTest", [&](const std::string&, const std::string&) { heard.push_back(runtime_.Now()); });
    const double start = runtime_.Now();
    runtime_.Emit("OnTest", "{}");
    runtime_.RunFor(5.0);
    ASSERT_EQ(heard.size(), 2u);
    EXPECT_GT(heard[1], start);
    EXPECT_EQ(streams.Count(FaultKind::DuplicateEvent), 1u);
    EXPECT_EQ(streams.Count(FaultKind::LateEvent), 1u);
    runtime_.SetFaults(nullptr);
}

// ---- Values and templates ---------------------------------------------------------------

TEST(HostJson, RoundTripsJsonThroughHostValues) {
    for (const char* json :
         {"null", "true", "0", "-9223372036854775808", "18446744073709551615", "1.5",
          "\"t\xC3\xA9xt\\\"\"", "[]", "{}", "[1,[2,[3]],{\"a\":{\"b\":[]}}]",
          "{\"x\":1,\"x2\":\"y\",\"z\":[true,false,null]}"}) {
        HostValueHolder value;
        std::string error, back;
        ASSERT_TRUE(JsonToHostValue(json, value.Get(), error)) << json << ": " << error;
        ASSERT_TRUE(HostValueToJson(value.Get(), back, error)) << json << ": " << error;
        EXPECT_EQ(back, json);
    }
}

TEST(HostJson, RefusesWhatCannotCross) {
    HostValueHolder value;
    std::string error;
    EXPECT_FALSE(JsonToHostValue("{\"a\":", value.Get(), error));
    EXPECT_NE(error.find("offset"), std::string::npos);
    EXPECT_EQ(value.Get().type, static_cast<uint32_t>(kHostValueNull));
    const std::string deep =
        std::string(kMaxValueDepth + 2, '[') + std::string(kMaxValueDepth + 2, ']');
    EXPECT_FALSE(JsonToHostValue(deep, value.Get(), error));
    EXPECT_NE(error.find("deeper"), std::string::npos);

    std::string json;
    HostValue unknown{};
    unknown.type = 11;
    EXPECT_FALSE(HostValueToJson(unknown, json, error));
    EXPECT_EQ(error, "unknown value type code 11");
    HostValue array{};
    array.type = kHostValueArray;
    array.payload.span.length = 3;
    EXPECT_FALSE(HostValueToJson(array, json, error));
    HostObjectEntry entry{};
    HostValue object{};
    object.type = kHostValueObject;
    object.payload.span.address = &entry;
    object.payload.span.length = 1;
    EXPECT_FALSE(HostValueToJson(object, json, error));
    EXPECT_EQ(error, "object entry without a key");
}

TEST(HostJson, ReadsUnownedTextsAndBytesAsBase64) {
    const char text[] = "plain";
    HostValue value{};
    value.type = kHostValueTextUnowned;
    value.payload.span.address = const_cast<char*>(text);
    std::string json, error;
    ASSERT_TRUE(HostValueToJson(value, json, error));
    EXPECT_EQ(json, "\"plain\"");
    const uint8_t bytes[] = {0xff, 0x00, 0x41, 0x42};
    value.type = kHostValueBytesUnowned;
    value.payload.span.address = const_cast<uint8_t*>(bytes);
    value.payload.span.length = 4;
    ASSERT_TRUE(HostValueToJson(value, json, error));
    EXPECT_EQ(json, "\"/wBBQg==\"");
}

TEST(UrlTemplate, MatchesSegmentsRestAndDecodes) {
    struct Case {
        const char* templateText;
        const char* path;
        bool matches;
        const char* id;
    };
    const Case cases[] = {
        {"/a/b", "/a/b", true, ""},
        {"/a/b", "/a/b/", false, ""},
        {"/a/{id}/c", "/a/x%2Fy/c", true, "x/y"},
        {"/a/{id}/c", "/a/1/2/c", false, ""},
        {"/a/{id}", "/a/", true, ""},
        {"/a/{+id}", "/a/1/2", true, "1/2"},
        {"/a/{id}", "/a/b+c", true, "b c"},
        {"/a/{id}", "/a/%zz", true, "%zz"},
    };
    for (const Case& c : cases) {
        auto match = MatchUrlTemplate(c.templateText, c.path);
        EXPECT_EQ(match.has_value(), c.matches) << c.templateText << " " << c.path;
        if (match && std::strlen(c.id) > 0) {
            EXPECT_EQ(match->at(match->count("id") ? "id" : ""), c.id);
        }
    }
}

TEST(HostRuntimeNames, PatternsAndResourceKeys) {
    EXPECT_TRUE(HostRuntime::NameMatches("a*c", "abbbc"));
    EXPECT_TRUE(HostRuntime::NameMatches("*", ""));
    EXPECT_TRUE(HostRuntime::NameMatches("a*b*c", "aXbYbc"));
    EXPECT_FALSE(HostRuntime::NameMatches("a*c", "abcd"));
    EXPECT_FALSE(HostRuntime::NameMatches("abc", "ab"));
    EXPECT_EQ(HostRuntime::ResourceEventKey("/qel-gameflow/v1/session/extra"),
              "OnJsonApiEvent_qel-gameflow_v1_session");
    EXPECT_EQ(HostRuntime::ResourceEventKey(
                  "/qel-platform-config/v1/namespaces/ChatDomain/ChampSelectDomainName"),
              "OnJsonApiEvent_qel-platform-config_v1_namespaces_ChatDomain_ChampSelectDomainName");
    EXPECT_EQ(HostRuntime::ResourceEventKey("//a//b/"), "OnJsonApiEvent_a_b");
    EXPECT_EQ(HostRuntime::ResourceEventKey("/"), "OnJsonApiEvent");
}

}  // namespace
}  // namespace Orvan::Host
