// Champion select's session check as a table: from the stored and the
// incoming record to the transition and its changes and effects in order,
// without carrying any of them out.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "teambuilder/champselect/ChampSelectResources.h"
#include "tests/teambuilder/ChampSelectTestSupport.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

std::string Describe(const Effect& effect) {
    if (const auto* change = std::get_if<ResourceChange>(&effect)) {
        static const char* const kTypes[] = {"Create", "Update", "Delete"};
        const std::string_view uri = change->uri;
        std::string line = std::string(kTypes[static_cast<int>(change->type)]) + " " +
                           std::string(uri.substr(uri.rfind('/') + 1));
        if (const bool* flag = std::get_if<bool>(&change->value)) {
            line += *flag ? " true" : " false";
        } else if (const auto* boost = std::get_if<TeamBoost>(&change->value)) {
            line += " price " + std::to_string(boost->price);
        }
        return line;
    }
    if (const auto* line = std::get_if<LogLine>(&effect)) {
        return std::to_string(line->level) + " " + line->text;
    }
    if (const auto* timer = std::get_if<CeremonyTimer>(&effect)) {
        return "ceremony timer " + std::to_string(timer->actionId) + " " + timer->label + " " +
               std::to_string(timer->durationMillis);
    }
    if (std::holds_alternative<WardSkinRequest>(effect)) {
        return "ward skin request";
    }
    if (const auto* event = std::get_if<GameflowEvent>(&effect)) {
        return "game flow " + std::string(event->event);
    }
    return "session changed";
}

GameDtoRecord At(uint64_t receivedAt, std::optional<TbdGameDtoV1> dto) {
    return GameDtoRecord{std::move(dto), receivedAt};
}

TbdGameDtoV1 WithCeremonies(TbdGameDtoV1 dto, std::string key, BindingProperty ceremonies) {
    dto.championSelectState->ceremoniesByActionSetIndex[std::move(key)] = std::move(ceremonies);
    return dto;
}

struct Row {
    const char* name;
    std::vector<TbdGameDtoV1> before;  // pushed through the intake first
    GameDtoRecord previous;
    GameDtoRecord incoming;
    ChampSelectTransition transition;
    Strings effects;
};

TEST(ChampSelectTransitionTest, TransitionsAndTheirEffectsInOrder) {
    const Strings entering = {"ward skin request",
                              "3 Creating champ select session.",
                              "Update implementation-active true",
                              "Create session",
                              "Create team-boost price 250",
                              "session changed",
                              "game flow GAMEFLOW_EVENT.ENTERED_CHAMP_SELECT"};
    Strings enteringWithCeremony = entering;
    enteringWithCeremony.insert(enteringWithCeremony.begin() + 3, "ceremony timer 100 INTRO 5000");
    Strings enteringWithBrokenCeremony = entering;
    enteringWithBrokenCeremony.insert(enteringWithBrokenCeremony.begin() + 3,
                                      R"(1 Failed to convert ceremonies: [["x"]])");
    const TbdGameDtoV1 ready = ReadyCheck(4);
    // clang-format off
    const Row rows[] = {
        {"lobby to lobby", {}, At(1, Premade(1, Slots(2))), At(2, Premade(2, Slots(2))), ChampSelectTransition::None, {}},
        {"entering", {}, At(1, ready), At(2, Draft(5)), ChampSelectTransition::Enter, entering},
        {"entering on a ceremony", {}, At(1, ready), At(2, WithCeremonies(Draft(5), "0", ArrayOf({Ceremony("INTRO", 5000)}))), ChampSelectTransition::Enter, enteringWithCeremony},
        {"entering with a ceremony that does not convert", {}, At(1, ready), At(2, WithCeremonies(Draft(5), "1", ArrayOf({BindingProperty("x")}))), ChampSelectTransition::Enter, enteringWithBrokenCeremony},
        {"entering a draft that is over", {Draft(1), Premade(2, Slots(2))}, At(1, Premade(2, Slots(2))), At(2, Draft(3)), ChampSelectTransition::StaleTeam, {"3 Received out-of-date TB champ select dto while in matchmaking."}},
        {"updating", {}, At(1, Draft(5)), At(2, Draft(6)), ChampSelectTransition::Update, {"Update session", "session changed"}},
        {"leaving", {}, At(1, Draft(5)), At(2, Premade(6, Slots(2))), ChampSelectTransition::Leave, {"Delete team-boost", "3 Deleting champ select session.", "Delete session", "Update implementation-active false"}},
        {"leaving for no DTO", {}, At(1, Draft(5)), At(2, std::nullopt), ChampSelectTransition::Leave, {"Delete team-boost", "3 Deleting champ select session.", "Delete session", "Update implementation-active false"}},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        TeamBuilderHost host(kInProcess);
        for (const TbdGameDtoV1& dto : row.before) {
            host.Push(dto);
        }
        host.TakeEvents();
        Effects effects;
        EXPECT_EQ(host.Plugin().CheckChampSelectSession(row.previous, row.incoming, effects),
                  row.transition);
        Strings described;
        for (const Effect& effect : effects) {
            described.push_back(Describe(effect));
        }
        EXPECT_EQ(described, row.effects);
        // A check publishes nothing.
        EXPECT_TRUE(host.TakeEvents().empty());
    }
}

