// The matchmaking search derived from the previous and the incoming DTO:
// search state, dodgers and ready-check decliners found from slot
// differences and slot ids, gatekeeper restrictions, the queue estimate.
#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "tests/teambuilder/support/TeamBuilderHost.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

using Dodge = MatchmakingDodgeState;
using Ready = MatchmakingReadyCheckState;
using Search = MatchmakingSearchState;

constexpr const char* kLeft = "PLAYER_LEFT_CHAMPION_SELECT";
constexpr const char* kTimedOut = "PLAYER_TIMED_OUT_ON_REQUIRED_ACTION";
constexpr const char* kAfkFailed = "AFK_CHECK_FAILED";

std::vector<TbLobbySlotResource> SlotsWith(const std::vector<int32_t>& ids) {
    std::vector<TbLobbySlotResource> slots;
    slots.reserve(ids.size());
    for (int32_t id : ids) {
        slots.push_back(Slot(id, uint64_t{10} + static_cast<uint64_t>(id)));
    }
    return slots;
}

struct Case {
    const char* name;
    bool lobbySeen;  // a three-member lobby was accepted before
    std::optional<TbdGameDtoV1> previous;
    TbdGameDtoV1 incoming;
    Search search;
    Dodge dodge;
    uint64_t dodgerId;
    Ready ready;
    std::vector<uint64_t> decliners;
};

