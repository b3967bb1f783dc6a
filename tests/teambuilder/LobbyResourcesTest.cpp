// The lobby side's checkers without a host: from the stored and the incoming
// record (and what the component published before) to the changes and log
// lines, in order; and what the component keeps of them.
#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "teambuilder/lobby/LobbyResources.h"
#include "tests/teambuilder/support/TeamBuilderHost.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

GameDtoRecord Record(std::optional<TbdGameDtoV1> dto) {
    return GameDtoRecord{std::move(dto), 7};
}

Lobby LobbyOf(const TbdGameDtoV1& dto) {
    return DeriveLobby(dto, std::nullopt).lobby;
}

Effects Lines(std::initializer_list<Effect> effects) {
    return Effects(effects);
}

struct LobbyRow {
    const char* name;
    std::optional<TbdGameDtoV1> published;  // the lobby published before, from this DTO
    std::optional<TbdGameDtoV1> previous;
    std::optional<TbdGameDtoV1> incoming;
    std::optional<TbLobbyPremadeStateResource> lastKnown;
    Effects expected;
};

TEST(LobbyResourcesTest, LobbyAndCountdownChecks) {
    const TbdGameDtoV1 p1 = Premade(1, Slots(3));
    const TbdGameDtoV1 p2 = Premade(2, Slots(3));
    const TbdGameDtoV1 p3 = Premade(3, Slots(4));
    const TbdGameDtoV1 ready = ReadyCheck(4);
    Lobby lastKnownLobby = LobbyOf(p2);
    lastKnownLobby.queueId = ready.queueId;
    // clang-format off
    const LobbyRow rows[] = {
        {"first DTO: the countdown only", std::nullopt, std::nullopt, p1, std::nullopt, Lines({Updated(kLobbyCountdownUri, DeriveCountdown(p1))})},
        {"second DTO: the lobby, then the countdown twice", std::nullopt, p1, p2, std::nullopt, Lines({Updated(kLobbyUri, LobbyOf(p2)), Updated(kLobbyCountdownUri, DeriveCountdown(p2)), Updated(kLobbyCountdownUri, DeriveCountdown(p2))})},
        {"unchanged lobby: the countdown once", p1, p1, p2, std::nullopt, Lines({Updated(kLobbyCountdownUri, DeriveCountdown(p2))})},
        {"member joins", p2, p2, p3, std::nullopt, Lines({Updated(kLobbyUri, LobbyOf(p3)), Updated(kLobbyCountdownUri, DeriveCountdown(p3)), Updated(kLobbyCountdownUri, DeriveCountdown(p3))})},
        {"ready check: the last known lobby stands in", p2, p2, ready, p2.premadeState, Lines({LastKnownPremadeStateLine(), Updated(kLobbyCountdownUri, DeriveCountdown(ready))})},
        {"ready check with nothing known", p2, p2, ready, std::nullopt, Lines({LastKnownPremadeStateLine(), Updated(kLobbyUri, LobbyOf(ready)), Updated(kLobbyCountdownUri, DeriveCountdown(ready)), Updated(kLobbyCountdownUri, DeriveCountdown(ready))})},
        {"DTO cleared", p2, p2, std::nullopt, std::nullopt, Lines({Deleted(kLobbyUri)})},
        {"nothing before, nothing now", std::nullopt, std::nullopt, std::nullopt, std::nullopt, {}},
    };
    // clang-format on
    for (const LobbyRow& row : rows) {
        SCOPED_TRACE(row.name);
        LobbyResources resources;
        if (row.published) {
            resources.Keep(Lines({Updated(kLobbyUri, LobbyOf(*row.published))}));
        }
        Effects got;
        resources.CheckLobby(Record(row.previous), Record(row.incoming), row.lastKnown, got);
        EXPECT_EQ(got, row.expected);
    }
    // The ready check's lobby from the last known premade state is the lobby
    // last published, with the ready check's queue.
    EXPECT_EQ(DeriveLobby(ready, p2.premadeState).lobby, lastKnownLobby);
}

struct SearchRow {
    const char* name;
    bool publishedBefore;  // an update published `search` before
    std::optional<TbdGameDtoV1> previous;
    std::optional<TbdGameDtoV1> incoming;
    ResourceEventType expectedType;
    int expectedCount;  // 0 or 1 changes
};

TEST(LobbyResourcesTest, MatchmakingChecksAndWhatIsKept) {
    const TbdGameDtoV1 p1 = Premade(1, Slots(3));
    const TbdGameDtoV1 s2 = Searching(2);
    MatchmakingSearch search;
    search.queueId = kQueue;
    search.searchState = MatchmakingSearchState::Searching;
    // clang-format off
    const SearchRow rows[] = {
        {"first DTO: created", false, std::nullopt, s2, ResourceEventType::Create, 1},
        {"changed: updated", false, p1, s2, ResourceEventType::Update, 1},
        {"same as published: nothing", true, p1, s2, ResourceEventType::Update, 0},
        {"cleared: deleted", true, s2, std::nullopt, ResourceEventType::Delete, 1},
        {"nothing at all", false, std::nullopt, std::nullopt, ResourceEventType::Update, 0},
    };
    // clang-format on
    for (const SearchRow& row : rows) {
        SCOPED_TRACE(row.name);
        LobbyResources resources;
        if (row.publishedBefore) {
            resources.Keep(Lines({Updated(kMatchmakingUri, search)}));
        }
        Effects changes;
        resources.CheckMatchmakingSearch(Record(row.previous), Record(row.incoming), search,
                                         changes);
        ASSERT_EQ(static_cast<int>(changes.size()), row.expectedCount);
        if (row.expectedCount == 1) {
            const auto& change = std::get<ResourceChange>(changes[0]);
            EXPECT_EQ(change.uri, kMatchmakingUri);
            EXPECT_EQ(change.type, row.expectedType);
            const ResourceValue expected = row.expectedType == ResourceEventType::Delete
                                               ? ResourceValue()
                                               : ResourceValue(search);
            EXPECT_EQ(change.value, expected);
        }
    }

    // A Create is not remembered: the next DTO's search is compared with the
    // default one. An Update is, and a Delete forgets it.
    LobbyResources resources;
    resources.Keep(Lines({Created(kMatchmakingUri, search)}));
    EXPECT_EQ(resources.PublishedSearch(), MatchmakingSearch());
    resources.Keep(Lines({Updated(kMatchmakingUri, search)}));
    EXPECT_EQ(resources.PublishedSearch(), search);
    resources.Keep(Lines({Updated(kLobbyUri, LobbyOf(p1)), Deleted(kMatchmakingUri)}));
    EXPECT_EQ(resources.PublishedSearch(), MatchmakingSearch());
    EXPECT_EQ(resources.PublishedLobby(), LobbyOf(p1));
    resources.Keep(Lines({Deleted(kLobbyUri)}));
    EXPECT_EQ(resources.PublishedLobby(), Lobby());
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
