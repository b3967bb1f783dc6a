// The fixed names the plugin shares with its partners: the team-builder
// service and the methods it answers or pushes with, the phases it reports,
// and the game-flow event endpoint. Each is spelled here once; the lobby,
// champion select, the fuzzers and the benchmarks refer to these.
//
// Constants only; no state. Threads: any.
#pragma once

#include <string_view>

namespace Orvan::Client::LobbyTeamBuilder {

// The game service every team-builder call and message goes to.
inline constexpr std::string_view kTeamBuilderService = "teambuilder-draft";
// The status of an answer the service accepted.
inline constexpr std::string_view kServiceStatusOk = "OK";

// Methods of the service's pushed messages and answers.
inline constexpr std::string_view kGameDtoMethod = "tbdGameDtoV1";
// The answer's method when the service refuses a party member's action for a
// restriction; also pushed on its own.
inline constexpr std::string_view kGatekeeperRestrictedMethod = "gatekeeperRestrictedV2";
inline constexpr std::string_view kRemovedFromServiceMethod = "removedFromServiceV1";
inline constexpr std::string_view kGameStartFailedMethod = "gameStartFailedV1";
inline constexpr std::string_view kQuitguardAbandonedMethod =
    "quitguardLowPriorityQueueAbandonedV1";

// Phases of a team-builder game, as the service spells them in phaseName.
inline constexpr std::string_view kPhaseDraftPremade = "DRAFT_PREMADE";
inline constexpr std::string_view kPhaseMatchmaking = "MATCHMAKING";
inline constexpr std::string_view kPhaseAfkCheck = "AFK_CHECK";
inline constexpr std::string_view kPhaseChampionSelect = "CHAMPION_SELECT";

// The game-flow plugin learns of the draft's milestones through this event.
inline constexpr std::string_view kGameflowEventUri = "/qel-gameflow/v1/session/event";

// The chat domain name of a draft's chat rooms until the platform setting
// names another.
inline constexpr std::string_view kDefaultChampSelectDomainName = "champ-select";

}  // namespace Orvan::Client::LobbyTeamBuilder
