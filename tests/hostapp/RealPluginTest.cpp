// The host against the real shared object: loading failures the host must
// survive, and outside requests with bad paths, methods and bodies, whose
// answers must be the plugin's own.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "host/Demo.h"
#include "host/HostRuntime.h"
#include "host/PluginLibrary.h"
#include "host/StandIns.h"
#include "sim/ServiceSimulator.h"

namespace Orvan::Host {
namespace {

PluginLoadOptions RealPlugin() {
    PluginLoadOptions options;
    options.path = DefaultPluginPath();
    return options;
}

TEST(PluginLoading, ReportsAMissingFileAndAMissingEntry) {
    std::string error;
    PluginLoadOptions missing = RealPlugin();
    missing.path = "/nonexistent/dvo-be-nothing.so";
    EXPECT_EQ(PluginLibrary::Load(missing, error), nullptr);
    EXPECT_NE(error.find("cannot load the plugin /nonexistent/dvo-be-nothing.so"),
              std::string::npos)
        << error;

    PluginLoadOptions noEntry = RealPlugin();
    noEntry.entryName = "load_something_else";
    EXPECT_EQ(PluginLibrary::Load(noEntry, error), nullptr);
    EXPECT_NE(error.find("has no entry named load_something_else"), std::string::npos) << error;

    EXPECT_EQ(PluginLibrary::DefaultEntryName("/x/dvo-be-qel-lobby-team-builder.so"),
              "load_qel_lobby_team_builder");
    EXPECT_EQ(PluginLibrary::DefaultEntryName("plain.dll"), "load_plain");
}

TEST(PluginLoading, SurvivesAPluginThatRefusesTheCoresVersion) {
    for (uint32_t major : {17u, 19u}) {
        PluginLoadOptions options = RealPlugin();
        options.major = major;
        std::string error;
        EXPECT_EQ(PluginLibrary::Load(options, error), nullptr);
        const std::string core = std::to_string(major) + ".0.0";
        EXPECT_NE(error.find("did not load with core plugin API " + core), std::string::npos)
            << error;
        EXPECT_NE(error.find("is not compatible with core's plugin API " + core), std::string::npos)
            << "the plugin's own report is passed on: " << error;
    }
    PluginLoadOptions newer = RealPlugin();
    newer.minor = 3;
    newer.patch = 7;
    std::string error;
    auto library = PluginLibrary::Load(newer, error);
    ASSERT_NE(library, nullptr) << error;
    EXPECT_EQ(library->VersionText(), "18.0.0");
    EXPECT_EQ(library->ShortName(), "qel-lobby-team-builder");
}

TEST(PluginLoading, TheDemoExitsWithTwoWhenThePluginDoesNotLoad) {
    DemoOptions options;
    options.plugin.path = "/nonexistent/plugin.so";
    options.speed = 0.0;
    std::FILE* sink = std::tmpfile();
    options.out = sink;
    DemoResult result = RunDemo(options);
    EXPECT_EQ(result.exitCode, 2);
    options.plugin = RealPlugin();
    options.scenario = "no-such-story";
    result = RunDemo(options);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_NE(result.outcome.find("choose one of draft, dodge"), std::string::npos);
    std::fclose(sink);
}

class RealPluginRequests : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        library_ = PluginLibrary::Load(RealPlugin(), error);
        ASSERT_NE(library_, nullptr) << error;
        standIns_.SetServices(&services_);
        standIns_.Install();
        plugin_ = runtime_.Attach(*library_);
        ASSERT_TRUE(runtime_.Start(plugin_));
        standIns_.SignIn();
        runtime_.RunFor(1.0);
    }
    void TearDown() override { runtime_.Destroy(plugin_); }

    RestReply Send(uint32_t method, const std::string& uri, const std::string& body = "",
                   const std::string& type = "application/json") {
        RestRequest request;
        request.method = method;
        request.uri = uri;
        if (!body.empty()) {
            request.hasBody = true;
            request.body = body;
            request.contentType = type;
        }
        return runtime_.Route(request);
    }

