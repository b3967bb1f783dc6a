// Matchmaking and the ready check through the plugin's shared object, with
// the test as the team-builder service: the phase each operation needs, what
// it sends, and what it makes of the answer.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/teambuilder/support/ServiceScript.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

constexpr const char* kSearch = "/qel-lobby-team-builder/v1/matchmaking/search";
constexpr const char* kAbandon =
    "/qel-lobby-team-builder/v1/matchmaking/low-priority-queue/abandon";
constexpr const char* kAccept = "/qel-lobby-team-builder/v1/ready-check/accept";
constexpr const char* kDecline = "/qel-lobby-team-builder/v1/ready-check/decline";

// Searching with the lobby still described, as the service sends it.
TbdGameDtoV1 LobbySearching(int32_t counter, int64_t estimateMillis = 0) {
    TbdGameDtoV1 dto = Searching(counter, "", estimateMillis);
    dto.premadeState = Premade(counter, Slots(2)).premadeState;
    return dto;
}

class MatchmakingActionsTest : public ::testing::Test {
protected:
    TestHost::CallResult Call(const char* method, const char* uri, std::string body = {}) {
        return host_.Host().Call(method, uri, std::move(body));
    }
    void Enter(std::initializer_list<TbdGameDtoV1> dtos) {
        for (const TbdGameDtoV1& dto : dtos) {
            host_.Push(dto);
        }
        ServiceScript::LobbyEvents(host_);
    }
    std::string SearchJson() { return Call("GET", "/qel-lobby-team-builder/v1/matchmaking").json; }

    TeamBuilderHost host_;
    ServiceScript service_{host_};
};

TEST_F(MatchmakingActionsTest, StartNeedsTheLobbyPhase) {
    for (const TbdGameDtoV1& dto : {Searching(3), ReadyCheck(4)}) {
        Enter({dto});
        const TestHost::CallResult started = Call("POST", kSearch, R"("t")");
        EXPECT_EQ(started.status, 500);
        EXPECT_EQ(started.error, "Lobby needs to be in premade state before entering matchmaking");
    }
    EXPECT_EQ(Call("POST", kSearch, R"("t")").status, 500);
    EXPECT_EQ(service_.Sent(), Strings{});
}

TEST_F(MatchmakingActionsTest, StartAppliesTheAnsweredDto) {
    Enter({Premade(1, Slots(2)), Premade(2, Slots(2))});
    service_.Answer("startMatchmakingV1", {"tbdGameDtoV1", JsonOf(LobbySearching(3, 60000))});
    const TestHost::CallResult started = Call("POST", kSearch, R"("token-1")");
    ASSERT_EQ(started.status, 200) << started.error;
    EXPECT_EQ(service_.Sent(), (Strings{R"(startMatchmakingV1 {"accessTokenStr":"token-1"})"}));
    EXPECT_EQ(started.body.Field("searchState").GetString(), "Searching");
    EXPECT_EQ(started.body.Field("estimatedQueueTime").GetFloat(), 60.0);
    EXPECT_EQ(ServiceScript::LobbyEvents(host_),
              (Strings{"Update countdown", "Update matchmaking"}));
    EXPECT_EQ(SearchJson(), started.json);
}

TEST_F(MatchmakingActionsTest, StartRefusedByTheGatekeeperShowsThePenalty) {
    Enter({Premade(1, Slots(2)), Premade(2, Slots(2))});
    service_.Answer("startMatchmakingV1",
                    {"gatekeeperRestrictedV2",
                     R"({"gatekeeperRestrictions":[{"summonerId":12,"reason":"QUITGUARDED",)"
                     R"("remainingMillis":90000,"payload":"qg-token"}]})"});
    const TestHost::CallResult started = Call("POST", kSearch, R"("")");
    ASSERT_EQ(started.status, 200) << started.error;
    EXPECT_EQ(service_.Sent(), (Strings{R"(startMatchmakingV1 {"accessTokenStr":""})"}));
    const BindingProperty& penalty = started.body.Field("lowPriorityData");
    EXPECT_EQ(penalty.Field("penalizedSummonerIds").Element(0).AsUnsigned(), 12u);
    EXPECT_EQ(penalty.Field("penaltyTime").GetFloat(), 90.0);
    EXPECT_EQ(penalty.Field("quitguardedAccessToken").GetString(), "qg-token");
    EXPECT_EQ(ServiceScript::LobbyEvents(host_), (Strings{"Update matchmaking"}));
    EXPECT_EQ(host_.PublishedJson(0), started.json);
}

