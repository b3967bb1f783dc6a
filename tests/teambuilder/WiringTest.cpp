// What the plugin registers with the host at its start: the subscriptions, in
// order, and no service call; the help it gives. The routes are exercised by
// the operations' own tests.
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

// The help the host asks for lists the routes' functions and the records.
TEST(WiringTest, HelpDescribesThePlugin) {
    TeamBuilderHost plugin;
    TestHost::CallOptions options;
    options.functionName = "Help";
    const TestHost::CallResult help = plugin.Host().Call("CALL", "", options);
    ASSERT_TRUE(help.endpointFound);
    EXPECT_EQ(help.status, 200);
    EXPECT_NE(help.json.find(R"("name":"GetQelLobbyTeamBuilderV1Matchmaking")"), std::string::npos);
    EXPECT_NE(help.json.find(R"("name":"QelLobbyTeamBuilderMatchmakingSearchResource")"),
              std::string::npos);
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
