// The lobby operations through the plugin's shared object, with the test as
// the team-builder service: what each route sends, how it applies the answer
// before replying, its failures, and the memory of lobbies the player left.
#include <gtest/gtest.h>

#include <string>

#include "tests/teambuilder/support/ServiceScript.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

constexpr const char* kLobby = "/qel-lobby-team-builder/v1/lobby";
constexpr const char* kAccept = "/qel-lobby-team-builder/v1/invitations/accept";
constexpr const char* kToggles = "retrieveFeatureToggles <empty>";

TbdGameDtoV1 InLobby(std::string id, int32_t counter, int slots = 2) {
    TbdGameDtoV1 dto = Premade(counter, Slots(slots));
    dto.premadeState->draftPremadeId = std::move(id);
    return dto;
}

class LobbyActionsTest : public ::testing::Test {
protected:
    TestHost::CallResult Call(const char* method, const std::string& uri, std::string body = {}) {
        TestHost::CallResult result = host_.Host().Call(method, uri, std::move(body));
        EXPECT_TRUE(result.endpointFound) << uri;
        return result;
    }
    // A lobby the plugin has seen twice, so it is published; nothing pending.
    void EnterLobby(const std::string& id = "lobby-1") {
        host_.Push(InLobby(id, 1));
        host_.Push(InLobby(id, 2));
        Settle();
    }
    void Settle() {
        host_.Host().Pump();
        ServiceScript::LobbyEvents(host_);
        service_.Sent();
    }
    std::string StoredLobbyJson() { return host_.Host().Call("GET", kLobby).json; }

    TeamBuilderHost host_;
    ServiceScript service_{host_};
};

TEST_F(LobbyActionsTest, CreateAnswersWithTheLobbyOfTheAppliedDto) {
    service_.Answer("retrieveFeatureToggles", {"", R"({"enabledFeatures":["x"]})"});
    service_.Answer("createDraftPremadeV1", {"tbdGameDtoV1", JsonOf(InLobby("new", 1))});
    const TestHost::CallResult created = Call("POST", kLobby, R"({"queueId":420})");
    ASSERT_EQ(created.status, 200) << created.error;
    EXPECT_EQ(service_.Sent(), (Strings{kToggles, "createDraftPremadeV1 420"}));
    EXPECT_EQ(created.body.Field("invitationId").GetString(), "new");
    EXPECT_EQ(created.body.Field("members").Size(), 2u);
    // The intake's events, then the countdown of the stored DTO once more.
    EXPECT_EQ(ServiceScript::LobbyEvents(host_),
              (Strings{"Update countdown", "Create matchmaking", "Update countdown"}));
    EXPECT_EQ(StoredLobbyJson(), created.json);
}

TEST_F(LobbyActionsTest, CreateFailuresLeaveTheLobbyAlone) {
    const struct {
        const char* name;
        ServiceScript::Reply reply;
        uint16_t status;
        std::string message;
    } cases[] = {
        // clang-format off
        {"proxy error", {"", "", "", "boom"}, 500, "Error creating Team Builder Premade: boom"},
        {"call failed", {"callFailedV1", "{}"}, 500, "Error creating Team Builder Premade: methodName=callFailedV1, status=OK"},
        {"service unavailable", {"tbdGameDtoV1", "{}", "SERVICE UNAVAILABLE"}, 500, "Error creating Team Builder Premade: methodName=tbdGameDtoV1, status=SERVICE UNAVAILABLE"},
        {"gatekeeper", {"gatekeeperRestrictedV2", R"({"gatekeeperRestrictions":[]})"}, 403, "Error: Didn't create lobby. Server returned Gatekeeper Restricted for queueId 430"},
        {"unknown method", {"somethingElseV1", "{}", "BUSY"}, 500, "Error: Didn't create lobby. Server returned a non-lobby result: methodName=somethingElseV1, status=BUSY"},
        {"unparsable payload", {"tbdGameDtoV1", "{"}, 500, "Error creating Team Builder Premade: Failed to deserialize response payload \"{\" to a "},
        // clang-format on
    };
    EnterLobby();
    const std::string before = StoredLobbyJson();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        service_.Answer("createDraftPremadeV1", c.reply);
        const TestHost::CallResult created = Call("POST", kLobby, R"({"queueId":430})");
        EXPECT_EQ(created.status, c.status);
        EXPECT_EQ(created.error.substr(0, c.message.size()), c.message);
        EXPECT_EQ(service_.Sent(), (Strings{kToggles, "createDraftPremadeV1 430"}));
        EXPECT_EQ(ServiceScript::LobbyEvents(host_), Strings{});
        EXPECT_EQ(StoredLobbyJson(), before);
    }
}