// Leave, abandon and the ready-check answers share one shape: a call, an
// optional DTO applied, or a failure naming the call's outcome.
TEST(MatchmakingActionsTableTest, AnswersOfTheQueueAndReadyCheckCalls) {
    const struct {
        const char* name;
        const char* method;
        const char* uri;
        const char* body;
        const char* serviceMethod;
        ServiceScript::Reply reply;
        uint16_t status;
        const char* error;
        const char* payload;
        Strings events;
    } cases[] = {
        // clang-format off
        {"leave", "DELETE", kSearch, "", "leaveMatchmakingV1", {"tbdGameDtoV1", JsonOf(Premade(4, Slots(2)))}, 200, "", "<empty>", {"Update countdown", "Update matchmaking"}},
        {"leave answered with another status", "DELETE", kSearch, "", "leaveMatchmakingV1", {"tbdGameDtoV1", JsonOf(Premade(4, Slots(2))), "NOT_IN_QUEUE"}, 200, "", "<empty>", {}},
        {"leave failed", "DELETE", kSearch, "", "leaveMatchmakingV1", {"callFailedV1", "{}"}, 500, "Failed to leave team builder matchmaking: methodName=callFailedV1, status=OK", "<empty>", {}},
        {"abandon", "POST", kAbandon, R"("qg")", "abandonQuitguardLowPriorityQueueV1", {"anythingV1", "{}"}, 200, "", R"({"accessTokenStr":"qg"})", {}},
        {"abandon failed", "POST", kAbandon, R"("qg")", "abandonQuitguardLowPriorityQueueV1", {"", "", "", "offline"}, 500, "Failed to leave team builder low priority queue: offline", R"({"accessTokenStr":"qg"})", {}},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TeamBuilderHost host;
        ServiceScript service(host);
        for (const TbdGameDtoV1& dto :
             {Premade(1, Slots(2)), Premade(2, Slots(2)), LobbySearching(3)}) {
            host.Push(dto);
        }
        ServiceScript::LobbyEvents(host);
        host.TakeLogs();
        service.Answer(c.serviceMethod, c.reply);
        const TestHost::CallResult result = host.Host().Call(c.method, c.uri, std::string(c.body));
        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.error, c.error);
        EXPECT_EQ(service.Sent(), (Strings{std::string(c.serviceMethod) + " " + c.payload}));
        EXPECT_EQ(ServiceScript::LobbyEvents(host), c.events);
        if (std::string(c.name) == "leave answered with another status") {
            const Strings logs = host.TakeLogs();
            EXPECT_NE(std::find(logs.begin(), logs.end(),
                                "0 Ignoring TB dto because of leaveMatchmakingV1 response: "
                                "NOT_IN_QUEUE"),
                      logs.end());
        }
    }
}

// "%s" in these templates is a placeholder without a number carrying its own
// conversion: the phase text replaces it whole.
TEST_F(MatchmakingActionsTest, ReadyCheckAnswersNeedTheReadyCheckPhase) {
    TestHost::CallResult refused = Call("POST", kAccept);
    EXPECT_EQ(refused.status, 500);
    EXPECT_EQ(refused.error,
              "Cannot accept team builder AFK check because the current phase is: Not in a phase");
    Enter({Premade(1, Slots(2)), Searching(2)});
    refused = Call("POST", kDecline);
    EXPECT_EQ(refused.error,
              "Cannot decline team builder AFK check because the current phase is: MATCHMAKING");
    EXPECT_EQ(service_.Sent(), Strings{});

    Enter({ReadyCheck(3)});
    const std::string before = SearchJson();
    service_.Answer("indicateAfkReadinessV1", {"tbdGameDtoV1", "{}", "SERVICE UNAVAILABLE"});
    refused = Call("POST", kAccept);
    EXPECT_EQ(refused.status, 500);
    EXPECT_EQ(refused.error,
              "Failed to indicate team builder ready check readiness: methodName=tbdGameDtoV1, "
              "status=SERVICE UNAVAILABLE");
    EXPECT_EQ(ServiceScript::LobbyEvents(host_), Strings{});
    EXPECT_EQ(SearchJson(), before);

    service_.Answer("indicateAfkReadinessV1", {"tbdGameDtoV1", JsonOf(ReadyCheck(4))});
    EXPECT_EQ(Call("POST", kAccept).status, 200);
    service_.Answer("indicateAfkReadinessV1", {"tbdGameDtoV1", JsonOf(ReadyCheck(5))});
    EXPECT_EQ(Call("POST", kDecline).status, 200);
    EXPECT_EQ(service_.Sent(), (Strings{R"(indicateAfkReadinessV1 {"afkReady":true})",
                                        R"(indicateAfkReadinessV1 {"afkReady":true})",
                                        R"(indicateAfkReadinessV1 {"afkReady":false})"}));
    EXPECT_EQ(
        Call("GET", "/qel-lobby-team-builder/v1/lobby/countdown").body.Field("counter").AsSigned(),
        5);
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
