// The recorder and the replay against a small plugin linked into the test,
// whose behaviour each case bends: the steps a session holds and their
// brackets, and how the replay lines the recording up again after a
// changed, an extra, a missing or an unanswerable output.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>

#include "host/HostJson.h"
#include "host/HostRuntime.h"
#include "host/PluginLibrary.h"
#include "host/Replay.h"
#include "host/SessionRecord.h"

namespace Orvan::Host {
namespace {

// How the plugin strays from what was recorded.
enum class Variant { Same, OtherPayload, ExtraLog, MissingLog, OtherRequest, ReturnsEarly };

struct Scripted {
    ModuleCallbacks callbacks{};
    PluginApiDescriptor descriptor{};
    EndpointRecord endpoint{};
    HostApi* api = nullptr;
    Variant variant = Variant::Same;
};

Scripted* gScripted = nullptr;

void Log(const std::string& text) {
    gScripted->api->WriteLog(gScripted->api, 3, text.c_str());
}

void Emit(const char* name, const std::string& json) {
    HostValueHolder payload;
    std::string error;
    ASSERT_TRUE(JsonToHostValue(json, payload.Get(), error)) << error;
    HostEvent event{};
    event.name = name;
    event.payload = payload.Get();
    gScripted->api->EmitEvent(gScripted->api, &event);
}

void QEL_HOST_CALL OnPing(HostEvent* event) {
    std::string json, error;
    HostValueToJson(event->payload, json, error);
    if (gScripted->variant == Variant::ExtraLog) {
        Log("surprise");
    }
    Log("ping " + json);
    if (gScripted->variant == Variant::ReturnsEarly) {
        return;
    }
    Emit("Pong", "{\"got\":" + json + ",\"extra\":" +
                     (gScripted->variant == Variant::OtherPayload ? "2" : "1") + "}");
}

void QEL_HOST_CALL OnTick(void*) {
    Emit("Ticked", "{}");
}

void QEL_HOST_CALL ReleaseReply(HostResponse* reply) {
    FreeHostValue(reply->body);
}

void QEL_HOST_CALL Echo(HostResponse* reply, HostRequest* request) {
    const std::string body(reinterpret_cast<const char*>(request->body), request->bodyLength);
    std::string error;
    JsonToHostValue("{\"echo\":" + QuoteJson(body) + "}", reply->body, error);
    reply->status = 200;
    reply->release = &ReleaseReply;
}

uint8_t QEL_HOST_CALL Start(void* module, HostLink* link) {
    Scripted& self = *static_cast<Scripted*>(module);
    self.api = link->api;
    self.api->RegisterEvent(self.api, "Ping", link->pluginHandle, &OnPing, nullptr, 0);
    Emit("Started", "{\"n\":1}");
    if (self.variant != Variant::MissingLog) {
        Log("started");
    }
    self.api->ScheduleCall(self.api, "tick", &OnTick, nullptr, 1.0, 0);
    HostRequest request{};
    request.method = kHostMethodGet;
    request.uri = self.variant == Variant::OtherRequest ? "/stand-in/other" : "/stand-in/value";
    request.pluginHandle = link->pluginHandle;
    HostResponse reply{};
    self.api->Request(self.api, &reply, &request);
    std::string json = "?";
    std::string error;
    if (reply.failed == 0) {
        HostValueToJson(reply.body, json, error);
    }
    if (reply.release != nullptr) {
        reply.release(&reply);
    }
    Log("value " + json);
    return 1;
}

void QEL_HOST_CALL Destroy(void*) {}

void QEL_HOST_CALL Entry(PluginLoadRecord* record) {
    Scripted& self = *gScripted;
    self.callbacks = ModuleCallbacks{&Start, &Destroy, nullptr};
    self.endpoint.function.name = "PostScriptedEcho";
    self.endpoint.dispatch = &Echo;
    self.endpoint.urlTemplate = "/scripted/echo";
    self.endpoint.method = kHostMethodPost;
    self.descriptor.endpoints = &self.endpoint;
    self.descriptor.endpointCount = 1;
    record->callbacks = &self.callbacks;
    record->module = &self;
    record->shortName = "scripted";
    record->apiDescriptor = &self.descriptor;
}

std::string Kinds(const std::string& text) {
    std::string kinds;
    for (size_t at = text.find("\"k\":\""); at != std::string::npos;
         at = text.find("\"k\":\"", at + 1)) {
        const size_t end = text.find('"', at + 5);
        kinds += (kinds.empty() ? "" : " ") + text.substr(at + 5, end - at - 5);
    }
    return kinds;
}

class ReplayEngineTest : public ::testing::Test {
protected:
    void SetUp() override { gScripted = &scripted_; }
    void TearDown() override {
        gScripted = nullptr;
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }

