// Scenario: the named stories the simulator can play. A scenario fixes how the
// simulated players behave (who joins, who declines, who leaves, who kicks)
// and what the service does on its own (a leaver penalty, a dropped
// connection); the local player's side is played by whoever drives the host.
//
// Ownership: the table is static and immutable. Threads: any.
#pragma once

#include <span>
#include <string_view>

namespace Orvan::Simulation {

struct ScenarioDefinition {
    std::string_view name;
    // One line for a reader who has never seen the project.
    std::string_view summary;
    // What the run must end with to count as a success.
    std::string_view expectedEnd;

    // Members of the local player's party, the local player included (1..5).
    int partySize = 2;
    // The local player creates the lobby; otherwise a friend creates it and
    // invites the local player, who joins through the invitation.
    bool localCreatesLobby = true;
    // A stranger declines the first ready check; the party is searched again.
    bool strangerDeclinesFirstCheck = false;
    // A party member declines the ready check; the party falls back to its lobby.
    bool partyMemberDeclines = false;
    // A stranger of the other team leaves champion select.
    bool strangerDodges = false;
    // The friend who owns the lobby kicks the local player.
    bool localGetsKicked = false;
    // The local player carries a leaver penalty: matchmaking asks for the
    // low-priority queue and its token.
    bool leaverPenalty = false;
    // The login connection drops during champion select.
    bool connectionDrops = false;
    // Temporary errors the service answers before it hands out the latest
    // game record after a reconnection.
    int temporaryErrors = 0;
    // One stranger never bans, so the ban timer runs out.
    bool banTimerRunsOut = false;
    // A party member offers a trade in the final phase and a teammate
    // activates the team boost.
    bool tradeAndBoost = false;
};

std::span<const ScenarioDefinition> Scenarios();

// Null when no scenario has that name.
const ScenarioDefinition* FindScenario(std::string_view name);

}  // namespace Orvan::Simulation
