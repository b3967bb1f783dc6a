// The plugin's first routes, end to end: loaded from its shared object,
// reached through the endpoint records its entry hands to the host.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/TestHost.h"

namespace Orvan::Testing {
namespace {

TEST(PluginRoutesTest, LobbyRoutesAnswerBeforeAnyLobbyExists) {
    TestHost host;
    host.Load();
    ASSERT_TRUE(host.Start());

    for (const char* uri :
         {"/qel-lobby-team-builder/v1/lobby", "/qel-lobby-team-builder/v1/lobby/countdown"}) {
        const TestHost::CallResult reply = host.Call("GET", uri);
        ASSERT_TRUE(reply.endpointFound) << uri;
        EXPECT_TRUE(reply.failed) << uri;
        EXPECT_EQ(reply.status, 404) << uri;
        EXPECT_EQ(reply.error, "No Team Builder Lobby") << uri;
        EXPECT_TRUE(reply.released) << uri;
    }

    const TestHost::CallResult search = host.Call("GET", "/qel-lobby-team-builder/v1/matchmaking");
    ASSERT_TRUE(search.endpointFound);
    EXPECT_FALSE(search.failed);
    EXPECT_EQ(search.status, 200);
    EXPECT_EQ(search.body.Field("queueId").AsSigned(), -1);
    EXPECT_EQ(search.body.Field("searchState").GetString(), "Invalid");
    EXPECT_TRUE(search.released);
}

TEST(PluginRoutesTest, HelpDescribesThePlugin) {
    TestHost host;
    host.Load();
    ASSERT_TRUE(host.Start());
    TestHost::CallOptions options;
    options.functionName = "Help";
    const TestHost::CallResult help = host.Call("CALL", "", options);
    ASSERT_TRUE(help.endpointFound);
    EXPECT_EQ(help.status, 200);
    EXPECT_NE(help.json.find(R"("name":"GetQelLobbyTeamBuilderV1Matchmaking")"), std::string::npos);
    EXPECT_NE(help.json.find(R"("name":"QelLobbyTeamBuilderMatchmakingSearchResource")"),
              std::string::npos);
}

}  // namespace
}  // namespace Orvan::Testing
