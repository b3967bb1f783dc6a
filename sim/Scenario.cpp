#include "sim/Scenario.h"

#include <array>

namespace Orvan::Simulation {

namespace {

constexpr std::array<ScenarioDefinition, 6> kScenarios = {{
    {.name = "draft",
     .summary = "the whole path: create a lobby, queue, ready check, bans, picks, final phase, "
                "game start",
     .expectedEnd = "the game starts and the plugin clears its lobby, search and champion select",
     .partySize = 2,
     .strangerDeclinesFirstCheck = true,
     .banTimerRunsOut = true,
     .tradeAndBoost = true},
    {.name = "dodge",
     .summary = "a stranger leaves champion select and everyone returns to the lobby",
     .expectedEnd = "the party is back in its lobby and the search names a stranger dodge",
     .partySize = 2,
     .strangerDodges = true},
    {.name = "decline",
     .summary = "a party member declines the ready check",
     .expectedEnd = "the party is back in its lobby and the ready check names the decliner",
     .partySize = 2,
     .partyMemberDeclines = true},
    {.name = "kicked",
     .summary = "the local player joins a friend's lobby by invitation and is kicked",
     .expectedEnd = "the lobby says the local player was kicked, then it is removed",
     .partySize = 3,
     .localCreatesLobby = false,
     .localGetsKicked = true},
    {.name = "low-priority",
     .summary = "a leaver penalty sends the party to the low-priority queue, which needs a token",
     .expectedEnd = "the search shows the penalty and token, searches with it, and the "
                    "low-priority queue is abandoned",
     .partySize = 2,
     .leaverPenalty = true},
    {.name = "reconnect",
     .summary = "the login connection drops during champion select and comes back",
     .expectedEnd = "the plugin retries past temporary errors, catches up with the latest game "
                    "record and the game starts",
     .partySize = 1,
     .connectionDrops = true,
     .temporaryErrors = 2},
}};

}  // namespace

std::span<const ScenarioDefinition> Scenarios() {
    return kScenarios;
}

const ScenarioDefinition* FindScenario(std::string_view name) {
    for (const ScenarioDefinition& scenario : kScenarios) {
        if (scenario.name == name) {
            return &scenario;
        }
    }
    return nullptr;
}

}  // namespace Orvan::Simulation