    // One session: start, an event, the delayed call, an outside request.
    std::string Record() {
        HostClock clock(0.0);
        HostRuntime runtime(clock);
        runtime.AddRoute(
            "stand-in", kHostMethodGet, "/stand-in/value",
            [](const RestRequest&, const PathParameters&) { return RestReply::Json("{\"v\":5}"); });
        std::string error;
        auto library = PluginLibrary::FromEntry(&Entry, "scripted", PluginLoadOptions{}, error);
        EXPECT_NE(library, nullptr) << error;
        const uint32_t plugin = runtime.Attach(*library);
        SessionRecorder recorder;
        EXPECT_TRUE(recorder.Open(path_, {"demo", "none", 1, "{}"}, error)) << error;
        recorder.Attach(runtime, *library, plugin);
        EXPECT_TRUE(runtime.Start(plugin));
        runtime.Emit("Ping", "{\"x\":1}");
        runtime.RunFor(2.0);
        RestRequest echo;
        echo.method = kHostMethodPost;
        echo.uri = "/scripted/echo";
        echo.hasBody = true;
        echo.body = "hello";
        EXPECT_EQ(runtime.Route(echo).body, "{\"echo\":\"hello\"}");
        runtime.Destroy(plugin);
        recorder.Detach();
        EXPECT_TRUE(recorder.Close(error)) << error;
        std::ifstream in(path_, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    ReplayResult Replay(const std::string& text, Variant variant, bool keepGoing = true) {
        std::string error;
        SessionPointer session = ParseSession(text, error);
        EXPECT_NE(session, nullptr) << error;
        if (session == nullptr) {
            return {};
        }
        scripted_ = Scripted{};
        scripted_.variant = variant;
        auto library = PluginLibrary::FromEntry(&Entry, "scripted", PluginLoadOptions{}, error);
        EXPECT_NE(library, nullptr) << error;
        ReplayOptions options;
        options.keepGoing = keepGoing;
        return ReplaySession(*session, *library, options);
    }

    Scripted scripted_;
    std::string path_ = (std::filesystem::temp_directory_path() /
                         ("qel-replay-engine-" + std::to_string(::getpid()) + ".jsonl"))
                            .string();
};

TEST_F(ReplayEngineTest, RecordsEveryCrossingInsideTheCallItBelongsTo) {
    const std::string text = Record();
    EXPECT_EQ(Kinds(text),
              "start register emit log schedule request reply log started "
              "deliver log emit delivered fire emit fired call answer destroy destroyed end");
    EXPECT_NE(
        text.find("\"k\":\"deliver\",\"pattern\":\"Ping\",\"name\":\"Ping\",\"data\":{\"x\":1}"),
        std::string::npos);
    EXPECT_NE(text.find("\"k\":\"reply\",\"status\":200,\"body\":{\"v\":5}"), std::string::npos);
    EXPECT_NE(text.find("\"k\":\"fire\",\"call\":1,\"label\":\"tick\""), std::string::npos);
    EXPECT_NE(text.find("\"t\":1.000,\"k\":\"fire\""), std::string::npos);
    EXPECT_NE(text.find("\"route\":\"/scripted/echo\""), std::string::npos);
}

TEST_F(ReplayEngineTest, LinesTheRecordingUpAgainAfterEachKindOfDivergence) {
    const std::string text = Record();
    struct Case {
        Variant variant;
        size_t divergences;
        std::string expected;  // the start of the first divergence's texts
        std::string came;
    };
    const Case cases[] = {
        {Variant::Same, 0, "", ""},
        {Variant::OtherPayload, 1, "emit Pong", "emit Pong"},
        // An extra line before one of its kind reads as that one changed,
        // and then as the recorded one come too late.
        {Variant::ExtraLog, 2, "log level 3 \"ping", "log level 3 \"surprise\""},
        {Variant::MissingLog, 1, "log level 3 \"started\"", "schedule tick"},
        {Variant::ReturnsEarly, 1, "emit Pong", "the plugin returned"},
        {Variant::OtherRequest, 2, "request GET /stand-in/value", "request GET /stand-in/other"},
    };
    for (const Case& c : cases) {
        const ReplayResult result = Replay(text, c.variant);
        ASSERT_EQ(result.divergences.size(), c.divergences) << static_cast<int>(c.variant);
        EXPECT_EQ(result.exitCode, c.divergences == 0 ? 0 : 1);
        if (c.divergences == 0) {
            continue;
        }
        const Divergence& first = result.divergences[0];
        EXPECT_EQ(first.expected.rfind(c.expected, 0), 0u) << first.expected;
        EXPECT_EQ(first.came.rfind(c.came, 0), 0u) << first.came;
    }
    // The payload's one changed field is named.
    const ReplayResult other = Replay(text, Variant::OtherPayload);
    ASSERT_EQ(other.divergences.size(), 1u);
    EXPECT_EQ(other.divergences[0].differences,
              std::vector<std::string>{"data.extra: expected 1, came 2"});
    // The unanswerable request is answered with a failure, which the plugin
    // then logs differently: the second divergence.
    const ReplayResult unanswered = Replay(text, Variant::OtherRequest);
    ASSERT_EQ(unanswered.divergences.size(), 2u);
    EXPECT_NE(unanswered.divergences[0].came.find("not in the recording"), std::string::npos);
    EXPECT_EQ(unanswered.divergences[1].differences,
              std::vector<std::string>{"text: expected \"value {\\\"v\\\":5}\", came \"value ?\""});
}

TEST_F(ReplayEngineTest, WithoutKeepGoingTheReplayStopsFeedingAfterTheFirstDivergence) {
    const std::string text = Record();
    // The first divergence is inside the start; the event, the delayed call
    // and the outside request are not given any more.
    const ReplayResult result = Replay(text, Variant::MissingLog, false);
    EXPECT_EQ(result.exitCode, 1);
    ASSERT_EQ(result.divergences.size(), 1u);
    EXPECT_EQ(result.divergences[0].line, 5u);
    EXPECT_EQ(result.divergences[0].step, 4u);
}

}  // namespace
}  // namespace Orvan::Host