TEST_F(LobbyActionsTest, CreateInAnInvalidContextQuitsTheOldLobbyFirst) {
    EnterLobby("old");
    service_.Answer("createDraftPremadeV1",
                    {"tbdGameDtoV1", JsonOf(InLobby("new", 1)), "Error: INVALID_CONTEXT"});
    const TestHost::CallResult created = Call("POST", kLobby, R"({"queueId":420})");
    ASSERT_EQ(created.status, 200) << created.error;
    EXPECT_EQ(created.body.Field("invitationId").GetString(), "new");
    EXPECT_EQ(service_.Sent(), (Strings{kToggles, "createDraftPremadeV1 420", "quitV2 <empty>"}));
    EXPECT_EQ(ServiceScript::LobbyEvents(host_),
              (Strings{"Delete lobby", "Delete matchmaking", "Update countdown",
                       "Create matchmaking", "Update countdown"}));
    // The old lobby's late DTOs are stale now.
    host_.Push(InLobby("old", 9));
    EXPECT_EQ(host_.Host().Call("GET", kLobby).body.Field("invitationId").GetString(), "new");
}

TEST_F(LobbyActionsTest, QuitForgetsTheLobbyUntilItIsJoinedAgain) {
    EnterLobby("A");
    const TestHost::CallResult quit = Call("DELETE", kLobby);
    EXPECT_EQ(quit.status, 200) << quit.error;
    EXPECT_EQ(ServiceScript::LobbyEvents(host_), (Strings{"Delete lobby", "Delete matchmaking"}));
    EXPECT_EQ(host_.Host().Call("GET", kLobby).status, 404);
    host_.Host().Pump();  // the quit's answer, not waited for
    EXPECT_EQ(service_.Sent(), (Strings{"quitV2 <empty>"}));

    host_.Push(InLobby("A", 3));
    EXPECT_EQ(ServiceScript::LobbyEvents(host_), Strings{});
    EXPECT_EQ(host_.Host().Call("GET", kLobby).status, 404);

    service_.Answer("joinDraftPremadeV1", {"tbdGameDtoV1", JsonOf(InLobby("A", 4))});
    const TestHost::CallResult joined =
        Call("POST", kAccept, R"({"invitationMetaData":{"groupFinderId":"A"}})");
    EXPECT_EQ(joined.status, 200) << joined.error;
    EXPECT_EQ(service_.Sent(), (Strings{R"(joinDraftPremadeV1 {"draftPremadeId":"A"})"}));
    host_.Push(InLobby("A", 5, 3));
    EXPECT_EQ(host_.Host().Call("GET", kLobby).body.Field("members").Size(), 3u);
}

TEST_F(LobbyActionsTest, QuitWithoutALobbyStillTellsTheService) {
    EXPECT_EQ(Call("DELETE", kLobby).status, 200);
    host_.Host().Pump();
    EXPECT_EQ(service_.Sent(), (Strings{"quitV2 <empty>"}));
    EXPECT_EQ(ServiceScript::LobbyEvents(host_), Strings{});
    // The empty id is now abandoned, which a DTO of a lobby without an id
    // shows.
    host_.Push(InLobby("", 2));
    EXPECT_EQ(ServiceScript::LobbyEvents(host_), Strings{});
}

