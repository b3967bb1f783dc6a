// The intake's state and log lines, seen from inside the plugin object: the
// fall-back reason that is news once, abandoned lobbies, the login session,
// the log groups of every team-builder line, and DTOs arriving as answers.
#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "teambuilder/plugin/DropRules.h"
#include "tests/teambuilder/support/TeamBuilderHost.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

using Framework::Failure;
using Framework::Maybe;
using RawResponse = LobbyTeamBuilderPlugin::RawResponse;

LoginSession Login(LoginSessionState state, uint64_t summonerId, uint64_t accountId,
                   bool connected) {
    LoginSession session;
    session.state = state;
    session.summonerId = summonerId;
    session.accountId = accountId;
    session.connected = connected;
    return session;
}

// The gate alone, without a host: stored, incoming and the abandoned lobbies.
TEST(IntakeStateTest, DropRules) {
    const std::optional<TbdGameDtoV1> none;
    TbdGameDtoV1 noQueue = Searching(9);
    noQueue.queueId = -1;
    TbdGameDtoV1 noQueueNoCounter = noQueue;
    noQueueNoCounter.counter = 0;
    TbdGameDtoV1 unsequenced = Premade(0, Slots(2));
    const std::set<std::string> left = {"lobby-1"};
    const std::set<std::string> nothingLeft;
    struct Row {
        const char* name;
        std::optional<TbdGameDtoV1> stored;
        std::optional<TbdGameDtoV1> incoming;
        const std::set<std::string>* abandoned;
        DtoRefusal expected;
    };
    const Row rows[] = {
        {"first DTO", none, Premade(1, Slots(2)), &nothingLeft, DtoRefusal::None},
        {"newer", Premade(4, Slots(2)), Premade(5, Slots(2)), &nothingLeft, DtoRefusal::None},
        {"same counter", Premade(4, Slots(2)), Premade(4, Slots(2)), &nothingLeft,
         DtoRefusal::None},
        {"older", Premade(4, Slots(2)), Premade(3, Slots(2)), &nothingLeft, DtoRefusal::OutOfDate},
        {"older than nothing stored", none, Premade(3, Slots(2)), &nothingLeft, DtoRefusal::None},
        {"a lobby left", none, Premade(5, Slots(2)), &left, DtoRefusal::OutOfDate},
        {"a lobby left, without a counter", none, unsequenced, &left, DtoRefusal::None},
        {"older without a counter", Premade(4, Slots(2)), unsequenced, &nothingLeft,
         DtoRefusal::None},
        {"a search is of no lobby", none, Searching(5), &left, DtoRefusal::None},
        {"no queue", none, noQueue, &nothingLeft, DtoRefusal::Invalid},
        {"older and no queue: out of date first", Premade(10, Slots(2)), noQueue, &nothingLeft,
         DtoRefusal::OutOfDate},
        {"no queue without a counter", Premade(10, Slots(2)), noQueueNoCounter, &nothingLeft,
         DtoRefusal::Invalid},
        {"the game gone", Premade(4, Slots(2)), none, &left, DtoRefusal::None},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(RefusalOf(GameDtoRecord{row.stored}, GameDtoRecord{row.incoming}, *row.abandoned),
                  row.expected);
    }
    EXPECT_EQ(RefusalLine(DtoRefusal::None), std::nullopt);
    EXPECT_EQ(RefusalLine(DtoRefusal::OutOfDate)->text, "Received out-of-date TB dto.");
    EXPECT_EQ(RefusalLine(DtoRefusal::Invalid)->text, "Received invalid TB dto.");
}