TEST(MatchmakingSearchTest, DodgersDeclinersAndStates) {
    const TbdGameDtoV1 champSelect = ChampSelect(5);
    const TbdGameDtoV1 readyCheck7 = ReadyCheck(7);
    // clang-format off
    const Case cases[] = {
        {"member left champion select", true, champSelect, Premade(6, SlotsWith({1, 3}), kLeft), Search::Canceled, Dodge::PartyDodged, 12, Ready::Invalid, {}},
        {"slot named by the reason", true, champSelect, Premade(6, Slots(3), kTimedOut, {3}), Search::Canceled, Dodge::PartyDodged, 13, Ready::Invalid, {}},
        {"first named slot that exists", true, champSelect, Premade(6, Slots(3), kLeft, {9, 2, 1}), Search::Canceled, Dodge::PartyDodged, 12, Ready::Invalid, {}},
        {"named slot not in the lobby", true, champSelect, Premade(6, Slots(3), kLeft, {9}), Search::Canceled, Dodge::StrangerDodged, 0, Ready::Invalid, {}},
        {"a missing member wins over named slots", true, champSelect, Premade(6, SlotsWith({1, 3}), kLeft, {1}), Search::Canceled, Dodge::PartyDodged, 12, Ready::Invalid, {}},
        {"no lobby seen before: named slots", false, champSelect, Premade(6, Slots(2), kLeft, {2}), Search::Canceled, Dodge::PartyDodged, 12, Ready::Invalid, {}},
        {"back from champion select without a reason", true, champSelect, Premade(6, Slots(3)), Search::Canceled, Dodge::StrangerDodged, 0, Ready::Invalid, {}},
        {"other reason after champion select", true, champSelect, Premade(6, Slots(3), "SOMETHING"), Search::Canceled, Dodge::StrangerDodged, 0, Ready::Invalid, {}},
        {"lobby to lobby", true, Premade(2, Slots(3)), Premade(3, Slots(3)), Search::Invalid, Dodge::Invalid, 0, Ready::Invalid, {}},
        {"first DTO", false, std::nullopt, Premade(1, Slots(3)), Search::Invalid, Dodge::Invalid, 0, Ready::Invalid, {}},
        {"ready check declined by named slots", true, readyCheck7, Premade(8, Slots(3), kAfkFailed, {1, 2}), Search::Canceled, Dodge::Invalid, 0, Ready::PartyNotReady, {11, 12}},
        {"ready check declined by a member who left", true, readyCheck7, Premade(8, SlotsWith({1, 2}), kAfkFailed), Search::Canceled, Dodge::Invalid, 0, Ready::PartyNotReady, {13}},
        {"members who left, then named slots", true, readyCheck7, Premade(8, SlotsWith({2}), kAfkFailed, {2, 2}), Search::Canceled, Dodge::Invalid, 0, Ready::PartyNotReady, {11, 13, 12, 12}},
        {"ready check declined by a stranger", true, readyCheck7, Premade(8, Slots(3), kAfkFailed, {7}), Search::Canceled, Dodge::Invalid, 0, Ready::StrangerNotReady, {}},
        {"back in the queue after the ready check", true, readyCheck7, Searching(8), Search::Searching, Dodge::Invalid, 0, Ready::StrangerNotReady, {}},
        {"same counter after the ready check", true, readyCheck7, Searching(7), Search::Searching, Dodge::Invalid, 0, Ready::Invalid, {}},
        {"search that says the ready check failed", false, std::nullopt, Searching(3, kAfkFailed), Search::Searching, Dodge::Invalid, 0, Ready::StrangerNotReady, {}},
        {"search after a dodge", false, std::nullopt, Searching(3, kTimedOut), Search::Searching, Dodge::StrangerDodged, 0, Ready::Invalid, {}},
        {"search after champion select", true, champSelect, Searching(6), Search::Searching, Dodge::StrangerDodged, 0, Ready::Invalid, {}},
        {"search state missing after champion select", true, champSelect, Dto("MATCHMAKING", 6), Search::Searching, Dodge::Invalid, 0, Ready::Invalid, {}},
        {"ready check", true, Searching(3), ReadyCheck(4), Search::Found, Dodge::Invalid, 0, Ready::InProgress, {}},
        {"champion select", true, readyCheck7, ChampSelect(8), Search::Invalid, Dodge::Invalid, 0, Ready::EveryoneReady, {}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::optional<TbLobbyPremadeStateResource> lastKnown;
        if (c.lobbySeen) {
            lastKnown = Premade(1, Slots(3)).premadeState;
        }
        const MatchmakingSearch search = DeriveMatchmakingSearch(
            SearchContext{&lastKnown}, c.previous, c.incoming, std::nullopt);
        EXPECT_EQ(search.queueId, kQueue);
        EXPECT_EQ(search.isCurrentlyInQueue, c.incoming.phaseName == "MATCHMAKING");
        EXPECT_EQ(search.searchState, c.search);
        EXPECT_EQ(search.dodgeData.state, c.dodge);
        EXPECT_EQ(search.dodgeData.dodgerId, c.dodgerId);
        EXPECT_EQ(search.readyCheck.state, c.ready);
        EXPECT_EQ(search.readyCheck.declinerIds, c.decliners);
        EXPECT_EQ(search.readyCheck.playerResponse, MatchmakingReadyCheckResponse::None);
    }
}

// GET serves the last search the intake derived, whatever was published.
TEST(MatchmakingSearchTest, GetServesTheLastSearchDerived) {
    const TbdGameDtoV1 dtos[] = {Premade(1, Slots(3)), Searching(2), ReadyCheck(3), ChampSelect(4),
                                 Premade(5, Slots(2), kLeft)};
    TeamBuilderHost host(kInProcess);
    LobbyTeamBuilderPlugin& plugin = host.Plugin();
    std::optional<TbLobbyPremadeStateResource> lastKnown;
    std::optional<TbdGameDtoV1> previous;
    for (const TbdGameDtoV1& dto : dtos) {
        SCOPED_TRACE(dto.counter);
        const MatchmakingSearch search =
            DeriveMatchmakingSearch(SearchContext{&lastKnown}, previous, dto, std::nullopt);
        plugin.OnTbdGameDto(dto);
        EXPECT_EQ(*plugin.GetMatchmakingSearch(), search);
        lastKnown = plugin.LastKnownPremadeState();
        previous = dto;
    }
}

TEST(MatchmakingSearchTest, RestrictionsAndQueueEstimate) {
    const SearchContext context;

    GatekeeperRestricted restricted;
    restricted.gatekeeperRestrictions = {
        {21, "QUITGUARDED", 90000, "token-1", kQueue},
        {22, "QUEUE_DODGER", 1500, "", kQueue},
        {23, "QUITGUARDED", 30000, "token-2", kQueue},
        {24, "RANKED_RESTRICTED", 0, "", kQueue},
    };
    MatchmakingSearch search =
        DeriveMatchmakingSearch(context, std::nullopt, Searching(1, {}, -5), restricted);
    EXPECT_EQ(search.lowPriorityData.penalizedSummonerIds, (std::vector<uint64_t>{21, 23}));
    EXPECT_DOUBLE_EQ(search.lowPriorityData.penaltyTime, 30.0);
    EXPECT_EQ(search.lowPriorityData.quitguardedAccessToken, "token-2");
    EXPECT_EQ(search.lowPriorityData.penaltyTimeRemaining, 0.0);
    ASSERT_EQ(search.errors.size(), 2u);
    EXPECT_EQ(search.errors[0],
              (MatchmakingSearchErrorResource{-1, "QUEUE_DODGER", 22, 1.5, "QUEUE_DODGER"}));
    EXPECT_EQ(search.errors[1].penaltyTimeRemaining, 0.0);
    EXPECT_EQ(search.estimatedQueueTime, 0.0f);
    EXPECT_EQ(search.timeInQueue, 0.0f);

    restricted.gatekeeperRestrictions = {{21, "QUITGUARDED", 90000, "", kQueue}};
    search = DeriveMatchmakingSearch(context, std::nullopt, Searching(1, {}, 1500), restricted);
    EXPECT_DOUBLE_EQ(search.lowPriorityData.penaltyTime, 90.0);
    EXPECT_TRUE(search.errors.empty());
    EXPECT_EQ(search.lowPriorityData.quitguardedAccessToken, "");
    EXPECT_FLOAT_EQ(search.estimatedQueueTime, 1.5f);

    search = DeriveMatchmakingSearch(context, std::nullopt, Searching(1, {}, 0), std::nullopt);
    EXPECT_EQ(search.estimatedQueueTime, 0.0f);
    // Only a search state carries an estimate.
    search = DeriveMatchmakingSearch(context, std::nullopt, ReadyCheck(1), std::nullopt);
    EXPECT_EQ(search.estimatedQueueTime, 0.0f);
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