TEST_F(LobbyActionsTest, JoinAnswers) {
    const struct {
        const char* name;
        const char* body;
        ServiceScript::Reply reply;
        uint16_t status;
        const char* message;
        const char* sent;
    } cases[] = {
        // clang-format off
        {"lobby full", R"({"invitationMetaData":{"groupFinderId":"x1"}})",
         {"gatekeeperRestrictedV2", R"({"gatekeeperRestrictions":[{"reason":"QUITGUARDED"},{"reason":"MAX_PREMADE_SIZE_VIOLATED"}]})"},
         403, "LobbyFullException", R"({"draftPremadeId":"x1"})"},
        {"other restriction", R"({"invitationMetaData":{"groupFinderId":7}})",
         {"gatekeeperRestrictedV2", R"({"gatekeeperRestrictions":[{"reason":"QUITGUARDED"}]})"},
         500, "Error: Didn't join lobby. Server returned a non-lobby result: methodName=gatekeeperRestrictedV2, status=OK", R"({"draftPremadeId":"7"})"},
        {"no group finder id", R"({"invitationMetaData":{"draftPremadeId":"x1"}})", {"", "", "", "gone"},
         500, "Error joining Team Builder Premade: gone", R"({"draftPremadeId":""})"},
        {"service unknown", R"({"invitationMetaData":{"groupFinderId":"x1"}})", {"tbdGameDtoV1", "{}", "SERVICE UNKNOWN"},
         500, "Error joining Team Builder Premade: methodName=tbdGameDtoV1, status=SERVICE UNKNOWN", R"({"draftPremadeId":"x1"})"},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        service_.Answer("joinDraftPremadeV1", c.reply);
        const TestHost::CallResult joined = Call("POST", kAccept, c.body);
        EXPECT_EQ(joined.status, c.status);
        EXPECT_EQ(joined.error, c.message);
        EXPECT_EQ(service_.Sent(), (Strings{std::string("joinDraftPremadeV1 ") + c.sent}));
        EXPECT_EQ(ServiceScript::LobbyEvents(host_), Strings{});
    }
}

TEST_F(LobbyActionsTest, PositionPreferencesSendTheRecordAndApplyTheAnswer) {
    EnterLobby();
    TbdGameDtoV1 answer = InLobby("lobby-1", 3);
    answer.premadeState->draftSlots[0].draftPositionPreferences = {"TOP", "JUNGLE"};
    service_.Answer("specifyDraftPositionPreferencesV1", {"tbdGameDtoV1", JsonOf(answer)});
    const char* const v1 = R"({"firstPreference":"TOP","secondPreference":"JUNGLE"})";
    EXPECT_EQ(Call("POST", "/qel-lobby-team-builder/v1/position-preferences", v1).status, 200);
    EXPECT_EQ(service_.Sent(), (Strings{std::string("specifyDraftPositionPreferencesV1 ") + v1}));
    EXPECT_EQ(ServiceScript::LobbyEvents(host_),
              (Strings{"Update lobby", "Update countdown", "Update countdown"}));
    EXPECT_EQ(host_.Published()[0]
                  .Field("localMember")
                  .Field("positionPreferences")
                  .Field("secondPreference")
                  .GetString(),
              "JUNGLE");

    // The typed call fails on what does not convert; the message names the
    // request only.
    service_.Answer("specifyDraftPositionPreferencesV1", {"tbdGameDtoV1", "[1]"});
    TestHost::CallResult failed =
        Call("POST", "/qel-lobby-team-builder/v1/position-preferences", v1);
    EXPECT_EQ(failed.status, 500);
    EXPECT_EQ(failed.error, "Error changing position preferences to [TOP, JUNGLE]");

    const char* const v2 =
        R"({"excludedPreference":"UTILITY","firstPreference":"TOP","secondPreference":"MIDDLE"})";
    failed = Call("POST", "/qel-lobby-team-builder/v2/position-preferences", v2);
    EXPECT_EQ(failed.status, 500);
    EXPECT_EQ(failed.error, "Error changing position preferences to [TOP, MIDDLE, UTILITY]");
    EXPECT_EQ(service_.Sent(), (Strings{std::string("specifyDraftPositionPreferencesV1 ") + v1,
                                        std::string("specifyDraftPositionPreferencesV2 ") + v2}));
    EXPECT_EQ(ServiceScript::LobbyEvents(host_), Strings{});
}

