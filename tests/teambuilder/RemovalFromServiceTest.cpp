// The service's pushed messages besides the DTO, and the feature toggles,
// through the plugin's shared object: what the user interface is shown when
// the player is removed, restricted or let out of the low-priority queue.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/teambuilder/support/ServiceScript.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

RemovedFromServiceV1 Removal(std::string reason, std::string fallBack = {},
                             std::vector<uint64_t> initiators = {}) {
    RemovedFromServiceV1 message;
    message.reason = std::move(reason);
    message.backwardsTransitionInfo.backwardsTransitionReason = std::move(fallBack);
    message.backwardsTransitionInfo.initiatorSummonerIds = std::move(initiators);
    return message;
}

void PushMessage(TeamBuilderHost& host, const char* method, const std::string& payload) {
    host.Host().Deliver("OnServiceProxyAsyncEvent", ServiceMessage(method, payload));
}

void SignIn(TeamBuilderHost& host, uint64_t summonerId) {
    LoginSession session;
    session.state = LoginSessionState::SUCCEEDED;
    session.accountId = 5;
    session.summonerId = summonerId;
    host.Change("/qel-login/v1/session", "Create", session);
}

TEST(RemovalFromServiceTest, EachReasonTellsTheLobbyAndTheSearchWhatHappened) {
    const struct {
        RemovedFromServiceV1 message;
        uint64_t localSummoner;
        const char* removalReason;
        // The matchmaking Update before the lobby's, as compact JSON of the
        // fields that differ from a default search; empty: none.
        const char* search;
    } cases[] = {
        {Removal("KICKED"), 0, "Kicked", ""},
        {Removal("QUIT"), 0, "Left", ""},
        {Removal("GROUP_DISBANDED"), 0, "Disbanded", ""},
        {Removal("TIMEOUT"), 0, "Timeout", ""},
        {Removal("SERVICE_ERROR"), 0, "ServiceError", "searchState=ServiceError"},
        {Removal("GAME_START_ERROR"), 0, "GameStartError", "searchState=ServiceError"},
        {Removal("SERVICE_SHUTDOWN"), 0, "ServiceShutdown", "searchState=ServiceShutdown"},
        {Removal("PREMADE_CREATED_BY_PARTIES", "AFK_CHECK_FAILED", {11, 12}), 0, "None",
         "readyCheck=PartyNotReady [11,12]"},
        {Removal("PREMADE_CREATED_BY_PARTIES", "PLAYER_LEFT_CHAMPION_SELECT", {11, 12}), 12, "None",
         "dodgeData=PartyDodged 12"},
        {Removal("PREMADE_CREATED_BY_PARTIES", "PLAYER_TIMED_OUT_ON_REQUIRED_ACTION", {11, 12}), 13,
         "None", "dodgeData=PartyDodged 11"},
        {Removal("PREMADE_CREATED_BY_PARTIES", "PLAYER_LEFT_CHAMPION_SELECT"), 13, "None",
         "dodgeData=PartyDodged 0"},
        {Removal("PREMADE_CREATED_BY_PARTIES", "PLAYER_LEFT_MATCHMAKING"), 0, "None",
         "searchState=Canceled"},
        {Removal("PREMADE_CREATED_BY_PARTIES", "SOMETHING_ELSE"), 0, "Other", ""},
        {Removal("CHAMPION_SELECT_CREATED_BY_PARTIES"), 0, "None", "dodgeData=TournamentDodged 0"},
        {Removal("kicked"), 0, "Other", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message.reason + " " +
                     c.message.backwardsTransitionInfo.backwardsTransitionReason);
        TeamBuilderHost host;
        if (c.localSummoner != 0) {
            SignIn(host, c.localSummoner);
        }
        host.Push(Premade(1, Slots(2)));
        host.Push(Searching(2));
        ServiceScript::LobbyEvents(host);
        const std::string searchBefore =
            host.Host().Call("GET", "/qel-lobby-team-builder/v1/matchmaking").json;
        PushMessage(host, "removedFromServiceV1", JsonOf(c.message));

        Strings expected{"Update lobby", "Update countdown", "Delete lobby", "Delete matchmaking"};
        const std::string search = c.search;
        if (!search.empty()) {
            expected.insert(expected.begin(), "Update matchmaking");
        }
        ASSERT_EQ(ServiceScript::LobbyEvents(host), expected);
        const BindingProperty& lobby = host.Published()[search.empty() ? 0 : 1];
        EXPECT_EQ(lobby.Field("removalReason").GetString(), c.removalReason);
        EXPECT_EQ(lobby.Field("wasKicked").GetBool(), c.message.reason == "KICKED");
        EXPECT_EQ(host.Host().Call("GET", "/qel-lobby-team-builder/v1/lobby").status, 404);
        if (!search.empty()) {
            const BindingProperty& published = host.Published()[0];
            const std::string field = search.substr(0, search.find('='));
            std::string shown;
            if (field == "searchState") {
                shown = std::string(published.Field("searchState").GetString());
            } else if (field == "readyCheck") {
                shown = std::string(published.Field("readyCheck").Field("state").GetString()) +
                        " " +
                        Framework::WriteJson(published.Field("readyCheck").Field("declinerIds"));
            } else {
                shown = std::string(published.Field("dodgeData").Field("state").GetString()) + " " +
                        std::to_string(published.Field("dodgeData").Field("dodgerId").AsUnsigned());
            }
            EXPECT_EQ(field + "=" + shown, search);
            EXPECT_EQ(published.Field("queueId").AsSigned(), -1);
        }
        // The search a GET reads stays the last computed one.
        EXPECT_EQ(host.Host().Call("GET", "/qel-lobby-team-builder/v1/matchmaking").json,
                  searchBefore);
    }
}