    std::unique_ptr<PluginLibrary> library_;
    HostClock clock_{0.0};
    HostRuntime runtime_{clock_};
    StandIns standIns_{runtime_, StandInOptions{}};
    Simulation::ServiceSimulator services_{standIns_, *Simulation::FindScenario("draft")};
    uint32_t plugin_ = 0;
};

TEST_F(RealPluginRequests, StartsWithItsSubscriptionsAndAnswersReads) {
    const auto registrations = runtime_.Registrations(plugin_);
    for (const char* name :
         {"OnServiceProxyUuidEvent", "OnServiceProxyMethodEvent", "OnServiceProxyAsyncEvent",
          "OnJsonApiEvent_qel-login_v1_session", "OnJsonApiEvent_qel-gameflow_v1_session"}) {
        EXPECT_EQ(registrations.count(name), 1u) << name;
    }
    EXPECT_EQ(standIns_.AsyncRegistrations().count("teambuilder-draft.tbdGameDtoV1"), 1u);
    const RestReply search = Send(kHostMethodGet, "/qel-lobby-team-builder/v1/matchmaking");
    ASSERT_TRUE(search.Ok()) << search.error;
    EXPECT_EQ(search.answeredBy, "qel-lobby-team-builder");
    EXPECT_NE(search.body.find("\"searchState\":\"Invalid\""), std::string::npos);
    const RestReply lobby = Send(kHostMethodGet, "/qel-lobby-team-builder/v1/lobby");
    EXPECT_EQ(lobby.status, 404);
    EXPECT_EQ(lobby.error, "No Team Builder Lobby");
}

TEST_F(RealPluginRequests, BadPathsMethodsAndBodiesGetThePluginsOwnMessages) {
    struct Case {
        uint32_t method;
        const char* uri;
        const char* body;
        const char* type;
        uint16_t status;
        const char* error;
        bool fromPlugin;
    };
    static const std::string deep(100000, '[');
    const Case cases[] = {
        {kHostMethodGet, "/qel-lobby-team-builder/v1/no-such-thing", "", "", 404,
         "No endpoint for GET /qel-lobby-team-builder/v1/no-such-thing", false},
        {kHostMethodPut, "/qel-lobby-team-builder/v1/lobby", "", "", 404,
         "No endpoint for PUT /qel-lobby-team-builder/v1/lobby", false},
        {kHostMethodPost, "/qel-lobby-team-builder/v1/lobby", "{not json", "application/json", 400,
         "Missing a name for object member", true},
        {kHostMethodPost, "/qel-lobby-team-builder/v1/lobby", "{\"queueId\":\"abc\"}",
         "application/json", 400, "'queueId'", true},
        {kHostMethodPost, "/qel-lobby-team-builder/v1/lobby", "{\"queueId\":62}", "text/plain", 400,
         "Unsupported body content type", true},
        {kHostMethodPost, "/qel-lobby-team-builder/v1/lobby/members/abc/kick", "", "", 400, "'id'",
         true},
        {kHostMethodPost, "/qel-lobby-team-builder/v1/lobby", deep.c_str(), "application/json", 400,
         "", true},
    };
    for (const Case& c : cases) {
        const RestReply reply = Send(c.method, c.uri, c.body, c.type);
        EXPECT_TRUE(reply.failed) << c.uri << " " << c.body;
        EXPECT_EQ(reply.status, c.status) << c.uri << " " << c.error;
        EXPECT_NE(reply.error.find(c.error), std::string::npos)
            << "got \"" << reply.error << "\" for " << c.uri;
        EXPECT_EQ(reply.answeredBy, c.fromPlugin ? "qel-lobby-team-builder" : "") << c.uri;
    }
    // Still answering afterwards.
    EXPECT_TRUE(Send(kHostMethodGet, "/qel-lobby-team-builder/v1/matchmaking").Ok());
}

}  // namespace
}  // namespace Orvan::Host
