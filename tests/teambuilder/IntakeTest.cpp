// The game-DTO intake as the host sees it: DTOs pushed by the service into the
// plugin's shared object, and the resource events, log lines and GET answers
// that follow, phase by phase. Champion select's own resources are left to
// its tests.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/teambuilder/support/TeamBuilderHost.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

// The intake's lines; champion select's own (its session, the ward-skin
// request a session makes, its UX show checks) are left to its tests.
Strings IntakeLogs(TeamBuilderHost& host) {
    Strings lines;
    for (std::string& line : host.TakeLogs()) {
        if (line.find("champ select") == std::string::npos &&
            line.find("wardSkins.") == std::string::npos &&
            line.find("action set index") == std::string::npos) {
            lines.push_back(std::move(line));
        }
    }
    return lines;
}

TbdGameDtoV1 InLobby(TbdGameDtoV1 dto, int slots) {
    dto.premadeState = Premade(dto.counter, Slots(slots)).premadeState;
    return dto;
}

TbdGameDtoV1 WithQueue(TbdGameDtoV1 dto, int32_t queueId) {
    dto.queueId = queueId;
    return dto;
}

struct Transition {
    const char* name;
    std::vector<TbdGameDtoV1> before;
    TbdGameDtoV1 incoming;
    Strings events;
    Strings searchStates;  // of the matchmaking events, in order
    Strings logs;
};

const char* const kMissedSearch =
    "1 Missed MATCHMAKING phase, but found AFK_CHECK.  Artificially creating MATCHMAKING event\n"
    "    previous phase  : DRAFT_PREMADE\n"
    "    previous premade: lobby-1\n"
    "    current phase   : AFK_CHECK\n"
    "    current premade : ";
const char* const kLastKnownLobby = "0 Using last known premade state for ready check.";

TEST(IntakeTest, PhaseTransitionsPublishTheirEventsInOrder) {
    const TbdGameDtoV1 p1 = Premade(1, Slots(3));
    const TbdGameDtoV1 p2 = Premade(2, Slots(3));
    const TbdGameDtoV1 s3 = InLobby(Searching(3), 3);
    const Strings lobbyChanged = {"Update lobby", "Update countdown", "Update countdown"};
    const Strings firstResync = {"Update lobby", "Update countdown", "Update countdown",
                                 "Update matchmaking"};
    const char* const noSearchBeforeReadyCheck =
        "1 Missed MATCHMAKING phase, but found AFK_CHECK.  Artificially creating MATCHMAKING "
        "event\n"
        "    previous phase  : \n    previous premade: \n    current phase   : AFK_CHECK\n"
        "    current premade : ";
    // clang-format off
    const Transition transitions[] = {
        {"first DTO", {}, p1, {"Update countdown", "Create matchmaking"}, {"Invalid"}, {}},
        // The first DTO publishes neither, so the second publishes both.
        {"same DTO again", {p1}, p1, firstResync, {"Invalid"}, {}},
        {"unchanged lobby", {p1, p2}, Premade(3, Slots(3)), {"Update countdown"}, {}, {}},
        {"member joins", {p1, p2}, Premade(3, Slots(4)), lobbyChanged, {}, {}},
        {"lobby to search", {p1, p2}, s3, {"Update countdown", "Update matchmaking"}, {"Searching"}, {}},
        {"ready check without a search", {p1, p2}, ReadyCheck(3), {"Update matchmaking", "Update countdown", "Update matchmaking"}, {"Searching", "Found"}, {kMissedSearch, kLastKnownLobby}},
        {"no DTO before the ready check", {}, ReadyCheck(3), {"Create matchmaking", "Update countdown", "Create matchmaking"}, {"Searching", "Found"}, {noSearchBeforeReadyCheck}},
        {"search to ready check", {p1, p2, s3}, ReadyCheck(4), {"Update countdown", "Update matchmaking"}, {"Found"}, {kLastKnownLobby}},
        {"ready check to champion select", {p1, p2, s3, ReadyCheck(4)}, ChampSelect(5), {"Update countdown", "Update matchmaking"}, {"Invalid"}, {kLastKnownLobby}},
        {"back from champion select without a member", {p1, p2, s3, ReadyCheck(4), ChampSelect(5)}, Premade(6, Slots(2), "PLAYER_LEFT_CHAMPION_SELECT"), firstResync, {"Canceled"}, {}},
        {"counter below the stored one", {p1, Premade(5, Slots(3))}, p2, {}, {}, {"0 Received out-of-date TB dto."}},
        {"counter 0 is always in order", {p1, Premade(5, Slots(3))}, Premade(0, Slots(3)), {"Update countdown"}, {}, {}},
        {"no queue", {p1, p2}, WithQueue(Premade(3, Slots(3)), -1), {}, {}, {"0 Received invalid TB dto."}},
        {"no queue and stale", {Premade(5, Slots(3))}, WithQueue(p2, -1), {}, {}, {"0 Received out-of-date TB dto."}},
        {"unknown phase", {p1, p2}, InLobby(Dto("NOT_A_PHASE", 3), 3), {"Update countdown"}, {}, {}},
    };
    // clang-format on
    for (const Transition& t : transitions) {
        SCOPED_TRACE(t.name);
        TeamBuilderHost host;
        for (const TbdGameDtoV1& dto : t.before) {
            host.Push(dto);
        }
        host.TakeLobbyEvents();
        host.TakeLogs();

        host.Push(t.incoming);
        EXPECT_EQ(host.TakeLobbyEvents(), t.events);
        Strings searchStates;
        for (size_t i = 0; i < t.events.size(); ++i) {
            if (t.events[i].ends_with("matchmaking")) {
                searchStates.emplace_back(host.Published()[i].Field("searchState").GetString());
            }
        }
        EXPECT_EQ(searchStates, t.searchStates);
        EXPECT_EQ(IntakeLogs(host), t.logs);
    }
}