TEST(RemovalFromServiceTest, RemovalWithoutAGameIsOnlyLogged) {
    TeamBuilderHost host(kInProcess);
    PushMessage(host, "removedFromServiceV1", JsonOf(Removal("KICKED")));
    EXPECT_EQ(ServiceScript::LobbyEvents(host), Strings{});
    EXPECT_EQ(host.TakeLogEntries(),
              (Strings{"1 1 Did not handle removed from service as we have no tbdGameDto"}));
}

TEST(RemovalFromServiceTest, AFailedGameStartIsToldToTheGameFlow) {
    TeamBuilderHost host(kInProcess);
    host.Host().OnRequest("POST", "/qel-gameflow/v1/session/event", [](const TestHost::Request&) {
        return TestHost::Reply::Error(500, "down");
    });
    PushMessage(host, "gameStartFailedV1", "not even JSON");
    ASSERT_FALSE(host.Host().Requests().empty());
    const TestHost::Request& request = host.Host().Requests().back();
    EXPECT_EQ(request.path, "/qel-gameflow/v1/session/event");
    ASSERT_EQ(request.arguments.size(), 1u);
    EXPECT_EQ(request.arguments[0].GetString(), "GAMEFLOW_EVENT.GAME_START_FAILED");
    EXPECT_EQ(host.TakeLogEntries(), (Strings{"1 1 Game failed to start"}));
}

TEST(RemovalFromServiceTest, RestrictionsAndTheAbandonedQueueRecomputeTheSearch) {
    TeamBuilderHost host;
    // No game yet: the search of a default DTO.
    PushMessage(host, "gatekeeperRestrictedV2",
                R"({"gatekeeperRestrictions":[{"summonerId":11,"reason":"QUEUE_DODGER",)"
                R"("remainingMillis":2500}]})");
    ASSERT_EQ(ServiceScript::LobbyEvents(host), (Strings{"Update matchmaking"}));
    EXPECT_EQ(host.Published()[0].Field("queueId").AsSigned(), -1);
    const BindingProperty& error = host.Published()[0].Field("errors").Element(0);
    EXPECT_EQ(error.Field("errorType").GetString(), "QUEUE_DODGER");
    EXPECT_EQ(error.Field("penaltyTimeRemaining").GetFloat(), 2.5);
    EXPECT_EQ(host.Host().Call("GET", "/qel-lobby-team-builder/v1/matchmaking").json,
              host.PublishedJson(0));

    host.Push(Premade(1, Slots(2)));
    host.Push(Searching(2, "", 30000));
    ServiceScript::LobbyEvents(host);
    PushMessage(host, "quitguardLowPriorityQueueAbandonedV1", R"({"abandonerName":"someone"})");
    ASSERT_EQ(ServiceScript::LobbyEvents(host), (Strings{"Update matchmaking"}));
    const BindingProperty& search = host.Published()[0];
    EXPECT_EQ(search.Field("searchState").GetString(), "AbandonedLowPriorityQueue");
    EXPECT_EQ(search.Field("queueId").AsSigned(), kQueue);
    EXPECT_TRUE(search.Field("isCurrentlyInQueue").GetBool());
    EXPECT_EQ(search.Field("estimatedQueueTime").GetFloat(), 30.0);
    EXPECT_EQ(search.Field("errors").Size(), 0u);

    // A message that does not convert reaches no handler.
    PushMessage(host, "gatekeeperRestrictedV2", R"({"gatekeeperRestrictions":7})");
    EXPECT_EQ(ServiceScript::LobbyEvents(host), Strings{});
}

TEST(RemovalFromServiceTest, FeatureTogglesComeByTheirOwnMessage) {
    TeamBuilderHost host;
    ServiceScript service(host);
    service.Answer("retrieveFeatureToggles", {"", R"({"enabledFeatures":["a","b"]})"});
    const char* const uri = "/qel-lobby-team-builder/v1/tb-enabled-features";
    const TestHost::CallResult toggles = host.Host().Call("GET", uri);
    EXPECT_EQ(toggles.status, 200) << toggles.error;
    EXPECT_EQ(toggles.json, R"({"enabledFeatures":["a","b"]})");
    const TestHost::Request& request = host.Host().Requests().back();
    EXPECT_EQ(request.path, kMethodRequests);
    EXPECT_EQ(request.arguments.at(2).GetString(), "featureTogglesRetrieved");
    EXPECT_EQ(request.arguments.at(3).GetString(), "");

    const ServiceScript::Reply failures[] = {
        {"", "", "", "proxy down"},
        {"", "[1]"},
        {"", ""},
    };
    for (const ServiceScript::Reply& reply : failures) {
        SCOPED_TRACE(reply.payload + reply.error);
        service.Answer("retrieveFeatureToggles", reply);
        const TestHost::CallResult failed = host.Host().Call("GET", uri);
        EXPECT_EQ(failed.status, 503);
        EXPECT_EQ(failed.error,
                  "Unable to retrieve feature toggles... Probably couldn't reach TB Service.");
    }
    EXPECT_EQ(service.Sent(), Strings(4, "retrieveFeatureToggles <empty>"));
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