TEST(ChampSelectTransitionTest, AnUnchangedSessionIsNoChange) {
    TeamBuilderHost host(kInProcess);
    host.Push(Draft(5));
    NextMillisecond();
    host.Push(Draft(6));
    const GameDtoRecord stored = host.Plugin().StoredDto();
    Effects effects;
    // The update path compares with the session it published last.
    EXPECT_EQ(host.Plugin().CheckChampSelectSession(stored, stored, effects),
              ChampSelectTransition::None);
    EXPECT_TRUE(effects.empty());
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

TbdGameDtoV1 Boosted(int32_t counter, std::vector<int64_t> skins, bool activated) {
    TbdGameDtoV1 dto = Draft(counter);
    dto.championSelectState->battleBoostState.unlockedSkinIds = std::move(skins);
    dto.championSelectState->battleBoostState.battleBoostActivated = activated;
    dto.championSelectState->battleBoostState.activatorCellId = 2;
    return dto;
}

struct BoostRow {
    const char* name;
    bool inSession;  // a session (and its team boost) was created before
    TbdGameDtoV1 previous;
    TbdGameDtoV1 incoming;
    std::optional<TeamBoost> expected;
};

TEST(ChampSelectTransitionTest, TeamBoostChecks) {
    TeamBoost unlocked;
    unlocked.summonerName = "summoner2";
    unlocked.skinUnlockMode = "SINGLE";
    unlocked.price = 250;
    unlocked.availableSkins = {7001, 7002};
    TeamBoost activated = unlocked;
    activated.unlocked = true;
    // clang-format off
    const BoostRow rows[] = {
        {"nothing new", true, Boosted(5, {7001, 7002}, false), Boosted(6, {7001, 7002}, false), std::nullopt},
        {"skins unlocked", true, Boosted(5, {}, false), Boosted(6, {7001, 7002}, false), unlocked},
        {"boost activated", true, Boosted(5, {7001, 7002}, false), Boosted(6, {7001, 7002}, true), activated},
        {"activated before", true, Boosted(5, {7001, 7002}, true), Boosted(6, {7001, 7002}, true), std::nullopt},
        {"no session's boost", false, Boosted(5, {}, false), Boosted(6, {7001, 7002}, true), std::nullopt},
        {"out of champion select", true, Boosted(5, {}, false), Premade(6, Slots(2)), std::nullopt},
    };
    // clang-format on
    for (const BoostRow& row : rows) {
        SCOPED_TRACE(row.name);
        TeamBuilderHost host(kInProcess);
        if (row.inSession) {
            host.Push(Draft(1));
        }
        host.TakeEvents();
        Effects effects;
        host.Plugin().CheckTeamBoost(At(1, row.previous), At(2, row.incoming), effects);
        Effects expected;
        if (row.expected) {
            expected.emplace_back(Updated(kTeamBoostUri, *row.expected));
        }
        EXPECT_EQ(effects, expected);
        EXPECT_TRUE(host.TakeEvents().empty());
    }
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