TEST(LobbyActionsTableTest, PromoteAndKickFindTheMembersSlot) {
    const struct {
        const char* name;
        bool inLobby;
        const char* action;
        const char* summoner;
        ServiceScript::Reply reply;
        uint16_t status;
        const char* message;
        Strings sent;
    } cases[] = {
        // clang-format off
        {"no lobby", false, "promote", "12", {}, 400, "No lobby in progress", {}},
        {"no lobby", false, "kick", "12", {}, 400, "No lobby in progress", {}},
        {"not a member", true, "promote", "99", {}, 404, "Team Builder Player Not Found", {}},
        {"not a member", true, "kick", "99", {}, 404, "Team Builder Player Not Found", {}},
        {"promote refused", true, "promote", "12", {"", "", "", "not captain"}, 500, "Unable to promote Team Builder player: not captain", {R"(promoteToCaptainV1 {"slotId":2})"}},
        {"kick refused", true, "kick", "13", {"", "", "", "not captain"}, 500, "Unable to kick Team Builder player", {R"(kickPlayerV1 {"slotId":3})"}},
        {"kicked", true, "kick", "13", {"tbdGameDtoV1", JsonOf(InLobby("lobby-1", 3, 2))}, 200, "", {R"(kickPlayerV1 {"slotId":3})"}},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " " + c.action);
        TeamBuilderHost host;
        ServiceScript service(host);
        if (c.inLobby) {
            host.Push(InLobby("lobby-1", 1, 3));
            host.Push(InLobby("lobby-1", 2, 3));
            ServiceScript::LobbyEvents(host);
        }
        service.Answer(c.action == std::string("kick") ? "kickPlayerV1" : "promoteToCaptainV1",
                       c.reply);
        const TestHost::CallResult result = host.Host().Call(
            "POST", std::string(kLobby) + "/members/" + c.summoner + "/" + c.action, std::string());
        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.error, c.message);
        EXPECT_EQ(service.Sent(), c.sent);
        const Strings events = ServiceScript::LobbyEvents(host);
        if (c.status == 200) {
            EXPECT_EQ(events, (Strings{"Update lobby", "Update countdown", "Update countdown"}));
        } else {
            EXPECT_EQ(events, Strings{});
        }
    }
}

TEST_F(LobbyActionsTest, BodiesThatDoNotConvertNeverReachTheService) {
    const struct {
        const char* uri;
        const char* body;
    } cases[] = {
        {kLobby, R"({"queueId":"soon"})"},
        {kLobby, R"({"queueId":4294967296})"},
        {kLobby, "[420]"},
        {kAccept, R"("x1")"},
        {"/qel-lobby-team-builder/v1/position-preferences", R"({"firstPreference":[1]})"},
        {"/qel-lobby-team-builder/v1/lobby/members/abc/kick", ""},
        {"/qel-lobby-team-builder/v1/matchmaking/search", R"({"token":1})"},
        {"/qel-lobby-team-builder/v1/matchmaking/search", "[1]"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.uri) + " " + c.body);
        const TestHost::CallResult result = Call("POST", c.uri, c.body);
        EXPECT_TRUE(result.failed);
        EXPECT_EQ(result.status, 400);
        EXPECT_FALSE(result.error.empty());
        EXPECT_EQ(service_.Sent(), Strings{});
    }
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