TEST(IntakeStateTest, AFallBackReasonReachesTheConsumersOnce) {
    TeamBuilderHost host(kInProcess);
    LobbyTeamBuilderPlugin& plugin = host.Plugin();
    for (const TbdGameDtoV1& dto :
         {Premade(1, Slots(3)), Premade(2, Slots(3)), Searching(3), ReadyCheck(4)}) {
        host.Push(dto);
    }
    host.TakeLobbyEvents();

    host.Push(Premade(5, Slots(3), "AFK_CHECK_FAILED", {2}));
    ASSERT_EQ(host.TakeLobbyEvents().back(), "Update matchmaking");
    const BindingProperty& readyCheck = host.Published().back().Field("readyCheck");
    EXPECT_EQ(readyCheck.Field("state").GetString(), "PartyNotReady");
    ASSERT_EQ(readyCheck.Field("declinerIds").Size(), 1u);
    EXPECT_EQ(readyCheck.Field("declinerIds").Element(0).AsUnsigned(), 12u);

    // Stored without the reason, with its slots.
    const TbLobbyBackwardsToPremadeTransitionResource& stored =
        plugin.StoredDto().dto->premadeState->backwardsToPremadeTransitionReason;
    EXPECT_EQ(stored.backwardsTransitionReason, "");
    EXPECT_EQ(stored.slotIds, std::vector<int32_t>{2});
    EXPECT_EQ(plugin.LastKnownPremadeState(), plugin.StoredDto().dto->premadeState);
    EXPECT_EQ(plugin.CurrentDraftPremadeId(), "lobby-1");
    EXPECT_GT(plugin.StoredDto().receivedAt, 0u);

    // The next DTO is compared with the copy without the reason.
    host.Push(Premade(6, Slots(3), "", {2}));
    EXPECT_EQ(host.TakeLobbyEvents(), (Strings{"Update countdown", "Update matchmaking"}));
    EXPECT_EQ(host.Published().back().Field("readyCheck").Field("state").GetString(), "Invalid");

    // A DTO without a premade state leaves the last one known and the id.
    host.Push(Searching(7));
    EXPECT_EQ(plugin.LastKnownPremadeState()->timer, 30006);
    EXPECT_EQ(plugin.CurrentDraftPremadeId(), "lobby-1");
}

TEST(IntakeStateTest, DtosOfAnAbandonedLobbyAreStale) {
    TeamBuilderHost host(kInProcess);
    LobbyTeamBuilderPlugin& plugin = host.Plugin();
    plugin.AddToAbandonedLobbyIds("lobby-1");

    host.Push(Premade(1, Slots(2)));  // even with nothing stored
    EXPECT_FALSE(plugin.StoredDto().HasDto());
    TbdGameDtoV1 other = Premade(1, Slots(2));
    other.premadeState->draftPremadeId = "lobby-2";
    host.Push(other);
    EXPECT_EQ(plugin.CurrentDraftPremadeId(), "lobby-2");
    host.Push(Premade(2, Slots(2)));  // back to the abandoned one
    EXPECT_EQ(plugin.CurrentDraftPremadeId(), "lobby-2");
    host.Push(Premade(0, Slots(2)));  // no sequence: taken
    EXPECT_EQ(plugin.CurrentDraftPremadeId(), "lobby-1");

    plugin.RemoveFromAbandonedLobbyIds("lobby-1");
    host.Push(Premade(3, Slots(2)));
    EXPECT_EQ(plugin.StoredDto().Counter(), 3);
    EXPECT_EQ(host.TakeLogEntries(),
              (Strings{"3 1 AddToAbandonedLobbyInvitationIds: lobby-1",
                       "0 2 Received out-of-date TB dto.", "0 2 Received out-of-date TB dto.",
                       "3 1 RemoveFromAbandonedLobbyIds: lobby-1"}));
}

TEST(IntakeStateTest, LoginSessionKeepsTheFirstSucceededSummoner) {
    TeamBuilderHost host(kInProcess);
    LobbyTeamBuilderPlugin& plugin = host.Plugin();
    const char* uri = "/qel-login/v1/session";
    using State = LoginSessionState;
    // clang-format off
    const struct {
        const char* eventType;
        LoginSession session;
        uint64_t summoner;
    } steps[] = {
        {"Create", Login(State::IN_PROGRESS, 77, 5, false), 0},
        {"Update", Login(State::SUCCEEDED, 77, 0, true), 0},  // no account yet
        {"Update", Login(State::SUCCEEDED, 77, 5, true), 77},
        {"Update", Login(State::SUCCEEDED, 88, 5, true), 77},
        {"Update", Login(State::LOGGING_OUT, 88, 5, true), 77},
        {"Update", Login(State::SUCCEEDED, 88, 5, true), 88},
        {"Delete", LoginSession{}, 0},
        {"Create", Login(State::SUCCEEDED, 99, 5, false), 99},
    };
    // clang-format on
    for (const auto& step : steps) {
        host.Change(uri, step.eventType, step.session);
        EXPECT_EQ(plugin.LocalSummonerId(), step.summoner) << step.eventType;
    }
}

