// What the plugin registers with the host: the subscriptions of its start, in
// order, and the sixteen lobby routes with their arguments.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/teambuilder/support/TeamBuilderHost.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

TEST(WiringTest, StartSubscribesSettingsMessagesAndSessionsInOrder) {
    TestHost host;
    host.Load();
    ASSERT_TRUE(host.Start(7));
    Strings wiring;
    for (const TestHost::HostCall& call : host.Calls()) {
        if (call.entry == 3 || call.entry == 0) {
            wiring.push_back(call.entry == 3 ? "event " + call.arguments.at(0)
                                             : call.arguments.at(0) + " " + call.arguments.at(1));
        }
    }
    EXPECT_EQ(
        wiring,
        (Strings{
            "event OnServiceProxyUuidEvent",
            "event OnServiceProxyMethodEvent",
            "event OnServiceProxyAsyncEvent",
            "event "
            "OnJsonApiEvent_qel-platform-config_v1_namespaces_ChatDomain_ChampSelectDomainName",
            "GET /qel-platform-config/v1/namespaces/ChatDomain/ChampSelectDomainName",
            "event "
            "OnJsonApiEvent_qel-platform-config_v1_namespaces_TeamBuilderDraft_LogAllLCDSMessages",
            "GET /qel-platform-config/v1/namespaces/TeamBuilderDraft/LogAllLCDSMessages",
            "POST /qel-login/v1/service-proxy-async-requests/teambuilder-draft/tbdGameDtoV1",
            "POST "
            "/qel-login/v1/service-proxy-async-requests/teambuilder-draft/removedFromServiceV1",
            "POST /qel-login/v1/service-proxy-async-requests/teambuilder-draft/gameStartFailedV1",
            "POST "
            "/qel-login/v1/service-proxy-async-requests/teambuilder-draft/gatekeeperRestrictedV2",
            "POST /qel-login/v1/service-proxy-async-requests/teambuilder-draft/"
            "quitguardLowPriorityQueueAbandonedV1",
            "event OnJsonApiEvent_qel-login_v1_session",
            "GET /qel-login/v1/session",
            "event OnJsonApiEvent_qel-gameflow_v1_session",
            "GET /qel-gameflow/v1/session",
        }));
    // No service call at start.
    for (const TestHost::Request& request : host.Requests()) {
        EXPECT_EQ(request.path.find("service-proxy-uuid-requests"), std::string::npos);
        EXPECT_EQ(request.path.find("service-proxy-method-requests"), std::string::npos);
    }
}

TEST(WiringTest, LobbyRoutesAreRegisteredWithTheirArguments) {
    TeamBuilderHost plugin;
    TestHost& host = plugin.Host();
    const struct {
        const char* method;
        const char* uri;
        const char* body;
        uint16_t status;
    } routes[] = {
        {"GET", "/qel-lobby-team-builder/v1/lobby", "", 404},
        {"GET", "/qel-lobby-team-builder/v1/tb-enabled-features", "", 503},
        {"POST", "/qel-lobby-team-builder/v1/lobby", R"({"queueId":420})", 500},
        {"POST", "/qel-lobby-team-builder/v1/position-preferences",
         R"({"firstPreference":"TOP","secondPreference":"MIDDLE"})", 500},
        {"POST", "/qel-lobby-team-builder/v2/position-preferences",
         R"({"firstPreference":"TOP","secondPreference":"MIDDLE","excludedPreference":"BOTTOM"})",
         500},
        {"DELETE", "/qel-lobby-team-builder/v1/lobby", "", 200},
        {"POST", "/qel-lobby-team-builder/v1/invitations/accept",
         R"({"invitationMetaData":{"groupFinderId":"g1"}})", 500},
        {"POST", "/qel-lobby-team-builder/v1/lobby/members/12/promote", "", 400},
        {"POST", "/qel-lobby-team-builder/v1/lobby/members/12/kick", "", 400},
        {"GET", "/qel-lobby-team-builder/v1/lobby/countdown", "", 404},
        {"GET", "/qel-lobby-team-builder/v1/matchmaking", "", 200},
        {"POST", "/qel-lobby-team-builder/v1/matchmaking/search", R"("token-1")", 500},
        {"DELETE", "/qel-lobby-team-builder/v1/matchmaking/search", "", 500},
        {"POST", "/qel-lobby-team-builder/v1/matchmaking/low-priority-queue/abandon",
         R"("token-1")", 500},
        {"POST", "/qel-lobby-team-builder/v1/ready-check/accept", "", 500},
        {"POST", "/qel-lobby-team-builder/v1/ready-check/decline", "", 500},
    };
    for (const auto& route : routes) {
        SCOPED_TRACE(std::string(route.method) + " " + route.uri);
        const TestHost::CallResult result =
            host.Call(route.method, route.uri, std::string(route.body));
        EXPECT_TRUE(result.endpointFound);
        EXPECT_EQ(result.status, route.status);
        // Without a service behind the proxy, the operations refuse or fail
        // their calls on their own terms.
        EXPECT_NE(result.error, "Not implemented");
    }
    // A body that does not convert never reaches the operation.
    const TestHost::CallResult bad =
        host.Call("POST", "/qel-lobby-team-builder/v1/lobby", std::string(R"({"queueId":"soon"})"));
    EXPECT_TRUE(bad.failed);
    EXPECT_NE(bad.error, "Not implemented");
    EXPECT_FALSE(host.Call("PUT", "/qel-lobby-team-builder/v1/lobby").endpointFound);
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