TEST(IntakeTest, PublishedValuesMirrorTheDto) {
    TeamBuilderHost host;
    TbdGameDtoV1 dto =
        Premade(1, {Slot(1, 11, {"TOP", "JUNGLE", "MIDDLE"}), Slot(2, 12, {"BOTTOM"})});
    dto.premadeState->draftSlots[1].excludedPositionPreference = "UTILITY";
    dto.premadeState->localPlayerSlotId = 2;
    dto.premadeState->readyState.allowablePremadeSizes = {1, 2, 5};
    host.Push(dto);
    host.TakeLobbyEvents();

    host.Push(dto);
    ASSERT_EQ(host.TakeLobbyEvents(), (Strings{"Update lobby", "Update countdown",
                                               "Update countdown", "Update matchmaking"}));
    const std::string member2 =
        R"({"id":12,"isOwner":false,"canInviteOthers":false,"positionPreferences":)"
        R"({"firstPreference":"BOTTOM","secondPreference":""},"excludedPositionPreference":"UTILITY",)"
        R"("showPositionExcluder":false,"autoFillEligible":false,"autoFillProtectedForStreaking":false,)"
        R"("autoFillProtectedForPromos":false,"autoFillProtectedForSoloing":false})";
    const std::string lobby =
        R"({"queueId":420,"invitationId":"lobby-1","chatRoomId":"room-1","chatRoomKey":"","members":[)"
        R"({"id":11,"isOwner":true,"canInviteOthers":false,"positionPreferences":)"
        R"({"firstPreference":"TOP","secondPreference":"JUNGLE"},"showPositionExcluder":false,)"
        R"("autoFillEligible":false,"autoFillProtectedForStreaking":false,"autoFillProtectedForPromos":false,)"
        R"("autoFillProtectedForSoloing":false},)" +
        member2 + R"(],"localMember":)" + member2 +
        R"(,"invitations":[],"wasKicked":false,"removalReason":"None","canStartMatchmaking":true,)"
        R"("showPositionSelector":false,"showPositionExcluder":false,)"
        R"("specifiablePositionPreferences":["TOP","MIDDLE","BOTTOM"],"autoFillEligible":false,)"
        R"("autoFillProtectedForStreaking":false,"autoFillProtectedForPromos":false,)"
        R"("isTeamBuilderManaged":true,"premadeSizeAllowed":true,"requiredPositionCoverageMet":true,)"
        R"("allowablePremadeSizes":[1,2,5]})";
    EXPECT_EQ(host.PublishedJson(0), Canonical(lobby));
    EXPECT_EQ(host.PublishedJson(1),
              Canonical(R"({"phaseName":"DRAFT_PREMADE","timer":30001,"counter":1})"));
    EXPECT_EQ(
        host.PublishedJson(3),
        Canonical(
            R"({"queueId":420,"isCurrentlyInQueue":false,"lobbyId":"","searchState":"Invalid",)"
            R"("timeInQueue":0.0,"estimatedQueueTime":0.0,"readyCheck":{"state":"Invalid",)"
            R"("playerResponse":"None","dodgeWarning":"None","timer":0.0,"declinerIds":[]},)"
            R"("dodgeData":{"state":"Invalid","dodgerId":0},"lowPriorityData":)"
            R"({"penalizedSummonerIds":[],"penaltyTime":0.0,"penaltyTimeRemaining":0.0,)"
            R"("quitguardedAccessToken":""},"errors":[]})"));

    // GET serves what was derived from the stored DTO.
    TestHost::CallResult got = host.Host().Call("GET", "/qel-lobby-team-builder/v1/lobby");
    EXPECT_EQ(got.status, 200);
    EXPECT_EQ(got.json, Canonical(lobby));
    got = host.Host().Call("GET", "/qel-lobby-team-builder/v1/lobby/countdown");
    EXPECT_EQ(got.json, Canonical(R"({"phaseName":"DRAFT_PREMADE","timer":30001,"counter":1})"));
    got = host.Host().Call("GET", "/qel-lobby-team-builder/v1/matchmaking");
    EXPECT_EQ(got.json, host.PublishedJson(3));
}