TEST(IntakeStateTest, EveryLineHasItsLevelAndGroup) {
    TeamBuilderHost host(kInProcess);
    host.ChangeValue("/qel-platform-config/v1/namespaces/TeamBuilderDraft/LogAllLCDSMessages",
                     "Update", BindingProperty(true));
    const TbdGameDtoV1 lobby = Premade(2, Slots(1));
    host.Push(lobby);
    host.Push(Premade(1, Slots(1)));
    host.Push(Dto("DRAFT_PREMADE", 3, -1));
    host.Push(ReadyCheck(4));
    GameflowSession running;
    running.gameClient.running = true;
    host.Change("/qel-gameflow/v1/session", "Update", running);
    EXPECT_EQ(
        host.TakeLogEntries(),
        (Strings{
            "3 1 Teambuilder service proxy message received: " + JsonOf(lobby),
            "3 1 Teambuilder service proxy message received: " + JsonOf(Premade(1, Slots(1))),
            "0 2 Received out-of-date TB dto.",
            "3 1 Teambuilder service proxy message received: " +
                JsonOf(Dto("DRAFT_PREMADE", 3, -1)),
            "0 2 Received invalid TB dto.",
            "3 1 Teambuilder service proxy message received: " + JsonOf(ReadyCheck(4)),
            "1 1 Missed MATCHMAKING phase, but found AFK_CHECK.  Artificially creating MATCHMAKING "
            "event\n    previous phase  : DRAFT_PREMADE\n    previous premade: lobby-1\n    "
            "current "
            "phase   : AFK_CHECK\n    current premade : ",
            "0 2 Using last known premade state for ready check.",
            "0 2 Clearing TB dto info on game launch.",
        }));
}

TEST(IntakeStateTest, DtosArrivingAsAnswers) {
    TeamBuilderHost host(kInProcess);
    LobbyTeamBuilderPlugin& plugin = host.Plugin();
    const auto answer = [](const char* method, const char* status, std::string_view payload) {
        return Maybe<RawResponse>(RawResponse{method, *Framework::ReadJson(payload), status});
    };
    const std::string badStatus =
        "instead of expected status of OK from request to teambuilder-draft:pickChampionV1";
    // clang-format off
    const struct {
        Maybe<RawResponse> response;
        std::string failure;  // empty: success
        int32_t storedCounter;
    } cases[] = {
        {Maybe<RawResponse>(Failure("no connection", 0)), "no connection", 0},
        {answer("tbdGameDtoV1", "ERROR", "{}"), "Received status ERROR " + badStatus, 0},
        {answer("tbdGameDtoV1", "ok", "{}"), "Received status ok " + badStatus, 0},
        {answer("callFailedV1", "OK", "{}"), "Did not receive the expected method tbdGameDtoV1, instead received callFailedV1", 0},
        // Whatever converts is taken; a DTO left without its queue is refused.
        {answer("tbdGameDtoV1", "OK", R"({"counter":3,"phaseName":"DRAFT_PREMADE","queueId":420,"premadeState":{"timer":"soon"}})"), "", 3},
        {answer("tbdGameDtoV1", "OK", R"({"counter":4,"queueId":"four hundred"})"), "", 3},
        {answer("tbdGameDtoV1", "OK", "[1,2]"), "", 3},
        {answer("tbdGameDtoV1", "OK", R"({"counter":5,"queueId":450})"), "", 5},
    };
    // clang-format on
    for (const auto& c : cases) {
        Maybe<> result = plugin.HandleDtoResponse("pickChampionV1", c.response);
        if (c.failure.empty()) {
            EXPECT_TRUE(result.HasValue());
        } else {
            ASSERT_FALSE(result.HasValue());
            EXPECT_EQ(result.GetFailure().message, c.failure);
        }
        EXPECT_EQ(plugin.StoredDto().Counter(), c.storedCounter);
    }
    EXPECT_EQ(plugin.StoredDto().dto->phaseName, "");
    EXPECT_EQ(plugin.StoredDto().QueueId(), 450);
}

TEST(IntakeStateTest, ResponseUtilities) {
    // clang-format off
    const struct {
        const char* method;
        const char* status;
        bool failed;
    } cases[] = {
        {"tbdGameDtoV1", "OK", false}, {"tbdGameDtoV1", "SERVICE UNAVAILABLE", true},
        {"tbdGameDtoV1", "SERVICE UNKNOWN", true}, {"callFailedV1", "OK", true},
        {"tbdGameDtoV1", "service unavailable", false}, {"gatekeeperRestrictedV2", "Error: INVALID_CONTEXT", false},
    };
    // clang-format on
    for (const auto& c : cases) {
        const RawResponse response{c.method, BindingProperty(), c.status};
        EXPECT_EQ(LobbyTeamBuilderPlugin::IsCallFailed(response), c.failed)
            << c.method << " " << c.status;
        EXPECT_EQ(LobbyTeamBuilderPlugin::DescribeResponse(response),
                  std::string("methodName=") + c.method + ", status=" + c.status);
    }
    EXPECT_EQ(LobbyTeamBuilderPlugin::DescribeResponse(Failure("Request already in flight")),
              "Request already in flight");
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
