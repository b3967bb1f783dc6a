// The fixed texts of champion select: the resources the plugin publishes
// under its champion-select route base, the messages its routes fail with,
// the chat domain of the team's chat room, and the test of whether a game DTO
// is in champion select.
//
// Constants and inline helpers only; no state. Threads: any.
#pragma once

#include <string_view>

#include "teambuilder/common/GameDtoRecord.h"

namespace Orvan::Client::LobbyTeamBuilder {

// Resources published (and routes served) under the champion-select base.
inline constexpr std::string_view kImplementationActiveUri =
    "/qel-lobby-team-builder/champ-select/v1/implementation-active";
inline constexpr std::string_view kChampSelectSessionUri =
    "/qel-lobby-team-builder/champ-select/v1/session";
inline constexpr std::string_view kTeamBoostUri =
    "/qel-lobby-team-builder/champ-select/v1/team-boost";
inline constexpr std::string_view kPickableChampionsUri =
    "/qel-lobby-team-builder/champ-select/v1/pickable-champions";
inline constexpr std::string_view kBannableChampionsUri =
    "/qel-lobby-team-builder/champ-select/v1/bannable-champions";
inline constexpr std::string_view kDisabledChampionsUri =
    "/qel-lobby-team-builder/champ-select/v1/disabled-champions";
inline constexpr std::string_view kPickableSkinsUri =
    "/qel-lobby-team-builder/champ-select/v1/pickable-skins";

// Asks the host application to show its window.
inline constexpr std::string_view kUxShowUri = "/orvanclient/ux-show";

// Sent to the game flow's event endpoint when a draft begins.
inline constexpr std::string_view kEnteredChampSelectEvent = "GAMEFLOW_EVENT.ENTERED_CHAMP_SELECT";

// Chat rooms of a draft live in "<room>@<domain name><suffix>"; the domain
// name is a platform setting, the suffix is the chat service's fixed domain.
inline constexpr std::string_view kChatDomainSuffix = ".chat.orvan.internal";

// Failures of the champion-select routes.
inline constexpr const char* kNoChampSelectSession = "No champ select session in progress.";
inline constexpr const char* kNoPickableChampions =
    "There is no available pickable champion data for a current team builder session";
inline constexpr const char* kNoBannableChampions =
    "There is no available bannable champion data for a current team builder session";
inline constexpr const char* kNoDisabledChampions =
    "There is no available disabled champion data for a current team builder session";
inline constexpr const char* kNoPickableSkins =
    "There is no available pickable skin data for a current team builder session";

// The draft state of a record, or null when the record is not in champion
// select (no DTO, or a DTO without a draft state).
inline const Api::ChampionSelectStateV1* ChampSelectStateOf(const GameDtoRecord& record) {
    return record.dto && record.dto->championSelectState ? &*record.dto->championSelectState
                                                         : nullptr;
}

inline bool IsInChampSelect(const GameDtoRecord& record) {
    return ChampSelectStateOf(record) != nullptr;
}

}  // namespace Orvan::Client::LobbyTeamBuilder