TEST(IntakeTest, GetRoutesWithoutALobby) {
    TeamBuilderHost host;
    TestHost::CallResult got = host.Host().Call("GET", "/qel-lobby-team-builder/v1/lobby");
    EXPECT_TRUE(got.failed);
    EXPECT_EQ(got.status, 404);
    EXPECT_EQ(got.error, "No Team Builder Lobby");
    got = host.Host().Call("GET", "/qel-lobby-team-builder/v1/lobby/countdown");
    EXPECT_EQ(got.status, 404);
    EXPECT_EQ(got.error, "No Team Builder Lobby");
    got = host.Host().Call("GET", "/qel-lobby-team-builder/v1/matchmaking");
    EXPECT_EQ(got.status, 200);
    EXPECT_EQ(got.body.Field("queueId").AsSigned(), -1);
    EXPECT_EQ(got.body.Field("searchState").GetString(), "Invalid");

    // In champion select the service no longer sends the lobby: GET has none,
    // although the published lobby stays.
    host.Push(Premade(1, Slots(2)));
    host.Push(ChampSelect(2));
    got = host.Host().Call("GET", "/qel-lobby-team-builder/v1/lobby");
    EXPECT_EQ(got.status, 404);
    got = host.Host().Call("GET", "/qel-lobby-team-builder/v1/lobby/countdown");
    EXPECT_EQ(got.json, Canonical(R"({"phaseName":"CHAMPION_SELECT","timer":0,"counter":2})"));
}

TEST(IntakeTest, GameLaunchClearsTheDtoOnce) {
    TeamBuilderHost host;
    GameflowSession running;
    running.gameClient.running = true;
    // The value read at subscription arrives as a Create and counts for nothing.
    host.Change("/qel-gameflow/v1/session", "Create", running);
    host.Push(Premade(1, Slots(2)));
    host.TakeLobbyEvents();
    host.TakeLogs();

    host.Change("/qel-gameflow/v1/session", "Update", running);
    EXPECT_EQ(host.TakeLobbyEvents(), (Strings{"Delete lobby", "Delete matchmaking"}));
    EXPECT_EQ(host.TakeLogs(), (Strings{"0 Clearing TB dto info on game launch."}));

    host.Push(Premade(2, Slots(2)));
    host.TakeLobbyEvents();
    host.Change("/qel-gameflow/v1/session", "Update", running);  // still running
    EXPECT_EQ(host.TakeLobbyEvents(), Strings{});

    GameflowSession stopped;
    host.Change("/qel-gameflow/v1/session", "Update", stopped);
    host.Change("/qel-gameflow/v1/session", "Update", running);
    EXPECT_EQ(host.TakeLobbyEvents(), (Strings{"Delete lobby", "Delete matchmaking"}));
    // With nothing stored, a launch clears nothing.
    host.Change("/qel-gameflow/v1/session", "Update", stopped);
    host.Change("/qel-gameflow/v1/session", "Update", running);
    EXPECT_EQ(host.TakeLobbyEvents(), Strings{});
    EXPECT_EQ(host.TakeLogs(), (Strings{"0 Clearing TB dto info on game launch."}));
}

TEST(IntakeTest, LogAllMessagesSettingLogsEveryDto) {
    TeamBuilderHost host;
    const char* setting = "/qel-platform-config/v1/namespaces/TeamBuilderDraft/LogAllLCDSMessages";
    const TbdGameDtoV1 dto = Dto("NOT_A_PHASE", 0);
    const struct {
        BindingProperty value;
        const char* eventType;
        bool logs;
    } cases[] = {
        {BindingProperty("true"), "Create", true},     {BindingProperty("false"), "Update", false},
        {BindingProperty(int64_t{1}), "Update", true}, {BindingProperty(""), "Update", false},
        {BindingProperty(true), "Update", true},       {BindingProperty(), "Delete", false},
    };
    for (const auto& c : cases) {
        host.ChangeValue(setting, c.eventType, c.value);
        host.Push(dto);
        const Strings expected =
            c.logs ? Strings{"3 Teambuilder service proxy message received: " + JsonOf(dto)}
                   : Strings{};
        EXPECT_EQ(host.TakeLogs(), expected) << c.value.AsText();
    }
}

TEST(IntakeTest, MalformedDtosNeverBreakTheIntake) {
    TeamBuilderHost host;
    host.Push(Premade(5, Slots(2)));
    host.TakeLobbyEvents();
    host.TakeLogs();

    const Strings resync = {"Update lobby", "Update countdown", "Update countdown",
                            "Update matchmaking"};
    // clang-format off
    const struct {
        const char* payload;
        Strings events;
        Strings logs;
    } cases[] = {
        // Missing queue: the DTO keeps queue -1 and is refused.
        {R"({"counter":6,"phaseName":"DRAFT_PREMADE"})", {}, {"0 Received invalid TB dto."}},
        {R"({})", {}, {"0 Received invalid TB dto."}},
        // A message that does not convert never reaches the intake.
        {R"({"counter":"six","queueId":420})", {}, {}},
        {R"({"counter":6,"queueId":420,"premadeState":[1,2]})", {}, {}},
        {R"({"counter":6,"queueId":420,"premadeState":{"draftSlots":{"slotId":1}}})", {}, {}},
        {R"({"counter":1e40,"queueId":420})", {}, {}},
        {R"({"counter":99999999999,"queueId":420})", {}, {}},
        {"[", {}, {}}, {"", {}, {}}, {"null", {}, {}}, {R"("text")", {}, {}},
        {R"({"counter":6,"queueId":420,"phaseName":{"a":[[[[[]]]]]}})", {}, {}},
        // Unknown members and phases are carried.
        {R"({"counter":6,"queueId":420,"phaseName":"??","extra":{"x":[1,2,3]}})", resync, {}},
        // Extreme counters: the largest is taken, after it only counters <= 0.
        {R"({"counter":2147483647,"queueId":420,"phaseName":"??"})", {"Update countdown"}, {}},
        {R"({"counter":2147483646,"queueId":420,"phaseName":"??"})", {}, {"0 Received out-of-date TB dto."}},
        {R"({"counter":-2147483648,"queueId":420,"phaseName":"??"})", {"Update countdown"}, {}},
    };
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.payload);
        host.PushJson(c.payload);
        EXPECT_EQ(host.TakeLobbyEvents(), c.events);
        EXPECT_EQ(host.TakeLogs(), c.logs);
    }
    // The plugin still serves its routes.
    EXPECT_EQ(host.Host().Call("GET", "/qel-lobby-team-builder/v1/lobby/countdown").json,
              Canonical(R"({"phaseName":"??","timer":0,"counter":-2147483648})"));
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
